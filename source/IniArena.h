// Memory for the texts of one reading: taken one after the other and given back together. C library only.
#ifndef KZCORE_INIARENA_H
#define KZCORE_INIARENA_H

#include "IniText.h"

namespace qkini {

struct Arena {
    struct Block {
        Block* older;
    };

    Block* newest = nullptr;
    char* at = nullptr;  // the free rest of the newest block
    char* end = nullptr;

    char* Copy(Text text);  // with a NUL behind it; null when out of memory
    void Clear();

    // What is wrong with the arena, or null. For tests and KZ_ASSERT_SLOW.
    const char* Fault() const;
};

}  // namespace qkini

#endif
