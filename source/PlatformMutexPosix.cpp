#include "PlatformMutexPosix.h"

#include "KzErr.h"
#include "Report.h"
#include "UnixMutexUtil.h"

namespace {

constexpr char kModule[] = "source/PlatformMutexPosix";

}  // namespace

KzErr PlatformMutexPosix::Acquire()
{
    const int result = pthread_mutex_lock(&mMutex);
    if (result != 0) {
        KZ_REPORT(kDbgError, 0x2C95E07B) << "pthread_mutex_lock failed, error " << result << "\n";
        return kzErrGeneric;
    }
    return kzErrNone;
}

KzErr PlatformMutexPosix::Release()
{
    return pthread_mutex_unlock(&mMutex) == 0 ? kzErrNone : kzErrGeneric;
}

KzErr PlatformMutexPosix::Init()
{
    return kzcore_pthread_mutex_init(&mMutex) == 0 ? kzErrNone : kzErrMemoryFull;
}

KzErr PlatformMutexPosix::Uninit()
{
    return pthread_mutex_destroy(&mMutex) == 0 ? kzErrNone : kzErrGeneric;
}
