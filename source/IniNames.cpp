// A list is two structures over one set of elements: an order, which knows the rank of each one, and an index, which
// knows the element of each name.
//
// The index is a hash table with open addressing, made once the list is long enough to be worth it. A slot stands for
// one name. It holds the number of the name's only element, or else the number of a group: an order of the elements of
// that name, in which they stand as in the list.
//
// The index holds numbers of elements, and neither ranks nor places. So an insertion or a removal changes one slot, and
// leaves the slots of all elements that it moves as they are; and a sort changes none, because it keeps equal names in
// their order.
//
// A list works without its index. When there is no memory to keep the index up, it is dropped, and the next look-up
// tries to make it anew. Without it a binary search finds a name in a list that is in order, and a look at each element
// finds it in any other. All three ways find the first of several elements of a name.

#include "IniNames.h"

#include <stdlib.h>

#include "IniMemory.h"
#include "IniSearch.h"
#include "KzAssert.h"

namespace qkini {

namespace {

// Below this many names a look at each is as fast.
constexpr unsigned kIndexFrom = 8;

// How many slots an index gets that is half full. It is an eighth full then, because each growth enters all names
// again; a small one only a quarter, because that costs little and most lists stay small.
constexpr unsigned Grown(unsigned slots)
{
    return slots < 256 ? slots * 2 : slots * 4;
}

OrderPools PoolsOf(const NameList& names)
{
    return {&names.store->common->nodes, &names.store->elements};
}

// The members of a group know their leaf in the list, and none in the group.
OrderPools GroupPoolsOf(const NameList& names)
{
    return {&names.store->common->nodes, nullptr};
}

const Naming& NamingOf(const NameList& names)
{
    return names.store->common->naming;
}

Element* ElementOf(const NameList& names, unsigned number)
{
    return static_cast<Element*>(names.store->elements.At(number));
}

Order* GroupOf(const NameList& names, unsigned holds)
{
    return static_cast<Order*>(names.store->common->groups.At(holds & ~NameList::kGroup));
}

NameKey KeyOf(const NameList& names, const Element* element)
{
    return {Text(element->name), NamingOf(names).seed};
}

unsigned RankOf(const NameList& names, const Element* element)
{
    return names.order.RankOf(PoolsOf(names), names.order.PlaceOf(PoolsOf(names), element));
}

// A negative number, 0 or a positive one. The name has no NUL, so strncmp reads `stored` up to its own at most.
int CompareName(Text name, const char* stored, bool caseSensitive)
{
    if (!caseSensitive) {
        return CompareBlind(name, Text(stored));
    }
    const int order = strncmp(name.begin, stored, name.size);
    return order != 0 ? order : stored[name.size] == 0 ? 0 : -1;
}

int CompareElementsBlind(const Element* a, const Element* b)
{
    return CompareBlind(Text(a->name), Text(b->name));
}

int CompareElementsExact(const Element* a, const Element* b)
{
    return strcmp(a->name, b->name);
}

Element* FindInOrder(const NameList& names, Text name)
{
    KZ_ASSERT(names.isInOrder);
    const bool caseSensitive = NamingOf(names).caseSensitive;
    const unsigned rank = LowerBound(names.order.count, [&](unsigned i) {
        return CompareName(name, names.At(static_cast<int>(i))->name, caseSensitive) > 0;
    });
    Element* const element = rank < names.order.count ? names.At(static_cast<int>(rank)) : nullptr;
    return element != nullptr && AreSameName(element->name, name, caseSensitive) ? element : nullptr;
}

Element* FindOneByOne(const NameList& names, Text name)
{
    for (Element* const element : names) {
        if (AreSameName(element->name, name, NamingOf(names).caseSensitive)) {
            return element;
        }
    }
    return nullptr;
}

// The number of the first element of a slot's name.
unsigned FirstOf(const NameList& names, unsigned holds)
{
    return (holds & NameList::kGroup) == 0 ? holds : GroupOf(names, holds)->At(GroupPoolsOf(names), 0);
}

// The slot of the name, or the free one where it belongs. Ends because at most half of the slots are in use.
NameList::Slot* SlotOf(const NameList& names, const NameKey& key)
{
    KZ_ASSERT(names.slots != nullptr && names.used <= names.mask);
    const bool caseSensitive = NamingOf(names).caseSensitive;
    for (unsigned at = key.hash & names.mask;; at = (at + 1) & names.mask) {
        NameList::Slot* const slot = &names.slots[at];
        CountSteps(1);
        if (slot->holds == 0 ||
            (slot->hash == key.hash &&
             AreSameName(ElementOf(names, FirstOf(names, slot->holds))->name, key.name, caseSensitive))) {
            return slot;
        }
    }
}

void FreeGroup(const NameList& names, unsigned holds)
{
    GroupOf(names, holds)->Clear(GroupPoolsOf(names));
    names.store->common->groups.Give(holds & ~NameList::kGroup);
}

void DropIndex(NameList* names)
{
    for (unsigned i = 0; names->slots != nullptr && i <= names->mask; ++i) {
        if ((names->slots[i].holds & NameList::kGroup) != 0) {
            FreeGroup(*names, names->slots[i].holds);
        }
    }
    free(names->slots);
    names->slots = nullptr;
    names->mask = 0;
    names->used = 0;
}

// Gives the index `size` slots, a power of two; false when out of memory, with the index as it was.
bool ResizeIndex(NameList* names, unsigned size)
{
    KZ_ASSERT((size & (size - 1)) == 0);
    auto* const slots = size == 0 ? nullptr : static_cast<NameList::Slot*>(Allocate(size * sizeof(NameList::Slot)));
    if (slots == nullptr) {
        return false;
    }
    memset(slots, 0, size * sizeof(NameList::Slot));
    const unsigned mask = size - 1;
    for (unsigned i = 0; names->slots != nullptr && i <= names->mask; ++i) {
        const NameList::Slot& old = names->slots[i];
        if (old.holds == 0) {
            continue;
        }
        // No names are compared, because each slot has a name of its own.
        unsigned at = old.hash & mask;
        while (slots[at].holds != 0) {
            at = (at + 1) & mask;
        }
        slots[at] = old;
    }
    free(names->slots);
    names->slots = slots;
    names->mask = mask;
    return true;
}

// The rank in a group of its first member that has this rank in the list, or a greater one.
unsigned RankInGroup(const NameList& names, const Order& group, unsigned rankInList)
{
    const auto isInFront = [&](unsigned i) {
        return RankOf(names, ElementOf(names, group.At(GroupPoolsOf(names), i))) < rankInList;
    };
    // The last member is asked first, because what is read and what is put in order comes behind it.
    return isInFront(group.count - 1) ? group.count : LowerBound(group.count, isInFront);
}

// Enters another element of a slot's name. False when out of memory: the index must go.
bool AddToGroup(const NameList& names, NameList::Slot* slot, unsigned number)
{
    if ((slot->holds & NameList::kGroup) == 0) {
        Pool& groups = names.store->common->groups;
        if (!groups.Reserve(1)) {
            return false;
        }
        // The slot holds the group before it is filled, so that whoever drops the index frees the group too.
        const unsigned first = slot->holds;
        slot->holds = groups.Take() | NameList::kGroup;
        Order* const made = GroupOf(names, slot->holds);
        *made = {};
        if (!made->Insert(GroupPoolsOf(names), 0, first)) {
            return false;
        }
    }
    Order* const group = GroupOf(names, slot->holds);
    const unsigned rank = RankInGroup(names, *group, RankOf(names, ElementOf(names, number)));
    return group->Insert(GroupPoolsOf(names), rank, number);
}

// Enters an element of the list. Where there is no memory for that, the index is dropped.
void AddToIndex(NameList* names, unsigned number, const NameKey& key)
{
    if (names->used * 2 > names->mask && !ResizeIndex(names, Grown(names->mask + 1))) {
        DropIndex(names);
        return;
    }
    NameList::Slot* const slot = SlotOf(*names, key);
    if (slot->holds == 0) {
        *slot = {key.hash, number};
        ++names->used;
    } else if (!AddToGroup(*names, slot, number)) {
        DropIndex(names);
    }
}

void BuildIndex(NameList* names)
{
    KZ_ASSERT(names->slots == nullptr);
    unsigned size = 4 * kIndexFrom;
    while (size != 0 && size / 4 < names->order.count) {
        size *= 2;  // to nothing where no number could tell how many
    }
    if (!ResizeIndex(names, size)) {
        return;
    }
    for (unsigned i = 0; i < names->order.count && names->slots != nullptr; ++i) {
        const unsigned number = names->order.At(PoolsOf(*names), i);
        AddToIndex(names, number, KeyOf(*names, ElementOf(*names, number)));
    }
}

// Frees a slot, and closes the gap in its run of slots, because a look-up ends at a free slot: each slot behind the gap
// that a look-up would reach through it moves there, and leaves a gap of its own.
void FreeSlot(NameList* names, NameList::Slot* slot)
{
    KZ_ASSERT(slot->holds != 0 && names->used > 0);
    auto gap = static_cast<unsigned>(slot - names->slots);
    for (unsigned at = (gap + 1) & names->mask; names->slots[at].holds != 0; at = (at + 1) & names->mask) {
        const unsigned home = names->slots[at].hash & names->mask;
        CountSteps(1);
        if (((at - home) & names->mask) >= ((at - gap) & names->mask)) {
            names->slots[gap] = names->slots[at];
            gap = at;
        }
    }
    names->slots[gap].holds = 0;
    --names->used;
}

// Takes an element of the list out of the index. Requires that the element has the name that it was entered by, and its
// rank in the list, by which a group finds it.
void RemoveFromIndex(NameList* names, const Element* element)
{
    NameList::Slot* const slot = SlotOf(*names, KeyOf(*names, element));
    KZ_ASSERT(slot->holds != 0);
    if ((slot->holds & NameList::kGroup) == 0) {
        FreeSlot(names, slot);
        return;
    }
    const OrderPools pools = GroupPoolsOf(*names);
    Order* const group = GroupOf(*names, slot->holds);
    group->Remove(pools, group->PlaceAt(pools, RankInGroup(*names, *group, RankOf(*names, element))));
    if (group->count == 1) {
        const unsigned rest = group->At(pools, 0);
        FreeGroup(*names, slot->holds);
        slot->holds = rest;
    }
}

// How many elements of the list a slot stands for, or -1 when the slot is wrong: in a place where no look-up finds it,
// or with a group that is none, is out of order or mixes names.
int CountOfSlot(const NameList& names, const NameList::Slot& slot)
{
    const bool isGroup = (slot.holds & NameList::kGroup) != 0;
    const Element* const first = ElementOf(names, FirstOf(names, slot.holds));
    const NameKey key = KeyOf(names, first);
    if (key.hash != slot.hash || &slot != SlotOf(names, key)) {
        return -1;
    }
    if (!isGroup) {
        return 1;
    }
    const Order& group = *GroupOf(names, slot.holds);
    if (group.count < 2 || group.Fault(GroupPoolsOf(names)) != nullptr) {
        return -1;
    }
    for (unsigned i = 1; i < group.count; ++i) {
        const Element* const last = ElementOf(names, group.At(GroupPoolsOf(names), i - 1));
        const Element* const next = ElementOf(names, group.At(GroupPoolsOf(names), i));
        if (!AreSameName(first->name, Text(next->name), NamingOf(names).caseSensitive) ||
            RankOf(names, last) >= RankOf(names, next)) {
            return -1;
        }
    }
    return static_cast<int>(group.count);
}

}  // namespace

void NameList::Iterator::Seek()
{
    if (m_rank < m_list->order.count) {
        const OrderPools pools = PoolsOf(*m_list);
        const Order::Place place = m_list->order.PlaceAt(pools, m_rank);
        m_leaf = static_cast<OrderNode*>(pools.nodes->At(place.leaf));
        m_at = place.at;
    }
}

void NameList::Make(NameStore* from)
{
    *this = {};
    store = from;
    isInOrder = true;
}

void NameList::Clear()
{
    DropIndex(this);
    for (unsigned i = 0; i < order.count; ++i) {
        store->elements.Give(order.At(PoolsOf(*this), i));
    }
    order.Clear(PoolsOf(*this));
    isInOrder = true;
}

void NameList::FreeSlots()
{
    free(slots);
    slots = nullptr;
}

Element* NameList::At(int rank) const
{
    return ElementOf(*this, order.At(PoolsOf(*this), static_cast<unsigned>(rank)));
}

Element* NameList::Behind(const Element* element) const
{
    const unsigned rank = RankOf(*this, element) + 1;
    return rank < order.count ? At(static_cast<int>(rank)) : nullptr;
}

Element* NameList::Find(const NameKey& key)
{
    // A list that was just read has no index yet, and one that lost it for want of memory may get one here.
    if (slots == nullptr && order.count > kIndexFrom) {
        BuildIndex(this);
    }
    if (slots != nullptr) {
        const Slot* const slot = SlotOf(*this, key);
        return slot->holds == 0 ? nullptr : ElementOf(*this, FirstOf(*this, slot->holds));
    }
    return isInOrder && order.count > kIndexFrom ? FindInOrder(*this, key.name) : FindOneByOne(*this, key.name);
}

Element* NameList::Add(char* name, const NameKey& key, Where where)
{
    Pool& elements = store->elements;
    if (order.count == Pool::kMost || !elements.Reserve(1)) {
        return nullptr;
    }
    unsigned rank = order.count;
    if (where == Where::kInOrder) {
        rank = LowerBound(order.count, [&](unsigned i) {
            return CompareName(key.name, At(static_cast<int>(i))->name, NamingOf(*this).caseSensitive) >= 0;
        });
    }
    // From here on the element is the pool's and not yet the list's: where the order has no memory, it goes back.
    const unsigned number = elements.Take();
    Element* const element = ElementOf(*this, number);
    memset(static_cast<void*>(element), 0, elements.elementSize());
    element->name = name;
    if (!order.Insert(PoolsOf(*this), rank, number)) {
        elements.Give(number);
        return nullptr;
    }
    // An element put behind the last may be out of order; no names are compared to find out.
    isInOrder = isInOrder && (where == Where::kInOrder || rank == 0);
    if (slots != nullptr) {
        AddToIndex(this, number, key);
    } else if (order.count > kIndexFrom) {
        BuildIndex(this);
    }
    return element;
}

void NameList::Remove(Element* element)
{
    // First, because the index finds the element among its equals by the rank that it has in the order.
    if (slots != nullptr) {
        RemoveFromIndex(this, element);
    }
    const Order::Place place = order.PlaceOf(PoolsOf(*this), element);
    const unsigned number = order.NumberAt(PoolsOf(*this), place);
    order.Remove(PoolsOf(*this), place);
    store->elements.Give(number);
}

void NameList::Rename(Element* element, char* name, const NameKey& key)
{
    if (slots != nullptr) {
        RemoveFromIndex(this, element);
    }
    element->name = name;
    isInOrder = order.count < 2;
    if (slots != nullptr) {
        AddToIndex(this, order.NumberAt(PoolsOf(*this), order.PlaceOf(PoolsOf(*this), element)), key);
    }
}

void NameList::Sort()
{
    if (!isInOrder) {
        order.Sort(PoolsOf(*this), NamingOf(*this).caseSensitive ? &CompareElementsExact : &CompareElementsBlind);
        isInOrder = true;
    }
}

void NameList::Forget()
{
    DropIndex(this);
    isInOrder = order.count < 2;
}

void NameList::CountUse(unsigned* nodes, unsigned* groups) const
{
    *nodes += order.CountNodes(PoolsOf(*this));
    for (unsigned i = 0; slots != nullptr && i <= mask; ++i) {
        if ((slots[i].holds & kGroup) != 0) {
            *nodes += GroupOf(*this, slots[i].holds)->CountNodes(GroupPoolsOf(*this));
            ++*groups;
        }
    }
}

const char* NameList::Fault() const
{
    const char* const fault = order.Fault(PoolsOf(*this));
    if (fault != nullptr) {
        return fault;
    }
    const bool caseSensitive = NamingOf(*this).caseSensitive;
    for (int i = 1; isInOrder && i < Count(); ++i) {
        if (CompareName(Text(At(i)->name), At(i - 1)->name, caseSensitive) < 0) {
            return "a list is not in order";
        }
    }
    // The index against the list: each slot stands for elements of its own, and all of them for as many as the list
    // has.
    unsigned slotsUsed = 0;
    int counted = 0;
    for (unsigned i = 0; slots != nullptr && i <= mask; ++i) {
        if (slots[i].holds != 0) {
            const int count = CountOfSlot(*this, slots[i]);
            if (count < 0) {
                return "a slot of an index is wrong";
            }
            counted += count;
            ++slotsUsed;
        }
    }
    return slots != nullptr && (slotsUsed != used || counted != Count()) ? "an index misses elements" : nullptr;
}

}  // namespace qkini
