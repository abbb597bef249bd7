// Files: open, close, read, position, size, existence. Usable from C11 and C++20.
//
// A File_t is an open file, null the closed state; each call that takes one gives kzErrArgument for null. One thread
// at a time uses a File_t; a failed call leaves it open and usable. Paths are absolute: a null, relative or invalid
// one gives kzErrArgument, and so does one that the system can't be told (a name with "/" or NUL in it, more than
// 1,024 bytes in all). Failures of the system come through UnixToKZErr (KzErr.h). Input is buffered.
#ifndef KZCORE_FILEMANAGER_H
#define KZCORE_FILEMANAGER_H

#include "KZTypes.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#include "ThMutex.h"
#endif

// Open modes of FMOpen. Adding kFMSynchronous makes every write wait for the device.
enum {
    kFMReadWrite = 0,
    kFMReadOnly = 1,
    kFMWriteOnly = 2,
    kFMWriteTruncate = 3,  // as kFMWriteOnly, and the file is emptied
    kFMSynchronous = 4
};

// Deny modes of FMOpen: the first two lock the whole file against other processes, the last does not.
enum { kFMDenyAll = 0, kFMDenyWrite = 1, kFMDenyNone = 2 };

// Where a seek's offset counts from.
enum { kFMFromStart = 1, kFMFromEnd = 2, kFMFromCurrent = 3 };

// What FExists finds.
enum { kFMAbsent = 0, kFMIsFile = 1, kFMIsDirectory = 2 };

KZ_EXTERN_C_BEGIN

// Opens an existing file in `*file`, to be closed with FMClose; `*file` is null on failure. Unless `denyMode` is
// kFMDenyNone it then locks the whole file, shared for kFMReadOnly, else exclusive, and closes it again when another
// process holds a lock in the way: kzErrNoPermission. Such locks belong to the process: a second open in the same
// process succeeds, and closing any open of the file gives all of them up; and an exclusive one needs write access, so
// that kFMReadOnly + kFMSynchronous opens with kFMDenyNone only. The path's cache is flushed. kzErrNotFound: no such
// file; kzErrArgument: a bad mode, `file` is null, or the path can't be used, see above. kzErrGeneric: the
// library isn't started, which is reported at level 2. Any thread.
KZ_EXPORT KzErr FMOpen(File_t* file, const PathRef* path, int32 openMode, int32 denyMode);

// Closes the file, also when it fails. kzErrIO: buffered output could not be written.
KZ_EXPORT KzErr FMClose(File_t file);

// Reads `count` bytes at the position and moves it behind them. `*got`, unless `got` is null, becomes the number of
// bytes read. kzErrEndOfFile: the file ended first, with what there was in `buffer`; kzErrIO: reading failed;
// kzErrArgument: `count` is negative or `buffer` null.
KZ_EXPORT KzErr FMRead(File_t file, int32 count, int32* got, void* buffer);

// Moves the position to `offset` bytes from where `seekMode` says. kzErrEndOfFile: that is behind the end, and the
// position is now the end; or before the start, and the position is now the start. kzErrArgument: a bad mode.
KZ_EXPORT KzErr FMSeek(File_t file, int32 offset, int32 seekMode);
KZ_EXPORT KzErr FMSeek64(File_t file, int64 offset, int32 seekMode);

// The position, in bytes from the start; FMTell gives its low 32 bits. kzErrArgument: the output is null.
KZ_EXPORT KzErr FMTell(File_t file, uInt32* position);
KZ_EXPORT KzErr FMTell64(File_t file, uInt64* position);

// The file's size in bytes, buffered output included; FGetEOF gives its low 32 bits. The position stays.
// kzErrArgument: the output is null.
KZ_EXPORT KzErr FGetEOF(File_t file, uInt32* size);
KZ_EXPORT KzErr FGetEOF64(File_t file, uInt64* size);

// What the path names: kFMAbsent, kFMIsFile (anything that is no directory, a link that leads nowhere included) or
// kFMIsDirectory (also for the root of everything, a path without names). Links are followed. A path that can't be
// used or asked about is kFMAbsent; if the system refused to tell, it is reported at level 2. Any thread.
KZ_EXPORT int32 FExists(const PathRef* path);

// 0: a directory; 1: a file; kzErrNotFound: neither, in the sense of FExists. Any thread.
KZ_EXPORT KzErr CheckPathValidity(const PathRef* path);

KZ_EXTERN_C_END

#ifdef __cplusplus

// Owns the locks of the file manager's caches and of the process's file creation mask.
class FileManager_Service : public PlainService_T<FileManager_Service> {
    friend KZ_GammaPolicy<FileManager_Service>;

    FileManager_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;

    // These guard no field: one is for what the system's encoding of names is taken to be, the other for the file
    // creation mask, which is the process's own. No call here changes either of the two.
    ThMutex mCachesMutex = nullptr;
    ThMutex mUmaskMutex = nullptr;
};

// The service, made on the first call.
KZ_EXPORT FileManager_Service* FileManagerService();
#endif

#endif
