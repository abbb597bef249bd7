// Timed events: a thread waits until a time that other threads may change meanwhile. Usable from C11 and C++20.
//
// Times are values of MilliSecs; 0 stands for no time: such a wait lasts until another one is set. Any thread may
// change and read the time, at any moment between the event's making and its destruction. A block that is no timed
// event is reported at level 4, and so is an event that was destroyed, for as long as its memory is not used again.
#ifndef KZCORE_THTMOEVENT_H
#define KZCORE_THTMOEVENT_H

#include "KZTypes.h"

typedef struct ThTmoEventRec* ThTmoEvent;

KZ_EXTERN_C_BEGIN

// Makes an event without a time in `*out`, to be destroyed with ThTmoEventDestroy. kzErrArgument: `out` is null;
// kzErrMemoryFull: out of memory, or, with a report of level 4, the system gives no lock or condition; `*out` is null.
KZ_EXPORT KzErr ThTmoEventCreate(ThTmoEvent* out);

// Destroys an event that nobody uses. A thread whose wait has returned may destroy it at once, even if the call that
// changed the time has not returned. Null is reported at level 3.
KZ_EXPORT void ThTmoEventDestroy(ThTmoEvent event);

// Sets the time; all who wait go by it from then on. Null does nothing.
KZ_EXPORT void ThTmoEventChangeTmo(ThTmoEvent event, uInt32 absoluteMs);

// The time; 0 for null.
KZ_EXPORT uInt32 ThTmoEventGetTmo(ThTmoEvent event);

// Waits until the time in force has come. One that has passed, and a null event, return at once. A cancellation point.
KZ_EXPORT void ThTmoEventWait(ThTmoEvent event);

KZ_EXTERN_C_END

#endif
