// INI files on disk: marks, dates, safe saves, and what becomes of the files when a call to the system fails.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "IniChecks.h"
#include "IniFile.h"
#include "IniSystem.h"
#include "RowFiles.h"
#include "TempFolder.h"

namespace {

using kztest::CheckedIni;
using kztest::NewIni;
using kztest::ReadWholeFile;
using kztest::TempFolder;

constexpr int kInPlace = 0;
constexpr int kDerived = kIniWriteSafely;
constexpr int kUnique = kIniWriteSafely | kIniWriteMkstemp;

CheckedIni Sample(int writeOptions, const std::string& value = "1")
{
    CheckedIni ini = NewIni();
    IniSetWriteOptions(ini.get(), -1, 0, writeOptions);
    IniPutRawString(ini.get(), "a", "x", value.c_str());
    return ini;
}

struct stat StatusOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status;
}

// What the faulty calls do to the call whose turn it is.
struct Fault {
    enum Kind { kNone, kFail, kShortWrite, kKill };

    Kind kind = kNone;
    int at = 0;  // counted from 1
    int error = 0;
    std::size_t written = 0;  // bytes of a write before it is short or the process dies
};

Fault gFault;
int gCalls;

// True when the call shall fail.
bool Fails()
{
    if (++gCalls != gFault.at) {
        return false;
    }
    if (gFault.kind == Fault::kKill) {
        kill(getpid(), SIGKILL);
    }
    errno = gFault.error;
    return gFault.kind == Fault::kFail;
}

const qkini::SystemCalls kReal = qkini::g_system;

ssize_t FaultyWrite(int file, const void* bytes, std::size_t size)
{
    const bool isMine = gCalls + 1 == gFault.at;
    if (isMine && (gFault.kind == Fault::kShortWrite || gFault.kind == Fault::kKill)) {
        const ssize_t written = kReal.write(file, bytes, std::min(size, gFault.written));
        Fails();
        return written;
    }
    return Fails() ? -1 : kReal.write(file, bytes, size);
}

// The call of the table, but for the one that shall fail.
template <auto call>
struct Faulty;
template <typename Result, typename... T, Result (*qkini::SystemCalls::*call)(T...)>
struct Faulty<call> {
    static Result Call(T... arguments) { return Fails() ? -1 : (kReal.*call)(arguments...); }
};

// Puts the faulty calls in the place of the system's.
class FaultySystem {
    using Calls = qkini::SystemCalls;

public:
    explicit FaultySystem(const Fault& fault)
    {
        gFault = fault;
        gCalls = 0;
        qkini::g_system = {
            &Faulty<&Calls::open>::Call,
            [](char* name) {
                if (Fails()) {
                    *std::strrchr(name, 'X') = 'a';  // as a real one does
                    return -1;
                }
                return kReal.mkstemp(name);
            },
            &FaultyWrite,
            [](int) { return Fails() ? -1 : 0; },  // for speed
            [](int file) {
                const bool fails = Fails();
                const int error = errno;
                const int result = kReal.close(file);
                errno = error;
                return fails ? -1 : result;
            },
            &Faulty<&Calls::stat>::Call,
            &Faulty<&Calls::fstat>::Call,
            &Faulty<&Calls::fchmod>::Call,
            &Faulty<&Calls::fchown>::Call,
            &Faulty<&Calls::getxattr>::Call,
            &Faulty<&Calls::fsetxattr>::Call,
            &Faulty<&Calls::fremovexattr>::Call,
            &Faulty<&Calls::rename>::Call,
            &Faulty<&Calls::unlink>::Call,
        };
    }
    ~FaultySystem() { qkini::g_system = kReal; }
    FaultySystem(const FaultySystem&) = delete;
    FaultySystem& operator=(const FaultySystem&) = delete;
};

// A save over an old file, or none, with one fault. Returns whether the fault's turn came.
bool SaveWith(const Fault& fault, int options, bool hasOld)
{
    const TempFolder folder;
    const std::string path = folder.File("file.ini");
    const std::string old = "old";
    if (hasOld) {
        folder.Write("file.ini", old);
        chmod(path.c_str(), 0640);
    }
    const CheckedIni ini = Sample(options | kIniWriteSync, std::string(20000, 'v'));
    int result;
    {
        const FaultySystem system(fault);
        result = IniWriteToFile(ini.get(), path.c_str());
    }
    const bool isNew = std::filesystem::exists(path) && ReadWholeFile(path).size() > 20000;
    EXPECT_EQ(result == 1, isNew);
    if (!isNew && (options & kIniWriteSafely) != 0) {
        EXPECT_EQ(hasOld, std::filesystem::exists(path));
        EXPECT_EQ(hasOld ? old : "", ReadWholeFile(path));
    }
    EXPECT_EQ(std::filesystem::exists(path) ? 1u : 0u, kztest::FilesIn(folder).size()) << "a file is left";
    if (fault.kind == Fault::kShortWrite || (fault.kind == Fault::kFail && fault.error == EINTR)) {
        EXPECT_EQ(1, result) << "what may be called again";
        EXPECT_EQ(0, IniLostRights(ini.get()));
    }
    return gCalls >= fault.at;
}

TEST(IniStorage, AFailingCallLeavesTheOldOrTheNewFile)
{
    std::vector<Fault> faults;
    for (const int error : {EIO, ENOSPC, EINTR}) {
        faults.push_back({Fault::kFail, 0, error});
    }
    for (const std::size_t written : {1u, 100u, 8191u}) {
        faults.push_back({Fault::kShortWrite, 0, 0, written});
    }
    for (const int options : {kInPlace, kDerived, kUnique}) {
        for (const bool hasOld : {false, true}) {
            for (Fault fault : faults) {
                for (bool isReached = true; isReached;) {
                    ++fault.at;
                    SCOPED_TRACE(testing::Message() << "options " << options << ", old file " << hasOld << ", error "
                                                    << fault.error << " in call " << fault.at);
                    isReached = SaveWith(fault, options, hasOld);
                }
                EXPECT_GT(fault.at, options == kInPlace ? 5 : 9) << "calls were tried";
            }
        }
    }
}

TEST(IniStorage, AKilledSaveLeavesTheOldOrTheNewFile)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int kKills = 100;
#else
    constexpr int kKills = 2000;
#endif
    const TempFolder folder;
    const std::string path = folder.Write("file.ini", "");
    qkini::g_system.fsync = [](int) { return 0; };  // for speed
    const CheckedIni versions[] = {Sample(kUnique | kIniWriteSync, std::string(20000, 'v')),
                                   Sample(kDerived | kIniWriteSync, std::string(30000, 'w'))};
    std::string expected[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(1, IniWriteToFile(versions[i].get(), path.c_str()));
        expected[i] = ReadWholeFile(path);
    }
    std::minstd_rand random(20261123);
    int olds = 0;
    for (int i = 0; i < kKills; ++i) {
        const Fault fault{Fault::kKill, static_cast<int>(random() % 24) + 1, 0, random() % 8192};
        const int version = static_cast<int>(random() % 2);
        const bool hasOld = random() % 4 != 0;
        ASSERT_EQ(1, IniWriteToFile(versions[1 - version].get(), path.c_str()));
        ASSERT_TRUE(hasOld || std::filesystem::remove(path));
        const pid_t child = fork();
        if (child == 0) {
            const FaultySystem system(fault);
            _exit(IniWriteToFile(versions[version].get(), path.c_str()));
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        const std::string content = ReadWholeFile(path);
        const bool isOld = content == (hasOld ? expected[1 - version] : "");
        ASSERT_TRUE(isOld || content == expected[version]) << "killed in call " << fault.at;
        olds += isOld ? 1 : 0;
    }
    qkini::g_system = kReal;
    EXPECT_GT(olds, kKills / 10);
    EXPECT_LT(olds, kKills - kKills / 10);
    for (const auto& [name, file] : kztest::FilesIn(folder)) {
        EXPECT_TRUE(name == "file.ini" || name == "file.TMP" || name.starts_with("ini$$.TMP")) << name;
    }
}

// A system in which a file has an owner and a group of our choice, and each call is interrupted once.
struct Rights {
    int line;
    mode_t oldMode;
    int kept;  // of IniLostRight: what the process may give away, and whether modes with special bits are taken
    mode_t newMode;
    int lost;
};
Rights gRights;
uid_t gOwner;  // of the new file
gid_t gGroup;
mode_t gModeAtRename;
bool gIsInterrupted;

bool IsInterrupted()
{
    gIsInterrupted = !gIsInterrupted;
    errno = EINTR;
    return gIsInterrupted;
}

int GiveAway(int, uid_t owner, gid_t group)
{
    const int wanted = (owner != uid_t(-1) ? kIniLostOwner : 0) | (group != gid_t(-1) ? kIniLostGroup : 0);
    if (IsInterrupted() || (wanted & ~gRights.kept) != 0) {
        errno = gIsInterrupted ? EINTR : EPERM;
        return -1;
    }
    gOwner = owner != uid_t(-1) ? owner : gOwner;
    gGroup = group != gid_t(-1) ? group : gGroup;
    return 0;
}

TEST(IniStorage, RightsOfAGroupOrOwnerThatIsLostGoToNobody)
{
    constexpr int kNone = 0;
    constexpr int kOwner = kIniLostOwner;
    constexpr int kGroup = kIniLostGroup;
    constexpr int kMode = kIniLostMode;
    const Rights rows[] = {
        {__LINE__, 0640, kOwner, 0600, kGroup | kMode},
        {__LINE__, 0664, kOwner, 0644, kGroup | kMode},
        {__LINE__, 0604, kOwner, 0600, kGroup | kMode},
        {__LINE__, 0644, kNone, 0644, kOwner | kGroup},
        {__LINE__, 02770, kMode, 0700, kOwner | kGroup | kMode},
        {__LINE__, 0660, kGroup, 0660, kOwner},
        {__LINE__, 04755, kGroup | kMode, 0755, kOwner | kMode},
        {__LINE__, 06775, kOwner | kGroup | kMode, 06775, kNone},
        {__LINE__, 06775, kOwner | kGroup, 0775, kMode},
    };
    const TempFolder folder;
    const std::string path = folder.Write("file.ini", "");
    for (const Rights& row : rows) {
        SCOPED_TRACE(row.line);
        gRights = row;
        gOwner = geteuid();
        gGroup = getegid();
        gIsInterrupted = false;
        qkini::g_system.stat = [](const char* name, struct stat* out) {
            const int result = kReal.stat(name, out);
            out->st_uid += 1000;
            out->st_gid += 1000;
            out->st_mode = S_IFREG | gRights.oldMode;
            return result;
        };
        qkini::g_system.fstat = [](int file, struct stat* out) {
            const int result = kReal.fstat(file, out);
            out->st_uid = gOwner;
            out->st_gid = gGroup;
            return result;
        };
        qkini::g_system.fchown = &GiveAway;
        qkini::g_system.fchmod = [](int file, mode_t mode) {
            if (IsInterrupted()) {
                return -1;
            }
            errno = EPERM;
            return (mode & 07000) != 0 && (gRights.kept & kIniLostMode) == 0 ? -1 : kReal.fchmod(file, mode);
        };
        qkini::g_system.rename = [](const char* from, const char* to) {
            gModeAtRename = StatusOf(from).st_mode & 07777;
            EXPECT_EQ(std::filesystem::path(to).parent_path(), std::filesystem::path(from).parent_path());
            return kReal.rename(from, to);
        };
        const CheckedIni ini = Sample(kUnique);
        EXPECT_EQ(1, IniWriteToFile(ini.get(), path.c_str()));
        qkini::g_system = kReal;
        EXPECT_EQ(row.newMode, gModeAtRename) << std::oct << gModeAtRename;
        EXPECT_EQ(row.lost, IniLostRights(ini.get()));
        EXPECT_EQ(kIniErrFile, IniWriteToFile(ini.get(), ""));
        EXPECT_EQ(0, IniLostRights(ini.get())) << "of the last save only";
    }
    EXPECT_EQ(kIniErrFile, IniLostRights(nullptr));
}

// The bytes of a list: rights of the owner, the user 1000, the group, the mask and all others.
using Acl = std::array<std::uint32_t, 11>;
Acl AclOf(std::uint32_t owner, std::uint32_t user, std::uint32_t group, std::uint32_t mask, std::uint32_t other)
{
    const auto entry = [](std::uint32_t tag, std::uint32_t rights) { return tag | rights << 16; };
    constexpr std::uint32_t kNobody = 0xFFFFFFFF;
    return {2,       entry(1, owner), kNobody, entry(2, user),   1000,   entry(4, group),
            kNobody, entry(16, mask), kNobody, entry(32, other), kNobody};
}

TEST(IniStorage, NobodyGainsRightsByAnAccessControlList)
{
    constexpr char kAccess[] = "system.posix_acl_access";
    const Acl old = AclOf(6, 6, 0, 6, 4);
    const Acl inherited = AclOf(7, 6, 7, 7, 5);
    const TempFolder folder;
    const std::string path = folder.Write("file.ini", "");
    const std::string top = folder.File("");
    if (setxattr(path.c_str(), kAccess, &old, sizeof old, 0) != 0 && errno == ENOTSUP) {
        GTEST_SKIP() << "no lists here";
    }
    for (const char* failing : {"none", "get", "set", "remove", "owner"}) {
        for (const bool hasOld : {false, true}) {
            for (const bool hasDefault : {false, true}) {
                SCOPED_TRACE(testing::Message() << failing << " fails, " << hasOld << ", " << hasDefault);
                std::filesystem::remove(path);
                removexattr(top.c_str(), "system.posix_acl_default");
                folder.Write("file.ini", "");
                ASSERT_EQ(0, chmod(path.c_str(), 0664));
                ASSERT_TRUE(!hasOld || setxattr(path.c_str(), kAccess, &old, sizeof old, 0) == 0);
                ASSERT_TRUE(!hasDefault ||
                            setxattr(top.c_str(), "system.posix_acl_default", &inherited, sizeof inherited, 0) == 0);
                errno = EIO;
                if (*failing == 'g') {
                    qkini::g_system.getxattr = [](auto...) { return errno = EIO, ssize_t{-1}; };
                } else if (*failing == 's') {
                    qkini::g_system.fsetxattr = [](auto...) { return errno = EIO, -1; };
                } else if (*failing == 'r') {
                    qkini::g_system.fremovexattr = [](auto...) { return errno = EIO, -1; };
                } else if (*failing == 'o') {
                    qkini::g_system.stat = [](const char* name, struct stat* out) {
                        const int result = kReal.stat(name, out);
                        ++out->st_gid;
                        return result;
                    };
                    qkini::g_system.fchown = [](auto...) { return errno = EPERM, -1; };
                }
                const CheckedIni ini = Sample(hasDefault ? kUnique : kDerived);
                EXPECT_EQ(1, IniWriteToFile(ini.get(), path.c_str()));
                qkini::g_system = kReal;
                const bool isKept = *failing == 'n' || *failing == (hasOld ? 'r' : 's');
                Acl now = {};
                const ssize_t size = getxattr(path.c_str(), kAccess, &now, sizeof now);
                const int lostGroup = *failing == 'o' ? kIniLostGroup : 0;
                EXPECT_EQ(isKept ? 0 : kIniLostMode | lostGroup, IniLostRights(ini.get()));
                EXPECT_EQ(isKept ? 0664u : lostGroup != 0 && !hasOld ? 0644u : 0600u, StatusOf(path).st_mode & 07777);
                if (isKept) {
                    EXPECT_EQ(hasOld, size == sizeof old && now == old);
                    EXPECT_EQ(hasOld, size > 0);
                }
            }
        }
    }
}

TEST(IniStorage, ModeAndOwnerOfTheTargetAreKept)
{
    const TempFolder folder;
    const mode_t before = umask(0027);
    for (const int options : {kDerived, kUnique}) {
        const std::string path = folder.Write("file.ini", "");
        for (const mode_t mode : {0600u, 0444u, 0664u}) {
            if (mode == 0444 && geteuid() != 0) {
                continue;
            }
            chmod(path.c_str(), mode);
            if (geteuid() == 0) {
                ASSERT_EQ(0, chown(path.c_str(), 12, 34));
            }
            ASSERT_EQ(1, IniWriteToFile(Sample(options).get(), path.c_str()));
            const struct stat status = StatusOf(path);
            EXPECT_EQ(mode, status.st_mode & 07777);
            EXPECT_EQ(geteuid() == 0 ? 12 : geteuid(), status.st_uid);
        }
        std::filesystem::remove(path);
        ASSERT_EQ(1, IniWriteToFile(Sample(options).get(), path.c_str()));
        EXPECT_EQ(options == kUnique ? 0644u : 0640u, StatusOf(path).st_mode & 07777);
    }
    umask(before);
}

TEST(IniStorage, ASocketCannotBeOpened)
{
    const TempFolder folder;
    const int file = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.File("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(kIniErrOpen, IniReadFromFile(NewIni().get(), folder.File("socket").c_str()));
    close(file);
}

// A pipe has no start to go back to, and its first bytes are no mark.
TEST(IniStorage, APipeIsReadFromWhereItStands)
{
    FILE* const file = popen("printf '[p]\\ny=2\\n'", "r");
    const CheckedIni ini = NewIni();
    EXPECT_EQ(1, IniReadFromFilePtr(ini.get(), file));
    EXPECT_EQ((kztest::Sections{{"p", {{"y", "2"}}}}), kztest::ContentOf(ini.get()));
    pclose(file);
}

}  // namespace
