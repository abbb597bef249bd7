#include "ZVGuid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "StreamText.h"

namespace {

const ZVGuidType kGuid = {0x00a1B2c3, 0x04d5, 0xE6f7, {0, 1, 0x7F, 0x80, 0xAB, 0xCD, 0xEF, 0xFF}};
constexpr char kText[] = "00a1b2c3-04d5-e6f7-0001-7f80abcdefff";

TEST(ZVGuid, TextAndBack)
{
    char text[38];
    std::memset(text, '#', sizeof text);
    EXPECT_EQ(ZVGuidToCStr(&kGuid, text), 0);
    EXPECT_STREQ(text, kText);
    EXPECT_EQ(text[37], '#');
    EXPECT_EQ(ZVGuidToCStr(&kGuid, nullptr), 0);
    EXPECT_EQ(kztest::ValueText(kGuid), kText);
    EXPECT_FALSE(ZVGuidsEqual(&kGuid, NullZVGuid()));

    // A text of the right length is taken whatever stands in it; one of all z has no dash at all.
    const struct {
        std::string text;
        KzErr err;
        const char* back;  // null: the guid is as before
    } kRows[] = {
        {kText, 0, kText},
        {"00A1B2C3-04D5-E6F7-0001-7F80ABCDEFFF", 0, kText},
        {std::string(36, 'z'), 0, "00000000-0000-0000-0000-000000000000"},
        {"00a1b2cx-04d5-e6f7-0001-7f80abcdeff\xFF", 0, "00a1b2c0-04d5-e6f7-0001-7f80abcdeff0"},
        {"", 121, nullptr},
        {std::string(kText, 35), 121, nullptr},
        {std::string(kText) + "0", 121, nullptr},
    };
    for (const auto& row : kRows) {
        ZVGuidType guid = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
        EXPECT_EQ(ZVGuidFromCStr(row.text.c_str(), &guid), row.err) << row.text;
        EXPECT_EQ(kztest::ValueText(guid), row.back == nullptr ? "00000001-0002-0003-0405-060708090a0b" : row.back);
    }
    ZVGuidType guid;
    EXPECT_EQ(ZVGuidFromCStr(nullptr, &guid), 1);
    EXPECT_EQ(ZVGuidFromCStr(nullptr, nullptr), 1);
    EXPECT_EQ(ZVGuidFromCStr("short", nullptr), 0);
}

TEST(ZVGuid, NewOnesDifferInBothHalvesAndAreRandomUuids)
{
    ZVGuidCreate(nullptr);
    EXPECT_EQ(ZVGuidCreateStr(nullptr), 0);
    std::set<std::string> halves;
    for (int i = 0; i < 100; ++i) {
        ZVGuidType guid;
        ZVGuidCreate(&guid);
        char text[37];
        EXPECT_EQ(i % 2 == 0 ? ZVGuidCreateStr(text) : ZVGuidToCStr(&guid, text), 0);
        EXPECT_EQ(text[16], '4');  // the version stands in the second byte of its number
        EXPECT_TRUE(std::strchr("89ab", text[19]) != nullptr) << text;
        halves.insert(std::string(text, 18));
        halves.insert(text + 18);
    }
    EXPECT_EQ(halves.size(), 200u);
}

}  // namespace
