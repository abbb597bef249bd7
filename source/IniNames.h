// Lists of things with names, sections and items, and how they are found by name. C library only.
#ifndef KZCORE_ININAMES_H
#define KZCORE_ININAMES_H

#include "IniOrder.h"
#include "IniText.h"

namespace qkini {

// How names compare in one object.
struct Naming {
    bool caseSensitive = false;
    unsigned long long seed = 0;  // of the hash
};

// What all lists of an object share.
struct NameCommon {
    Naming naming;
    Pool nodes{sizeof(OrderNode)};
    Pool groups{sizeof(Order)};
};

// Where the elements of some lists are: all sections, or the items of all sections.
struct NameStore {
    NameCommon* common;
    Pool elements;

    NameStore(NameCommon* shared, size_t elementSize) : common(shared), elements(elementSize) {}
};

// A list of elements, which stay where they are until they are removed.
struct NameList {
    struct Slot {
        unsigned hash;
        unsigned holds;  // the number of an element, or of a group and kGroup; 0 for a free slot
    };
    static constexpr unsigned kGroup = 0x80000000;

    NameStore* store;
    Slot* slots;  // mask + 1 of them, null without an index
    Order order;
    unsigned mask;
    unsigned used;   // slots
    bool isInOrder;  // of names

    // Goes through the list, which does not change in between.
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

    void Make(NameStore* from);

    // Gives back the elements, but not what they own; the second only what does not stand in pools.
    void Clear();
    void FreeIndex();

    int Count() const { return static_cast<int>(order.count); }
    Element* At(int rank) const;
    Element* Behind(const Element* element) const;  // the next one, or null

    // The first element of a name, or null.
    Element* Find(const NameKey& key);

    // Adds an element of zeros but for its name, a text equal to `key` that becomes the element's: behind the last, or
    // in order behind those that are equal. Null when out of memory: nothing changed.
    enum class Where { kLast, kInOrder };
    Element* Add(char* name, const NameKey& key, Where where);

    void Remove(Element* element);

    // Gives an element another name, and leaves it where it is.
    void Rename(Element* element, char* name, const NameKey& key);

    // Sorts by name; equal elements keep their order.
    void Sort();

    // For changes of names by other means, and of how they compare.
    void Forget();

    // What is wrong with the list, or null. For tests.
    const char* Fault() const;

    // Adds what the list has of the pools that all lists share. For tests.
    void CountUse(unsigned* nodes, unsigned* groups) const;
};

}  // namespace qkini

#endif
