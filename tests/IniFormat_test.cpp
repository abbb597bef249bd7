// The text format of INI files against models of it: cuts, lone parts, limits, and texts that are made to be slow.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "IniChecks.h"
#include "IniFile.h"

namespace {

using kztest::CheckedIni;
using kztest::ContentOf;
using kztest::Items;
using kztest::Lines;
using kztest::LinesOf;
using kztest::NewIni;
using kztest::Reading;
using kztest::ReadText;
using kztest::Sections;
using kztest::TextOf;

constexpr int kStripQuotes = kIniReadStripDoubleQuotes | kIniReadStripSingleQuotes;

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

// Writes a value with room for so many of its bytes in a line. Returns whether it was read back equal, which it is in
// quotes, and without them wherever that can be.
bool IsReadBack(const std::string& value, int room, int breakChar, bool quoted)
{
    const CheckedIni ini = NewIni();
    const int width = room + (quoted ? 15 : 13);
    IniSetWriteOptions(ini.get(), width, breakChar, 0);
    EXPECT_EQ(1, IniPutStringWithOptions(ini.get(), "s", "t", value.c_str(), quoted, 0));
    const Lines lines = LinesOf(ini.get());
    const auto isLonger = [&](const std::string& line) { return line.size() > static_cast<std::size_t>(width); };
    EXPECT_TRUE(std::none_of(lines.begin(), lines.end(), isLonger));
    const bool isEqual = ContentOf(ini.get()) == ContentOf(Reading(TextOf(lines), kStripQuotes).get());
    const bool isWhole = value.size() + (quoted ? 4 : 2) <= static_cast<std::size_t>(width);
    EXPECT_EQ(isWhole ? 3 : 4, std::min<std::size_t>(lines.size(), 4)) << "lines of a value that is whole or cut";
    EXPECT_EQ(isEqual, quoted || isWhole || HasLosslessCut(value, static_cast<std::size_t>(room)));
    return isEqual;
}

// Values whose cuts could lose something, and all that start or end with up to five hostile bytes.
TEST(IniFormat, AValueIsCutWithoutLossIfItCanBe)
{
    for (const std::string& value : {
             std::string("plain text without anything special in it that goes on for a while"),
             std::string("a b  c   d    e     f      g       h        i         j          k"),
             std::string("one, two, three, four, five, six, seven, eight, nine, ten, eleven,"),
             std::string("\"quoted\" and 'quoted' and \\\" escaped \\\\ \\n = [x] ; y Line0001=z"),
             std::string(20, 'p') + "\"" + std::string(18, 'q') + "\"tail \"" + std::string(16, 'r') + "\"",
             std::string(20, 'p') + "'" + std::string(18, 'q') + "'," + std::string(9, '"') + "end",
         }) {
        for (int room = 1; room < 75; ++room) {
            for (const int breakChar : {0, int{','}, int{' '}}) {
                SCOPED_TRACE(testing::Message() << value << ", " << room << ", " << breakChar);
                IsReadBack(value, room, breakChar, true);
                IsReadBack(value, room, breakChar, false);
            }
        }
    }
    int losses = 0;
    for (int number = 0; number < 1 << 11; ++number) {
        std::string part;
        for (int bits = number; bits > 1; bits >>= 2) {
            part += "a \"'"[bits & 3];
        }
        for (const std::string& value : {part + std::string(18, 'x'), "a" + std::string(18, 'x') + part}) {
            for (int room = 1; room < 6 && value.front() != ' ' && value.back() != ' '; ++room) {
                SCOPED_TRACE(testing::Message() << value << ", " << room);
                losses += IsReadBack(value, room, number % 5 == 0 ? 'a' : 0, false) ? 0 : 1;
            }
        }
    }
    EXPECT_GT(losses, 100);
}

// Tags that look like parts of a cut value.
const char* const kPartsOfA[] = {"a Line0002", "a Line3"};
const char* const kPartOfB = "b Line0";
const char* const kTags[] = {"a",      "b",       "C",           kPartsOfA[0],         kPartsOfA[1],
                             kPartOfB, "C LINE2", "a Line of b", "c Line0002 Line0001"};

// Whether the item may not be cut, because what a reader joined would not be just its parts.
bool IsLone(const Items& items, std::size_t at)
{
    const auto isPart = [](const std::string& tag) {
        return tag == kPartsOfA[0] || tag == kPartsOfA[1] || tag == kPartOfB;
    };
    const auto has = [&](const std::string& tag) {
        return std::any_of(items.begin(), items.end(), [&](const auto& item) { return item.first == tag; });
    };
    const auto next = std::find_if(items.begin() + static_cast<long>(at) + 1, items.end(),
                                   [&](const auto& item) { return isPart(item.first) || !item.second.empty(); });
    const std::string& tag = items[at].first;
    return tag.size() > 1 || (next != items.end() && isPart(next->first)) ||
           (tag == "a" && (has(kPartsOfA[0]) || has(kPartsOfA[1]))) || (tag == "b" && has(kPartOfB)) ||
           (tag == "C" && has("C LINE2"));
}

TEST(IniFormat, LonePartsAreNotJoined)
{
    std::minstd_rand random(11);
    for (int round = 0; round < 3000; ++round) {
        const CheckedIni ini = NewIni(round % 2);
        IniSetWriteOptions(ini.get(), 50, 0, kIniWriteSpacedEquals);
        for (int i = 0; i < 5; ++i) {
            const std::string value((random() >> 8) % 3 * 30, static_cast<char>('p' + i));
            const char* const tag = kTags[(random() >> 8) % std::size(kTags)];
            ASSERT_EQ(1, IniPutStringWithOptions(ini.get(), "s", tag, value.c_str(), round % 5 == 0, 0));
        }
        const std::string text = TextOf(LinesOf(ini.get()));
        Items items = ContentOf(ini.get())[0].second;
        for (std::size_t i = 0; i < items.size(); ++i) {
            const bool isCut = text.find("\n" + items[i].first + " = ") == std::string::npos;
            ASSERT_TRUE(IsLone(items, i) || isCut == (items[i].second.size() > 50)) << text;
        }
        const int keepsEmpty = round % 3 == 0 ? kIniReadKeepEmpty : 0;
        const bool drops = keepsEmpty == 0 && round % 5 != 0;
        std::erase_if(items, [&](const auto& item) { return drops && item.second.empty(); });
        ASSERT_EQ((Sections{{"s", items}}), ContentOf(Reading(text, keepsEmpty | kIniReadStripDoubleQuotes).get()))
            << text;
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
            std::snprintf(line, sizeof line, pieces[(random() >> 8) % std::size(pieces)], i);
            text += std::string(line) + "\n";
        }
        if (text.find("[section") > text.find("tag")) {
            text = "[section 0]\n" + text;  // where items stand before a section they are dropped
        }
        const CheckedIni ini = Reading(text, kIniReadKeepComments | kStripQuotes);
        IniSetWriteOptions(ini.get(), -1, 0, kIniWriteComments);
        ASSERT_EQ(text, TextOf(LinesOf(ini.get())));
    }
}

// A host's input function that gives a text again and again, a whole line each time for "[s]", else never a line's end.
// After `left` calls it fails.
struct Source {
    const char* text;
    int left;

    static int Next(void* context, char* buffer, int, int* eof, int* complete, int* number)
    {
        auto* const self = static_cast<Source*>(context);
        *eof = 0;
        *complete = self->text[0] == '[' ? 1 : 0;
        *number = 1;
        std::strcpy(buffer, self->text);
        return self->left-- > 0 ? 1 : -77;
    }
};

// The function's own code ends the work, and what was read so far stays.
TEST(IniFormat, CodesOfTheCallersFunctions)
{
    const CheckedIni ini = NewIni();
    Source source{"[s]", 3};
    EXPECT_EQ(-77, IniRead(ini.get(), &Source::Next, &source));
    EXPECT_EQ(1, IniNumberOfSections(ini.get()));
    int calls = 0;
    const auto refuse = [](void* context, const char*) { return ++*static_cast<int*>(context) == 2 ? -78 : 1; };
    EXPECT_EQ(-78, IniWrite(ini.get(), refuse, &calls));
    EXPECT_EQ(2, calls);
    char buffer[4];
    int outputs[3];
    IniLineInput input{};
    EXPECT_EQ(kIniErrRead, IniLineFileInputFunction(&input, buffer, 1, &outputs[0], &outputs[1], &outputs[2]));
}

TEST(IniFormat, AReadTakesNoMoreThanItsLimit)
{
    const std::string text = "[a]\r\nx=1\n\ny=2\r\n[b]\n" + std::string(600, 'z') + "\n[c]";
    const std::string unsorted = "[b]\ny=1\nx=2\n[a]\nz=3\ny=4\n" + std::string(40, 'z');
    for (std::size_t limit = 0; limit < text.size() + 3; ++limit) {
        for (const std::size_t piece : {std::size_t{1}, std::size_t{kIniInputChunk}}) {
            const CheckedIni ini = NewIni();
            ASSERT_EQ(1, IniSetReadLimit(ini.get(), static_cast<long long>(limit)));
            ASSERT_EQ(limit < text.size() ? kIniErrMemory : 1, ReadText(ini.get(), text, piece)) << limit;
            ASSERT_EQ(limit < 4 ? 0 : limit < 19 ? 1 : limit < text.size() ? 2 : 3, IniNumberOfSections(ini.get()));
        }
        const CheckedIni ini = NewIni(1);
        IniSetReadLimit(ini.get(), static_cast<long long>(limit));
        EXPECT_EQ(limit < unsorted.size() ? kIniErrMemory : 1, ReadText(ini.get(), unsorted));
        Sections sorted = ContentOf(ini.get());
        std::sort(sorted.begin(), sorted.end());
        for (auto& section : sorted) {
            std::sort(section.second.begin(), section.second.end());
        }
        EXPECT_EQ(sorted, ContentOf(ini.get())) << "what a failed read leaves is in order too: " << limit;
    }
    for (const char* endless : {"[s]", "x", ""}) {  // of lines, of one line, or of nothing
        const CheckedIni ini = NewIni();
        Source source{endless, 1 << 30};
        EXPECT_EQ(1, IniSetReadLimit(ini.get(), 1000000));
        EXPECT_EQ(kIniErrMemory, IniRead(ini.get(), &Source::Next, &source)) << endless;
    }
}

// A stream without an end, in lines or as one.
TEST(IniFormat, AStreamWithoutAnEndIsReadUpToTheLimit)
{
    struct Endless {
        char last;
        long long total = 0;
        static int Read(void* context, int size, int* actual, void* buffer)
        {
            auto* const self = static_cast<Endless*>(context);
            std::memset(buffer, 'x', static_cast<std::size_t>(size));
            static_cast<char*>(buffer)[size - 1] = self->last;
            *actual = size;
            self->total += size;
            return 1;
        }
    };
    for (const int limit : {256 << 20, 1000000}) {
        Endless stream{limit == 1000000 ? 'x' : '\n'};
        IniLineInput input{};
        input.read = &Endless::Read;
        input.context = &stream;
        const CheckedIni ini = NewIni();
        EXPECT_EQ(1, limit == 1000000 ? IniSetReadLimit(ini.get(), limit) : 1) << "else the one that is set";
        EXPECT_EQ(kIniErrMemory, IniRead(ini.get(), &IniLineFileInputFunction, &input));
        EXPECT_NEAR(static_cast<double>(limit), static_cast<double>(stream.total), kIniInputChunk);
    }
}

// Sizes at which quadratic work would not end within the test's time.
TEST(IniFormat, HostileText)
{
    std::string tags = "[s]\n";
    std::string sections;
    std::string lone = "[s]\n";
    for (int i = 0; i < 300000; ++i) {
        const std::string number = std::to_string(i);
        tags += "tag" + number + "=v\n";
        sections += "[" + number + "]\n";
        if (i < 100000) {
            lone += number + "=" + std::string(60, 'v') + "\nend" + number + "=v\n" + number + " Line2=v\n";
        }
    }
    EXPECT_EQ(300000, IniNumberOfItems(Reading(tags).get(), "s"));
    EXPECT_EQ(300000, IniNumberOfItems(Reading(tags, 0, 1).get(), "s"));
    EXPECT_EQ(300000, IniNumberOfSections(Reading(sections).get()));
    const CheckedIni parts = Reading(lone);
    IniSetWriteOptions(parts.get(), 40, 0, 0);
    EXPECT_EQ(300002u, LinesOf(parts.get()).size());

    std::string duplicates = "[s]\n";
    std::string runs = "[s]\n";
    for (int i = 0; i < 1000000; ++i) {
        duplicates += "tag=" + std::to_string(i) + "\n";
        runs += "x Line0001=\"" + std::to_string(i) + "\"\n";
    }
    EXPECT_EQ((Sections{{"s", {{"tag", "999999"}}}}), ContentOf(Reading(duplicates).get()));
    EXPECT_EQ(1, IniNumberOfItems(Reading(runs).get(), "s")) << "one tag, before it is cut";

    const std::string huge(16 << 20, 'x');
    EXPECT_TRUE(ContentOf(Reading("[s]\nt=" + huge + "\n" + huge + "\n[" + huge + "]\n").get()) ==
                (Sections{{"s", {{"t", huge}}}, {huge, {}}}));
}

}  // namespace
