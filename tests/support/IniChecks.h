// INI objects from text, which are walked before they are disposed of, and what they hold and write.
#ifndef KZCORE_TESTS_INICHECKS_H
#define KZCORE_TESTS_INICHECKS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "IniFile.h"
#include "IniModel.h"

namespace kztest {

struct CheckAndDisposeIni {
    void operator()(IniFile* ini) const
    {
        EXPECT_STREQ(nullptr, qkini::Fault(ini));
        IniDispose(ini);
    }
};
using CheckedIni = std::unique_ptr<IniFile, CheckAndDisposeIni>;

inline CheckedIni NewIni(int sorted = 0)
{
    return CheckedIni(IniNew(sorted));
}

// Gives a text in pieces of at most `piece` bytes.
struct TextStream {
    std::string text;
    std::size_t piece = kIniInputChunk;
    std::size_t used = 0;

    static int Read(void* context, int size, int* actual, void* buffer)
    {
        auto* const self = static_cast<TextStream*>(context);
        const std::size_t rest = self->text.size() - self->used;
        const std::size_t part = std::min({rest, self->piece, static_cast<std::size_t>(size)});
        std::memcpy(buffer, self->text.data() + self->used, part);
        self->used += part;
        *actual = static_cast<int>(part);
        return 1;
    }
};

inline int ReadText(IniFile* ini, const std::string& text, std::size_t piece = kIniInputChunk,
                    IniInputFunction function = &IniLineFileInputFunction)
{
    TextStream stream{text, piece};
    IniLineInput input{};
    input.read = &TextStream::Read;
    input.context = &stream;
    return IniRead(ini, function, &input);
}

inline CheckedIni Reading(const std::string& text, int readOptions = kIniReadStripDoubleQuotes, int sorted = 0)
{
    CheckedIni ini = NewIni(sorted);
    IniSetReadOptions(ini.get(), readOptions);
    EXPECT_EQ(1, ReadText(ini.get(), text));
    return ini;
}

using Lines = std::vector<std::string>;

inline int AddLine(void* lines, const char* line)
{
    static_cast<Lines*>(lines)->push_back(line);
    return 1;
}

inline Lines LinesOf(IniFile* ini, int expected = 1)
{
    Lines lines;
    EXPECT_EQ(expected, IniWrite(ini, &AddLine, &lines));
    return lines;
}

inline std::string TextOf(const Lines& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

using Items = std::vector<std::pair<std::string, std::string>>;
using Sections = std::vector<std::pair<std::string, Items>>;

// All sections with their items' raw values, also where several have a name.
inline Sections ContentOf(const IniFile* ini)
{
    Sections content;
    for (int i = 0; i < ini->sections.Count(); ++i) {
        const IniSection* const section = qkini::SectionAt(ini, i);
        Items items;
        for (int j = 0; j < section->items.Count(); ++j) {
            items.emplace_back(qkini::ItemAt(section, j)->name, qkini::ItemAt(section, j)->value);
        }
        content.emplace_back(section->name, std::move(items));
    }
    return content;
}

}  // namespace kztest

#endif
