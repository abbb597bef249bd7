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
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
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
    std::size_t at = 1;
    std::string told{};

    bool HasMore() const { return at < row.size(); }
    const Json& Next() { return row[at++]; }
};

template <typename T>
T From(const Json& given)
{
    if constexpr (std::is_same_v<T, const char*>) {
        return given.IsNull() ? nullptr : given.Str().c_str();
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

    explicit Argument(Step*) {}
    T* Pass() { return &value; }
    void Tell(Step* step)
    {
        step->told = value == Unset() ? "17" : TextOf(value);
        if constexpr (std::is_same_v<T, char*>) {
            std::free(value);
        }
    }
};

// Eight bytes, of which the call fills as many as it is told to.
template <>
struct Argument<char*> {
    std::string value = std::string(8, '#');

    explicit Argument(Step*) {}
    char* Pass() { return value.data(); }
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

int Read(IniFile* ini, const char* text)
{
    return ReadText(ini, text);
}

int Reread(IniFile* ini)
{
    Lines lines;
    const int written = IniWrite(ini, &kztest::AddLine, &lines);
    return written == 1 ? ReadText(ini, kztest::TextOf(lines)) : written;
}

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

int ReadStream(IniFile* ini, const char* name, int offset)
{
    const Stream file(std::fopen(name, "rb"), &std::fclose);
    EXPECT_TRUE(file == nullptr || std::fseek(file.get(), offset, SEEK_SET) == 0);
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

const std::map<std::string, Call>& Calls()
{
    static const std::map<std::string, Call> sCalls = {
        {"Read", Calling(&Read)},
        {"Reread", Calling(&Reread)},
        {"ReadStream", Calling(&ReadStream)},
        {"WriteStream", Calling(&WriteStream)},
        {"SetTime", Calling(&SetTime)},
        {"Remove", Calling(&Remove)},
        {"SetDuplicateChecking", Calling(&IniSetDuplicateChecking)},
        {"SetCaseAndWhitespaceSensitiveChecking", Calling(&IniSetCaseAndWhitespaceSensitiveChecking)},
        {"SetWriteOptions", Calling(&IniSetWriteOptions)},
        {"SetReadOptions", Calling(&IniSetReadOptions)},
        {"SetReadLimit", Calling(&IniSetReadLimit)},
        {"ReadFromFile", Calling(&IniReadFromFile)},
        {"WriteToFile", Calling(&IniWriteToFile)},
        {"LostRights", Calling(&IniLostRights)},
        {"IsFileNewer", Calling(&IniIsFileNewer)},
        {"SectionExists", Calling(&IniSectionExists)},
        {"ItemExists", Calling(&IniItemExists)},
        {"NumberOfSections", Calling(&IniNumberOfSections)},
        {"NumberOfItems", Calling(&IniNumberOfItems)},
        {"NthSectionName", Calling(&IniNthSectionName)},
        {"NthItemName", Calling(&IniNthItemName)},
        {"NthItemPointerToString", Calling(&IniNthItemPointerToString)},
        {"LineOfSection", Calling(&IniLineOfSection)},
        {"LineOfItem", Calling(&IniLineOfItem)},
        {"LineOfLastAccess", Calling(&IniLineOfLastAccess)},
        {"LineOfFirstUnrecognizedLine", Calling(&IniLineOfFirstUnrecognizedLine)},
        {"GetBoolean", Calling(&IniGetBoolean)},
        {"GetInt", Calling(&IniGetInt)},
        {"GetUInt", Calling(&IniGetUInt)},
        {"GetDouble", Calling(&IniGetDouble)},
        {"GetPointerToRawString", Calling(&IniGetPointerToRawString)},
        {"GetPointerToString", Calling(&IniGetPointerToString)},
        {"GetRawStringCopy", Calling(&IniGetRawStringCopy)},
        {"GetStringCopy", Calling(&IniGetStringCopy)},
        {"GetRawStringIntoBuffer", Calling(&IniGetRawStringIntoBuffer)},
        {"GetStringIntoBuffer", Calling(&IniGetStringIntoBuffer)},
        {"PutStringWithOptions", Calling(&IniPutStringWithOptions)},
        {"PutString", Calling(&IniPutString)},
        {"PutRawString", Calling(&IniPutRawString)},
        {"PutBoolean", Calling(&IniPutBoolean)},
        {"PutInt", Calling(&IniPutInt)},
        {"PutUInt", Calling(&IniPutUInt)},
        {"PutDouble", Calling(&IniPutDouble)},
        {"RemoveItem", Calling(&IniRemoveItem)},
        {"RemoveSection", Calling(&IniRemoveSection)},
        {"RenameSection", Calling(&IniRenameSection)},
        {"SortSection", Calling(&IniSortSection)},
        {"SortSectionList", Calling(&IniSortSectionList)},
        {"Sort", Calling(&IniSort)},
    };
    return sCalls;
}

int Setting(const Json& row, const char* name, int otherwise)
{
    return row.Has(name) ? static_cast<int>(row[name].Int()) : otherwise;
}

// An object with the settings of a row. Null where the row, or memory, has none.
CheckedIni Configured(const Json& row)
{
    CheckedIni ini = Setting(row, "object", 1) != 0 ? NewIni(Setting(row, "sorted", 0)) : nullptr;
    if (row.Has("readOptions")) {
        IniSetReadOptions(ini.get(), Setting(row, "readOptions", 0));
    }
    if (row.Has("writeOptions")) {
        EXPECT_EQ(ini == nullptr ? kIniErrFile : 1,
                  IniSetWriteOptions(ini.get(), Setting(row, "maxLineLength", -1), Setting(row, "breakChar", 0),
                                     Setting(row, "writeOptions", 0)));
    }
    IniSetDuplicateChecking(ini.get(), Setting(row, "duplicateChecking", 1));
    IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), Setting(row, "caseSensitive", 0));
    return ini;
}

Sections SectionsIn(const Json& rows)
{
    Sections sections;
    for (const Json& row : rows.Items()) {
        sections.emplace_back(row["name"].Str(), kztest::Items());
        for (const Json& item : row["items"].Items()) {
            sections.back().second.emplace_back(item[0].Str(), item[1].Str());
        }
    }
    return sections;
}

Lines LinesIn(const Json& row)
{
    Lines lines;
    for (const Json& line : row.Items()) {
        lines.push_back(line.Str());
    }
    return lines;
}

bool IsOutOfMemory(int result)
{
    return result == kIniErrMemory && FailAllocation::Happened();
}

// Does the step of a row. False when it had no memory; then only what reads has changed anything.
bool DoStep(IniFile* ini, const Json& row)
{
    const Sections before = ini == nullptr ? Sections() : kztest::ContentOf(ini);
    const bool isRead = row[0].Str().find("ead") != std::string::npos;
    Step step{row};
    errno = 77;
    const int result = Calls().at(row[0].Str())(ini, &step);
    if (IsOutOfMemory(result)) {
        EXPECT_TRUE(isRead || before == kztest::ContentOf(ini)) << row[0].Str();
        return false;
    }
    EXPECT_TRUE(errno == 77 || !row[0].Str().starts_with("Get")) << row[0].Str();
    EXPECT_EQ(step.HasMore() ? step.Next().Int() : 1, result) << row[0].Str();
    if (step.HasMore() || (result != 1 && !step.told.empty())) {
        EXPECT_EQ(step.HasMore() ? step.Next().Str() : "17", step.told) << row[0].Str();
    }
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

// Reads what the row has, in pieces of that size, does its steps and looks at what comes of it.
void RunRow(const Json& row, std::size_t piece, IniInputFunction input = &IniLineFileInputFunction)
{
    if (row.Has("mode") && geteuid() == 0) {
        return;  // the superuser may do all the same
    }
    const std::optional<RowFolder> folder = row.Has("files") ? std::make_optional<RowFolder>(row) : std::nullopt;
    const CheckedIni ini = Configured(row);
    if (row.Has("text")) {
        const std::string& text = row["text"].Str();
        const std::size_t markSize = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;  // which is a file's, not a text's
        const int result = ini == nullptr ? kIniErrMemory : ReadText(ini.get(), text.substr(markSize), piece, input);
        if (IsOutOfMemory(result)) {
            return;
        }
        ASSERT_EQ(1, result);
    }
    if (row.Has("steps")) {
        for (const Json& step : row["steps"].Items()) {
            if ((ini == nullptr && FailAllocation::Happened()) || !DoStep(ini.get(), step)) {
                return;
            }
        }
    }
    if (row.Has("unrecognized")) {
        EXPECT_EQ(row["unrecognized"].Int() != 0, IniLineOfFirstUnrecognizedLine(ini.get()) != -1);
    }
    if (row.Has("files")) {
        EXPECT_EQ(kztest::FilesIn(row[row.Has("after") ? "after" : "files"]), folder->Content());
    }
    if (row.Has("sections")) {
        EXPECT_EQ(SectionsIn(row["sections"]), kztest::ContentOf(ini.get()));
    }
    Lines lines;
    const int written = ini == nullptr ? kIniErrFile : IniWrite(ini.get(), &kztest::AddLine, &lines);
    if (ini != nullptr && !IsOutOfMemory(written)) {
        EXPECT_EQ(Setting(row, "written", 1), written);
        EXPECT_EQ(row.Has("lines") ? LinesIn(row["lines"]) : lines, lines);
    }
}

class IniRows : public testing::TestWithParam<const char*> {
protected:
    const std::vector<Json> rows = ReadJsonLines(std::string("vectors/ini_") + GetParam() + ".jsonl");
};

// The engine's input function as one of a host's.
int HostsInput(void* context, char* buffer, int size, int* eof, int* complete, int* number)
{
    return IniLineFileInputFunction(context, buffer, size, eof, complete, number);
}

TEST_P(IniRows, WithMemory)
{
    for (const Json& row : rows) {
        SCOPED_TRACE(row.Line());
        RunRow(row, kIniInputChunk);
        for (const std::size_t piece : {1u, 2u, 7u}) {
            if (row.Has("text")) {
                RunRow(row, piece);
                RunRow(row, piece, &HostsInput);
            }
        }
    }
}

TEST_P(IniRows, WithoutMemory)
{
    for (const Json& row : rows) {
        SCOPED_TRACE(row.Line());
        if (!row.Has("files") || row.Has("faults")) {  // for speed
            kztest::FaultLoop([&](auto) { RunRow(row, kIniInputChunk); }, FailAllocation::kBlocks);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Ini, IniRows, testing::Values("calls", "edits", "files", "read", "values", "write"),
                         [](const auto& given) { return given.param; });

TEST(IniFile, PointersStayGoodAcrossOtherCalls)
{
    const std::string text(5000, 'x');
    const CheckedIni ini = kztest::Reading("[s]\nlong=\"" + text + "\"\nshort=y\n");
    const char* first = nullptr;
    ASSERT_EQ(1, IniGetPointerToString(ini.get(), "s", "long", &first));
    char* copy = nullptr;
    char buffer[4];
    ASSERT_EQ(1, IniGetStringCopy(ini.get(), "s", "short", &copy));
    ASSERT_EQ(1, IniGetStringIntoBuffer(ini.get(), "s", "short", buffer, sizeof buffer));
    EXPECT_EQ(text, first);
    std::free(copy);
}

TEST(IniFile, NoPlaceForTheOutput)
{
    const CheckedIni ini = kztest::Reading("[s]\nt=1\n");
    EXPECT_EQ(kIniErrFile, IniGetInt(ini.get(), "s", "t", nullptr));
    EXPECT_EQ(kIniErrFile, IniGetDouble(ini.get(), "s", "t", nullptr));
    EXPECT_EQ(kIniErrFile, IniGetStringCopy(ini.get(), "s", "t", nullptr));
    EXPECT_EQ(kIniErrFile, IniNthSectionName(ini.get(), 1, nullptr));
    EXPECT_EQ(kIniErrFile, IniNthItemName(ini.get(), "s", 1, nullptr));
    EXPECT_EQ(kIniErrFile, IniGetStringIntoBuffer(ini.get(), "s", "t", nullptr, 5));
    EXPECT_EQ(kIniErrFile, IniRead(ini.get(), nullptr, nullptr));
    EXPECT_EQ(kIniErrFile, IniRead(nullptr, &IniLineFileInputFunction, nullptr));
    EXPECT_EQ(kIniErrFile, IniWrite(ini.get(), nullptr, nullptr));
    IniDispose(nullptr);
}

TEST(IniFile, NumbersDoNotFollowTheLocale)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) {
        GTEST_SKIP() << "no such locale here";
    }
    for (const Json& row : ReadJsonLines("vectors/ini_calls.jsonl")) {
        RunRow(row, kIniInputChunk);
    }
    std::setlocale(LC_ALL, before.c_str());
}

TEST(IniFile, NumbersNeedOneLocaleObjectForAll)
{
    const CheckedIni ini = NewIni();
    double value = 0;
    IniPutDouble(ini.get(), "s", "t", 1.5);
    const int before = gNewLocales;
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(1, IniPutDouble(ini.get(), "s", "t", i));
        EXPECT_EQ(1, IniGetDouble(ini.get(), "s", "t", &value));
    }
    EXPECT_EQ(before, gNewLocales);
}

}  // namespace

// In the place of the C library's own, which it calls.
extern "C" locale_t newlocale(int mask, const char* name, locale_t base) noexcept
{
    ++gNewLocales;
    using NewLocale = locale_t (*)(int, const char*, locale_t);
    return reinterpret_cast<NewLocale>(dlsym(RTLD_NEXT, "newlocale"))(mask, name, base);
}
