// A timed event is a time under a mutex, and a condition on which all who wait for it sleep. A change of the time wakes
// them all, because each has to look at the new time; whoever finds it not yet come sleeps on until it comes.
//
// The record is a pointer block of the memory manager's, so it is counted and checked like every block of a host's. It
// uses a mutex of the system's instead of a ThMutex because a condition can be waited for with no other kind.
#include "ThTmoEvent.h"

#include <pthread.h>

#include <cerrno>

#include "HiResClock.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PlatformClock.h"
#include "PthreadScopes.h"
#include "Report.h"
#include "UnixMutexUtil.h"
#include "Verifier.h"

struct ThTmoEventRec {
    uInt32 verifier;
    uInt32 time KZ_GUARDED_BY(mutex);
    kz::PthreadMutex mutex;
    pthread_cond_t condition;
};

namespace {

constexpr char kModule[] = "source/ThTmoEvent";

constexpr uInt32 kTmoEventVerifier = kz::FourCharCode("TmEv");
constexpr int32 kForever = -1;

// The report of a call that gets a block which is no timed event.
bool ReportForeign()
{
    KZ_REPORT(kDbgFatal, 0x2BC8046F);
    return false;
}

bool IsTmoEvent(ThTmoEvent event)
{
    return event->verifier == kTmoEventVerifier || ReportForeign();
}

}  // namespace

KzErr ThTmoEventCreate(ThTmoEvent* out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    auto* const event = static_cast<ThTmoEvent>(DSNewPClr(sizeof(ThTmoEventRec)));
    if (event == nullptr) {
        return kzErrMemoryFull;
    }
    // The block is zeroed, which is a time that never comes, and a mutex that the system still has to set up.
    event->verifier = kTmoEventVerifier;
    if (kzcore_pthread_mutex_init(event->mutex.Get()) != 0) {
        KZ_REPORT(kDbgFatal, 0xD96F51A8) << "Bad mutex init";
        DSDisposePtr(event);
        return kzErrMemoryFull;
    }
    if (kzcore_pthread_cond_init(&event->condition) != 0) {
        KZ_REPORT(kDbgFatal, 0x6704EB93) << "Bad condition variable init";
        pthread_mutex_destroy(event->mutex.Get());
        DSDisposePtr(event);
        return kzErrMemoryFull;
    }
    *out = event;
    return kzErrNone;
}

void ThTmoEventDestroy(ThTmoEvent event)
{
    if (event == nullptr) {
        KZ_REPORT(kDbgError, 0xF1432D7C) << "Bad ThTmoEvent in ThTmoEventDestroy()";
        return;
    }
    // The verifier goes first: of two threads that destroy one event only one comes past this line.
    if (!kz::SpoilVerifier(&event->verifier, kTmoEventVerifier)) {
        ReportForeign();
        return;
    }
    pthread_cond_destroy(&event->condition);
    pthread_mutex_destroy(event->mutex.Get());
    DSDisposePtr(event);
}

void ThTmoEventChangeTmo(ThTmoEvent event, uInt32 absoluteMs)
{
    if (event == nullptr || !IsTmoEvent(event)) {
        return;
    }
    const kz::PthreadLocked lock(&event->mutex);
    if (event->time != absoluteMs) {
        event->time = absoluteMs;
        pthread_cond_broadcast(&event->condition);
    }
}

uInt32 ThTmoEventGetTmo(ThTmoEvent event)
{
    if (event == nullptr || !IsTmoEvent(event)) {
        return 0;
    }
    const kz::PthreadLocked lock(&event->mutex);
    return event->time;
}

void ThTmoEventWait(ThTmoEvent event)
{
    if (event == nullptr || !IsTmoEvent(event)) {
        return;
    }
    const kz::PthreadLocked lock(&event->mutex);
    for (;;) {
        const int32 left = event->time == 0 ? kForever : MillisecCmp(event->time, MilliSecs());
        if (event->time != 0 && left <= 0) {
            return;
        }
        KZ_ASSERT(left == kForever || left > 0);
        // The time is looked at again even after a time-out, because it may have been changed at that moment.
        const int result = kz::Deadline(left).WaitOn(&event->condition, event->mutex.Get());
        if (result != 0 && result != EINTR && result != EAGAIN && result != ETIMEDOUT) {
            KZ_REPORT(kDbgFatal, 0x389E70B5) << "unknown cond_wait result " << result;
            return;
        }
    }
}
