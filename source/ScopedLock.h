// Holds a ThMutex for a scope; a null mutex is nothing to hold.
#ifndef KZCORE_SCOPEDLOCK_H
#define KZCORE_SCOPEDLOCK_H

#include "ThMutex.h"
#include "ThreadAnnotations.h"

namespace kz {

class KZ_SCOPED_CAPABILITY ScopedLock {
public:
    explicit ScopedLock(ThMutex mutex) KZ_ACQUIRE(mutex) KZ_NO_THREAD_CHECK : mMutex(mutex) { ThMutexAcquire(mMutex); }
    ~ScopedLock() KZ_RELEASE() KZ_NO_THREAD_CHECK { ThMutexRelease(mMutex); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    ThMutex const mMutex;
};

}  // namespace kz

#endif
