// Texts that are written in the code: their form with a count byte, and the question whether a text from elsewhere is
// one of them.
#ifndef KZCORE_LITERALS_H
#define KZCORE_LITERALS_H

#include <cstddef>
#include <cstring>

#include "KzAssert.h"

namespace kz {

// The most text that a counted string of the short kind has: its count is a byte.
inline constexpr std::size_t kMostInPStr = 255;

// A literal as a counted string, whose count the compiler writes: `constexpr CountedLiteral kName{"Some.Token"}`, then
// `kName.text` where a PStr is asked for. The literal's terminator is not kept.
template <std::size_t kSize>
struct CountedLiteral {
    static_assert(kSize - 1 <= kMostInPStr);
    unsigned char text[kSize];

    explicit constexpr CountedLiteral(const char (&literal)[kSize]) : text{static_cast<unsigned char>(kSize - 1)}
    {
        for (std::size_t i = 0; i < kSize - 1; ++i) {
            text[i + 1] = static_cast<unsigned char>(literal[i]);
        }
    }
};

// Whether a text is the literal, byte for byte. A null text is none, because callers pass what a host gave them.
inline bool SameText(const char* text, const char* literal)
{
    KZ_ASSERT(literal != nullptr);
    return text != nullptr && std::strcmp(text, literal) == 0;
}

}  // namespace kz

#endif
