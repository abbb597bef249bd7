// Holds a ThMutex for a scope. A null mutex is nothing to hold, so code may run before the lock's owner has made it and
// after the owner has gone. This is the library's one way to lock; PthreadScopes.h says which few places can't use it.
#ifndef KZCORE_SCOPEDLOCK_H
#define KZCORE_SCOPEDLOCK_H

#include "ThMutex.h"
#include "ThreadAnnotations.h"

namespace kz {

class KZ_SCOPED_CAPABILITY ScopedLock {
public:
    // The bodies are not checked because they take and release what the signatures promise through another name.
    explicit ScopedLock(ThMutex mutex) KZ_ACQUIRE(mutex) KZ_NO_THREAD_CHECK : mMutex(mutex) { ThMutexAcquire(mMutex); }
    ~ScopedLock() KZ_RELEASE() KZ_NO_THREAD_CHECK { ThMutexRelease(mMutex); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    ThMutex const mMutex;
};

}  // namespace kz

#endif
