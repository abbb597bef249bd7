// INI files on disk: safe saves, and what becomes of the files and their rights when a call to the system fails.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

#include "IniChecks.h"
#include "IniFile.h"
#include "IniSystem.h"
#include "RowFiles.h"
#include "SystemFaults.h"
#include "TempFolder.h"

namespace {

using kztest::Calls;
using kztest::CheckedIni;
using kztest::Fault;
using kztest::kReal;
using kztest::PlaceFault;

constexpr int kInPlace = 0;
constexpr int kDerived = kIniWriteSafely;
constexpr int kUnique = kIniWriteSafely | kIniWriteMkstemp;
CheckedIni Sample(int writeOptions, const std::string& value = "1")
{
    CheckedIni ini = kztest::NewIni();
    IniSetWriteOptions(ini.get(), -1, 0, writeOptions);
    IniPutRawString(ini.get(), "a", "x", value.c_str());
    return ini;
}

// Saves, and puts the real system in its place again.
int Save(const CheckedIni& ini, const std::string& path)
{
    const int result = IniWriteToFile(ini.get(), path.c_str());
    qkini::g_system = kReal;
    return result;
}

struct stat StatusOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
    return status;
}

class IniStorage : public testing::Test {
protected:
    IniStorage() : mUmask(umask(0027)) {}
    ~IniStorage() override { umask(mUmask); }

    const kztest::TempFolder folder;
    const std::string path = folder.Write("file.ini", "");

private:
    mode_t mUmask;
};

// The result of a save with a fault; 0 when it died.
int ResultWith(const Fault& fault, const CheckedIni& ini, const std::string& path)
{
    const pid_t child = fault.kills ? fork() : 0;
    if (child != 0) {
        int status = 0;
        EXPECT_EQ(child, waitpid(child, &status, 0));
        return WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    }
    PlaceFault(fault);
    const int result = Save(ini, path);
    if (fault.kills) {
        _exit(result);
    }
    return result;
}

// A save over an old file, or none, with one fault. Returns whether the fault's turn came.
bool SaveWith(const Fault& fault, int options, bool hasOld)
{
    const kztest::TempFolder folder;
    const std::string path = folder.File("file.ini");
    const bool givesAway = hasOld && geteuid() == 0;
    if (hasOld) {
        folder.Write("file.ini", "old");
        EXPECT_EQ(0, chmod(path.c_str(), 0664));
        EXPECT_TRUE(!givesAway || chown(path.c_str(), 12, 34) == 0);
    }
    const CheckedIni ini = Sample(options | kIniWriteSync, std::string(20000, 'v'));
    const int result = ResultWith(fault, ini, path);
    const bool exists = std::filesystem::exists(path);
    const std::string content = kztest::ReadWholeFile(path);
    EXPECT_EQ(result == 1, content == kztest::TextOf(kztest::LinesOf(ini.get())));
    const bool isOld = content == (hasOld ? "old" : "") && (exists == hasOld || fault.kills);  // or still a probe
    EXPECT_TRUE(result == 1 || isOld || (options == kInPlace && !exists));
    if (fault.kills) {
        EXPECT_EQ(1, Save(ini, path)) << "what was left is in nobody's way";
        return result == 0;
    }
    EXPECT_EQ(exists ? 1u : 0u, kztest::FilesIn(folder).size()) << "a file is left";
    const bool mayBeCalledAgain = fault.error == 0 || fault.error == EINTR;
    EXPECT_TRUE(!mayBeCalledAgain || (result == 1 && IniLostRights(ini.get()) == 0));
    if (result == 1 && IniLostRights(ini.get()) == 0) {
        const struct stat status = StatusOf(path);
        EXPECT_EQ(hasOld ? 0664u : options == kUnique ? 0644u : 0640u, status.st_mode & 07777);
        EXPECT_EQ(givesAway ? 12 : geteuid(), status.st_uid);
        EXPECT_EQ(givesAway ? 34 : getegid(), status.st_gid);
    }
    return kztest::gCalls >= fault.at;
}

TEST_F(IniStorage, AFaultLeavesTheOldOrTheNewFile)
{
    const Fault faults[] = {{EIO, 0, false},  {EINTR, 0, false}, {0, 1, false}, {0, 100, false},
                            {0, 8191, false}, {0, 0, true},      {0, 1, true},  {0, 8191, true}};
    for (const int options : {kInPlace, kDerived, kUnique}) {
        for (const bool hasOld : {false, true}) {
            for (Fault fault : faults) {
                for (bool isReached = options != kInPlace || !fault.kills; isReached;) {
                    ++fault.at;
                    SCOPED_TRACE(testing::Message()
                                 << "options " << options << ", old file " << hasOld << ", error " << fault.error
                                 << ", written " << fault.written << " in call " << fault.at);
                    isReached = SaveWith(fault, options, hasOld);
                }
                EXPECT_TRUE(fault.at > 9 || (options == kInPlace && (fault.at > 5 || fault.kills)));
            }
        }
    }
}

// A system in which the old file has an owner and a group of others, and each call is interrupted once.
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
bool gIsInterrupted;

bool IsRefused(int right)
{
    gIsInterrupted = !gIsInterrupted;
    errno = gIsInterrupted ? EINTR : EPERM;
    return gIsInterrupted || (right & ~gRights.kept) != 0;
}

int GiveAway(int, uid_t owner, gid_t group)
{
    if (IsRefused((owner != uid_t(-1) ? kIniLostOwner : 0) | (group != gid_t(-1) ? kIniLostGroup : 0))) {
        return -1;
    }
    gOwner = owner != uid_t(-1) ? owner : gOwner;
    gGroup = group != gid_t(-1) ? group : gGroup;
    return 0;
}

void PlaceRights(const Rights& rights)
{
    gRights = rights;
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
        return IsRefused((mode & 07000) != 0 ? kIniLostMode : 0) ? -1 : kReal.fchmod(file, mode);
    };
    qkini::g_system.rename = [](const char* from, const char* to) {
        EXPECT_EQ(gRights.newMode, StatusOf(from).st_mode & 07777) << "before anybody sees it";
        EXPECT_EQ(std::filesystem::path(to).parent_path(), std::filesystem::path(from).parent_path());
        return kReal.rename(from, to);
    };
}

TEST_F(IniStorage, RightsOfAGroupOrOwnerThatIsLostGoToNobody)
{
    constexpr int kOwner = kIniLostOwner;
    constexpr int kGroup = kIniLostGroup;
    constexpr int kMode = kIniLostMode;
    const Rights rows[] = {
        {__LINE__, 0640, kOwner, 0600, kGroup | kMode},          {__LINE__, 0664, kOwner, 0644, kGroup | kMode},
        {__LINE__, 0604, kOwner, 0600, kGroup | kMode},          {__LINE__, 0644, 0, 0644, kOwner | kGroup},
        {__LINE__, 02770, kMode, 0700, kOwner | kGroup | kMode}, {__LINE__, 0660, kGroup, 0660, kOwner},
        {__LINE__, 04755, kGroup | kMode, 0755, kOwner | kMode}, {__LINE__, 06775, kOwner | kGroup | kMode, 06775, 0},
        {__LINE__, 06775, kOwner | kGroup, 0775, kMode},
    };
    for (const Rights& row : rows) {
        SCOPED_TRACE(row.line);
        PlaceRights(row);
        const CheckedIni ini = Sample(kUnique);
        EXPECT_EQ(1, Save(ini, path));
        EXPECT_EQ(row.lost, IniLostRights(ini.get()));
        EXPECT_EQ(kIniErrFile, Save(ini, ""));
        EXPECT_EQ(0, IniLostRights(ini.get())) << "of the last save only";
    }
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

template <typename Result, typename... T>
Result Refuse(T...)
{
    errno = EIO;
    return -1;
}

int StatOfAnotherGroup(const char* name, struct stat* out)
{
    const int result = kReal.stat(name, out);
    ++out->st_gid;
    return result;
}

TEST_F(IniStorage, NobodyGainsRightsByAnAccessControlList)
{
    constexpr char kAccess[] = "system.posix_acl_access";
    constexpr char kDefault[] = "system.posix_acl_default";
    const Acl old = AclOf(6, 6, 0, 6, 4);
    const Acl inherited = AclOf(7, 6, 7, 7, 5);
    if (setxattr(path.c_str(), kAccess, &old, sizeof old, 0) != 0 && errno == ENOTSUP) {
        GTEST_SKIP() << "no lists here";
    }
    const struct {
        int line;
        void (*refuse)(Calls* system);
        mode_t newModes[2];  // of a file without a list, and with one; the old mode when nothing was lost
        int lostGroup;
    } rows[] = {
        {__LINE__, [](Calls*) {}, {0664, 0664}, 0},
        {__LINE__, [](Calls* system) { system->getxattr = &Refuse; }, {0600, 0600}, 0},
        {__LINE__, [](Calls* system) { system->fsetxattr = &Refuse; }, {0664, 0600}, 0},
        {__LINE__, [](Calls* system) { system->fremovexattr = &Refuse; }, {0600, 0664}, 0},
        {__LINE__,
         [](Calls* system) { system->stat = &StatOfAnotherGroup, system->fchown = &Refuse; },
         {0644, 0600},
         kIniLostGroup},
    };
    for (const auto& row : rows) {
        for (const bool hasOld : {false, true}) {
            for (const bool hasDefault : {false, true}) {
                SCOPED_TRACE(testing::Message() << row.line << ", " << hasOld << ", " << hasDefault);
                const kztest::TempFolder own;
                const std::string file = own.Write("file.ini", "");
                ASSERT_EQ(0, chmod(file.c_str(), 0664));
                ASSERT_TRUE(!hasOld || setxattr(file.c_str(), kAccess, &old, sizeof old, 0) == 0);
                ASSERT_TRUE(!hasDefault ||
                            setxattr(own.File("").c_str(), kDefault, &inherited, sizeof inherited, 0) == 0);
                const CheckedIni ini = Sample(hasDefault ? kUnique : kDerived);
                row.refuse(&qkini::g_system);
                EXPECT_EQ(1, Save(ini, file));
                const bool isKept = row.newModes[hasOld] == 0664;
                EXPECT_EQ(isKept ? 0 : kIniLostMode | row.lostGroup, IniLostRights(ini.get()));
                EXPECT_EQ(row.newModes[hasOld], StatusOf(file).st_mode & 07777);
                Acl now = {};
                const ssize_t size = getxattr(file.c_str(), kAccess, &now, sizeof now);
                EXPECT_TRUE(!isKept || (hasOld ? size == sizeof old && now == old : size <= 0));
            }
        }
    }
}

TEST_F(IniStorage, ASocketCannotBeOpened)
{
    const int file = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    folder.File("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(kIniErrOpen, IniReadFromFile(kztest::NewIni().get(), folder.File("socket").c_str()));
    close(file);
}

}  // namespace
