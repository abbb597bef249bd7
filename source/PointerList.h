// Lists of pointers in one block: a 32-bit count, padding to 8 bytes, then one entry of pointer size for each
// (`_LStrArray`, `ObjList`). Here are the numbers that both have in common, and the walkers that say what is wrong with
// such a list.
//
// The count is a claim, as in other lists: whoever is given a handle goes by the entries that its block really holds.
#ifndef KZCORE_POINTERLIST_H
#define KZCORE_POINTERLIST_H

#include <cstddef>

#include "HandleText.h"

namespace kz {

inline constexpr std::size_t kEntriesStart = sizeof(void*);
inline constexpr std::size_t kEntrySize = sizeof(void*);

// The bytes of n entries, and of a block with these and the count. Both require an n that isn't negative.
constexpr std::size_t EntryBytes(int32 n)
{
    return static_cast<std::size_t>(n) * kEntrySize;
}
constexpr std::size_t PointerListSize(int32 n)
{
    return kEntriesStart + EntryBytes(n);
}

// The entries that the count tells and the block holds; 0 for a null handle, and for a bad one, which is reported.
template <typename List>
int32 EntriesOf(List* const* handle)
{
    static_assert(sizeof(List) == kEntriesStart + kEntrySize, "a count and a first entry");
    return HeldCount(handle, kEntriesStart, kEntrySize);
}

// What is wrong with the list in a handle, as a text for a test or an assertion; null if nothing is. A list is sound if
// its block holds a count that isn't negative, and as many entries. What those point to is not looked at.
const char* PointerListFault(const void* handle);

// The same for an array of strings, of which a null handle is an empty one. The block must end with the last entry, and
// each entry be null or a handle in use. A host may break the second rule, so this is for tests and not for assertions.
const char* LStrArrayFault(const void* handle);

}  // namespace kz

#endif
