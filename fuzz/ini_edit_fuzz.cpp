// Any bytes as an INI text, and any edit of it: either nothing changed, or every byte is there in its order that does
// not belong to what was edited, and all other items read as they did.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzCheck.h"
#include "IniEdit.h"
#include "IniFile.h"

namespace {

using kzfuzz::Require;

struct Close {
    void operator()(IniEdit* edit) const { IniEditClose(edit); }
};
using Owner = std::unique_ptr<IniEdit, Close>;

struct Line {
    int kind;
    std::string section;
    std::string tag;
    std::string value;
    std::string_view bytes;  // its extent
    std::size_t size;        // without its end
};

// A text with its lines, in the order of the text, behind what stands in front of the first.
struct Content {
    std::string text;
    std::string_view mark;
    std::vector<Line> lines;
};

Content ContentOf(const IniEdit* edit)
{
    const char* bytes = nullptr;
    std::size_t size = 0;
    Require(IniEditGetText(edit, &bytes, &size) == 1, "there is a text");
    Content content{std::string(bytes, size), {}, {}};
    IniEditLine line{};
    std::size_t end = size;
    for (int n = IniEditCountLines(edit); n > 0; --n) {
        Require(IniEditGetLine(edit, n, &line) == 1, "each line can be had");
        const auto begin = static_cast<std::size_t>(line.text - bytes);
        Require(begin + line.textSize <= end, "lines are in order");
        content.lines.insert(
            content.lines.begin(),
            {line.kind, std::string(line.section, line.sectionSize), std::string(line.tag, line.tagSize),
             std::string(line.value, line.valueSize), std::string_view(bytes + begin, end - begin), line.textSize});
        end = begin;
    }
    // Views into the copy instead of the object's text.
    for (Line& moved : content.lines) {
        moved.bytes = std::string_view(content.text)
                          .substr(static_cast<std::size_t>(moved.bytes.data() - bytes), moved.bytes.size());
    }
    content.mark = std::string_view(content.text).substr(0, end);
    Require(end == 0 || content.mark == "\xEF\xBB\xBF", "all bytes are in lines but for a mark");
    return content;
}

enum Operation {
    kSet,
    kAdd,
    kRemove,
    kRename,
    kAddSection,
    kRemoveSection,
    kRenameSection,
    kAddComment,
    kSetComment,
    kRemoveComment,
    kOperations
};

struct Task {
    Operation operation;
    int readOptions;
    int options;
    int which;
    int line;
    bool isRaw;
    std::string section;
    std::string tag;
    std::string text;
};

bool AreSame(const Task& task, const std::string& a, const std::string& b)
{
    return (task.options & kIniEditCaseSensitive) != 0 ? a == b
                                                       : qkini_StrICmpWithoutSurrWhiteSpace(a.c_str(), b.c_str()) == 0;
}

int Do(IniEdit* edit, const Task& task)
{
    const char* const section = task.section.c_str();
    const char* const tag = task.tag.c_str();
    const char* const text = task.text.c_str();
    switch (task.operation) {
        case kSet:
            return IniEditSetItem(edit, section, tag, task.which, text, task.isRaw ? kIniEditRaw : 0);
        case kAdd:
            return IniEditAddItem(edit, section, tag, text, task.isRaw ? kIniEditRaw : 0);
        case kRemove:
            return IniEditRemoveItem(edit, section, tag, task.which);
        case kRename:
            return IniEditRenameItem(edit, section, tag, task.which, text);
        case kAddSection:
            return IniEditAddSection(edit, section);
        case kRemoveSection:
            return IniEditRemoveSection(edit, section);
        case kRenameSection:
            return IniEditRenameSection(edit, section, text);
        case kAddComment:
            return IniEditAddComment(edit, section, task.isRaw ? tag : nullptr, task.which, text);
        case kSetComment:
            return IniEditSetComment(edit, task.line, text);
        default:
            return IniEditRemoveComment(edit, task.line);
    }
}

bool AddsItem(const Task& task)
{
    return task.operation == kSet || task.operation == kAdd;
}

bool IsOfItem(const Task& task)
{
    return AddsItem(task) || task.operation == kRemove || task.operation == kRename;
}

// Whether an edit may change a line of the old text, or have made this one of the new text.
bool IsTouched(const Task& task, const Line& line, bool hadSection)
{
    const bool isSection = AreSame(task, line.section, task.section);
    if (IsOfItem(task)) {
        const bool isTag =
            AreSame(task, line.tag, task.tag) || (task.operation == kRename && AreSame(task, line.tag, task.text));
        return isSection && ((line.kind == kIniEditItem && isTag) || (line.kind == kIniEditSection && !hadSection));
    }
    switch (task.operation) {
        case kRemoveSection:
            return isSection && (line.kind == kIniEditSection || line.kind == kIniEditItem);
        case kAddSection:
        case kRenameSection:
            return line.kind == kIniEditSection && (isSection || AreSame(task, line.section, task.text));
        default:
            return false;
    }
}

// The bytes and the items of all other lines.
struct Rest {
    std::string bytes;
    std::string items;
};

Rest RestOf(const Task& task, const Content& content, bool hadSection)
{
    Rest rest{std::string(content.mark), ""};
    bool isItemTouched = false;
    for (const Line& line : content.lines) {
        const bool isTouched = line.kind == kIniEditPart ? isItemTouched : IsTouched(task, line, hadSection);
        if (line.kind == kIniEditItem) {
            isItemTouched = isTouched;
        }
        if (isTouched) {
            continue;
        }
        rest.bytes += line.bytes;
        if (line.kind == kIniEditItem) {
            // A renamed section's items stay in it.
            rest.items +=
                (task.operation == kRenameSection ? "" : line.section) + '\n' + line.tag + '\n' + line.value + '\n';
        }
    }
    return rest;
}

// Whether lines end in different ways. Where one goes, the ends of its neighbours may become a pair then, so that a
// byte counts for another line than before.
bool HasMixedEnds(const Content& content)
{
    std::string_view first;
    for (const Line& line : content.lines) {
        const std::string_view end = line.bytes.substr(line.size);
        first = first.empty() ? end : first;
        if (!end.empty() && end != first) {
            return true;
        }
    }
    return false;
}

void DropEnds(std::string* bytes)
{
    bytes->erase(std::remove_if(bytes->begin(), bytes->end(), [](char c) { return c == '\n' || c == '\r' || c == 0; }),
                 bytes->end());
}

void CheckItems(const Task& task, const Content& before, const Content& after, bool hadSection)
{
    Rest old = RestOf(task, before, hadSection);
    Rest now = RestOf(task, after, hadSection);
    if (HasMixedEnds(before)) {
        DropEnds(&old.bytes);
        DropEnds(&now.bytes);
    }
    Require(old.items == now.items, "all other items read as they did");
    Require(now.bytes.compare(0, old.bytes.size(), old.bytes) == 0, "all other bytes stay");
    // In front of what comes behind the last line: an end for that, and a blank line.
    const std::string_view more = std::string_view(now.bytes).substr(old.bytes.size());
    const bool mayBeMore = AddsItem(task) || task.operation == kAddSection;
    Require(more.size() <= (mayBeMore ? 4u : 0u), "no more than the end of a line and a blank one comes");
    Require(more.find_first_not_of(std::string_view("\r\n\0", 3)) == more.npos, "nothing but ends of lines comes");
}

// One line came, went, or was replaced.
void CheckComments(const Task& task, const Content& before, const Content& after)
{
    const std::string& old = before.text;
    const std::string& now = after.text;
    const std::size_t shorter = std::min(old.size(), now.size());
    std::size_t front = 0;
    while (front < shorter && old[front] == now[front]) {
        ++front;
    }
    std::size_t back = 0;
    while (back < shorter - front && old[old.size() - 1 - back] == now[now.size() - 1 - back]) {
        ++back;
    }
    if (task.operation == kAddComment) {
        Require(task.which == kIniEditAll || front + back == old.size(), "a comment comes and nothing goes");
        Require(task.which == kIniEditAll || now.size() - old.size() <= std::strlen(task.text.c_str()) + 2,
                "and nothing else comes");
        return;
    }
    const std::string_view line = before.lines[static_cast<std::size_t>(task.line) - 1].bytes;
    const auto begin = static_cast<std::size_t>(line.data() - old.data());
    Require(front >= begin || now.size() - back <= begin + task.text.size(), "bytes in front of the line stay");
    Require(front + back + line.size() >= old.size(), "only the line changes");
}

void CheckValue(const Task& task, const IniEdit* edit)
{
    IniEditLine line{};
    const int count = IniEditCountItems(edit, task.section.c_str(), task.tag.c_str());
    const int n = task.operation == kAdd || task.which <= 0 ? count : task.which;
    if (task.operation == kAdd && count != 1) {
        return;  // it is not the last one where a section comes again
    }
    Require(IniEditGetItem(edit, task.section.c_str(), task.tag.c_str(), n, &line) == 1, "the item is there");
    std::string value(line.value, line.valueSize);
    if (!task.isRaw) {
        char* decoded = nullptr;
        std::size_t size = 0;
        Require(IniEditUnescape(value.data(), value.size(), &decoded, &size) == 1, "memory");
        value.assign(decoded, size);
        std::free(decoded);
    }
    Require(value == task.text.c_str(), "the value is read back");
}

void Check(IniEdit* edit, const Task& task)
{
    const Content before = ContentOf(edit);
    const bool hadSection = IniEditCountSections(edit, task.section.c_str()) > 0;
    const int result = Do(edit, task);
    const Content after = ContentOf(edit);
    if (result != 1) {
        Require(result <= 0 && before.text == after.text, "what fails changes nothing");
        return;
    }
    if (task.operation >= kAddComment) {
        CheckComments(task, before, after);
    } else {
        CheckItems(task, before, after, hadSection);
    }
    if (AddsItem(task)) {
        CheckValue(task, edit);
    }
}

}  // namespace

// Six bytes tell what is done, the last one how many bytes behind it are a name or a value; the others are the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t kHead = 6;
    if (size < kHead || size < kHead + data[5] % 32) {
        return 0;
    }
    Task task{};
    task.readOptions = data[0] & 15;
    task.options = ((data[0] & 16) != 0 ? kIniEditHashComments : 0) | ((data[0] & 32) != 0 ? kIniEditCaseSensitive : 0);
    task.isRaw = (data[0] & 64) != 0;
    task.operation = static_cast<Operation>(data[1] % kOperations);
    task.which = data[2] % 5 - 1;
    const std::size_t length = data[5] % 32;
    // No further than a NUL, because that is all that a call sees.
    task.text = std::string(reinterpret_cast<const char*>(data) + kHead, length).c_str();
    const std::string text(reinterpret_cast<const char*>(data) + kHead + length, size - kHead - length);

    IniEdit* opened = nullptr;
    if (IniEditOpenText(&opened, text.data(), text.size(), task.readOptions, task.options) != 1) {
        return 0;
    }
    const Owner edit(opened);
    // The names of some line, or ones that are not there.
    const int count = IniEditCountLines(opened);
    task.line = count == 0 ? 0 : data[3] % count + 1;
    IniEditLine line{};
    if (IniEditGetLine(opened, task.line, &line) == 1 && data[4] % 4 != 0) {
        task.section.assign(line.section, line.sectionSize);
        task.tag.assign(line.tag, line.tagSize);
    }
    task.section = data[4] % 4 == 1 ? task.text : task.section;
    task.tag = task.tag.empty() || data[4] % 4 == 2 ? task.text : task.tag;
    Check(opened, task);

    // One more on what that has left, with the names as they were.
    task.operation = static_cast<Operation>(data[1] / kOperations % kOperations);
    Check(opened, task);
    return 0;
}
