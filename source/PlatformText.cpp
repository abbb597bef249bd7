#include "PlatformText.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <new>
#include <utility>

#include "UnicodeCaseTables.h"
#include "Utf8.h"
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

// Take units, to count them or to store them.
struct UnitCounter {
    std::size_t count = 0;
    void Put(char16_t) { ++count; }
};

struct UnitWriter {
    char16_t* at;
    void Put(char16_t unit) { *at++ = unit; }
};

template <typename Sink>
void PutCharacter(Sink& sink, uInt32 value)
{
    if (value < 0x10000) {
        sink.Put(static_cast<char16_t>(value));
    } else {
        sink.Put(static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10)));
        sink.Put(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
    }
}

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

// False where the bytes are not UTF-8 and nothing stands in for what is wrong.
template <bool kEscape, typename Sink>
bool DecodeUtf8(const unsigned char* bytes, const unsigned char* end, Sink& sink)
{
    while (bytes < end) {
        const bool isNul = *bytes == 0;
        uInt32 value = ConvertUTF8toUTF32(&bytes, end);
        if (value == 0) {
            if (kEscape) {
                value = kz::kReplacementCharacter;
            } else if (!isNul) {
                return false;
            }
        }
        PutCharacter(sink, value);
    }
    return true;
}

class CaseMapping {
public:
    constexpr CaseMapping(const kz::CaseRange* ranges, std::size_t rangeCount, const kz::CaseExpansion* expansions,
                          std::size_t expansionCount)
        : mRanges(ranges),
          mRangesEnd(ranges + rangeCount),
          mExpansions(expansions),
          mExpansionsEnd(expansions + expansionCount)
    {}

    template <typename Sink>
    void Put(Sink& sink, uInt32 value) const
    {
        if (const kz::CaseExpansion* const expansion = FindExpansion(value)) {
            sink.Put(expansion->to[0]);
            sink.Put(expansion->to[1]);
            if (expansion->to[2] != 0) {
                sink.Put(expansion->to[2]);
            }
        } else {
            PutCharacter(sink, Map(value));
        }
    }

private:
    const kz::CaseExpansion* FindExpansion(uInt32 value) const
    {
        const auto found = std::lower_bound(mExpansions, mExpansionsEnd, value,
                                            [](const kz::CaseExpansion& e, uInt32 v) { return e.from < v; });
        return found != mExpansionsEnd && found->from == value ? found : nullptr;
    }

    uInt32 Map(uInt32 value) const
    {
        const auto found =
            std::lower_bound(mRanges, mRangesEnd, value, [](const kz::CaseRange& r, uInt32 v) { return r.last < v; });
        if (found == mRangesEnd || value < found->first ||
            (value - found->first) % static_cast<uInt32>(found->step) != 0) {
            return value;
        }
        return value + static_cast<uInt32>(found->delta);
    }

    const kz::CaseRange* mRanges;
    const kz::CaseRange* mRangesEnd;
    const kz::CaseExpansion* mExpansions;
    const kz::CaseExpansion* mExpansionsEnd;
};

constexpr CaseMapping kToUpper(kz::kUpperRanges, std::size(kz::kUpperRanges), kz::kUpperExpansions,
                               std::size(kz::kUpperExpansions));
constexpr CaseMapping kToLower(kz::kLowerRanges, std::size(kz::kLowerRanges), kz::kLowerExpansions,
                               std::size(kz::kLowerExpansions));

template <typename Sink>
bool MapUnits(const CaseMapping& mapping, const char16_t* at, const char16_t* end, Sink& sink)
{
    while (at < end) {
        mapping.Put(sink, NextCharacter(at, end));
    }
    return true;
}

}  // namespace

// Makes the units of what `produce` puts into a sink, in a first pass to count them; false from it means no UTF-8.
template <typename Produce>
PlatformText::Status PlatformText::Rebuild(const Produce& produce) noexcept
{
    UnitCounter counter;
    if (!produce(counter)) {
        return kNotUtf8;
    }
    std::unique_ptr<char16_t[]> units(new (std::nothrow) char16_t[counter.count]);
    if (units == nullptr) {
        return kNoMemory;
    }
    UnitWriter writer{units.get()};
    produce(writer);
    mUnits = std::move(units);
    mLength = counter.count;
    return kDone;
}

PlatformText::Status PlatformText::SetUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild([&](auto& sink) { return DecodeUtf8<false>(bytes, bytes + length, sink); });
}

PlatformText::Status PlatformText::SetEscapedUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild([&](auto& sink) { return DecodeUtf8<true>(bytes, bytes + length, sink); });
}

PlatformText::Status PlatformText::Upper() noexcept
{
    return Rebuild([&](auto& sink) { return MapUnits(kToUpper, Units(), Units() + mLength, sink); });
}

PlatformText::Status PlatformText::Lower() noexcept
{
    return Rebuild([&](auto& sink) { return MapUnits(kToLower, Units(), Units() + mLength, sink); });
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
    char* const text = buffer != nullptr ? buffer : static_cast<char*>(std::malloc(size));
    if (text != nullptr) {
        const std::size_t written = mText->GetUtf8(0, length, reinterpret_cast<unsigned char*>(text), needed - 1);
        text[written] = '\0';
    }
    return text;
}
