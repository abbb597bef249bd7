#include "Engine.h"

#include <kzcore/IniEdit.h>
#include <kzcore/IniFile.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "Options.h"

namespace kzini {

namespace {

struct DisposeIni {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using IniOwner = std::unique_ptr<IniFile, DisposeIni>;

// In front of lines that the engine is to take for comments. Comments that look so get it too, hence it can be taken
// away again from every line that has it.
constexpr std::string_view kCommentMark = ";\x01";

void RequireSuccess(int result)
{
    if (result == kIniErrMemory) {
        throw std::bad_alloc();
    }
    if (result < 0) {
        throw Failure{kRefused, "the width leaves no room for a value behind its tag (" + std::to_string(result) + ")"};
    }
}

IniOwner NewIni(int readOptions)
{
    IniOwner ini(IniNew(0));
    if (ini == nullptr) {
        throw std::bad_alloc();
    }
    IniSetReadOptions(ini.get(), kIniReadKeepEmpty | kIniReadStripDoubleQuotes | readOptions);
    IniSetReadLimit(ini.get(), -1);
    return ini;
}

std::string Converted(int (*convert)(const char*, std::size_t, char**, std::size_t*), const std::string& text)
{
    char* result = nullptr;
    std::size_t size = 0;
    RequireSuccess(convert(text.data(), text.size(), &result, &size));
    const std::unique_ptr<char, decltype(&std::free)> owner(result, &std::free);
    return {result, size};
}

// Gives lines to the engine, in pieces of the size that it has room for.
class LineSource {
public:
    explicit LineSource(const std::vector<std::string>& lines) : m_lines(lines) {}

    static int Next(void* context, char* buffer, int size, int* isEnd, int* isComplete, int* number)
    {
        auto& self = *static_cast<LineSource*>(context);
        *isEnd = self.m_index == self.m_lines.size() ? 1 : 0;
        *isComplete = 0;
        buffer[0] = 0;
        *number = static_cast<int>(self.m_index) + 1;
        if (*isEnd == 0) {
            const std::string_view rest = std::string_view(self.m_lines[self.m_index]).substr(self.m_offset);
            const std::size_t part = std::min(rest.size(), static_cast<std::size_t>(size) - 1);
            std::memcpy(buffer, rest.data(), part);
            buffer[part] = 0;
            *isComplete = part == rest.size() ? 1 : 0;
            self.m_offset = *isComplete != 0 ? 0 : self.m_offset + part;
            self.m_index += *isComplete != 0 ? 1 : 0;
        }
        return 1;
    }

private:
    const std::vector<std::string>& m_lines;
    std::size_t m_index = 0;
    std::size_t m_offset = 0;
};

int AppendLine(void* lines, const char* line)
{
    std::string_view text = line;
    if (text.substr(0, kCommentMark.size()) == kCommentMark) {
        text.remove_prefix(kCommentMark.size());
    }
    static_cast<std::vector<std::string>*>(lines)->emplace_back(text);
    return 1;
}

}  // namespace

std::string Decoded(const std::string& raw)
{
    return Converted(&IniEditUnescape, raw);
}

std::string Encoded(const std::string& value)
{
    return Converted(&IniEditEscape, value);
}

std::vector<std::string> SortedLines(const std::vector<std::string>& lines, const std::vector<bool>& asComments,
                                     const SortOptions& options)
{
    const IniOwner ini = NewIni(kIniReadKeepComments | (options.hasColons ? kIniReadColonAndNull : 0));
    // Items and sections of one name stay beside each other, none is lost.
    IniSetDuplicateChecking(ini.get(), 0);
    IniSetWriteOptions(ini.get(), options.width, 0, kIniWriteComments | (options.isSpaced ? kIniWriteSpacedEquals : 0));
    std::vector<std::string> marked = lines;
    for (std::size_t i = 0; i < marked.size(); ++i) {
        if (asComments[i] || marked[i].starts_with(kCommentMark)) {
            marked[i].insert(0, kCommentMark);
        }
    }
    LineSource source(marked);
    RequireSuccess(IniRead(ini.get(), &LineSource::Next, &source));
    RequireSuccess(IniSort(ini.get()));
    std::vector<std::string> sorted;
    RequireSuccess(IniWrite(ini.get(), &AppendLine, &sorted));
    return sorted;
}

}  // namespace kzini
