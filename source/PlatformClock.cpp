// The wait of a deadline goes by the monotonic clock of the system, because the user may set the other one while a
// thread waits. A clock of a test's own can't wake a waiter, so such a wait is cut into steps of a millisecond.
#include "PlatformClock.h"

#include <time.h>

#include <atomic>
#include <cerrno>

#include "KzAssert.h"

namespace {

// Acquire and release, so that a thread that reads the new source sees what its owner prepared for it.
constinit std::atomic<kz::TickSource> gTickSource{nullptr};

constexpr uInt64 kTicksPerSecond = 1'000'000'000;
constexpr uInt64 kTicksPerMilli = 1'000'000;

uInt64 SystemTicks()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uInt64>(now.tv_sec) * kTicksPerSecond + static_cast<uInt64>(now.tv_nsec);
}

int WaitUntil(pthread_cond_t* condition, pthread_mutex_t* mutex, uInt64 systemTicks)
{
    const timespec until = {static_cast<time_t>(systemTicks / kTicksPerSecond),
                            static_cast<long>(systemTicks % kTicksPerSecond)};
    return pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, &until);
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

TickSource SetTickSource(TickSource source)
{
    return gTickSource.exchange(source, std::memory_order_acq_rel);
}

Deadline::Deadline(int32 milliseconds) : mIsNever(milliseconds < 0)
{
    if (!mIsNever) {
        mSource = gTickSource.load(std::memory_order_acquire);
        mTicks = (mSource != nullptr ? mSource() : SystemTicks()) + static_cast<uInt64>(milliseconds) * kTicksPerMilli;
    }
}

int Deadline::WaitOn(pthread_cond_t* condition, pthread_mutex_t* mutex) const
{
    KZ_ASSERT(condition != nullptr && mutex != nullptr);
    if (mIsNever) {
        return pthread_cond_wait(condition, mutex);
    }
    if (mSource == nullptr) {
        return WaitUntil(condition, mutex, mTicks);
    }
    if (static_cast<int64>(mSource() - mTicks) >= 0) {  // across the wrap too
        return ETIMEDOUT;
    }
    // EAGAIN and not ETIMEDOUT at the end of a step, because the deadline itself may not have come.
    const int result = WaitUntil(condition, mutex, SystemTicks() + kTicksPerMilli);
    return result == ETIMEDOUT ? EAGAIN : result;
}

}  // namespace kz
