// An edit must leave alone whatever it was not asked to change, so two things are proved before a file is replaced:
// that its reading lost nothing that the writing would not put back (RequireNothingLost), and that the new text reads
// back as the content that was meant (TextToWrite). What can't be proved is refused, and the file stays.

#include "Document.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "Lines.h"

namespace kzini {

namespace {

constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";
constexpr std::size_t kMarkSize = sizeof kUtf8Mark - 1;

// What the engine takes for white space.
constexpr char kBlanks[] = " \t\n\v\f\r";

// More is no configuration, and a device may have no end.
constexpr std::size_t kMostBytes = 256u << 20;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileOwner = std::unique_ptr<std::FILE, CloseFile>;

struct CodeText {
    int code;
    ExitStatus status;
    const char* text;
};

// What the program says of each code of the library, and the exit status that goes with it.
const CodeText& TextOf(int code)
{
    static constexpr CodeText kTexts[] = {
        {kIniErrLineTooShort, kRefused, "the width leaves no room for a value behind its tag"},
        {kIniErrUnicodeMark, kRefused, "text in UTF-16 or UTF-32"},
        {kIniErrName, kRefused, "a section or tag that could not be read back as itself"},
        {kIniErrMemory, kInputOutput, "out of memory"},
        {kIniErrPermission, kInputOutput, "may not be written, or its folder is missing"},
        {kIniErrFile, kInputOutput, "no such file, or a path too long"},
        {kIniErrWrite, kInputOutput, "a write failed"},
        {kIniErrRead, kInputOutput, "a read failed"},
        {kIniErrTemporary, kInputOutput, "no temporary file can be made beside it"},
        {kIniErrOpenForWrite, kInputOutput, "can't be opened for writing"},
    };
    static constexpr CodeText kOther = {0, kInputOutput, "the library failed"};
    for (const CodeText& text : kTexts) {
        if (text.code == code) {
            return text;
        }
    }
    return kOther;
}

int AppendLine(void* text, const char* line)
{
    *static_cast<std::string*>(text) += line;
    *static_cast<std::string*>(text) += '\n';
    return 1;
}

}  // namespace

Document::Document(std::string path, const Options& options, Purpose purpose)
    : m_path(std::move(path)), m_options(options), m_text(LoadFile(purpose))
{
    // The file is written as it was: with its mark, and with blanks around "=" where most of its items have them.
    m_writeOptions = kIniWriteSafely | kIniWriteMkstemp | kIniWriteSync | kIniWriteComments;
    m_writeOptions |= Body().size() != m_text.size() ? kIniWriteUtf8Bom : 0;
    m_writeOptions |= HasSpacedEquals() ? kIniWriteSpacedEquals : 0;
    m_ini = ReadText(m_text, m_options.width);
    if (purpose != Purpose::kQuery) {
        RequireNothingLost();
    }
}

std::string Document::LoadFile(Purpose purpose) const
{
    // An edit of what is no file would replace it by one.
    const FileOwner file(std::fopen(m_path.c_str(), "rbe"));
    if (file == nullptr && errno == ENOENT && purpose == Purpose::kEditOrCreate) {
        return {};
    }
    if (file == nullptr) {
        FailInput(std::strerror(errno));
    }
    struct stat status;
    if (purpose != Purpose::kQuery && fstat(fileno(file.get()), &status) == 0 && !S_ISREG(status.st_mode)) {
        FailInput("not a regular file");
    }
    std::string text;
    char buffer[65536];
    while (const std::size_t size = std::fread(buffer, 1, sizeof buffer, file.get())) {
        text.append(buffer, size);
        if (text.size() > kMostBytes) {
            Refuse("more than 256 MiB");
        }
    }
    if (std::ferror(file.get()) != 0) {
        FailInput(std::strerror(errno));
    }
    return text;
}

IniOwner Document::NewIni(int width) const
{
    IniOwner ini(IniNew(0));
    if (ini == nullptr) {
        throw std::bad_alloc();
    }
    const int colons = m_options.hasColons ? kIniReadColonAndNull : 0;
    IniSetReadOptions(ini.get(), kIniReadKeepEmpty | kIniReadStripDoubleQuotes | kIniReadKeepComments | colons);
    IniSetReadLimit(ini.get(), -1);  // files have ours, what is written from them may have more
    IniSetWriteOptions(ini.get(), width, 0, m_writeOptions);
    return ini;
}

IniOwner Document::ReadText(std::string_view text, int width) const
{
    IniOwner ini = NewIni(width);
    // There is no stream over an empty text.
    if (text.empty()) {
        return ini;
    }
    // The library looks for marks of encodings only in files and streams. It does not write to this one.
    const FileOwner stream(fmemopen(const_cast<char*>(text.data()), text.size(), "rb"));
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    Require(IniReadFromFilePtr(ini.get(), stream.get()));
    return ini;
}

std::string Document::WrittenBy(IniFile* ini) const
{
    std::string text((m_writeOptions & kIniWriteUtf8Bom) != 0 ? kUtf8Mark : "");
    Require(IniWrite(ini, &AppendLine, &text));
    return text;
}

std::string Document::TextToWrite() const
{
    // Read without a width, which only the writer has.
    std::string text = WrittenBy(m_ini.get());
    if (ContentOf(ReadText(text, -1).get()) != content()) {
        Refuse("the result would not be read back equal");
    }
    return text;
}

void Document::Save() const
{
    // A symbolic link stays one: what it leads to is replaced.
    std::string target = m_path;
    if (char* const resolved = realpath(m_path.c_str(), nullptr)) {
        struct stat status;
        if (lstat(m_path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) {
            target = resolved;
        }
        std::free(resolved);
    }
    Require(IniWriteToFile(m_ini.get(), target.c_str()));
}

Content Document::ContentOf(IniFile* ini) const
{
    // The decoded value and the line are asked for by name, because the library gives them by number to nobody. No name
    // stands twice in what it has read.
    Content content;
    const char* name = nullptr;
    for (int i = 1; IniNthSectionName(ini, i, &name) == 1; ++i) {
        Section section{name, IniLineOfSection(ini, name), {}};
        const char* tag = nullptr;
        for (int j = 1; IniNthItemName(ini, section.name.c_str(), j, &tag) == 1; ++j) {
            const char* raw = nullptr;
            const char* value = nullptr;
            IniNthItemPointerToString(ini, section.name.c_str(), j, &raw);
            Require(IniGetPointerToString(ini, section.name.c_str(), tag, &value));
            section.items.push_back({tag, raw, value, IniLineOfItem(ini, section.name.c_str(), tag)});
        }
        content.push_back(std::move(section));
    }
    return content;
}

void Document::RenameItem(const std::string& section, const std::string& tag, std::string_view newTag)
{
    newTag.remove_prefix(std::min(newTag.find_first_not_of(kBlanks), newTag.size()));
    newTag = newTag.substr(0, newTag.find_last_not_of(kBlanks) + 1);
    // The library has no call for it: the item's line is changed in the text that it writes, which is read again.
    // Without a width for that time, because an item on several lines has no one place for its tag.
    IniSetWriteOptions(m_ini.get(), -1, 0, m_writeOptions);
    std::string text = TextToWrite();
    const IniOwner copy = ReadText(text, -1);
    const int line = IniLineOfItem(copy.get(), section.c_str(), tag.c_str());
    Content expected = ContentOf(copy.get());
    for (Section& each : expected) {
        for (Item& item : each.items) {
            if (item.line == line) {
                item.tag = newTag;
            }
        }
    }
    // The text is the writer's, with a line feed behind each line, so its lines can be counted by these alone.
    std::size_t start = (m_writeOptions & kIniWriteUtf8Bom) != 0 ? kMarkSize : 0;
    for (int i = 1; i < line; ++i) {
        start = text.find('\n', start) + 1;
    }
    const char* name = nullptr;
    for (int i = 1; IniNthItemName(copy.get(), section.c_str(), i, &name) == 1; ++i) {
        if (IniLineOfItem(copy.get(), section.c_str(), name) == line) {
            text.replace(start, std::strlen(name), newTag);
            break;
        }
    }
    m_ini = ReadText(text, m_options.width);
    if (content() != expected) {
        Require(kIniErrName);
    }
}

std::string_view Document::Body() const
{
    const std::string_view text = m_text;
    return text.substr(text.substr(0, kMarkSize) == kUtf8Mark ? kMarkSize : 0);
}

// Whether at least half of the file's items have a blank in front of their "="; a new file has it so. A look at the
// lines is enough, because a wrong guess costs looks and no content.
bool Document::HasSpacedEquals() const
{
    TextInput lines(Body());
    std::string line;
    int number = 0;
    long balance = 0;
    while (lines.NextLine(&line, &number)) {
        const std::size_t start = line.find_first_not_of(" \t");
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos && equals > 0 && line[start] != ';' && line[start] != '[') {
            balance += line[equals - 1] == ' ' ? 1 : -1;
        }
    }
    return balance >= 0;
}

// Refuses a file with an item before the first section, which the engine drops unless it reads colons. All other lines
// are kept by the writer, as comments if as nothing else.
void Document::RequireNothingLost() const
{
    if (m_options.hasColons) {
        return;
    }
    TextInput lines(Body());
    LineClassifier classifier(kIniReadKeepEmpty);
    std::string line;
    int number = 0;
    while (lines.NextLine(&line, &number)) {
        const LineKind kind = classifier.KindOf(line);
        if (kind == LineKind::kSection) {
            return;
        }
        if (kind == LineKind::kItem) {
            Refuse("line " + std::to_string(number) + " stands before any section and would be lost; see --colons");
        }
    }
}

int Document::LineCount() const
{
    TextInput lines(Body());
    std::string line;
    int number = 0;
    int count = 0;
    while (lines.NextLine(&line, &number)) {
        ++count;
    }
    return count;
}

std::vector<BadLine> Document::BadLines() const
{
    // Line by line, because the engine tells of the first unrecognized line only, and of a dropped item not at all.
    std::vector<BadLine> bad;
    TextInput lines(Body());
    LineClassifier classifier(kIniReadKeepEmpty | (m_options.hasColons ? kIniReadColonAndNull : 0));
    std::string line;
    int number = 0;
    bool isInSection = m_options.hasColons;
    while (lines.NextLine(&line, &number)) {
        const LineKind kind = classifier.KindOf(line);
        isInSection = isInSection || kind == LineKind::kSection;
        if (kind == LineKind::kUnrecognized) {
            bad.push_back({number, line, "neither item, section nor comment"});
        } else if (kind == LineKind::kItem && !isInSection) {
            bad.push_back({number, line, "an item before any section"});
        }
    }
    return bad;
}

void Document::Require(int result) const
{
    if (result < 0) {
        const CodeText& text = TextOf(result);
        throw Failure{text.status, m_path + ": " + text.text + " (" + std::to_string(result) + ")"};
    }
}

void Document::Refuse(const std::string& why) const
{
    throw Failure{kRefused, m_path + ": " + why};
}

void Document::FailInput(const std::string& why) const
{
    throw Failure{kInputOutput, m_path + ": " + why};
}

}  // namespace kzini
