// Lists of long strings in one block (`CLStr`): a 32-bit count, then that many `LStr`, each of which is filled up with
// zeros to a multiple of 4: a string of n bytes takes 4 + ((n + 3) & ~3). Usable from C11 and C++20.
//
// A list stands in a handle that the caller owns; a block of 4 bytes with a count of 0 is an empty list. Calls that
// take a handle never read past its block: a count that the block doesn't hold stands for the whole strings in it.
// Calls that take a `CLStr*` rely on the count. A string that is inserted may stand in the list itself. What fails
// for lack of memory gives kzErrMemoryFull and leaves the list as it was. A handle that changes is held by one thread.
#ifndef KZCORE_STRINGCLSTR_H
#define KZCORE_STRINGCLSTR_H

#include "KZTypes.h"

typedef struct CLStr {
    int32 cnt;
    LStr str[1];  // the first one
} CLStr;

KZ_EXTERN_C_BEGIN

// The bytes that a list takes, its count included; 4 for null.
KZ_EXPORT int32 CLStrSize(const CLStr* p);

// String i, at most until the list changes. An index at or above the count means the last string, a negative one the
// first. Null for an empty list; a null p is reported at level 4.
KZ_EXPORT LStr* CLStrIndex(CLStr* p, int32 i);

// Inserts s before string i: an index at or above the count appends, a negative one puts s first. With exactFit 0 spare
// room in the block is used and kept; else the block gets exactly the size of the list. A null argument is reported at
// level 4 and gives kzErrArgument.
KZ_EXPORT KzErr CLStrInsert(CLStr** handle, const LStr* s, int32 i, KzBool exactFit);

// Removes string i, which is chosen as in CLStrIndex, and leaves a block of exactly the list's size. kzErrArgument: the
// list is empty, or the handle null.
KZ_EXPORT KzErr CLStrRemove(CLStr** handle, int32 i);

// Inserts s into a list that LStrCmp has sorted, before the first string that is not below it, whose index goes to
// *outIndex. An equal string keeps s out unless duplicates are allowed. *outInserted tells whether s was inserted. Both
// outputs may be null. A null handle or s is reported at level 4 and gives kzErrArgument.
KZ_EXPORT KzErr CLStrInsertSort(CLStr** handle, const LStr* s, KzBool allowDuplicates, int32* outIndex,
                                KzBool* outInserted, KzBool exactFit);

// Turns a list of big-endian counts into a native one. A block whose strings don't end exactly at its end is reported
// at level 4 and gives kzErrCorrupt: the list then has the whole strings that stand at its start. kzErrArgument for
// null.
KZ_EXPORT KzErr StdToCLStr(CLStr** handle);

KZ_EXTERN_C_END

#endif
