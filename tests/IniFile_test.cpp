// INI objects by stored rows, with all memory and with each allocation failing, and what no row can say.

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>

#include "FaultLoop.h"
#include "IniChecks.h"
#include "IniFile.h"
#include "JsonLines.h"
#include "RowFiles.h"
#include "TempFolder.h"

namespace {

using kztest::CheckedIni;
using kztest::FailAllocation;
using kztest::Json;
using kztest::Lines;
using kztest::NewIni;
using kztest::ReadJsonLines;
using kztest::ReadText;
using kztest::Sections;

namespace fs = std::filesystem;

int gNewLocales = 0;

// A step of a row: the name of a call, its arguments, its result, 1 where there is none, and what it puts out, as text.
struct Step {
    const Json& row;
    bool hasOutputs;  // else the call gets no place for them
    std::size_t at = 1;
    std::string told{};
    const char* pointer = nullptr;  // that the call gave

    bool HasMore() const { return at < row.size(); }
    const Json& Next() { return row[at++]; }
};

template <typename T>
T From(const Json& given)
{
    if constexpr (std::is_same_v<T, const char*>) {
        return given.IsNull() ? nullptr : given.Str().c_str();
    } else if constexpr (std::is_same_v<T, const std::string&>) {
        return given.Str();
    } else if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<double>(std::stoull(given.Str(), nullptr, 16));
    } else {
        return static_cast<T>(given.Int());
    }
}

template <typename T>
std::string TextOf(T value)
{
    if constexpr (std::is_pointer_v<T>) {
        return value;
    } else if constexpr (std::is_same_v<T, double>) {
        char digits[17];
        std::snprintf(digits, sizeof digits, "%016llX", std::bit_cast<unsigned long long>(value));
        return digits;
    } else {
        return std::to_string(value);
    }
}

// An argument from the step. Only outputs tell something.
template <typename T>
struct Argument {
    T value;

    explicit Argument(Step* step) : value(From<T>(step->Next())) {}
    T Pass() { return value; }
    void Tell(Step*) {}
};

// The place of an output, which tells "17" until the call puts something there.
template <typename T>
requires(!std::is_const_v<T>) struct Argument<T*> {
    static T Unset()
    {
        if constexpr (std::is_pointer_v<T>) {
            return nullptr;
        } else {
            return 17;
        }
    }
    T value = Unset();
    bool isThere;

    explicit Argument(Step* step) : isThere(step->hasOutputs) {}
    T* Pass() { return isThere ? &value : nullptr; }
    void Tell(Step* step)
    {
        step->told = value == Unset() ? "17" : TextOf(value);
        if constexpr (std::is_same_v<T, char*>) {
            std::free(value);
        } else if constexpr (std::is_same_v<T, const char*>) {
            step->pointer = value;
        }
    }
};

// Eight bytes, of which the call fills as many as it is told to.
template <>
struct Argument<char*> {
    std::string value = std::string(8, '#');
    bool isThere;

    explicit Argument(Step* step) : isThere(step->hasOutputs) {}
    char* Pass() { return isThere ? value.data() : nullptr; }
    void Tell(Step* step) { step->told = value; }
};

using Call = std::function<int(IniFile*, Step*)>;

template <typename... T>
Call Calling(int (*call)(IniFile*, T...))
{
    return [call](IniFile* ini, Step* step) {
        std::tuple<Argument<T>...> arguments{Argument<T>(step)...};
        const auto apply = [&](auto&... each) {
            const int result = call(ini, each.Pass()...);
            (each.Tell(step), ...);
            return result;
        };
        return std::apply(apply, arguments);
    };
}

// How a text is given.
std::size_t gPiece = kIniInputChunk;
IniInputFunction gInput = &IniLineFileInputFunction;

int Read(IniFile* ini, const std::string& text)
{
    return ReadText(ini, text, gPiece, gInput);
}

int Write(IniFile* ini, char** out)
{
    Lines lines;
    const int result = IniWrite(ini, &kztest::AddLine, &lines);
    *out = result == 1 ? strdup(kztest::TextOf(lines).c_str()) : nullptr;
    return result;
}

int Reread(IniFile* ini)
{
    Lines lines;
    const int written = IniWrite(ini, &kztest::AddLine, &lines);
    return written == 1 ? ReadText(ini, kztest::TextOf(lines)) : written;
}

// The raw values of all.
int Content(IniFile* ini, char** out)
{
    std::string text;
    for (const auto& [section, items] : kztest::ContentOf(ini)) {
        text += "[" + section + "]\n";
        for (const auto& [tag, value] : items) {
            text += tag + "=" + value + "\n";
        }
    }
    *out = strdup(text.c_str());
    return 1;
}

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

// From a place in a file, or what a command writes into a pipe, which has no places.
int ReadStream(IniFile* ini, const char* name, int offset)
{
    const bool isPipe = *name == '|';
    const Stream file(isPipe ? popen(name + 1, "r") : std::fopen(name, "rb"), isPipe ? &pclose : &std::fclose);
    EXPECT_TRUE(file == nullptr || isPipe || std::fseek(file.get(), offset, SEEK_SET) == 0);
    return IniReadFromFilePtr(ini, file.get());
}

int WriteStream(IniFile* ini, const char* name, const char* mode, int append)
{
    const Stream file(std::fopen(name, mode), &std::fclose);
    return IniWriteToFilePtr(ini, file.get(), append);
}

int SetTime(IniFile*, const char* name, int seconds, int nanoseconds)
{
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    return utimensat(AT_FDCWD, name, times, 0) == 0 ? 1 : 0;
}

int Remove(IniFile*, const char* name)
{
    return fs::remove(name) ? 1 : 0;
}

// The calls by their names, without "Ini" in front.
template <typename... Function>
std::map<std::string, Call> ByName(std::istringstream names, Function... functions)
{
    std::map<std::string, Call> calls;
    const auto add = [&](auto function) {
        std::string name;
        std::getline(names >> std::ws, name, ',');
        calls[name.substr(name.starts_with("Ini") ? 3 : 0)] = Calling(function);
    };
    (add(functions), ...);
    return calls;
}
#define BY_NAME(...) ByName(std::istringstream(#__VA_ARGS__), __VA_ARGS__)

const std::map<std::string, Call> kCalls =
    BY_NAME(Read, Write, Reread, Content, ReadStream, WriteStream, SetTime, Remove, IniSetDuplicateChecking,
            IniSetCaseAndWhitespaceSensitiveChecking, IniSetWriteOptions, IniSetReadOptions, IniSetReadLimit,
            IniReadFromFile, IniWriteToFile, IniLostRights, IniIsFileNewer, IniSectionExists, IniItemExists,
            IniNumberOfSections, IniNumberOfItems, IniNthSectionName, IniNthItemName, IniNthItemPointerToString,
            IniLineOfSection, IniLineOfItem, IniLineOfLastAccess, IniLineOfFirstUnrecognizedLine, IniGetBoolean,
            IniGetInt, IniGetUInt, IniGetDouble, IniGetPointerToRawString, IniGetPointerToString, IniGetRawStringCopy,
            IniGetStringCopy, IniGetRawStringIntoBuffer, IniGetStringIntoBuffer, IniPutStringWithOptions, IniPutString,
            IniPutRawString, IniPutBoolean, IniPutInt, IniPutUInt, IniPutDouble, IniRemoveItem, IniRemoveSection,
            IniRenameSection, IniSortSection, IniSortSectionList, IniSort);

int Setting(const Json& row, const char* name, int otherwise)
{
    return row.Has(name) ? static_cast<int>(row[name].Int()) : otherwise;
}

bool IsOutOfMemory(int result)
{
    return result == kIniErrMemory && FailAllocation::Happened();
}

// A pointer that a getter gave, which stays good across those that give none.
struct Given {
    const char* pointer = nullptr;
    std::string text{};
};

// Does the step of a row. False when it had no memory. Only what reads may change anything when it fails.
bool DoStep(IniFile* ini, Step step, Given* given)
{
    const std::string& name = step.row[0].Str();
    const Sections before = ini == nullptr ? Sections() : kztest::ContentOf(ini);
    errno = 77;
    const int result = kCalls.at(name)(ini, &step);
    if (result < 0 && ini != nullptr && name.find("ead") == std::string::npos) {
        EXPECT_EQ(before, kztest::ContentOf(ini)) << name;
    }
    if (IsOutOfMemory(result)) {
        return false;
    }
    EXPECT_TRUE(errno == 77 || !name.starts_with("Get")) << name;
    EXPECT_EQ(step.HasMore() ? step.Next().Int() : 1, result) << name;
    if (step.HasMore() || (result != 1 && !step.told.empty())) {
        EXPECT_EQ(step.HasMore() ? step.Next().Str() : "17", step.told) << name;
    }
    if (step.pointer != nullptr || !name.starts_with("Get")) {
        *given = {step.pointer, step.pointer == nullptr ? "" : step.pointer};
    }
    EXPECT_TRUE(given->pointer == nullptr || given->pointer == given->text) << name;
    return true;
}

// The files of a row, in a folder that is the current one as long as this lives.
class RowFolder {
public:
    explicit RowFolder(const Json& row)
    {
        fs::current_path(mFolder.File(""));
        kztest::MakeFiles(row["files"], mFolder);
        for (const auto& [name, file] : row["files"].Members()) {
            if (file.IsString()) {
                fs::permissions(name, static_cast<fs::perms>(Setting(row, "mode", 0644)));
            }
        }
    }
    ~RowFolder() { fs::current_path(mBefore); }

    kztest::Files Content() const { return kztest::FilesIn(mFolder); }

private:
    fs::path mBefore = fs::current_path();
    kztest::TempFolder mFolder;
};

// Does the steps of a row on an object, or none, and looks at the files that are there then.
void RunRow(const Json& row)
{
    if (row.Has("mode") && geteuid() == 0) {
        return;  // the superuser may do all the same
    }
    const std::optional<RowFolder> folder = row.Has("files") ? std::make_optional<RowFolder>(row) : std::nullopt;
    const CheckedIni ini = Setting(row, "object", 1) != 0 ? NewIni(Setting(row, "sorted", 0)) : nullptr;
    Given given;
    for (const Json& step : row["steps"].Items()) {
        if ((ini == nullptr && FailAllocation::Happened()) ||
            !DoStep(ini.get(), {step, Setting(row, "outputs", 1) != 0}, &given)) {
            return;
        }
    }
    if (row.Has("files")) {
        EXPECT_EQ(kztest::FilesIn(row[row.Has("after") ? "after" : "files"]), folder->Content());
    }
}

class IniRows : public testing::TestWithParam<const char*> {
protected:
    const std::vector<Json> rows = ReadJsonLines(std::string("vectors/ini_") + GetParam() + ".jsonl");
};

// With texts as a whole and in pieces, by the engine's input function and by one of a host's.
TEST_P(IniRows, WithMemory)
{
    const IniInputFunction hosts = [](auto... arguments) { return IniLineFileInputFunction(arguments...); };
    for (const Json& row : rows) {
        SCOPED_TRACE(row.Line());
        for (const unsigned piece : {1u, 2u, 7u, unsigned{kIniInputChunk}}) {
            for (const IniInputFunction input : {hosts, IniInputFunction{&IniLineFileInputFunction}}) {
                gPiece = piece;
                gInput = input;
                if (!row.Has("files") || (piece == kIniInputChunk && input != hosts)) {
                    RunRow(row);
                }
            }
        }
    }
}

TEST_P(IniRows, WithoutMemory)
{
    for (const Json& row : rows) {
        SCOPED_TRACE(row.Line());
        if (!row.Has("files") || row.Has("faults")) {  // for speed
            kztest::FaultLoop([&](auto) { RunRow(row); }, FailAllocation::kBlocks);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Ini, IniRows, testing::Values("calls", "edits", "files", "read", "values", "write"),
                         [](const auto& given) { return given.param; });

// Nor do they need more than one locale object for all.
TEST(IniFile, NumbersDoNotFollowTheLocale)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    const bool isThere = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
    int made = 0;
    for (int pass = 0; pass < 2; ++pass) {
        made = gNewLocales;
        for (const Json& row : ReadJsonLines("vectors/ini_calls.jsonl")) {
            RunRow(row);
        }
    }
    EXPECT_EQ(made, gNewLocales);
    std::setlocale(LC_ALL, before.c_str());
    if (!isThere) {
        GTEST_SKIP() << "no such locale here";
    }
}

}  // namespace

// In the place of the C library's own, which it calls.
extern "C" locale_t newlocale(int mask, const char* name, locale_t base) noexcept
{
    ++gNewLocales;
    using NewLocale = locale_t (*)(int, const char*, locale_t);
    return reinterpret_cast<NewLocale>(dlsym(RTLD_NEXT, "newlocale"))(mask, name, base);
}
