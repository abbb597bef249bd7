// Memory for the texts of one reading: taken one after the other and given back together, because a file of many short
// texts would spend most of its time in the allocator otherwise. C library only.
#ifndef KZCORE_INIARENA_H
#define KZCORE_INIARENA_H

#include "IniText.h"

namespace qkini {

// Zeros are an empty one. Nothing is given back by itself: a text that is replaced keeps its bytes until all go.
struct Arena {
    // The texts follow it.
    struct Block {
        Block* older;  // or null
    };

    Block* newest = nullptr;
    char* at = nullptr;  // the free rest of the newest block, up to `end`
    char* end = nullptr;

    // A copy with a NUL behind it, which stays where it is until the arena is cleared; null when out of memory.
    char* Copy(Text text);

    // Frees all texts.
    void Clear();

    // What is wrong with the arena, or null. For tests and KZ_ASSERT_SLOW.
    const char* Fault() const;
};

}  // namespace qkini

#endif
