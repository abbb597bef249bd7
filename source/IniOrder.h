// The order of the elements of a list: where an element stands, which one stands there, and edits in between, each in a
// number of steps that grows with the logarithm of the list's length. C library only. Orders hold numbers of elements;
// the elements themselves are somebody else's.
#ifndef KZCORE_INIORDER_H
#define KZCORE_INIORDER_H

#include "IniPool.h"

namespace qkini {

// What every element of a list begins with.
struct Element {
    char* name;         // with a NUL behind it; whose memory it is depends on the element
    unsigned leaf;      // of the list's order that holds it
    unsigned comments;  // in front of it: the number of the last one, or 0
};

// A node of the tree. Those of all lists of an object stand in one pool.
struct OrderNode {
    static constexpr unsigned kRoom = 29;  // what two cache lines hold beside the rest

    unsigned parent;  // 0 for the root
    unsigned size;    // elements below it
    unsigned short used;
    unsigned short level;     // 0 for a leaf
    unsigned entries[kRoom];  // numbers of elements in a leaf, else of nodes
};
static_assert(sizeof(OrderNode) == 128, "two cache lines");

// Where an order's nodes and elements are, the same for each call on one order. Given to each call, because an object
// has as many orders as sections and names that stand there twice, and they would all hold the same two.
struct OrderPools {
    Pool* nodes;
    Pool* elements;  // null where they don't know their leaf
};

// An order of elements. An element's rank is how many stand in front of it, so ranks count from 0; its place is where
// in the tree it stands. Zeros are an empty order.
struct Order {
    struct Place {
        unsigned leaf;
        unsigned at;  // from 0, in the leaf's entries
    };

    unsigned root;   // a node, 0 while the order is empty
    unsigned last;   // its last leaf, 0 while it is empty
    unsigned count;  // elements
    // A look-up leaves its leaf here, because most go on to the next rank. Each change sets it to 0.
    mutable unsigned nearLeaf;   // where a rank was last looked up, or 0
    mutable unsigned nearFirst;  // the rank of its first element

    // From ranks to places, to the numbers of elements, and back. PlaceOf is for elements that know their leaf. Require
    // a rank below the count, and a place or element of this order.
    Place PlaceAt(const OrderPools& pools, unsigned rank) const;
    Place PlaceOf(const OrderPools& pools, const Element* element) const;
    unsigned RankOf(const OrderPools& pools, Place place) const;
    unsigned NumberAt(const OrderPools& pools, Place place) const;
    unsigned At(const OrderPools& pools, unsigned rank) const { return NumberAt(pools, PlaceAt(pools, rank)); }

    // Inserts an element that gets this rank, from 0 to the count. False when out of memory: nothing changed.
    bool Insert(const OrderPools& pools, unsigned rank, unsigned number);

    // Takes an element out, which needs no memory. The element itself stays.
    void Remove(const OrderPools& pools, Place place);

    // Gives back all nodes, and leaves an empty order.
    void Clear(const OrderPools& pools);

    // Sorts in place, without memory and in n log n comparisons; equal elements keep their order. For elements that
    // know their leaf.
    using CompareProc = int (*)(const Element* a, const Element* b);
    void Sort(const OrderPools& pools, CompareProc compare);

    // What is wrong with the tree, or null; and how many nodes it has. For tests and KZ_ASSERT_SLOW.
    const char* Fault(const OrderPools& pools) const;
    unsigned CountNodes(const OrderPools& pools) const;

private:
    bool Append(const OrderPools& pools, unsigned number);
    void PutAndSplit(const OrderPools& pools, Place place, unsigned entry, bool isLast);
    unsigned SplitAround(const OrderPools& pools, Place place, unsigned entry, bool isLast);
    void DropEmpty(const OrderPools& pools, unsigned node);
};

}  // namespace qkini

#endif
