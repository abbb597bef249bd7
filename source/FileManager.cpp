// Files are the C library's streams: FMOpen opens a descriptor, because only open() can take a deny mode's lock before
// anything is read, and hangs a stream on it. FileStream.h says how a stream is read, written and positioned.
//
// The locks of deny modes are the system's record locks, which belong to the process: a second open of a file within
// the process always succeeds, and closing any of its opens gives all locks on the file up.
#include "FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>
#include <string>

#include "FileStream.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "NotStarted.h"
#include "PathClassic.h"
#include "PathManager.h"
#include "PathManagerImplementation.h"
#include "PathRef.h"
#include "Report.h"
#include "UnixUserUtil.h"
#include "zvexcept.h"

using kz::FileOf;
using kz::FinishWriting;
using kz::SeekStream;
using kz::StreamOf;
using kz::StreamOwner;
using kz::TellStream;

namespace {

constexpr char kModule[] = "source/FileManager";

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

// The stream's mode repeats the direction only: fdopen never truncates or creates, because the descriptor's flags have
// done what there was to do. The descriptor is closed on exec so that no child process keeps a file or its lock open.
KzErr OpenStream(const std::string& path, const OpenMode& mode, StreamOwner* out)
{
    KZ_ASSERT(*out == nullptr);
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

// A range that starts at 0 and has no length reaches to the end of the file, however far it grows. The lock is tried
// once, because to wait for another process could take for ever.
KzErr LockWholeFile(FILE* stream, bool shared)
{
    KZ_ASSERT(stream != nullptr);
    struct flock range = {};
    range.l_type = static_cast<short>(shared ? F_RDLCK : F_WRLCK);
    range.l_whence = SEEK_SET;
    return fcntl(fileno(stream), F_SETLK, &range) == 0 ? kzErrNone : UnixToKZErr(errno);
}

// Whether the path names a link, which is there even if it leads nowhere.
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
    // These two reasons say that nothing is there. Every other one says only that the system did not tell, which a
    // caller can't distinguish by the result, so it is reported.
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
        // The cache is flushed first, because what it knows of the file may be wrong as soon as the open has begun,
        // even if it fails.
        const bool pathsRun = kz::PathsRun();
        if (path != nullptr && pathsRun) {
            path->FlushCache();
        }
        if (file == nullptr || path == nullptr || denyMode < kFMDenyAll || denyMode > kFMDenyNone || openMode < 0 ||
            openMode >= kOpenModeCount) {
            return kzErrArgument;
        }
        if (!pathsRun) {
            return kz::NotStarted("FMOpen");
        }
        if (!FIsAbsPath(path)) {
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
        KZ_ASSERT(stream != nullptr);
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
    // The flags are cleared after they are read, because a failed call leaves the file usable and a file that has ended
    // may grow.
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
    // A step of nothing stays away from the stream, whose buffer a seek would drop.
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
    // The size is asked for by going there: that writes what waits in the stream, and leaves the position at the end,
    // where it stays when the target lies behind it.
    int64 size = 0;
    if (KzErr err = SeekStream(stream, 0, SEEK_END);
        err != kzErrNone || (err = TellStream(stream, &size)) != kzErrNone) {
        return err;
    }
    if (seekMode == kFMFromEnd) {
        origin = size;
    }
    KZ_ASSERT(origin >= 0 && size >= 0);
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

// The answer is the code of one of three cases, by the numbers of the directory's and the file's; a fourth kind would
// be a new one that this function was not told of.
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

// A lock that can't be made stays null, which locks nothing: the start does not fail, because files work without.
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
