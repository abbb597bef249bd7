#include "Document.h"

#include <fcntl.h>
#include <kzcore/IniFile.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <new>
#include <system_error>

#include "Text.h"

namespace kzini {

namespace {

// More is no configuration, and a pipe may have no end.
constexpr std::size_t kMostBytes = 256U << 20;

constexpr char kNoSection[] = "(null)";

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
        {kIniErrUnicodeMark, kRefused, "text in UTF-16 or UTF-32; convert it to UTF-8 first"},
        {kIniErrName, kRefused, "a section or tag that could not be read back as itself"},
        {kIniErrNotProved, kRefused, "programs would read more changes than this one"},
        {kIniErrLinks, kRefused, "the file has other names, hard links; --in-place keeps them"},
        {kIniErrMemory, kInputOutput, "out of memory, or a file of more than 256 MiB"},
        {kIniErrPermission, kInputOutput, "may not be written, or its folder is missing"},
        {kIniErrFile, kInputOutput, "no such file, or a path too long"},
        {kIniErrOpen, kInputOutput, "can't be opened"},
        {kIniErrLock, kInputOutput, "can't be locked"},
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

std::string WholeStandardInput()
{
    std::string text;
    char buffer[65536];
    while (const std::size_t size = std::fread(buffer, 1, sizeof buffer, stdin)) {
        text.append(buffer, size);
        if (text.size() > kMostBytes) {
            throw Failure{kRefused, "-: more than 256 MiB"};
        }
    }
    if (std::ferror(stdin) != 0) {
        throw Failure{kInputOutput, std::string("-: ") + std::strerror(errno)};
    }
    return text;
}

// Why a file can't be opened, or for an edit not written or made, in the system's words, or "" when it can.
std::string WhyNotOpened(const std::string& path, bool isEdit)
{
    if (access(path.c_str(), isEdit ? R_OK | W_OK : R_OK) == 0) {
        return {};
    }
    int error = errno;
    if (error == ENOENT && isEdit) {
        const std::string folder = path.substr(0, path.rfind('/') + 1) + ".";
        error = access(folder.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
    }
    return error == 0 ? "" : std::strerror(error);
}

// Writes a new file with the rights of `status`, and no more: what an access control list allows besides, or keeps from
// the group, isn't known to it, and neither is a group that this process can't give away. Returns 0 or an errno.
int WriteCopy(const std::string& path, std::string_view text, const struct stat& status, bool hasAcl)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) {
        return errno;
    }
    bool isGood = true;
    while (isGood && !text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        isGood = written > 0 || (written < 0 && errno == EINTR);
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    const bool isOwned = fchown(file, status.st_uid, status.st_gid) == 0 || status.st_gid == getegid();
    const mode_t mode = status.st_mode & (hasAcl || !isOwned ? S_IRWXU : S_IRWXU | S_IRWXG | S_IRWXO);
    isGood = isGood && fchmod(file, mode) == 0 && fsync(file) == 0;
    const int error = isGood ? 0 : errno;
    close(file);
    if (!isGood) {
        unlink(path.c_str());
    }
    return error;
}

bool IsMissing(const std::string& path)
{
    return access(path.c_str(), F_OK) != 0 && errno == ENOENT;
}

Item ItemOf(const IniEditLine& line)
{
    return {std::string(line.tag, line.tagSize), std::string(line.value, line.valueSize), line.quote, line.number};
}

}  // namespace

bool NameLess::operator()(const std::string& a, const std::string& b) const
{
    return qkini_StrICmpWithoutSurrWhiteSpace(a.c_str(), b.c_str()) < 0;
}

bool IsSameName(const std::string& a, const std::string& b)
{
    return qkini_StrICmpWithoutSurrWhiteSpace(a.c_str(), b.c_str()) == 0;
}

std::string TimesText(std::size_t count)
{
    return count == 1 ? "once" : std::to_string(count) + " times";
}

std::string PlaceText(const std::string& section)
{
    return section.empty() ? "front of the first section" : "section [" + section + "]";
}

Document::Document(const Request& request, const std::string& path, Purpose purpose)
    : m_path(path),
      m_hasColons(request.Has(kColons)),
      m_isBackup(request.Has(kBackup)),
      m_isDryRun(request.Has(kDryRun)),
      m_isJson(request.Has(kJson)),
      m_readOptions(kIniReadKeepEmpty | kIniReadStripDoubleQuotes | (m_hasColons ? kIniReadColonAndNull : 0)),
      m_options((request.Has(kNoHash) ? 0 : kIniEditHashComments) | (request.Has(kInPlace) ? kIniEditInPlace : 0))
{
    if (IsStandardInput()) {
        OpenText(WholeStandardInput());
    } else {
        Open(purpose);
    }
    m_original = text();
    RequireText();
}

void Document::Open(Purpose purpose)
{
    m_isNew = IsMissing(m_path);
    if (m_isNew && purpose == Purpose::kEditOrCreate && m_isDryRun) {
        OpenText({});
        return;
    }
    const bool isReadOnly = purpose == Purpose::kQuery || m_isDryRun;
    const int options =
        m_options | (isReadOnly ? kIniEditReadOnly : 0) | (purpose == Purpose::kEditOrCreate ? 0 : kIniEditMustExist);
    IniEdit* edit = nullptr;
    const int result = IniEditOpen(&edit, m_path.c_str(), m_readOptions, options);
    m_edit.reset(edit);
    if (result < 0) {
        ExplainOpen(result, !isReadOnly);
    }
    Require(result);
}

// Fails in the system's words where it has any for what is there.
void Document::ExplainOpen(int result, bool isEdit) const
{
    std::error_code error;
    const auto type = std::filesystem::status(m_path, error).type();
    if (type == std::filesystem::file_type::directory) {
        FailInput(std::strerror(EISDIR));
    }
    if (result == kIniErrPermission && !error && type != std::filesystem::file_type::regular && !m_isNew) {
        FailInput("not a regular file");
    }
    if (result == kIniErrMemory && type == std::filesystem::file_type::regular &&
        std::filesystem::file_size(m_path, error) > kMostBytes) {
        Refuse("more than 256 MiB");
    }
    if (result == kIniErrFile || result == kIniErrOpen || result == kIniErrPermission) {
        // What has to be there is missing; else what would have to be made is.
        const std::string why = WhyNotOpened(m_path, isEdit && result == kIniErrPermission);
        if (!why.empty()) {
            FailInput(why);
        }
    }
}

void Document::OpenText(std::string_view text)
{
    IniEdit* edit = nullptr;
    const int result = IniEditOpenText(&edit, text.data(), text.size(), m_readOptions, m_options);
    m_edit.reset(edit);
    Require(result);
}

// Refuses NULs, which are no part of any text that people edit: the engine takes them for ends of lines, so that text
// in UTF-16 without a mark would look like INI text.
void Document::RequireText() const
{
    const std::size_t at = m_original.find('\0');
    if (at != std::string::npos) {
        Refuse("a NUL at offset " + std::to_string(at) + ", so this is no text, or UTF-16");
    }
}

std::string_view Document::text() const
{
    const char* bytes = nullptr;
    std::size_t size = 0;
    Require(IniEditGetText(m_edit.get(), &bytes, &size));
    return {bytes, size};
}

std::string Document::NameOf(const std::string& section) const
{
    const bool isInFront = m_hasColons && section == kNoSection && IniEditCountSections(edit(), kNoSection) == 0;
    return isInFront ? "" : section;
}

IniEditLine Document::Line(int number) const
{
    IniEditLine line{};
    Require(IniEditGetLine(edit(), number, &line));
    return line;
}

std::vector<Section> Document::Sections() const
{
    // Sections of one name are one, as the engine has it.
    std::vector<Section> sections;
    std::map<std::string, std::size_t, NameLess> places;
    const int count = IniEditCountLines(edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = Line(i);
        if (line.kind != kIniEditSection && line.kind != kIniEditItem) {
            continue;
        }
        std::string name(line.section, line.sectionSize);
        const int number = name.empty() ? -1 : line.number;
        if (name.empty() && m_hasColons) {
            name = kNoSection;
        }
        const auto [place, isNew] = places.emplace(name, sections.size());
        if (isNew) {
            sections.push_back({std::move(name), number, {}});
        }
        if (line.kind == kIniEditItem) {
            sections[place->second].items.push_back(ItemOf(line));
        }
    }
    return sections;
}

std::vector<BadLine> Document::BadLines() const
{
    std::vector<BadLine> bad;
    const int count = IniEditCountLines(edit());
    for (int i = 1; i <= count; ++i) {
        const IniEditLine line = Line(i);
        const bool isItem = line.kind == kIniEditItem || line.kind == kIniEditPart;
        if (line.kind == kIniEditUnrecognized) {
            bad.push_back({i, std::string(line.text, line.textSize), "neither item, section nor comment"});
        } else if (isItem && line.sectionSize == 0 && !m_hasColons) {
            bad.push_back({i, std::string(line.text, line.textSize), "an item before any section"});
        }
    }
    return bad;
}

bool Document::HasSection(const std::string& section) const
{
    return section.empty() || IniEditCountSections(edit(), section.c_str()) > 0;
}

int Document::Count(const std::string& section, const std::string& tag) const
{
    const int count = IniEditCountItems(edit(), section.c_str(), tag.c_str());
    Require(count);
    return count;
}

std::vector<Item> Document::Items(const std::string& section, const std::string& tag) const
{
    const int count = Count(section, tag);
    if (count == 0) {
        FailMissing(section, &tag);
    }
    std::vector<Item> items;
    for (int i = 1; i <= count; ++i) {
        IniEditLine line{};
        Require(IniEditGetItem(edit(), section.c_str(), tag.c_str(), i, &line));
        items.push_back(ItemOf(line));
    }
    return items;
}

void Document::Save() const
{
    MakeBackup();
    Require(IniEditSave(edit()));
    const int lost = IniEditLostRights(edit());
    if (lost > 0) {
        const std::string text =
            m_path + ": written, but could not keep its" + ((lost & kIniLostOwner) != 0 ? " owner" : "") +
            ((lost & kIniLostGroup) != 0 ? " group" : "") + ((lost & kIniLostMode) != 0 ? " mode" : "");
        const std::string line = m_isJson ? "{" + Member("warning", text) + "}" : "kzini: " + Printable(text);
        std::fprintf(stderr, "%s\n", line.c_str());
    }
}

void Document::Replace(const std::string& text) const
{
    Require(IniEditSetText(edit(), text.data(), text.size()));
}

void Document::MakeBackup() const
{
    if (!m_isBackup || m_isNew) {
        return;
    }
    // A new file each time, so that a link of this name leads the bytes nowhere else. The lock that the document holds
    // keeps the file as it was read.
    const std::string copy = m_path + "~";
    struct stat status;
    const bool isRemoved = unlink(copy.c_str()) == 0 || errno == ENOENT;
    int error = isRemoved && stat(m_path.c_str(), &status) == 0 ? 0 : errno;
    if (error == 0) {
        const bool hasAcl = getxattr(m_path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
        error = WriteCopy(copy, m_original, status, hasAcl);
    }
    if (error != 0) {
        throw Failure{kInputOutput, copy + ": " + std::strerror(error)};
    }
}

void Document::Require(int result) const
{
    if (result < 0) {
        const CodeText& text = TextOf(result);
        throw Failure{text.status, m_path + ": " + text.text + " (" + std::to_string(result) + ")"};
    }
}

void Document::FailMissing(const std::string& section, const std::string* tag) const
{
    const bool isTagMissing = tag != nullptr && HasSection(section);
    const std::string what = isTagMissing ? *tag + " in " : section.empty() ? "item in " : "";
    throw Failure{kNoSuchItem, m_path + ": no " + what + PlaceText(section)};
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
