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

// Waits on the condition for at most that long by the monotonic clock: 0 for a wake, ETIMEDOUT, or another error
// number. With another clock in place the time is not known to pass: it then wakes the caller every millisecond, who
// looks at the clock himself.
int WaitOnCondition(pthread_cond_t* condition, pthread_mutex_t* mutex, int32 milliseconds);

// Puts a monotonic clock in place of the system's, null the system's back; returns the one before, null for the
// system's.
TickSource SetTickSource(TickSource source);

}  // namespace kz

#endif
