// The lock that lies below ThMutex, and what a scope of code holds or keeps away from its thread over pthread calls.
// Scopes are undone by exceptions and by cancellation too.
//
// The library locks with a ThMutex and kz::ScopedLock. A PthreadMutex is for the few places that can't: those that run
// before a ThMutex can be made or below it (its event, its recorder of lock orders, reports, load-time objects), and
// those that wait for a condition, which the system ties to a mutex of its own.
#ifndef KZCORE_PTHREADSCOPES_H
#define KZCORE_PTHREADSCOPES_H

#include <pthread.h>

#include "KzAssert.h"
#include "ThreadAnnotations.h"

namespace kz {

// A mutex that is good from before the first line of load-time code to after the last exit handler: it is made without
// code, and nothing ends it. Not recursive. One that needs other attributes is set up anew through Get() before its
// first use. Trivially destructible and of the system's layout, so a record made of zeroed memory can hold one.
class KZ_CAPABILITY("mutex") PthreadMutex {
public:
    constexpr PthreadMutex() = default;
    PthreadMutex(const PthreadMutex&) = delete;
    PthreadMutex& operator=(const PthreadMutex&) = delete;

    // The system's mutex, for conditions and for set-up and tear-down.
    pthread_mutex_t* Get() { return &mMutex; }

private:
    pthread_mutex_t mMutex = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex. The system refuses only what is no mutex or what the caller holds and was told to check, so a refusal
// is a defect of ours.
class KZ_SCOPED_CAPABILITY PthreadLocked {
public:
    explicit PthreadLocked(PthreadMutex* mutex) KZ_ACQUIRE(mutex) : mMutex(mutex->Get())
    {
        [[maybe_unused]] const int result = pthread_mutex_lock(mMutex);
        KZ_ASSERT(result == 0);
    }
    ~PthreadLocked() KZ_RELEASE() { pthread_mutex_unlock(mMutex); }
    PthreadLocked(const PthreadLocked&) = delete;
    PthreadLocked& operator=(const PthreadLocked&) = delete;

private:
    pthread_mutex_t* const mMutex;
};

// Lets go of a mutex that is held, and takes it again.
class KZ_SCOPED_CAPABILITY PthreadUnlocked {
public:
    explicit PthreadUnlocked(PthreadMutex* mutex) KZ_RELEASE(mutex) : mMutex(mutex->Get())
    {
        pthread_mutex_unlock(mMutex);
    }
    ~PthreadUnlocked() KZ_RELEASE() { pthread_mutex_lock(mMutex); }
    PthreadUnlocked(const PthreadUnlocked&) = delete;
    PthreadUnlocked& operator=(const PthreadUnlocked&) = delete;

private:
    pthread_mutex_t* const mMutex;
};

// Keeps the thread from being cancelled. A request that comes meanwhile is met at the thread's next cancellation point
// after the scope.
class CancellationOff {
public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &mBefore); }
    ~CancellationOff() { pthread_setcancelstate(mBefore, nullptr); }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

private:
    int mBefore = PTHREAD_CANCEL_ENABLE;
};

}  // namespace kz

#endif
