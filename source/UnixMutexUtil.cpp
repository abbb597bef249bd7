// Every mutex of the library is set up here, because on a real-time target each of them has to inherit priorities: a
// single lock that does not pass its waiter's priority on to its holder lets a thread of low priority delay one of high
// priority. Only the host knows the target, so a mutex that is made before the host's interface is set is set up for a
// real-time one, which is right on every target and only slower.
#include "UnixMutexUtil.h"

#include "KZApp.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/UnixMutexUtil";

// Whether the target is a real-time one, as far as is known.
bool InheritsPriority()
{
    if (IKZApp* const app = KZApp()) {
        return app->IsRealTimeTarget() != 0;
    }
    KZ_REPORT(kDbgWarning, 0x6F1B93D4) << "mutex created before kzcore is initialized, move caller to after KZApp is "
                                          "ready\n";
    return true;
}

}  // namespace

int kzcore_pthread_mutex_init(pthread_mutex_t* mutex)
{
    const bool inheritsPriority = InheritsPriority();
    pthread_mutexattr_t attributes;
    int result = pthread_mutexattr_init(&attributes);
    if (result != 0) {
        return result;
    }
    if (inheritsPriority) {
        result = pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    }
    if (result == 0) {
        result = pthread_mutex_init(mutex, &attributes);
    }
    // The attributes go on every way out that has them, because a system may keep memory for them.
    pthread_mutexattr_destroy(&attributes);
    return result;
}

int kzcore_pthread_cond_init(pthread_cond_t* condition)
{
    pthread_condattr_t attributes;
    int result = pthread_condattr_init(&attributes);
    if (result != 0) {
        return result;
    }
    result = pthread_cond_init(condition, &attributes);
    pthread_condattr_destroy(&attributes);
    return result;
}
