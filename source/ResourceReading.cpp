// A header is looked for in two places: at the start, and where the last four bytes of the source point to. The second
// is a resource file that was appended to another file. Its own offsets stay relative to its header, so they are
// shifted once, when the header is read; from then on all offsets in memory count from the start of the source.
//
// Weak validation leaves out the tests of sizes that are made here and in the validators. Whatever it accepts may
// still claim anything, so each later use of a size or an offset is compared with what the source has.
#include "ResourceReading.h"

#include <algorithm>
#include <atomic>

#include "ByteOrder.h"
#include "FileManager.h"
#include "KZApp.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "Report.h"
#include "ResourceMap.h"
#include "ResourceTypes.h"
#include "ZVResfileIO.h"
#include "zvexcept.h"
#include "zvhandle.h"

namespace {

constexpr char kModule[] = "source/ResourceReading";

constexpr int32 kTrailerSize = 4;           // the offset at the end of a file that a resource file was appended to
constexpr uInt32 kMostOffset = 0xFFFFFFFF;  // outside every file, and negative to the validator

// Set while the resource manager starts, read by every open. Relaxed accesses are enough, because no other data
// depends on it.
constinit std::atomic<bool> gWeakValidation{false};

uInt32 ShiftedOffset(uInt32 offset, int32 shift)
{
    const int64 sum = int64{offset} + shift;
    return sum > kMostOffset ? kMostOffset : static_cast<uInt32>(sum);
}

// Moves a read-only source to the header that its last four bytes point to.
KzErr SeekToTrailingHeader(ZVResfileIO* io, int32* shift)
{
    unsigned char trailer[kTrailerSize];
    KzErr err = io->Seek(-kTrailerSize, kFMFromEnd);
    if (err == kzErrNone) {
        err = io->Read(kTrailerSize, nullptr, trailer);
    }
    if (err != kzErrNone) {
        return err;
    }
    // Any file ends in four bytes: an offset outside it only says that no resource file was appended.
    const int32 offset = kz::LoadBig<int32>(trailer);
    if (io->Seek(offset, kFMFromStart) != kzErrNone) {
        return kzErrResFileNotOpen;
    }
    *shift = offset;
    return kzErrNone;
}

// Reads a header that is a resource file's, at the start or at the end.
KzErr FindRsrcHeader(ZVResfileIO* io, RsrcHeader* header, int32* shift)
{
    *shift = 0;
    KzErr err = io->Seek(0, kFMFromStart);
    if (err == kzErrNone) {
        err = header->ReadFromIO(io);
    }
    if (err != kzErrNone || header->ValidMagicAndVersion()) {
        return err;
    }
    // A file at the end of another one can't grow in its place, so it is not found for writing.
    if (!io->IsReadOnly()) {
        return kzErrResFileNotOpen;
    }
    err = SeekToTrailingHeader(io, shift);
    if (err == kzErrNone) {
        err = header->ReadFromIO(io);
    }
    if (err == kzErrNone && !header->ValidMagicAndVersion()) {
        err = kzErrResFileNotOpen;
    }
    return err;
}

RsrcMap* MapIn(const ZVHandle& block)
{
    return reinterpret_cast<RsrcMap*>(*block.GetHandle());
}

// Reads and converts the map of a file with this header into a block that holds at least a map's head.
KzErr ReadMap(ZVResfileIO* io, const RsrcHeader& header, ZVHandle* block)
{
    KZ_ASSERT(header.mapSize > 0);
    // A weakly checked header may claim 4 GB, for which no memory is to be asked.
    if (int64{header.mapOffset} + header.mapSize > io->GetFileSize()) {
        return kzErrResFileNotOpen;
    }
    const uInt32 blockSize = std::max<uInt32>(header.mapSize, kz::kMapHeadSize);
    block->AttachHandle(DSNewHClr(blockSize));
    if (block->GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    RsrcMap* map = MapIn(*block);
    KzErr err = io->Seek(static_cast<int32>(header.mapOffset), kFMFromStart);
    if (err == kzErrNone) {
        err = io->Read(static_cast<int32>(header.mapSize), nullptr, map);
    }
    if (err != kzErrNone) {
        return err;
    }
    if (kz::WeakRsrcFileValidation()) {
        return ResourceFormat::StandardizeRsrcMap(map, ResourceFormat::toNative, &header);
    }
    if (const int32 result = ResourceFormat::NativizeAndValidateRsrcMap(map, header)) {
        KZ_REPORT(kDbgWarning, 0x7B40E9D2) << "ZVResFile::Open: map validation failure " << result;
        return kzErrGeneric;
    }
    return kzErrNone;
}

// The map of a file without resources: its head, in which the header's mapSize stays 0.
KzErr MakeEmptyMap(const RsrcHeader& header, ZVHandle* block)
{
    block->AttachHandle(DSNewHClr(kz::kMapHeadSize));
    if (block->GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    RsrcMap* map = MapIn(*block);
    map->header = header;
    map->typeMapOffset = kz::kMapHeadSize;
    return kzErrNone;
}

// Brings a map as read into the state that an open file keeps it in: of this version, nothing changed, nothing loaded.
void PrepareMap(RsrcMap* map, bool readOnly)
{
    map->fileAttrs = readOnly ? kRsrcMapReadOnly : 0;
    // A file may hold any number here, which would be taken for a cookie.
    kz::VisitEntries(map, [](_ResourceType, RsrcList* entry) {
        entry->dataHolder = 0;
        return false;
    });
    if (map->header.version < kz::kFormatVersion) {
        kz::SetFormatMark(&map->header);
    }
    // A run-time process reads what its own tools wrote, sorted.
    if (!KZGetIsRunTime(nullptr)) {
        kz::SortRsrcIDs(map);
    }
    map->header.version = kz::kFormatVersion;
}

}  // namespace

KzErr RsrcHeader::ReadFromIO(ZVResfileIO* io)
{
    KZ_ASSERT(io != nullptr);
    const KzErr err = io->Read(sizeof(RsrcHeader), nullptr, this);
    if (err != kzErrNone) {
        return err == kzErrResFileNotOpen ? kzErrEndOfFile : err;
    }
    Endianize(ResourceFormat::toNative);
    return kzErrNone;
}

KzErr ResourceReading::ReadRsrcHeader(ZVResfileIO* io, RsrcHeader* header, int32* shift)
{
    if (io == nullptr || header == nullptr || shift == nullptr) {
        KZ_REPORT(kDbgWarning, 0xB3F20E57) << "ZVResFile::ReadRsrcHeader, Bad Argument";
        return kzErrArgument;
    }
    if (const KzErr err = FindRsrcHeader(io, header, shift)) {
        return err;
    }
    if (header->version > kz::kFormatVersion) {
        return kzErrResFileVersion;
    }
    // A sum that does not fit becomes an offset that the checks below refuse, instead of one that wraps into the file.
    header->mapOffset = ShiftedOffset(header->mapOffset, *shift);
    header->dataOffset = ShiftedOffset(header->dataOffset, *shift);
    if (kz::WeakRsrcFileValidation()) {
        return kzErrNone;
    }
    const int32 fileSize = io->GetFileSize();
    if (fileSize == 0) {
        KZ_REPORT(kDbgWarning, 0x2E8A61D9) << "";
    }
    if (const int32 result = header->MeetsMinimalSanity(fileSize)) {
        KZ_REPORT(kDbgWarning, 0x95C04B1E) << "ZVResFile::ReadRsrcHeader: header validationErr=" << result;
        return kzErrGeneric;
    }
    return kzErrNone;
}

KzErr ResourceReading::RGetFileType(const PathRef& path, _FMFileType* type, _FMFileCreator* creator)
{
    if (type != nullptr) {
        *type = 0;
    }
    if (creator != nullptr) {
        *creator = 0;
    }
    // The source closes the file when it goes, also where an exception passes.
    return kz::ErrOf(kModule, __LINE__, [&] {
        ZVResfileIO io;
        RsrcHeader header;
        int32 shift = 0;
        KzErr err = io.Open(path, kFMReadOnly, kFMDenyNone);
        if (err == kzErrNone) {
            err = ReadRsrcHeader(&io, &header, &shift);
        }
        if (err != kzErrNone) {
            return err;
        }
        if (type != nullptr) {
            *type = header.fileType;
        }
        if (creator != nullptr) {
            *creator = header.fileCreator;
        }
        return err;
    });
}

namespace kz {

bool WeakRsrcFileValidation()
{
    return gWeakValidation.load(std::memory_order_relaxed);
}

void SetWeakRsrcFileValidation(bool weak)
{
    gWeakValidation.store(weak, std::memory_order_relaxed);
}

KzErr ReadOpenMap(ZVResfileIO* io, const RsrcHeader& header, int32 shift, ZVHandle* block)
{
    KZ_ASSERT(io != nullptr && block != nullptr);
    const bool isEmpty = header.mapSize == 0;
    if (const KzErr err = isEmpty ? MakeEmptyMap(header, block) : ReadMap(io, header, block)) {
        return err;
    }
    RsrcMap* map = MapIn(*block);
    // An empty map has its copy of the header from memory, where it is shifted already.
    if (!isEmpty) {
        map->header.mapOffset += static_cast<uInt32>(shift);
        map->header.dataOffset += static_cast<uInt32>(shift);
    }
    PrepareMap(map, io->IsReadOnly());
    KZ_ASSERT_SLOW(RsrcMapFault(map, static_cast<uInt32>(DSGetHandleSize(block->GetHandle()))) == nullptr);
    return kzErrNone;
}

}  // namespace kz
