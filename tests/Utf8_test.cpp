#include "Utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "JsonLines.h"
#include "Utf8Codec.h"

namespace {

using kztest::Json;

struct Step {
    uInt32 value;
    long long moved;
    bool operator==(const Step&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Step& step)
{
    return out << "U+" << std::hex << step.value << std::dec << " in " << step.moved;
}

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

TEST(Utf8, Vectors)
{
    int rows = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/utf8.jsonl")) {
        if (row["op"].Str() == "ConvertUTF8toUTF32") {
            EXPECT_EQ(FirstStep(row["bytes"].Hex()),
                      (Step{static_cast<uInt32>(row["value"].UInt()), row["moved"].Int()}))
                << row.Line();
            ++rows;
        } else if (row["op"].Str() == "ConvertUTF32toUTF8") {
            const Written written = Encode({static_cast<uInt32>(row["value"].UInt())}, 4);
            EXPECT_EQ(written.bytes, row["bytes"].Hex()) << row.Line();
            EXPECT_EQ(written.result, row["result"].Int()) << row.Line();
            ++rows;
        }
    }
    EXPECT_EQ(rows, 63);
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
    std::size_t fit = 0;
    for (std::size_t room = 0; room <= 12; ++room) {
        while (fit < 4 && ends[fit + 1] <= room) {
            ++fit;
        }
        const Written written = Encode(values, room);
        EXPECT_EQ(written.bytes, all.substr(0, ends[fit])) << room;
        EXPECT_EQ(written.read, fit) << room;
        EXPECT_EQ(written.result, 0) << "replaced, or not all";
    }
    EXPECT_EQ(Encode({'a', 0xFFFD}, 4).result, 1);
    EXPECT_EQ(Encode({}, 0).result, 1);
}

}  // namespace
