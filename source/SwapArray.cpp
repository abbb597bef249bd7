// Arrays are reversed in vectors of 32 bytes where the processor has AVX2, and number by number at the end and on every
// other processor. Which of the two is asked for at each call, because one library serves both kinds of processor; the
// compiler's runtime has the answer in memory.
//
// In a vector no number is ever cut, because each width divides 16. The shuffle needs that: its instruction, VPSHUFB,
// moves bytes within each half of 16 only.
#include "SwapArray.h"

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

#include "KzAssert.h"

namespace kz {

namespace {

constexpr std::size_t kWide = 32;

typedef unsigned char Wide __attribute__((vector_size(kWide)));

// Reverses the numbers in as many whole pairs of vectors as there are, and returns the bytes done. A byte changes
// places with that whose index differs in all bits below `width`, because `width` is a power of two and numbers start
// at its multiples. Each turn does two vectors, to halve what the loop itself costs.
template <std::size_t width, std::size_t... indices>
__attribute__((target("avx2"))) std::size_t ReverseWide(const unsigned char* source, unsigned char* dest,
                                                        std::size_t size, std::index_sequence<indices...>)
{
    static_assert((width & (width - 1)) == 0 && width <= kWide / 2, "VPSHUFB does not cross the halves of a vector");
    std::size_t done = 0;
    for (; size - done >= 2 * kWide; done += 2 * kWide) {
        Wide first;
        Wide second;
        std::memcpy(&first, source + done, kWide);
        std::memcpy(&second, source + done + kWide, kWide);
        first = __builtin_shufflevector(first, first, (indices ^ (width - 1))...);
        second = __builtin_shufflevector(second, second, (indices ^ (width - 1))...);
        std::memcpy(dest + done, &first, kWide);
        std::memcpy(dest + done + kWide, &second, kWide);
    }
    return done;
}

template <std::size_t width>
void ReverseOneByOne(const unsigned char* source, unsigned char* dest, std::size_t size)
{
    for (std::size_t i = 0; i < size; i += width) {
        if constexpr (width == 2 * sizeof(uInt64)) {
            CopyReversed16(source + i, dest + i);
        } else {
            using Unsigned = std::conditional_t<width == 2, uInt16, std::conditional_t<width == 4, uInt32, uInt64>>;
            static_assert(sizeof(Unsigned) == width);
            CopyReversed<Unsigned>(source + i, dest + i);
        }
    }
}

template <std::size_t width>
void Reverse(const unsigned char* source, unsigned char* dest, std::size_t size)
{
    KZ_ASSERT(size % width == 0);
    const std::size_t done = __builtin_cpu_supports("avx2") != 0
                                 ? ReverseWide<width>(source, dest, size, std::make_index_sequence<kWide>())
                                 : 0;
    KZ_ASSERT(done <= size && done % width == 0);
    ReverseOneByOne<width>(source + done, dest + done, size - done);
}

}  // namespace

void ReverseEach(const void* source, void* dest, unsigned long count, uInt32 width)
{
    const auto* const from = static_cast<const unsigned char*>(source);
    auto* const to = static_cast<unsigned char*>(dest);
    const std::size_t size = count * width;
    switch (width) {
        case 2:
            Reverse<2>(from, to, size);
            break;
        case 4:
            Reverse<4>(from, to, size);
            break;
        case 8:
            Reverse<8>(from, to, size);
            break;
        case 16:
            Reverse<16>(from, to, size);
            break;
        default:
            // Bytes have no order. Any other width comes from a host, which no code can tell of it here.
            if (size != 0 && from != to) {
                std::memcpy(to, from, size);
            }
            break;
    }
}

}  // namespace kz
