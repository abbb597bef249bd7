// The object that the INI engine reads into, edits and writes from. C library only.
#ifndef KZCORE_INIMODEL_H
#define KZCORE_INIMODEL_H

#include "IniArena.h"
#include "IniFile.h"
#include "IniNames.h"

enum { kIniFileNameSize = 260, kIniReadLimit = 256 << 20 };

// A whole line, as read; equal ones in a row stand once, so that a device that gives nothing else takes no memory. The
// text stands in the object's arena.
struct IniComment {
    char* text;
    int line;   // of the first
    int count;  // 1 or more
};

// Lists of comments are null until the first one. A line is -1 for what did not come from a file.
struct IniItem {
    char* name;
    char* value;
    qkini_List comments;  // in front of the item
    int line;
    char quoteChar;  // 0, 34 or 39
    bool ownsName;   // rather than that it stands in the object's arena
    bool ownsValue;
};

struct IniSection {
    char* name;             // owned
    qkini_List comments;    // in front of the section
    qkini::NameList items;  // of IniItem
    int sorted;             // whether new items go in order
    int line;
};

struct IniFile {
    qkini::NameList sections{};  // of IniSection
    qkini_List trailingComments = nullptr;
    int currentSection = -1;  // index of the last one found, so that it may move with its list
    int sorted = 0;           // whether new sections, and the items of new sections, go in order
    int duplicateChecking = 1;
    int caseSensitive = 0;  // as it was set; the names compare by `naming`
    int lastAccessLine = -1;
    char* scratch = nullptr;
    size_t scratchSize = 0;
    int maxLineLength = 80;
    int breakChar = 0;
    int writeOptions = kIniWriteSafely | kIniWriteMkstemp | kIniWriteSpacedEquals | kIniWriteSync;
    int readOptions = kIniReadStripDoubleQuotes;
    int firstUnrecognizedLine = -1;
    char fileName[kIniFileNameSize] = "";
    long long fileDate = 0;
    long long readLimit = kIniReadLimit;  // bytes of one read; -1 without a limit
    int lostRights = 0;                   // by the last save: IniLostRight
    unsigned currentHash = 0;             // of the current section's name
    qkini::Naming naming;
    qkini::Arena arena;  // of the texts that were read
};

namespace qkini {

inline IniSection* SectionAt(const IniFile* ini, int index)
{
    return static_cast<IniSection*>(ini->sections.At(index));
}

inline IniItem* ItemAt(const IniSection* section, int index)
{
    return static_cast<IniItem*>(section->items.At(index));
}

// An object without content; null when out of memory.
IniFile* MakeFile(bool sorted);
void DisposeFile(IniFile* ini);

// Drops all sections and comments.
void Clear(IniFile* ini);

// The index of a section, which becomes the current one, or -1.
int FindSection(IniFile* ini, Text name);

// The section or the item of that name, or null. A found item's line becomes that of the last access.
IniSection* SectionOf(IniFile* ini, Text name);
IniItem* ItemOf(IniFile* ini, IniSection* section, const NameKey& key);

// Add a section, which becomes the current one, or an item without a value: behind the last, or in its place where the
// list is kept in order. The index, or -1 when out of memory. An item's texts are read into the arena or its own.
enum class Place { kLast, kAsSorted };
enum class Texts { kInArena, kOwned };
int AddSection(IniFile* ini, Text name, int line, Place place);
int AddItem(IniFile* ini, IniSection* section, const NameKey& key, Place place, Texts texts);

// Replaces an item's value.
void SetValue(IniItem* item, char* value, Texts texts, char quoteChar);

// Remove with all that is owned.
void DropSection(IniFile* ini, int index);
void DropItem(const IniFile* ini, IniSection* section, int index);
void DisposeItem(IniItem* item);

// Appends a line of comment to a list, which is made where it is null. False when out of memory.
bool AppendComment(IniFile* ini, qkini_List* comments, Text text, int line);
void DropComments(qkini_List* comments);

// Removes an item or a section and moves its comments in front of what follows. False when out of memory: nothing
// changed.
bool RemoveItem(IniFile* ini, int section, int item);
bool RemoveSection(IniFile* ini, int section);

void SortSections(IniFile* ini);
void SortItems(const IniFile* ini, IniSection* section);

// For a change of how names compare.
void ForgetOrder(IniFile* ini);

}  // namespace qkini

#endif
