// Where the INI engine's memory comes from. C library only.
#ifndef KZCORE_INIMEMORY_H
#define KZCORE_INIMEMORY_H

#include <stddef.h>

namespace qkini {

// Null when out of memory. Blocks are freed with free(), because hosts free the copies of values in the same way. A
// size of 0 gives a block too, so that null has one meaning.
void* Allocate(size_t size);
void* Reallocate(void* old, size_t size);  // `old` may be null; it stays as it was when out of memory

// What the two call: realloc, unless a test makes it fail. Null for realloc. Not while another thread allocates.
using AllocateProc = void* (*)(void* old, size_t size);
void SetAllocator(AllocateProc proc);

}  // namespace qkini

#endif
