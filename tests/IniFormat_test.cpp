// The text format of INI files: what is read from it and how it is written.

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <random>
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

TEST(IniFormat, EndsOfLines)
{
    const struct {
        int line;
        std::string text;
        std::string kept;  // lines, each ended by a bar
    } rows[] = {
        {__LINE__, "a\nb", "a|b|"},
        {__LINE__, "a\nb\n", "a|b|"},
        {__LINE__, "a\r\nb\r\n", "a|b|"},
        {__LINE__, "a\n\rb", "a|b|"},
        {__LINE__, "a\r\n\r\nb", "a||b|"},
        {__LINE__, "a\n\nb", "a||b|"},
        {__LINE__, "a\r\rb", "a||b|"},
        {__LINE__, "a\n\r\nb", "a||b|"},  // LF CR is a pair, LF ends a line
        {__LINE__, {"a\0\nb\0\0c", 7}, "a|b||c|"},
        {__LINE__, "\n", "|"},
        {__LINE__, "\r\n", "|"},
        {__LINE__, "", ""},
        {__LINE__, std::string(255, 'x') + "\n" + std::string(256, 'y') + "\r\n\n" + std::string(511, 'z'),
         std::string(255, 'x') + "|" + std::string(256, 'y') + "||" + std::string(511, 'z') + "|"},
        {__LINE__, std::string(kIniInputChunk - 1, 'x') + "\r\ny", std::string(kIniInputChunk - 1, 'x') + "|y|"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        for (const std::size_t piece : {1u, 2u, 3u, unsigned{kIniInputChunk}}) {
            const IniOwner ini = NewIni();
            IniSetReadOptions(ini.get(), kIniReadKeepComments);
            IniSetWriteOptions(ini.get(), -1, 0, kIniWriteComments);
            ASSERT_EQ(1, ReadText(ini.get(), row.text, piece));
            std::string kept;
            for (const std::string& line : LinesOf(ini.get())) {
                kept += line + "|";
            }
            EXPECT_EQ(row.kept, kept) << "in pieces of " << piece;
        }
    }
}

// Values whose cuts could lose something, over lines of each length. Without quotes a line must have room for a place
// to cut that has no white space on either side.
TEST(IniFormat, CutValuesReadBackEqual)
{
    const std::string values[] = {
        "plain text without anything special in it that goes on for a while",
        "a b  c   d    e     f      g       h        i         j          k",
        "one, two, three, four, five, six, seven, eight, nine, ten, eleven,",
        "\"quoted\" and 'quoted' and \\\" escaped \\\\ \\n = [x] ; y Line0001=z",
        std::string(20, 'p') + "\"" + std::string(18, 'q') + "\"tail \"" + std::string(16, 'r') + "\"",
        std::string(20, 'p') + "'" + std::string(18, 'q') + "'," + std::string(9, '"') + "end",
    };
    for (const std::string& value : values) {
        for (int quoted = 0; quoted < 2; ++quoted) {
            for (const int breakChar : {0, int{','}, int{' '}}) {
                const bool hasPlaces = quoted != 0 || value.find("  ") == std::string::npos;
                for (int length = quoted != 0 ? 18 : 30; hasPlaces && length < 90; ++length) {
                    SCOPED_TRACE(testing::Message() << value << ", " << quoted << ", " << breakChar << ", " << length);
                    const IniOwner ini = NewIni();
                    IniSetWriteOptions(ini.get(), length, breakChar, kIniWriteSpacedEquals);
                    ASSERT_EQ(1, IniPutStringWithOptions(ini.get(), "s", "tag", value.c_str(), quoted, 0));
                    const Lines lines = LinesOf(ini.get());
                    for (const std::string& line : lines) {
                        EXPECT_LE(line.size(), static_cast<std::size_t>(length));
                    }
                    const IniOwner again = NewIni();
                    IniSetReadOptions(again.get(), kIniReadStripDoubleQuotes | kIniReadStripSingleQuotes);
                    ASSERT_EQ(1, ReadText(again.get(), kztest::TextOf(lines)));
                    ASSERT_EQ(SectionsOf(ini.get()), SectionsOf(again.get()));
                }
            }
        }
    }
    const IniOwner ini = NewIni();
    IniPutString(ini.get(), "s", "tag", "too long a value");
    IniSetWriteOptions(ini.get(), 17, 0, kIniWriteSpacedEquals);
    EXPECT_EQ(1, LinesOf(ini.get(), kIniErrLineTooShort).size()) << "the section alone";
}

// Whether a value can be cut into pieces of at most `room` bytes so that a reader of pieces without quotes gets it
// back.
bool HasLosslessCut(const std::string& value, std::size_t room)
{
    std::vector<bool> canCut(value.size() + 1);  // what is in front of each place
    canCut[0] = true;
    for (std::size_t from = 0; from < value.size(); ++from) {
        for (std::size_t size = 1; canCut[from] && size <= std::min(room, value.size() - from); ++size) {
            const char first = value[from];
            const char last = value[from + size - 1];
            const bool isStripped = size > 1 && first == last && (first == '"' || first == '\'');
            canCut[from + size] = canCut[from + size] || (first != ' ' && last != ' ' && !isStripped);
        }
    }
    return canCut[value.size()];
}

// All values of a hostile start of up to five bytes, or such an end.
TEST(IniFormat, AValueIsCutWithoutLossIfItCanBe)
{
    const std::string rest(18, 'x');
    int losses = 0;
    for (int number = 0; number < 1 << 11; ++number) {
        std::string part;
        for (int bits = number; bits > 1; bits >>= 2) {
            part += "a \"'"[bits & 3];
        }
        for (const std::string& value : {part + rest, "a" + rest + part}) {
            for (int room = 1; room < 6 && value.front() != ' ' && value.back() != ' '; ++room) {
                const IniOwner ini = NewIni();
                IniSetWriteOptions(ini.get(), room + 13, number % 5 == 0 ? 'a' : 0, 0);
                ASSERT_EQ(1, IniPutStringWithOptions(ini.get(), "s", "t", value.c_str(), 0, 0));
                const Lines lines = LinesOf(ini.get());
                ASSERT_GT(lines.size(), 3u);
                const IniOwner again = NewIni();
                IniSetReadOptions(again.get(), kIniReadStripDoubleQuotes | kIniReadStripSingleQuotes);
                ASSERT_EQ(1, ReadText(again.get(), kztest::TextOf(lines)));
                const bool isEqual = SectionsOf(ini.get()) == SectionsOf(again.get());
                ASSERT_EQ(HasLosslessCut(value, static_cast<std::size_t>(room)), isEqual) << value << ", " << room;
                losses += isEqual ? 0 : 1;
            }
        }
    }
    EXPECT_GT(losses, 100);
    const struct {
        std::string value;
        int room;
        char breakChar;
        std::string pieces;
    } rows[] = {
        {"aaa,bbb,,cccccccccccc", 6, ',', "aaa,|bbb,,|cccccc|cccccc|"},
        {"bbbbb,,cccccccccccc", 6, ',', "bbbbb,|,|cccccc|cccccc|"},
        {"a bcdefxaxyyyyyyyyy", 6, 'a', "a bcde|fxa|xyyyyy|yyyy|"},  // on the right of the first break
        // All cuts are searched, as the first rule would leave a quote on either side of the space.
        {"x,xxxxxxxxxxxx\" \"\"a", 4, 0, "x,xx|xxxx|xxxx|x|x\" \"|\"a|"},
        {"x,xxxxxxxxxxxx\" \"\"a", 4, ',', "x,xx|xxxx|xxxx|x|x\" \"|\"a|"},
    };
    for (const auto& row : rows) {
        const IniOwner ini = NewIni();
        IniSetWriteOptions(ini.get(), row.room + 13, row.breakChar, 0);
        IniPutStringWithOptions(ini.get(), "s", "t", row.value.c_str(), 0, 0);
        std::string pieces;
        for (const std::string& line : LinesOf(ini.get())) {
            pieces += line.starts_with("t ") ? line.substr(11) + "|" : "";
        }
        EXPECT_EQ(row.pieces, pieces);
    }
}

// Tags that look like parts of a cut value, beside values that are too long for their lines: none is joined to them,
// and the values are cut where none could be.
TEST(IniFormat, LonePartsAreNotJoined)
{
    std::minstd_rand random(11);
    const char* const tags[] = {"a",       "b",       "C",           "a Line0002",         "a Line3",
                                "b Line0", "C LINE2", "a Line of b", "c Line0002 Line0001"};
    const auto isPart = [&](const std::string& tag) { return tag == tags[3] || tag == tags[4] || tag == tags[5]; };
    for (int round = 0; round < 3000; ++round) {
        const int keepsEmpty = round % 3 == 0 ? kIniReadKeepEmpty : 0;
        const IniOwner ini = NewIni(round % 2);
        IniSetWriteOptions(ini.get(), 50, 0, kIniWriteSpacedEquals);
        for (int i = 0; i < 5; ++i) {
            const std::string value((random() >> 8) % 3 * 30, static_cast<char>('p' + i));
            const char* const tag = tags[(random() >> 8) % std::size(tags)];
            ASSERT_EQ(1, IniPutStringWithOptions(ini.get(), "s", tag, value.c_str(), round % 5 == 0, 0));
        }
        const IniOwner again = NewIni();
        IniSetReadOptions(again.get(), keepsEmpty | kIniReadStripDoubleQuotes);
        const Lines lines = LinesOf(ini.get());
        ASSERT_EQ(1, ReadText(again.get(), kztest::TextOf(lines)));
        Items items = SectionsOf(ini.get())[0].second;
        const auto has = [&](const std::string& tag) {
            return std::any_of(items.begin(), items.end(), [&](const auto& item) { return item.first == tag; });
        };
        for (std::size_t i = 0; i < items.size(); ++i) {
            std::size_t next = i + 1;
            while (next < items.size() && !isPart(items[next].first) && items[next].second.empty()) {
                ++next;
            }
            const std::string& tag = items[i].first;
            const bool isLone = tag.size() > 1 || (next < items.size() && isPart(items[next].first)) ||
                                (tag == "a" && (has(tags[3]) || has(tags[4]))) || (tag == "b" && has(tags[5])) ||
                                (tag == "C" && has(tags[6]));
            const bool isCut = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
                                   return line.starts_with(tag + " = ");
                               }) == lines.end();
            ASSERT_TRUE(isLone || isCut == (items[i].second.size() > 50)) << kztest::TextOf(lines);
        }
        const bool drops = keepsEmpty == 0 && round % 5 != 0;
        std::erase_if(items, [&](const auto& item) { return drops && item.second.empty(); });
        ASSERT_EQ((Sections{{"s", items}}), SectionsOf(again.get())) << kztest::TextOf(lines);
    }
}

TEST(IniFormat, AReadTakesNoMoreThanItsLimit)
{
    const std::string text = "[a]\r\nx=1\n\ny=2\r\n[b]\n" + std::string(600, 'z') + "\n[c]";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{kIniInputChunk}}) {
        for (std::size_t limit = 0; limit < text.size() + 3; ++limit) {
            const IniOwner ini = NewIni();
            ASSERT_EQ(1, IniSetReadLimit(ini.get(), static_cast<long long>(limit)));
            ASSERT_EQ(limit < text.size() ? kIniErrMemory : 1, ReadText(ini.get(), text, piece)) << limit;
            ASSERT_EQ(limit < 4 ? 0 : limit < 19 ? 1 : limit < text.size() ? 2 : 3, IniNumberOfSections(ini.get()));
        }
    }
    for (std::size_t limit = 0; limit < 40; ++limit) {
        const IniOwner ini = NewIni(1);
        IniSetReadLimit(ini.get(), static_cast<long long>(limit));
        EXPECT_EQ(kIniErrMemory, ReadText(ini.get(), "[b]\ny=1\nx=2\n[a]\nz=3\ny=4\n" + std::string(40, 'z')));
        Sections sorted = SectionsOf(ini.get());
        std::sort(sorted.begin(), sorted.end());
        for (auto& [name, items] : sorted) {
            std::sort(items.begin(), items.end());
        }
        EXPECT_EQ(sorted, SectionsOf(ini.get())) << "what a failed read leaves is in order too: " << limit;
    }
    struct Endless {
        char last;
        long long total;
        static int Read(void* context, int size, int* actual, void* buffer)
        {
            auto* const self = static_cast<Endless*>(context);
            std::memset(buffer, 'x', static_cast<std::size_t>(size));
            static_cast<char*>(buffer)[size - 1] = self->last;
            self->total += * actual = size;
            return 1;
        }
    };
    for (const int limit : {256 << 20, 1000000}) {
        Endless stream{limit == 1000000 ? 'x' : '\n', 0};
        IniLineInput input{};
        input.read = &Endless::Read;
        input.context = &stream;
        const IniOwner ini = NewIni();
        EXPECT_EQ(1, limit == 1000000 ? IniSetReadLimit(ini.get(), limit) : 1);
        EXPECT_EQ(kIniErrMemory, IniRead(ini.get(), &IniLineFileInputFunction, &input));
        EXPECT_NEAR(static_cast<double>(limit), static_cast<double>(stream.total), kIniInputChunk);
    }
    // A function that has no end: of lines, of one line, or of nothing.
    for (const char* line : {"[s]", "xyz", ""}) {
        const auto endless = [](void* context, char* buffer, int, int* eof, int* complete, int* number) {
            const auto* const given = static_cast<const char*>(context);
            *eof = 0;
            *complete = *given == '[' ? 1 : 0;
            *number = 1;
            std::strcpy(buffer, given[0] == 'x' ? "x" : given);
            return 1;
        };
        const IniOwner ini = NewIni();
        EXPECT_EQ(kIniErrInt, IniSetReadLimit(ini.get(), -2));
        EXPECT_EQ(1, IniSetReadLimit(ini.get(), 1000000));
        EXPECT_EQ(kIniErrMemory, IniRead(ini.get(), endless, const_cast<char*>(line))) << line;
    }
}

// Text in the form that is written comes back byte for byte, comments and all.
TEST(IniFormat, UntouchedTextIsWrittenAsItWas)
{
    const char* const pieces[] = {
        "; a comment",     "",          "  ; indented", "junk", "[unclosed", "[section %d]", "tag%d=value",
        "tag%d=\"  q  \"", "tag%d='s'", "\t "};
    std::minstd_rand random(7);
    for (int round = 0; round < 500; ++round) {
        std::string text;
        for (auto i = static_cast<int>(random() % 30); i > 0; --i) {
            char line[64];
            const char* const piece = pieces[(random() >> 8) % std::size(pieces)];
            snprintf(line, sizeof line, piece, i);
            text += line;
            text += "\n";
        }
        if (text.find("[section") > text.find("tag")) {
            text = "[section 0]\n" + text;  // where items stand before a section they are dropped
        }
        const IniOwner ini = NewIni();
        IniSetReadOptions(ini.get(), kIniReadKeepComments | kIniReadStripDoubleQuotes | kIniReadStripSingleQuotes);
        IniSetWriteOptions(ini.get(), -1, 0, kIniWriteComments);
        ASSERT_EQ(1, ReadText(ini.get(), text));
        ASSERT_EQ(text, kztest::TextOf(LinesOf(ini.get())));
    }
}

TEST(IniFormat, ContinuationsAreJoinedInRuns)
{
    const struct {
        int line;
        const char* text;
        Items items;
    } rows[] = {
        {__LINE__, "k Line0001=ab\nk Line0002=cd\n", {{"k", "abcd"}}},
        {__LINE__, "k Line0002=cd\n", {{"k Line0002", "cd"}}},
        {__LINE__, "k Line1=a\nk Line7=b\nk Line3=c\n", {{"k", "abc"}}},
        {__LINE__, "a Line1=x\nb Line2=y\n", {{"a", "xy"}}},
        {__LINE__, "a Line1=x\nb Line1=y\n", {{"a", "x"}, {"b", "y"}}},
        {__LINE__, "a Line1=x\nb=y\na Line2=z\n", {{"a", "x"}, {"b", "y"}, {"a Line2", "z"}}},
        {__LINE__, "a Line1x=x\na Line=y\na Linex1=z\n", {{"a Line1x", "x"}, {"a Line", "y"}, {"a Linex1", "z"}}},
        {__LINE__, "a Line1=x\na Line99999999999999999999=y\n", {{"a", "x"}, {"a Line99999999999999999999", "y"}}},
        {__LINE__, "a Line2 Line1=x\n", {{"a Line2 Line1", "x"}}},
        {__LINE__, "a Line1=\"x \"\na Line2=y\n", {{"a", "x y"}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const IniOwner ini = NewIni();
        ASSERT_EQ(1, ReadText(ini.get(), std::string("[s]\n") + row.text));
        EXPECT_EQ((Sections{{"s", row.items}}), SectionsOf(ini.get()));
    }
}

// The function's own code ends the work, and what was read so far stays.
TEST(IniFormat, CodesOfTheCallersFunctions)
{
    struct Source {
        int left;
        static int Next(void* context, char* buffer, int, int* eof, int* complete, int* number)
        {
            auto* const self = static_cast<Source*>(context);
            *eof = 0;
            *complete = 1;
            *number = 1;
            std::strcpy(buffer, "[s]");
            return --self->left < 0 ? -77 : 1;
        }
    };
    const IniOwner ini = NewIni();
    Source source{3};
    EXPECT_EQ(-77, IniRead(ini.get(), &Source::Next, &source));
    EXPECT_EQ(1, IniNumberOfSections(ini.get()));
    int calls = 0;
    const auto refuse = [](void* context, const char*) { return ++*static_cast<int*>(context) == 2 ? -78 : 1; };
    EXPECT_EQ(-78, IniWrite(ini.get(), refuse, &calls));
    EXPECT_EQ(2, calls);
}

// Sizes at which quadratic work would not end within the test's time.
TEST(IniFormat, HostileText)
{
    const auto read = [](const std::string& text, int sorted = 0) {
        IniOwner ini = NewIni(sorted);
        EXPECT_EQ(1, ReadText(ini.get(), text));
        return ini;
    };
    std::string tags = "[s]\n";
    std::string sections;
    for (int i = 0; i < 300000; ++i) {
        tags += "tag" + std::to_string(i) + "=v\n";
        sections += "[" + std::to_string(i) + "]\n";
    }
    EXPECT_EQ(300000, IniNumberOfItems(read(tags).get(), "s"));
    EXPECT_EQ(300000, IniNumberOfItems(read(tags, 1).get(), "s"));
    EXPECT_EQ(300000, IniNumberOfSections(read(sections).get()));

    std::string duplicates = "[s]\n";
    std::string runs = "[s]\n";
    for (int i = 0; i < 1000000; ++i) {
        duplicates += "tag=" + std::to_string(i) + "\n";
        runs += "x Line0001=\"" + std::to_string(i) + "\"\n";
    }
    const IniOwner merged = read(duplicates);
    int last = 0;
    EXPECT_EQ(1, IniGetInt(merged.get(), "s", "tag", &last));
    EXPECT_EQ(999999, last);
    EXPECT_EQ(1, IniNumberOfItems(read(runs).get(), "s")) << "one tag, before it is cut";

    std::string lone = "[s]\n";
    for (int i = 0; i < 100000; ++i) {
        const std::string tag = std::to_string(i);
        lone += tag + "=" + std::string(60, 'v') + "\nend" + tag + "=v\n" + tag + " Line2=v\n";
    }
    const IniOwner parts = read(lone);
    IniSetWriteOptions(parts.get(), 40, 0, 0);
    EXPECT_EQ(300002u, LinesOf(parts.get()).size());

    const std::string huge(16 << 20, 'x');
    const IniOwner longLine = read("[s]\nt=" + huge + "\n" + huge + "\n[" + huge + "]\n");
    const char* value = nullptr;
    ASSERT_EQ(1, IniGetPointerToString(longLine.get(), "s", "t", &value));
    EXPECT_EQ(huge.size(), std::strlen(value));
    EXPECT_EQ(2, IniNumberOfSections(longLine.get()));
}

}  // namespace
