// The object that the INI engine reads into, edits and writes from. C library only.
#ifndef KZCORE_INIMODEL_H
#define KZCORE_INIMODEL_H

#include "IniArena.h"
#include "IniNames.h"
#include "IniTypes.h"

enum { kIniFileNameSize = 260, kIniReadLimit = 256 << 20 };

// A whole line, as read; equal ones in a row stand once, so that a device that gives nothing else takes no memory. The
// text stands in the object's arena.
struct IniComment {
    char* text;
    unsigned next;  // number; of the last one that of the first, so that comments are a ring
    int count;      // 1 or more
};

// A line is -1 for what did not come from a file.
struct IniItem : qkini::Element {
    char* value;
    int line;
    char quoteChar;  // 0, 34 or 39
    bool ownsName;   // rather than that it stands in the object's arena
    bool ownsValue;
    bool hasLookalike;  // for the writer: another item has the name that a part of this one's value would have
};

// Owns its name.
struct IniSection : qkini::Element {
    qkini::NameList items;  // of IniItem
    int sorted;             // whether new items go in order
    int line;
};

struct IniFile {
    qkini::NameList sections{};            // of IniSection
    unsigned trailingComments = 0;         // as an element's
    IniSection* currentSection = nullptr;  // the last one found
    int sorted = 0;                        // whether new sections, and the items of new sections, go in order
    int duplicateChecking = 1;
    int caseSensitive = 0;  // as it was set; the names compare by that of `names`
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
    bool ownsTexts = false;               // whether an item may own one
    qkini::NameCommon names;
    qkini::NameStore sectionStore{&names, sizeof(IniSection)};
    qkini::NameStore itemStore{&names, sizeof(IniItem)};
    qkini::Pool comments{sizeof(IniComment)};
    qkini::Arena arena;  // of the texts that were read
};

namespace qkini {

inline IniSection* SectionAt(const IniFile* ini, int rank)
{
    return static_cast<IniSection*>(ini->sections.At(rank));
}

inline IniItem* ItemAt(const IniSection* section, int rank)
{
    return static_cast<IniItem*>(section->items.At(rank));
}

inline IniComment* CommentAt(const IniFile* ini, unsigned number)
{
    return static_cast<IniComment*>(ini->comments.At(number));
}

// An object without content; null when out of memory.
IniFile* MakeFile(bool sorted);
void DisposeFile(IniFile* ini);

// Drops all sections and comments.
void Clear(IniFile* ini);

// The section of that name, which becomes the current one, or null.
IniSection* FindSection(IniFile* ini, Text name);

// The item of that name, whose line becomes that of the last access, or null.
IniItem* FindItem(IniFile* ini, IniSection* section, Text name);

// Add a section, which becomes the current one, or an item without a value: behind the last, or in its place where the
// list is kept in order. Null when out of memory. An item's texts are read into the arena or its own.
enum class Where { kLast, kAsSorted };
enum class Texts { kInArena, kOwned };
IniSection* AddSection(IniFile* ini, Text name, int line, Where where);
IniItem* AddItem(IniFile* ini, IniSection* section, const NameKey& key, Where where, Texts texts);

// Replaces an item's value.
void SetValue(IniFile* ini, IniItem* item, char* value, Texts texts, char quoteChar);

// Remove with all that is owned, and with the comments.
void DropSection(IniFile* ini, IniSection* section);
void DropItem(IniSection* section, IniItem* item);

// Appends a comment. False when out of memory.
bool AppendComment(IniFile* ini, unsigned* comments, Text text);

// Remove an item or a section and move its comments in front of what follows.
void RemoveItem(IniFile* ini, IniSection* section, IniItem* item);
void RemoveSection(IniFile* ini, IniSection* section);

// Gives a section another name. False when out of memory: nothing changed.
bool RenameSection(IniFile* ini, IniSection* section, Text name);

void SortSections(IniFile* ini);
void SortItems(IniSection* section);
void Sort(IniFile* ini);  // both

// How names compare from now on.
void SetCaseSensitive(IniFile* ini, bool sensitive);

// What is wrong with the object, or null: its lists against their indexes and trees, what stands in its pools and arena
// against what it uses. In steps in proportion with the object's size. For KZ_ASSERT_SLOW and tests.
const char* Fault(const IniFile* ini);

// False for an object that is small and has a fault. For the end of each edit, where a walk over a large object would
// make many edits of it quadratic.
bool IsSoundIfSmall(const IniFile* ini);

}  // namespace qkini

#endif
