#include "ZVGuid.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "Report.h"
#include "support/ReportCatcher.h"

namespace {

constexpr char kModule[] = "tests/ZVGuid_test";
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

    ZVGuidType back = *NullZVGuid();
    EXPECT_FALSE(ZVGuidsEqual(&kGuid, &back));
    EXPECT_EQ(ZVGuidFromCStr(text, &back), 0);
    EXPECT_TRUE(ZVGuidsEqual(&kGuid, &back));
    EXPECT_EQ(ZVGuidFromCStr("00A1B2C3-04D5-E6F7-0001-7F80ABCDEFFF", &back), 0);
    EXPECT_TRUE(ZVGuidsEqual(&kGuid, &back));
}

TEST(ZVGuid, RefusedAndOddTexts)
{
    ZVGuidType guid = kGuid;
    EXPECT_EQ(ZVGuidFromCStr(nullptr, &guid), 1);
    EXPECT_EQ(ZVGuidFromCStr(nullptr, nullptr), 1);
    EXPECT_EQ(ZVGuidFromCStr("short", nullptr), 0);
    for (const std::string& text : {std::string(), std::string(kText, 35), std::string(kText) + "0"}) {
        EXPECT_EQ(ZVGuidFromCStr(text.c_str(), &guid), 121);
        EXPECT_TRUE(ZVGuidsEqual(&kGuid, &guid));
    }
    // A text of the right length is taken whatever stands in it; this one has no dash at all.
    EXPECT_EQ(ZVGuidFromCStr(std::string(36, 'z').c_str(), &guid), 0);
    EXPECT_TRUE(ZVGuidsEqual(NullZVGuid(), &guid));
    EXPECT_EQ(ZVGuidFromCStr("00a1b2cx-04d5-e6f7-0001-7f80abcdeff\xFF", &guid), 0);
    EXPECT_EQ(guid.word, 0x00a1b2c0u);
    EXPECT_EQ(guid.bytes[7], 0xF0);
}

TEST(ZVGuid, NewOnesDifferAndAreRandomUuids)
{
    ZVGuidCreate(nullptr);
    std::set<std::string> texts;
    for (int i = 0; i < 100; ++i) {
        ZVGuidType guid;
        ZVGuidCreate(&guid);
        unsigned char bytes[16];
        std::memcpy(bytes, &guid, sizeof bytes);
        EXPECT_EQ(bytes[6] & 0xF0, 0x40);
        EXPECT_EQ(bytes[8] & 0xC0, 0x80);
        char text[37];
        EXPECT_EQ(ZVGuidToCStr(&guid, text), 0);
        texts.insert(text);
        EXPECT_EQ(ZVGuidCreateStr(text), 0);
        texts.insert(text);
    }
    EXPECT_EQ(texts.size(), 200u);
    EXPECT_EQ(ZVGuidCreateStr(nullptr), 0);
}

TEST(ZVGuid, InReports)
{
    kztest::ReportCatcher reports;
    KZ_LOG(kDbgLog) << "guid " << kGuid;
    EXPECT_TRUE(reports.Take(kDbgLog, std::string("guid ") + kText));
}

}  // namespace
