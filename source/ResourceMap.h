// The way through a map in host byte order: from a type to its entries, from an id to its entry, from an entry to its
// name.
//
// All of it takes a map that one of the two conversions of ResourceFormat accepted, and stays inside that map's block
// even where it was accepted weakly, in which case lists may overlap. Pointers go into the block and end with its next
// resize. One thread at a time, or the lock of the file that the map belongs to.
#ifndef KZCORE_RESOURCEMAP_H
#define KZCORE_RESOURCEMAP_H

#include "KZTypes.h"
#include "KzAssert.h"
#include "ResourceFormat.h"

namespace kz {

// The first of TypeCount(map) types, and the first of EntryCount(list) entries of a type.
// Requires: `types` is the map's GetTypeMap, not null.
inline TypeList* FirstType(TypeMap* types)
{
    KZ_ASSERT(types != nullptr);
    return reinterpret_cast<TypeList*>(reinterpret_cast<unsigned char*>(types) + sizeof(TypeMap));
}

inline RsrcList* FirstEntry(TypeMap* types, const TypeList& list)
{
    KZ_ASSERT(types != nullptr);
    return reinterpret_cast<RsrcList*>(reinterpret_cast<unsigned char*>(types) + list.listOffset);
}

// The number of types in the map, 0 without a TypeMap, and of resources in a list.
int32 TypeCount(RsrcMap* map);
inline int32 EntryCount(const TypeList& list)
{
    return list.lastRsrcIndex < 0 ? 0 : list.lastRsrcIndex + 1;
}

// The list of a type, or null; the last one when the type is listed twice. Takes time with the number of types.
TypeList* FindTypeList(RsrcMap* map, _ResourceType type);

// The entry with this id, or null. In a list that is not sorted by id it may miss. Takes time with the logarithm of
// `count`.
RsrcList* SearchID(RsrcList* list, int32 count, int32 id);

// The name of an entry, or null when it has none.
const unsigned char* EntryName(const RsrcMap* map, const RsrcList& entry);
// Copies that name, empty for none, to `name`, which has room for 256 bytes or is null: nothing to do then.
void CopyEntryName(const RsrcMap* map, const RsrcList& entry, unsigned char* name);

// Sorts each type's entries by id, where they are not sorted yet. Entries of one id keep no order.
void SortRsrcIDs(RsrcMap* map);
bool RIsSorted(const RsrcList* list, int32 count);

// Shows `visit(type, entry)` every entry of a map, type by type, until it returns true. Whether it did.
template <typename Visit>
bool VisitEntries(RsrcMap* map, const Visit& visit)
{
    TypeMap* types = GetTypeMap(map);
    const TypeList* list = types != nullptr ? FirstType(types) : nullptr;
    for (int32 i = TypeCount(map); i > 0; --i, ++list) {
        RsrcList* entry = FirstEntry(types, *list);
        for (int32 k = EntryCount(*list); k > 0; --k, ++entry) {
            if (visit(list->type, entry)) {
                return true;
            }
        }
    }
    return false;
}

// Whether two types of a map share an entry, in part at least: only where it was accepted weakly. Takes time with the
// square of the number of types.
bool ListsOverlap(RsrcMap* map);

// What is wrong with an open file's map that stands in a block of `blockSize` bytes, or null when a walk stays inside
// the block. The order of ids is left out, because a run-time process keeps the one that it read.
const char* RsrcMapFault(RsrcMap* map, uInt32 blockSize);

}  // namespace kz

#endif
