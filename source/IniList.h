// Growable arrays of elements of one size. Usable from C11 and C++20; needs nothing but the C library.
//
// A list is a handle to a record that moves as it grows; pointers to elements are good until the list changes.
// Positions count from 1. Where a call takes one, 0 stands for the end (behind the last element for an insertion, the
// last element otherwise) and -1 for the front. Elements are copied as bytes; what they point to is the caller's.
//
// Calls that can fail give 1 for success, 0 for a position outside the list or an element that is not there, and -12
// when out of memory, with the list as it was. A null list is an empty one that can't grow. One thread at a time.
#ifndef KZCORE_INILIST_H
#define KZCORE_INILIST_H

#include <stddef.h>

#include "IniTypes.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qkini_ListRec** qkini_List;

// Compares two elements, or a key with an element: negative, 0 or positive.
typedef int (*qkini_CompareProc)(const void* a, const void* b);

// A block of memory behind a master pointer: made with `size` bytes, resized keeping what fits, asked for its size,
// disposed. Null or -12 when out of memory. A null handle has no size: 0 for both calls that tell of one.
INI_EXPORT void** qkini_PI_NewHandle(size_t size);
INI_EXPORT int qkini_PI_SetHandleSize(void** handle, size_t size);
INI_EXPORT size_t qkini_PI_GetHandleSize(void** handle);
INI_EXPORT void qkini_PI_DisposeHandle(void** handle);

// An empty list of elements of `elementSize` bytes, at least 1; null when out of memory.
INI_EXPORT qkini_List qkini_ListCreate(int elementSize);

// Frees the list, not what its elements point to. Null does nothing.
INI_EXPORT void qkini_ListDispose(qkini_List list);

// The number of elements; 0 for a null list.
INI_EXPORT int qkini_ListNumItems(qkini_List list);

// The address of an element, or null.
INI_EXPORT void* qkini_ListGetPtrToItem(qkini_List list, int position);

// Copy one element, or `count` from `position` on, out of the list.
INI_EXPORT int qkini_ListGetItem(qkini_List list, void* out, int position);
INI_EXPORT int qkini_ListGetItems(qkini_List list, void* out, int position, int count);

// Remove one element, or `count` from `position` on. 0, with nothing removed, where there are fewer.
INI_EXPORT int qkini_ListRemoveItem(qkini_List list, int position);
INI_EXPORT int qkini_ListRemoveItems(qkini_List list, int position, int count);

// Insert in front of the element at `position`; the number of elements plus 1 appends too. `items` must not be part of
// the list.
INI_EXPORT int qkini_ListInsertItem(qkini_List list, const void* item, int position);
INI_EXPORT int qkini_ListInsertItems(qkini_List list, const void* items, int position, int count);

// Inserts into a list that is in the order of `compare`, behind what is equal. The position; 0 without a list. Without
// `compare`, here and below, elements compare as bytes.
INI_EXPORT int qkini_ListInsertInOrder(qkini_List list, const void* item, qkini_CompareProc compare);

// The position of the first element at or behind `start` that equals `key`, or 0.
INI_EXPORT int qkini_ListFindItem(qkini_List list, const void* key, int start, qkini_CompareProc compare);

// The position of the first element that equals `key` in a list in order, or 0.
INI_EXPORT int qkini_ListBinSearch(qkini_List list, const void* key, qkini_CompareProc compare);

// Sorts the elements; equal ones end in any order.
INI_EXPORT void qkini_ListQuickSort(qkini_List list, qkini_CompareProc compare);

// The index from 0 of the first element that equals `key` among `count` elements in order; without one the complement
// (~) of the index at which it belongs.
INI_EXPORT int qkini_BinSearch(const void* base, int count, int size, const void* key, qkini_CompareProc compare);

#ifdef __cplusplus
}
#endif

#endif
