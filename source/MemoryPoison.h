// Tells the memory checkers which bytes nobody may touch: guards, and blocks that wait in the buffer cache. Under the
// address sanitizer an access to such a byte stops the process at once, as far as its 8-byte granules can tell; under
// Valgrind (built with KZ_VALGRIND) it is reported to the byte. Elsewhere these calls are nothing.
#ifndef KZCORE_MEMORYPOISON_H
#define KZCORE_MEMORYPOISON_H

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define KZ_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KZ_ASAN 1
#endif
#endif

#if defined(KZ_ASAN)
#include <sanitizer/asan_interface.h>
// A function that touches poisoned bytes on purpose.
#define KZ_TOUCHES_POISON __attribute__((no_sanitize("address")))
#else
#define KZ_TOUCHES_POISON
#endif
#if defined(KZ_VALGRIND)
#include <valgrind/memcheck.h>
#endif

namespace kz {

// Nobody may touch the bytes from here on.
inline void PoisonMemory([[maybe_unused]] const void* p, [[maybe_unused]] std::size_t n)
{
#if defined(KZ_ASAN)
    __asan_poison_memory_region(p, n);
#endif
#if defined(KZ_VALGRIND)
    VALGRIND_MAKE_MEM_NOACCESS(p, n);
#endif
}

// The bytes may be used again; what they hold counts as uninitialised.
inline void UnpoisonMemory([[maybe_unused]] const void* p, [[maybe_unused]] std::size_t n)
{
#if defined(KZ_ASAN)
    __asan_unpoison_memory_region(p, n);
#endif
#if defined(KZ_VALGRIND)
    VALGRIND_MAKE_MEM_UNDEFINED(p, n);
#endif
}

// The bytes may be read and hold what they held when they were poisoned.
inline void RevealMemory([[maybe_unused]] const void* p, [[maybe_unused]] std::size_t n)
{
#if defined(KZ_VALGRIND)
    VALGRIND_MAKE_MEM_DEFINED(p, n);
#endif
}

}  // namespace kz

#endif
