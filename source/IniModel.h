// The object that the INI engine reads into, edits and writes from. C library only. Sections and items keep their
// address until they are removed. No function here has a lock: who calls them keeps calls on one object apart.
#ifndef KZCORE_INIMODEL_H
#define KZCORE_INIMODEL_H

#include "IniArena.h"
#include "IniNames.h"
#include "IniTypes.h"

enum {
    kIniFileNameSize = 260,    // bytes, with the NUL
    kIniReadLimit = 256 << 20  // bytes
};

// A whole line, as read; equal ones in a row stand once, so that a device that gives nothing else takes no memory. The
// text stands in the object's arena.
struct IniComment {
    char* text;
    unsigned next;  // number; of the last one that of the first, so that comments are a ring
    int count;      // 1 or more
};

// A value with its tag, which is the element's name. A line is -1 for what did not come from a file.
struct IniItem : qkini::Element {
    char* value;  // raw, as between its quotes in a file; never null in a list
    int line;
    char quoteChar;  // 0, 34 or 39: what it is written in
    bool ownsName;   // rather than that it stands in the object's arena
    bool ownsValue;
    bool hasLookalike;  // for the writer: another item has the name that a part of this one's value would have
};

// Owns its name, because a section lives by edits as often as by a reading.
struct IniSection : qkini::Element {
    qkini::NameList items;  // of IniItem
    int sorted;             // whether new items go in order
    int line;
};

// The host's settings stand beside the content, which Clear drops without them.
struct IniFile {
    qkini::NameList sections{};            // of IniSection
    unsigned trailingComments = 0;         // as an element's, behind all sections
    IniSection* currentSection = nullptr;  // the last one found
    int sorted = 0;                        // whether new sections, and the items of new sections, go in order
    int duplicateChecking = 1;
    int caseSensitive = 0;    // as it was set; the names compare by that of `names`
    int lastAccessLine = -1;  // of the item that was found last; -1 for one from no file
    char* scratch = nullptr;  // owned; the last value that was given out unescaped
    size_t scratchSize = 0;   // bytes
    int maxLineLength = 80;   // bytes, -1 without a limit
    int breakChar = 0;        // 0 for none
    int writeOptions = kIniWriteSafely | kIniWriteMkstemp | kIniWriteSpacedEquals | kIniWriteSync;
    int readOptions = kIniReadStripDoubleQuotes;
    int firstUnrecognizedLine = -1;
    char fileName[kIniFileNameSize] = "";  // that was last read or written whole, or empty
    long long fileDate = 0;                // its own then, in nanoseconds since 1970, which wrap
    long long readLimit = kIniReadLimit;   // bytes of one read; -1 without a limit
    int lostRights = 0;                    // by the last save: IniLostRight
    unsigned currentHash = 0;              // of the current section's name
    bool ownsTexts = false;                // whether an item may own one; false spares a look at each
    qkini::NameCommon names;
    qkini::NameStore sectionStore{&names, sizeof(IniSection)};
    qkini::NameStore itemStore{&names, sizeof(IniItem)};
    qkini::Pool comments{sizeof(IniComment)};
    qkini::Arena arena;  // of the texts that were read
};

namespace qkini {

// An object owns all that it leads to, and what it gives out stays its own: an element is good until it is removed, a
// name or value until it is replaced.

// By rank, from 0 and below the count; by number, of a comment that is there.
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

// An object without content, which DisposeFile frees with all that is in it; null when out of memory.
IniFile* MakeFile(bool sorted);
void DisposeFile(IniFile* ini);

// Drops all sections and comments. The settings stay.
void Clear(IniFile* ini);

// The section of that name, which becomes the current one, or null. The first of several, but the current one where
// that has the name.
IniSection* FindSection(IniFile* ini, Text name);

// The item of that name, whose line becomes that of the last access, or null.
IniItem* FindItem(IniFile* ini, IniSection* section, Text name);

// Add a section, which becomes the current one, or an item without a value: behind the last, or in its place where the
// list is kept in order. Null when out of memory: nothing changed. An item's name is copied into the arena, for what is
// read, or into a block of its own. The caller gives a new item its value at once, because no other function knows
// items without one.
enum class Where { kLast, kAsSorted };
enum class Texts { kInArena, kOwned };
IniSection* AddSection(IniFile* ini, Text name, int line, Where where);
IniItem* AddItem(IniFile* ini, IniSection* section, const NameKey& key, Where where, Texts texts);

// Replaces an item's value by one that stands in the arena, or that the item owns from now on.
void SetValue(IniFile* ini, IniItem* item, char* value, Texts texts, char quoteChar);

// Remove with all that is owned, and with the comments. The section or item is no longer there afterwards.
void DropSection(IniFile* ini, IniSection* section);
void DropItem(IniSection* section, IniItem* item);

// Appends a comment to a ring, which is known by the number of its last one. False when out of memory: nothing changed.
bool AppendComment(IniFile* ini, unsigned* comments, Text text);

// Remove an item or a section and move its comments in front of what follows. Need no memory.
void RemoveItem(IniFile* ini, IniSection* section, IniItem* item);
void RemoveSection(IniFile* ini, IniSection* section);

// Gives a section another name, of which a copy is kept. It stays where it is, in a sorted object too. False when out
// of memory: nothing changed.
bool RenameSection(IniFile* ini, IniSection* section, Text name);

// Sort by name and keep the order from then on; equal names stay as they stand.
void SortSections(IniFile* ini);
void SortItems(IniSection* section);
void Sort(IniFile* ini);  // both

// Changes how names compare from now on. What stands there twice by the new rule stays.
void SetCaseSensitive(IniFile* ini, bool sensitive);

// What is wrong with the object, or null: its lists against their indexes and trees, what stands in its pools and arena
// against what it uses. In steps in proportion with the object's size. For KZ_ASSERT_SLOW and tests.
const char* Fault(const IniFile* ini);

// False for an object that is small and has a fault. For the end of each edit, where a walk over a large object would
// make many edits of it quadratic.
bool IsSoundIfSmall(const IniFile* ini);

}  // namespace qkini

#endif
