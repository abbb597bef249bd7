// How much of everything is alive. A scenario that gives back what it took leaves the counts equal.
#ifndef KZCORE_TESTS_LIVECOUNTS_H
#define KZCORE_TESTS_LIVECOUNTS_H

#include <filesystem>
#include <iterator>
#include <ostream>

#include "CookieManager.h"
#include "MemoryManager.h"
#include "PathItemStorage.h"

namespace kztest {

struct LiveCounts {
    long handles;
    long pointers;
    long cookies;
    long pathElements;
    long descriptors;

    bool operator==(const LiveCounts&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LiveCounts& counts)
{
    return out << counts.handles << " handles, " << counts.pointers << " pointers, " << counts.cookies << " cookies, "
               << counts.pathElements << " path elements, " << counts.descriptors << " descriptors";
}

inline LiveCounts CountLive()
{
    namespace fs = std::filesystem;
    return {static_cast<long>(kz::LiveHandleCount()), static_cast<long>(kz::LivePointerCount()),
            static_cast<long>(kz::LiveCookieCount()), static_cast<long>(kz::LivePathElementCount()),
            static_cast<long>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()))};
}

}  // namespace kztest

#endif
