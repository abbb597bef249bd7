#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "IniFile.h"
#include "IniModel.h"
#include "IniSystem.h"

using qkini::g_system;

namespace qkini {

SystemCalls g_system = {
    [](const char* path, int flags, mode_t mode) { return open(path, flags, mode); },
    &mkstemp,
    &write,
    &fsync,
    &close,
    [](const char* path, struct stat* out) { return stat(path, out); },
    [](int file, struct stat* out) { return fstat(file, out); },
    &fchmod,
    &fchown,
    &getxattr,
    &fsetxattr,
    &fremovexattr,
    &rename,
    &unlink,
};

}  // namespace qkini

namespace {

constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";
constexpr size_t kMarkSize = 4;  // of the longest mark, that of UTF-32
constexpr size_t kTemporaryNameSize = 256;

// Calls again what a signal has interrupted.
template <typename Call>
auto Retry(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

int Remove(const char* path)
{
    return Retry([&] { return g_system.unlink(path); });
}

bool StatusOf(int file, struct stat* status)
{
    return Retry([&] { return g_system.fstat(file, status); }) == 0;
}

bool StatusOf(const char* path, struct stat* status)
{
    return Retry([&] { return g_system.stat(path, status); }) == 0;
}

bool IsUsablePath(const char* path)
{
    return path != nullptr && *path != 0 && strlen(path) < kIniFileNameSize;
}

long long StampOf(const struct stat& status)
{
    // Unsigned, as dates from 2262 on wrap.
    constexpr unsigned long long kNanosecondsPerSecond = 1000000000;
    const auto seconds = static_cast<unsigned long long>(status.st_mtim.tv_sec);
    return static_cast<long long>(seconds * kNanosecondsPerSecond +
                                  static_cast<unsigned long long>(status.st_mtim.tv_nsec));
}

// Remembers which file the object stands for, and its date.
void Remember(IniFile* ini, const char* path, long long stamp)
{
    memmove(ini->fileName, path, strlen(path) + 1);
    ini->fileDate = stamp;
}

// A stream to read from, whose first bytes were read to see a mark.
struct MarkedStream {
    FILE* file;
    unsigned char head[kMarkSize];
    size_t headSize;
    size_t headUsed;
};

// An IniStreamFunction.
int ReadStream(void* context, int size, int* actual, void* buffer)
{
    auto* const stream = static_cast<MarkedStream*>(context);
    const size_t rest = stream->headSize - stream->headUsed;
    if (rest > 0) {
        memcpy(buffer, stream->head + stream->headUsed, rest);
        stream->headUsed = stream->headSize;
        *actual = static_cast<int>(rest);
        return 1;
    }
    *actual = static_cast<int>(fread(buffer, 1, static_cast<size_t>(size), stream->file));
    return *actual == 0 && ferror(stream->file) != 0 ? kIniErrRead : 1;
}

bool StartsWith(const MarkedStream& stream, const char* mark, size_t size)
{
    return stream.headSize >= size && memcmp(stream.head, mark, size) == 0;
}

// Reads the first bytes and skips a mark of UTF-8.
int ReadMark(MarkedStream* stream)
{
    clearerr(stream->file);
    stream->headSize = fread(stream->head, 1, kMarkSize, stream->file);
    if (ferror(stream->file) != 0) {
        return kIniErrRead;
    }
    if (StartsWith(*stream, "\xFF\xFE", 2) || StartsWith(*stream, "\xFE\xFF", 2) ||
        StartsWith(*stream, "\0\0\xFE\xFF", 4)) {
        return kIniErrUnicodeMark;
    }
    stream->headUsed = StartsWith(*stream, kUtf8Mark, 3) ? 3 : 0;
    return 1;
}

// Reads a stream from where it stands.
int ReadMarked(IniFile* ini, FILE* file)
{
    MarkedStream stream{file, {}, 0, 0};
    const int result = ReadMark(&stream);
    if (result < 0) {
        return result;
    }
    IniLineInput input{};
    input.read = &ReadStream;
    input.context = &stream;
    return IniRead(ini, &IniLineFileInputFunction, &input);
}

// A file that is being written. Unless it is kept in the end, it is removed.
class OutputFile {
public:
    OutputFile(int file, const char* path) : m_file(file), m_path(path) {}
    ~OutputFile()
    {
        if (m_file >= 0) {
            g_system.close(m_file);
        }
        if (!m_isKept) {
            Remove(m_path);
        }
    }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int file() const { return m_file; }

    // An IniOutputFunction.
    static int PutLine(void* context, const char* line)
    {
        auto* const self = static_cast<OutputFile*>(context);
        const int result = self->Put(line, strlen(line));
        return result < 0 ? result : self->Put("\n", 1);
    }

    int Put(const char* bytes, size_t size)
    {
        while (size > 0) {
            const size_t room = sizeof m_buffer - m_used;
            const size_t part = size < room ? size : room;
            memcpy(m_buffer + m_used, bytes, part);
            m_used += part;
            bytes += part;
            size -= part;
            if (m_used == sizeof m_buffer) {
                const int result = Flush();
                if (result < 0) {
                    return result;
                }
            }
        }
        return 1;
    }

    int Flush()
    {
        for (size_t done = 0; done < m_used;) {
            const ssize_t written = Retry([&] { return g_system.write(m_file, m_buffer + done, m_used - done); });
            if (written <= 0) {
                return kIniErrWrite;
            }
            done += static_cast<size_t>(written);
        }
        m_used = 0;
        return 1;
    }

    int Sync() const
    {
        // Pipes and the like have nothing to sync.
        const bool isSynced = Retry([&] { return g_system.fsync(m_file); }) == 0 || errno == EINVAL;
        return isSynced ? 1 : kIniErrWrite;
    }

    long long Stamp() const
    {
        struct stat status;
        return StatusOf(m_file, &status) ? StampOf(status) : 0;
    }

    // Whether it is a file, and not a device or a pipe.
    bool IsRegular() const
    {
        struct stat status;
        return StatusOf(m_file, &status) && S_ISREG(status.st_mode);
    }

    int Close()
    {
        const int file = m_file;
        m_file = -1;
        return g_system.close(file) == 0 || errno == EINTR ? 1 : kIniErrWrite;
    }

    void Keep() { m_isKept = true; }

private:
    int m_file;
    const char* const m_path;
    bool m_isKept = false;
    size_t m_used = 0;
    char m_buffer[8192];
};

int WriteContent(IniFile* ini, OutputFile* output)
{
    int result = 1;
    if ((ini->writeOptions & kIniWriteUtf8Bom) != 0) {
        result = output->Put(kUtf8Mark, sizeof kUtf8Mark - 1);
    }
    if (result == 1) {
        result = IniWrite(ini, &OutputFile::PutLine, output);
    }
    if (result == 1) {
        result = output->Flush();
    }
    if (result == 1 && (ini->writeOptions & kIniWriteSync) != 0) {
        result = output->Sync();
    }
    return result;
}

// Writes over the file itself.
int SaveInPlace(IniFile* ini, const char* path)
{
    const int file = Retry([&] { return g_system.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666); });
    if (file < 0) {
        return kIniErrOpenForWrite;
    }
    OutputFile output(file, path);
    if (!output.IsRegular()) {
        output.Keep();
    }
    int result = WriteContent(ini, &output);
    const long long stamp = output.Stamp();
    if (result == 1) {
        result = output.Close();
    }
    if (result == 1) {
        output.Keep();
        Remember(ini, path, stamp);
    }
    return result;
}

// The name of the file that is written before it takes the place of `path`; false when it is too long.
bool TemporaryName(const IniFile* ini, const char* path, char* name)
{
    const char* const slash = strrchr(path, '/');
    const char* const dot = strrchr(path, '.');
    int size;
    if ((ini->writeOptions & kIniWriteMkstemp) != 0) {
        const int folder = slash == nullptr ? 0 : static_cast<int>(slash - path) + 1;
        size = snprintf(name, kTemporaryNameSize, "%.*sini$$.TMPXXXXXX", folder, path);
    } else if (slash != nullptr && dot != nullptr && dot > slash && strcmp(dot, ".TMP") != 0) {
        size = snprintf(name, kTemporaryNameSize, "%.*s.TMP", static_cast<int>(dot - path), path);
    } else {
        size = snprintf(name, kTemporaryNameSize, "%s.TMP", path);
    }
    return size >= 0 && static_cast<size_t>(size) < kTemporaryNameSize;
}

constexpr char kAclName[] = "system.posix_acl_access";

// The call found no access control list, because the file has none or the file system knows of none.
bool HasNoAcl()
{
    return errno == ENODATA || errno == ENOTSUP;
}

// What a save finds in the place that it writes to.
struct Target {
    // The list counts as unknown where it can't be read, or is longer than any that people make.
    enum class Acl { kNone, kKnown, kUnknown };
    static constexpr size_t kMostEntries = 1000;

    bool exists = false;
    struct stat status = {};
    Acl acl = Acl::kNone;
    size_t aclSize = 0;
    char aclBytes[4 + kMostEntries * 8];  // a version and the entries

    void ReadAcl(const char* path)
    {
        const ssize_t size = Retry([&] { return g_system.getxattr(path, kAclName, aclBytes, sizeof aclBytes); });
        acl = size >= 0 ? Acl::kKnown : HasNoAcl() ? Acl::kNone : Acl::kUnknown;
        aclSize = size >= 0 ? static_cast<size_t>(size) : 0;
    }
};

// A file that is made where there is none, to see whether one can be made. However that ends, it is removed.
class Probe {
public:
    explicit Probe(const char* path) : m_path(path) {}
    ~Probe() { TryRemove(); }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;

    bool Make()
    {
        constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
        const int file = Retry([&] { return g_system.open(m_path, kFlags, 0666); });
        if (file < 0) {
            return errno == EEXIST;  // a link that leads nowhere, which the rename replaces
        }
        m_isThere = true;
        g_system.close(file);
        return TryRemove();
    }

private:
    bool TryRemove()
    {
        m_isThere = m_isThere && Remove(m_path) != 0;
        return !m_isThere;
    }

    const char* const m_path;
    bool m_isThere = false;
};

// Whether the target may be written.
bool IsWritable(const char* path, Target* target)
{
    target->exists = StatusOf(path, &target->status);
    if (!target->exists) {
        return errno == ENOENT && Probe(path).Make();
    }
    if (!S_ISREG(target->status.st_mode)) {
        return false;
    }
    target->ReadAcl(path);
    const int file = Retry([&] { return g_system.open(path, O_RDWR | O_CLOEXEC, 0); });
    if (file >= 0) {
        g_system.close(file);
    }
    return file >= 0;
}

// Opens the temporary file, for nobody else to read while it is to replace one; a code for a failure.
int OpenTemporary(const IniFile* ini, const Target& target, char* name)
{
    if ((ini->writeOptions & kIniWriteMkstemp) != 0) {
        constexpr size_t kRandomPart = 6;
        char* const random = name + strlen(name) - kRandomPart;
        const int file = Retry([&] {
            memset(random, 'X', kRandomPart);  // a call that fails may have filled it in
            return g_system.mkstemp(name);
        });
        if (file < 0) {
            return kIniErrTemporary;
        }
        if (!target.exists && Retry([&] { return g_system.fchmod(file, 0644); }) != 0) {
            g_system.close(file);
            Remove(name);
            return kIniErrTemporary;
        }
        return file;
    }
    Remove(name);  // one that a crash has left, or a link that somebody has put there
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const int file = Retry([&] { return g_system.open(name, flags, target.exists ? 0600 : 0666); });
    return file < 0 ? kIniErrOpenForWrite : file;
}

constexpr mode_t kModeBits = 07777;

// The old file's mode, as far as it may be given to a file of this owner and group. The rights of the old group are not
// for another one; both that one and all others, among whom the members of the old group are then, get only what the
// old group and all others had alike. So no group, and none of the others, may do more than before. Without the old
// list (or with one that came from the folder) only the owner has rights, because the group's bits are then no rights
// of the group, and those whom the list kept out are now among all others.
mode_t ModeToKeep(const struct stat& old, const struct stat& now, bool hasOldAcl)
{
    mode_t mode = old.st_mode & kModeBits;
    if (!hasOldAcl) {
        mode &= ~static_cast<mode_t>(S_IRWXG | S_IRWXO);
    }
    if (now.st_uid != old.st_uid) {
        mode &= ~static_cast<mode_t>(S_ISUID);
    }
    if (now.st_gid != old.st_gid) {
        const mode_t common = (mode >> 3) & mode & S_IRWXO;
        mode = (mode & (S_ISUID | S_ISVTX | S_IRWXU)) | (common << 3) | common;
    }
    return mode;
}

// Gives the new file the access control list of the one that it is to replace, or none, in the place of one that the
// folder gave it. Not for another group, whom the old one's entry is not for. Returns whether it has the same then.
bool TakeAcl(int file, const Target& target, bool hasOldGroup)
{
    if (target.acl == Target::Acl::kKnown && hasOldGroup &&
        Retry([&] { return g_system.fsetxattr(file, kAclName, target.aclBytes, target.aclSize, 0); }) == 0) {
        return true;
    }
    const bool isRemoved = Retry([&] { return g_system.fremovexattr(file, kAclName); }) == 0 || HasNoAcl();
    return isRemoved && target.acl == Target::Acl::kNone;
}

// Gives the new file the rights and owner of the one that it is to replace, as far as the process may. Returns what was
// lost, of IniLostRight: by looking at the file, because a call can do less than it says.
int TakeRights(int file, const Target& target)
{
    constexpr int kAll = kIniLostOwner | kIniLostGroup | kIniLostMode;
    const struct stat& old = target.status;
    struct stat now;
    if (!target.exists) {
        return 0;
    }
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    // Each alone, because many may give a file to a group who may not give it to another owner.
    if (now.st_gid != old.st_gid) {
        Retry([&] { return g_system.fchown(file, static_cast<uid_t>(-1), old.st_gid); });
    }
    if (now.st_uid != old.st_uid) {
        Retry([&] { return g_system.fchown(file, old.st_uid, static_cast<gid_t>(-1)); });
    }
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    const bool hasOldAcl = TakeAcl(file, target, now.st_gid == old.st_gid);
    // Last, because a change of the owner, group or list takes bits away.
    const mode_t mode = ModeToKeep(old, now, hasOldAcl);
    if (Retry([&] { return g_system.fchmod(file, mode); }) != 0) {
        Retry([&] { return g_system.fchmod(file, mode & (S_IRWXU | S_IRWXG | S_IRWXO)); });
    }
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    return (now.st_uid != old.st_uid ? kIniLostOwner : 0) | (now.st_gid != old.st_gid ? kIniLostGroup : 0) |
           (((now.st_mode ^ old.st_mode) & kModeBits) != 0 || !hasOldAcl ? kIniLostMode : 0);
}

int SaveSafely(IniFile* ini, const char* path)
{
    char name[kTemporaryNameSize];
    Target target;
    if (!TemporaryName(ini, path, name)) {
        return kIniErrFile;
    }
    if (!IsWritable(path, &target)) {
        return kIniErrPermission;
    }
    const int file = OpenTemporary(ini, target, name);
    if (file < 0) {
        return file;
    }
    OutputFile output(file, name);
    int result = WriteContent(ini, &output);
    const long long stamp = output.Stamp();
    const int lostRights = result == 1 ? TakeRights(file, target) : 0;
    if (result == 1) {
        result = output.Close();
    }
    if (result == 1) {
        result = Retry([&] { return g_system.rename(name, path); }) == 0 ? 1 : kIniErrPermission;
    }
    if (result == 1) {
        output.Keep();
        Remember(ini, path, stamp);
        ini->lostRights = lostRights;
    }
    return result;
}

// Empties a stream for a new content.
int CutStream(FILE* file)
{
    if (fflush(file) != 0) {
        return kIniErrWrite;
    }
    if (Retry([&] { return ftruncate(fileno(file), 0); }) != 0) {
        return errno == EBADF || errno == EACCES ? kIniErrPermission : kIniErrStream;
    }
    return fseek(file, 0, SEEK_SET) == 0 ? 1 : kIniErrStream;
}

}  // namespace

extern "C" {

int IniReadFromFile(IniFile* ini, const char* path)
{
    if (ini == nullptr || !IsUsablePath(path)) {
        return kIniErrFile;
    }
    struct stat status;
    FILE* const file = fopen(path, "rbe");
    if (file == nullptr) {
        return StatusOf(path, &status) ? kIniErrOpen : kIniErrFile;
    }
    // The date before the reading, so that a change during it is seen later.
    const long long stamp = StatusOf(fileno(file), &status) ? StampOf(status) : 0;
    const int result = ReadMarked(ini, file);
    fclose(file);
    if (result == 1) {
        Remember(ini, path, stamp);
    }
    return result;
}

int IniReadFromFilePtr(IniFile* ini, FILE* file)
{
    if (ini == nullptr || file == nullptr) {
        return kIniErrFile;
    }
    fseek(file, 0, SEEK_SET);  // not for pipes, which are read from where they stand
    return ReadMarked(ini, file);
}

int IniWriteToFile(IniFile* ini, const char* path)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    ini->lostRights = 0;
    if (!IsUsablePath(path)) {
        return kIniErrFile;
    }
    return (ini->writeOptions & kIniWriteSafely) != 0 ? SaveSafely(ini, path) : SaveInPlace(ini, path);
}

int IniWriteToFilePtr(IniFile* ini, FILE* file, int append)
{
    if (ini == nullptr || file == nullptr) {
        return kIniErrFile;
    }
    if ((ini->writeOptions & kIniWriteSafely) != 0) {
        return kIniErrStream;
    }
    int result = append != 0 ? 1 : CutStream(file);
    if (result == 1 && (ini->writeOptions & kIniWriteUtf8Bom) != 0 && fputs(kUtf8Mark, file) < 0) {
        result = kIniErrWrite;
    }
    if (result == 1) {
        result = IniWrite(ini, &IniFileOutputFunc, file);
    }
    if (result == 1 && fflush(file) != 0) {
        result = kIniErrWrite;
    }
    return result;
}

int IniLostRights(IniFile* ini)
{
    return ini == nullptr ? kIniErrFile : ini->lostRights;
}

int IniIsFileNewer(IniFile* ini)
{
    if (ini == nullptr) {
        return kIniErrFile;
    }
    if (ini->fileName[0] == 0) {
        return kIniErrNoFileName;
    }
    struct stat status;
    if (!StatusOf(ini->fileName, &status)) {
        return kIniErrFile;
    }
    return StampOf(status) != ini->fileDate ? 1 : 0;
}

}  // extern "C"
