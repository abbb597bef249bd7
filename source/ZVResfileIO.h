// The byte source of a resource file: a file on disk, a handle, or constant memory.
//
//     source            fileRef   memHandle   memPtr   memData    loaded resources are
//     file              set       -           -        null       read into handles
//     file, mapped      set       -           -        set        served from mappedCopy
//     handle, writable  -         set         -        *handle    copied into handles
//     handle, read-only -         set         -        *handle    served from it
//     constant          -         -           set      memPtr     served from it
//
// Only a source opened by Open closes itself; what a constructor took over waits for Close, so that a caller whose
// opening fails gets it back. Positions count from the start of the file and have 31 bits. One thread at a time.
#ifndef KZCORE_ZVRESFILEIO_H
#define KZCORE_ZVRESFILEIO_H

#include "KZTypes.h"
#include "KzErr.h"

class ResourceData;
class ZVResFile;

class ZVResfileIO {
public:
    // The most bytes that a source has, because positions are signed 32-bit numbers.
    static constexpr int32 kMostBytes = 0x7FFFFFFF;

    // May serve a file that is opened read-only in its own way: it fills the outputs and returns true, or returns
    // false and leaves the opening to FMOpen. A handle in `mappedCopy` becomes this object's.
    using OpenHook = bool (*)(const PathRef& path, File_t* file, UHandle* mappedCopy, unsigned char** data,
                              int32* size);

    ZVResfileIO() = default;
    // Constant bytes, not owned, read-only. Requires: at most kMostBytes.
    ZVResfileIO(const unsigned char* data, unsigned long size);
    // A handle, disposed by Close; null for none. Requires: at most kMostBytes.
    ZVResfileIO(UHandle handle, int32 mode);
    // An open file, closed by Close.
    ZVResfileIO(File_t file, int32 mode);
    // Closes what Open opened; what was passed to a constructor stays open.
    ~ZVResfileIO();
    ZVResfileIO(const ZVResfileIO&) = delete;
    ZVResfileIO& operator=(const ZVResfileIO&) = delete;

    // Installs the open hook; null for none. Not while files are opened.
    static void InitResfileIO(OpenHook hook);

    // Opens a file. Codes of FMOpen, but kzErrNotFound for an absolute path that it refuses as an argument.
    KzErr Open(const PathRef& path, int32 mode, int32 denyMode);

    // Moves the position; the modes are those of FMSeek. kzErrEndOfFile: outside the source, and the position stays.
    KzErr Seek(int32 offset, int32 seekMode);

    // Reads `count` bytes and moves the position behind them; `actual`, which may be null, gets their number.
    // kzErrResFileNotOpen: fewer are left; from memory none is read then. kzErrArgument: a negative count, a null
    // buffer.
    KzErr Read(int32 count, int32* actual, void* buffer);

    // Prepares an opened source for reading; always 0.
    KzErr Map();
    // For a read-only file of type "QKVZ": reads its data section into memory, from which it is served from then on.
    // Always 0; without the memory the file goes on as it was, with a report.
    KzErr Remap(const int32* dataOffset, int32 dataSize, _FMFileType type);
    // Gives up what is held in memory: disposes what is owned of it, and ends all pointers that were served from it.
    void Unmap();
    // Unmaps and closes the file. The result is that of FMClose, 0 without a file.
    KzErr Close();

    // Reads the block whose length word stands at fileOffset, and makes its data object, the caller's. With its length
    // word the block has no more than `room` bytes: kzErrEndOfFile when it says otherwise. Other codes: those of Seek
    // and Read, kzErrMemoryFull. Requires: room for a length word.
    KzErr LoadBlock(int32 fileOffset, int64 room, ZVResFile* owner, ResourceData** out);

    // The second half of that: makes the data object of a block of `size` bytes. kzErrResFileNotOpen: the source ends
    // before the block; kzErrMemoryFull. Null on failure.
    KzErr CreateResDataObj(int32 fileOffset, int32 size, ZVResFile* owner, ResourceData** out);

    bool IsOpen() const;
    bool IsReadOnly() const { return openMode == 1; }
    // The length of the source at its opening, or when it was last found to be longer, in bytes.
    int32 GetFileSize() const { return fileSize; }

private:
    KzErr CopyIntoHandle(const unsigned char* bytes, int32 size, ResourceData** out) const;
    KzErr ReadIntoHandle(int32 fileOffset, int32 size, ResourceData** out);
    KzErr SeekInFile(int32 offset, int32 seekMode);

    bool hookOpened = false;
    File_t fileRef = nullptr;                // closed by Close, whoever opened it
    UHandle mappedCopy = nullptr;            // owned
    UHandle memHandle = nullptr;             // owned if ownsHandle
    const unsigned char* memPtr = nullptr;   // not owned
    const unsigned char* memData = nullptr;  // the bytes served from memory; null: all reads go to fileRef
    int32 memSize = 0;                       // of memData; never below memPos
    int32 memPos = 0;                        // the read position in memData
    bool closeOnDestroy = false;
    int32 openMode = 1;  // 0 read and write, 1 read-only
    bool ownsHandle = false;
    int32 fileSize = 0;  // see GetFileSize
    int32 memBase = 0;   // the file offset of the first byte of memData
    // The read position in fileRef, whose own position is left alone: a write has to go there first, and to move both
    // this and fileSize.
    int64 filePos = 0;
};

#endif
