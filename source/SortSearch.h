// Array sorting and binary search by callback. Usable from C11 and C++20.
//
// A compare procedure returns a negative number, 0 or a positive one as its first argument stands before, beside or
// behind the second; it must not throw. Elements may have any alignment: a compare procedure that reads them as words
// needs them aligned. Nothing is allocated and no lock is held; callers see to it that one thread at a time works on
// an array.
#ifndef KZCORE_SORTSEARCH_H
#define KZCORE_SORTSEARCH_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

typedef int32 (*KzCompareProc)(const void* a, const void* b);
typedef int32 (*KzCompareExProc)(const void* a, const void* b, void* context);

// Sort `count` elements of `size` bytes in place; the 2 forms take elements that start `stride` bytes apart, of which
// the first `size` are moved and the rest stays; the Ex forms hand `context` to each compare call. Equal elements end
// in any order. Fewer than 2 elements, or a size or stride below 1, do nothing.
// Quicksort on the median of the first, middle and last element, which gives way to a heap sort where its splits stay
// bad: some 1.2 n log2 n compares on a random order, a constant times n log n on each, and no memory but some 600 bytes
// of the stack.
KZ_EXPORT void QSort(void* base, int32 count, int32 size, KzCompareProc compare);
KZ_EXPORT void QSort2(void* base, int32 count, int32 size, int32 stride, KzCompareProc compare);
KZ_EXPORT void QSortEx(void* base, int32 count, int32 size, KzCompareExProc compare, void* context);
KZ_EXPORT void QSort2Ex(void* base, int32 count, int32 size, int32 stride, KzCompareExProc compare, void* context);

// The index of an element equal to `key` in an ascending array, any of them if there are more; otherwise the bitwise
// complement of the index at which `key` belongs. `compare` gets the key first. No elements give -1, as ~0.
KZ_EXPORT int32 BinSearch(const void* base, int32 count, int32 size, const void* key, KzCompareProc compare);
KZ_EXPORT int32 BinSearchEx(const void* base, int32 count, int32 size, const void* key, KzCompareExProc compare,
                            void* context);

// Compare procedures for arrays of int16, of int32 and of pointer-sized unsigned numbers. The first two give the
// difference, which for int32 wraps: values more than 2^31 - 1 apart come out in the wrong order.
KZ_EXPORT int32 CompareInt16s(const void* a, const void* b);
KZ_EXPORT int32 CompareInt32s(const void* a, const void* b);
KZ_EXPORT int32 CompareUIntPtrTs(const void* a, const void* b);

KZ_EXTERN_C_END

#endif
