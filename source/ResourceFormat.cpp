// Both validators look at one rule after the other in the documented order, one `return` a rule: the number tells which
// rule a file breaks. Numbers of the file are compared as 64-bit values, so that no sum of two of them can wrap.
#include "ResourceFormat.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

#include "ByteOrder.h"
#include "FileManager.h"
#include "Report.h"
#include "SortSearch.h"
#include "ZVResfileIO.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/ResourceFormat";

constexpr unsigned char kMagic[4] = {'R', 'S', 'R', 'C'};
constexpr unsigned char kFormatMark[2] = {'\r', '\n'};
constexpr uInt32 kLegalMapAttrs = 0xE0;
constexpr uInt32 kLegalAttrs = 0x3E;
constexpr int32 kTrailerSize = 4;           // the offset at the end of a file that a resource file was appended to
constexpr uInt32 kMostOffset = 0xFFFFFFFF;  // outside every file, and negative to the validator

// Set while the resource manager starts, read by every open; it hangs together with nothing else.
constinit std::atomic<bool> gWeakValidation{false};

// Swaps a field through its address, as a packed field can't be bound to a reference.
template <typename T>
void SwapAt(unsigned char* field)
{
    kz::StoreNative<T>(field, kz::LoadBig<T>(field));
}

unsigned char* Bytes(void* record)
{
    return static_cast<unsigned char*>(record);
}

void SwapMapHead(RsrcMap* map)
{
    map->fileAttrs = kz::ReverseBytes(map->fileAttrs);
    map->typeMapOffset = kz::ReverseBytes(map->typeMapOffset);
    map->nameTableOffset = kz::ReverseBytes(map->nameTableOffset);
}

void SwapTypeList(TypeList* list)
{
    SwapAt<int32>(Bytes(list) + offsetof(TypeList, lastRsrcIndex));
    SwapAt<uInt32>(Bytes(list) + offsetof(TypeList, listOffset));
}

void SwapEntry(RsrcList* entry)
{
    SwapAt<int32>(Bytes(entry) + offsetof(RsrcList, id));
    SwapAt<int32>(Bytes(entry) + offsetof(RsrcList, nameOffset));
    SwapAt<uInt32>(Bytes(entry) + offsetof(RsrcList, attrs));
    SwapAt<uInt32>(Bytes(entry) + offsetof(RsrcList, dataOffset));
}

// One pass over a map as read from a file.
class MapValidator {
public:
    MapValidator(RsrcMap* map, const RsrcHeader& header)
        : mMap(map), mMapSize(header.mapSize), mDataSize(header.dataSize)
    {}

    int32 Run()
    {
        if (const int32 result = CheckHead()) {
            return result;
        }
        if (const int32 result = CheckTypeMap()) {
            return result;
        }
        TypeList* list = FirstTypeList();
        for (int64 i = 0; i < mTypes; ++i, ++list) {
            if (const int32 result = CheckList(list)) {
                return result;
            }
        }
        if (mTotal != mSlots) {
            return 23;
        }
        for (const bool taken : mTaken) {
            if (!taken) {
                return 24;
            }
        }
        return 0;
    }

private:
    unsigned char* TypeMapBytes() const { return Bytes(mMap) + mMap->typeMapOffset; }
    TypeList* FirstTypeList() const { return reinterpret_cast<TypeList*>(TypeMapBytes() + sizeof(TypeMap)); }

    int32 CheckHead()
    {
        SwapMapHead(mMap);
        const int64 typeMapOffset = mMap->typeMapOffset;
        const int64 nameTableOffset = mMap->nameTableOffset;
        if ((mMap->fileAttrs & ~kLegalMapAttrs) != 0) {
            return 8;
        }
        if (typeMapOffset < kz::kMapHeadSize || typeMapOffset > mMapSize - static_cast<int64>(sizeof(TypeMap))) {
            return 11;
        }
        constexpr int64 kOneOfEach = sizeof(TypeMap) + sizeof(TypeList) + sizeof(RsrcList);
        if (nameTableOffset != 0 &&
            (nameTableOffset < typeMapOffset + kOneOfEach || nameTableOffset > mMapSize || nameTableOffset % 4 != 0)) {
            return 12;
        }
        mNameTableSize = nameTableOffset == 0 ? 0 : mMapSize - nameTableOffset;
        mSpace = (nameTableOffset == 0 ? mMapSize : nameTableOffset) - typeMapOffset;
        return 0;
    }

    int32 CheckTypeMap()
    {
        SwapAt<uInt32>(TypeMapBytes());
        mTypes = int64{kz::LoadNative<int32>(TypeMapBytes())} + 1;
        constexpr int64 kLeastPerType = sizeof(TypeList) + sizeof(RsrcList);
        if (mTypes < 1 || kLeastPerType * mTypes >= mMapSize) {
            return 13;
        }
        mTypeMapSize = static_cast<int64>(sizeof(TypeList)) * mTypes + static_cast<int64>(sizeof(TypeMap));
        if (mSpace <= mTypeMapSize) {
            return 14;
        }
        if ((mSpace - mTypeMapSize) % kEntrySize != 0) {
            return 15;
        }
        mSlots = (mSpace - mTypeMapSize) / kEntrySize;
        mTaken.assign(static_cast<std::size_t>(mSlots), false);
        return 0;
    }

    int32 CheckList(TypeList* list)
    {
        SwapTypeList(list);
        const int64 count = int64{list->lastRsrcIndex} + 1;
        const int64 offset = list->listOffset;
        if (count < 1 || count > mSlots || mTotal + count > mSlots) {
            return 16;
        }
        mTotal += count;
        if (offset % 4 != 0 || offset < mTypeMapSize || offset > mSpace - kEntrySize ||
            (offset - mTypeMapSize) % kEntrySize != 0) {
            return 17;
        }
        const int64 first = (offset - mTypeMapSize) / kEntrySize;
        RsrcList* entry = reinterpret_cast<RsrcList*>(TypeMapBytes() + offset);
        for (int64 slot = first; slot < first + count; ++slot, ++entry) {
            // A list that starts inside the space can still end outside it.
            if (slot >= mSlots || mTaken[static_cast<std::size_t>(slot)]) {
                return 18;
            }
            mTaken[static_cast<std::size_t>(slot)] = true;
            if (const int32 result = CheckEntry(entry)) {
                return result;
            }
        }
        return 0;
    }

    int32 CheckEntry(RsrcList* entry) const
    {
        SwapEntry(entry);
        if ((entry->attrs & ~kLegalAttrs) != 0) {
            return 19;
        }
        const int64 name = entry->nameOffset;
        if (name != -1) {
            if (mMap->nameTableOffset == 0 || name < 0 || name > mNameTableSize - 2) {
                return 20;
            }
            const int64 length = Bytes(mMap)[mMap->nameTableOffset + name];
            if (length == 0 || length == 255 || name + 1 + length > mNameTableSize) {
                return 21;
            }
        }
        const int64 data = static_cast<int32>(entry->dataOffset);
        if (data % 4 != 0 || data < 0 || data > mDataSize - kz::kBlockHeadSize) {
            return 22;
        }
        return 0;
    }

    static constexpr int64 kEntrySize = sizeof(RsrcList);

    RsrcMap* const mMap;
    const int64 mMapSize;
    const int64 mDataSize;
    int64 mNameTableSize = 0;
    int64 mSpace = 0;  // from the TypeMap to the name table or the end
    int64 mTypes = 0;
    int64 mTypeMapSize = 0;
    int64 mSlots = 0;          // entries that the space between the TypeMap and its end holds
    int64 mTotal = 0;          // entries counted so far
    std::vector<bool> mTaken;  // by slot: an entry of some list
};

// Swaps the TypeMap and all lists of a map whose head is done. Whatever the counts say, it stays between the TypeMap's
// start and `room` bytes behind it, and no list touches the TypeMap itself, so that what was checked stays true.
KzErr SwapLists(unsigned char* typeMap, int64 room, ResourceFormat::Direction direction)
{
    const bool toNative = direction == ResourceFormat::toNative;
    const int64 types = int64{toNative ? kz::LoadBig<int32>(typeMap) : kz::LoadNative<int32>(typeMap)} + 1;
    const int64 typeMapSize = static_cast<int64>(sizeof(TypeList)) * types + static_cast<int64>(sizeof(TypeMap));
    if (types < 0 || typeMapSize > room) {
        return kzErrIO;
    }
    SwapAt<uInt32>(typeMap);
    TypeList* list = reinterpret_cast<TypeList*>(typeMap + sizeof(TypeMap));
    for (int64 i = 0; i < types; ++i, ++list) {
        TypeList native = *list;
        if (toNative) {
            SwapTypeList(&native);
        }
        const int64 count = std::max<int64>(int64{native.lastRsrcIndex} + 1, 0);
        const int64 offset = native.listOffset;
        if (offset < typeMapSize || offset + count * static_cast<int64>(sizeof(RsrcList)) > room) {
            return kzErrIO;
        }
        SwapTypeList(list);
        RsrcList* entry = reinterpret_cast<RsrcList*>(typeMap + offset);
        for (int64 k = 0; k < count; ++k, ++entry) {
            SwapEntry(entry);
        }
    }
    return kzErrNone;
}

int32 RsrcIDCompare(const void* a, const void* b)
{
    const int32 left = static_cast<const RsrcList*>(a)->id;
    const int32 right = static_cast<const RsrcList*>(b)->id;
    return left < right ? -1 : left > right;
}

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

}  // namespace

void RsrcHeader::InitEmptyHeader(_FMFileCreator creator, _FMFileType type)
{
    std::memcpy(magic, kMagic, sizeof kMagic);
    std::memcpy(formatMark, kFormatMark, sizeof kFormatMark);
    version = kz::kFormatVersion;
    fileType = type;
    fileCreator = creator;
    mapOffset = sizeof(RsrcHeader);
    mapSize = 0;
    dataOffset = sizeof(RsrcHeader);
    dataSize = 0;
}

bool RsrcHeader::ValidMagicAndVersion() const
{
    if (std::memcmp(magic, kMagic, sizeof kMagic) != 0) {
        return false;
    }
    const int16 number = static_cast<int16>(version);
    return number == 2 || (number >= 3 && std::memcmp(formatMark, kFormatMark, sizeof kFormatMark) == 0);
}

void RsrcHeader::Endianize(ResourceFormat::Direction /*direction*/)
{
    version = kz::ReverseBytes(version);
    mapOffset = kz::ReverseBytes(mapOffset);
    mapSize = kz::ReverseBytes(mapSize);
    dataOffset = kz::ReverseBytes(dataOffset);
    dataSize = kz::ReverseBytes(dataSize);
}

KzErr RsrcHeader::ReadFromIO(ZVResfileIO* io)
{
    const KzErr err = io->Read(sizeof(RsrcHeader), nullptr, this);
    if (err != kzErrNone) {
        return err == kzErrResFileNotOpen ? kzErrEndOfFile : err;
    }
    Endianize(ResourceFormat::toNative);
    return kzErrNone;
}

int32 RsrcHeader::MeetsMinimalSanity(int32 fileSize) const
{
    const int64 size = fileSize;
    const int64 dataStart = static_cast<int32>(dataOffset);
    const int64 dataBytes = static_cast<int32>(dataSize);
    const int64 mapStart = static_cast<int32>(mapOffset);
    const int64 mapBytes = static_cast<int32>(mapSize);
    if (!ValidMagicAndVersion()) {
        return 1;
    }
    if (dataStart < static_cast<int64>(sizeof(RsrcHeader)) || dataStart > size) {
        return 4;
    }
    if (dataBytes < 0 || dataBytes > size || dataStart + dataBytes > size || dataBytes % 4 != 0) {
        return 5;
    }
    if (mapStart < 0 || mapStart > size) {
        return 2;
    }
    if (mapBytes < 0 || mapBytes > size || mapStart + mapBytes > size) {
        return 3;
    }
    if (mapBytes == 0 && dataBytes == 0) {
        return 0;
    }
    if (mapBytes == 0 || dataBytes == 0) {
        return 6;
    }
    if (mapBytes < kz::kSmallestMapSize || mapBytes > size - mapStart) {
        return 3;
    }
    if (dataStart + dataBytes != mapStart) {
        return 10;
    }
    return 0;
}

KzErr ResourceFormat::VerifyRsrcHeaderAgreement(const RsrcHeader& header, RsrcMap* map)
{
    const RsrcHeader& copy = map->header;
    const bool agree = std::memcmp(copy.magic, header.magic, sizeof header.magic) == 0 &&
                       std::memcmp(copy.formatMark, header.formatMark, sizeof header.formatMark) == 0 &&
                       copy.version == header.version && copy.fileType == header.fileType &&
                       copy.fileCreator == header.fileCreator && copy.mapSize == header.mapSize &&
                       copy.dataSize == header.dataSize;
    if (!agree) {
        KZ_REPORT(kDbgWarning, 0x6C1D93A4) << "ZVResFile::VerifyRsrcHeaderAgreement: no agreement;";
        return kzErrGeneric;
    }
    return kzErrNone;
}

KzErr ResourceFormat::StandardizeRsrcMap(RsrcMap* map, Direction direction, const RsrcHeader* header)
{
    // Toward the file the offsets are read before they are swapped, toward native after it.
    TypeMap* types = direction == toFile ? kz::GetTypeMap(map) : nullptr;
    int64 room = types != nullptr ? int64{map->header.mapSize} - map->typeMapOffset : 0;
    map->header.Endianize(direction);
    if (direction == toNative && header != nullptr) {
        if (const KzErr err = VerifyRsrcHeaderAgreement(*header, map)) {
            return err;
        }
    }
    SwapMapHead(map);
    if (direction == toNative) {
        const uInt32 mapSize = map->header.mapSize;
        if (header != nullptr && (map->typeMapOffset > mapSize || map->nameTableOffset > mapSize)) {
            return kzErrIO;
        }
        types = kz::GetTypeMap(map);
        room = int64{mapSize} - map->typeMapOffset;
    }
    return types == nullptr ? kzErrNone : SwapLists(Bytes(types), room, direction);
}

int32 ResourceFormat::NativizeAndValidateRsrcMap(RsrcMap* map, const RsrcHeader& header)
{
    if (!header.ValidMagicAndVersion()) {
        return 1;
    }
    map->header.Endianize(toNative);
    if (VerifyRsrcHeaderAgreement(header, map) != kzErrNone) {
        return 7;
    }
    return MapValidator(map, header).Run();
}

KzErr ResourceFormat::ReadRsrcHeader(ZVResfileIO* io, RsrcHeader* header, int32* shift)
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

KzErr ResourceFormat::RGetFileType(const PathRef& path, _FMFileType* type, _FMFileCreator* creator)
{
    if (type != nullptr) {
        *type = 0;
    }
    if (creator != nullptr) {
        *creator = 0;
    }
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

TypeMap* GetTypeMap(RsrcMap* map)
{
    const uInt32 mapSize = map->header.mapSize;
    const uInt32 offset = map->typeMapOffset;
    if (mapSize < kSmallestTypeMapSize || offset < kMapHeadSize || int64{offset} + int64{sizeof(TypeMap)} > mapSize) {
        return nullptr;
    }
    return reinterpret_cast<TypeMap*>(Bytes(map) + offset);
}

int32 TypeCount(RsrcMap* map)
{
    const TypeMap* types = GetTypeMap(map);
    return types == nullptr ? 0 : static_cast<int32>(types->lastTypeIndex + 1);
}

TypeList* FindTypeList(RsrcMap* map, _ResourceType type)
{
    TypeMap* types = GetTypeMap(map);
    if (types == nullptr) {
        return nullptr;
    }
    TypeList* const first = FirstType(types);
    for (TypeList* list = first + TypeCount(map); list-- != first;) {
        if (list->type == type) {
            return list;
        }
    }
    return nullptr;
}

RsrcList* SearchID(RsrcList* list, int32 count, int32 id)
{
    // The steps depend on the count alone, so the processor predicts them; a callback a step would cost more than all
    // the rest of a look-up.
    RsrcList* const end = list + count;
    while (count > 0) {
        const int32 half = count / 2;
        const bool after = list[half].id < id;
        list = after ? list + half + 1 : list;
        count = after ? count - half - 1 : half;
    }
    return list != end && list->id == id ? list : nullptr;
}

const unsigned char* EntryName(const RsrcMap* map, const RsrcList& entry)
{
    if (map->nameTableOffset == 0 || entry.nameOffset < 0) {
        return nullptr;
    }
    // A map that was read weakly may lead outside itself.
    const int64 mapSize = map->header.mapSize;
    const int64 offset = int64{map->nameTableOffset} + entry.nameOffset;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(map);
    if (offset >= mapSize || offset + 1 + bytes[offset] > mapSize) {
        return nullptr;
    }
    return bytes + offset;
}

bool RIsSorted(const RsrcList* list, int32 count)
{
    for (int32 i = 1; i < count; ++i) {
        if (list[i].id < list[i - 1].id) {
            return false;
        }
    }
    return true;
}

void SortRsrcIDs(RsrcMap* map)
{
    TypeMap* types = GetTypeMap(map);
    if (types == nullptr) {
        return;
    }
    const TypeList* list = FirstType(types);
    for (int32 i = TypeCount(map); i > 0; --i, ++list) {
        RsrcList* entries = FirstEntry(types, *list);
        if (!RIsSorted(entries, EntryCount(*list))) {
            QSort(entries, EntryCount(*list), sizeof(RsrcList), &RsrcIDCompare);
        }
    }
}

}  // namespace kz
