// The mapping of characters to upper and lower case, by the tables, and the walk over UTF-8 text that leads to it. Both
// put characters into a sink, whose Put takes one of them, because one character can become three and callers differ
// in what they make of them: they count units, write UTF-8, or write UTF-16.
//
// A search goes through an index by pages of 256 characters, since most characters of a text are of the same few pages,
// and a page has few ranges. ASCII, which most text is, is mapped by arithmetic and never looked up. Everything here is
// built by the compiler and never changes: any thread.
#ifndef KZCORE_UNICODECASE_H
#define KZCORE_UNICODECASE_H

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "KzAssert.h"
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
        // ASCII but for NUL, which the step below doesn't tell from a fault.
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

// The characters with case are on the first of the pages of 256. Those behind map to themselves without a search.
inline constexpr uInt32 kPages = (std::max(std::end(kUpperRanges)[-1].last, std::end(kLowerRanges)[-1].last) >> 8) + 1;

// For each page the number of ranges that end before it, so that a search looks at few. The entry behind the last page
// closes it: the ranges from starts[page] up to starts[page + 1] are those that end on that page.
struct PageIndex {
    template <std::size_t kCount>
    explicit constexpr PageIndex(const CaseRange (&ranges)[kCount])
    {
        static_assert(kCount < 0x100, "the index keeps counts as bytes");
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
        KZ_ASSERT(range->first <= value && value <= range->last);
        const uInt32 place = value - range->first;
        const uInt32 delta = static_cast<uInt32>(range->delta);
        if (range->step == 0) {
            PutExpansion(sink, mExpansions[delta + place]);
        } else {
            // Where the cases alternate, the step is 2, and every other character is of the case that is asked for.
            KZ_ASSERT(range->step == 1 || range->step == 2);
            const uInt32 skipped = place & static_cast<uInt32>(range->step - 1);
            sink.Put(skipped == 0 ? value + delta : value);
        }
    }

private:
    // The range that holds the character, or null for one without a mapping.
    const CaseRange* Find(uInt32 value) const
    {
        const uInt32 page = value >> 8;
        if (page >= kPages) {
            return nullptr;
        }
        const CaseRange* const begin = mRanges + mPages.starts[page];
        const CaseRange* const end = mRanges + mPages.starts[page + 1];
        // A range that begins on this page and ends on a later one counts among those of the later page, of which it is
        // the first, so that the search ends at it: the range at `end` is looked at too, where there is one.
        const auto found = std::lower_bound(begin, end, value, [](const CaseRange& r, uInt32 v) { return r.last < v; });
        return found != mRangesEnd && found->first <= value ? found : nullptr;
    }

    // Of 2 or 3 characters: each that becomes several becomes at least two.
    template <typename Sink>
    static void PutExpansion(Sink& sink, const CaseExpansion& expansion)
    {
        sink.Put(expansion.to[0]);
        sink.Put(expansion.to[1]);
        if (expansion.to[2] != 0) {
            sink.Put(expansion.to[2]);
        }
    }

    const CaseRange* mRanges;  // in ascending order, without overlap
    const CaseRange* mRangesEnd;
    PageIndex mPages;
    const CaseExpansion* mExpansions;  // of the ranges with step 0, whose delta is an index here
    uInt32 mFirstLetter;               // of the 26 ASCII letters that are moved
    uInt32 mLetterDelta;               // what is added to them, modulo 2^32
};

// The two directions. Neither undoes the other: the capital sharp s becomes the small one, which becomes "SS".
inline constexpr CaseMapping kToUpper(kUpperRanges, kUpperExpansions, 'a', 'A' - 'a');
inline constexpr CaseMapping kToLower(kLowerRanges, kLowerExpansions, 'A', 'a' - 'A');

}  // namespace kz

#endif
