// Memory for texts or other things of one reading: taken one after the other and given back together. C library only.
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

    // Null when out of memory. What is taken lies on 8 bytes if all sizes are multiples of them.
    void* Take(size_t size);
    char* Copy(Text text);  // with a NUL behind it
    void Clear();
};

}  // namespace qkini

#endif
