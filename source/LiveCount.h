// How many objects of some kinds are alive, for tests and fuzzers that compare the numbers before and after a scenario.
// Counted only in builds with KZ_COUNT_LIVE, because a shared counter costs the cheapest calls as much as all the rest
// of them; without it counting is nothing and every number is 0.
#ifndef KZCORE_LIVECOUNT_H
#define KZCORE_LIVECOUNT_H

#include <atomic>

#include "KZTypes.h"

namespace kz {

enum class Live {
    kPointers,  // pointer blocks, without the memory zone's own
    kCookies,   // of all jars
    kLocks,     // ThMutex
    kEvents,    // ThEvent, those of the locks too
    kNumKinds
};

#if defined(KZ_COUNT_LIVE)
// Relaxed: numbers for comparisons while nothing runs, which order nothing.
inline constinit std::atomic<int64> gLive[static_cast<int>(Live::kNumKinds)]{};

inline void CountLive(Live kind, int64 change)
{
    gLive[static_cast<int>(kind)].fetch_add(change, std::memory_order_relaxed);
}

inline int64 LiveCount(Live kind)
{
    return gLive[static_cast<int>(kind)].load(std::memory_order_relaxed);
}
#else
inline void CountLive(Live /*kind*/, int64 /*change*/) {}

inline int64 LiveCount(Live /*kind*/)
{
    return 0;
}
#endif

}  // namespace kz

#endif
