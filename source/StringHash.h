// The hash of strings: that of symbols in the ELF object format (System V ABI, "Hash Table"), of 28 bits.
#ifndef KZCORE_STRINGHASH_H
#define KZCORE_STRINGHASH_H

#include <cstddef>

#include "KZTypes.h"

namespace kz {

// What `valueOf` gives for each byte is added to the hash shifted by four bits; what that brings into the top four bits
// is folded back into the lower ones. `sum` is not folded yet, which shortens the chain from one byte to the next.
template <typename ValueOf>
uInt32 HashOf(const unsigned char* bytes, std::size_t length, const ValueOf& valueOf)
{
    uInt32 sum = 0;
    for (std::size_t i = 0; i < length; ++i) {
        sum = ((sum << 4) ^ ((sum >> 20) & 0xF00)) + valueOf(bytes[i]);
    }
    return (sum ^ ((sum >> 24) & 0xF0)) & 0x0FFFFFFF;
}

}  // namespace kz

#endif
