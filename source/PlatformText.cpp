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

// Stores the units that fit and counts them all.
class UnitWriter {
public:
    UnitWriter(char16_t* units, std::size_t room) : mUnits(units), mRoom(room) {}

    void Put(char16_t unit)
    {
        if (mCount < mRoom) {
            mUnits[mCount] = unit;
        }
        ++mCount;
    }
    std::size_t Count() const { return mCount; }

private:
    char16_t* mUnits;
    std::size_t mRoom;
    std::size_t mCount = 0;
};

void PutCharacter(UnitWriter& writer, uInt32 value)
{
    if (value < 0x10000) {
        writer.Put(static_cast<char16_t>(value));
    } else {
        writer.Put(static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10)));
        writer.Put(static_cast<char16_t>(0xDC00 + (value & 0x3FF)));
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
template <bool kEscape>
bool DecodeUtf8(const unsigned char* bytes, const unsigned char* end, UnitWriter& writer)
{
    while (bytes < end) {
        if (*bytes > 0 && *bytes < 0x80) {
            writer.Put(*bytes++);
            continue;
        }
        const bool isNul = *bytes == 0;
        uInt32 value = ConvertUTF8toUTF32(&bytes, end);
        if (value == 0) {
            if (kEscape) {
                value = kz::kReplacementCharacter;
            } else if (!isNul) {
                return false;
            }
        }
        PutCharacter(writer, value);
    }
    return true;
}

// The characters with case are on the first of the pages of 256.
constexpr uInt32 kPages = (std::max(std::end(kz::kUpperRanges)[-1].last, std::end(kz::kLowerRanges)[-1].last) >> 8) + 1;

// For each page the number of ranges that end before it, so that a search looks at few.
struct PageIndex {
    template <std::size_t kCount>
    explicit constexpr PageIndex(const kz::CaseRange (&ranges)[kCount])
    {
        static_assert(kCount < 0x100);
        std::size_t before = 0;
        for (uInt32 page = 0; page <= kPages; ++page) {
            while (before < kCount && ranges[before].last < page << 8) {
                ++before;
            }
            starts[page] = static_cast<unsigned char>(before);
        }
    }

    unsigned char starts[kPages + 1] = {};
};

// The mappings of one direction, with the letters of ASCII apart.
class CaseMapping {
public:
    template <std::size_t kCount>
    constexpr CaseMapping(const kz::CaseRange (&ranges)[kCount], const kz::CaseExpansion* expansions, char firstLetter,
                          int letterDelta)
        : mRanges(ranges),
          mRangesEnd(ranges + kCount),
          mPages(ranges),
          mExpansions(expansions),
          mFirstLetter(static_cast<unsigned char>(firstLetter)),
          mLetterDelta(static_cast<uInt32>(letterDelta))
    {}

    void Put(UnitWriter& writer, uInt32 value) const
    {
        if (value < 0x80) {
            writer.Put(static_cast<char16_t>(value - mFirstLetter < 26 ? value + mLetterDelta : value));
            return;
        }
        const kz::CaseRange* const range = Find(value);
        if (range == nullptr) {
            PutCharacter(writer, value);
            return;
        }
        const uInt32 place = value - range->first;
        const uInt32 delta = static_cast<uInt32>(range->delta);
        if (range->step == 0) {
            PutExpansion(writer, mExpansions[delta + place]);
        } else {
            const uInt32 skipped = place & static_cast<uInt32>(range->step - 1);  // the step is 1 or 2
            PutCharacter(writer, skipped == 0 ? value + delta : value);
        }
    }

private:
    const kz::CaseRange* Find(uInt32 value) const
    {
        const uInt32 page = value >> 8;
        if (page >= kPages) {
            return nullptr;
        }
        const kz::CaseRange* const begin = mRanges + mPages.starts[page];
        const kz::CaseRange* const end = mRanges + mPages.starts[page + 1];
        // What begins on this page and ends on a later one, or there is none, is at `end`.
        const auto found =
            std::lower_bound(begin, end, value, [](const kz::CaseRange& r, uInt32 v) { return r.last < v; });
        return found != mRangesEnd && found->first <= value ? found : nullptr;
    }

    static void PutExpansion(UnitWriter& writer, const kz::CaseExpansion& expansion)
    {
        writer.Put(expansion.to[0]);
        writer.Put(expansion.to[1]);
        if (expansion.to[2] != 0) {
            writer.Put(expansion.to[2]);
        }
    }

    const kz::CaseRange* mRanges;
    const kz::CaseRange* mRangesEnd;
    PageIndex mPages;
    const kz::CaseExpansion* mExpansions;
    uInt32 mFirstLetter;  // of the 26 that are moved
    uInt32 mLetterDelta;
};

constexpr CaseMapping kToUpper(kz::kUpperRanges, kz::kUpperExpansions, 'a', 'A' - 'a');
constexpr CaseMapping kToLower(kz::kLowerRanges, kz::kLowerExpansions, 'A', 'a' - 'A');

bool MapUnits(const CaseMapping& mapping, const char16_t* at, const char16_t* end, UnitWriter& writer)
{
    while (at < end) {
        mapping.Put(writer, NextCharacter(at, end));
    }
    return true;
}

}  // namespace

// Takes the units that `produce` puts into a writer, mostly no more than `room`; false from it means no UTF-8.
template <typename Produce>
PlatformText::Status PlatformText::Rebuild(std::size_t room, const Produce& produce) noexcept
{
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
PlatformText::Status PlatformText::SetUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild(length, [&](UnitWriter& writer) { return DecodeUtf8<false>(bytes, bytes + length, writer); });
}

PlatformText::Status PlatformText::SetEscapedUtf8(const unsigned char* bytes, std::size_t length) noexcept
{
    return Rebuild(length, [&](UnitWriter& writer) { return DecodeUtf8<true>(bytes, bytes + length, writer); });
}

PlatformText::Status PlatformText::Upper() noexcept
{
    return Rebuild(mLength, [&](UnitWriter& w) { return MapUnits(kToUpper, Units(), Units() + mLength, w); });
}

PlatformText::Status PlatformText::Lower() noexcept
{
    return Rebuild(mLength, [&](UnitWriter& w) { return MapUnits(kToLower, Units(), Units() + mLength, w); });
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
