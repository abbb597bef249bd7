// How much of a block the process owns memory for.
#ifndef KZCORE_TESTS_RESIDENTPAGES_H
#define KZCORE_TESTS_RESIDENTPAGES_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MemoryPoison.h"

namespace kztest {

// The pages wholly inside `size` bytes at `data` that are in memory.
inline std::size_t ResidentPages(const void* data, std::size_t size)
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t first = (reinterpret_cast<uintptr_t>(data) + page - 1) / page * page;
    const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + size) / page * page;
    std::vector<unsigned char> states((end - first) / page);
    if (mincore(reinterpret_cast<void*>(first), end - first, states.data()) != 0) {
        return states.size();
    }
    return static_cast<std::size_t>(
        std::count_if(states.begin(), states.end(), [](unsigned char state) { return (state & 1) != 0; }));
}

// Whether hardly any of a block is in memory. Always under the sanitizers, whose calloc may write its zeros.
inline bool IsUntouched([[maybe_unused]] const void* data, [[maybe_unused]] std::size_t size)
{
#if defined(KZ_ASAN) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return ResidentPages(data, size) < size / 4096 / 16;
#endif
}

}  // namespace kztest

#endif
