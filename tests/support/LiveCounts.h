// How much of everything is alive. A scenario that gives back what it took leaves the counts equal.
#ifndef KZCORE_TESTS_LIVECOUNTS_H
#define KZCORE_TESTS_LIVECOUNTS_H

#include <filesystem>
#include <iterator>
#include <ostream>

#include "LiveCount.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
#include "PathItemStorage.h"

namespace kztest {

struct LiveCounts {
    long handles;
    long pointers;
    long cookies;
    long pathElements;
    long descriptors;
    long locks;
    long events;
    long threads;

    bool operator==(const LiveCounts&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const LiveCounts& counts)
{
    return out << counts.handles << " handles, " << counts.pointers << " pointers, " << counts.cookies << " cookies, "
               << counts.pathElements << " path elements, " << counts.descriptors << " descriptors, " << counts.locks
               << " locks, " << counts.events << " events, " << counts.threads << " threads";
}

inline LiveCounts CountLive()
{
    const auto entriesOf = [](const char* folder) {
        namespace fs = std::filesystem;
        return static_cast<long>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    };
#if defined(__SANITIZE_THREAD__)
    const long threads = 0;  // the sanitizer adds one of its own to the first
#else
    const long threads = entriesOf("/proc/self/task");
#endif
    return {static_cast<long>(kz::LiveHandleCount()),
            kz::LiveCount(kz::Live::kPointers),
            kz::LiveCount(kz::Live::kCookies),
            static_cast<long>(kz::LivePathElementCount()),
            entriesOf("/proc/self/fd"),
            kz::LiveCount(kz::Live::kLocks),
            kz::LiveCount(kz::Live::kEvents),
            threads};
}

}  // namespace kztest

#endif
