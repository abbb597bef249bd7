// A GUID's text is 8-4-4-4-12 digits: the word and the two halves as numbers, most significant digit first, then the
// eight bytes in order. So a text reads the same on every machine, while the words in memory are in its own byte order.
#include "ZVGuid.h"

#include <cstdio>
#include <cstring>

#include "DebugStream.h"
#include "KzErr.h"
#include "PlatformUuid.h"
#include "RandomGen.h"

namespace {

constexpr ZVGuidType kNullGuid = {};
constexpr unsigned long kTextLength = 36;
// Where the digits of bytes[0] to bytes[7] stand in the text.
constexpr int kByteOffsets[] = {19, 21, 24, 26, 28, 30, 32, 34};

static_assert(sizeof(ZVGuidType) == 16, "a GUID is 16 bytes, without padding");

// What is no digit counts as 0, because texts are checked for their length only: any text of 36 characters is a GUID.
uInt32 DigitValue(char c)
{
    if (c >= '0' && c <= '9') {
        return static_cast<uInt32>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<uInt32>(c - 'a' + 10);
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<uInt32>(c - 'A' + 10);
    }
    return 0;
}

// Reads the number up to the next dash, which `cursor` then stands behind.
uInt32 ReadGroup(const char*& cursor, const char* end)
{
    uInt32 value = 0;
    while (cursor != end && *cursor != '-') {
        value = (value << 4) | DigitValue(*cursor++);
    }
    if (cursor != end) {
        ++cursor;
    }
    return value;
}

}  // namespace

const ZVGuidType* NullZVGuid()
{
    return &kNullGuid;
}

KzBool ZVGuidsEqual(const ZVGuidType* a, const ZVGuidType* b)
{
    return std::memcmp(a, b, sizeof *a) == 0;
}

KzErr ZVGuidToCStr(const ZVGuidType* guid, char* out)
{
    if (out != nullptr) {
        const uInt8* const b = guid->bytes;
        std::snprintf(out, kTextLength + 1, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", guid->word, guid->half1,
                      guid->half2, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    }
    return kzErrNone;
}

KzErr ZVGuidFromCStr(const char* text, ZVGuidType* out)
{
    if (text == nullptr) {
        return kzErrArgument;
    }
    if (out == nullptr) {
        return kzErrNone;
    }
    if (strnlen(text, kTextLength + 1) != kTextLength) {
        return kzErrBadGuidText;
    }
    // The groups end at their dashes wherever these stand, so a dash out of place shifts the numbers but can't lead
    // past the end. The bytes are read from fixed places.
    const char* cursor = text;
    const char* const end = text + kTextLength;
    out->word = ReadGroup(cursor, end);
    out->half1 = static_cast<uInt16>(ReadGroup(cursor, end));
    out->half2 = static_cast<uInt16>(ReadGroup(cursor, end));
    for (int i = 0; i < 8; ++i) {
        const char* const digits = text + kByteOffsets[i];
        out->bytes[i] = static_cast<uInt8>((DigitValue(digits[0]) << 4) | DigitValue(digits[1]));
    }
    return kzErrNone;
}

void ZVGuidCreate(ZVGuidType* out)
{
    if (out == nullptr) {
        return;
    }
    uInt8 bytes[sizeof *out] = {};
    if (!kz::PlatformUuid(bytes)) {
        // The draws' own bytes, because a GUID only has to differ from others.
        double draws[2];
        static_assert(sizeof draws == sizeof bytes);
        RandomGen(&draws[0]);
        RandomGen(&draws[1]);
        std::memcpy(bytes, draws, sizeof bytes);
    }
    std::memcpy(out, bytes, sizeof bytes);
}

KzErr ZVGuidCreateStr(char* out)
{
    ZVGuidType guid;
    ZVGuidCreate(&guid);
    return ZVGuidToCStr(&guid, out);
}

void ToDebugStream(DebugStream& stream, const ZVGuidType& guid)
{
    char text[kTextLength + 1];
    stream.Append(ZVGuidToCStr(&guid, text) == kzErrNone ? text : "<<Error printing ZVGuidType>>");
}
