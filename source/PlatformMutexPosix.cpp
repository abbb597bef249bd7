// PlatformMutex on a pthread mutex. The interface's factory stands here too, so that this file is the only one that
// knows which class a lock is on this platform.
#include <pthread.h>

#include <memory>
#include <new>

#include "KzErr.h"
#include "PlatformMutex.h"
#include "Report.h"
#include "UnixMutexUtil.h"

namespace {

constexpr char kModule[] = "source/PlatformMutexPosix";

class PlatformMutexPosix final : public PlatformMutex {
public:
    KzErr Acquire() override
    {
        const int result = pthread_mutex_lock(&mMutex);
        if (result != 0) {
            KZ_REPORT(kDbgError, 0x2C95E07B) << "pthread_mutex_lock failed, error " << result << "\n";
            return kzErrGeneric;
        }
        return kzErrNone;
    }

    // A refusal is not reported, because the system gives one only to a thread that does not hold a checked lock, which
    // the caller sees from the code.
    KzErr Release() override { return pthread_mutex_unlock(&mMutex) == 0 ? kzErrNone : kzErrGeneric; }

    KzErr Init() override { return kzcore_pthread_mutex_init(&mMutex) == 0 ? kzErrNone : kzErrMemoryFull; }

    KzErr Uninit() override { return pthread_mutex_destroy(&mMutex) == 0 ? kzErrNone : kzErrGeneric; }

private:
    pthread_mutex_t mMutex{};
};

}  // namespace

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
    // The object goes even if the system refuses, because the caller has no way to try again.
    const KzErr result = mutex->Uninit();
    delete mutex;
    return result;
}
