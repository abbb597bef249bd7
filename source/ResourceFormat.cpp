// Numbers of a file are compared as 64-bit values, because no sum or product of two 32-bit ones can wrap there.
//
// Every record is swapped in place, just before its first use and exactly once. A second swap would turn a number that
// was checked back into one that was not, so no two records may overlap: several rules below are for that alone.
//
// Both validators try one rule after the other in the documented order, one `return` a rule, because the number is all
// that tells which rule a file breaks. Each rule says what a file made on purpose could do past it. Blocks of data are
// not looked at, because reading them all would cost more than opening: a block's length is compared with the data
// section when it is loaded.
#include "ResourceFormat.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "ByteOrder.h"
#include "KzAssert.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/ResourceFormat";

constexpr unsigned char kMagic[4] = {'R', 'S', 'R', 'C'};
constexpr unsigned char kFormatMark[2] = {'\r', '\n'};
constexpr uInt32 kLegalMapAttrs = 0xE0;
constexpr uInt32 kLegalAttrs = 0x3E;

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

// One pass over a map as read from a file, whose copy of the header is in host order and agrees with the file's. The
// space between the TypeMap and the names is taken as slots of one entry each; every slot must belong to one list.
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
        // Some entries would belong to no list, so that nothing has swapped or checked them.
        if (mTotal != mSlots) {
            return 23;
        }
        // No file gets here: as many entries as slots, none of which is taken twice (18), leave no slot free. The rule
        // holds the other two to it.
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

    // Finds the space for the TypeMap and the entries.
    int32 CheckHead()
    {
        SwapMapHead(mMap);
        const int64 typeMapOffset = mMap->typeMapOffset;
        const int64 nameTableOffset = mMap->nameTableOffset;
        // A bit whose meaning is not known can't be kept true when the file changes.
        if ((mMap->fileAttrs & ~kLegalMapAttrs) != 0) {
            return 8;
        }
        // The TypeMap could lie over the head, which would be swapped again, or outside the block.
        if (typeMapOffset < kz::kMapHeadSize || typeMapOffset > mMapSize - static_cast<int64>(sizeof(TypeMap))) {
            return 11;
        }
        // The names could lie over what is swapped, so that a name's length changes after it was checked, or outside
        // the block. What comes before them is made of 32-bit words, so that they can't start between two of these.
        constexpr int64 kOneOfEach = sizeof(TypeMap) + sizeof(TypeList) + sizeof(RsrcList);
        if (nameTableOffset != 0 &&
            (nameTableOffset < typeMapOffset + kOneOfEach || nameTableOffset > mMapSize || nameTableOffset % 4 != 0)) {
            return 12;
        }
        mNameTableSize = nameTableOffset == 0 ? 0 : mMapSize - nameTableOffset;
        mSpace = (nameTableOffset == 0 ? mMapSize : nameTableOffset) - typeMapOffset;
        return 0;
    }

    // Divides that space into TypeMap and slots.
    int32 CheckTypeMap()
    {
        KZ_ASSERT(mSpace >= static_cast<int64>(sizeof(TypeMap)));
        SwapAt<uInt32>(TypeMapBytes());
        mTypes = int64{kz::LoadNative<int32>(TypeMapBytes())} + 1;
        // The walk over the types could run out of the block.
        constexpr int64 kLeastPerType = sizeof(TypeList) + sizeof(RsrcList);
        if (mTypes < 1 || kLeastPerType * mTypes >= mMapSize) {
            return 13;
        }
        mTypeMapSize = static_cast<int64>(sizeof(TypeList)) * mTypes + static_cast<int64>(sizeof(TypeMap));
        // The types could run on into the names, or leave no space for an entry.
        if (mSpace <= mTypeMapSize) {
            return 14;
        }
        // The entries could not fill the space, so that some of it would belong to nothing that is checked.
        if ((mSpace - mTypeMapSize) % kEntrySize != 0) {
            return 15;
        }
        mSlots = (mSpace - mTypeMapSize) / kEntrySize;
        mTaken.assign(static_cast<std::size_t>(mSlots), false);
        return 0;
    }

    // Takes the slots of one type's list.
    int32 CheckList(TypeList* list)
    {
        KZ_ASSERT(mTotal <= mSlots);
        SwapTypeList(list);
        const int64 count = int64{list->lastRsrcIndex} + 1;
        const int64 offset = list->listOffset;
        // A list could end outside the space, or be empty: a type that is counted, but of which nothing is found.
        if (count < 1 || count > mSlots || mTotal + count > mSlots) {
            return 16;
        }
        mTotal += count;
        // A list could start in the TypeMap or outside the space, or in the middle of another one's entry, half of
        // which would then be swapped again.
        if (offset % 4 != 0 || offset < mTypeMapSize || offset > mSpace - kEntrySize ||
            (offset - mTypeMapSize) % kEntrySize != 0) {
            return 17;
        }
        const int64 first = (offset - mTypeMapSize) / kEntrySize;
        RsrcList* entry = reinterpret_cast<RsrcList*>(TypeMapBytes() + offset);
        for (int64 slot = first; slot < first + count; ++slot, ++entry) {
            // An entry of two lists would be swapped again, and so lose the checks that it passed; in memory it would
            // hold one resource under two types. A list that starts inside the space can still end in the names.
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
        // As for the map's bits: what is not known can't be kept true.
        if ((entry->attrs & ~kLegalAttrs) != 0) {
            return 19;
        }
        const int64 name = entry->nameOffset;
        if (name != -1) {
            // The length byte could lie outside the block, or before the names in an entry, which changes when its
            // resource is loaded. At least one byte follows it, so that it can't be the last one.
            if (mMap->nameTableOffset == 0 || name < 0 || name > mNameTableSize - 2) {
                return 20;
            }
            // The text could run out of the block. No name of the format has 0 bytes, because that is stored as -1, or
            // 255.
            const int64 length = Bytes(mMap)[mMap->nameTableOffset + name];
            if (length == 0 || length == 255 || name + 1 + length > mNameTableSize) {
                return 21;
            }
        }
        // The block could lie in the map or outside the file, or between two blocks. A negative offset would also pass
        // a comparison as a signed number.
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
// start and `room` bytes behind it, and no list touches the TypeMap itself, so that what was checked stays true. Lists
// may still overlap one another or the names, which makes their content wrong, but no read leave the map.
KzErr SwapLists(unsigned char* typeMap, int64 room, ResourceFormat::Direction direction)
{
    KZ_ASSERT(room >= static_cast<int64>(sizeof(TypeMap)));
    const bool toNative = direction == ResourceFormat::toNative;
    const int64 types = int64{toNative ? kz::LoadBig<int32>(typeMap) : kz::LoadNative<int32>(typeMap)} + 1;
    const int64 typeMapSize = static_cast<int64>(sizeof(TypeList)) * types + static_cast<int64>(sizeof(TypeMap));
    // The walk over the types could leave the map.
    if (types < 0 || typeMapSize > room) {
        return kzErrIO;
    }
    SwapAt<uInt32>(typeMap);
    TypeList* list = reinterpret_cast<TypeList*>(typeMap + sizeof(TypeMap));
    for (int64 i = 0; i < types; ++i, ++list) {
        // The counts are needed in host order whichever way the conversion runs, so a copy is swapped ahead.
        TypeList native = *list;
        if (toNative) {
            SwapTypeList(&native);
        }
        const int64 count = std::max<int64>(int64{native.lastRsrcIndex} + 1, 0);
        const int64 offset = native.listOffset;
        // The list could lie over the TypeMap, whose counts were tested above, or leave the map.
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

}  // namespace

void RsrcHeader::InitEmptyHeader(_FMFileCreator creator, _FMFileType type)
{
    std::memcpy(magic, kMagic, sizeof kMagic);
    kz::SetFormatMark(this);
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

int32 RsrcHeader::MeetsMinimalSanity(int32 fileSize) const
{
    const int64 size = fileSize;
    const int64 dataStart = static_cast<int32>(dataOffset);
    const int64 dataBytes = static_cast<int32>(dataSize);
    const int64 mapStart = static_cast<int32>(mapOffset);
    const int64 mapBytes = static_cast<int32>(mapSize);
    // Any file of 32 bytes or more could have its text taken for offsets.
    if (!ValidMagicAndVersion()) {
        return 1;
    }
    // Blocks could lie in the header, or all of them outside the file.
    if (dataStart < static_cast<int64>(sizeof(RsrcHeader)) || dataStart > size) {
        return 4;
    }
    // Blocks could run out of the file, because each is held within this size when it is loaded. All are padded to
    // multiples of 4, so that another size would cut the last one.
    if (dataBytes < 0 || dataBytes > size || dataStart + dataBytes > size || dataBytes % 4 != 0) {
        return 5;
    }
    // The map would be read from outside the file.
    if (mapStart < 0 || mapStart > size) {
        return 2;
    }
    // The map would run out of the file, and 2 GB of memory be asked for it on the word of 32 bytes.
    if (mapBytes < 0 || mapBytes > size || mapStart + mapBytes > size) {
        return 3;
    }
    if (mapBytes == 0 && dataBytes == 0) {
        return 0;
    }
    // Data without a map belongs to no resource, and every entry of a map needs a length word in the data.
    if (mapBytes == 0 || dataBytes == 0) {
        return 6;
    }
    // The map has no room for one type and one entry, so that every count in it would be wrong.
    if (mapBytes < kz::kSmallestMapSize) {
        return 3;
    }
    // The map could lie in the data, as a resource that its own entries describe.
    if (dataStart + dataBytes != mapStart) {
        return 10;
    }
    return 0;
}

KzErr ResourceFormat::VerifyRsrcHeaderAgreement(const RsrcHeader& header, RsrcMap* map)
{
    KZ_ASSERT(map != nullptr);
    // Walks are held within the copy's mapSize, while the block was made by the file's: a larger one in the copy would
    // lead them out of the block.
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
    KZ_ASSERT(map != nullptr);
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
        // The TypeMap or the names would lie outside the map.
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
    KZ_ASSERT(map != nullptr);
    // A map of some other format would be read by the records of this one.
    if (!header.ValidMagicAndVersion()) {
        return 1;
    }
    map->header.Endianize(toNative);
    // The sizes that were checked could differ from those that the map is walked by.
    if (VerifyRsrcHeaderAgreement(header, map) != kzErrNone) {
        return 7;
    }
    return MapValidator(map, header).Run();
}

namespace kz {

void SetFormatMark(RsrcHeader* header)
{
    std::memcpy(header->formatMark, kFormatMark, sizeof kFormatMark);
}

}  // namespace kz
