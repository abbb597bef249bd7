#include "IniNames.h"

#include <stdlib.h>

namespace qkini {

namespace {

// Below this many names a look at each is as fast.
constexpr int kIndexFrom = 8;

// From half full to an eighth.
constexpr unsigned kGrowth = 4;

const char* NameOf(const void* element)
{
    return *static_cast<char* const*>(element);
}

int CompareElementsBlind(const void* a, const void* b)
{
    return CompareBlind(Text(NameOf(a)), Text(NameOf(b)));
}

int CompareElementsExact(const void* a, const void* b)
{
    return strcmp(NameOf(a), NameOf(b));
}

qkini_CompareProc CompareOf(const Naming& naming)
{
    return naming.caseSensitive ? &CompareElementsExact : &CompareElementsBlind;
}

int CompareKeyBlind(const void* key, const void* element)
{
    return CompareBlind(*static_cast<const Text*>(key), Text(NameOf(element)));
}

int CompareKeyExact(const void* key, const void* element)
{
    const Text& name = *static_cast<const Text*>(key);
    const int order = strncmp(name.begin, NameOf(element), name.size);
    return order != 0 ? order : NameOf(element)[name.size] == 0 ? 0 : -1;
}

int FindOneByOne(const NameList& names, int from, Text name, const Naming& naming)
{
    const int count = names.Count();
    for (int i = from; i < count; ++i) {
        if (AreSameName(NameOf(names.At(i)), name, naming.caseSensitive)) {
            return i;
        }
    }
    return -1;
}

// The slot of the name, or the free one where it belongs.
NameList::Slot* SlotOf(const NameList& names, const NameKey& key, const Naming& naming)
{
    for (unsigned at = key.hash & names.mask;; at = (at + 1) & names.mask) {
        NameList::Slot* const slot = &names.slots[at];
        if (slot->place == 0 || (slot->hash == key.hash &&
                                 AreSameName(NameOf(names.At(slot->place - 1)), key.name, naming.caseSensitive))) {
            return slot;
        }
    }
}

void DropIndex(NameList* names)
{
    free(names->slots);
    names->slots = nullptr;
    names->mask = 0;
    names->used = 0;
    names->hasDuplicates = false;
}

// Gives the index `size` slots, a power of two; false when out of memory, with the index as it was.
bool ResizeIndex(NameList* names, unsigned size)
{
    auto* const slots = static_cast<NameList::Slot*>(Allocate(size * sizeof(NameList::Slot)));
    if (slots == nullptr) {
        return false;
    }
    memset(slots, 0, size * sizeof(NameList::Slot));
    const unsigned mask = size - 1;
    for (unsigned i = 0; names->slots != nullptr && i <= names->mask; ++i) {
        const NameList::Slot& old = names->slots[i];
        if (old.place == 0) {
            continue;
        }
        unsigned at = old.hash & mask;
        while (slots[at].place != 0) {
            at = (at + 1) & mask;
        }
        slots[at] = old;
    }
    free(names->slots);
    names->slots = slots;
    names->mask = mask;
    return true;
}

// Enters the element at `index`. Without memory for it the index goes.
void AddToIndex(NameList* names, int index, const NameKey& key, const Naming& naming)
{
    if (names->used * 2 > names->mask && !ResizeIndex(names, (names->mask + 1) * kGrowth)) {
        DropIndex(names);
        return;
    }
    NameList::Slot* const slot = SlotOf(*names, key, naming);
    if (slot->place == 0) {
        *slot = {key.hash, index + 1};
        ++names->used;
    } else {
        names->hasDuplicates = true;
        if (slot->place > index + 1) {
            slot->place = index + 1;
        }
    }
}

void BuildIndex(NameList* names, const Naming& naming)
{
    unsigned size = 4 * kIndexFrom;
    while (size / 4 < static_cast<unsigned>(names->Count())) {
        size *= 2;
    }
    if (!ResizeIndex(names, size)) {
        return;
    }
    for (int i = 0; i < names->Count() && names->slots != nullptr; ++i) {
        AddToIndex(names, i, {Text(NameOf(names->At(i))), naming.seed}, naming);
    }
}

// Moves the places from `place` on by `by`.
void ShiftPlaces(NameList* names, int place, int by)
{
    for (unsigned i = 0; i <= names->mask; ++i) {
        if (names->slots[i].place >= place) {
            names->slots[i].place += by;
        }
    }
}

// Frees a slot, and closes the gap in its run of slots.
void FreeSlot(NameList* names, NameList::Slot* slot)
{
    auto gap = static_cast<unsigned>(slot - names->slots);
    for (unsigned at = (gap + 1) & names->mask; names->slots[at].place != 0; at = (at + 1) & names->mask) {
        const unsigned home = names->slots[at].hash & names->mask;
        if (((at - home) & names->mask) >= ((at - gap) & names->mask)) {
            names->slots[gap] = names->slots[at];
            gap = at;
        }
    }
    names->slots[gap].place = 0;
    --names->used;
}

// Takes the element at `index` out of the index, which then tells of the next one of its name.
void RemoveFromIndex(NameList* names, int index, const Naming& naming)
{
    const NameKey key(Text(NameOf(names->At(index))), naming.seed);
    NameList::Slot* const slot = SlotOf(*names, key, naming);
    if (slot->place == index + 1) {
        const int next = names->hasDuplicates ? FindOneByOne(*names, index + 1, key.name, naming) : -1;
        if (next < 0) {
            FreeSlot(names, slot);
        } else {
            slot->place = next + 1;
        }
    }
    ShiftPlaces(names, index + 1, -1);
}

// The index learns of an element that was put at `index`.
void EnterNew(NameList* names, int index, const NameKey& key, const Naming& naming)
{
    names->elements = static_cast<char*>(qkini_ListGetPtrToItem(names->list, 1));
    if (names->slots != nullptr) {
        if (index + 1 < names->Count()) {
            ShiftPlaces(names, index + 1, 1);
        }
        AddToIndex(names, index, key, naming);
    } else if (names->Count() > kIndexFrom) {
        BuildIndex(names, naming);
    }
}

}  // namespace

bool NameList::Make(size_t size)
{
    *this = {};
    list = qkini_ListCreate(static_cast<int>(size));
    elementSize = size;
    isInOrder = true;
    return list != nullptr;
}

void NameList::Dispose()
{
    DropIndex(this);
    qkini_ListDispose(list);
    list = nullptr;
}

int NameList::Find(const NameKey& key, const Naming& naming)
{
    if (slots == nullptr && Count() > kIndexFrom) {
        BuildIndex(this, naming);
    }
    if (slots != nullptr) {
        return SlotOf(*this, key, naming)->place - 1;
    }
    if (isInOrder && Count() > kIndexFrom) {
        return qkini_ListBinSearch(list, &key.name, naming.caseSensitive ? &CompareKeyExact : &CompareKeyBlind) - 1;
    }
    return FindOneByOne(*this, 0, key.name, naming);
}

int NameList::Append(const void* element, const NameKey& key, const Naming& naming)
{
    if (qkini_ListInsertItem(list, element, 0) != 1) {
        return -1;
    }
    const int index = Count() - 1;
    isInOrder = isInOrder && index == 0;
    EnterNew(this, index, key, naming);
    return index;
}

int NameList::InsertInOrder(const void* element, const NameKey& key, const Naming& naming)
{
    const int position = qkini_ListInsertInOrder(list, element, CompareOf(naming));
    if (position < 1) {
        return -1;
    }
    EnterNew(this, position - 1, key, naming);
    return position - 1;
}

void NameList::RemoveAt(int index, const Naming& naming)
{
    if (slots != nullptr) {
        RemoveFromIndex(this, index, naming);
    }
    qkini_ListRemoveItem(list, index + 1);
}

void NameList::Sort(const Naming& naming)
{
    if (!isInOrder) {
        DropIndex(this);
        qkini_ListQuickSort(list, CompareOf(naming));
        isInOrder = true;
    }
}

void NameList::Forget()
{
    DropIndex(this);
    isInOrder = Count() < 2;
}

}  // namespace qkini
