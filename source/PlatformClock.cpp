#include "PlatformClock.h"

#include <time.h>

#include <atomic>
#include <cerrno>

namespace {

// Acquire and release, so that a thread that reads the new source sees what its owner prepared for it.
constinit std::atomic<kz::TickSource> gTickSource{nullptr};

uInt64 SystemTicks()
{
    constexpr uInt64 kTicksPerSecond = 1'000'000'000;
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uInt64>(now.tv_sec) * kTicksPerSecond + static_cast<uInt64>(now.tv_nsec);
}

}  // namespace

namespace kz {

uInt64 MonotonicTicks()
{
    const TickSource source = gTickSource.load(std::memory_order_acquire);
    return source != nullptr ? source() : SystemTicks();
}

uInt64 Microseconds()
{
    constexpr uInt64 kTicksPerMicrosecond = 1'000;
    return MonotonicTicks() / kTicksPerMicrosecond;
}

double WallClockSince2001()
{
    constexpr double kSecondsFrom1970To2001 = 978307200.0;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) - kSecondsFrom1970To2001 +
           static_cast<double>(now.tv_nsec) * kSecondsPerTick;
}

int WaitOnCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, int32 milliseconds)
{
    constexpr uInt64 kTicksPerMilli = 1'000'000;
    constexpr uInt64 kTicksPerSecond = 1'000'000'000;
    const bool isOwnClock = gTickSource.load(std::memory_order_acquire) == nullptr;
    const uInt64 deadline = SystemTicks() + (isOwnClock ? static_cast<uInt64>(milliseconds) : 1) * kTicksPerMilli;
    const timespec until = {static_cast<time_t>(deadline / kTicksPerSecond),
                            static_cast<long>(deadline % kTicksPerSecond)};
    const int result = pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &until);
    return result == ETIMEDOUT && !isOwnClock ? 0 : result;
}

TickSource SetTickSource(TickSource source)
{
    return gTickSource.exchange(source, std::memory_order_acq_rel);
}

}  // namespace kz
