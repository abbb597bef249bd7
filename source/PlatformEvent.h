// The operating system's way of waiting, behind one interface: an event that resets itself. One signal lets one
// waiter through; a signal without a waiter is kept, once. ThEvent is what the library waits on.
#ifndef KZCORE_PLATFORMEVENT_H
#define KZCORE_PLATFORMEVENT_H

#include "KZTypes.h"

// What a wait gives; not a KzErr. Any other value says that the platform asks for another try.
enum PlatformWaitResult { kWaitSignalled = 0, kWaitTimedOut = 1, kWaitFailed = 2 };

// The slots stand in this order; the destructor pair stands first. Times are milliseconds, negative for ever.
class KZ_EXPORT PlatformEvent {
public:
    virtual ~PlatformEvent() = default;

    // 1 if there was a waiter to wake, 0 if the signal was kept. Any thread.
    virtual int Signal() = 0;

    // Takes back a kept signal: 1 if there was one, else 0. Any thread.
    virtual int Reset() = 0;

    // Waits for a signal and consumes it: a PlatformWaitResult. Any thread.
    virtual int Wait(int milliseconds) = 0;

    // Waits without limit, and calls `pump(pumpArg)` before each step of at most `milliseconds`; 0. What the pump
    // throws ends the wait. Any thread.
    virtual int WaitAndPump(void (*pump)(int), int pumpArg, int milliseconds) = 0;

    // Waits for this event, `other` or a window message; kWaitFailed where the platform can't.
    virtual int MsgWaitMultiple(PlatformEvent* other, int milliseconds, int flags, int* out1, int* out2) = 0;

    // How long woken threads took to run, in nanoseconds, and how many there were; outputs may be null.
    virtual void GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                                 unsigned long long* max, unsigned long long* last) const = 0;

    // Set up, signalled if `initialState` is not 0, and tear down: once each, before and after all other calls.
    virtual KzErr Init(int initialState) = 0;
    virtual KzErr Uninit() = 0;
};

KZ_EXTERN_C_BEGIN

// A new event, to be destroyed with DestroyPlatformEvent; signalled if `initialState` is not 0; null if it can't be
// made. Before the host's interface is set it reports at level 2. Any thread.
KZ_EXPORT PlatformEvent* CreatePlatformEvent(int initialState);

// Destroys an event that nobody uses, or does nothing for null. A thread whose wait has returned may destroy it at
// once, even if the call of Signal that it waited for has not returned. 0, or kzErrGeneric if the system refused to
// tear the event down; the object is gone all the same. Any thread.
KZ_EXPORT KzErr DestroyPlatformEvent(PlatformEvent* event);

KZ_EXTERN_C_END

#endif
