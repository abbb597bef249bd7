// Counting locks, for every lock of the library. Usable from C11 and C++20.
//
// A null ThMutex is valid everywhere and means nothing to lock. A lock is not recursive: a second take by the thread
// that holds it waits until another thread releases the lock. Debug builds report such a take at level 2 first, and at
// level 3 locks that threads take in orders that could make them wait for each other. No order is promised among
// waiters. Taking and releasing a lock that nobody else wants is one atomic addition each, without a system call.
#ifndef KZCORE_THMUTEX_H
#define KZCORE_THMUTEX_H

#include "KZTypes.h"
#include "ThreadAnnotations.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

typedef struct KZ_CAPABILITY("ThMutex") ThMutexRec* ThMutex;

KZ_EXTERN_C_BEGIN

// Makes a free lock in `*out`, to be destroyed with ThMutexDestroy. `name` says what it protects, for the reader of
// the call; it is not kept and may be null. kzErrArgument: `out` is null; kzErrMemoryFull: out of memory, `*out` is
// null. Before the host's interface is set it reports at level 2. Any thread.
KZ_EXPORT KzErr ThMutexCreate(ThMutex* out, const char* name);

// Destroys a lock that nobody holds or waits for. A thread that took it and released it again may destroy it at once,
// even if the release by which another thread let it in has not returned. A block that is no lock is reported at level
// 3 and left alone; so is a lock that was destroyed, for as long as its memory is not used again.
KZ_EXPORT void ThMutexDestroy(ThMutex mutex);

// Takes the lock, waiting for it as long as it takes. No cancellation point. Any thread; one that holds it
// waits until another thread releases it.
KZ_EXPORT void ThMutexAcquire(ThMutex mutex) KZ_ACQUIRE(mutex);

// Releases the lock, and hands it to one waiter if there is any. Whether it is held, and by which thread, is not looked
// at: a lock may be released by another thread than the one that took it.
KZ_EXPORT void ThMutexRelease(ThMutex mutex) KZ_RELEASE(mutex);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The place of locks in the order of services; locks work without it.
class ThMutex_Service : public PlainService_T<ThMutex_Service> {
    friend KZ_GammaPolicy<ThMutex_Service>;

    ThMutex_Service();
};

// The service, made on the first call.
KZ_EXPORT ThMutex_Service* ThMutexService();
#endif

#endif
