// A counting lock: the count says how many threads beyond the holder want it, from -1 when free. Who raises it from
// -1 holds the lock; everybody else waits on the event, and each release that leaves a waiter signals it once, which
// hands the lock over. Between a signal and its consumer nobody else can take the lock, so at most one signal is ever
// on its way, and the event, which keeps one, loses none.
//
// Who gets the lock may destroy it as soon as it has released it again, so the last access of a release is the one that
// lets the next holder in: the subtraction that frees the lock, or the signal, which keeps its event alive until it
// returns. Between a subtraction that leaves a waiter and the signal nobody holds the lock, so nobody may destroy it.
#include "ThMutex.h"

#include <atomic>
#include <memory>
#include <new>

#include "KzAssert.h"
#include "KzErr.h"
#include "LiveCount.h"
#include "LockOrder.h"
#include "PthreadScopes.h"
#include "Report.h"
#include "Spin.h"
#include "ThEvent.h"
#include "ThInternals.h"
#include "Verifier.h"

namespace {

constexpr char kModule[] = "source/ThMutex";

constexpr uInt32 kMutexVerifier = kz::FourCharCode("Mutx");
constexpr int32 kFree = -1;

}  // namespace

struct ThMutexRec {
    std::atomic<int32> count{kFree};
    ThEvent event = nullptr;  // owned; waited for and signalled only when the count says that somebody waits
    uInt32 verifier = kMutexVerifier;
    kz::AdaptiveSpin spin;
    [[no_unique_address]] kz::LockOrder order;
};
static_assert(std::atomic<int32>::is_always_lock_free);

KzErr ThMutexCreate(ThMutex* out, const char* /*name*/)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    std::unique_ptr<ThMutexRec> mutex(new (std::nothrow) ThMutexRec);
    if (mutex == nullptr || ThEventCreate(&mutex->event, nullptr, 0) != kzErrNone) {
        return kzErrMemoryFull;
    }
    *out = mutex.release();
    kz::CountLive(kz::Live::kLocks, 1);
    return kzErrNone;
}

void ThMutexDestroy(ThMutex mutex)
{
    if (mutex == nullptr) {
        return;
    }
    // The verifier goes first: of two threads that destroy one lock only one comes past this line.
    if (!kz::SpoilVerifier(&mutex->verifier, kMutexVerifier)) {
        KZ_REPORT(kDbgError, 0xB05C2E97) << "bad mutex verifier in ThMutexDestroy";
        return;
    }
    ThEventDestroy(mutex->event);
    delete mutex;
    kz::CountLive(kz::Live::kLocks, -1);
}

// Out of line, since the stack protector would guard the free lock too for the sake of the local here.
[[gnu::noinline]] static void AwaitTurn(ThMutex mutex)
{
    // Cancellation waits until the lock is taken, because a waiter that went away would stay counted and be handed the
    // lock.
    const kz::CancellationOff untilTaken;
    ThEventWait(mutex->event);
}

void ThMutexAcquire(ThMutex mutex) KZ_NO_THREAD_CHECK
{
    if (mutex == nullptr) {
        return;
    }
    mutex->order.Take();
    // A spin pays here because most holders keep a lock shorter than a thread takes to sleep and wake. The relaxed
    // loads take nothing; the addition below does, and it alone orders.
    if (mutex->count.load(std::memory_order_relaxed) != kFree) {
        mutex->spin.Until([mutex] { return mutex->count.load(std::memory_order_relaxed) == kFree; });
    }
    if (mutex->count.fetch_add(1, std::memory_order_acq_rel) != kFree) {
        AwaitTurn(mutex);
    }
    mutex->order.Taken();
}

void ThMutexRelease(ThMutex mutex) KZ_NO_THREAD_CHECK
{
    if (mutex == nullptr) {
        return;
    }
    mutex->order.Release();
    if (mutex->count.fetch_sub(1, std::memory_order_acq_rel) != 0) {
        ThEventSignal(mutex->event);
    }
}

namespace kz {

int32 ThMutexCount(ThMutex mutex)
{
    KZ_ASSERT(mutex != nullptr);
    return mutex->count.load(std::memory_order_relaxed);
}

}  // namespace kz

ThMutex_Service::ThMutex_Service() : PlainService_T("ThMutex", &kz::AddNeeds<&ThEventService>) {}

ThMutex_Service* ThMutexService()
{
    return KZSingleton_T<ThMutex_Service>::Instance();
}
