// A text holds exactly the units of its last successful change: each change builds the new units beside the old ones
// and swaps them in at its end, so that a failure leaves the text as it was. Half a character may stand anywhere,
// because texts come from outside; it maps to itself, and leaves as '?' in UTF-8.
#include "PlatformText.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "KzAssert.h"
#include "UnicodeCase.h"
#include "Utf8Codec.h"

namespace {

constexpr bool IsHighSurrogate(char16_t unit)
{
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool IsLowSurrogate(char16_t unit)
{
    return (unit & 0xFC00) == 0xDC00;
}

constexpr bool IsSurrogate(uInt32 value)
{
    return value >= 0xD800 && value <= 0xDFFF;
}

// Stores the units that fit and counts them all.
class UnitWriter {
public:
    UnitWriter(char16_t* units, std::size_t room) : mUnits(units), mRoom(room) {}

    // A character, or half of one.
    void Put(uInt32 value)
    {
        if (value < 0x10000) {
            PutUnit(static_cast<char16_t>(value));
        } else {
            PutUnit(static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10)));
            PutUnit(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
        }
    }
    std::size_t Count() const { return mCount; }

private:
    void PutUnit(char16_t unit)
    {
        if (mCount < mRoom) {
            mUnits[mCount] = unit;
        }
        ++mCount;
    }

    char16_t* mUnits;
    std::size_t mRoom;
    std::size_t mCount = 0;
};

// The character at *at, which moves behind it; the unit itself when it is half a character.
uInt32 NextCharacter(const char16_t*& at, const char16_t* end)
{
    const char16_t unit = *at++;
    if (IsHighSurrogate(unit) && at < end && IsLowSurrogate(*at)) {
        const uInt32 high = unit;
        return 0x10000 + ((high - 0xD800) << 10) + (*at++ - 0xDC00u);
    }
    return unit;
}

bool MapUnits(const kz::CaseMapping& mapping, const char16_t* at, const char16_t* end, UnitWriter& writer)
{
    while (at < end) {
        mapping.Put(writer, NextCharacter(at, end));
    }
    return true;
}

}  // namespace

// Takes the units that `produce` puts into a writer, mostly no more than `room`; false from it means no UTF-8.
template <typename Produce>
PlatformText::Outcome PlatformText::Rebuild(std::size_t room, const Produce& produce) noexcept
{
    // Run again where the guess was short, because a second pass is rarer than a count before each first one is dear.
    for (;;) {
        std::unique_ptr<char16_t[]> units(new (std::nothrow) char16_t[room]);
        if (units == nullptr) {
            return kNoMemory;
        }
        UnitWriter writer(units.get(), room);
        if (!produce(writer)) {
            return kNotUtf8;
        }
        if (writer.Count() <= room) {
            mUnits = std::move(units);
            mLength = writer.Count();
            return kDone;
        }
        room = writer.Count();
    }
}

// No byte, and no step over what is wrong, makes more than one unit.
PlatformText::Outcome PlatformText::SetUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild(length, [&](UnitWriter& writer) { return kz::DecodeUtf8<false>(bytes, bytes + length, writer); });
}

PlatformText::Outcome PlatformText::SetEscapedUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild(length, [&](UnitWriter& writer) { return kz::DecodeUtf8<true>(bytes, bytes + length, writer); });
}

PlatformText::Outcome PlatformText::Upper() noexcept
{
    return Rebuild(mLength, [&](UnitWriter& w) { return MapUnits(kz::kToUpper, Units(), Units() + mLength, w); });
}

PlatformText::Outcome PlatformText::Lower() noexcept
{
    return Rebuild(mLength, [&](UnitWriter& w) { return MapUnits(kz::kToLower, Units(), Units() + mLength, w); });
}

std::size_t PlatformText::GetUtf8(std::size_t first, std::size_t count, unsigned char* out,
                                  std::size_t limit) const noexcept
{
    first = std::min(first, mLength);
    const char16_t* at = mUnits.get() + first;
    const char16_t* const end = at + std::min(count, mLength - first);
    std::size_t size = 0;
    while (at < end) {
        uInt32 value = NextCharacter(at, end);
        if (IsSurrogate(value)) {
            value = '?';
        }
        const std::size_t step = kz::Utf8Size(value);
        KZ_ASSERT(size <= limit);
        if (step > limit - size) {
            break;
        }
        if (out != nullptr) {
            kz::EncodeUtf8(value, out + size);
        }
        size += step;
    }
    return size;
}

CFString* CFStringWithEscapedInvalidUTF8Characters(const unsigned char* bytes, std::size_t length)
{
    std::unique_ptr<CFString> text(new (std::nothrow) CFString);
    if (text == nullptr || text->SetEscapedUtf8(bytes, length) != CFString::kDone) {
        return nullptr;
    }
    return text.release();
}

AutoCFString::~AutoCFString()
{
    delete mText;
}

AutoCFString& AutoCFString::operator=(AutoCFString&& other) noexcept
{
    if (this != &other) {
        Attach(other.Detach());
    }
    return *this;
}

void AutoCFString::Attach(CFString* text)
{
    if (text != mText) {
        delete mText;
        mText = text;
    }
}

CFString* AutoCFString::Detach()
{
    return std::exchange(mText, nullptr);
}

char* AutoCFString::MallocCStr(int32 maxSize, char* buffer, uInt32 encoding) const
{
    if (mText == nullptr || encoding != kCFStringEncodingUTF8) {
        return nullptr;
    }
    const std::size_t length = mText->Length();
    const std::size_t needed = mText->GetUtf8(0, length, nullptr, static_cast<std::size_t>(-1)) + 1;
    std::size_t size = CFString::MaximumUtf8Size(length) + 1;
    if (maxSize > 0) {
        const std::size_t limit = static_cast<std::size_t>(maxSize);
        size = buffer != nullptr ? limit : std::min(size, limit);
    } else {
        buffer = nullptr;
    }
    if (needed > size) {
        return nullptr;
    }
    // A block of ours may be larger than the text needs; what is written never passes `needed`.
    char* const text = buffer != nullptr ? buffer : static_cast<char*>(std::malloc(size));
    if (text != nullptr) {
        const std::size_t written = mText->GetUtf8(0, length, reinterpret_cast<unsigned char*>(text), needed - 1);
        text[written] = '\0';
    }
    return text;
}
