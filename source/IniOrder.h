// The order of the elements of a list: where an element stands, which one stands at a place, and edits in between, each
// in a number of steps that grows with the logarithm of the list's length. C library only.
#ifndef KZCORE_INIORDER_H
#define KZCORE_INIORDER_H

#include "IniPool.h"

namespace qkini {

// What every element of a list begins with.
struct Element {
    char* name;
    unsigned leaf;      // of the list's order that holds it
    unsigned comments;  // in front of it: the number of the last one, or 0
};

struct OrderNode {
    static constexpr unsigned kRoom = 29;

    unsigned parent;  // 0 for the root
    unsigned size;    // elements below it
    unsigned short used;
    unsigned short level;     // 0 for a leaf
    unsigned entries[kRoom];  // numbers of elements in a leaf, else of nodes
};
static_assert(sizeof(OrderNode) == 128, "two cache lines");

// Where an order's nodes and elements are.
struct OrderPools {
    Pool* nodes;
    Pool* elements;  // null where they don't know their leaf
};

// Indexes count from 0.
struct Order {
    struct Place {
        unsigned leaf;
        unsigned at;
    };

    unsigned root;
    unsigned last;  // leaf
    unsigned count;
    mutable unsigned nearLeaf;   // where an index was last looked up, or 0
    mutable unsigned nearFirst;  // the index of its first element

    // Places, indexes and the numbers of elements. An element that knows its leaf has its place found by that.
    Place PlaceAt(const OrderPools& pools, unsigned index) const;
    Place PlaceOf(const OrderPools& pools, const Element* element) const;
    unsigned IndexOf(const OrderPools& pools, Place place) const;
    unsigned NumberAt(const OrderPools& pools, Place place) const;
    unsigned At(const OrderPools& pools, unsigned index) const { return NumberAt(pools, PlaceAt(pools, index)); }

    // Inserts in front of the element at `index`, or behind the last. False when out of memory: nothing changed.
    bool Insert(const OrderPools& pools, unsigned index, unsigned number);
    void Remove(const OrderPools& pools, Place place);
    void Clear(const OrderPools& pools);

    // Sorts in place; equal elements keep their order. For elements that know their leaf.
    using CompareProc = int (*)(const Element* a, const Element* b);
    void Sort(const OrderPools& pools, CompareProc compare);

    // What is wrong with the tree, or null. For tests.
    const char* Fault(const OrderPools& pools) const;
    unsigned CountNodes(const OrderPools& pools) const;

private:
    bool Append(const OrderPools& pools, unsigned number);
};

}  // namespace qkini

#endif
