// A format comes from a caller and goes to the C library's printf, which trusts it: one conversion too many, or one of
// another class, would read what is no argument. So the one conversion is read here by the C standard's grammar, and
// what printf gets is a conversion written anew from what was understood, never the caller's text.
#include "DebugFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "BoundedText.h"
#include "KzAssert.h"
#include "PlatformLocale.h"

namespace {

constexpr char kBadFormat[] = "__DbgFmtType: Bad Format__";

constexpr char kFlags[] = "-+ #0'";

// The widest field and the finest precision that are used: more than a report holds would only cost time.
constexpr int kMostCharacters = 255;

// What a conversion takes from the arguments.
enum class Argument { kSigned, kUnsigned, kCharacter, kDouble, kOther };

// The conversions by their letters, and the length modifiers that each may have. Two are left out: %m, which takes no
// argument, and %n, which writes to it.
constexpr struct Kind {
    const char* letters;
    Argument argument;
    const char* lengths;
    bool doubles;  // "hh" and "ll" too
} kKinds[] = {
    {"di", Argument::kSigned, "hlqjzt", true}, {"ouxX", Argument::kUnsigned, "hlqjzt", true},
    {"c", Argument::kCharacter, "l", false},   {"aAeEfFgG", Argument::kDouble, "lL", false},
    {"s", Argument::kOther, "l", false},       {"CSp", Argument::kOther, "", false},
};

// One conversion: '%', flags, width, '.' and precision, length, letter, in this order. Only the first and the last must
// be there.
struct Conversion {
    const char* begin = nullptr;  // its '%'
    const char* end = nullptr;    // behind the letter
    const Kind* kind = nullptr;
    char letter = '\0';
    bool flags[sizeof kFlags - 1] = {};
    int width = -1;  // -1 without one, and no more than one too many
    int precision = -1;
};

bool IsOneOf(char c, const char* set)
{
    return c != '\0' && std::strchr(set, c) != nullptr;
}

// Reads the digits at `p`, and moves it behind them; 0 without digits.
int ReadNumber(const char*& p)
{
    KZ_ASSERT(p != nullptr);
    int number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        number = std::min(number * 10 + (*p - '0'), kMostCharacters + 1);
    }
    return number;
}

const Kind* KindOf(char letter)
{
    const auto* kind =
        std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& k) { return IsOneOf(letter, k.letters); });
    return kind != std::end(kKinds) ? kind : nullptr;
}

// Reads the conversion at `p`, which points to a '%' and not to "%%"; false when it isn't one. A '*' is no part of it:
// it would take an argument of its own, which is not there.
bool ReadConversion(const char* p, Conversion* conversion)
{
    KZ_ASSERT(*p == '%');
    conversion->begin = p++;
    for (; IsOneOf(*p, kFlags); ++p) {
        conversion->flags[std::strchr(kFlags, *p) - kFlags] = true;
    }
    if (IsOneOf(*p, "123456789")) {
        conversion->width = ReadNumber(p);
    }
    if (*p == '.') {
        conversion->precision = ReadNumber(++p);
    }
    const char length = *p;
    int lengthSize = 0;
    if (IsOneOf(length, "hlLqjzt")) {
        lengthSize = (length == 'h' || length == 'l') && p[1] == length ? 2 : 1;
        p += lengthSize;
    }
    conversion->letter = *p;
    conversion->end = p + 1;
    conversion->kind = KindOf(*p);
    return conversion->kind != nullptr && (lengthSize == 0 || IsOneOf(length, conversion->kind->lengths)) &&
           (lengthSize < 2 || conversion->kind->doubles);
}

// Finds the format's only conversion; false when there is none, more than one or one that is not complete.
bool FindOnlyConversion(const char* format, Conversion* only)
{
    bool found = false;
    const char* p = format;
    while (p != nullptr && (p = std::strchr(p, '%')) != nullptr) {
        if (p[1] == '%') {
            p += 2;
            continue;
        }
        if (found || !ReadConversion(p, only)) {
            return false;
        }
        found = true;
        p = only->end;
    }
    return found;
}

// The text beside the conversion, with "%%" for each '%'.
void AppendLiteral(kz::BoundedText& text, const char* p, const char* end)
{
    KZ_ASSERT(p <= end);
    for (; p != end && text.Room() > 0; ++p) {
        p += *p == '%' ? 1 : 0;
        text.Append(p, p + 1);
    }
}

template <typename T>
void AppendConverted(kz::BoundedText& text, const char* format, T value)
{
    const kz::ScopedLocale scope(kz::CLocale());
    const int length = std::snprintf(text.Cursor(), text.Room() + 1, format, value);
    if (length > 0) {
        text.Advance(std::min(text.Room(), static_cast<size_t>(length)));
    }
}

// Formats with the conversion rebuilt around `length`, the value's own.
template <typename T>
void Format(const char* format, const Conversion& conversion, const char* length, T value, kz::BoundedText text)
{
    KZ_ASSERT(conversion.width <= kMostCharacters && conversion.precision <= kMostCharacters);
    char rebuilt[32];
    kz::BoundedText rest(rebuilt, sizeof rebuilt);
    rest.Append("%");
    for (size_t i = 0; i < std::size(conversion.flags); ++i) {
        rest.Append(kFlags + i, kFlags + i + (conversion.flags[i] ? 1 : 0));
    }
    if (conversion.width >= 0) {
        rest.AppendInteger(conversion.width);
    }
    if (conversion.precision >= 0) {
        rest.Append(".");
        rest.AppendInteger(conversion.precision);
    }
    rest.Append(length);
    rest.Append(&conversion.letter, &conversion.letter + 1);
    AppendLiteral(text, format, conversion.begin);
    AppendConverted(text, rebuilt, value);
    AppendLiteral(text, conversion.end, conversion.end + std::strlen(conversion.end));
}

// The argument of the format's only conversion; kOther where there is none such, or one too wide.
Argument FindUsableConversion(const char* format, Conversion* conversion)
{
    return FindOnlyConversion(format, conversion) && conversion->width <= kMostCharacters &&
                   conversion->precision <= kMostCharacters
               ? conversion->kind->argument
               : Argument::kOther;
}

}  // namespace

void ToDebugStream(DebugStream& stream, const DbgFmtToDebugStream& value)
{
    value.ToDebugStream(stream);
}

void DbgFmtCStr::ToDebugStream(DebugStream& stream) const
{
    stream.Append(reinterpret_cast<const char*>(mText));
}

void DbgFmtPStr::ToDebugStream(DebugStream& stream) const
{
    if (mText != nullptr) {
        const char* text = reinterpret_cast<const char*>(mText + 1);
        stream.Append(text, text + mText[0]);
    }
}

void DbgFmtPtr::ToDebugStream(DebugStream& stream) const
{
    DbgFmtHex("0x%016llx", mValue).ToDebugStream(stream);
}

void DbgFmtQuadChar::ToDebugStream(DebugStream& stream) const
{
    constexpr unsigned char kDelete = 127;
    unsigned char bytes[sizeof mCode];
    std::memcpy(bytes, &mCode, sizeof bytes);
    for (const unsigned char byte : bytes) {
        stream.Append(byte < ' ' || byte == kDelete ? ' ' : static_cast<char>(byte));
    }
}

// A format of another class gives a text in place of the number, because a report must not end the process.
void DbgFmtNum::FormatInteger(const char* format, int64 asSigned, uInt64 asUnsigned)
{
    kz::BoundedText text(mText, sizeof mText);
    Conversion conversion;
    switch (FindUsableConversion(format, &conversion)) {
        case Argument::kSigned:
            return Format(format, conversion, "ll", asSigned, text);
        case Argument::kUnsigned:
            return Format(format, conversion, "ll", asUnsigned, text);
        case Argument::kCharacter:
            return Format(format, conversion, "", static_cast<int>(asSigned), text);
        default:
            return text.Append(kBadFormat);
    }
}

DbgFmtNum::DbgFmtNum(const char* format, double value)
{
    kz::BoundedText text(mText, sizeof mText);
    Conversion conversion;
    if (FindUsableConversion(format, &conversion) == Argument::kDouble) {
        Format(format, conversion, "", value, text);
    } else {
        text.Append(kBadFormat);
    }
}

void DbgFmtNum::ToDebugStream(DebugStream& stream) const
{
    stream.Append(mText);
}

KzBool VerifySingleFormatSpecifier(const char* format)
{
    Conversion ignored;
    return FindOnlyConversion(format, &ignored) ? 1 : 0;
}
