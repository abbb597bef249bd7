// The hash of strings: that of symbols in the ELF object format (System V ABI, "Hash Table"), of 28 bits.
#ifndef KZCORE_STRINGHASH_H
#define KZCORE_STRINGHASH_H

#include <cstddef>
#include <cstring>

#include "KZTypes.h"

namespace kz {

// What `valueOf` gives for each byte is added to the hash shifted by four bits; what that brings into the top four bits
// is folded back into the lower ones. The hash is no defence against texts that are chosen to collide.
//
// `sum` runs one fold behind, because that shortens the chain from one byte to the next: a step folds what the step
// before it brought up, and the last fold stands behind the loop.
template <typename ValueOf>
uInt32 HashOf(const unsigned char* bytes, std::size_t length, const ValueOf& valueOf)
{
    uInt32 sum = 0;
    for (std::size_t i = 0; i < length; ++i) {
        sum = ((sum << 4) ^ ((sum >> 20) & 0xF00)) + valueOf(bytes[i]);
    }
    return (sum ^ ((sum >> 24) & 0xF0)) & 0x0FFFFFFF;
}

// The hash of a text up to its first NUL, so that it hashes alike with and without what follows its terminator. Each
// byte counts as `map` gives it, as a signed number; the sum wraps. The map is a functor rather than a function,
// because a call through a pointer would cost more than the hash.
template <typename Map>
uInt32 HashOfMappedText(const char* bytes, std::size_t length, const Map& map)
{
    const auto valueOf = [&map](unsigned char c) { return (uInt32{map(c)} ^ 0x80) - 0x80; };
    return HashOf(reinterpret_cast<const unsigned char*>(bytes), strnlen(bytes, length), valueOf);
}

// The same with the bytes as they are; 0 for null.
inline uInt32 HashOfText(const char* bytes, std::size_t length)
{
    return bytes != nullptr ? HashOfMappedText(bytes, length, [](unsigned char c) { return c; }) : 0;
}

}  // namespace kz

#endif
