// Lists of short strings in one block (`CPStr`): a 32-bit count, then that many `PStr` one after the other, without
// padding. Usable from C11 and C++20.
//
// A list stands in a handle that the caller owns; a block of 4 bytes with a count of 0 is an empty list. Calls that
// take a handle never read past its block: a count that the block doesn't hold stands for the whole strings in it.
// Calls that take a `CPStr*` rely on the count. A string that is inserted may stand in the list itself. What fails
// for lack of memory gives kzErrMemoryFull and leaves the list as it was. A handle that changes is held by one thread.
#ifndef KZCORE_STRINGCPSTR_H
#define KZCORE_STRINGCPSTR_H

#include "KZTypes.h"

typedef struct CPStr {
    int32 cnt;
    unsigned char str[1];
} CPStr;

KZ_EXTERN_C_BEGIN

// The bytes that a list takes, its count included; 4 for null and for a count below 1.
KZ_EXPORT int32 CPStrSize(const CPStr* p);

// String i, at most until the list changes. An index at or above the count means the last string, a negative one the
// first. Null for an empty list; a null handle is reported at level 4.
KZ_EXPORT unsigned char* CPStrIndex(CPStr** handle, int32 i);

// Inserts p before string i: an index above the count appends, a negative one puts p first. With exactFit 0 spare room
// in the block is used and kept; else the block gets exactly the size of the list. A null argument is reported and
// gives kzErrGeneric.
KZ_EXPORT KzErr CPStrInsertEfficient(CPStr** handle, const unsigned char* p, int32 i, KzBool exactFit);

// The same with an exact fit.
KZ_EXPORT KzErr CPStrInsert(CPStr** handle, const unsigned char* p, int32 i);

// Removes string i, which is chosen as in CPStrIndex, and leaves a block of exactly the list's size. kzErrArgument: the
// list is empty, or the handle is null, which is reported at level 4.
KZ_EXPORT KzErr CPStrRemove(CPStr** handle, int32 i);

// Puts p in the place of string i, which is chosen as in CPStrIndex; the block gets exactly the list's size if the
// strings differ in length. In an empty list p is put in the place of the first string, and the count stays 0.
// kzErrArgument for null, which is reported at level 4 for the handle.
KZ_EXPORT KzErr CPStrReplace(CPStr** handle, const unsigned char* p, int32 i);

// Makes the list empty, in a block of 4 bytes. kzErrArgument for null.
KZ_EXPORT KzErr CPStrClear(CPStr** handle);

// Makes *handle a list of n empty strings in a block of n + 4 bytes; a null *handle gets a new one. kzErrArgument for
// a null address or a negative n.
KZ_EXPORT KzErr CPStrSetToNEmptyStrings(CPStr*** handle, int32 n);

// The index of the first string for which compare(p, string) is 0; -1 if there is none. A null handle is reported at
// level 4.
typedef int32 (*PStrCompareProc)(const unsigned char* a, const unsigned char* b);
KZ_EXPORT int32 CPStrSearch(CPStr** handle, const unsigned char* p, PStrCompareProc compare);

// The first PStrCmp of two strings of equal index that is not 0; else the count difference. Null is an empty list.
KZ_EXPORT int32 CPStrCmp(const CPStr* a, const CPStr* b);

// Whether the counts and all strings are equal.
KZ_EXPORT KzBool CPStrEqual(const CPStr* a, const CPStr* b);

// Sorts the strings without regard to case; equal ones end in any order. `parallel`, unless it is null, is a handle of
// pointer-sized entries, one for each string, which are put into the same order. kzErrMemoryFull, without a report, and
// kzErrArgument for a null handle or too few entries: both blocks are as they were.
KZ_EXPORT KzErr LSort(CPStr** handle, UHandle parallel);

// Makes a list out of the data of a resource "STR#", a big-endian 16-bit count and that many PStr, in the caller's
// block at p, which needs 2 bytes more than the data has, and at least 4. A count that the data doesn't hold becomes
// the number of whole strings. kzErrArgument for null.
KZ_EXPORT KzErr StrPoundToCPStr(UHandle handle, CPStr* p);

KZ_EXTERN_C_END

#endif
