// One function for all, because realloc of null is malloc: a test replaces it and so reaches every allocation.

#include "IniMemory.h"

#include <stdlib.h>

namespace qkini {

namespace {

AllocateProc g_allocate = &realloc;

}  // namespace

void* Allocate(size_t size)
{
    return g_allocate(nullptr, size == 0 ? 1 : size);
}

void* Reallocate(void* old, size_t size)
{
    return g_allocate(old, size == 0 ? 1 : size);
}

void SetAllocator(AllocateProc proc)
{
    g_allocate = proc == nullptr ? &realloc : proc;
}

}  // namespace qkini
