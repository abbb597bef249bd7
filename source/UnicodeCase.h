// The mapping of characters to upper and lower case, by the tables, and the walk over UTF-8 text that leads to it. Both
// put characters into a sink, whose Put takes one of them.
#ifndef KZCORE_UNICODECASE_H
#define KZCORE_UNICODECASE_H

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "UnicodeCaseTables.h"
#include "Utf8.h"
#include "Utf8Codec.h"

namespace kz {

// Puts the characters of a text into the sink. With kEscape each step of ConvertUTF8toUTF32 that gives 0, a NUL too,
// puts U+FFFD; without it the result is false where the text is not UTF-8, and a NUL stays one.
template <bool kEscape, typename Sink>
bool DecodeUtf8(const unsigned char* bytes, const unsigned char* end, Sink& sink)
{
    while (bytes < end) {
        if (*bytes > 0 && *bytes < 0x80) {
            sink.Put(*bytes++);
            continue;
        }
        const bool isNul = *bytes == 0;
        uInt32 value = ConvertUTF8toUTF32(&bytes, end);
        if (value == 0) {
            if (kEscape) {
                value = kReplacementCharacter;
            } else if (!isNul) {
                return false;
            }
        }
        sink.Put(value);
    }
    return true;
}

// The characters with case are on the first of the pages of 256.
inline constexpr uInt32 kPages = (std::max(std::end(kUpperRanges)[-1].last, std::end(kLowerRanges)[-1].last) >> 8) + 1;

// For each page the number of ranges that end before it, so that a search looks at few.
struct PageIndex {
    template <std::size_t kCount>
    explicit constexpr PageIndex(const CaseRange (&ranges)[kCount])
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
    constexpr CaseMapping(const CaseRange (&ranges)[kCount], const CaseExpansion* expansions, char firstLetter,
                          int letterDelta)
        : mRanges(ranges),
          mRangesEnd(ranges + kCount),
          mPages(ranges),
          mExpansions(expansions),
          mFirstLetter(static_cast<unsigned char>(firstLetter)),
          mLetterDelta(static_cast<uInt32>(letterDelta))
    {}

    // Puts what becomes of the character, one to three, into the sink.
    template <typename Sink>
    void Put(Sink& sink, uInt32 value) const
    {
        if (value < 0x80) {
            sink.Put(value - mFirstLetter < 26 ? value + mLetterDelta : value);
            return;
        }
        const CaseRange* const range = Find(value);
        if (range == nullptr) {
            sink.Put(value);
            return;
        }
        const uInt32 place = value - range->first;
        const uInt32 delta = static_cast<uInt32>(range->delta);
        if (range->step == 0) {
            PutExpansion(sink, mExpansions[delta + place]);
        } else {
            const uInt32 skipped = place & static_cast<uInt32>(range->step - 1);  // the step is 1 or 2
            sink.Put(skipped == 0 ? value + delta : value);
        }
    }

private:
    const CaseRange* Find(uInt32 value) const
    {
        const uInt32 page = value >> 8;
        if (page >= kPages) {
            return nullptr;
        }
        const CaseRange* const begin = mRanges + mPages.starts[page];
        const CaseRange* const end = mRanges + mPages.starts[page + 1];
        // What begins on this page and ends on a later one, or there is none, is at `end`.
        const auto found = std::lower_bound(begin, end, value, [](const CaseRange& r, uInt32 v) { return r.last < v; });
        return found != mRangesEnd && found->first <= value ? found : nullptr;
    }

    template <typename Sink>
    static void PutExpansion(Sink& sink, const CaseExpansion& expansion)
    {
        sink.Put(expansion.to[0]);
        sink.Put(expansion.to[1]);
        if (expansion.to[2] != 0) {
            sink.Put(expansion.to[2]);
        }
    }

    const CaseRange* mRanges;
    const CaseRange* mRangesEnd;
    PageIndex mPages;
    const CaseExpansion* mExpansions;
    uInt32 mFirstLetter;  // of the 26 that are moved
    uInt32 mLetterDelta;
};

inline constexpr CaseMapping kToUpper(kUpperRanges, kUpperExpansions, 'a', 'A' - 'a');
inline constexpr CaseMapping kToLower(kLowerRanges, kLowerExpansions, 'A', 'a' - 'A');

}  // namespace kz

#endif
