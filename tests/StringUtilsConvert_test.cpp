// The conversions in all their forms, by one driver, and what is unique to one of them.
#include <gtest/gtest.h>
#include <locale.h>

#include <atomic>
#include <string>
#include <string_view>
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

// ---- The kinds of target: what each form writes to, and how it begins ----

// A macro, because what differs are the names of overload sets.
#define KZ_TEXT_TARGET(Kind, Text, old, call)                                                          \
    struct Kind {                                                                                      \
        static Text Old() { return old; }                                                              \
        static void Into(const auto& source, Text& out) { SU::call(source, out); }                     \
        static void New(const auto& source, Text& out) { out = SU::call(source); }                     \
        static KzErr NoThrow(const auto& source, Text* out) { return SU::call##NoThrow(source, out); } \
    }
KZ_TEXT_TARGET(Narrow, std::string, "old", ToNarrowString);
KZ_TEXT_TARGET(Utf8, std::string, "old", ToUTF8String);
KZ_TEXT_TARGET(Wide, std::wstring, L"old", ToWideString);

struct Short {
    static PStrBuffer Old() { return PStrBuffer("old"); }
    static void Into(const auto& source, PStrBuffer& out) { SU::ToPStr(source, out); }
    static void New(const std::string& source, PStrBuffer& out)
    {
        SU::ToPStr(SU::ToNarrowString(SU::Str255Converter(source).String()), out);
    }
    static void New(const std::wstring& source, PStrBuffer& out) { Into(source, out); }
    static KzErr NoThrow(const auto& source, PStrBuffer* out)
    {
        return SU::ToPStrNoThrow(source, out == nullptr ? nullptr : out->bytes);
    }
};

struct Handle {
    static LStrHandle Old() { return LStrHandle(); }
    static void Into(const auto& source, LStrHandle& out) { SU::ToLStrHandle(source, out.handle); }
    static void New(const auto& source, LStrHandle& out)
    {
        DSDisposeHandle(out.handle);
        out.handle = SU::ToLStrHandle(source);
        EXPECT_NE(out.handle, nullptr) << "an empty text has a handle too";
    }
    static KzErr NoThrow(const auto& source, LStrHandle* out)
    {
        return SU::ToLStrHandleNoThrow(source, out == nullptr ? nullptr : &out->handle);
    }
};

// What a target holds, found without an allocation.
const auto& View(const auto& out)
{
    return out;
}
std::string_view View(const PStrBuffer& out)
{
    return {reinterpret_cast<const char*>(out.bytes) + 1, out.bytes[0]};
}
std::string_view View(const LStrHandle& out)
{
    if (out.handle == nullptr) {
        return {};
    }
    EXPECT_EQ(out.BlockSize(), 4 + static_cast<unsigned long>((*out.handle)->cnt));
    return {reinterpret_cast<const char*>((*out.handle)->str), static_cast<std::size_t>((*out.handle)->cnt)};
}

std::u16string_view View(const AutoCFString& out)
{
    return out ? std::u16string_view(out->Units(), out->Length()) : std::u16string_view();
}

class StringUtilsConvert : public kztest::MemoryTest {
protected:
    // A call on what `make` makes leaves it with this view, and with the other one when any of its allocations fails.
    void ExpectFaults(const auto& make, const auto& call, const auto& atFault, const auto& expected)
    {
        kztest::FaultLoop([&](auto failed) {
            auto out = make();
            const KzErr error = call(out);
            EXPECT_EQ(error, failed() ? kzErrMemoryFull : kzErrNone);
            EXPECT_EQ(View(out), failed() ? atFault : expected);
        });
        reports.TakeAll();
    }

    // Every form of a conversion makes `expected`. For a text that does not convert, which is reported, that is empty,
    // and the NoThrow form tells the code. When any of its allocations fails it says so, with an empty target.
    template <typename Kind, typename Source, typename Text>
    void ExpectForms(const Source& source, const Text& expected, const char* report = nullptr)
    {
        for (const int form : {0, 1, 2}) {
            auto out = Kind::Old();
            if (form == 0) {
                Kind::Into(source, out);
            } else if (form == 1) {
                Kind::New(source, out);
            } else {
                EXPECT_EQ(Kind::NoThrow(source, &out), report == nullptr ? kzErrNone : kzErrArgument);
            }
            EXPECT_EQ(View(out), expected) << form;
            EXPECT_TRUE(report == nullptr || reports.Take(kDbgWarning, report)) << form;
        }
        EXPECT_EQ(Kind::NoThrow(source, nullptr), kzErrArgument);
        if (report == nullptr) {
            ExpectFaults(
                Kind::Old, [&](auto& out) { return Kind::NoThrow(source, &out); }, Text(), expected);
        }
    }
    template <typename Kind>
    void ExpectEach(const auto& expected, const auto&... sources)
    {
        (ExpectForms<Kind>(sources, expected), ...);
    }
};

TEST_F(StringUtilsConvert, EveryForm)
{
    const struct {
        std::string narrow;
        std::wstring wide;
        bool isNull = false;  // where it is given by a pointer
    } texts[] = {{"", L"", true},
                 {"", L""},
                 {"a", L"a"},
                 {kNarrow, kWide},
                 {"\u20AC" + std::string(99, 'x'), L"\u20AC" + std::wstring(99, L'x')}};
    for (const auto& [narrow, wide, isNull] : texts) {
        SCOPED_TRACE(narrow);
        const std::string toNul = narrow.c_str();  // the narrow forms of wide text end there
        const PStrValue shortText(narrow);
        const unsigned char* const pstr = isNull ? nullptr : +shortText;
        LStrValue counted = isNull ? LStrValue() : LStrValue(narrow);
        const LStr* const text = counted.Get();
        LStr* master = counted.Get();
        LStr** const handle = isNull ? nullptr : &master;
        AutoCFString platform;
        ASSERT_EQ(SU::ToCFStringNoThrow(wide, &platform), 0);
        const LStr* const* const read = handle;
        const CFString* const units = isNull ? nullptr : platform.Get();
        ExpectEach<Narrow>(narrow, pstr, text, read, handle, narrow);
        ExpectEach<Narrow>(toNul, wide);
        ExpectEach<Utf8>(narrow, narrow, wide);
        ExpectEach<Wide>(wide, pstr, text, handle, narrow, units);
        ExpectEach<Short>(narrow, narrow);
        ExpectEach<Short>(toNul, wide);
        ExpectEach<Handle>(narrow, narrow);
        ExpectEach<Handle>(toNul, wide);
    }
    ExpectForms<Short>(std::string(300, 'x'), std::string(255, 'x'));
    ExpectForms<Short>(std::wstring(200, L'\u00E9'), SU::ToUTF8String(std::wstring(128, L'\u00E9')).substr(0, 255));
    LStrValue negative("text");
    negative.Get()->cnt = -5;
    ExpectForms<Narrow>(static_cast<const LStr*>(negative.Get()), std::string());
    EXPECT_EQ(&SU::EmptyNarrowString(), &SU::EmptyNarrowString());
    EXPECT_TRUE(SU::EmptyNarrowString().empty() && SU::EmptyWideString().empty());
}

TEST_F(StringUtilsConvert, MalformedIsReportedAndEmpty)
{
    for (const std::string start : {"", "some text before, longer than a block"}) {
        for (const char* wrong : {"\x80", "ok\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
            SCOPED_TRACE(wrong);
            const char* const report = "Unable to convert from UTF-8 to UTF-32LE";
            ExpectForms<Wide>(start + wrong, std::wstring(), report);
            ExpectForms<Wide>(+PStrValue(start + wrong), std::wstring(), report);
        }
    }
    for (const int value : {0xD800, 0xDFFF, 0x110000, 0x7FFFFFFF, -1}) {
        SCOPED_TRACE(value);
        const std::wstring wide = {L'a', static_cast<wchar_t>(value)};
        const char* const report = "Unable to convert from UTF-32LE to UTF-8";
        ExpectForms<Utf8>(wide, std::string(), report);
        ExpectForms<Narrow>(wide, std::string(), "wcstombs failed: ");
        ExpectForms<Short>(wide, std::string(), "wcstombs failed: ");
        ExpectForms<Handle>(wide, std::string(), "wcstombs failed: ");
        AutoCFString kept;
        EXPECT_EQ(SU::ToCFStringNoThrow(L"kept", &kept), 0);
        CFString* const old = kept.Get();
        EXPECT_EQ(SU::ToCFStringNoThrow(wide, &kept), kzErrArgument);
        EXPECT_EQ(kept.Get(), old);
        EXPECT_TRUE(reports.Take(kDbgWarning, report));
    }
}

TEST_F(StringUtilsConvert, ToPlatformText)
{
    const locale_t before = uselocale(nullptr);
    ExpectFaults([] { return AutoCFString(); }, [](AutoCFString& out) { return SU::ToCFStringNoThrow(kWide, &out); },
                 std::u16string_view(), std::u16string_view(u"a\0\u00E9\u20AC\U0001D11E", 6));
    EXPECT_EQ(SU::ToCFStringNoThrow(kWide, nullptr), kzErrArgument);
    EXPECT_EQ(SU::ToNarrowString(kWide), "a");
    EXPECT_EQ(uselocale(nullptr), before);
}

// Runs of ASCII of each length before, between and behind other characters: blocks begin and end everywhere.
TEST_F(StringUtilsConvert, ToWideWhateverTheBlocks)
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

TEST_F(StringUtilsConvert, OwnEncoderWhereTheLocaleIsMissing)
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

TEST_F(StringUtilsConvert, RoomGrowsAsNeeded)
{
    const std::string wide(reinterpret_cast<const char*>(kWide.data()), kWide.size() * sizeof(wchar_t));
    for (const auto& [narrow, result] :
         {std::pair{kNarrow, wide}, {std::string("a\xFF"), wide.substr(0, 4)}, {"", ""}}) {
        for (const std::size_t room : {0u, 1u, 4u}) {
            std::string bytes = "old";
            const auto outcome =
                kz::ConvertByIconv(kz::IconvPair::kUtf8ToWide, narrow.data(), narrow.size(), room, bytes);
            EXPECT_EQ(outcome, narrow.size() == 2 ? kz::IconvResult::kBadText : kz::IconvResult::kDone);
            EXPECT_EQ(bytes, result) << room;
        }
    }
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

TEST_F(StringUtilsConvert, ConvertersLiveAsLongAsTheirThread)
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

TEST_F(StringUtilsConvert, AppendAndAssign)
{
    // Old texts stay when memory is full; they fit into a text without an allocation.
    const auto expect = [this](const auto& old, const auto& source) {
        std::decay_t<decltype(old)>* const none = nullptr;
        ExpectFaults([&] { return old; }, [&](auto& text) { return SU::AppendNoThrow(&text, source); }, old,
                     old + source);
        ExpectFaults([&] { return old; }, [&](auto& text) { return SU::AssignNoThrow(&text, source); }, old,
                     decltype(old + source)(source));
        EXPECT_TRUE(SU::AppendNoThrow(none, source) == kzErrArgument &&
                    SU::AssignNoThrow(none, source) == kzErrArgument);
    };
    const std::string longer(100, 'x');
    expect(std::string("a"), longer.c_str());
    expect(std::string("a"), longer + '\0');
    expect(std::wstring(L"a"), std::wstring(100, L'\u20AC'));
    std::string text = "ab";
    EXPECT_EQ(SU::AppendNoThrow(&text, text), 0);
    EXPECT_EQ(SU::AssignNoThrow(&text, text.c_str() + 1), 0);
    EXPECT_EQ(SU::AppendNoThrow(&text, static_cast<const char*>(nullptr)), kzErrArgument);
    EXPECT_EQ(SU::AssignNoThrow(&text, static_cast<const char*>(nullptr)), kzErrArgument);
    EXPECT_EQ(text, "bab");
}

// Each form disposes the handle, by the policy and whether it succeeds or not.
TEST_F(StringUtilsConvert, HandlesByPolicy)
{
    for (const int form : {0, 1, 2, 3, 4, 5, 6, 7}) {
        const auto policy = form % 2 == 0 ? SU::kDoNotDeallocate : SU::kDeallocate;
        LStr** const handle = SU::ToLStrHandle("some text");
        std::string out = "old";
        if (form < 2) {
            SU::ToNarrowString(handle, out, policy);
        } else if (form < 4) {
            out = SU::ToNarrowString(handle, policy);
        } else {
            EXPECT_EQ(SU::ToNarrowStringNoThrow(handle, form < 6 ? &out : nullptr, policy), form < 6 ? 0 : 1);
        }
        EXPECT_EQ(out, form < 6 ? "some text" : "old");
        EXPECT_EQ(DSCheckHandle(handle) == 0, policy == SU::kDoNotDeallocate) << form;
        if (policy == SU::kDoNotDeallocate) {
            DSDisposeHandle(handle);
        }
    }
    LStrHandle kept("kept");
    kztest::FailAllocation fail(1);
    EXPECT_EQ(SU::ToLStrHandleNoThrow("another text", &kept.handle), kzErrMemoryFull);
    EXPECT_EQ(kept.Text(), "kept");
    EXPECT_TRUE(reports.Take(kDbgWarning, "Memory error 2 in"));
}

using Texts = std::vector<std::string>;

TEST_F(StringUtilsConvert, ArraysOfHandles)
{
    const Texts texts = {"a", "", kNarrow, std::string(300, 'x')};
    _LStrArray** array = nullptr;
    // What is there stays until the new array is whole; then it is disposed with its strings.
    kztest::FaultLoop([&](auto failed) {
        _LStrArray** const old = array;
        const KzErr error = SU::ToLStrArrayHandleNoThrow(texts, &array);
        EXPECT_EQ(error, failed() ? kzErrMemoryFull : 0);
        EXPECT_EQ(array == old, error != 0);
        EXPECT_EQ((*array)->cnt, 4);
    });
    EXPECT_EQ((*array)->str[1], nullptr) << "null is empty";
    Texts out;
    ExpectFaults([] { return Texts(); }, [&](Texts& made) { return SU::ToNarrowStringVectorNoThrow(array, &made); },
                 out, texts);
    for (const int32 count : {-1, 1000, 4}) {
        (*array)->cnt = count;
        out = {"old"};
        EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, &out), 0);
        EXPECT_EQ(out, count < 0 ? Texts() : texts) << "no more than the block holds";
    }
    for (const int form : {0, 1, 2, 3}) {
        const auto policy = form % 2 == 0 ? SU::kDoNotDeallocate : SU::kDeallocate;
        ASSERT_EQ(SU::ToLStrArrayHandleNoThrow(texts, &(array = form == 2 ? nullptr : array)), 0);
        LStr** const first = (*array)->str[0];
        out = {"old"};
        if (form < 2) {
            SU::ToNarrowStringVector(array, out, policy);
        } else {
            EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(array, nullptr, policy), kzErrArgument);
        }
        EXPECT_EQ(out, form < 2 ? texts : Texts{"old"});
        EXPECT_EQ(DSCheckHandle(array) == 0, form % 2 == 0) << "disposed on failure too";
        EXPECT_EQ(DSCheckHandle(first) == 0, form % 2 == 0);
    }
    ASSERT_EQ(SU::ToLStrArrayHandleNoThrow({"c"}, &(array = nullptr)), 0);
    EXPECT_EQ(SU::ToLStrArrayHandleNoThrow({}, &array), 0);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(SU::ToLStrArrayHandleNoThrow({}, nullptr), kzErrArgument);
    EXPECT_EQ(SU::ToNarrowStringVectorNoThrow(nullptr, &out, SU::kDeallocate), 0);
    EXPECT_EQ(out, Texts());
}

}  // namespace
