// The bytes of an INI text and where in them each line, section and item stands. Beside the engine, whose rules tell
// what a line is; unlike it this module uses the C++ library, and throws std::bad_alloc when out of memory.
#ifndef KZCORE_INIEDITTEXT_H
#define KZCORE_INIEDITTEXT_H

#include <string>
#include <utility>
#include <vector>

#include "IniLine.h"
#include "IniTypes.h"

namespace qkini {

// An IniStreamFunction over memory: the context is a Text, of which is left what was not read yet.
int ReadMemory(void* context, int size, int* actual, void* buffer);

// How a text is read, and how its names compare.
struct EditRules {
    int readOptions;     // IniReadOption
    bool hashComments;   // a line that starts with "#" is a comment
    bool caseSensitive;  // names compare byte for byte

    Line LineOf(Text line) const;
    bool AreSame(Text a, Text b) const;
};

// A line's extent runs from its first byte to the first byte of the next line, so that extents cover all of the text
// behind a mark. Places of its own parts count from its first byte. Elements are what the engine makes of the text:
// sections and items in their order, of which number 0 is reserved for what stands in front of the first section.
struct EditLine {
    unsigned begin;  // in the text
    unsigned size;   // without its end
    unsigned name;   // of a section; of an item, for one that is cut without " Line0001"
    unsigned nameSize;
    unsigned value;
    unsigned valueSize;
    unsigned section;    // number of the section line that it stands under, or is; 0 in front of the first
    unsigned element;    // that it is, or for other lines the next one behind it
    unsigned char kind;  // IniEditKind
    char quote;
};

// Not changed once it is read: an edit makes another one.
class EditText {
public:
    explicit EditText(const EditRules& rules) : m_rules(rules) {}

    // Takes a text and finds its lines. 1, kIniErrUnicodeMark, or kIniErrMemory for one of too many bytes or lines.
    int Take(std::string text);

    const EditRules& rules() const { return m_rules; }
    const std::string& bytes() const { return m_bytes; }
    unsigned markSize() const { return m_markSize; }
    unsigned elementCount() const { return m_elementCount; }

    // Lines by their index, from 0.
    unsigned LineCount() const { return static_cast<unsigned>(m_lines.size()); }
    const EditLine& At(unsigned line) const { return m_lines[line]; }
    unsigned EndOf(unsigned line) const;  // of its extent, in the text
    Text ContentOf(unsigned line) const;  // without its end
    Text LineEndOf(unsigned line) const;  // its end, two bytes for a pair; empty for a last line without one
    Text NameOf(unsigned line) const;
    Text ValueOf(unsigned line) const;  // with those of all parts
    Text SectionOf(unsigned line) const;

    // The further parts of the item of that line.
    std::vector<unsigned> PartsOf(unsigned line) const;

    // The lines that begin a section, and those of its items of a tag, in their order. Section "" has no line.
    std::vector<unsigned> SectionsOf(Text section) const;
    std::vector<unsigned> ItemsOf(Text section, Text tag) const;

    // Whether each section line, by its number, begins a section of that name; at 0 for "".
    std::vector<bool> AreOf(Text section) const;

private:
    void AddLine(unsigned begin, unsigned size);
    void AddItem(EditLine* line, const Line& read);

    EditRules m_rules;
    std::string m_bytes;
    unsigned m_markSize = 0;
    unsigned m_elementCount = 1;
    bool m_isInRun = false;  // of the parts of an item, while lines are added
    std::vector<EditLine> m_lines;
    std::vector<unsigned> m_sections;                        // lines; the first one stands for "" and is none
    std::vector<std::pair<unsigned, std::string>> m_joined;  // lines of items that are cut, and their values
};

}  // namespace qkini

#endif
