// The operating system's lock, behind one interface. ThMutex is what the library locks with; this is for what must
// lie below it. A PlatformMutex is not recursive.
#ifndef KZCORE_PLATFORMMUTEX_H
#define KZCORE_PLATFORMMUTEX_H

#include "KZTypes.h"

// The slots stand in this order; the destructor pair stands first.
class KZ_EXPORT PlatformMutex {
public:
    virtual ~PlatformMutex() = default;

    // Take and release the lock; kzErrGeneric if the system refuses, which for a take is reported at level 3. Any
    // thread.
    virtual KzErr Acquire() = 0;
    virtual KzErr Release() = 0;

    // Set up and tear down what the system keeps: once each, before and after all other calls.
    virtual KzErr Init() = 0;
    virtual KzErr Uninit() = 0;
};

KZ_EXTERN_C_BEGIN

// A new lock, to be destroyed with DestroyPlatformMutex; null if it can't be made. Before the host's interface is set
// it reports at level 2. Any thread.
KZ_EXPORT PlatformMutex* CreatePlatformMutex(void);

// Destroys a lock that nobody holds, or does nothing for null; who took and released it may do so at once. 0, or
// kzErrGeneric if the system refused to tear it down; the object is gone all the same. Any thread.
KZ_EXPORT KzErr DestroyPlatformMutex(PlatformMutex* mutex);

KZ_EXTERN_C_END

#endif
