#include "PlatformText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "FaultLoop.h"
#include "JsonLines.h"
#include "Utf8Codec.h"

namespace {

using kztest::Json;

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
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

std::string Upper(const std::string& utf8)
{
    PlatformText text = Text(utf8);
    EXPECT_EQ(text.Upper(), PlatformText::kDone);
    return Utf8(text);
}

std::string Lower(const std::string& utf8)
{
    PlatformText text = Text(utf8);
    EXPECT_EQ(text.Lower(), PlatformText::kDone);
    return Utf8(text);
}

TEST(PlatformText, TakesUtf8)
{
    const std::string mixed("a\0\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E", 11);
    const PlatformText text = Text(mixed);
    EXPECT_EQ(std::u16string(text.Units(), text.Length()), std::u16string(u"a\0\u00E9\u20AC\xD834\xDD1E", 6));
    EXPECT_EQ(Utf8(text), mixed);
    EXPECT_EQ(Text("").Length(), 0u);

    for (const char* wrong : {"\x80", "\xC0\x80", "a\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "ok\xFF"}) {
        PlatformText kept = Text("kept");
        EXPECT_EQ(kept.SetUtf8(reinterpret_cast<const unsigned char*>(wrong), std::string(wrong).size()),
                  PlatformText::kNotUtf8);
        EXPECT_EQ(Utf8(kept), "kept");
    }
}

TEST(PlatformText, StandsInForWhatIsWrong)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/utf8.jsonl")) {
        if (row["op"].Str() == "EscapedInvalidUTF8") {
            const std::string bytes = row["bytes"].Hex();
            const AutoCFString text(CFStringWithEscapedInvalidUTF8Characters(Bytes(bytes), bytes.size()));
            EXPECT_EQ(Utf8(*text.Get()), row["utf8"].Hex()) << row.Line();
        }
    }
    const AutoCFString empty(CFStringWithEscapedInvalidUTF8Characters(nullptr, 0));
    EXPECT_EQ(empty->Length(), 0u);
    const AutoCFString nul(CFStringWithEscapedInvalidUTF8Characters(Bytes(std::string("a\0b", 3)), 3));
    EXPECT_EQ(Utf8(*nul.Get()),
              "a\xEF\xBF\xBD"
              "b");
}

TEST(PlatformText, GivesRanges)
{
    const PlatformText text = Text("a\xC3\xA9\xF0\x9D\x84\x9Ez");  // 1 + 1 + 2 + 1 units
    const struct {
        std::size_t first, count, limit;
        const char* bytes;
    } rows[] = {
        {0, 2, 9, "a\xC3\xA9"}, {0, 3, 9, "a\xC3\xA9?"},  // half a character
        {3, 2, 9, "?z"},        {2, 2, 9, "\xF0\x9D\x84\x9E"},
        {0, 5, 2, "a"},  // whole characters only
        {0, 5, 6, "a\xC3\xA9"}, {0, 5, 7, "a\xC3\xA9\xF0\x9D\x84\x9E"},
        {4, 99, 9, "z"},        {99, 1, 9, ""},
        {0, 5, 0, ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Utf8(text, row.first, row.count, row.limit), row.bytes) << row.first << " " << row.count;
    }
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
        const std::string upper = Upper(plain);
        const std::string lower = Lower(plain);
        const auto row = rows.find(block);
        if (row == rows.end()) {
            EXPECT_EQ(upper, plain) << block;
            EXPECT_EQ(lower, plain) << block;
        } else {
            const auto hash = [&](const char* name) { return std::stoull(row->second[name].Str(), nullptr, 16); };
            EXPECT_EQ(Fnv1a(upper), hash("upper")) << block;
            EXPECT_EQ(Fnv1a(lower), hash("lower")) << block;
        }
    }
}

TEST(PlatformText, MapsWithoutLocaleAndNeighbours)
{
    EXPECT_EQ(Upper("stra\xC3\x9F"
                    "e \xEF\xAC\x83 i"),
              "STRASSE FFI I");
    EXPECT_EQ(Lower("\xC4\xB0I"), "i\xCC\x87i");
    EXPECT_EQ(Lower("\xCE\x9F\xCE\xA3"), "\xCE\xBF\xCF\x83") << "a sigma at the end is one like any other";
    EXPECT_EQ(Upper("\xF0\x90\x90\xA8"), "\xF0\x90\x90\x80");
    EXPECT_EQ(Upper(""), "");
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
    using Block = std::unique_ptr<char, decltype(&std::free)>;
    const AutoCFString text(CFStringWithEscapedInvalidUTF8Characters(Bytes("e\xCC\x81\xE2\x82\xAC"), 6));
    const auto block = [](const AutoCFString& from, int32 maxSize) {
        return Block(from.MallocCStr(maxSize, nullptr, kCFStringEncodingUTF8), &std::free);
    };
    for (const int32 roomy : {-1, 0, 7, 1000}) {
        EXPECT_STREQ(block(text, roomy).get(), "e\xCC\x81\xE2\x82\xAC") << roomy;
    }
    EXPECT_EQ(block(text, 6), nullptr) << "no room for the terminator";

    char buffer[8] = "old old";
    EXPECT_EQ(text.MallocCStr(6, buffer, kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(text.MallocCStr(7, buffer, kCFStringEncodingUTF8), buffer);
    EXPECT_STREQ(buffer, "e\xCC\x81\xE2\x82\xAC");
    EXPECT_EQ(text.MallocCStr(7, buffer, 0x0500), nullptr);
    const Block own(text.MallocCStr(0, buffer, kCFStringEncodingUTF8), &std::free);
    EXPECT_STREQ(own.get(), buffer);
    EXPECT_NE(own.get(), buffer) << "a buffer of no bytes is none";

    const AutoCFString none;
    EXPECT_EQ(block(none, 10), nullptr);
    EXPECT_EQ(none.MallocCStr(8, buffer, kCFStringEncodingUTF8), nullptr);
    const AutoCFString empty(CFStringWithEscapedInvalidUTF8Characters(nullptr, 0));
    EXPECT_STREQ(block(empty, 1).get(), "");
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
