// A list is a handle to one block: the record with the elements behind it, so that pointers to elements are good until
// the block moves. It begins with four letters, at which each call looks first: a handle to anything else is no list.
//
// The engine itself uses no lists. They are here for hosts, which keep their own tables beside objects.

#include "IniList.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "IniMemory.h"
#include "IniSearch.h"
#include "KzAssert.h"

// The elements follow it.
struct qkini_ListRec {
    char magic[4];    // "TSIL"
    int capacity;     // elements that there is room for, at least `count`
    int elementSize;  // bytes, 1 or more
    int count;        // elements
};

namespace {

constexpr char kMagic[4] = {'T', 'S', 'I', 'L'};
constexpr int kFirstCapacity = 4;

// A handle's block: its size stands in front of the data.
struct Block {
    size_t size;
    size_t unused;  // keeps the data aligned to 16 bytes
};

Block* BlockOf(void** handle)
{
    return static_cast<Block*>(*handle) - 1;
}

// False for null and for a handle to anything else.
bool IsList(qkini_List list)
{
    return list != nullptr && memcmp((*list)->magic, kMagic, sizeof kMagic) == 0;
}

size_t ElementSize(qkini_List list)
{
    return static_cast<size_t>((*list)->elementSize);
}

size_t BytesOf(qkini_List list, int count)
{
    return static_cast<size_t>(count) * ElementSize(list);
}

// Requires an index from 0 up to the capacity, the end too.
char* ElementAt(qkini_List list, int index)
{
    KZ_ASSERT(index >= 0 && index <= (*list)->capacity);
    return reinterpret_cast<char*>(*list + 1) + BytesOf(list, index);
}

// The index from 0 of an element's position, or -1.
int IndexOf(qkini_List list, int position)
{
    if (!IsList(list)) {
        return -1;
    }
    const int count = (*list)->count;
    // No position below -1 is one. They are told apart before the subtraction, which the least int would overflow.
    const int index = position == 0 ? count - 1 : position == -1 ? 0 : position < -1 ? -1 : position - 1;
    return index < count ? index : -1;
}

// Makes room for so many elements. At least twice the old room, so that appending is cheap. Half of all memory is the
// most, because sizes past it would wrap.
bool MakeRoom(qkini_List list, int count)
{
    KZ_ASSERT(IsList(list) && count >= (*list)->count);
    const int capacity = (*list)->capacity;
    if (count <= capacity) {
        return true;
    }
    const int doubled = capacity > INT_MAX / 2 ? INT_MAX : capacity * 2;
    const int wanted = doubled > count ? doubled : count < kFirstCapacity ? kFirstCapacity : count;
    if (static_cast<size_t>(wanted) > SIZE_MAX / 2 / ElementSize(list)) {
        return false;
    }
    if (qkini_PI_SetHandleSize(reinterpret_cast<void**>(list), sizeof(qkini_ListRec) + BytesOf(list, wanted)) != 1) {
        return false;
    }
    (*list)->capacity = wanted;
    return true;
}

int Compare(const void* a, const void* b, size_t size, qkini_CompareProc compare)
{
    return compare != nullptr ? compare(a, b) : memcmp(a, b, size);
}

}  // namespace

extern "C" {

void** qkini_PI_NewHandle(size_t size)
{
    auto** const handle = static_cast<void**>(qkini::Allocate(sizeof(void*)));
    if (handle == nullptr) {
        return nullptr;
    }
    // A size that wraps with the record in front of it would give a block of a few bytes.
    auto* const block =
        size > SIZE_MAX - sizeof(Block) ? nullptr : static_cast<Block*>(qkini::Allocate(sizeof(Block) + size));
    if (block == nullptr) {
        free(handle);
        return nullptr;
    }
    block->size = size;
    *handle = block + 1;
    return handle;
}

int qkini_PI_SetHandleSize(void** handle, size_t size)
{
    if (handle == nullptr) {
        return 0;
    }
    // As for a new handle. The handle's own address stays, only what it leads to moves.
    if (size > SIZE_MAX - sizeof(Block)) {
        return kIniErrMemory;
    }
    auto* const block = static_cast<Block*>(qkini::Reallocate(BlockOf(handle), sizeof(Block) + size));
    if (block == nullptr) {
        return kIniErrMemory;
    }
    block->size = size;
    *handle = block + 1;
    return 1;
}

size_t qkini_PI_GetHandleSize(void** handle)
{
    return handle == nullptr ? 0 : BlockOf(handle)->size;
}

void qkini_PI_DisposeHandle(void** handle)
{
    if (handle != nullptr) {
        free(BlockOf(handle));
        free(handle);
    }
}

qkini_List qkini_ListCreate(int elementSize)
{
    if (elementSize < 1) {
        return nullptr;
    }
    // No room for elements yet: the first one makes some for a few.
    const auto list = reinterpret_cast<qkini_List>(qkini_PI_NewHandle(sizeof(qkini_ListRec)));
    if (list != nullptr) {
        memcpy((*list)->magic, kMagic, sizeof kMagic);
        (*list)->capacity = 0;
        (*list)->elementSize = elementSize;
        (*list)->count = 0;
    }
    return list;
}

void qkini_ListDispose(qkini_List list)
{
    if (IsList(list)) {
        (*list)->magic[0] = 0;  // most calls that come too late find no list then
        qkini_PI_DisposeHandle(reinterpret_cast<void**>(list));
    }
}

int qkini_ListNumItems(qkini_List list)
{
    return IsList(list) ? (*list)->count : 0;
}

void* qkini_ListGetPtrToItem(qkini_List list, int position)
{
    const int index = IndexOf(list, position);
    return index < 0 ? nullptr : ElementAt(list, index);
}

int qkini_ListGetItem(qkini_List list, void* out, int position)
{
    return qkini_ListGetItems(list, out, position, 1);
}

int qkini_ListGetItems(qkini_List list, void* out, int position, int count)
{
    const int index = IndexOf(list, position);
    if (index < 0 || count < 0 || count > (*list)->count - index) {
        return 0;
    }
    if (count > 0) {
        memcpy(out, ElementAt(list, index), BytesOf(list, count));
    }
    return 1;
}

int qkini_ListRemoveItem(qkini_List list, int position)
{
    return qkini_ListRemoveItems(list, position, 1);
}

int qkini_ListRemoveItems(qkini_List list, int position, int count)
{
    const int index = IndexOf(list, position);
    if (index < 0 || count < 0 || count > (*list)->count - index) {
        return 0;
    }
    const int behind = (*list)->count - index - count;
    memmove(ElementAt(list, index), ElementAt(list, index + count), BytesOf(list, behind));
    (*list)->count -= count;
    return 1;
}

int qkini_ListInsertItem(qkini_List list, const void* item, int position)
{
    return qkini_ListInsertItems(list, item, position, 1);
}

int qkini_ListInsertItems(qkini_List list, const void* items, int position, int count)
{
    if (!IsList(list) || count < 0 || position < -1 || position > (*list)->count + 1) {
        return 0;
    }
    if (count == 0) {
        return 1;
    }
    // A list that can't count its elements any more is full, as one without memory is.
    const int old = (*list)->count;
    const int index = position == 0 ? old : position == -1 ? 0 : position - 1;
    if (count > INT_MAX - old || !MakeRoom(list, old + count)) {
        return kIniErrMemory;
    }
    memmove(ElementAt(list, index + count), ElementAt(list, index), BytesOf(list, old - index));
    memcpy(ElementAt(list, index), items, BytesOf(list, count));
    (*list)->count = old + count;
    return 1;
}

int qkini_ListInsertInOrder(qkini_List list, const void* item, qkini_CompareProc compare)
{
    if (!IsList(list)) {
        return 0;
    }
    const size_t size = ElementSize(list);
    const int index =
        qkini::LowerBound((*list)->count, [&](int i) { return Compare(item, ElementAt(list, i), size, compare) >= 0; });
    const int result = qkini_ListInsertItem(list, item, index + 1);
    return result == 1 ? index + 1 : result;
}

int qkini_ListFindItem(qkini_List list, const void* key, int start, qkini_CompareProc compare)
{
    const int first = IndexOf(list, start);
    for (int i = first; i >= 0 && i < (*list)->count; ++i) {
        if (Compare(key, ElementAt(list, i), ElementSize(list), compare) == 0) {
            return i + 1;
        }
    }
    return 0;
}

int qkini_ListBinSearch(qkini_List list, const void* key, qkini_CompareProc compare)
{
    const int size = IsList(list) ? (*list)->elementSize : 0;
    const int found = size == 0 ? -1 : qkini_BinSearch(ElementAt(list, 0), (*list)->count, size, key, compare);
    return found < 0 ? 0 : found + 1;
}

void qkini_ListQuickSort(qkini_List list, qkini_CompareProc compare)
{
    if (!IsList(list) || (*list)->count < 2) {
        return;
    }
    // Bytes compare by their size, which qsort gives its function no way to know.
    const size_t size = ElementSize(list);
    const auto count = static_cast<size_t>((*list)->count);
    if (compare != nullptr) {
        qsort(ElementAt(list, 0), count, size, compare);
    } else {
        qsort_r(
            ElementAt(list, 0), count, size,
            [](const void* a, const void* b, void* n) { return memcmp(a, b, *static_cast<const size_t*>(n)); },
            const_cast<size_t*>(&size));
    }
}

int qkini_BinSearch(const void* base, int count, int size, const void* key, qkini_CompareProc compare)
{
    const auto* const elements = static_cast<const char*>(base);
    const auto bytes = static_cast<size_t>(size);
    const auto compareWith = [&](int i) {
        return Compare(key, elements + static_cast<size_t>(i) * bytes, bytes, compare);
    };
    const int index = qkini::LowerBound(count, [&](int i) { return compareWith(i) > 0; });
    const bool isFound = index < count && compareWith(index) == 0;
    return isFound ? index : ~index;
}

}  // extern "C"
