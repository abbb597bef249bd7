// The part that needs 32-byte registers, which not every processor has: the functions are compiled for such a
// processor, and called only where __builtin_cpu_supports tells of one. They are out of line because such a function
// can't be inlined into one for any processor.
#include "ByteCompare.h"

namespace kz {

namespace {

constexpr std::size_t kWide = 32;

typedef unsigned char Wide __attribute__((vector_size(kWide)));
typedef long long Words __attribute__((vector_size(kWide)));

// AsciiFoldedDifference of the blocks at two addresses.
__attribute__((target("avx2"), always_inline)) inline Wide Difference(const unsigned char* a, const unsigned char* b)
{
    Wide left;
    Wide right;
    std::memcpy(&left, a, kWide);
    std::memcpy(&right, b, kWide);
    const Wide letters = (left | 0x20) - 'a';
    const Wide isLetter = reinterpret_cast<Wide>(letters < 26);
    return (left ^ right) & ~(isLetter & 0x20);
}

__attribute__((target("avx2"), always_inline)) inline bool IsClear(Wide block)
{
    const Words words = reinterpret_cast<Words>(block);
    return __builtin_ia32_ptestz256(words, words) != 0;
}

__attribute__((target("avx2"))) std::size_t FoldedWide(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    // Two blocks for each branch, which halves the branches.
    std::size_t i = 0;
    for (; n - i >= 2 * kWide; i += 2 * kWide) {
        if (!IsClear(Difference(a + i, b + i) | Difference(a + i + kWide, b + i + kWide))) {
            return i;
        }
    }
    return n - i >= kWide && IsClear(Difference(a + i, b + i)) ? i + kWide : i;
}

}  // namespace

std::size_t AsciiFoldedWideBytes(const unsigned char* a, const unsigned char* b, std::size_t n)
{
    return __builtin_cpu_supports("avx2") != 0 ? FoldedWide(a, b, n) : 0;
}

}  // namespace kz
