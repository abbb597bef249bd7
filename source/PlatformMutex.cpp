#include "PlatformMutex.h"

#include <memory>
#include <new>

#include "KzErr.h"
#include "PlatformMutexPosix.h"

PlatformMutex* CreatePlatformMutex()
{
    std::unique_ptr<PlatformMutex> mutex(new (std::nothrow) PlatformMutexPosix);
    if (mutex == nullptr || mutex->Init() != kzErrNone) {
        return nullptr;
    }
    return mutex.release();
}

KzErr DestroyPlatformMutex(PlatformMutex* mutex)
{
    if (mutex == nullptr) {
        return kzErrNone;
    }
    const KzErr result = mutex->Uninit();
    delete mutex;
    return result;
}
