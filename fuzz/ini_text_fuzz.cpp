// Any bytes as an INI file: what is read, written and read again is equal, under all options; the queries, edits and
// the sort agree with each other; a read keeps to its limit, and cut lines to theirs.

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

Owner Read(const Settings& settings, std::string_view text, std::size_t piece, long long limit = -1)
{
    Owner ini(IniNew(settings.sorted));
    Require(ini != nullptr, "memory");
    IniSetReadOptions(ini.get(), settings.readOptions);
    IniSetWriteOptions(ini.get(), -1, 0, settings.writeOptions);
    IniSetDuplicateChecking(ini.get(), settings.checksDuplicates);
    IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), settings.caseSensitive);
    IniSetReadLimit(ini.get(), limit);
    const bool isWithin = limit == -1 || static_cast<long long>(text.size()) <= limit;
    Pieces pieces{text, piece};
    IniLineInput input{};
    input.read = &Pieces::Read;
    input.context = &pieces;
    const int result = IniRead(ini.get(), &IniLineFileInputFunction, &input);
    Require(result == (isWithin ? 1 : kIniErrMemory), "any text can be read that is within the limit");
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

// Puts the items' values in quotes and cuts them: what is read back is equal, but for the quotes.
void CheckCuts(const Settings& settings, const Owner& ini, int width)
{
    const char* section = nullptr;
    for (int i = 1; IniNthSectionName(ini.get(), i, &section) == 1; ++i) {
        const char* tag = nullptr;
        for (int j = 1; IniNthItemName(ini.get(), section, j, &tag) == 1; ++j) {
            const std::string sectionName = section;
            const std::string tagName = tag;
            const char* value = nullptr;
            Require(IniNthItemPointerToString(ini.get(), section, j, &value) == 1, "an item has a value");
            const int result =
                IniPutRawString(ini.get(), sectionName.c_str(), tagName.c_str(), std::string(value).c_str());
            Require(result == 1, "an item that is there can be put");
        }
    }
    const std::string whole = Write(ini.get());
    IniSetWriteOptions(ini.get(), width, ',', settings.writeOptions);
    std::string cut;
    if (IniWrite(ini.get(), &AppendLine, &cut) == 1) {
        const Settings stripping{settings.readOptions | kIniReadStripDoubleQuotes, settings.writeOptions, 0, 1, 0};
        Require(Write(Read(stripping, cut, kIniInputChunk).get()) == Write(Read(stripping, whole, 1).get()),
                "what was cut in quotes is read equal");
    }
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

    Read(settings, text, piece, data[2] * 4);
    const Settings checking{settings.readOptions, settings.writeOptions, 0, 1, 0};
    CheckCuts(checking, Read(checking, written, piece), data[2] / 4 + 10);

    IniSort(second.get());
    CheckQueries(second.get());
    RemoveAll(third.get(), (data[2] & 64) != 0);
    return 0;
}
