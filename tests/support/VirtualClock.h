// A clock behind MilliSecs that only a test moves. Timed waits look at it every millisecond of real time.
#ifndef KZCORE_TESTS_VIRTUALCLOCK_H
#define KZCORE_TESTS_VIRTUALCLOCK_H

#include <atomic>

#include "PlatformClock.h"

namespace kztest {

// One at a time. Any thread may move it.
class VirtualClock {
public:
    explicit VirtualClock(uInt32 milliseconds)
    {
        sTicks = uInt64{milliseconds} * kTicksPerMilli;
        kz::SetTickSource([] { return sTicks.load(); });
    }
    ~VirtualClock() { kz::SetTickSource(nullptr); }
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    void Advance(uInt32 milliseconds) { sTicks += uInt64{milliseconds} * kTicksPerMilli; }

private:
    static constexpr uInt64 kTicksPerMilli = 1'000'000;
    static inline std::atomic<uInt64> sTicks{0};
};

}  // namespace kztest

#endif
