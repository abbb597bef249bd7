// Any bytes as UTF-8 and as UTF-32: the steps agree with a validator of its own, stay inside and always move on; what
// is decoded encodes to the same; conversions agree with iconv, and the case maps stay in bounds.

#include <iconv.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "PlatformText.h"
#include "StringUtils.h"
#include "Utf8.h"

namespace {

using Bytes = std::vector<unsigned char>;

using kzfuzz::Require;

// The length of the well-formed character at a place, or 0: the rows of table 3-7 of the Unicode standard as they
// stand.
std::size_t WellFormedLength(const unsigned char* at, const unsigned char* end)
{
    static constexpr struct {
        unsigned char first[2];
        std::size_t length;
        unsigned char second[2];
    } kRows[] = {
        {{0x00, 0x7F}, 1, {0, 0}},       {{0xC2, 0xDF}, 2, {0x80, 0xBF}}, {{0xE0, 0xE0}, 3, {0xA0, 0xBF}},
        {{0xE1, 0xEC}, 3, {0x80, 0xBF}}, {{0xED, 0xED}, 3, {0x80, 0x9F}}, {{0xEE, 0xEF}, 3, {0x80, 0xBF}},
        {{0xF0, 0xF0}, 4, {0x90, 0xBF}}, {{0xF1, 0xF3}, 4, {0x80, 0xBF}}, {{0xF4, 0xF4}, 4, {0x80, 0x8F}},
    };
    const auto within = [](unsigned char c, const unsigned char(&range)[2]) { return c >= range[0] && c <= range[1]; };
    for (const auto& row : kRows) {
        if (within(at[0], row.first)) {
            if (static_cast<std::size_t>(end - at) < row.length || (row.length > 1 && !within(at[1], row.second))) {
                return 0;
            }
            const bool continues =
                std::all_of(at + 1, at + row.length, [](unsigned char c) { return c >= 0x80 && c <= 0xBF; });
            return continues ? row.length : 0;
        }
    }
    return 0;
}

// Encodes into blocks of exactly `room` bytes, one after the other, so that a sanitizer sees a write behind one.
Bytes EncodeInPieces(const std::vector<uInt32>& values, std::size_t room)
{
    Bytes all;
    const uInt32* source = values.data();
    const uInt32* const sourceEnd = source + values.size();
    while (source < sourceEnd) {
        const std::unique_ptr<unsigned char[]> block(new unsigned char[room]);
        unsigned char* target = block.get();
        const uInt32* const before = source;
        const KzBool result = ConvertUTF32toUTF8(&source, sourceEnd, &target, block.get() + room);
        Require(source > before && source <= sourceEnd, "4 bytes of room are enough to go on");
        const bool replaced = std::any_of(before, source, [](uInt32 value) { return value > 0x10FFFF; });
        Require((result != 0) == (source == sourceEnd && !replaced), "the result tells what was written");
        all.insert(all.end(), block.get(), target);
    }
    return all;
}

struct Steps {
    std::vector<uInt32> values;  // of the well-formed characters
    Bytes kept;                  // their bytes
    std::size_t wrong = 0;       // how many steps were over something else
    std::size_t nuls = 0;
};

Steps Walk(const Bytes& text)
{
    Steps steps;
    const unsigned char* at = text.data();
    const unsigned char* const end = at + text.size();
    while (at < end) {
        const unsigned char* const before = at;
        const std::size_t length = WellFormedLength(at, end);
        const uInt32 value = ConvertUTF8toUTF32(&at, end);
        Require(at > before && at <= end && at - before <= 6, "a step moves on, and not past the end");
        if (length == 0) {
            Require(value == 0, "what is not well-formed has no value");
            ++steps.wrong;
        } else {
            Require(at == before + length && (value != 0 || *before == 0), "what is well-formed has a value");
            Require(value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF), "a value is a character");
            steps.values.push_back(value);
            steps.kept.insert(steps.kept.end(), before, at);
            steps.nuls += value == 0 ? 1 : 0;
        }
    }
    return steps;
}

// What iconv itself makes of the text; false when it refuses it.
bool Iconv(const std::string& text, std::wstring& out)
{
    static const iconv_t sConverter = iconv_open(StringUtils::GetCurrentPlatformIconvWideEncodingString(), "UTF-8");
    iconv(sConverter, nullptr, nullptr, nullptr, nullptr);
    out.resize(text.size());
    char* in = const_cast<char*>(text.data());
    std::size_t left = text.size();
    char* target = reinterpret_cast<char*>(out.data());
    std::size_t room = out.size() * sizeof(wchar_t);
    const bool done = iconv(sConverter, &in, &left, &target, &room) != static_cast<std::size_t>(-1);
    out.resize(done ? out.size() - room / sizeof(wchar_t) : 0);
    return done;
}

void CheckConversions(const Bytes& bytes, const Steps& steps)
{
    const std::string text(bytes.begin(), bytes.end());
    std::wstring wide;
    std::wstring expected;
    const KzErr error = StringUtils::ToWideStringNoThrow(text, &wide);
    Require((error == 0) == Iconv(text, expected) && (error == 0) == (steps.wrong == 0), "iconv takes the same texts");
    Require(wide == expected, "iconv gives the same values");
    if (error == 0) {
        Require(StringUtils::ToUTF8String(wide) == text, "wide text gives the same bytes");
        Require(StringUtils::ToNarrowString(wide) == text.c_str(), "wide text gives the same bytes up to a NUL");
    }
}

std::string Utf8(const PlatformText& text, std::size_t first, std::size_t count, std::size_t limit)
{
    std::string out(text.GetUtf8(first, count, nullptr, limit), '\0');
    Require(out.size() <= limit, "no more than the limit");
    Require(text.GetUtf8(first, count, reinterpret_cast<unsigned char*>(out.data()), out.size()) == out.size(),
            "as many bytes are written as were told");
    return out;
}

void CheckCase(PlatformText text, PlatformText::Outcome (PlatformText::*map)() noexcept)
{
    const std::size_t before = text.Length();
    Require((text.*map)() == PlatformText::kDone, "memory");
    Require(text.Length() >= before && text.Length() <= 3 * before, "a mapping adds up to two units");
    const std::string once = Utf8(text, 0, text.Length(), SIZE_MAX);
    Require((text.*map)() == PlatformText::kDone, "memory");
    Require(Utf8(text, 0, text.Length(), SIZE_MAX) == once, "a second mapping changes nothing");
}

void CheckPlatformText(const Bytes& bytes, const Steps& steps, unsigned selector)
{
    PlatformText text;
    Require((text.SetUtf8(bytes.data(), bytes.size()) == PlatformText::kDone) == (steps.wrong == 0),
            "platform text takes what is well-formed");
    if (steps.wrong == 0) {
        Require(Utf8(text, 0, text.Length(), SIZE_MAX) == std::string(bytes.begin(), bytes.end()), "and keeps it");
    }
    Require(text.SetEscapedUtf8(bytes.data(), bytes.size()) == PlatformText::kDone, "memory");
    const std::string all = Utf8(text, 0, SIZE_MAX, SIZE_MAX);
    Require(all.size() == steps.kept.size() - steps.nuls + 3 * (steps.wrong + steps.nuls), "3 bytes for what is wrong");
    Require(all.size() <= PlatformText::MaximumUtf8Size(text.Length()), "no unit needs more than 3 bytes");
    const std::size_t limit = selector % (all.size() + 1);
    const std::string cut = Utf8(text, 0, SIZE_MAX, limit);
    Require(all.compare(0, cut.size(), cut) == 0 && limit - cut.size() < 4, "a limit cuts whole characters");
    Utf8(text, selector % 7, selector % 5, SIZE_MAX);
    PlatformText copy;
    Require(copy.SetEscapedUtf8(bytes.data(), bytes.size()) == PlatformText::kDone, "memory");
    CheckCase(std::move(text), &PlatformText::Upper);
    CheckCase(std::move(copy), &PlatformText::Lower);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const unsigned selector = data[0] * 257u;
    const Bytes text(data + 1, data + size);  // its end is the end of its block
    const Steps steps = Walk(text);
    Require(EncodeInPieces(steps.values, 4 + selector % 61) == steps.kept, "values encode to the bytes they came from");

    std::vector<uInt32> values(text.size() / sizeof(uInt32));
    if (!values.empty()) {
        std::memcpy(values.data(), text.data(), values.size() * sizeof(uInt32));
    }
    Walk(EncodeInPieces(values, 4));

    CheckConversions(text, steps);
    CheckPlatformText(text, steps, selector);
    return 0;
}
