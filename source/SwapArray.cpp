#include "SwapArray.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "ByteOrder.h"

namespace kz {

namespace {

constexpr std::size_t kWide = 32;

typedef unsigned char Wide __attribute__((vector_size(kWide)));

// Whole vectors of numbers of `width` bytes, a power of two that reversal stays within: the bytes of each number change
// places with those whose index differs in all bits below `width`. Returns the bytes done.
template <std::size_t width, std::size_t... indices>
__attribute__((target("avx2"))) std::size_t ReverseWide(const unsigned char* source, unsigned char* dest,
                                                        std::size_t size, std::index_sequence<indices...>)
{
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

template <typename T>
void ReverseOneByOne(const unsigned char* source, unsigned char* dest, std::size_t size)
{
    for (std::size_t i = 0; i < size; i += sizeof(T)) {
        StoreNative(dest + i, ReverseBytes(LoadNative<T>(source + i)));
    }
}

void ReversePairs(const unsigned char* source, unsigned char* dest, std::size_t size)
{
    for (std::size_t i = 0; i < size; i += 2 * sizeof(uInt64)) {
        const auto first = LoadNative<uInt64>(source + i);
        const auto second = LoadNative<uInt64>(source + i + sizeof(uInt64));
        StoreNative(dest + i, ReverseBytes(second));
        StoreNative(dest + i + sizeof(uInt64), ReverseBytes(first));
    }
}

template <std::size_t width, typename Rest>
void Reverse(const unsigned char* source, unsigned char* dest, std::size_t size, Rest rest)
{
    const std::size_t done = __builtin_cpu_supports("avx2") != 0
                                 ? ReverseWide<width>(source, dest, size, std::make_index_sequence<kWide>())
                                 : 0;
    rest(source + done, dest + done, size - done);
}

}  // namespace

void ReverseEach(const void* source, void* dest, unsigned long count, uInt32 width)
{
    const auto* const from = static_cast<const unsigned char*>(source);
    auto* const to = static_cast<unsigned char*>(dest);
    const std::size_t size = count * width;
    switch (width) {
        case 2:
            Reverse<2>(from, to, size, &ReverseOneByOne<uInt16>);
            break;
        case 4:
            Reverse<4>(from, to, size, &ReverseOneByOne<uInt32>);
            break;
        case 8:
            Reverse<8>(from, to, size, &ReverseOneByOne<uInt64>);
            break;
        case 16:
            Reverse<16>(from, to, size, &ReversePairs);
            break;
        default:
            if (size != 0 && from != to) {
                std::memcpy(to, from, size);
            }
            break;
    }
}

}  // namespace kz
