// One INI file as the commands see it: opened, asked and saved through the library's line-by-line edits. "-" is the
// standard input, and what it becomes goes to the standard output.
#ifndef KZINI_DOCUMENT_H
#define KZINI_DOCUMENT_H

#include <kzcore/IniEdit.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Options.h"

namespace kzini {

struct CloseEdit {
    void operator()(IniEdit* edit) const { IniEditClose(edit); }
};
using EditOwner = std::unique_ptr<IniEdit, CloseEdit>;

// One item as the file has it.
struct Item {
    std::string tag;
    std::string raw;  // the value between its quotes, if it has any
    int quote;        // these, or 0
    int line;
};

// All items of a name's sections, in the order of the file.
struct Section {
    std::string name;
    int line;  // of the first such section; -1 for the items in front of any
    std::vector<Item> items;
};

// A line that the engine does not take for what it seems to be.
struct BadLine {
    int line;
    std::string text;
    const char* reason;
};

class Document {
public:
    enum class Purpose {
        kQuery,
        kEdit,
        kEditOrCreate,  // takes a missing file for an empty one
    };

    // Reads `path`, and for an edit keeps others from it until the object's end. Throws Failure when it can't.
    Document(const Request& request, const std::string& path, Purpose purpose);

    IniEdit* edit() const { return m_edit.get(); }
    const std::string& path() const { return m_path; }

    // The bytes as they were read, and as they are by now.
    std::string_view original() const { return m_original; }
    std::string_view text() const;

    bool IsStandardInput() const { return m_path == "-"; }

    // The name that the library knows a section by; "(null)" may stand for "" with --colons.
    std::string NameOf(const std::string& section) const;

    std::vector<Section> Sections() const;
    std::vector<BadLine> BadLines() const;
    // The items of a tag in order; throws Failure, by name, when the section or the tag is missing.
    std::vector<Item> Items(const std::string& section, const std::string& tag) const;
    bool HasSection(const std::string& section) const;
    int Count(const std::string& section, const std::string& tag) const;
    // A line of the file, from 1.
    IniEditLine Line(int number) const;

    // Writes the file, and FILE~ first where that is asked for. Throws Failure.
    void Save() const;
    // Makes `text` the whole text. Throws Failure.
    void Replace(const std::string& text) const;

    // Throw Failure: for a negative result of the library, for something missing, for what can't be done to this file.
    // All name the file.
    void Require(int result) const;
    [[noreturn]] void FailMissing(const std::string& section, const std::string* tag) const;
    [[noreturn]] void Refuse(const std::string& why) const;

private:
    void Open(Purpose purpose);
    void ExplainOpen(int result, bool isEdit) const;
    void OpenText(std::string_view text);
    void RequireText() const;
    void MakeBackup() const;
    [[noreturn]] void FailInput(const std::string& why) const;

    std::string m_path;
    bool m_hasColons;
    bool m_isBackup;
    bool m_isDryRun;
    bool m_isJson;
    int m_readOptions;
    int m_options;
    bool m_isNew = false;  // there was no file
    EditOwner m_edit;
    std::string m_original;
};

// Orders names as the library compares them.
struct NameLess {
    bool operator()(const std::string& a, const std::string& b) const;
};

bool IsSameName(const std::string& a, const std::string& b);

// Where something is, and how often, for people: "section [net]", "2 times".
std::string PlaceText(const std::string& section);
std::string TimesText(std::size_t count);

}  // namespace kzini

#endif
