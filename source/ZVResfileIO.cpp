// One question decides all: is `memData` set? If so, every read is a copy from it, and a resource is served from it in
// place, but for a handle that can be written, which may move. If not, every read goes to the file, at a position of
// this object's own, because a read at a given place is one call to the system instead of two.
//
// `memData` holds the whole source, but for a mapped file, of which it holds the data section alone; `memBase` is then
// the section's offset in the file, 0 else. The header and the map of a mapped file are read before it is mapped.
//
// Nothing a file says of itself is believed when memory is asked for: a block is compared with the length of the
// source first. A file that another process lets grow is asked for its length again before a read is refused.
#include "ZVResfileIO.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "ByteOrder.h"
#include "FileManager.h"
#include "FileStream.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "PathRef.h"
#include "Report.h"
#include "ResourceData.h"
#include "ResourceFormat.h"
#include "zvhandle.h"

namespace {

constexpr char kModule[] = "source/ZVResfileIO";

constexpr _FMFileType kMappedFileType = kz::FourCharCode("QKVZ");
constexpr int32 kHeadRead = 4096;  // bytes asked for with a block's length word: a page

// Set before files are opened, and not while they are.
constinit ZVResfileIO::OpenHook gOpenHook = nullptr;

// The length of an open file; one that 31 bits can't count is taken as the longest that they can.
KzErr LengthOf(File_t file, int32* length)
{
    uInt64 size = 0;
    const KzErr err = FGetEOF64(file, &size);
    *length = static_cast<int32>(std::min(size, uInt64{ZVResfileIO::kMostBytes}));
    return err;
}

// Reads `size` bytes of a file from `offset` into a new handle; null, with a report, when that fails.
UHandle MacMemMapFile(File_t file, int32 offset, int32 size)
{
    KZ_ASSERT(file != nullptr && size >= 0);
    // A failure is only reported, because the file can be read without a copy all the same.
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
    KZ_ASSERT(handle->GetHandle() != nullptr);
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
{
    KZ_ASSERT(size <= kMostBytes);
}

ZVResfileIO::ZVResfileIO(UHandle handle, int32 mode)
    : memHandle(handle),
      memData(handle != nullptr ? *handle : nullptr),
      memSize(handle != nullptr ? static_cast<int32>(DSGetHandleSize(handle)) : 0),
      openMode(mode),
      ownsHandle(true),
      fileSize(memSize)
{
    KZ_ASSERT(memSize >= 0);
}

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
    // From here on the destructor closes, whatever of the opening succeeds.
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
            // A sound argument that FMOpen refuses all the same names no file.
            return err == kzErrArgument && path.StartsWith(PathRef::kAbsolute) ? kzErrNotFound : err;
        }
    }
    // A hook may serve a file from memory alone.
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
    // Any other mode goes to the start.
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
    // The file may have grown since it was opened.
    if (target > fileSize) {
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
    KZ_ASSERT(memPos >= 0 && memPos <= memSize);
    // The end of a file gives the code that memory gives for bytes that are not there.
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
    KZ_ASSERT(dataOffset != nullptr);
    if (fileRef == nullptr || !IsReadOnly() || mappedCopy != nullptr || memHandle != nullptr || memPtr != nullptr) {
        return kzErrNone;
    }
    // A weakly checked header may claim more than the file has, and ask for that much memory.
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
    // At most one of the two is there, because a source from a handle is never mapped.
    KZ_ASSERT(mappedCopy == nullptr || memHandle == nullptr);
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
    KZ_ASSERT(room >= kz::kBlockHeadSize && out != nullptr);
    // A file is asked for more than the length word, because most blocks then come in one call to the system.
    unsigned char head[kHeadRead];
    const int64 wanted = memData != nullptr ? kz::kBlockHeadSize : std::min<int64>(room, kHeadRead);
    KzErr err = Seek(fileOffset, kFMFromStart);
    int32 got = 0;
    if (err == kzErrNone) {
        err = Read(static_cast<int32>(wanted), &got, head);
    }
    // A short read that has the length word is no failure yet: the block may end before the page does.
    if (got < kz::kBlockHeadSize) {
        return err;
    }
    // The length word is the only thing that a validator has not seen: it could lead out of the data section, into the
    // map or the outer file.
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
    KZ_ASSERT(out != nullptr);
    *out = nullptr;
    if (memData == nullptr) {
        return ReadIntoHandle(fileOffset, size, out);
    }
    const int64 start = int64{fileOffset} - memBase + kz::kBlockHeadSize;
    // A weakly checked header may place its blocks outside the source, and a length word be larger than the rest.
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
    KZ_ASSERT(bytes != nullptr && size >= 0);
    ZVHandle copy(DSNewHandle(static_cast<unsigned long>(size)));
    if (copy.GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    MoveBlock(bytes, *copy.GetHandle(), static_cast<unsigned long>(size));
    return WrapHandle(&copy, out);
}

KzErr ZVResfileIO::ReadIntoHandle(int32 fileOffset, int32 size, ResourceData** out)
{
    // No memory is asked for on the word of a file that can't hold as much. The file may have grown since its opening.
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
