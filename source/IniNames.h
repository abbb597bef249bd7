// Lists of things with names, sections and items, and how they are found by name. C library only.
//
// An edit or a look-up takes a number of steps that grows with the logarithm of the list's length at most, but for the
// one that makes the index, and for look-ups without memory for an index. A list has no lock, and a look-up changes it:
// it may make the index, and it moves the place that was looked up last.
#ifndef KZCORE_ININAMES_H
#define KZCORE_ININAMES_H

#include "IniOrder.h"
#include "IniText.h"

namespace qkini {

// How names compare in one object.
struct Naming {
    bool caseSensitive = false;   // byte for byte, else as CompareBlind
    unsigned long long seed = 0;  // of the hash
};

// What all lists of an object share.
struct NameCommon {
    Naming naming;
    Pool nodes{sizeof(OrderNode)};  // of their orders and groups
    Pool groups{sizeof(Order)};     // of the elements of one name
};

// Where the elements of some lists are: all sections, or the items of all sections.
struct NameStore {
    NameCommon* common;  // not owned
    Pool elements;

    NameStore(NameCommon* shared, size_t elementSize) : common(shared), elements(elementSize) {}
};

// A list of elements, which stay where they are until they are removed. An element is found by its rank, which is how
// many stand in front of it, or by its name. A list is copied as bytes, and owns its slots.
struct NameList {
    // Of the index by name.
    struct Slot {
        unsigned hash;
        unsigned holds;  // the number of an element, or of a group and kGroup; 0 for a free slot
    };
    static constexpr unsigned kGroup = 0x80000000;
    static_assert((kGroup & Pool::kMost) == 0, "no number has this bit");

    NameStore* store;  // not owned
    Slot* slots;       // mask + 1 of them, null without an index
    Order order;
    unsigned mask;
    unsigned used;   // slots that hold something, at most half of all
    bool isInOrder;  // of names, as they compare at present; false says nothing

    // Goes through the list, which does not change in between. Leaf by leaf, so that a step costs no walk through the
    // tree.
    class Iterator {
    public:
        Iterator(const NameList* list, unsigned rank) : m_list(list), m_elements(&list->store->elements), m_rank(rank)
        {
            Seek();
        }

        Element* operator*() const { return static_cast<Element*>(m_elements->At(m_leaf->entries[m_at])); }
        Iterator& operator++()
        {
            ++m_rank;
            ++m_at;
            if (m_at == m_leaf->used) {
                Seek();
            }
            return *this;
        }
        bool operator!=(const Iterator& other) const { return m_rank != other.m_rank; }

    private:
        void Seek();

        const NameList* m_list;
        const Pool* m_elements;
        const OrderNode* m_leaf = nullptr;
        unsigned m_at = 0;
        unsigned m_rank;
    };
    Iterator begin() const { return {this, 0}; }
    Iterator end() const { return {this, order.count}; }

    // Makes an empty list of what were only bytes.
    void Make(NameStore* from);

    // Gives back the elements, but not what they own.
    void Clear();

    // Frees only what does not stand in pools. For when these are cleared as a whole; the list is of no use then.
    void FreeSlots();

    int Count() const { return static_cast<int>(order.count); }
    Element* At(int rank) const;                    // requires a rank from 0 and below Count()
    Element* Behind(const Element* element) const;  // the next one, or null

    // The first element of a name, or null. May make the index, and never fails for want of memory.
    Element* Find(const NameKey& key);

    // Adds an element of zeros but for its name, a text equal to `key` that becomes the element's: behind the last, or
    // in order behind those that are equal. Null when out of memory: nothing changed.
    enum class Where { kLast, kInOrder };
    Element* Add(char* name, const NameKey& key, Where where);

    // Takes an element of the list out of it, and gives its memory back. Needs no memory.
    void Remove(Element* element);

    // Gives an element another name, and leaves it where it is. The old name is still what it was when this is called.
    void Rename(Element* element, char* name, const NameKey& key);

    // Sorts by name; equal elements keep their order.
    void Sort();

    // Forgets all that is known of the names, in front of changes of names by other means and behind those of how they
    // compare.
    void Forget();

    // What is wrong with the list, or null. For tests and KZ_ASSERT_SLOW.
    const char* Fault() const;

    // Adds what the list has of the pools that all lists share. For tests and KZ_ASSERT_SLOW.
    void CountUse(unsigned* nodes, unsigned* groups) const;
};

}  // namespace qkini

#endif
