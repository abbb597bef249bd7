// Arrays of string handles (`_LStrArray`): a 32-bit count, padding to 8 bytes, then that many `LStr**`, of which a null
// one is an empty string. Usable from C11 and C++20.
//
// An array stands in a handle of count * 8 + 8 bytes, and owns its strings; a null handle is an empty array. A count
// that the block doesn't hold stands for the entries in it. What fails leaves arrays and lists as they were. One thread
// at a time for each array.
#ifndef KZCORE_STRINGLSTRARRAY_H
#define KZCORE_STRINGLSTRARRAY_H

#include "KZTypes.h"
#include "StringCPStr.h"

typedef struct _LStrArray {
    int32 cnt;
    LStr** str[1];
} _LStrArray;

KZ_EXTERN_C_BEGIN

// Makes *array n entries long: disposes the strings from n up, sets the block's size, with null in new entries, and the
// count. A null *array gets a new handle. With n = 0 the handle is disposed too, and *array is null. kzErrArgument for
// a null address or a negative n; kzErrMemoryFull.
KZ_EXPORT KzErr ReallocLStrArrayHandle(_LStrArray*** array, int32 n);

// Makes *list a list of the first n strings, each cut to 255 bytes without a report; a null *list gets a new handle.
// For n = 0 or a null array *list is disposed and null. kzErrArgument for a null address, or an n that is negative or
// above the count; kzErrMemoryFull.
KZ_EXPORT KzErr LStrArrayToCPStrHandle(_LStrArray** array, int32 n, CPStr*** list);

// Makes *array an array of the first n strings of a list, with null for empty ones, and disposes the array that was
// there. For n = 0 *array is null. A null address is reported and gives kzErrGeneric. kzErrArgument for an n that is
// negative or above the count, of which null has 0; kzErrMemoryFull.
KZ_EXPORT KzErr CPStrPtrToLStrArray(const CPStr* list, int32 n, _LStrArray*** array);

KZ_EXTERN_C_END

#ifdef __cplusplus
// The same for all strings.
KZ_EXPORT KzErr LStrArrayToCPStrHandle(_LStrArray** array, CPStr*** list);
KZ_EXPORT KzErr CPStrPtrToLStrArray(const CPStr* list, _LStrArray*** array);
#endif

#endif
