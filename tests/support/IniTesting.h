// INI objects from text, and their content as text.
#ifndef KZCORE_TESTS_INITESTING_H
#define KZCORE_TESTS_INITESTING_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "IniFile.h"

namespace kztest {

struct DisposeIni {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using IniOwner = std::unique_ptr<IniFile, DisposeIni>;

inline IniOwner NewIni(int sorted = 0)
{
    return IniOwner(IniNew(sorted));
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

inline int ReadText(IniFile* ini, const std::string& text, std::size_t piece = kIniInputChunk)
{
    TextStream stream{text, piece};
    IniLineInput input{};
    input.read = &TextStream::Read;
    input.context = &stream;
    return IniRead(ini, &IniLineFileInputFunction, &input);
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

// All sections with their items' raw values, through the queries by number.
inline Sections SectionsOf(IniFile* ini)
{
    Sections sections;
    const char* section = nullptr;
    for (int i = 1; IniNthSectionName(ini, i, &section) == 1; ++i) {
        Items items;
        const char* name = nullptr;
        const char* value = nullptr;
        for (int j = 1; IniNthItemName(ini, section, j, &name) == 1; ++j) {
            EXPECT_EQ(1, IniNthItemPointerToString(ini, section, j, &value));
            items.emplace_back(name, value);
        }
        sections.emplace_back(section, std::move(items));
    }
    return sections;
}

}  // namespace kztest

#endif
