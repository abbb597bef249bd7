// An object and what it owns. Sections and items are elements of lists (IniNames.h): they stay where they are until
// they are removed, so that the current section is known by its address. The texts that are read stand in an arena,
// which is freed with the whole content; a text that an edit makes is its element's own. Comments stand in a pool,
// linked into rings: what follows a removed item or section takes over its comments in one step and without memory,
// however many they are, so removals don't fail.
//
// The current section is the last one found, whose name is mostly asked for again. It is forgotten when it is removed,
// at each Clear, by a sort, and by a put that failed for want of memory. A name that it has is not looked up, so where
// names stand twice the current section answers to its name even if another one stands in front of it.
//
// None of these structures can be seen from outside: hosts know an object by its address only, and the lists of
// IniList.h are theirs.

#include "IniModel.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <new>

#include "IniMemory.h"
#include "KzAssert.h"

namespace qkini {

namespace {

constexpr size_t kFirstScratchSize = 256;

NameList::Where WhereIn(Where where, int sorted)
{
    return where == Where::kAsSorted && sorted != 0 ? NameList::Where::kInOrder : NameList::Where::kLast;
}

// Puts all comments of the one ring in front of those of the other, and leaves the one empty. Rings are known by their
// last comment, whose next one is the first, so the two are joined by exchanging what follows the last ones.
void MoveInFront(IniFile* ini, unsigned* from, unsigned* to)
{
    KZ_ASSERT(from != to);
    if (*from != 0 && *to != 0) {
        IniComment* const end = CommentAt(ini, *from);
        IniComment* const last = CommentAt(ini, *to);
        const unsigned first = end->next;
        end->next = last->next;
        last->next = first;
    } else if (*from != 0) {
        *to = *from;
    }
    *from = 0;
}

void FreeTexts(const IniItem* item)
{
    if (item->ownsName) {
        free(item->name);
    }
    if (item->ownsValue) {
        free(item->value);
    }
}

void FreeTexts(const IniFile* ini, const IniSection* section)
{
    free(section->name);
    if (ini->ownsTexts) {
        for (const Element* const item : section->items) {
            FreeTexts(static_cast<const IniItem*>(item));
        }
    }
}

// The comments behind the section.
unsigned* CommentsBehind(IniFile* ini, const IniSection* section)
{
    Element* const next = ini->sections.Behind(section);
    return next == nullptr ? &ini->trailingComments : &next->comments;
}

// What a walk over an object has found in it, to be compared with what its pools have given out.
struct Use {
    unsigned sections = 0;
    unsigned items = 0;
    unsigned nodes = 0;   // of all lists and groups
    unsigned groups = 0;  // of the elements of one name
    unsigned comments = 0;
    bool hasCurrent = false;  // the current section is one of the object's
};

// The pools and the arena by themselves, first, because all else is read through them.
const char* FaultOfStores(const IniFile* ini)
{
    const Pool* const pools[] = {&ini->sectionStore.elements, &ini->itemStore.elements, &ini->names.nodes,
                                 &ini->names.groups, &ini->comments};
    for (const Pool* const pool : pools) {
        const char* const fault = pool->Fault();
        if (fault != nullptr) {
            return fault;
        }
    }
    return ini->arena.Fault();
}

const char* FaultOfList(const NameList& list, Use* use)
{
    const char* const fault = list.Fault();
    if (fault == nullptr) {
        list.CountUse(&use->nodes, &use->groups);
    }
    return fault;
}

// Walks over a ring of comments. A number of no comment ends the walk, and so does a ring that is longer than all
// comments, because it is none.
const char* CountComments(const IniFile* ini, unsigned last, Use* use)
{
    for (unsigned number = last; number != 0;) {
        if (!ini->comments.IsMade(number) || use->comments > ini->comments.live()) {
            return "comments are no ring, or are shared";
        }
        number = CommentAt(ini, number)->next;
        if (!ini->comments.IsMade(number)) {
            return "a comment leads to none";
        }
        const IniComment* const comment = CommentAt(ini, number);
        if (comment->text == nullptr || comment->count < 1) {
            return "a comment has no text or no lines";
        }
        ++use->comments;
        number = number == last ? 0 : number;
    }
    return nullptr;
}

// What is wrong with a section or its items; adds them to the use.
const char* FaultOfSection(const IniFile* ini, const IniSection* section, Use* use)
{
    const char* fault = FaultOfList(section->items, use);
    ++use->sections;
    use->hasCurrent = use->hasCurrent || ini->currentSection == section;
    if (fault == nullptr) {
        fault = CountComments(ini, section->comments, use);
    }
    for (int i = 0; fault == nullptr && i < section->items.Count(); ++i) {
        const IniItem* const item = ItemAt(section, i);
        ++use->items;
        if (item->value == nullptr || (!ini->ownsTexts && (item->ownsName || item->ownsValue))) {
            return "an item has no value, or a text that nobody would free";
        }
        fault = CountComments(ini, item->comments, use);
    }
    return fault;
}

// Comments may be more than are in use: those of an item that a later one of its name has replaced stay in the pool
// until the object is cleared.
const char* FaultOfUse(const IniFile* ini, const Use& use)
{
    if (ini->currentSection != nullptr && !use.hasCurrent) {
        return "the current section is none of the object's";
    }
    const bool isCounted = ini->sectionStore.elements.live() == use.sections &&
                           ini->itemStore.elements.live() == use.items && ini->names.nodes.live() == use.nodes &&
                           ini->names.groups.live() == use.groups && ini->comments.live() >= use.comments;
    return isCounted ? nullptr : "an element is lost";
}

}  // namespace

IniFile* MakeFile(bool sorted)
{
    void* const memory = Allocate(sizeof(IniFile));
    if (memory == nullptr) {
        return nullptr;
    }
    auto* const ini = new (memory) IniFile;
    ini->sorted = sorted ? 1 : 0;
    // Without entropy the address has to do, which a stranger can't choose either.
    Naming& naming = ini->names.naming;
    if (getentropy(&naming.seed, sizeof naming.seed) != 0) {
        naming.seed = reinterpret_cast<size_t>(ini);
    }
    ini->sections.Make(&ini->sectionStore);
    ini->scratch = static_cast<char*>(Allocate(kFirstScratchSize));
    ini->scratchSize = kFirstScratchSize;
    if (ini->scratch == nullptr) {
        DisposeFile(ini);
        return nullptr;
    }
    return ini;
}

void DisposeFile(IniFile* ini)
{
    Clear(ini);
    free(ini->scratch);
    free(ini);
}

void Clear(IniFile* ini)
{
    // Only what no pool or arena holds is freed one by one, because these are cleared as a whole below.
    for (Element* const element : ini->sections) {
        auto* const section = static_cast<IniSection*>(element);
        FreeTexts(ini, section);
        section->items.FreeSlots();
    }
    ini->sections.FreeSlots();
    ini->sections.Make(&ini->sectionStore);
    ini->sectionStore.elements.Clear();
    ini->itemStore.elements.Clear();
    ini->names.nodes.Clear();
    ini->names.groups.Clear();
    ini->comments.Clear();
    ini->arena.Clear();
    ini->trailingComments = 0;
    ini->ownsTexts = false;
    ini->currentSection = nullptr;
}

IniSection* FindSection(IniFile* ini, Text name)
{
    // Byte for byte first, which needs no hash; then by hash and name, in another case; then through the list.
    const Naming& naming = ini->names.naming;
    IniSection* const current = ini->currentSection;
    if (current != nullptr && AreSameName(current->name, name, true)) {
        return current;
    }
    const NameKey key(name, naming.seed);
    if (current != nullptr && key.hash == ini->currentHash && AreSameName(current->name, name, naming.caseSensitive)) {
        return current;
    }
    auto* const found = static_cast<IniSection*>(ini->sections.Find(key));
    if (found != nullptr) {
        ini->currentSection = found;
        ini->currentHash = key.hash;
    }
    return found;
}

IniItem* FindItem(IniFile* ini, IniSection* section, Text name)
{
    auto* const item = static_cast<IniItem*>(section->items.Find({name, ini->names.naming.seed}));
    if (item != nullptr) {
        ini->lastAccessLine = item->line;
    }
    return item;
}

IniSection* AddSection(IniFile* ini, Text name, int line, Where where)
{
    char* const copy = Duplicate(name);
    if (copy == nullptr) {
        return nullptr;
    }
    // The list takes the copy only when it takes the section.
    const NameKey key(name, ini->names.naming.seed);
    auto* const section = static_cast<IniSection*>(ini->sections.Add(copy, key, WhereIn(where, ini->sorted)));
    if (section == nullptr) {
        free(copy);
        return nullptr;
    }
    section->items.Make(&ini->itemStore);
    section->sorted = ini->sorted;
    section->line = line;
    ini->currentSection = section;
    ini->currentHash = key.hash;
    return section;
}

IniItem* AddItem(IniFile* ini, IniSection* section, const NameKey& key, Where where, Texts texts)
{
    // A copy in the arena is lost when the item can't be made, and goes with the whole content.
    const bool ownsName = texts == Texts::kOwned;
    char* const name = ownsName ? Duplicate(key.name) : ini->arena.Copy(key.name);
    auto* const item = name == nullptr
                           ? nullptr
                           : static_cast<IniItem*>(section->items.Add(name, key, WhereIn(where, section->sorted)));
    if (item == nullptr) {
        free(ownsName ? name : nullptr);
        return nullptr;
    }
    item->line = -1;
    item->ownsName = ownsName;
    ini->ownsTexts = ini->ownsTexts || ownsName;
    return item;
}

void SetValue(IniFile* ini, IniItem* item, char* value, Texts texts, char quoteChar)
{
    KZ_ASSERT(value != nullptr && (quoteChar == 0 || quoteChar == '"' || quoteChar == '\''));
    if (item->ownsValue) {
        free(item->value);
    }
    item->value = value;
    item->ownsValue = texts == Texts::kOwned;
    ini->ownsTexts = ini->ownsTexts || item->ownsValue;
    item->quoteChar = quoteChar;
}

void DropSection(IniFile* ini, IniSection* section)
{
    // A copy, because the pool writes into the element once it is given back.
    IniSection old = *section;
    ini->sections.Remove(section);
    FreeTexts(ini, &old);
    old.items.Clear();
    if (ini->currentSection == section) {
        ini->currentSection = nullptr;
    }
}

void DropItem(IniSection* section, IniItem* item)
{
    const IniItem old = *item;
    section->items.Remove(item);
    FreeTexts(&old);
}

bool AppendComment(IniFile* ini, unsigned* comments, Text text)
{
    // Equal lines in a row are one comment that counts them, so that a device that gives blank lines without an end
    // takes no memory for them.
    IniComment* const last = *comments == 0 ? nullptr : CommentAt(ini, *comments);
    if (last != nullptr && last->count < INT_MAX && AreSameName(last->text, text, true)) {
        ++last->count;
        return true;
    }
    char* const copy = ini->arena.Copy(text);
    if (copy == nullptr || !ini->comments.Reserve(1)) {
        return false;
    }
    unsigned added = ini->comments.Take();
    *CommentAt(ini, added) = {copy, added, 1};
    MoveInFront(ini, comments, &added);
    *comments = added;
    return true;
}

void RemoveItem(IniFile* ini, IniSection* section, IniItem* item)
{
    if (item->comments != 0) {
        Element* const next = section->items.Behind(item);
        MoveInFront(ini, &item->comments, next != nullptr ? &next->comments : CommentsBehind(ini, section));
    }
    DropItem(section, item);
}

void RemoveSection(IniFile* ini, IniSection* section)
{
    // In the order of a file: the section's own, then those of its items, in front of what stands behind.
    unsigned all = 0;
    for (Element* const item : section->items) {
        MoveInFront(ini, &all, &item->comments);
        all = item->comments;
    }
    MoveInFront(ini, &section->comments, &all);
    MoveInFront(ini, &all, CommentsBehind(ini, section));
    DropSection(ini, section);
}

bool RenameSection(IniFile* ini, IniSection* section, Text name)
{
    char* const copy = Duplicate(name);
    if (copy == nullptr) {
        return false;
    }
    // The old name lives until the index has found it.
    char* const old = section->name;
    const NameKey key(name, ini->names.naming.seed);
    ini->sections.Rename(section, copy, key);
    free(old);
    if (ini->currentSection == section) {
        ini->currentHash = key.hash;
    }
    return true;
}

void SortSections(IniFile* ini)
{
    // The current section is forgotten, because of equal names another one may stand first from here on.
    ini->sections.Sort();
    ini->sorted = 1;
    ini->currentSection = nullptr;
}

void SortItems(IniSection* section)
{
    section->items.Sort();
    section->sorted = 1;
}

void Sort(IniFile* ini)
{
    SortSections(ini);
    for (Element* const section : ini->sections) {
        SortItems(static_cast<IniSection*>(section));
    }
}

void SetCaseSensitive(IniFile* ini, bool sensitive)
{
    if (ini->names.naming.caseSensitive != sensitive) {
        ini->names.naming.caseSensitive = sensitive;
        ini->sections.Forget();
        for (Element* const section : ini->sections) {
            static_cast<IniSection*>(section)->items.Forget();
        }
    }
}

bool IsSoundIfSmall(const IniFile* ini)
{
    // Enough for an index, groups and trees of two levels, and little enough for each edit of a test.
    constexpr unsigned kSmall = 100;
    const bool isSmall = ini->sectionStore.elements.live() <= kSmall && ini->itemStore.elements.live() <= kSmall &&
                         ini->comments.live() <= kSmall;
    return !isSmall || Fault(ini) == nullptr;
}

const char* Fault(const IniFile* ini)
{
    Use use;
    const char* fault = FaultOfStores(ini);
    if (fault == nullptr) {
        fault = FaultOfList(ini->sections, &use);
    }
    for (int i = 0; fault == nullptr && i < ini->sections.Count(); ++i) {
        fault = FaultOfSection(ini, SectionAt(ini, i), &use);
    }
    if (fault == nullptr) {
        fault = CountComments(ini, ini->trailingComments, &use);
    }
    return fault != nullptr ? fault : FaultOfUse(ini, use);
}

}  // namespace qkini
