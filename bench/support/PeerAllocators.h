// Allocators loaded beside the program's own; linking them would replace it.
#ifndef KZCORE_BENCH_PEERALLOCATORS_H
#define KZCORE_BENCH_PEERALLOCATORS_H

#include <dlfcn.h>

#include <cstdlib>

namespace kzbench {

struct Allocator {
    const char* name;
    void* (*allocate)(std::size_t);
    void (*release)(void*);
};

// Null functions where the library is not installed or can't be loaded.
inline Allocator LoadAllocator(const char* name, const char* library, const char* allocate, const char* release)
{
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return {name, nullptr, nullptr};
    }
    return {name, reinterpret_cast<void* (*)(std::size_t)>(dlsym(handle, allocate)),
            reinterpret_cast<void (*)(void*)>(dlsym(handle, release))};
}

inline Allocator Malloc()
{
    return {"malloc", &std::malloc, &std::free};
}

inline Allocator Mimalloc()
{
    return LoadAllocator("mimalloc", "libmimalloc.so.2", "mi_malloc", "mi_free");
}

// Needs GLIBC_TUNABLES=glibc.rtld.optional_static_tls=16384.
inline Allocator Jemalloc()
{
    return LoadAllocator("jemalloc", "libjemalloc.so.2", "malloc", "free");
}

}  // namespace kzbench

#endif
