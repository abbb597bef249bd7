#include "FileManager.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>

#include "KzErr.h"
#include "MemoryManager.h"
#include "PathClassic.h"
#include "PathManager.h"
#include "PathManagerImplementation.h"
#include "PathRef.h"
#include "Report.h"
#include "UnixUserUtil.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/FileManager";

// A File_t is the stream itself under another name.
FILE* StreamOf(File_t file)
{
    return reinterpret_cast<FILE*>(file);
}

File_t FileOf(FILE* stream)
{
    return reinterpret_cast<File_t>(stream);
}

struct CloseStream {
    void operator()(FILE* stream) const { fclose(stream); }
};
using StreamOwner = std::unique_ptr<FILE, CloseStream>;

// How each open mode reaches the system, by its number.
struct OpenMode {
    int flags;
    const char* streamMode;
};
constexpr OpenMode kOpenModes[] = {
    {O_RDWR, "r+"},          {O_RDONLY, "r"},          {O_WRONLY, "w"},          {O_WRONLY | O_TRUNC, "w"},
    {O_RDWR | O_SYNC, "r+"}, {O_RDONLY | O_SYNC, "r"}, {O_WRONLY | O_SYNC, "w"}, {O_WRONLY | O_TRUNC | O_SYNC, "w"},
};
constexpr int32 kOpenModeCount = static_cast<int32>(std::size(kOpenModes));

bool IsSeekMode(int32 seekMode)
{
    return seekMode >= kFMFromStart && seekMode <= kFMFromCurrent;
}

// fdopen never truncates or creates: the descriptor's flags have done what there was to do.
KzErr OpenStream(const std::string& path, const OpenMode& mode, StreamOwner* out)
{
    const int descriptor = open(path.c_str(), mode.flags | O_CLOEXEC, 0777);
    if (descriptor < 0) {
        return UnixToKZErr(errno);
    }
    out->reset(fdopen(descriptor, mode.streamMode));
    if (*out == nullptr) {
        const int reason = errno;
        close(descriptor);
        return UnixToKZErr(reason);
    }
    return kzErrNone;
}

KzErr LockWholeFile(FILE* stream, bool shared)
{
    struct flock range = {};
    range.l_type = static_cast<short>(shared ? F_RDLCK : F_WRLCK);
    range.l_whence = SEEK_SET;
    return fcntl(fileno(stream), F_SETLK, &range) == 0 ? kzErrNone : UnixToKZErr(errno);
}

// A seek writes what waits in the stream. When that fails the stream keeps an error flag, which a later read would take
// for its own.
KzErr SeekStream(FILE* stream, int64 offset, int whence)
{
    if (fseeko(stream, static_cast<off_t>(offset), whence) == 0) {
        return kzErrNone;
    }
    const int reason = errno;
    clearerr(stream);
    return UnixToKZErr(reason);
}

// Between writing and reading a stream must be positioned; that also writes what waits in it.
KzErr FinishWriting(FILE* stream)
{
    return __fwriting(stream) != 0 ? SeekStream(stream, 0, SEEK_CUR) : kzErrNone;
}

KzErr TellStream(FILE* stream, int64* position)
{
    const off_t at = ftello(stream);
    if (at < 0) {
        return UnixToKZErr(errno);
    }
    *position = at;
    return kzErrNone;
}

// The link itself is there even if it leads nowhere.
bool IsLink(const std::string& path)
{
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

int32 KindOfExisting(const PathRef* path)
{
    if (!FIsAbsPath(path)) {
        return kFMAbsent;
    }
    if (path->ItemCount() == 0) {
        return kFMIsDirectory;
    }
    std::string text;
    if (kz::PathToFileSystemText(*path, &text) != kzErrNone) {
        return kFMAbsent;
    }
    struct stat info;
    if (stat(text.c_str(), &info) == 0) {
        return S_ISDIR(info.st_mode) ? kFMIsDirectory : kFMIsFile;
    }
    const int reason = errno;
    if (reason == ENOENT || reason == ENOTDIR) {
        return IsLink(text) ? kFMIsFile : kFMAbsent;
    }
    KZ_REPORT(kDbgWarning, 0xA94E1B73) << "FExists: we got an unexpected error looking at the file (osErr=" << reason
                                       << ")";
    return kFMAbsent;
}

}  // namespace

KzErr FMOpen(File_t* file, const PathRef* path, int32 openMode, int32 denyMode)
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        if (file != nullptr) {
            *file = nullptr;
        }
        if (path != nullptr) {
            path->FlushCache();
        }
        if (file == nullptr || !FIsAbsPath(path) || denyMode < kFMDenyAll || denyMode > kFMDenyNone || openMode < 0 ||
            openMode >= kOpenModeCount) {
            return kzErrArgument;
        }
        std::string text;
        if (const KzErr err = kz::PathToFileSystemText(*path, &text); err != kzErrNone) {
            return err;
        }
        StreamOwner stream;
        if (const KzErr err = OpenStream(text, kOpenModes[openMode], &stream); err != kzErrNone) {
            return err;
        }
        if (denyMode != kFMDenyNone) {
            if (const KzErr err = LockWholeFile(stream.get(), openMode == kFMReadOnly); err != kzErrNone) {
                return err;
            }
        }
        *file = FileOf(stream.release());
        return kzErrNone;
    });
}

KzErr FMClose(File_t file)
{
    if (file == nullptr) {
        return kzErrArgument;
    }
    return fclose(StreamOf(file)) == 0 ? kzErrNone : kzErrIO;
}

KzErr FMRead(File_t file, int32 count, int32* got, void* buffer)
{
    if (got != nullptr) {
        *got = 0;
    }
    if (file == nullptr || count < 0 || (buffer == nullptr && count > 0)) {
        return kzErrArgument;
    }
    FILE* const stream = StreamOf(file);
    if (FinishWriting(stream) != kzErrNone) {
        return kzErrIO;
    }
    const size_t done = fread(buffer, 1, static_cast<size_t>(count), stream);
    if (got != nullptr) {
        *got = static_cast<int32>(done);
    }
    KzErr result = kzErrNone;
    if (ferror(stream) != 0) {
        result = kzErrIO;
    } else if (feof(stream) != 0) {
        result = kzErrEndOfFile;
    }
    clearerr(stream);
    return result;
}

KzErr FMSeek(File_t file, int32 offset, int32 seekMode)
{
    return FMSeek64(file, offset, seekMode);
}

KzErr FMSeek64(File_t file, int64 offset, int32 seekMode)
{
    if (file == nullptr || !IsSeekMode(seekMode)) {
        return kzErrArgument;
    }
    if (offset == 0 && seekMode == kFMFromCurrent) {
        return kzErrNone;
    }
    FILE* const stream = StreamOf(file);
    int64 origin = 0;
    if (seekMode == kFMFromCurrent) {
        if (const KzErr err = TellStream(stream, &origin); err != kzErrNone) {
            return err;
        }
    }
    int64 size = 0;
    if (KzErr err = SeekStream(stream, 0, SEEK_END);
        err != kzErrNone || (err = TellStream(stream, &size)) != kzErrNone) {
        return err;
    }
    if (seekMode == kFMFromEnd) {
        origin = size;
    }
    int64 target = 0;
    if (__builtin_add_overflow(origin, offset, &target) || target > size) {
        return kzErrEndOfFile;
    }
    if (target < 0) {
        const KzErr err = SeekStream(stream, 0, SEEK_SET);
        return err != kzErrNone ? err : kzErrEndOfFile;
    }
    return SeekStream(stream, target, SEEK_SET);
}

KzErr FMTell(File_t file, uInt32* position)
{
    uInt64 wide = 0;
    const KzErr err = FMTell64(file, position != nullptr ? &wide : nullptr);
    if (err == kzErrNone) {
        *position = static_cast<uInt32>(wide);
    }
    return err;
}

KzErr FMTell64(File_t file, uInt64* position)
{
    if (file == nullptr || position == nullptr) {
        return kzErrArgument;
    }
    int64 at = 0;
    const KzErr err = TellStream(StreamOf(file), &at);
    if (err == kzErrNone) {
        *position = static_cast<uInt64>(at);
    }
    return err;
}

KzErr FGetEOF(File_t file, uInt32* size)
{
    uInt64 wide = 0;
    const KzErr err = FGetEOF64(file, size != nullptr ? &wide : nullptr);
    if (err == kzErrNone) {
        *size = static_cast<uInt32>(wide);
    }
    return err;
}

KzErr kz::FMReadAt(File_t file, int64 offset, int32 count, int32* got, void* buffer)
{
    int32 done = 0;
    if (got != nullptr) {
        *got = 0;
    }
    if (file == nullptr || offset < 0 || count < 0 || (buffer == nullptr && count > 0)) {
        return kzErrArgument;
    }
    FILE* const stream = StreamOf(file);
    if (FinishWriting(stream) != kzErrNone) {
        return kzErrIO;
    }
    while (done < count) {
        const ssize_t now =
            pread(fileno(stream), static_cast<char*>(buffer) + done, static_cast<size_t>(count - done), offset + done);
        if (now < 0 && errno == EINTR) {
            continue;
        }
        if (now <= 0) {
            return now < 0 ? kzErrIO : kzErrEndOfFile;
        }
        done += static_cast<int32>(now);
        if (got != nullptr) {
            *got = done;
        }
    }
    return kzErrNone;
}

KzErr FGetEOF64(File_t file, uInt64* size)
{
    if (file == nullptr || size == nullptr) {
        return kzErrArgument;
    }
    FILE* const stream = StreamOf(file);
    if (const KzErr err = FinishWriting(stream); err != kzErrNone) {
        return err;
    }
    // Asking the descriptor leaves the stream's position and its buffer alone.
    struct stat info;
    if (fstat(fileno(stream), &info) != 0) {
        return UnixToKZErr(errno);
    }
    *size = static_cast<uInt64>(info.st_size);
    return kzErrNone;
}

int32 FExists(const PathRef* path)
{
    int32 kind = kFMAbsent;
    kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        kind = KindOfExisting(path);
        return kzErrNone;
    });
    return kind;
}

KzErr CheckPathValidity(const PathRef* path)
{
    switch (FExists(path)) {
        case kFMIsDirectory:
            return kzErrNone;
        case kFMIsFile:
            return kzErrArgument;
        case kFMAbsent:
            return kzErrNotFound;
        default:
            KZ_REPORT(kDbgWarning, 0x5D20C7F8) << "Someone changed what FExists returns";
            return kzErrNotFound;
    }
}

FileManager_Service::FileManager_Service()
    : PlainService_T("FileManager", &kz::AddNeeds<&PathManagerService, &UnixUserUtilService, &MemoryManagerService>)
{}

// A lock that can't be made stays null, which locks nothing.
KzErr FileManager_Service::_Init()
{
    ThMutexCreate(&mCachesMutex, "file manager caches");
    ThMutexCreate(&mUmaskMutex, "umask");
    return kzErrNone;
}

KzErr FileManager_Service::_Uninit()
{
    ThMutexDestroy(mCachesMutex);
    ThMutexDestroy(mUmaskMutex);
    mCachesMutex = nullptr;
    mUmaskMutex = nullptr;
    return kzErrNone;
}

FileManager_Service* FileManagerService()
{
    return KZSingleton_T<FileManager_Service>::Instance();
}
