#include "StringUtils.h"

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <string>
#include <vector>

#include "JsonLines.h"

namespace {

using kztest::Json;

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

    EXPECT_EQ(StringUtils::Hash(std::string("ab\0c", 4), false), StringUtils::Hash("ab", false));
    EXPECT_EQ(StringUtils::Hash("\xFF", false), 0x0FFFFF0Fu) << "bytes above 0x7F subtract";
    EXPECT_EQ(StringUtils::Hash(nullptr, false), 0u);
    EXPECT_EQ(StringUtils::Hash(nullptr, true), 0u);
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

}  // namespace
