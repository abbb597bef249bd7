// What a scope of code holds or keeps away from its thread, over pthread calls; undone by exceptions and cancellation
// too.
#ifndef KZCORE_PTHREADSCOPES_H
#define KZCORE_PTHREADSCOPES_H

#include <pthread.h>

namespace kz {

// Holds a mutex.
class PthreadLocked {
public:
    explicit PthreadLocked(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~PthreadLocked() { pthread_mutex_unlock(mMutex); }
    PthreadLocked(const PthreadLocked&) = delete;
    PthreadLocked& operator=(const PthreadLocked&) = delete;

private:
    pthread_mutex_t* const mMutex;
};

// Lets go of a mutex that is held, and takes it again.
class PthreadUnlocked {
public:
    explicit PthreadUnlocked(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_unlock(mMutex); }
    ~PthreadUnlocked() { pthread_mutex_lock(mMutex); }
    PthreadUnlocked(const PthreadUnlocked&) = delete;
    PthreadUnlocked& operator=(const PthreadUnlocked&) = delete;

private:
    pthread_mutex_t* const mMutex;
};

// Keeps the thread from being cancelled; it meets a request at its next cancellation point after this.
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
