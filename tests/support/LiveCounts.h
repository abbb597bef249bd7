// How much of everything is alive. A scenario that gives back what it took leaves the counts equal.
#ifndef KZCORE_TESTS_LIVECOUNTS_H
#define KZCORE_TESTS_LIVECOUNTS_H

#include <filesystem>
#include <iterator>
#include <map>
#include <string>

#include "LiveCount.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
#include "PathItemStorage.h"

namespace kztest {

using LiveCounts = std::map<std::string, long>;

inline LiveCounts CountLive()
{
    const auto entriesOf = [](const char* folder) {
        namespace fs = std::filesystem;
        return static_cast<long>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    };
    LiveCounts counts = {{"handles", kz::LiveHandleCount()},
                         {"pointers", kz::LiveCount(kz::Live::kPointers)},
                         {"cookies", kz::LiveCount(kz::Live::kCookies)},
                         {"path elements", kz::LivePathElementCount()},
                         {"descriptors", entriesOf("/proc/self/fd")},
                         {"locks", kz::LiveCount(kz::Live::kLocks)},
                         {"events", kz::LiveCount(kz::Live::kEvents)}};
#if !defined(__SANITIZE_THREAD__)  // the sanitizer adds a thread of its own to the first
    counts["threads"] = entriesOf("/proc/self/task");
#endif
    return counts;
}

}  // namespace kztest

#endif
