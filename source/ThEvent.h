// Events on which threads wait. Usable from C11 and C++20.
//
// An event resets itself: one signal lets one waiter through, and a signal that finds no waiter is kept for the next
// one; a second such signal adds nothing. Times are milliseconds by the clock of MilliSecs, a negative one meaning for
// ever. A block that is no event is reported at level 4, and so is an event that was destroyed, for as long as its
// memory is not used again. Unless told otherwise any thread may call, at any time between the event's making and its
// destruction. Waits are cancellation points: a cancelled thread leaves the event as if it had not waited.
#ifndef KZCORE_THEVENT_H
#define KZCORE_THEVENT_H

#include "KZTypes.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

typedef struct ThEventRec* ThEvent;

KZ_EXTERN_C_BEGIN

// What ThEventWaitAndPump calls between waits, with the caller's argument. What it throws ends the wait and goes on to
// the caller.
typedef void (*ThEventPumpProc)(int32 arg);

// Makes an event in `*out`, to be destroyed with ThEventDestroy; signalled if `initialState` is not 0. `reserved` is
// ignored. kzErrArgument: `out` is null; kzErrMemoryFull: the event can't be made, `*out` is null. Before the host's
// interface is set it reports at level 2.
KZ_EXPORT KzErr ThEventCreate(ThEvent* out, void* reserved, int32 initialState);

// The same as ThEventCreate here: no platform that we run on has signals of its own to attach.
KZ_EXPORT KzErr ThEventCreateWithCustomSignal(ThEvent* out, void* reserved, int32 initialState);

// Destroys an event that nobody uses. A thread whose wait has returned may destroy it at once, even if the call that
// signalled it has not returned, which this waits for if it must; all other calls, waits above all, have returned.
// Null, and a system that refuses to tear the event down, are reported at level 3.
KZ_EXPORT void ThEventDestroy(ThEvent event);

// Signals the event: 1 if it woke a waiter, 0 if the signal was kept or the event is null.
KZ_EXPORT int32 ThEventSignal(ThEvent event);

// Takes back a kept signal: 1 if there was one, 0 if there was none or the event is null.
KZ_EXPORT int32 ThEventReset(ThEvent event);

// Waits for a signal, for ever. Results as ThEventWaitWithTimeout.
KZ_EXPORT KzErr ThEventWait(ThEvent event);

// Waits for a signal for at most `milliseconds`, 0 only looking. 0: it came; kzErrTimeout: it did not;
// kzErrArgument: the event is null, or the wait failed, which is reported at level 4.
KZ_EXPORT KzErr ThEventWaitWithTimeout(ThEvent event, int32 milliseconds);

// Calls `pump(arg)` once, also for a null event, then again before each wait, until a signal comes: 0. A wait lasts
// `milliseconds`, or less when the thread wakes without a signal. kzErrArgument: a null event. `pump` may be null.
KZ_EXPORT KzErr ThEventWaitAndPump(ThEvent event, ThEventPumpProc pump, int32 milliseconds, int32 arg);

// Waits for one of two events or a window message, where the platform can; 1 for a null event, else 0 here.
KZ_EXPORT int32 ThEventMsgWaitMultiple(ThEvent event, ThEvent other, int32 milliseconds, int32 flags);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The place of events in the order of services; events work without it.
class ThEvent_Service : public PlainService_T<ThEvent_Service> {
    friend KZ_GammaPolicy<ThEvent_Service>;

    ThEvent_Service();
};

// The service, made on the first call.
KZ_EXPORT ThEvent_Service* ThEventService();
#endif

#endif
