// Each edit is planned on the text, done on a copy, and proved by the engine's readings of both; only then the copy
// takes the text's place. So whatever fails on the way, memory too, the object is as it was. What is saved is the text
// behind the last edit, and so is proved.
//
// No exception leaves a call: this module and those under it throw only for want of memory.

#include "IniEdit.h"

#include <stdlib.h>

#include <climits>
#include <memory>
#include <new>
#include <stdexcept>

#include "IniEditFile.h"
#include "IniEditPlan.h"
#include "IniEditProof.h"
#include "IniEditText.h"
#include "IniMemory.h"
#include "KzAssert.h"

using qkini::EditPlan;
using qkini::EditText;
using qkini::Text;

struct IniEdit {
    explicit IniEdit(const qkini::EditRules& rules) : text(rules) {}

    qkini::EditFile file;
    EditText text;
    std::string saved;         // what was read or saved last
    qkini::Readings readings;  // of the text, once there was an edit
};

namespace {

// Runs what may be out of memory.
template <typename Body>
int Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kIniErrMemory;
    } catch (const std::length_error&) {
        return kIniErrMemory;
    }
}

// Takes over the text that a plan leads to, if it is proved.
int Do(IniEdit* edit, const EditPlan& plan)
{
    if (plan.result != 1) {
        return plan.result;
    }
    std::string bytes = Spliced(edit->text, plan.splices);
    if (bytes == edit->text.bytes()) {
        return 1;
    }
    EditText after(edit->text.rules());
    qkini::Readings readings;
    int result = after.Take(std::move(bytes));
    if (result == kIniErrUnicodeMark) {
        return kIniErrNotProved;  // what is in front by now would be read as such a mark
    }
    if (result == 1 && !edit->readings.isThere()) {
        result = edit->readings.Read(edit->text);
    }
    if (result == 1) {
        result = readings.Read(after);
    }
    if (result != 1) {
        return result;
    }
    if (!qkini::Readings::Proves(edit->text, edit->readings, readings, plan)) {
        return kIniErrNotProved;
    }
    edit->text = std::move(after);
    edit->readings = std::move(readings);
    return 1;
}

// Plans and does an edit.
template <typename Plan>
int Edit(IniEdit* edit, Plan plan)
{
    if (edit == nullptr) {
        return kIniErrFile;
    }
    return Guarded([&] { return Do(edit, plan(edit->text)); });
}

// A copy from malloc of what a function makes of a text, which the caller frees.
int GiveCopy(const std::string& text, char** out, size_t* outSize)
{
    *out = qkini::Duplicate({text.data(), text.size()});
    if (outSize != nullptr) {
        *outSize = text.size();
    }
    return *out == nullptr ? kIniErrMemory : 1;
}

struct Free {
    void operator()(char* text) const { free(text); }
};

// A value with all escapes that it needs: the engine's own, and those of blanks at its ends, which it would drop.
std::string AllEscaped(Text value)
{
    const bool hasFront = !value.IsEmpty() && *value.begin == ' ';
    const bool hasBack = value.size > (hasFront ? 1 : 0) && value.end()[-1] == ' ';
    const Text middle(value.begin + (hasFront ? 1 : 0), value.end() - (hasBack ? 1 : 0));
    const std::unique_ptr<char, Free> escaped(qkini::Escaped(middle));
    if (escaped == nullptr) {
        throw std::bad_alloc();
    }
    return (hasFront ? "\\x20" : "") + std::string(escaped.get()) + (hasBack ? "\\x20" : "");
}

std::string RawOf(const char* value, int options)
{
    return (options & kIniEditRaw) != 0 ? std::string(Text(value).begin) : AllEscaped(Text(value));
}

void Describe(const EditText& text, unsigned line, IniEditLine* out)
{
    const qkini::EditLine& at = text.At(line);
    const Text content = text.ContentOf(line);
    const Text section = text.SectionOf(line);
    const bool isItem = at.kind == kIniEditItem;
    const Text tag = isItem ? text.NameOf(line) : Text("");
    const Text value = isItem ? text.ValueOf(line) : Text("");
    *out = {at.kind,      static_cast<int>(line) + 1,
            at.quote,     content.begin,
            content.size, section.begin,
            section.size, tag.begin,
            tag.size,     value.begin,
            value.size};
}

int Count(size_t count)
{
    return static_cast<int>(count);
}

int Open(IniEdit** out, std::unique_ptr<IniEdit> edit, std::string text)
{
    edit->saved = text;
    const int result = edit->text.Take(std::move(text));
    if (result == 1) {
        *out = edit.release();
    }
    return result;
}

qkini::EditRules RulesOf(int readOptions, int options)
{
    return {readOptions, (options & kIniEditHashComments) != 0, (options & kIniEditCaseSensitive) != 0};
}

}  // namespace

extern "C" {

int IniEditOpen(IniEdit** out, const char* path, int readOptions, int options)
{
    if (out == nullptr) {
        return kIniErrFile;
    }
    *out = nullptr;
    return Guarded([&] {
        auto edit = std::make_unique<IniEdit>(RulesOf(readOptions, options));
        std::string text;
        const int result = edit->file.Open(path, options, &text);
        return result == 1 ? Open(out, std::move(edit), std::move(text)) : result;
    });
}

int IniEditOpenText(IniEdit** out, const void* bytes, size_t size, int readOptions, int options)
{
    if (out == nullptr) {
        return kIniErrFile;
    }
    *out = nullptr;
    if (bytes == nullptr && size > 0) {
        return kIniErrFile;
    }
    return Guarded([&] {
        auto edit = std::make_unique<IniEdit>(RulesOf(readOptions, options));
        return Open(out, std::move(edit), size == 0 ? "" : std::string(static_cast<const char*>(bytes), size));
    });
}

void IniEditClose(IniEdit* edit)
{
    delete edit;
}

int IniEditGetText(const IniEdit* edit, const char** bytes, size_t* size)
{
    if (edit == nullptr || bytes == nullptr || size == nullptr) {
        return kIniErrFile;
    }
    *bytes = edit->text.bytes().data();
    *size = edit->text.bytes().size();
    return 1;
}

int IniEditSetText(IniEdit* edit, const void* bytes, size_t size)
{
    if (edit == nullptr || (bytes == nullptr && size > 0)) {
        return kIniErrFile;
    }
    return Guarded([&] {
        EditText text(edit->text.rules());
        const int result = text.Take(size == 0 ? "" : std::string(static_cast<const char*>(bytes), size));
        if (result == 1) {
            edit->text = std::move(text);
            edit->readings = {};
        }
        return result;
    });
}

int IniEditIsChanged(const IniEdit* edit)
{
    return edit == nullptr ? kIniErrFile : edit->text.bytes() != edit->saved ? 1 : 0;
}

int IniEditCountLines(const IniEdit* edit)
{
    return edit == nullptr ? kIniErrFile : Count(edit->text.LineCount());
}

int IniEditGetLine(const IniEdit* edit, int n, IniEditLine* out)
{
    if (edit == nullptr || out == nullptr) {
        return kIniErrFile;
    }
    if (n < 1 || static_cast<unsigned>(n) > edit->text.LineCount()) {
        return 0;
    }
    Describe(edit->text, static_cast<unsigned>(n) - 1, out);
    return 1;
}

int IniEditCountSections(const IniEdit* edit, const char* section)
{
    if (edit == nullptr) {
        return kIniErrFile;
    }
    return Guarded([&] { return Count(edit->text.SectionsOf(Text(section)).size()); });
}

int IniEditCountItems(const IniEdit* edit, const char* section, const char* tag)
{
    if (edit == nullptr) {
        return kIniErrFile;
    }
    return Guarded([&] { return Count(edit->text.ItemsOf(Text(section), Text(tag)).size()); });
}

int IniEditGetItem(const IniEdit* edit, const char* section, const char* tag, int n, IniEditLine* out)
{
    if (edit == nullptr || out == nullptr) {
        return kIniErrFile;
    }
    return Guarded([&] {
        const std::vector<unsigned> lines = edit->text.ItemsOf(Text(section), Text(tag));
        if (n < 1 || static_cast<size_t>(n) > lines.size()) {
            return 0;
        }
        Describe(edit->text, lines[static_cast<size_t>(n) - 1], out);
        return 1;
    });
}

int IniEditSetItem(IniEdit* edit, const char* section, const char* tag, int which, const char* value, int valueOptions)
{
    return Edit(edit, [&](const EditText& text) {
        const std::string raw = RawOf(value, valueOptions);
        return PlanSetItem(text, Text(section), Text(tag), which, {raw.data(), raw.size()});
    });
}

int IniEditAddItem(IniEdit* edit, const char* section, const char* tag, const char* value, int valueOptions)
{
    return Edit(edit, [&](const EditText& text) {
        const std::string raw = RawOf(value, valueOptions);
        return PlanAddItem(text, Text(section), Text(tag), {raw.data(), raw.size()});
    });
}

int IniEditRemoveItem(IniEdit* edit, const char* section, const char* tag, int which)
{
    return Edit(edit, [&](const EditText& text) { return PlanRemoveItem(text, Text(section), Text(tag), which); });
}

int IniEditRenameItem(IniEdit* edit, const char* section, const char* tag, int which, const char* newTag)
{
    return Edit(edit, [&](const EditText& text) {
        return PlanRenameItem(text, Text(section), Text(tag), which, Text(newTag));
    });
}

int IniEditAddSection(IniEdit* edit, const char* section)
{
    return Edit(edit, [&](const EditText& text) { return PlanAddSection(text, Text(section)); });
}

int IniEditRemoveSection(IniEdit* edit, const char* section)
{
    return Edit(edit, [&](const EditText& text) { return PlanRemoveSection(text, Text(section)); });
}

int IniEditRenameSection(IniEdit* edit, const char* section, const char* newName)
{
    return Edit(edit, [&](const EditText& text) { return PlanRenameSection(text, Text(section), Text(newName)); });
}

int IniEditAddComment(IniEdit* edit, const char* section, const char* tag, int which, const char* comment)
{
    return Edit(edit, [&](const EditText& text) {
        if (tag != nullptr) {
            return PlanAddComments(text, Text(section), Text(tag), which, Text(comment));
        }
        return section != nullptr ? PlanAddSectionComments(text, Text(section), which, Text(comment))
                                  : PlanAddLastComment(text, Text(comment));
    });
}

int IniEditSetComment(IniEdit* edit, int line, const char* comment)
{
    return Edit(edit, [&](const EditText& text) {
        return PlanSetComment(text, line < 1 ? UINT_MAX : static_cast<unsigned>(line) - 1, Text(comment));
    });
}

int IniEditRemoveComment(IniEdit* edit, int line)
{
    return Edit(edit, [&](const EditText& text) {
        return PlanRemoveComment(text, line < 1 ? UINT_MAX : static_cast<unsigned>(line) - 1);
    });
}

int IniEditSave(IniEdit* edit)
{
    if (edit == nullptr) {
        return kIniErrFile;
    }
    return Guarded([&] {
        std::string text = edit->text.bytes();  // the copy comes first, because nothing may fail behind the save
        const int result = edit->file.Save(text, edit->saved);
        if (result == 1) {
            edit->saved = std::move(text);
        }
        return result;
    });
}

int IniEditLostRights(const IniEdit* edit)
{
    return edit == nullptr ? kIniErrFile : edit->file.lostRights();
}

int IniEditEscape(const char* value, size_t size, char** out, size_t* outSize)
{
    if (out == nullptr || (value == nullptr && size > 0)) {
        return kIniErrFile;
    }
    return Guarded([&] { return GiveCopy(AllEscaped({size == 0 ? "" : value, size}), out, outSize); });
}

int IniEditUnescape(const char* raw, size_t size, char** out, size_t* outSize)
{
    if (out == nullptr || (raw == nullptr && size > 0)) {
        return kIniErrFile;
    }
    return Guarded([&] {
        std::string value(size == 0 ? "" : raw, size);
        value.resize(qkini::Unescape({value.data(), value.size()}, value.data(), value.size()));
        return GiveCopy(value, out, outSize);
    });
}

}  // extern "C"
