#include "IniModel.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <new>

namespace qkini {

namespace {

constexpr size_t kFirstScratchSize = 256;

// Puts lists of comments together.
class CommentCollector {
public:
    CommentCollector() : m_list(qkini_ListCreate(sizeof(IniComment))) {}
    ~CommentCollector() { qkini_ListDispose(m_list); }
    CommentCollector(const CommentCollector&) = delete;
    CommentCollector& operator=(const CommentCollector&) = delete;

    void Add(qkini_List comments)
    {
        const int count = qkini_ListNumItems(comments);
        if (count > 0) {
            m_isWhole = m_isWhole && qkini_ListInsertItems(m_list, qkini_ListGetPtrToItem(comments, 1), 0, count) == 1;
        }
    }

    // Puts what was collected in the place of a list that is part of it. False when out of memory: nothing is changed.
    bool Replace(qkini_List* comments)
    {
        if (m_list == nullptr || !m_isWhole) {
            return false;
        }
        qkini_ListDispose(*comments);
        *comments = m_list;
        m_list = nullptr;
        return true;
    }

private:
    qkini_List m_list;
    bool m_isWhole = true;
};

void DisposeSection(IniSection* section)
{
    free(section->name);
    DropComments(&section->comments);
    for (int i = 0; section->items.list != nullptr && i < section->items.Count(); ++i) {
        DisposeItem(ItemAt(section, i));
    }
    section->items.Dispose();
}

// The list of comments behind the section.
qkini_List* CommentsBehind(IniFile* ini, int section)
{
    return section + 1 < ini->sections.Count() ? &SectionAt(ini, section + 1)->comments : &ini->trailingComments;
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
    if (getentropy(&ini->naming.seed, sizeof ini->naming.seed) != 0) {
        ini->naming.seed = reinterpret_cast<size_t>(ini);
    }
    ini->scratch = static_cast<char*>(Allocate(kFirstScratchSize));
    ini->scratchSize = kFirstScratchSize;
    if (ini->scratch == nullptr || !ini->sections.Make(sizeof(IniSection))) {
        DisposeFile(ini);
        return nullptr;
    }
    return ini;
}

void DisposeFile(IniFile* ini)
{
    Clear(ini);
    ini->sections.Dispose();
    free(ini->scratch);
    free(ini);
}

void Clear(IniFile* ini)
{
    for (int i = 0; ini->sections.list != nullptr && i < ini->sections.Count(); ++i) {
        DisposeSection(SectionAt(ini, i));
    }
    if (ini->sections.list != nullptr) {
        qkini_ListRemoveItems(ini->sections.list, 1, ini->sections.Count());
        ini->sections.Forget();
    }
    DropComments(&ini->trailingComments);
    ini->arena.Clear();
    ini->currentSection = -1;
}

int FindSection(IniFile* ini, Text name)
{
    const char* const current = ini->currentSection < 0 ? nullptr : SectionAt(ini, ini->currentSection)->name;
    if (current != nullptr && AreSameName(current, name, true)) {
        return ini->currentSection;
    }
    const NameKey key(name, ini->naming.seed);
    if (current != nullptr && key.hash == ini->currentHash && AreSameName(current, name, ini->naming.caseSensitive)) {
        return ini->currentSection;
    }
    const int found = ini->sections.Find(key, ini->naming);
    if (found >= 0) {
        ini->currentSection = found;
        ini->currentHash = key.hash;
    }
    return found;
}

IniSection* SectionOf(IniFile* ini, Text name)
{
    const int index = FindSection(ini, name);
    return index < 0 ? nullptr : SectionAt(ini, index);
}

IniItem* ItemOf(IniFile* ini, IniSection* section, const NameKey& key)
{
    const int index = section->items.Find(key, ini->naming);
    if (index < 0) {
        return nullptr;
    }
    IniItem* const item = ItemAt(section, index);
    ini->lastAccessLine = item->line;
    return item;
}

int AddSection(IniFile* ini, Text name, int line, Place place)
{
    IniSection section{};
    section.sorted = ini->sorted;
    section.line = line;
    section.name = Duplicate(name);
    const NameKey key(name, ini->naming.seed);
    int index = -1;
    if (section.name != nullptr && section.items.Make(sizeof(IniItem))) {
        index = place == Place::kAsSorted && ini->sorted != 0 ? ini->sections.InsertInOrder(&section, key, ini->naming)
                                                              : ini->sections.Append(&section, key, ini->naming);
    }
    if (index < 0) {
        DisposeSection(&section);
    } else {
        ini->currentSection = index;
        ini->currentHash = key.hash;
    }
    return index;
}

int AddItem(IniFile* ini, IniSection* section, const NameKey& key, Place place, Texts texts)
{
    IniItem item{};
    item.line = -1;
    item.ownsName = texts == Texts::kOwned;
    item.name = item.ownsName ? Duplicate(key.name) : ini->arena.Copy(key.name);
    int index = -1;
    if (item.name != nullptr) {
        index = place == Place::kAsSorted && section->sorted != 0
                    ? section->items.InsertInOrder(&item, key, ini->naming)
                    : section->items.Append(&item, key, ini->naming);
    }
    if (index < 0) {
        DisposeItem(&item);
    }
    return index;
}

void SetValue(IniItem* item, char* value, Texts texts, char quoteChar)
{
    if (item->ownsValue) {
        free(item->value);
    }
    item->value = value;
    item->ownsValue = texts == Texts::kOwned;
    item->quoteChar = quoteChar;
}

void DropSection(IniFile* ini, int index)
{
    IniSection section = *SectionAt(ini, index);
    ini->sections.RemoveAt(index, ini->naming);
    DisposeSection(&section);
    if (ini->currentSection >= index) {
        ini->currentSection = ini->currentSection == index ? -1 : ini->currentSection - 1;
    }
}

void DropItem(const IniFile* ini, IniSection* section, int index)
{
    IniItem item = *ItemAt(section, index);
    section->items.RemoveAt(index, ini->naming);
    DisposeItem(&item);
}

void DisposeItem(IniItem* item)
{
    if (item->ownsName) {
        free(item->name);
    }
    if (item->ownsValue) {
        free(item->value);
    }
    DropComments(&item->comments);
}

bool AppendComment(IniFile* ini, qkini_List* comments, Text text, int line)
{
    if (*comments == nullptr) {
        *comments = qkini_ListCreate(sizeof(IniComment));
    }
    const int size = qkini_ListNumItems(*comments);
    auto* const last = size < 1 ? nullptr : static_cast<IniComment*>(qkini_ListGetPtrToItem(*comments, size));
    const bool isAgain = last != nullptr && AreSameName(last->text, text, true);
    if (isAgain && last->count < INT_MAX) {
        ++last->count;
        return true;
    }
    const IniComment comment{ini->arena.Copy(text), line, 1};
    return comment.text != nullptr && qkini_ListInsertItem(*comments, &comment, 0) == 1;
}

void DropComments(qkini_List* comments)
{
    qkini_ListDispose(*comments);
    *comments = nullptr;
}

bool RemoveItem(IniFile* ini, int sectionIndex, int index)
{
    IniSection* const section = SectionAt(ini, sectionIndex);
    IniItem* const item = ItemAt(section, index);
    if (qkini_ListNumItems(item->comments) > 0) {
        qkini_List* const behind = index + 1 < section->items.Count() ? &ItemAt(section, index + 1)->comments
                                                                      : CommentsBehind(ini, sectionIndex);
        CommentCollector collected;
        collected.Add(item->comments);
        collected.Add(*behind);
        if (!collected.Replace(behind)) {
            return false;
        }
    }
    DropItem(ini, section, index);
    return true;
}

bool RemoveSection(IniFile* ini, int index)
{
    IniSection* const section = SectionAt(ini, index);
    qkini_List* const behind = CommentsBehind(ini, index);
    CommentCollector collected;
    collected.Add(section->comments);
    for (int i = 0; i < section->items.Count(); ++i) {
        collected.Add(ItemAt(section, i)->comments);
    }
    collected.Add(*behind);
    if (!collected.Replace(behind)) {
        return false;
    }
    DropSection(ini, index);
    return true;
}

void SortSections(IniFile* ini)
{
    ini->sections.Sort(ini->naming);
    ini->sorted = 1;
    ini->currentSection = -1;
}

void SortItems(const IniFile* ini, IniSection* section)
{
    section->items.Sort(ini->naming);
    section->sorted = 1;
}

void ForgetOrder(IniFile* ini)
{
    ini->sections.Forget();
    for (int i = 0; i < ini->sections.Count(); ++i) {
        SectionAt(ini, i)->items.Forget();
    }
}

}  // namespace qkini
