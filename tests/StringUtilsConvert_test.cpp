#include <gtest/gtest.h>
#include <locale.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "FaultLoop.h"
#include "PlatformConvert.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "StringLStrArray.h"
#include "StringUtils.h"
#include "TestStrings.h"

namespace {

using kztest::LStrHandle;
using kztest::LStrValue;
using kztest::PStrBuffer;
using kztest::PStrValue;
using SU = StringUtils;

// One character of each length, and a NUL.
const std::string kNarrow("a\0\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E", 11);
const std::wstring kWide(L"a\0\u00E9\u20AC\U0001D11E", 5);
const char* const kMalformed[] = {"\x80", "ok\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"};
const wchar_t kNoCharacters[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDFFF), 0x110000, 0x7FFFFFFF, -1};

CFString* PlatformTextOf(const std::string& text)
{
    return CFStringWithEscapedInvalidUTF8Characters(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

TEST(StringUtilsConvert, ToWide)
{
    EXPECT_EQ(SU::ToWideString(kNarrow), kWide);
    EXPECT_EQ(SU::ToWideString(PStrValue(kNarrow)), kWide);
    LStrValue counted(kNarrow);
    LStr* master = counted.Get();
    EXPECT_EQ(SU::ToWideString(counted.Get()), kWide);
    EXPECT_EQ(SU::ToWideString(&master), kWide);
    const AutoCFString text(PlatformTextOf("\xE2\x82\xAC\xF0\x9D\x84\x9E"));
    EXPECT_EQ(SU::ToWideString(text.Get()), L"\u20AC\U0001D11E");

    std::wstring out = L"old";
    EXPECT_EQ(SU::ToWideStringNoThrow(static_cast<const CFString*>(nullptr), &out), 0);
    EXPECT_EQ(out, L"");
    EXPECT_EQ(SU::ToWideStringNoThrow(static_cast<const LStr*>(nullptr), &out), 0);
    EXPECT_EQ(SU::ToWideStringNoThrow(kNarrow, &out), 0);
    EXPECT_EQ(out, kWide);
    EXPECT_EQ(SU::ToWideStringNoThrow(kNarrow, nullptr), kzErrArgument);
}

// Runs of ASCII of each length before, between and behind other characters: blocks begin and end everywhere.
TEST(StringUtilsConvert, ToWideWhateverTheBlocks)
{
    for (std::size_t before = 0; before < 40; ++before) {
        for (std::size_t behind = 0; behind < 20; ++behind) {
            const std::string narrow = std::string(before, 'b') + kNarrow + std::string(behind, 'e') + kNarrow;
            const std::wstring wide = std::wstring(before, L'b') + kWide + std::wstring(behind, L'e') + kWide;
            ASSERT_EQ(SU::ToWideString(narrow), wide);
            ASSERT_EQ(SU::ToUTF8String(wide), narrow);
        }
    }
}

TEST(StringUtilsConvert, MalformedIsReportedAndEmpty)
{
    kztest::ReportCatcher reports;
    for (const std::string start : {"", "some text before, longer than a block"}) {
        for (const char* const malformed : kMalformed) {
            std::wstring out = L"old";
            EXPECT_EQ(SU::ToWideStringNoThrow(start + malformed, &out), kzErrArgument) << malformed;
            EXPECT_EQ(out, L"");
            EXPECT_TRUE(reports.Take(2, "Unable to convert from UTF-8 to UTF-32LE"));
            EXPECT_EQ(SU::ToWideString(start + malformed), L"");
            EXPECT_TRUE(reports.Take(2, "Unable to convert from UTF-8 to UTF-32LE"));
        }
    }
    for (const wchar_t value : kNoCharacters) {
        const std::wstring wide = {L'a', value};
        std::string out = "old";
        EXPECT_EQ(SU::ToUTF8StringNoThrow(wide, &out), kzErrArgument) << static_cast<int>(value);
        EXPECT_EQ(out, "");
        EXPECT_TRUE(reports.Take(2, "Unable to convert from UTF-32LE to UTF-8"));
        out = "old";
        EXPECT_EQ(SU::ToNarrowStringNoThrow(wide, &out), kzErrArgument) << static_cast<int>(value);
        EXPECT_EQ(out, "");
        EXPECT_TRUE(reports.Take(2, "wcstombs failed: "));
        EXPECT_EQ(SU::ToNarrowString(wide), "");
        EXPECT_TRUE(reports.Take(2, "wcstombs failed: "));
        AutoCFString kept(PlatformTextOf("kept"));
        CFString* const old = kept.Get();
        EXPECT_EQ(SU::ToCFStringNoThrow(wide, &kept), kzErrArgument);
        EXPECT_EQ(kept.Get(), old);
        EXPECT_TRUE(reports.Take(2, "Unable to convert from UTF-32LE to UTF-8"));
    }
}

TEST(StringUtilsConvert, FromWide)
{
    const locale_t before = uselocale(nullptr);
    EXPECT_EQ(SU::ToUTF8String(kWide), kNarrow);
    EXPECT_EQ(SU::ToUTF8String(kNarrow), kNarrow);
    EXPECT_EQ(SU::ToNarrowString(kWide.substr(2)), kNarrow.substr(2)) << "UTF-8 under the C locale too";
    EXPECT_EQ(SU::ToNarrowString(kWide), "a") << "wide text ends at its first NUL";
    EXPECT_EQ(uselocale(nullptr), before);

    PStrBuffer p;
    SU::ToPStr(std::wstring(200, L'\u00E9'), p);
    EXPECT_EQ(p.Text().size(), 255u) << "cut where it is full";
    EXPECT_EQ(SU::ToPStrNoThrow(L"\u20AC", p), 0);
    EXPECT_EQ(p.Text(), "\xE2\x82\xAC");
    EXPECT_EQ(SU::ToPStrNoThrow(L"a", nullptr), kzErrArgument);

    AutoCFString text;
    EXPECT_EQ(SU::ToCFStringNoThrow(kWide, &text), 0);
    EXPECT_EQ(std::u16string(text->Units(), text->Length()), std::u16string(u"a\0\u00E9\u20AC\U0001D11E", 6));
    EXPECT_EQ(SU::ToCFStringNoThrow(kWide, nullptr), kzErrArgument);

    const kztest::RunningMemory memory;
    LStrHandle handle;
    EXPECT_EQ(SU::ToLStrHandleNoThrow(L"\u00E9x", &handle.handle), 0);
    EXPECT_EQ(handle.Text(), "\xC3\xA9x");
    EXPECT_EQ(handle.BlockSize(), 7u);
    EXPECT_EQ(SU::ToLStrHandleNoThrow(L"x", nullptr), kzErrArgument);
    const LStrHandle empty;
    EXPECT_EQ(SU::ToWideString(empty.handle), L"");
}

TEST(StringUtilsConvert, OwnEncoderWhereTheLocaleIsMissing)
{
    ASSERT_NE(kz::Utf8Locale(), nullptr);
    std::wstring all;
    for (wchar_t c = 1; c <= 0x10FFFF; ++c) {
        if (c < 0xD800 || c > 0xDFFF) {
            all += c;
        }
    }
    std::string texts[2];
    for (const bool own : {false, true}) {
        const locale_t locale = own ? nullptr : kz::Utf8Locale();
        std::string& text = texts[own ? 1 : 0];
        text.resize(kz::WideToUtf8Size(all.c_str(), locale));
        ASSERT_EQ(kz::WideToUtf8(all.c_str(), locale, text.data(), text.size()), text.size());
        char small[4] = {'a', 'b', 'c', 'd'};
        EXPECT_EQ(kz::WideToUtf8(L"x\u20AC", locale, small, 3), 1u) << "whole characters only";
        EXPECT_EQ(std::string(small, 4).substr(3), "d");
        EXPECT_EQ(kz::WideToUtf8Size(L"a\x110000", locale), static_cast<std::size_t>(-1));
    }
    EXPECT_EQ(texts[0], texts[1]);
    EXPECT_EQ(SU::ToWideString(texts[0]), all);
}

TEST(StringUtilsConvert, RoomGrowsAsNeeded)
{
    for (const std::size_t room : {0u, 1u, 4u}) {
        std::string bytes = "old";
        EXPECT_EQ(kz::ConvertByIconv(kz::IconvPair::kUtf8ToWide, kNarrow.data(), kNarrow.size(), room, bytes),
                  kz::IconvResult::kDone);
        EXPECT_EQ(bytes, std::string(reinterpret_cast<const char*>(kWide.data()), kWide.size() * sizeof(wchar_t)))
            << room;
    }
    std::string bytes = "old";
    EXPECT_EQ(kz::ConvertByIconv(kz::IconvPair::kUtf8ToWide, "a\xFF", 2, 0, bytes), kz::IconvResult::kBadText);
    EXPECT_EQ(bytes.size(), 4u);
    EXPECT_EQ(kz::ConvertByIconv(kz::IconvPair::kUtf8ToWide, "", 0, 4, bytes), kz::IconvResult::kDone);
    EXPECT_EQ(bytes, "");
}

std::atomic<int> gOpened{0};

iconv_t CountingOpener(const char* to, const char* from)
{
    ++gOpened;
    return iconv_open(to, from);
}

iconv_t NoOpener(const char*, const char*)
{
    return reinterpret_cast<iconv_t>(-1);
}

// Converts once more when a thread's later objects, the converters with them, are gone.
struct AtThreadEnd {
    ~AtThreadEnd() { *result = SU::ToUTF8String(kWide); }
    std::string* result = nullptr;
};

TEST(StringUtilsConvert, ConvertersLiveAsLongAsTheirThread)
{
    kz::SetIconvOpener(&CountingOpener);
    gOpened = 0;
    std::string last;
    std::thread([&last] {
        static thread_local AtThreadEnd tEnd;
        tEnd.result = &last;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(SU::ToUTF8String(kWide), kNarrow);
        }
        EXPECT_EQ(gOpened, 1) << "kept";
    }).join();
    EXPECT_EQ(last, kNarrow);
    EXPECT_EQ(gOpened, 2);

    kz::SetIconvOpener(&NoOpener);
    std::thread([] {
        kztest::ReportCatcher reports;
        std::string out = "old";
        EXPECT_EQ(SU::ToUTF8StringNoThrow(kWide, &out), kzErrMemoryFull);
        EXPECT_EQ(out, "");
        std::wstring wide = L"old";
        EXPECT_EQ(SU::ToWideStringNoThrow(std::string("\xFF"), &wide), kzErrMemoryFull);
        EXPECT_EQ(wide, L"");
        kz::SetIconvOpener(nullptr);
        EXPECT_EQ(SU::ToUTF8StringNoThrow(kWide, &out), 0) << "tried again";
    }).join();
}

TEST(StringUtilsConvert, AppendAndAssign)
{
    std::string text = "a";
    EXPECT_EQ(SU::AppendNoThrow(&text, "b"), 0);
    EXPECT_EQ(SU::AppendNoThrow(&text, text), 0);
    EXPECT_EQ(text, "abab");
    EXPECT_EQ(SU::AssignNoThrow(&text, text.c_str() + 2), 0);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(SU::AppendNoThrow(&text, static_cast<const char*>(nullptr)), kzErrArgument);
    EXPECT_EQ(SU::AssignNoThrow(static_cast<std::string*>(nullptr), "a"), kzErrArgument);
    EXPECT_EQ(text, "ab");
    std::wstring wide = L"a";
    EXPECT_EQ(SU::AppendNoThrow(&wide, kWide), 0);
    EXPECT_EQ(wide, L"a" + kWide);
    EXPECT_EQ(SU::AssignNoThrow(&wide, kWide), 0);
    EXPECT_EQ(wide, kWide);

    EXPECT_EQ(&SU::EmptyNarrowString(), &SU::EmptyNarrowString());
    EXPECT_TRUE(SU::EmptyNarrowString().empty() && SU::EmptyWideString().empty());
}

using Texts = std::vector<std::string>;

TEST(StringUtilsConvert, ArraysOfHandles)
{
    kztest::ReportCatcher reports;
    const kztest::RunningMemory memory;
    const Texts texts = {"a", "", kNarrow, std::string(300, 'x')};
    _LStrArray** array = nullptr;
    ASSERT_EQ(SU::ToLStrArrayHandleNoThrow(texts, &array), 0);
    EXPECT_EQ((*array)->cnt, 4);
    EXPECT_EQ((*array)->str[1], nullptr) << "null is empty";
    Texts out = {"old"};
    SU::ToNarrowStringVector(array, out);
    EXPECT_EQ(out, texts);
    (*array)->cnt = 1000;
    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, &out), 0);
    EXPECT_EQ(out, texts) << "no more than the block holds";
    (*array)->cnt = -1;
    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, &out), 0);
    EXPECT_EQ(out, Texts());
    (*array)->cnt = 4;

    // What is there stays until the new array is whole; then it is disposed with its strings.
    kztest::FaultLoop([&](auto failed) {
        _LStrArray** const old = array;
        const KzErr error = SU::ToLStrArrayHandleNoThrow(texts, &array);
        EXPECT_EQ(error, failed() ? kzErrMemoryFull : 0);
        EXPECT_EQ(array == old, error != 0);
        EXPECT_EQ((*array)->cnt, 4);
    });
    kztest::FaultLoop([&](auto failed) {
        Texts made;
        const KzErr error = SU::ToNarrowStringVectorNoThrow(array, &made);
        EXPECT_EQ(error, failed() ? kzErrMemoryFull : 0);
        EXPECT_EQ(made.size(), failed() ? 0u : 4u);
    });
    reports.TakeAll();

    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, nullptr, SU::kDoNotDeallocate), kzErrArgument);
    EXPECT_EQ(DSCheckHandle(array), 0);
    LStr** const first = (*array)->str[0];
    SU::ToNarrowStringVector(array, out, SU::kDeallocate);
    EXPECT_EQ(out, texts);
    EXPECT_NE(DSCheckHandle(array), 0);
    EXPECT_NE(DSCheckHandle(first), 0);
    ASSERT_EQ(SU::ToLStrArrayHandleNoThrow({"b"}, &(array = nullptr)), 0);
    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, nullptr, SU::kDeallocate), kzErrArgument);
    EXPECT_NE(DSCheckHandle(array), 0) << "disposed on failure too";

    ASSERT_EQ(SU::ToLStrArrayHandleNoThrow({"c"}, &(array = nullptr)), 0);
    EXPECT_EQ(SU::ToLStrArrayHandleNoThrow({}, &array), 0);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(SU::ToLStrArrayHandleNoThrow({}, nullptr), kzErrArgument);
    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(nullptr, &out, SU::kDeallocate), 0);
    EXPECT_EQ(out, Texts());
}

// Every NoThrow form with each of its allocations failing: it gives its code, and its target is a string still.
TEST(StringUtilsConvert, OutOfMemory)
{
    kztest::ReportCatcher reports;
    const kztest::RunningMemory memory;
    const std::string longText = std::string(100, 'x') + kNarrow.substr(2);
    const std::wstring longWide = std::wstring(100, L'x') + kWide.substr(2);
    LStrValue counted(longText);
    const AutoCFString text(PlatformTextOf(longText));
    const auto each = [&](auto call) {
        kztest::FaultLoop([&](auto failed) {
            const KzErr error = call();
            EXPECT_EQ(error, failed() ? kzErrMemoryFull : 0);
        });
        reports.TakeAll();
    };
    const auto narrow = [](auto convert) {
        return [convert] {
            std::string out = "old";
            const KzErr error = convert(&out);
            EXPECT_TRUE(error != 0 ? out.empty() : out.size() > 100);
            return error;
        };
    };
    const auto wide = [](auto convert) {
        return [convert] {
            std::wstring out = L"old";
            const KzErr error = convert(&out);
            EXPECT_TRUE(error != 0 ? out.empty() : out.size() > 100);
            return error;
        };
    };
    each(narrow([&](std::string* out) { return SU::ToNarrowStringNoThrow(longText, out); }));
    each(narrow([&](std::string* out) { return SU::ToNarrowStringNoThrow(longWide, out); }));
    each(narrow([&](std::string* out) { return SU::ToUTF8StringNoThrow(longWide, out); }));
    each([&] {
        std::string out = "old";
        const KzErr error = SU::AppendNoThrow(&out, longText);
        EXPECT_EQ(out.size(), error == 0 ? 3 + longText.size() : 3);
        return error;
    });
    each([&] {
        std::string out = "old";
        const KzErr error = SU::AssignNoThrow(&out, longText.c_str());
        EXPECT_EQ(out.size(), error == 0 ? longText.size() : 3);
        return error;
    });
    each(wide([&](std::wstring* out) { return SU::ToWideStringNoThrow(longText, out); }));
    each(wide([&](std::wstring* out) { return SU::ToWideStringNoThrow(counted.Get(), out); }));
    each(wide([&](std::wstring* out) { return SU::ToWideStringNoThrow(text.Get(), out); }));
    each([&] {
        AutoCFString out;
        return SU::ToCFStringNoThrow(longWide, &out);
    });
    each([&] {
        LStrHandle out;
        const KzErr error = SU::ToLStrHandleNoThrow(longWide, &out.handle);
        EXPECT_EQ(out.handle == nullptr ? 0 : (*out.handle)->cnt, error == 0 ? counted.Get()->cnt : 0);
        return error;
    });
    each([&] {
        PStrBuffer out("old");
        const KzErr error = SU::ToPStrNoThrow(longWide, out);
        EXPECT_EQ(out.bytes[0], error == 0 ? longText.size() : 0);
        return error;
    });
}

}  // namespace
