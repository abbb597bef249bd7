// Any bytes as an INI file: what is read, written and read again is equal, under all options; and the queries, edits
// and the sort agree with each other.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "IniFile.h"

namespace {

using kzfuzz::Require;

struct Dispose {
    void operator()(IniFile* ini) const { IniDispose(ini); }
};
using Owner = std::unique_ptr<IniFile, Dispose>;

// A text in pieces of a size.
struct Pieces {
    std::string_view text;
    std::size_t size;

    static int Read(void* context, int size, int* actual, void* buffer)
    {
        auto* const self = static_cast<Pieces*>(context);
        const std::size_t part = std::min({self->text.size(), self->size, static_cast<std::size_t>(size)});
        std::memcpy(buffer, self->text.data(), part);
        self->text.remove_prefix(part);
        *actual = static_cast<int>(part);
        return 1;
    }
};

struct Settings {
    int readOptions;
    int writeOptions;
    int sorted;
    int checksDuplicates;
    int caseSensitive;
};

Owner Read(const Settings& settings, std::string_view text, std::size_t piece)
{
    Owner ini(IniNew(settings.sorted));
    Require(ini != nullptr, "memory");
    IniSetReadOptions(ini.get(), settings.readOptions);
    IniSetWriteOptions(ini.get(), -1, 0, settings.writeOptions);
    IniSetDuplicateChecking(ini.get(), settings.checksDuplicates);
    IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), settings.caseSensitive);
    Pieces pieces{text, piece};
    IniLineInput input{};
    input.read = &Pieces::Read;
    input.context = &pieces;
    Require(IniRead(ini.get(), &IniLineFileInputFunction, &input) == 1, "any text can be read");
    return ini;
}

int AppendLine(void* text, const char* line)
{
    *static_cast<std::string*>(text) += line;
    *static_cast<std::string*>(text) += '\n';
    return 1;
}

std::string Write(IniFile* ini)
{
    std::string text;
    Require(IniWrite(ini, &AppendLine, &text) == 1, "without a limit any content can be written");
    return text;
}

// Looks each item up by its name.
void CheckQueries(IniFile* ini)
{
    const char* section = nullptr;
    int sections = 0;
    while (IniNthSectionName(ini, sections + 1, &section) == 1) {
        ++sections;
        Require(IniSectionExists(ini, section) == 1, "a section is found by its name");
        const char* tag = nullptr;
        const char* value = nullptr;
        int items = 0;
        while (IniNthItemName(ini, section, items + 1, &tag) == 1) {
            ++items;
            Require(IniGetPointerToString(ini, section, tag, &value) == 1, "an item is found by its name");
        }
        Require(items == IniNumberOfItems(ini, section), "items are counted");
    }
    Require(sections == IniNumberOfSections(ini), "sections are counted");
}

// Removes everything, from the front or the back.
void RemoveAll(IniFile* ini, bool fromFront)
{
    const char* section = nullptr;
    for (int left = IniNumberOfSections(ini); left > 0; --left) {
        Require(IniNthSectionName(ini, fromFront ? 1 : left, &section) == 1, "a section is left");
        const std::string name = section;
        Require(IniRemoveSection(ini, name.c_str()) == 1, "a section is removed");
        Require(IniNumberOfSections(ini) == left - 1, "one section is removed");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3) {
        return 0;
    }
    const Settings settings{data[0] & 31, data[1] & (kIniWriteSpacedEquals | kIniWriteComments), data[0] >> 5 & 1,
                            data[0] >> 6 & 1, data[0] >> 7};
    const std::size_t piece = data[2] % 64u + 1;
    const std::string_view text(reinterpret_cast<const char*>(data) + 3, size - 3);
    const Owner first = Read(settings, text, kIniInputChunk);
    const std::string written = Write(first.get());
    Require(written == Write(Read(settings, text, piece).get()), "pieces make no difference");
    CheckQueries(first.get());

    // A tag can look like a continuation only where it is none, so what was written is stable from the first time on.
    const Owner second = Read(settings, written, piece);
    const std::string again = Write(second.get());
    const Owner third = Read(settings, again, kIniInputChunk);
    Require(again == Write(third.get()), "what was read and written is read equal");

    IniSort(second.get());
    CheckQueries(second.get());
    RemoveAll(third.get(), (data[2] & 64) != 0);
    return 0;
}
