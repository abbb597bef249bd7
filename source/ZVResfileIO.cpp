#include "ZVResfileIO.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "ByteOrder.h"
#include "FileManager.h"
#include "MemoryManager.h"
#include "PathRef.h"
#include "Report.h"
#include "ResourceData.h"
#include "ResourceFormat.h"
#include "zvhandle.h"

namespace {

constexpr char kModule[] = "source/ZVResfileIO";

constexpr _FMFileType kMappedFileType = kz::FourCharCode("QKVZ");
constexpr int32 kHeadRead = 4096;  // what is asked for with it: a page
constexpr int32 kMostBytes = std::numeric_limits<int32>::max();

constinit ZVResfileIO::OpenHook gOpenHook = nullptr;

// The length of an open file; one that 31 bits can't count is taken as the longest that they can.
KzErr LengthOf(File_t file, int32* length)
{
    uInt64 size = 0;
    const KzErr err = FGetEOF64(file, &size);
    *length = size > uInt64{kMostBytes} ? kMostBytes : static_cast<int32>(size);
    return err;
}

// Reads `size` bytes of a file from `offset` into a new handle; null, with a report, when that fails.
UHandle MacMemMapFile(File_t file, int32 offset, int32 size)
{
    ZVHandle copy(DSNewHandle(static_cast<unsigned long>(size)));
    if (copy.GetHandle() == nullptr) {
        KZ_REPORT(kDbgWarning, 0x41D7B02C) << "MacMemMapFile:TempNewHandle returned NULL";
        return nullptr;
    }
    if (const KzErr err = kz::FMReadAt(file, offset, size, nullptr, *copy.GetHandle())) {
        KZ_REPORT(kDbgWarning, 0xD85F3E61) << "MacMemMapFile:FMRead:err=" << err;
        return nullptr;
    }
    return copy.DetachHandle();
}

void MacUnMapFile(UHandle copy)
{
    if (const KzErr err = DSDisposeHandle(copy)) {
        KZ_REPORT(kDbgWarning, 0x07A9C4F3) << "MacUnMapFile:DSDisposeHandle:err=" << err;
    }
}

// Wraps a handle, which is disposed on failure.
KzErr WrapHandle(ZVHandle* handle, ResourceData** out)
{
    *out = new (std::nothrow) DSHandleResource(handle->GetHandle());
    if (*out == nullptr) {
        return kzErrMemoryFull;
    }
    handle->DetachHandle();
    return kzErrNone;
}

}  // namespace

ZVResfileIO::ZVResfileIO(const unsigned char* data, unsigned long size)
    : memPtr(data),
      memData(data),
      memSize(static_cast<int32>(size)),
      openMode(kFMReadOnly),
      fileSize(static_cast<int32>(size))
{}

ZVResfileIO::ZVResfileIO(UHandle handle, int32 mode)
    : memHandle(handle),
      memData(handle != nullptr ? *handle : nullptr),
      memSize(handle != nullptr ? static_cast<int32>(DSGetHandleSize(handle)) : 0),
      openMode(mode),
      ownsHandle(true),
      fileSize(memSize)
{}

ZVResfileIO::ZVResfileIO(File_t file, int32 mode) : fileRef(file), openMode(mode), ownsHandle(true)
{
    if (file != nullptr) {
        LengthOf(file, &fileSize);
    }
}

ZVResfileIO::~ZVResfileIO()
{
    if (closeOnDestroy) {
        Close();
    }
}

void ZVResfileIO::InitResfileIO(OpenHook hook)
{
    gOpenHook = hook;
}

KzErr ZVResfileIO::Open(const PathRef& path, int32 mode, int32 denyMode)
{
    closeOnDestroy = true;
    openMode = mode;
    if (path.IsSpecial()) {
        return kzErrIO;
    }
    if (gOpenHook != nullptr && mode == kFMReadOnly && denyMode == kFMDenyNone) {
        unsigned char* data = nullptr;
        hookOpened = gOpenHook(path, &fileRef, &mappedCopy, &data, &memSize);
        memData = hookOpened ? data : nullptr;
    }
    if (!hookOpened) {
        const KzErr err = FMOpen(&fileRef, &path, mode, denyMode);
        if (err != kzErrNone) {
            return err == kzErrArgument && path.StartsWith(PathRef::kAbsolute) ? kzErrNotFound : err;
        }
    }
    if (fileRef == nullptr) {
        fileSize = memSize;
        return kzErrNone;
    }
    return LengthOf(fileRef, &fileSize);
}

KzErr ZVResfileIO::Seek(int32 offset, int32 seekMode)
{
    if (memData == nullptr) {
        return SeekInFile(offset, seekMode);
    }
    int64 target = 0;
    if (seekMode == kFMFromStart) {
        target = int64{offset} - memBase;
    } else if (seekMode == kFMFromEnd) {
        target = int64{memSize} - memBase + offset;
    } else if (seekMode == kFMFromCurrent) {
        target = int64{memPos} - memBase + offset;
    }
    if (target < 0 || target > memSize) {
        return kzErrEndOfFile;
    }
    memPos = static_cast<int32>(target);
    return kzErrNone;
}

KzErr ZVResfileIO::SeekInFile(int32 offset, int32 seekMode)
{
    if (fileRef == nullptr || seekMode < kFMFromStart || seekMode > kFMFromCurrent) {
        return kzErrArgument;
    }
    const int64 origin = seekMode == kFMFromEnd ? fileSize : seekMode == kFMFromCurrent ? filePos : 0;
    const int64 target = origin + offset;
    if (target > fileSize) {
        // The file may have grown since it was opened.
        if (const KzErr err = LengthOf(fileRef, &fileSize)) {
            return err;
        }
    }
    if (target < 0 || target > fileSize) {
        return kzErrEndOfFile;
    }
    filePos = target;
    return kzErrNone;
}

KzErr ZVResfileIO::Read(int32 count, int32* actual, void* buffer)
{
    if (memData == nullptr) {
        int32 got = 0;
        const KzErr err = kz::FMReadAt(fileRef, filePos, count, &got, buffer);
        filePos += got;
        if (actual != nullptr) {
            *actual = got;
        }
        return err == kzErrEndOfFile ? kzErrResFileNotOpen : err;
    }
    if (actual != nullptr) {
        *actual = 0;
    }
    if (count < 0 || buffer == nullptr) {
        return kzErrArgument;
    }
    if (count > memSize - memPos) {
        return kzErrResFileNotOpen;
    }
    std::memcpy(buffer, memData + memPos, static_cast<std::size_t>(count));
    memPos += count;
    if (actual != nullptr) {
        *actual = count;
    }
    return kzErrNone;
}

KzErr ZVResfileIO::Map()
{
    hookOpened = false;
    return kzErrNone;
}

KzErr ZVResfileIO::Remap(const int32* dataOffset, int32 dataSize, _FMFileType type)
{
    if (fileRef == nullptr || !IsReadOnly() || mappedCopy != nullptr || memHandle != nullptr || memPtr != nullptr) {
        return kzErrNone;
    }
    // A weakly checked header may claim more than the file has.
    if (type != kMappedFileType || dataSize < 0 || dataSize > fileSize) {
        return kzErrNone;
    }
    mappedCopy = MacMemMapFile(fileRef, *dataOffset, dataSize);
    if (mappedCopy != nullptr) {
        memData = *mappedCopy;
        memSize = dataSize;
        memBase = *dataOffset;
    }
    return kzErrNone;
}

void ZVResfileIO::Unmap()
{
    if (mappedCopy != nullptr) {
        MacUnMapFile(mappedCopy);
        mappedCopy = nullptr;
    } else if (memHandle != nullptr) {
        if (ownsHandle) {
            DSDisposeHandle(memHandle);
        }
        memHandle = nullptr;
    }
    memPtr = nullptr;
    memData = nullptr;
    memSize = 0;
    memPos = 0;
    memBase = 0;
}

KzErr ZVResfileIO::Close()
{
    Unmap();
    if (fileRef == nullptr) {
        return kzErrNone;
    }
    const KzErr err = FMClose(fileRef);
    fileRef = nullptr;
    return err;
}

KzErr ZVResfileIO::LoadBlock(int32 fileOffset, int64 room, ZVResFile* owner, ResourceData** out)
{
    // A file is asked for more than the length word: most blocks then come in one call to the system.
    unsigned char head[kHeadRead];
    const int64 wanted = memData != nullptr ? kz::kBlockHeadSize : std::min<int64>(room, kHeadRead);
    KzErr err = Seek(fileOffset, kFMFromStart);
    int32 got = 0;
    if (err == kzErrNone) {
        err = Read(static_cast<int32>(wanted), &got, head);
    }
    if (got < kz::kBlockHeadSize) {
        return err;
    }
    const int64 length = kz::LoadBig<uInt32>(head);
    if (kz::kBlockHeadSize + length > room || length > kMostBytes) {
        return kzErrEndOfFile;
    }
    if (memData == nullptr && kz::kBlockHeadSize + length <= got) {
        return CopyIntoHandle(head + kz::kBlockHeadSize, static_cast<int32>(length), out);
    }
    return CreateResDataObj(fileOffset, static_cast<int32>(length), owner, out);
}

KzErr ZVResfileIO::CreateResDataObj(int32 fileOffset, int32 size, ZVResFile* /*owner*/, ResourceData** out)
{
    *out = nullptr;
    if (memData == nullptr) {
        return ReadIntoHandle(fileOffset, size, out);
    }
    const int64 start = int64{fileOffset} - memBase + kz::kBlockHeadSize;
    if (size < 0 || start < 0 || start + size > memSize) {
        return kzErrResFileNotOpen;
    }
    const unsigned char* bytes = memData + start;
    // The data has to survive later changes of a handle that can be written.
    if (memHandle != nullptr && !IsReadOnly()) {
        return CopyIntoHandle(bytes, size, out);
    }
    *out = new (std::nothrow) MappedResource(bytes, size);
    return *out != nullptr ? kzErrNone : kzErrMemoryFull;
}

KzErr ZVResfileIO::CopyIntoHandle(const unsigned char* bytes, int32 size, ResourceData** out) const
{
    ZVHandle copy(DSNewHandle(static_cast<unsigned long>(size)));
    if (copy.GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    MoveBlock(bytes, *copy.GetHandle(), static_cast<unsigned long>(size));
    return WrapHandle(&copy, out);
}

KzErr ZVResfileIO::ReadIntoHandle(int32 fileOffset, int32 size, ResourceData** out)
{
    // No memory is asked for on the word of a file that can't hold as much. It may have grown since it was opened.
    if (size < 0 || (size > fileSize && (LengthOf(fileRef, &fileSize) != kzErrNone || size > fileSize))) {
        return kzErrResFileNotOpen;
    }
    ZVHandle data(DSNewHandle(static_cast<unsigned long>(size)));
    if (data.GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    KzErr err = Seek(fileOffset, kFMFromStart);
    if (err == kzErrNone) {
        filePos += kz::kBlockHeadSize;
        err = Read(size, nullptr, *data.GetHandle());
    }
    if (err != kzErrNone) {
        return err;
    }
    return WrapHandle(&data, out);
}

bool ZVResfileIO::IsOpen() const
{
    return fileRef != nullptr || mappedCopy != nullptr || memHandle != nullptr || memPtr != nullptr;
}
