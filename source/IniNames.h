// Lists of things with names, sections and items, and how they are found by name. C library only.
#ifndef KZCORE_ININAMES_H
#define KZCORE_ININAMES_H

#include "IniList.h"
#include "IniListRec.h"
#include "IniText.h"

namespace qkini {

// How names compare in one object.
struct Naming {
    bool caseSensitive = false;
    unsigned long long seed = 0;  // of the hash
};

// A list whose elements begin with `char* name`. It is found in by a hash index, which is made once the list is long
// enough to be worth it and kept up to date as the list changes; when there is no memory for one, by a binary search
// where the list is in order, else one by one. All three find the first of several elements of a name.
struct NameList {
    struct Slot {
        unsigned hash;
        int place;  // index in the list, plus 1; 0 for a free slot
    };

    qkini_List list;
    char* elements;  // of the list
    size_t elementSize;
    Slot* slots;  // mask + 1 of them, null without an index
    unsigned mask;
    unsigned used;       // slots; several elements of a name have one
    bool hasDuplicates;  // whether it may be so
    bool isInOrder;      // of names

    bool Make(size_t size);  // for elements of that size; false when out of memory
    void Dispose();          // the list and the index, not what the elements own

    int Count() const { return (*list)->count; }
    void* At(int index) const { return elements + static_cast<size_t>(index) * elementSize; }

    int Find(const NameKey& key, const Naming& naming);  // an index, or -1

    // Insert behind the last element, or in order behind those that are equal. `key` is the element's name. An index,
    // or -1 when out of memory.
    int Append(const void* element, const NameKey& key, const Naming& naming);
    int InsertInOrder(const void* element, const NameKey& key, const Naming& naming);

    void RemoveAt(int index, const Naming& naming);
    void Sort(const Naming& naming);

    // For changes of names, and of the list by other means.
    void Forget();
};

}  // namespace qkini

#endif
