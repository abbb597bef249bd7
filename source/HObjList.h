// Lists of objects by pointer (`HObjList`): a handle to a 32-bit count, padding to 8 bytes, then that many entries of
// pointer size. Usable from C11 and C++20.
//
// The caller owns the handle, which starts as a block of at least 4 zeros; objects are neither owned nor looked at. The
// block grows and shrinks in steps of 16 bytes. A count that the block doesn't hold stands for the entries in it. A
// null handle is reported at level 4, and the call then gives what it gives for an empty list, or kzErrArgument. A list
// that changes is held by one thread.
#ifndef KZCORE_HOBJLIST_H
#define KZCORE_HOBJLIST_H

#include "KZTypes.h"

typedef struct ObjList {
    int32 cnt;
    void* obj[1];
} ObjList;
typedef ObjList** HObjList;

// The index of the end.
enum { kObjListEnd = 0x7FFFFFFF };

KZ_EXTERN_C_BEGIN

// Inserts an object before entry i: kObjListEnd and an index above the count append, a negative one puts it first. A
// block that is full becomes 16 bytes larger, rounded down to a multiple of 16. kzErrMemoryFull leaves the list as it
// was.
KZ_EXPORT KzErr HObjListInsert(HObjList handle, void* object, int32 i);

// Removes entry i and returns its object: kObjListEnd and an index above the last entry mean the last, a negative one
// the first. Null for an empty list. The freed entry is null. A block of more than count * 8 + 12 bytes, with the
// count before, goes down to the multiple of 16 below its size, unless memory is full.
KZ_EXPORT void* HObjListDelete(HObjList handle, int32 i);

// The last index of an object, or -1.
KZ_EXPORT int32 HObjListSearch(HObjList handle, const void* object);

// Deletes the last entry of an object: 1, or 0 when there is none.
KZ_EXPORT KzBool HObjListSearchDelete(HObjList handle, const void* object);

// Moves the last entry of an object to the front: 1, or 0 when it stood there. An object that is not found is reported
// and gives 0.
KZ_EXPORT KzBool HObjListBringToFront(HObjList handle, const void* object);

// Swaps two entries. kzErrArgument, with a report, when one of the indices has no entry: nothing changes.
KZ_EXPORT KzErr HObjListSwap(HObjList handle, int32 a, int32 b);

// Removes the null entries; the others keep their order. A block larger than count * 8 + 19, rounded down to a multiple
// of 16, gets that size. kzErrMemoryFull leaves the list as it was.
KZ_EXPORT KzErr HCompactObjList(HObjList handle);

KZ_EXTERN_C_END

#endif
