// Where the INI engine's memory comes from. C library only.
#ifndef KZCORE_INIMEMORY_H
#define KZCORE_INIMEMORY_H

#include <stddef.h>
#include <stdlib.h>

namespace qkini {

// One function for all, because realloc of null is malloc: a test replaces it and so reaches every allocation. Changed
// only while no other thread allocates.
using AllocateProc = void* (*)(void* old, size_t size);
inline constinit AllocateProc g_allocate = &realloc;

// Null for realloc.
inline void SetAllocator(AllocateProc proc)
{
    g_allocate = proc == nullptr ? &realloc : proc;
}

// Null when out of memory. Blocks are freed with free(), because hosts free the copies of values in the same way. A
// size of 0 gives a block too, so that null has one meaning.
inline void* Allocate(size_t size)
{
    return g_allocate(nullptr, size == 0 ? 1 : size);
}

// `old` may be null; it stays as it was when out of memory.
inline void* Reallocate(void* old, size_t size)
{
    return g_allocate(old, size == 0 ? 1 : size);
}

}  // namespace qkini

#endif
