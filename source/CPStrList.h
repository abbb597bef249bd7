// A list of short strings as an object: the owner of a `CPStr` handle (StringCPStr.h). C++ only.
#ifndef KZCORE_CPSTRLIST_H
#define KZCORE_CPSTRLIST_H

#include "KZTypes.h"
#include "StringCPStr.h"

class BinDataReader;
class BinDataWriter;

// Without a handle the list is empty. Strings are at most 255 bytes. What fails for lack of memory gives
// kzErrMemoryFull and leaves the list as it was, unless told. One thread at a time.
class KZ_EXPORT CPStrList {
public:
    CPStrList() = default;

    // A copy of a list, whose count is relied on; empty for a null list and when memory is full.
    explicit CPStrList(const CPStr* list);

    // Takes the handle of a loaded resource that holds a list with a big-endian count, which RDetach detaches from its
    // file. A count that the data doesn't hold stands for the whole strings in it. Where RDetach fails the list is
    // empty, and the handle stays its owner's.
    explicit CPStrList(unsigned char** resource);

    ~CPStrList();
    CPStrList(const CPStrList&) = delete;
    CPStrList& operator=(const CPStrList&) = delete;

    // Makes a handle, of an empty list, if there is none. kzErrMemoryFull.
    KzErr ForceAllocate();

    // The whole strings of the block. Each count is a walk over them.
    int32 Count() const;

    // Inserts a string before string i: a negative index and one above the count append. kzErrArgument for null.
    KzErr Insert(const unsigned char* string, int32 i);

    // Removes string i: an index above the last means the last, a negative one the first. kzErrArgument: there is none.
    KzErr Delete(int32 i);

    // Removes all strings; a handle stays, with a block of 4 bytes.
    KzErr Clear();

    // String i, chosen as by Delete, at most until the list changes; null for an empty list.
    unsigned char* operator[](int32 i) const;

    // Make this list a copy of another, whose count is relied on where it is a block; null is an empty list.
    KzErr Copy(const CPStr* list);
    KzErr Copy(const CPStrList& other);

    // Whether the counts are equal and all strings: by bytes, without regard to case, as names of files.
    bool Equal(const CPStrList& other) const;
    bool EqualNC(const CPStrList& other) const;
    bool EqualFS(const CPStrList& other) const;

    // Whether both lists have n strings or more, of which the first n are equal as names of files.
    bool EqualNEltsFS(const CPStrList& other, int32 n) const;

    // The first PStrCmp, or in the others PStrCaseCmp, of two strings of equal index that is not 0; else the count
    // difference.
    int32 Compare(const CPStrList& other) const;
    int32 CompareNC(const CPStrList& other) const;
    int32 CompareFS(const CPStrList& other) const;

    // Writes, in the writer's byte order, the 32-bit count, and each string as its count byte and bytes. Returns the
    // writer's error.
    KzErr Flatten(BinDataWriter* writer) const;

    // Makes this list what Flatten wrote. Returns the reader's error, or kzErrMemoryFull: the list then has the strings
    // that were read before, or its old content if that could not be cleared.
    KzErr UnFlatten(BinDataReader* reader);

private:
    KzErr Append(const unsigned char* string, unsigned long* used);

    CPStr** mHandle = nullptr;  // owned; null is the empty list
};

#endif
