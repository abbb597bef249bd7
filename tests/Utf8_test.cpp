// Steps between UTF-8 and UTF-32, and the platform's text.
#include "Utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "FaultLoop.h"
#include "JsonLines.h"
#include "PlatformText.h"
#include "Utf8Codec.h"

namespace {

using kztest::Json;

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

using Step = std::pair<uInt32, long long>;  // the value, and how far it led

// The first step into a text, which lies at the very end of its block, so that a sanitizer sees a read behind it.
Step FirstStep(const std::string& text)
{
    const std::vector<unsigned char> block(text.begin(), text.end());
    const unsigned char* at = block.data();
    const uInt32 value = ConvertUTF8toUTF32(&at, block.data() + block.size());
    return {value, at - block.data()};
}

struct Written {
    std::string bytes;
    std::size_t read;
    KzBool result;
};

Written Encode(const std::vector<uInt32>& values, std::size_t room)
{
    std::vector<unsigned char> block(room);
    unsigned char* target = block.data();
    const uInt32* source = values.data();
    const KzBool result = ConvertUTF32toUTF8(&source, values.data() + values.size(), &target, target + room);
    return {{block.data(), target}, static_cast<std::size_t>(source - values.data()), result};
}

PlatformText Text(const std::string& utf8)
{
    PlatformText text;
    EXPECT_EQ(text.SetUtf8(Bytes(utf8), utf8.size()), PlatformText::kDone) << utf8;
    return text;
}

std::string Utf8(const PlatformText& text, std::size_t first = 0, std::size_t count = SIZE_MAX,
                 std::size_t limit = SIZE_MAX)
{
    std::string out(text.GetUtf8(first, count, nullptr, limit), '\0');
    EXPECT_EQ(text.GetUtf8(first, count, reinterpret_cast<unsigned char*>(out.data()), out.size()), out.size());
    return out;
}

std::string Mapped(const std::string& utf8, PlatformText::Outcome (PlatformText::*map)())
{
    PlatformText text = Text(utf8);
    EXPECT_EQ((text.*map)(), PlatformText::kDone);
    return Utf8(text);
}

void CheckDecoding(const Json& row)
{
    EXPECT_EQ(FirstStep(row["bytes"].Hex()), (Step{static_cast<uInt32>(row["value"].UInt()), row["moved"].Int()}));
}

void CheckEncoding(const Json& row)
{
    const Written written = Encode({static_cast<uInt32>(row["value"].UInt())}, 4);
    EXPECT_EQ(written.bytes, row["bytes"].Hex());
    EXPECT_EQ(written.result, row["result"].Int());
}

// A text takes all UTF-8, and stays as it was where there is something else, for which U+FFFD stands in otherwise.
void CheckTaking(const Json& row)
{
    const std::string bytes = row["bytes"].Hex(), utf8 = row["utf8"].Hex();
    const AutoCFString escaped(CFStringWithEscapedInvalidUTF8Characters(Bytes(bytes), bytes.size()));
    EXPECT_EQ(Utf8(*escaped.Get()), utf8);
    const bool isUtf8 = bytes == utf8 || bytes.find('\0') != std::string::npos;
    PlatformText text = Text("kept");
    EXPECT_EQ(text.SetUtf8(Bytes(bytes), bytes.size()), isUtf8 ? PlatformText::kDone : PlatformText::kNotUtf8);
    EXPECT_EQ(Utf8(text), isUtf8 ? bytes : "kept");
}

void CheckRange(const Json& row)
{
    EXPECT_EQ(Utf8(Text(row["bytes"].Hex()), row["first"].UInt(), row["count"].UInt(), row["limit"].UInt()),
              row["result"].Hex());
}

void CheckCase(const Json& row)
{
    EXPECT_EQ(Mapped(row["bytes"].Hex(), &PlatformText::Upper), row["upper"].Hex());
    EXPECT_EQ(Mapped(row["bytes"].Hex(), &PlatformText::Lower), row["lower"].Hex());
}

TEST(Utf8, Vectors)
{
    kztest::CheckRows("vectors/utf8.jsonl", {{"ConvertUTF8toUTF32", &CheckDecoding},
                                             {"ConvertUTF32toUTF8", &CheckEncoding},
                                             {"EscapedInvalidUTF8", &CheckTaking},
                                             {"GetUtf8", &CheckRange},
                                             {"MapCase", &CheckCase}});
}

TEST(Utf8, EveryCodePointThereAndBack)
{
    for (uInt32 value = 1; value <= kz::kLastCodePoint; ++value) {
        const Written written = Encode({value}, 4);
        const Step expected =
            value >= 0xD800 && value <= 0xDFFF ? Step{0, 3} : Step{value, static_cast<long long>(written.bytes.size())};
        ASSERT_EQ(written.bytes.size(), value < 0x80 ? 1u : value < 0x800 ? 2u : value < 0x10000 ? 3u : 4u) << value;
        ASSERT_EQ(FirstStep(written.bytes), expected);
        ASSERT_EQ(FirstStep(written.bytes + "\x80"), expected) << "what follows does not count";
    }
    const char* at = "\xC3\xA9x";
    EXPECT_EQ(ConvertUTF8toUTF32(&at, at + 3), 0xE9u);
    EXPECT_EQ(*at, 'x');
}

TEST(Utf8, EncodesWhatFits)
{
    const std::vector<uInt32> values = {'a', 0x110000, 0x20AC, 0x10FFFF};
    const std::string all = "a\xEF\xBF\xBD\xE2\x82\xAC\xF4\x8F\xBF\xBF";
    const std::size_t ends[] = {0, 1, 4, 7, 11};
    for (std::size_t room = 0; room <= 12; ++room) {
        const Written written = Encode(values, room);
        const std::size_t fit = room >= 11 ? 4 : room >= 7 ? 3 : room >= 4 ? 2 : room >= 1 ? 1 : 0;
        EXPECT_EQ(written.bytes, all.substr(0, ends[fit])) << room;
        EXPECT_EQ(written.read, fit) << room;
        EXPECT_EQ(written.result, 0) << "replaced, or not all";
    }
    EXPECT_EQ(Encode({'a', 0xFFFD}, 4).result, 1);
    EXPECT_EQ(Encode({}, 0).result, 1);
}

TEST(PlatformText, HoldsUtf16)
{
    const PlatformText text = Text(std::string("a\0\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E", 11));
    EXPECT_EQ(std::u16string(text.Units(), text.Length()), std::u16string(u"a\0\u00E9\u20AC\xD834\xDD1E", 6));
}

uInt64 Fnv1a(const std::string& bytes)
{
    uInt64 hash = 0xCBF29CE484222325;
    for (const char c : bytes) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return hash;
}

// The file has, for each 256 code points with any that has case, the FNV-1a hashes of their mappings one after the
// other as another implementation of Unicode 14 makes them.
TEST(PlatformText, MapsEveryCodePoint)
{
    std::map<uInt32, Json> rows;
    for (const Json& row : kztest::ReadJsonLines("vectors/case_mappings.jsonl")) {
        rows.emplace(static_cast<uInt32>(row["block"].UInt()), row);
    }
    ASSERT_EQ(rows.size(), 27u);
    for (uInt32 block = 0; block < 0x110000; block += 0x100) {
        if (block >= 0xD800 && block < 0xE000) {
            continue;
        }
        std::string plain;
        for (uInt32 point = block; point < block + 0x100; ++point) {
            unsigned char bytes[4];
            plain.append(reinterpret_cast<char*>(bytes),
                         static_cast<std::size_t>(kz::EncodeUtf8(point, bytes) - bytes));
        }
        const auto row = rows.find(block);
        for (const bool upper : {true, false}) {
            const std::string mapped = Mapped(plain, upper ? &PlatformText::Upper : &PlatformText::Lower);
            const uInt64 stored = row == rows.end()
                                      ? Fnv1a(plain)
                                      : std::stoull(row->second[upper ? "upper" : "lower"].Str(), nullptr, 16);
            EXPECT_EQ(Fnv1a(mapped), stored) << block;
        }
    }
}

TEST(PlatformText, StaysAsItWasOutOfMemory)
{
    const std::string old = "old \xC3\x9F";
    kztest::FaultLoop([&](auto failed) {
        PlatformText text;
        if (text.SetUtf8(Bytes(old), old.size()) != PlatformText::kDone) {
            EXPECT_TRUE(failed());
            return;
        }
        const PlatformText::Outcome status = text.Upper();
        EXPECT_EQ(status, failed() ? PlatformText::kNoMemory : PlatformText::kDone);
        EXPECT_EQ(text.Length(), status == PlatformText::kDone ? 6u : 5u);
        const AutoCFString escaped(CFStringWithEscapedInvalidUTF8Characters(Bytes(old), old.size()));
        EXPECT_TRUE(escaped || failed());
    });
}

TEST(AutoCFString, MakesCStrings)
{
    const std::string bytes = "e\xCC\x81\xE2\x82\xAC";
    const AutoCFString text(CFStringWithEscapedInvalidUTF8Characters(Bytes(bytes), bytes.size())), none;
    const AutoCFString empty(CFStringWithEscapedInvalidUTF8Characters(nullptr, 0));
    char buffer[8] = "old old";
    const struct {
        const AutoCFString& text;
        int32 size;
        char* buffer;
        const char* result;  // null where there is no room
        uInt32 encoding = kCFStringEncodingUTF8;
    } rows[] = {{text, -1, nullptr, bytes.c_str()}, {text, 0, nullptr, bytes.c_str()},
                {text, 7, nullptr, bytes.c_str()},  {text, 1000, nullptr, bytes.c_str()},
                {text, 6, nullptr, nullptr},        {text, 6, buffer, nullptr},
                {text, 7, buffer, nullptr, 0x0500}, {none, 10, nullptr, nullptr},
                {none, 8, buffer, nullptr},         {empty, 1, nullptr, ""},
                {text, 7, buffer, bytes.c_str()},   {text, 0, buffer, bytes.c_str()}};
    for (const auto& row : rows) {
        char* const made = row.text.MallocCStr(row.size, row.buffer, row.encoding);
        EXPECT_STREQ(made, row.result) << row.size;
        EXPECT_EQ(made == buffer, made != nullptr && row.buffer != nullptr && row.size > 0);
        std::free(made == buffer ? nullptr : made);
    }
}

TEST(AutoCFString, Owns)
{
    AutoCFString a(CFStringWithEscapedInvalidUTF8Characters(Bytes("a"), 1));
    CFString* const text = a.Get();
    a.Attach(text);
    AutoCFString b(std::move(a));
    EXPECT_FALSE(a);
    a = std::move(b);
    EXPECT_EQ(a.Get(), text);
    b.Attach(a.Detach());
    EXPECT_EQ(b.Get(), text);
    EXPECT_EQ(Utf8(*b.Get()), "a");
}

}  // namespace
