// Every walk begins at GetTypeMap, whose null means a map without resources: the head alone, or less.
//
// Counts and offsets are not tested here, because a conversion has accepted them and only this library writes to the
// map afterwards. Names are the exception: a weakly accepted map has its entries' offsets tested, but not its names'.
#include "ResourceMap.h"

#include "KzAssert.h"
#include "SortSearch.h"
#include "StringPStr.h"

namespace {

int32 RsrcIDCompare(const void* a, const void* b)
{
    const int32 left = static_cast<const RsrcList*>(a)->id;
    const int32 right = static_cast<const RsrcList*>(b)->id;
    return left < right ? -1 : left > right;
}

// Where a list ends, counted from the TypeMap as its offset is.
int64 ListEnd(const TypeList& list)
{
    return int64{list.listOffset} + int64{kz::EntryCount(list)} * int64{sizeof(RsrcList)};
}

}  // namespace

namespace kz {

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
    // Backwards, because the last one counts when a type is listed twice.
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
    KZ_ASSERT(count >= 0);
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

void CopyEntryName(const RsrcMap* map, const RsrcList& entry, unsigned char* name)
{
    if (name == nullptr) {
        return;
    }
    name[0] = 0;
    if (const unsigned char* found = EntryName(map, entry)) {
        PStrCpy(name, found);
    }
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
        // Files that this library wrote are sorted, so the look is cheaper than the sort that it spares.
        if (!RIsSorted(entries, EntryCount(*list))) {
            QSort(entries, EntryCount(*list), sizeof(RsrcList), &RsrcIDCompare);
        }
    }
}

bool ListsOverlap(RsrcMap* map)
{
    TypeMap* types = GetTypeMap(map);
    const TypeList* first = types != nullptr ? FirstType(types) : nullptr;
    // Every pair is compared: lists stand in any order, and to sort them would take memory that a walker must not ask
    // for.
    for (int32 i = 1; i < TypeCount(map); ++i) {
        for (int32 k = 0; k < i; ++k) {
            if (first[i].listOffset < ListEnd(first[k]) && first[k].listOffset < ListEnd(first[i])) {
                return true;
            }
        }
    }
    return false;
}

const char* RsrcMapFault(RsrcMap* map, uInt32 blockSize)
{
    // Each test reads only what those before it have found to be inside the block.
    if (blockSize < kMapHeadSize || blockSize < map->header.mapSize) {
        return "a resource map is larger than its block";
    }
    if (!map->header.ValidMagicAndVersion() || map->header.version != kFormatVersion) {
        return "the header in a resource map is not one of this version";
    }
    TypeMap* types = GetTypeMap(map);
    if (types == nullptr) {
        return nullptr;
    }
    const int64 room = int64{map->header.mapSize} - map->typeMapOffset;
    const int64 count = TypeCount(map);
    const int64 typesEnd = int64{sizeof(TypeMap)} + count * int64{sizeof(TypeList)};
    if (count < 0 || typesEnd > room) {
        return "a resource map has more types than fit into it";
    }
    for (int64 i = 0; i < count; ++i) {
        const TypeList& list = FirstType(types)[i];
        if (list.listOffset < typesEnd || ListEnd(list) > room) {
            return "a type's list of resources leads out of the map";
        }
    }
    return nullptr;
}

}  // namespace kz
