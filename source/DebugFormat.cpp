#include "DebugFormat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "PlatformLocale.h"

namespace {

constexpr char kBadFormat[] = "__DbgFmtType: Bad Format__";

// The parts of one conversion, as pointers into the format.
struct Conversion {
    const char* begin = nullptr;     // its '%'
    const char* modifier = nullptr;  // the end of flags, width and precision
    char letter = '\0';
    const char* end = nullptr;  // behind the letter
};

const char* SkipAny(const char* p, const char* set)
{
    return p + std::strspn(p, set);
}

// Reads the conversion at `p`, which points to a '%' and not to "%%"; false when it isn't complete.
bool ReadConversion(const char* p, Conversion* conversion)
{
    conversion->begin = p;
    conversion->modifier = SkipAny(p + 1, "-+ #0'123456789.*");
    p = SkipAny(conversion->modifier, "hlLqjzt");
    conversion->letter = *p;
    conversion->end = p + 1;
    return *p != '\0' && std::strchr("diouxXcCsSpnmaAeEfFgG", *p) != nullptr;
}

// Finds the format's only conversion; false when there is none, more than one or an incomplete one.
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

// Appends to a text of fixed size and cuts what doesn't fit.
class Writer {
public:
    Writer(char* text, size_t size) : mCursor(text), mEnd(text + size - 1) { *mCursor = '\0'; }

    // The text between two conversions, with "%%" for each '%'.
    void AppendLiteral(const char* p, const char* end)
    {
        for (; p != end && mCursor != mEnd; ++p) {
            p += *p == '%' ? 1 : 0;
            *mCursor++ = *p;
        }
        *mCursor = '\0';
    }

    template <typename T>
    void AppendConverted(const char* format, T value)
    {
        const auto room = static_cast<size_t>(mEnd - mCursor);
        const kz::ScopedLocale scope(kz::CLocale());
        const int length = std::snprintf(mCursor, room + 1, format, value);
        if (length > 0) {
            mCursor += std::min(room, static_cast<size_t>(length));
        }
    }

private:
    char* mCursor;
    char* mEnd;
};

// Formats with the one conversion rebuilt around `modifier`. False for a format of another class than `letters`, or one
// whose width is taken from an argument that isn't there.
template <typename T>
bool Format(const char* format, const char* letters, const char* modifier, T value, char* text, size_t size)
{
    Conversion conversion;
    if (!FindOnlyConversion(format, &conversion) || std::strchr(letters, conversion.letter) == nullptr ||
        std::find(conversion.begin, conversion.modifier, '*') != conversion.modifier) {
        return false;
    }
    char rebuilt[256];  // as long as the longest text
    const int length =
        std::snprintf(rebuilt, sizeof rebuilt, "%.*s%s%c", static_cast<int>(conversion.modifier - conversion.begin),
                      conversion.begin, modifier, conversion.letter);
    if (length < 0 || static_cast<size_t>(length) >= sizeof rebuilt) {
        return false;
    }
    Writer writer(text, size);
    writer.AppendLiteral(format, conversion.begin);
    writer.AppendConverted(rebuilt, value);
    writer.AppendLiteral(conversion.end, conversion.end + std::strlen(conversion.end));
    return true;
}

}  // namespace

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

void DbgFmtNum::FormatInteger(const char* format, int64 asSigned, uInt64 asUnsigned)
{
    if (!Format(format, "di", "ll", asSigned, mText, sizeof mText) &&
        !Format(format, "ouxX", "ll", asUnsigned, mText, sizeof mText) &&
        !Format(format, "c", "", static_cast<int>(asSigned), mText, sizeof mText)) {
        std::memcpy(mText, kBadFormat, sizeof kBadFormat);
    }
}

DbgFmtNum::DbgFmtNum(const char* format, double value)
{
    if (!Format(format, "aAeEfFgG", "", value, mText, sizeof mText)) {
        std::memcpy(mText, kBadFormat, sizeof kBadFormat);
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
