// INI objects from text. Needs the public functions only.
#ifndef KZCORE_TESTS_INITESTING_H
#define KZCORE_TESTS_INITESTING_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "IniFile.h"

namespace kztest {

struct DisposeIni {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using IniOwner = std::unique_ptr<IniFile, DisposeIni>;

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

}  // namespace kztest

#endif
