// A safe save goes through these steps: see whether the file may be written, make a temporary file beside it, write and
// sync that one, give it the old file's rights, and rename it over the old one. The old file is whole up to the rename
// and the new one from then on, so whatever fails in between costs nothing but the temporary file, which is removed.
//
// A save in place truncates the file first. When it fails the old content is lost, and half of a new one would be read
// as if it were whole, so the file is removed then.
//
// Every system call is made anew when a signal interrupts it (Retry), but for close, after which a descriptor is gone
// whatever close returns.

#include "IniStorage.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "IniLine.h"
#include "IniOutput.h"
#include "IniReader.h"
#include "IniRights.h"
#include "IniSystem.h"
#include "IniWriter.h"
#include "KzAssert.h"

namespace qkini {

namespace {

constexpr size_t kTemporaryNameSize = 256;

// A longer name would not fit where the object remembers it.
bool IsUsablePath(const char* path)
{
    return path != nullptr && *path != 0 && strlen(path) < kIniFileNameSize;
}

// A file's date in nanoseconds, which is only compared for being the same.
long long StampOf(const struct stat& status)
{
    // Unsigned, because dates from 2262 on wrap.
    constexpr unsigned long long kNanosecondsPerSecond = 1000000000;
    const auto seconds = static_cast<unsigned long long>(status.st_mtim.tv_sec);
    return static_cast<long long>(seconds * kNanosecondsPerSecond +
                                  static_cast<unsigned long long>(status.st_mtim.tv_nsec));
}

// Remembers which file the object stands for, and its date. memmove, because the path may be the remembered one.
void Remember(IniFile* ini, const char* path, long long stamp)
{
    KZ_ASSERT(IsUsablePath(path));
    memmove(ini->fileName, path, strlen(path) + 1);
    ini->fileDate = stamp;
}

// A stream to read from, whose first bytes were read to see a mark.
struct MarkedStream {
    FILE* file;  // not owned
    char head[kMarkSize];
    size_t headSize;  // bytes that were read, fewer in a short file
    size_t headUsed;  // those of them that were skipped or given out
};

// An IniStreamFunction: the head first, because a pipe can't be set back, then the rest of the stream.
int ReadStream(void* context, int size, int* actual, void* buffer)
{
    auto* const stream = static_cast<MarkedStream*>(context);
    KZ_ASSERT(stream->headUsed <= stream->headSize && size >= static_cast<int>(kMarkSize));
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

// Reads the first bytes and skips a mark of UTF-8.
int ReadMark(MarkedStream* stream)
{
    clearerr(stream->file);
    stream->headSize = fread(stream->head, 1, kMarkSize, stream->file);
    if (ferror(stream->file) != 0) {
        return kIniErrRead;
    }
    const int mark = SizeOfMark({stream->head, stream->headSize});
    stream->headUsed = mark > 0 ? static_cast<size_t>(mark) : 0;
    return mark < 0 ? mark : 1;
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
    return Read(ini, &input);
}

// The date of a file that is open, 0 where it can't be told.
long long StampOf(int file)
{
    struct stat status;
    return StatusOf(file, &status) ? StampOf(status) : 0;
}

// All that a file holds, down to the disk if the options ask for it.
int WriteContent(IniFile* ini, OutputFile* output)
{
    int result = 1;
    if ((ini->writeOptions & kIniWriteUtf8Bom) != 0) {
        result = output->Put(kUtf8Mark, sizeof kUtf8Mark - 1);
    }
    if (result == 1) {
        result = Write(ini, &OutputFile::PutLine, output);
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
    // A device or a pipe is not removed, whatever fails.
    if (!output.IsRegular()) {
        output.Keep();
    }
    int result = WriteContent(ini, &output);
    const long long stamp = StampOf(output.file());
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
    // In the same folder, because a rename can't leave its file system. A dot in a folder's name begins no extension,
    // and a file that has the extension TMP itself gets a second one, because it must not be its own temporary file.
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

// Whether the path may be written, and what stands there. Asked by opening, because the rename needs no right to the
// file that it replaces; and a new file is refused here, before anything is written, where its folder takes none.
bool IsWritable(const char* path, OldFile* old)
{
    old->exists = StatusOf(path, &old->status);
    if (!old->exists) {
        return errno == ENOENT && Probe(path).Make();
    }
    if (!S_ISREG(old->status.st_mode)) {
        return false;
    }
    old->ReadAcl(path);
    const int file = Retry([&] { return g_system.open(path, O_RDWR | O_CLOEXEC, 0); });
    if (file >= 0) {
        g_system.close(file);
    }
    return file >= 0;
}

// Opens the temporary file, for nobody else to read while it is to replace one; a code for a failure.
int OpenTemporary(const IniFile* ini, const OldFile& old, char* name)
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
        // mkstemp makes a file for its owner alone, which a new configuration file is not meant to be.
        if (!old.exists && Retry([&] { return g_system.fchmod(file, 0644); }) != 0) {
            g_system.close(file);
            Remove(name);
            return kIniErrTemporary;
        }
        return file;
    }
    const int file = MakeAnew(name, O_WRONLY, old.exists ? 0600 : 0666);
    return file < 0 ? kIniErrOpenForWrite : file;
}

// Writes a file that takes the place of the old one by a rename.
int SaveSafely(IniFile* ini, const char* path)
{
    char name[kTemporaryNameSize];
    OldFile old;
    if (!TemporaryName(ini, path, name)) {
        return kIniErrFile;
    }
    if (!IsWritable(path, &old)) {
        return kIniErrPermission;
    }
    const int file = OpenTemporary(ini, old, name);
    if (file < 0) {
        return file;
    }
    OutputFile output(file, name);
    int result = WriteContent(ini, &output);
    const long long stamp = StampOf(output.file());
    // Before the close, because rights are given to the descriptor: nobody can put another file under its name.
    const int lostRights = result == 1 ? TakeRights(file, old) : 0;
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
    // A stream that may not be written is told from one that can't be cut, as a pipe.
    if (Retry([&] { return ftruncate(fileno(file), 0); }) != 0) {
        return errno == EBADF || errno == EACCES ? kIniErrPermission : kIniErrStream;
    }
    return fseek(file, 0, SEEK_SET) == 0 ? 1 : kIniErrStream;
}

}  // namespace

int ReadFromFile(IniFile* ini, const char* path)
{
    KZ_ASSERT(ini != nullptr);
    if (!IsUsablePath(path)) {
        return kIniErrFile;
    }
    FILE* const file = fopen(path, "rbe");
    if (file == nullptr) {
        struct stat status;
        return StatusOf(path, &status) ? kIniErrOpen : kIniErrFile;
    }
    // The date before the reading, so that a change during it is seen later.
    const long long stamp = StampOf(fileno(file));
    const int result = ReadMarked(ini, file);
    fclose(file);
    if (result == 1) {
        Remember(ini, path, stamp);
    }
    return result;
}

int ReadFromStream(IniFile* ini, FILE* file)
{
    KZ_ASSERT(ini != nullptr && file != nullptr);
    fseek(file, 0, SEEK_SET);  // not for pipes, which are read from where they stand
    return ReadMarked(ini, file);
}

int WriteToFile(IniFile* ini, const char* path)
{
    KZ_ASSERT(ini != nullptr);
    ini->lostRights = 0;
    if (!IsUsablePath(path)) {
        return kIniErrFile;
    }
    return (ini->writeOptions & kIniWriteSafely) != 0 ? SaveSafely(ini, path) : SaveInPlace(ini, path);
}

int WriteToStream(IniFile* ini, FILE* file, bool append)
{
    KZ_ASSERT(ini != nullptr && file != nullptr);
    if ((ini->writeOptions & kIniWriteSafely) != 0) {
        return kIniErrStream;
    }
    // The stream's own buffer is flushed at the end, so that a full disk is told now and not when the host closes it.
    int result = append ? 1 : CutStream(file);
    if (result == 1 && (ini->writeOptions & kIniWriteUtf8Bom) != 0 && fputs(kUtf8Mark, file) < 0) {
        result = kIniErrWrite;
    }
    if (result == 1) {
        result = Write(ini, &PutLineToStream, file);
    }
    if (result == 1 && fflush(file) != 0) {
        result = kIniErrWrite;
    }
    return result;
}

int IsFileNewer(const IniFile* ini)
{
    KZ_ASSERT(ini != nullptr);
    if (ini->fileName[0] == 0) {
        return kIniErrNoFileName;
    }
    struct stat status;
    if (!StatusOf(ini->fileName, &status)) {
        return kIniErrFile;
    }
    return StampOf(status) != ini->fileDate ? 1 : 0;
}

int PutLineToStream(void* file, const char* line)
{
    auto* const stream = static_cast<FILE*>(file);
    return fputs(line, stream) < 0 || putc('\n', stream) == EOF ? kIniErrWrite : 1;
}

}  // namespace qkini
