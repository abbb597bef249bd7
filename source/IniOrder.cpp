// An order is a tree whose leaves hold the elements' numbers, up to 29 in a node, all leaves on one level. Each node
// knows its parent and how many elements are below it, and each element its leaf. So a place is found from a rank on
// the way down, and a rank from a place on the way up.
//
// What holds between two calls: no node is empty or overfull, all leaves are on level 0 and on one depth, a node's size
// is the sum of its children's, and `last` is the last leaf. Sizes are only right again at the end of a change.
//
// A full node is split in two; at the list's end the new node begins empty, because what is read in order then fills
// its nodes. A node is freed once it is empty and never merged before, so that a removal moves nothing but the rest of
// one node and needs no memory. The root has two entries at least, unless it is a leaf.
//
// An order of elements that don't know their leaf is the same tree; a place in it is found by rank only.

#include "IniOrder.h"

#include <string.h>

#include "KzAssert.h"

namespace qkini {

namespace {

constexpr unsigned kRoom = OrderNode::kRoom;

OrderNode* NodeOf(const OrderPools& pools, unsigned number)
{
    return static_cast<OrderNode*>(pools.nodes->At(number));
}

Element* ElementOf(const OrderPools& pools, unsigned number)
{
    return static_cast<Element*>(pools.elements->At(number));
}

unsigned MakeNode(const OrderPools& pools, unsigned parent, unsigned level)
{
    const unsigned number = pools.nodes->Take();
    OrderNode* const node = NodeOf(pools, number);
    node->parent = parent;
    node->size = 0;
    node->used = 0;
    node->level = static_cast<unsigned short>(level);
    return number;
}

// Tells an entry of a node of its place.
void Adopt(const OrderPools& pools, unsigned number, const OrderNode& node, unsigned entry)
{
    if (node.level > 0) {
        NodeOf(pools, entry)->parent = number;
    } else if (pools.elements != nullptr) {
        ElementOf(pools, entry)->leaf = number;
    }
}

// Where a node holds an entry. Requires one that it does hold.
unsigned PlaceInNode(const OrderNode& node, unsigned entry)
{
    unsigned at = 0;
    while (node.entries[at] != entry) {
        ++at;
        KZ_ASSERT(at < node.used);
    }
    CountSteps(at);
    return at;
}

void PutEntry(const OrderPools& pools, unsigned number, unsigned at, unsigned entry)
{
    OrderNode* const node = NodeOf(pools, number);
    KZ_ASSERT(node->used < kRoom && at <= node->used);
    const unsigned behind = node->used - at;
    memmove(node->entries + at + 1, node->entries + at, behind * sizeof(unsigned));
    CountSteps(behind);
    node->entries[at] = entry;
    ++node->used;
    Adopt(pools, number, *node, entry);
}

void TakeEntry(OrderNode* node, unsigned at)
{
    KZ_ASSERT(at < node->used);
    --node->used;
    const unsigned behind = node->used - at;
    memmove(node->entries + at, node->entries + at + 1, behind * sizeof(unsigned));
    CountSteps(behind);
}

// Counts the elements below a node anew, from the sizes of its children.
void CountSize(const OrderPools& pools, OrderNode* node)
{
    node->size = node->level == 0 ? node->used : 0;
    for (unsigned i = 0; node->level > 0 && i < node->used; ++i) {
        node->size += NodeOf(pools, node->entries[i])->size;
    }
}

// Moves the entries from `keep` on to a new node, which has no place in the parent yet.
unsigned Split(const OrderPools& pools, unsigned number, unsigned keep)
{
    OrderNode* const node = NodeOf(pools, number);
    KZ_ASSERT(keep <= node->used);
    const unsigned rightNumber = MakeNode(pools, node->parent, node->level);
    OrderNode* const right = NodeOf(pools, rightNumber);
    for (unsigned i = keep; i < node->used; ++i) {
        right->entries[i - keep] = node->entries[i];
        Adopt(pools, rightNumber, *right, node->entries[i]);
    }
    right->used = static_cast<unsigned short>(node->used - keep);
    node->used = static_cast<unsigned short>(keep);
    return rightNumber;
}

// How many nodes an insertion into a leaf makes: one for each full node from the leaf up, and a root where all are
// full.
unsigned NodesToInsert(const OrderPools& pools, unsigned leaf)
{
    unsigned count = 0;
    for (unsigned number = leaf; number != 0; number = NodeOf(pools, number)->parent) {
        if (NodeOf(pools, number)->used < kRoom) {
            return count;
        }
        ++count;
    }
    return count + 1;
}

// Puts two runs of elements in order into one; each element's `leaf` is the number of the next one.
unsigned Merge(const OrderPools& pools, unsigned a, unsigned b, Order::CompareProc compare)
{
    unsigned first = 0;
    unsigned* end = &first;
    while (a != 0 && b != 0) {
        unsigned& from = compare(ElementOf(pools, a), ElementOf(pools, b)) <= 0 ? a : b;
        *end = from;
        end = &ElementOf(pools, from)->leaf;
        from = *end;
    }
    *end = a != 0 ? a : b;
    return first;
}

void FreeNodes(const OrderPools& pools, unsigned number)
{
    const OrderNode* const node = NodeOf(pools, number);
    for (unsigned i = 0; node->level > 0 && i < node->used; ++i) {
        FreeNodes(pools, node->entries[i]);
    }
    pools.nodes->Give(number);
}

// What is wrong with a node or below it. Each node is compared with its children, so the root stands for all.
const char* FaultOf(const OrderPools& pools, unsigned number)
{
    OrderNode node = *NodeOf(pools, number);
    if (node.used == 0 || node.used > kRoom) {
        return "a node is empty or overfull";
    }
    for (unsigned i = 0; i < node.used; ++i) {
        const unsigned entry = node.entries[i];
        if (node.level == 0) {
            if (pools.elements != nullptr && ElementOf(pools, entry)->leaf != number) {
                return "an element doesn't know its leaf";
            }
            continue;
        }
        const OrderNode* const child = NodeOf(pools, entry);
        if (child->parent != number || child->level + 1 != node.level) {
            return "a node has another parent or level";
        }
        const char* const fault = FaultOf(pools, entry);
        if (fault != nullptr) {
            return fault;
        }
    }
    const unsigned size = node.size;
    CountSize(pools, &node);
    return node.size == size ? nullptr : "a node counts its elements wrong";
}

unsigned NodesFrom(const OrderPools& pools, unsigned number)
{
    const OrderNode* const node = NodeOf(pools, number);
    unsigned count = 1;
    for (unsigned i = 0; node->level > 0 && i < node->used; ++i) {
        count += NodesFrom(pools, node->entries[i]);
    }
    return count;
}

unsigned LastLeaf(const OrderPools& pools, unsigned number)
{
    for (const OrderNode* node = NodeOf(pools, number); node->level > 0; node = NodeOf(pools, number)) {
        number = node->entries[node->used - 1];
    }
    return number;
}

}  // namespace

unsigned Order::NumberAt(const OrderPools& pools, Place place) const
{
    KZ_ASSERT(place.at < NodeOf(pools, place.leaf)->used);
    return NodeOf(pools, place.leaf)->entries[place.at];
}

Order::Place Order::PlaceAt(const OrderPools& pools, unsigned rank) const
{
    KZ_ASSERT(rank < count);
    // A rank in front of the near leaf wraps to a great number and is no place in it.
    if (nearLeaf != 0 && rank - nearFirst < NodeOf(pools, nearLeaf)->used) {
        return {nearLeaf, rank - nearFirst};
    }
    // Down to the child that holds the rank among its own, which is what is left of the rank behind the children
    // passed.
    unsigned number = root;
    unsigned rest = rank;
    for (const OrderNode* node = NodeOf(pools, root); node->level > 0;) {
        const OrderNode* child = nullptr;
        for (unsigned i = 0;; ++i) {
            number = node->entries[i];
            child = NodeOf(pools, number);
            if (rest < child->size) {
                break;
            }
            rest -= child->size;
        }
        node = child;
    }
    nearLeaf = number;
    nearFirst = rank - rest;
    return {number, rest};
}

Order::Place Order::PlaceOf(const OrderPools& pools, const Element* element) const
{
    KZ_ASSERT(pools.elements != nullptr && element->leaf != 0);
    const OrderNode* const leaf = NodeOf(pools, element->leaf);
    unsigned at = 0;
    while (ElementOf(pools, leaf->entries[at]) != element) {
        ++at;
        KZ_ASSERT(at < leaf->used);
    }
    return {element->leaf, at};
}

unsigned Order::RankOf(const OrderPools& pools, Place place) const
{
    // Up to the root, past all that stands in front on each level.
    unsigned rank = place.at;
    unsigned number = place.leaf;
    for (unsigned parent = NodeOf(pools, number)->parent; parent != 0; parent = NodeOf(pools, number)->parent) {
        const OrderNode* const node = NodeOf(pools, parent);
        for (unsigned i = 0; node->entries[i] != number; ++i) {
            rank += NodeOf(pools, node->entries[i])->size;
        }
        number = parent;
    }
    return rank;
}

// Puts an element behind the last where no split is needed, which is nearly always so for what is read. False: nothing
// changed.
bool Order::Append(const OrderPools& pools, unsigned number)
{
    OrderNode* const leaf = NodeOf(pools, last);
    if (leaf->used == kRoom) {
        return false;
    }
    leaf->entries[leaf->used] = number;
    ++leaf->used;
    Adopt(pools, last, *leaf, number);
    ++leaf->size;
    for (unsigned node = leaf->parent; node != 0; node = NodeOf(pools, node)->parent) {
        ++NodeOf(pools, node)->size;
    }
    ++count;
    nearLeaf = 0;
    return true;
}

bool Order::Insert(const OrderPools& pools, unsigned rank, unsigned number)
{
    KZ_ASSERT(rank <= count);
    if (root != 0 && rank == count && Append(pools, number)) {
        return true;
    }
    if (root == 0) {
        if (!pools.nodes->Reserve(1)) {
            return false;
        }
        root = MakeNode(pools, 0, 0);
        last = root;
    }
    const bool isLast = rank == count;
    const Place place = isLast ? Place{last, NodeOf(pools, last)->used} : PlaceAt(pools, rank);
    // All nodes before the first change, so that no failure leaves half of one.
    if (!pools.nodes->Reserve(NodesToInsert(pools, place.leaf))) {
        return false;
    }
    PutAndSplit(pools, place, number, isLast);
    ++count;
    nearLeaf = 0;
    return true;
}

// Puts an entry into a leaf, and the halves of what has to be split for it into the nodes above. Requires the nodes
// reserved that this makes.
void Order::PutAndSplit(const OrderPools& pools, Place place, unsigned entry, bool isLast)
{
    unsigned node = place.leaf;
    unsigned at = place.at;
    while (NodeOf(pools, node)->used == kRoom) {
        const unsigned right = SplitAround(pools, {node, at}, entry, isLast);
        const unsigned parent = NodeOf(pools, node)->parent;
        at = PlaceInNode(*NodeOf(pools, parent), node) + 1;
        node = parent;
        entry = right;
    }
    PutEntry(pools, node, at, entry);
    // A split has counted its two halves anew; from here on up nothing else changed than one element more.
    for (; node != 0; node = NodeOf(pools, node)->parent) {
        ++NodeOf(pools, node)->size;
    }
}

// Splits a full node in two and puts the entry into one of them. Returns the right one, which its parent does not hold
// yet; a root gets a parent first.
unsigned Order::SplitAround(const OrderPools& pools, Place place, unsigned entry, bool isLast)
{
    const unsigned node = place.leaf;
    OrderNode* const full = NodeOf(pools, node);
    KZ_ASSERT(full->used == kRoom);
    const unsigned keep = isLast ? kRoom : (kRoom + 1) / 2;
    const unsigned right = Split(pools, node, keep);
    if (full->parent == 0) {
        root = MakeNode(pools, 0, full->level + 1u);
        NodeOf(pools, root)->size = full->size;
        PutEntry(pools, root, 0, node);
    }
    const bool isRight = isLast || place.at > keep;
    PutEntry(pools, isRight ? right : node, isRight ? place.at - keep : place.at, entry);
    CountSize(pools, full);
    CountSize(pools, NodeOf(pools, right));
    last = last == node ? right : last;
    return right;
}

void Order::Remove(const OrderPools& pools, Place place)
{
    KZ_ASSERT(count > 0);
    nearLeaf = 0;
    --count;
    for (unsigned number = place.leaf; number != 0; number = NodeOf(pools, number)->parent) {
        --NodeOf(pools, number)->size;
    }
    TakeEntry(NodeOf(pools, place.leaf), place.at);
    DropEmpty(pools, place.leaf);
    if (root == 0) {
        return;
    }
    // A root of one child says nothing, and would stay for as long as the order.
    for (const OrderNode* top = NodeOf(pools, root); top->level > 0 && top->used == 1; top = NodeOf(pools, root)) {
        const unsigned old = root;
        root = top->entries[0];
        NodeOf(pools, root)->parent = 0;
        pools.nodes->Give(old);
    }
    last = last == 0 ? LastLeaf(pools, root) : last;
}

// Frees a node that has no entry left, and then each above it that had only this one. Leaves `last` at 0 where the last
// leaf went, and `root` where all of them did.
void Order::DropEmpty(const OrderPools& pools, unsigned node)
{
    while (NodeOf(pools, node)->used == 0) {
        const unsigned parent = NodeOf(pools, node)->parent;
        pools.nodes->Give(node);
        last = last == node ? 0 : last;
        if (parent == 0) {
            root = 0;
            return;
        }
        TakeEntry(NodeOf(pools, parent), PlaceInNode(*NodeOf(pools, parent), node));
        node = parent;
    }
}

void Order::Clear(const OrderPools& pools)
{
    if (root != 0) {
        FreeNodes(pools, root);
    }
    *this = {};
}

void Order::Sort(const OrderPools& pools, CompareProc compare)
{
    // Runs of 1, 2, 4 ... elements, the longer ones from farther in front. The elements' `leaf` links them, because it
    // is free until all are in their new places; so there is no memory to ask for.
    KZ_ASSERT(pools.elements != nullptr);
    constexpr unsigned kRuns = 32;
    unsigned runs[kRuns] = {};
    for (unsigned i = 0; i < count; ++i) {
        unsigned run = At(pools, i);
        ElementOf(pools, run)->leaf = 0;
        unsigned size = 0;
        for (; runs[size] != 0; ++size) {
            run = Merge(pools, runs[size], run, compare);
            runs[size] = 0;
        }
        runs[size] = run;
    }
    // From the shortest, which are the farthest behind; each longer one goes in front, so that equal elements stay.
    unsigned next = 0;
    for (const unsigned run : runs) {
        next = Merge(pools, run, next, compare);
    }
    // The tree keeps its shape; only its leaves are filled anew.
    for (unsigned i = 0; i < count; ++i) {
        const Place place = PlaceAt(pools, i);
        Element* const element = ElementOf(pools, next);
        NodeOf(pools, place.leaf)->entries[place.at] = next;
        next = element->leaf;
        element->leaf = place.leaf;
    }
}

const char* Order::Fault(const OrderPools& pools) const
{
    if (root == 0) {
        return count == 0 && last == 0 && nearLeaf == 0 ? nullptr : "an order without a root counts elements";
    }
    // What only the whole can tell; the nodes are compared with each other below.
    const OrderNode* const top = NodeOf(pools, root);
    if (top->parent != 0 || (top->level > 0 && top->used < 2)) {
        return "the root has a parent, or a single child";
    }
    if (top->size != count || last != LastLeaf(pools, root)) {
        return "an order doesn't know its count or its last leaf";
    }
    return FaultOf(pools, root);
}

unsigned Order::CountNodes(const OrderPools& pools) const
{
    return root == 0 ? 0 : NodesFrom(pools, root);
}

}  // namespace qkini
