// The platform's clocks. All elapsed time in the library is read here, so that a test can put its own clock in place.
#ifndef KZCORE_PLATFORMCLOCK_H
#define KZCORE_PLATFORMCLOCK_H

#include <pthread.h>

#include "KZTypes.h"

namespace kz {

// Gives the ticks of a clock that never goes back; any thread may call it.
using TickSource = uInt64 (*)();

// One tick of the monotonic clock is a nanosecond, from an unspecified start. Any thread.
uInt64 MonotonicTicks();
constexpr double kSecondsPerTick = 1e-9;

// The same clock in microseconds.
uInt64 Microseconds();

// The system's clock in seconds since 1 January 2001, 00:00 UTC. It follows the user's settings and may go back.
double WallClockSince2001();

// Puts a monotonic clock in place of the system's, null the system's back; returns the one before, null for the
// system's.
TickSource SetTickSource(TickSource source);

// A moment until which a thread waits, by the clock that is in place when the deadline is made.
class Deadline {
public:
    // In so many milliseconds from now; negative: never.
    explicit Deadline(int32 milliseconds);

    // Waits on the condition, with its mutex held, until it is woken or the deadline passes: 0 for a wake, ETIMEDOUT,
    // or another error number. A wake may be for nothing. A clock of a test's own wakes nobody when it moves, so by
    // such a clock the wait ends every millisecond of real time with EAGAIN, and the caller looks at what it waits for
    // and calls again. A cancellation point.
    int WaitOn(pthread_cond_t* condition, pthread_mutex_t* mutex) const;

private:
    uInt64 mTicks = 0;
    TickSource mSource = nullptr;  // null: the system's
    bool mIsNever;
};

}  // namespace kz

#endif
