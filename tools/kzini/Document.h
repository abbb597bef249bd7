// One INI file as the commands see it: read whole, edited through the library's object, compared and saved.
#ifndef KZINI_DOCUMENT_H
#define KZINI_DOCUMENT_H

#include <kzcore/IniFile.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kzini {

enum ExitStatus { kDone = 0, kNoSuchItem = 1, kUsage = 2, kRefused = 3, kInputOutput = 4 };

// Ends the program with a status and one line on stderr.
struct Failure {
    ExitStatus status;
    std::string text;  // its control characters are made printable
};

struct DisposeIni {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using IniOwner = std::unique_ptr<IniFile, DisposeIni>;

// One item as the file has it.
struct Item {
    std::string tag;
    std::string raw;
    std::string value;  // decoded
    int line;           // -1 for one that did not come from the file
    // Not the line, which an edit in front of the item moves, nor the decoded value, which follows from the raw one.
    bool operator==(const Item& other) const { return tag == other.tag && raw == other.raw; }
};

struct Section {
    std::string name;
    int line;
    std::vector<Item> items;
    bool operator==(const Section& other) const { return name == other.name && items == other.items; }
};

using Content = std::vector<Section>;

// A line that the engine does not keep as what it seems to be.
struct BadLine {
    int line;
    std::string text;
    const char* reason;
};

// Not copied: its object is one.
class Document {
public:
    struct Options {
        bool hasColons = false;  // ":" separates too, and items may stand before the first section
        int width = -1;          // of written lines; -1 without a limit
    };
    enum class Purpose {
        kQuery,
        kEdit,          // refuses a file that would lose lines when it is written
        kEditOrCreate,  // likewise, and takes a missing file for an empty one
    };

    // Reads the file; throws Failure when it can't be.
    Document(std::string path, const Options& options, Purpose purpose);

    IniFile* ini() const { return m_ini.get(); }
    const Options& options() const { return m_options; }

    // The file as it was read.
    std::string_view text() const { return m_text; }

    // The file as it would be written now. Throws Failure for what would not be read back equal.
    std::string TextToWrite() const;

    // Writes the file, through a temporary one that takes its place. Throws Failure.
    void Save() const;

    Content content() const { return ContentOf(m_ini.get()); }

    // Gives an item another tag where it stands. Throws Failure.
    void RenameItem(const std::string& section, const std::string& tag, std::string_view newTag);

    int LineCount() const;
    std::vector<BadLine> BadLines() const;

    // Throw Failure: for a negative result of the library, for a file that can't be edited so, and for one that can't
    // be read. All name the file.
    void Require(int result) const;
    [[noreturn]] void Refuse(const std::string& why) const;
    [[noreturn]] void FailInput(const std::string& why) const;

private:
    Content ContentOf(IniFile* ini) const;
    IniOwner NewIni(int width) const;
    IniOwner ReadText(std::string_view text, int width) const;
    std::string WrittenBy(IniFile* ini) const;
    std::string LoadFile(Purpose purpose) const;
    void RequireNothingLost() const;
    bool HasSpacedEquals() const;
    std::string_view Body() const;

    std::string m_path;
    Options m_options;
    std::string m_text;
    int m_writeOptions = 0;
    IniOwner m_ini;
};

}  // namespace kzini

#endif
