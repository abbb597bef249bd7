// The text format of INI files: what is read from it and how it is written.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <string>

#include "IniFile.h"
#include "IniTesting.h"
#include "JsonLines.h"
#include "TempFolder.h"

namespace {

using kztest::IniOwner;
using kztest::Items;
using kztest::Json;
using kztest::Lines;
using kztest::LinesOf;
using kztest::NewIni;
using kztest::ReadJsonLines;
using kztest::ReadText;
using kztest::Sections;
using kztest::SectionsOf;

int AsInt(const Json& value)
{
    return static_cast<int>(value.Int());
}

// An object with the settings of a row.
IniOwner Configured(const Json& row)
{
    IniOwner ini = NewIni(row.Has("sorted") ? AsInt(row["sorted"]) : 0);
    if (row.Has("readOptions")) {
        IniSetReadOptions(ini.get(), AsInt(row["readOptions"]));
    }
    if (row.Has("duplicateChecking")) {
        IniSetDuplicateChecking(ini.get(), AsInt(row["duplicateChecking"]));
    }
    if (row.Has("caseSensitive")) {
        IniSetCaseAndWhitespaceSensitiveChecking(ini.get(), AsInt(row["caseSensitive"]));
    }
    if (row.Has("writeOptions")) {
        const int length = row.Has("maxLineLength") ? AsInt(row["maxLineLength"]) : -1;
        const int breakChar = row.Has("breakChar") ? AsInt(row["breakChar"]) : 0;
        EXPECT_EQ(1, IniSetWriteOptions(ini.get(), length, breakChar, AsInt(row["writeOptions"])));
    }
    return ini;
}

Sections SectionsIn(const Json& rows)
{
    Sections sections;
    for (const Json& row : rows.Items()) {
        Items items;
        for (const Json& item : row["items"].Items()) {
            items.emplace_back(item[0].Str(), item[1].Str());
        }
        sections.emplace_back(row["name"].Str(), std::move(items));
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

TEST(IniFormat, TextsReadAndWritten)
{
    for (const Json& row : ReadJsonLines("vectors/ini_read.jsonl")) {
        SCOPED_TRACE(row.Line());
        const std::string text = row["text"].Str();
        const std::size_t markSize = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;  // which is a file's, not a text's
        for (const std::size_t piece : {std::size_t{kIniInputChunk}, std::size_t{1}, std::size_t{7}}) {
            const IniOwner ini = Configured(row);
            ASSERT_EQ(row["result"].Int(), ReadText(ini.get(), text.substr(markSize), piece));
            EXPECT_EQ(row["unrecognized"].Int() != 0, IniLineOfFirstUnrecognizedLine(ini.get()) != -1);
            if (row["duplicateChecking"].Int() != 0) {  // else a name may not tell which section is meant
                EXPECT_EQ(SectionsIn(row["sections"]), SectionsOf(ini.get()));
            }
            EXPECT_EQ(LinesIn(row["lines"]), LinesOf(ini.get()));
        }
    }
}

TEST(IniFormat, FilesReadAndWritten)
{
    const kztest::TempFolder folder;
    for (const Json& row : ReadJsonLines("ini/index.jsonl")) {
        SCOPED_TRACE(row.Line());
        const IniOwner ini = Configured(row);
        const std::string file = kztest::DataFile("ini/" + row["file"].Str());
        ASSERT_EQ(row["result"].Int(), IniReadFromFile(ini.get(), file.c_str()));
        if (row["result"].Int() != 1) {
            continue;
        }
        EXPECT_EQ(row["unrecognized"].Int() != 0, IniLineOfFirstUnrecognizedLine(ini.get()) != -1);
        EXPECT_EQ(SectionsIn(row["sections"]), SectionsOf(ini.get()));
        ASSERT_EQ(1, IniWriteToFile(ini.get(), folder.File("out.ini").c_str()));
        EXPECT_EQ(row["written"].Str(), kztest::ReadWholeFile(folder.File("out.ini")));
    }
}

int Put(IniFile* ini, const Json& put)
{
    const std::string& kind = put[0].Str();
    const char* const section = put[1].Str().c_str();
    const char* const tag = put[2].Str().c_str();
    const Json& value = put[3];
    if (kind == "String") {
        return IniPutString(ini, section, tag, value.Str().c_str());
    }
    if (kind == "RawString") {
        return IniPutRawString(ini, section, tag, value.Str().c_str());
    }
    if (kind == "WithOptions") {
        return IniPutStringWithOptions(ini, section, tag, value.Str().c_str(), AsInt(put[4]), AsInt(put[5]));
    }
    if (kind == "Double") {
        return IniPutDouble(ini, section, tag, std::bit_cast<double>(std::stoull(value.Str(), nullptr, 16)));
    }
    return kind == "Boolean" ? IniPutBoolean(ini, section, tag, AsInt(value))
           : kind == "Int"   ? IniPutInt(ini, section, tag, AsInt(value))
                             : IniPutUInt(ini, section, tag, static_cast<unsigned>(value.UInt()));
}

// Whether a cut of these lines falls on white space, which a reader would lose: we cut elsewhere.
bool LosesWhiteSpace(const Lines& lines)
{
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find(" Line0") != std::string::npos &&
               (line.back() == ' ' || line.find("=  ") != std::string::npos);
    });
}

TEST(IniFormat, ValuesPutAndWritten)
{
    for (const Json& row : ReadJsonLines("vectors/ini_write.jsonl")) {
        SCOPED_TRACE(row.Line());
        const IniOwner ini = Configured(row);
        for (const Json& put : row["puts"].Items()) {
            EXPECT_EQ(1, Put(ini.get(), put));
        }
        EXPECT_EQ(SectionsIn(row["sections"]), SectionsOf(ini.get()));
        const Lines lines = LinesOf(ini.get(), AsInt(row["result"]));
        if (row["result"].Int() != 1) {
            continue;
        }
        if (!LosesWhiteSpace(LinesIn(row["lines"]))) {
            EXPECT_EQ(LinesIn(row["lines"]), lines);
            continue;
        }
        const IniOwner again = NewIni();
        ASSERT_EQ(1, ReadText(again.get(), kztest::TextOf(lines)));
        EXPECT_EQ(SectionsOf(ini.get()), SectionsOf(again.get()));
    }
}

TEST(IniFormat, ValuesRead)
{
    for (const Json& row : ReadJsonLines("vectors/ini_values.jsonl")) {
        SCOPED_TRACE(row.Line());
        const IniOwner ini = NewIni();
        ASSERT_EQ(1, ReadText(ini.get(), row["text"].Str()));
        const std::string& op = row["op"].Str();
        const char* const section = row["section"].Str().c_str();
        const char* const tag = row["tag"].Str().c_str();
        const auto expected = row["result"].Int();
        const bool isGiven = expected == 1;
        int number = 17;
        unsigned int bits = 17;
        double real = 17;
        const char* text = "17";
        if (op == "IniGetBoolean" || op == "IniGetInt") {
            const auto get = op == "IniGetInt" ? &IniGetInt : &IniGetBoolean;
            EXPECT_EQ(expected, get(ini.get(), section, tag, &number));
            EXPECT_EQ(isGiven ? row["value"].Int() : 17, number);
        } else if (op == "IniGetUInt") {
            EXPECT_EQ(expected, IniGetUInt(ini.get(), section, tag, &bits));
            EXPECT_EQ(isGiven ? row["value"].UInt() : 17, bits);
        } else if (op == "IniGetDouble") {
            EXPECT_EQ(expected, IniGetDouble(ini.get(), section, tag, &real));
            const auto given = std::bit_cast<unsigned long long>(real);
            EXPECT_EQ(isGiven ? std::stoull(row["value"].Str(), nullptr, 16) : 0x4031000000000000, given);
        } else {
            ASSERT_EQ("IniGetPointerToString", op);
            EXPECT_EQ(expected, IniGetPointerToString(ini.get(), section, tag, &text));
            EXPECT_EQ(isGiven ? row["value"].Str() : "17", text);
        }
    }
}

int Step(IniFile* ini, const Json& step, int* expected)
{
    const std::string& kind = step[0].Str();
    *expected = step.size() == 1 ? 1 : AsInt(step[step.size() - 1]);
    const char* const section = step.size() == 1 ? "" : step[1].Str().c_str();
    if (kind == "Sort") {
        return IniSort(ini);
    }
    if (kind == "SortSection") {
        return IniSortSection(ini, section);
    }
    if (kind == "RemoveSection") {
        return IniRemoveSection(ini, section);
    }
    const char* const second = step[2].Str().c_str();
    return kind == "RemoveItem"      ? IniRemoveItem(ini, section, second)
           : kind == "RenameSection" ? IniRenameSection(ini, section, second)
                                     : IniPutStringWithOptions(ini, section, second, step[3].Str().c_str(), 0, 0);
}

TEST(IniFormat, EditsWritten)
{
    for (const Json& row : ReadJsonLines("vectors/ini_edits.jsonl")) {
        SCOPED_TRACE(row.Line());
        const IniOwner ini = Configured(row);
        ASSERT_EQ(1, ReadText(ini.get(), row["text"].Str()));
        for (const Json& step : row["steps"].Items()) {
            int expected = 0;
            const int result = Step(ini.get(), step, &expected);
            EXPECT_EQ(expected, result);
        }
        EXPECT_EQ(LinesIn(row["lines"]), LinesOf(ini.get()));
    }
}

}  // namespace
