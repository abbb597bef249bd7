// What each edit of a text comes to: the bytes that go and come, and what the engine shall read different afterwards.
// Throws std::bad_alloc when out of memory.
#ifndef KZCORE_INIEDITPLAN_H
#define KZCORE_INIEDITPLAN_H

#include <string>
#include <vector>

#include "IniEditText.h"

namespace qkini {

// Bytes of the old text, from `begin` up to `end`, that others take the place of.
struct Splice {
    unsigned begin;
    unsigned end;
    std::string text;
};

// What becomes of one element of the old text. An element that only comes stands in front of the one at `at`.
struct ElementChange {
    unsigned at;
    bool goes;
    bool comes;
    bool isSection = false;  // these tell of the element that comes
    std::string name{};
    std::string value{};
    char quote = 0;
};

// What may differ for a host, which reads repeated names as one: the items of these tags in these sections, or these
// sections as a whole.
struct Touched {
    std::vector<std::string> sections;
    std::vector<std::string> tags;
    bool isWhole = false;
    bool mayCome = false;  // the sections themselves may come or go with their items
};

// Both lists are in the order of the text, and no two splices meet.
struct EditPlan {
    int result;  // 1; 0 where what is edited isn't there, or a code: nothing is planned then
    std::vector<Splice> splices{};
    std::vector<ElementChange> changes{};
    Touched touched{};
};

// The edits of IniEdit.h. A value is raw, as it shall be read.
EditPlan PlanSetItem(const EditText& text, Text section, Text tag, int which, Text value);
EditPlan PlanAddItem(const EditText& text, Text section, Text tag, Text value);
EditPlan PlanRemoveItem(const EditText& text, Text section, Text tag, int which);
EditPlan PlanRenameItem(const EditText& text, Text section, Text tag, int which, Text newTag);
EditPlan PlanAddSection(const EditText& text, Text section);
EditPlan PlanRemoveSection(const EditText& text, Text section);
EditPlan PlanRenameSection(const EditText& text, Text section, Text newName);

// In front of items, of section lines, or at the text's end.
EditPlan PlanAddComments(const EditText& text, Text section, Text tag, int which, Text comment);
EditPlan PlanAddSectionComments(const EditText& text, Text section, int which, Text comment);
EditPlan PlanAddLastComment(const EditText& text, Text comment);

// Of a line by its index, which may be beyond the last.
EditPlan PlanSetComment(const EditText& text, unsigned line, Text comment);
EditPlan PlanRemoveComment(const EditText& text, unsigned line);

// The text with all splices done.
std::string Spliced(const EditText& text, const std::vector<Splice>& splices);

}  // namespace qkini

#endif
