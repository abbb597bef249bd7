#include "StringUtils.h"

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <string>

#include "JsonLines.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "TestStrings.h"

namespace {

using kztest::Json;
using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;

uInt32 HashOf(const Json& row)
{
    const std::string& text = row["text"].Str();
    const bool ignoreCase = row["ignoreCase"].Int() != 0;
    const unsigned long long length = row["length"].UInt();
    return length == 0xFFFFFFFF ? StringUtils::Hash(text.c_str(), ignoreCase)
                                : StringUtils::Hash(text.c_str(), static_cast<uInt32>(length), ignoreCase);
}

// The paths' tree keeps hashes that are made before the tables are filled, while they are in use, and after.
TEST(StringUtils, HashIsTheSameBeforeAndAfterTheServiceRuns)
{
    const std::vector<Json> rows = kztest::ReadJsonLines("vectors/hashes.jsonl");
    const auto check = [&](const char* when) {
        EXPECT_EQ(StringUtils::Hash("title", true), StringUtils::Hash("TITLE", false)) << when;
        EXPECT_TRUE(StringUtils::CaseInsensitiveEqual("TITLE", "title")) << when;
        for (const Json& row : rows) {
            if (row["op"].Str() == "Hash") {
                EXPECT_EQ(HashOf(row), row["hash"].UInt()) << when << row.Line();
            }
        }
    };
    check("before: ");
    EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);
    check("running: ");
    EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
    check("after: ");

    EXPECT_EQ(StringUtils::Hash("a", true), StringUtils::Hash("A", false));
    EXPECT_EQ(StringUtils::Hash(std::string("ab\0c", 4), false), StringUtils::Hash("ab", false));
    EXPECT_EQ(StringUtils::Hash("\xFF", false), 0x0FFFFF0Fu) << "bytes above 0x7F subtract";
    EXPECT_EQ(StringUtils::Hash(nullptr, false), 0u);
}

// From 0x80 up the tables have the case of the locale that is in force when the service starts; 0xFF, which the C
// library takes for the end of a file, has none. Below they are ASCII in each locale.
TEST(StringUtils, CaseTablesComeFromTheLocale)
{
    const auto mapped = [](int c, int first, int shift, int (*byLocale)(int)) {
        const bool isLetter = c >= first && c < first + 26;
        return static_cast<char>(c < 0x80 ? c + (isLetter ? shift : 0) : c == 0xFF ? c : byLocale(c));
    };
    const std::string before = std::setlocale(LC_CTYPE, nullptr);
    for (const char* const locale : {before.c_str(), "C", before.c_str()}) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr);
        EXPECT_EQ(StringUtilsLocaleCacheService()->Init(), 0);
        for (int a = 0; a < 0x100; ++a) {
            const std::string text(1, static_cast<char>(a)), upper(1, mapped(a, 'a', -32, std::toupper));
            EXPECT_EQ(StringUtils::Hash(text, true), StringUtils::Hash(upper, false)) << locale << " " << a;
            for (int b = 0; b < 0x100; ++b) {
                const bool isEqual = mapped(a, 'A', 32, std::tolower) == mapped(b, 'A', 32, std::tolower);
                const std::string other(1, static_cast<char>(b));
                ASSERT_EQ(StringUtils::CaseInsensitiveEqual(text, other), isEqual) << locale << " " << a << " " << b;
            }
        }
        EXPECT_EQ(StringUtilsLocaleCacheService()->Uninit(), 0);
    }
}

TEST(StringUtils, CaseInsensitive)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/text_utilities.jsonl")) {
        if (row["op"].Str() == "CaseInsensitiveCompare") {
            EXPECT_EQ(StringUtils::CaseInsensitiveCompare(row["a"].Str(), row["b"].Str()), row["result"].Int())
                << row.Line();
            EXPECT_EQ(StringUtils::CaseInsensitiveEqual(row["a"].Str(), row["b"].Str()), row["result"].Int() == 0)
                << row.Line();
        }
    }
    EXPECT_EQ(StringUtils::CaseInsensitiveCompare("z", "\xE9"), -1) << "bytes are unsigned";
    EXPECT_EQ(StringUtils::CaseInsensitiveCompare(std::string("a\0b", 3), std::string("A\0C", 3)), -1)
        << "a NUL ends nothing";
}

TEST(StringUtils, StartsAndEnds)
{
    EXPECT_TRUE(StringUtils::StartsWith("abc", "ab") && StringUtils::EndsWith("abc", "bc"));
    EXPECT_FALSE(StringUtils::StartsWith("bc", "bcd") || StringUtils::EndsWith("bc", "abc"));
    EXPECT_FALSE(StringUtils::StartsWith("", 'a') || StringUtils::EndsWith("", 'a'));
}

TEST(StringUtils, ToNarrow)
{
    const std::string text("n\0\xC3\xA9", 4);
    LStrValue counted(text);
    LStr* master = counted.Get();
    EXPECT_EQ(StringUtils::ToNarrowString(PStrValue(text)), text);
    EXPECT_EQ(StringUtils::ToNarrowString(counted.Get()), text);
    EXPECT_EQ(StringUtils::ToNarrowString(const_cast<const LStr* const*>(&master)), text);
    EXPECT_EQ(StringUtils::ToNarrowString(&master), text);

    std::string out = "old";
    EXPECT_EQ(StringUtils::ToNarrowStringNoThrow(static_cast<const unsigned char*>(nullptr), &out), 0);
    EXPECT_EQ(out, "");
    out = "old";
    EXPECT_EQ(StringUtils::ToNarrowStringNoThrow(static_cast<LStr**>(nullptr), &out), 0);
    EXPECT_EQ(out, "");
    EXPECT_EQ(StringUtils::ToNarrowStringNoThrow(text, nullptr), kzErrArgument);
    out = "old";
    counted.Get()->cnt = -5;
    EXPECT_EQ(StringUtils::ToNarrowStringNoThrow(counted.Get(), &out), 0);
    EXPECT_EQ(out, "");

    PStrBuffer p;
    StringUtils::ToPStr(std::string(300, 'x'), p);
    EXPECT_EQ(p.Text(), std::string(255, 'x'));
    EXPECT_EQ(StringUtils::ToPStrNoThrow("a", nullptr), kzErrArgument);
    EXPECT_EQ(StringUtils::ToNarrowString(StringUtils::Str255Converter("text").String()), "text");
}

TEST(StringUtils, ToAndFromHandles)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    LStrHandle text;
    EXPECT_EQ(StringUtils::ToLStrHandleNoThrow("", &text.handle), 0);
    ASSERT_NE(text.handle, nullptr) << "an empty text has a handle too";
    EXPECT_EQ(text.Text(), "");
    EXPECT_EQ(StringUtils::ToLStrHandleNoThrow("some text", &text.handle), 0);
    EXPECT_EQ(text.BlockSize(), 13u);
    EXPECT_EQ(StringUtils::ToLStrHandleNoThrow("x", nullptr), kzErrArgument);
    {
        kztest::FailAllocation fail(1);
        EXPECT_EQ(StringUtils::ToLStrHandleNoThrow("other", &text.handle), kzErrMemoryFull);
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(StringUtils::ToNarrowString(text.handle, StringUtils::kDoNotDeallocate), "some text");
    EXPECT_EQ(DSCheckHandle(text.handle), 0);
    EXPECT_EQ(StringUtils::ToNarrowStringNoThrow(text.handle, nullptr, StringUtils::kDeallocate), kzErrArgument);
    EXPECT_NE(DSCheckHandle(text.handle), 0) << "disposed on failure too";
    text.handle = StringUtils::ToLStrHandle("again");
    EXPECT_EQ(StringUtils::ToNarrowString(text.handle, StringUtils::kDeallocate), "again");
    EXPECT_NE(DSCheckHandle(text.handle), 0);
    text.handle = nullptr;
}

}  // namespace
