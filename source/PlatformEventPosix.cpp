// How no wake-up is lost: the signal and the count of waiters are one word. A waiter raises the count, and later looks
// for the signal; a signaller sets the signal and reads the count in one step. So whichever comes first in the word's
// history, the waiter finds the signal or the signaller finds the waiter. A waiter holds the mutex from raising the
// count until the condition wait lets go of it; so a signaller that found the waiter, and takes the mutex, signals the
// condition while it waits. Release and acquire on that word are enough, since no second one has to agree with it.
//
// How a waiter may destroy the event as soon as its wait returns, with the signaller still inside Signal: the step that
// sets the signal is the signaller's last access when nobody is counted. Otherwise the same step counts the signaller
// too, before any waiter can see the signal. It uncounts itself with the mutex held and signals the condition, and its
// last access is to release the mutex, after which POSIX lets others destroy it at once. Whoever tears the event down
// waits with the mutex held, on the same condition, until no signaller is counted. A signaller that is neither counted
// nor past that step has not signalled yet, so nobody can have returned from waiting for it.
//
// A waiter first tries to consume a signal without the mutex, spinning a little. It is not counted yet, so a signaller
// that does not see it leaves the signal in the word, where this waiter or a counted one finds it. When it takes a
// signal whose signaller has woken a counted waiter, that one looks at the word, finds nothing and waits on.
//
// A condition wait is a cancellation point, and a pump may throw. Either leaves through the destructors on its way, so
// scopes undo the count and the mutex, and no function from the exported one down to the wait is noexcept. The system
// holds the mutex again when a cancelled wait unwinds, and hands a wake-up that met the cancelled thread to another.
//
// The mutex guards no data: all state is in the one word. What it gives is the moment between a waiter's last look at
// the word and its sleep, in which no signaller can wake it.
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>

#include "KzAssert.h"
#include "KzErr.h"
#include "PlatformClock.h"
#include "PlatformEvent.h"
#include "PthreadScopes.h"
#include "Spin.h"
#include "UnixMutexUtil.h"

namespace {

class PlatformEventPosix final : public PlatformEvent {
public:
    int Signal() override;
    int Reset() override;
    int Wait(int milliseconds) override;
    int WaitAndPump(void (*pump)(int), int pumpArg, int milliseconds) override;
    int MsgWaitMultiple(PlatformEvent* other, int milliseconds, int flags, int* out1, int* out2) override;
    void GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                         unsigned long long* max, unsigned long long* last) const override;
    KzErr Init(int initialState) override;
    KzErr Uninit() override;

private:
    class Waiter;
    enum class Wakes { kGoOn, kEndIt };  // what a wake without a signal does to a wait

    bool ConsumeSignal();
    bool SeesSignal() const;
    bool SpinForSignal();
    bool AwaitSignal(int milliseconds);
    bool ConsumeBefore(const kz::Deadline& deadline, Wakes wakes) KZ_REQUIRES(mMutex);
    void WakeOne();
    void LetSignallersLeave();

    // Two words of 32 bits in one, so that one step changes both. The low one: how many threads wait. The high one: 0
    // signalled, 1 not, plus 2 for each signaller that is inside to wake a waiter.
    std::atomic<uInt64> mWord{kNotSignalled};
    pthread_cond_t mCondition{};
    kz::PthreadMutex mMutex;
    kz::AdaptiveSpin mSpin;

    static constexpr uInt64 kOneWaiter = 1;
    static constexpr uInt64 kNotSignalled = uInt64{1} << 32;
    static constexpr uInt64 kOneSignaller = uInt64{2} << 32;
};

// A thread that waits: it holds the mutex and is counted. Relaxed is enough for the count, because the look for the
// signal that comes after it is what orders.
class KZ_SCOPED_CAPABILITY PlatformEventPosix::Waiter {
public:
    explicit Waiter(PlatformEventPosix* event) KZ_ACQUIRE(event->mMutex) KZ_NO_THREAD_CHECK : mEvent(event),
                                                                                              mLocked(&event->mMutex)
    {
        mEvent->mWord.fetch_add(kOneWaiter, std::memory_order_relaxed);
    }
    ~Waiter() KZ_RELEASE() KZ_NO_THREAD_CHECK
    {
        [[maybe_unused]] const uInt64 before = mEvent->mWord.fetch_sub(kOneWaiter, std::memory_order_relaxed);
        KZ_ASSERT(static_cast<uInt32>(before) != 0);
    }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

private:
    PlatformEventPosix* const mEvent;
    const kz::PthreadLocked mLocked;
};

KzErr PlatformEventPosix::Init(int initialState)
{
    mWord.store(initialState != 0 ? 0 : kNotSignalled, std::memory_order_relaxed);
    if (kzcore_pthread_mutex_init(mMutex.Get()) != 0) {
        return kzErrMemoryFull;
    }
    if (kzcore_pthread_cond_init(&mCondition) != 0) {
        pthread_mutex_destroy(mMutex.Get());
        return kzErrMemoryFull;
    }
    return kzErrNone;
}

KzErr PlatformEventPosix::Uninit()
{
    LetSignallersLeave();
    KZ_ASSERT(mWord.load(std::memory_order_relaxed) < kOneSignaller);
    const int conditionResult = pthread_cond_destroy(&mCondition);
    const int mutexResult = pthread_mutex_destroy(mMutex.Get());
    return conditionResult == 0 && mutexResult == 0 ? kzErrNone : kzErrGeneric;
}

// Takes the mutex even if no signaller is counted, because the last one may still hold it.
void PlatformEventPosix::LetSignallersLeave()
{
    const kz::CancellationOff untilGone;
    const kz::PthreadLocked lock(&mMutex);
    while (mWord.load(std::memory_order_relaxed) >= kOneSignaller) {
        pthread_cond_wait(&mCondition, mMutex.Get());
    }
}

int PlatformEventPosix::Signal()
{
    // The first try guesses the word of an event that nobody waits for, because to read it first would cost the fetch
    // of its cache line twice.
    uInt64 before = kNotSignalled;
    bool hasWaiters = false;
    uInt64 after = 0;
    do {
        hasWaiters = static_cast<uInt32>(before) != 0;
        after = (before & ~kNotSignalled) + (hasWaiters ? kOneSignaller : 0);
    } while (!mWord.compare_exchange_weak(before, after, std::memory_order_acq_rel, std::memory_order_relaxed));
    if (!hasWaiters) {
        return 0;  // the event may be gone
    }
    WakeOne();
    return 1;
}

// Ends the stay of a signaller that is counted. Kept out of line because its frame would slow a signal without waiters.
[[gnu::noinline]] void PlatformEventPosix::WakeOne()
{
    const kz::PthreadLocked lock(&mMutex);
    [[maybe_unused]] const uInt64 before = mWord.fetch_sub(kOneSignaller, std::memory_order_relaxed);
    KZ_ASSERT(before >= kOneSignaller);
    pthread_cond_signal(&mCondition);
}

int PlatformEventPosix::Reset()
{
    return ConsumeSignal() ? 1 : 0;
}

bool PlatformEventPosix::ConsumeSignal()
{
    return (mWord.fetch_or(kNotSignalled, std::memory_order_acq_rel) & kNotSignalled) == 0;
}

// A look that leaves the word's cache line to the signaller while there is no signal.
bool PlatformEventPosix::SeesSignal() const
{
    return (mWord.load(std::memory_order_relaxed) & kNotSignalled) == 0;
}

bool PlatformEventPosix::SpinForSignal()
{
    return mSpin.Until([this] { return SeesSignal() && ConsumeSignal(); });
}

// Called by a waiter: whether a signal came in time. Without one the deadline ends the wait, and a wake if told so.
// Every result of a condition wait but ETIMEDOUT counts as a wake, except EAGAIN, by which a test's clock asks for
// another look.
bool PlatformEventPosix::ConsumeBefore(const kz::Deadline& deadline, Wakes wakes)
{
    KZ_ASSERT(static_cast<uInt32>(mWord.load(std::memory_order_relaxed)) != 0);  // the waiter is counted
    bool ends = false;
    while (!ConsumeSignal()) {
        if (ends) {
            return false;
        }
        const int result = deadline.WaitOn(&mCondition, mMutex.Get());
        ends = result == ETIMEDOUT || (wakes == Wakes::kEndIt && result != EAGAIN);
    }
    return true;
}

int PlatformEventPosix::Wait(int milliseconds)
{
    if (SeesSignal() && ConsumeSignal()) {
        return kWaitSignalled;
    }
    return milliseconds != 0 && AwaitSignal(milliseconds) ? kWaitSignalled : kWaitTimedOut;
}

// Kept out of line like WakeOne.
[[gnu::noinline]] bool PlatformEventPosix::AwaitSignal(int milliseconds)
{
    if (SpinForSignal()) {
        return true;
    }
    const Waiter waiter(this);
    return ConsumeBefore(kz::Deadline(milliseconds), Wakes::kGoOn);
}

int PlatformEventPosix::WaitAndPump(void (*pump)(int), int pumpArg, int milliseconds)
{
    const Waiter waiter(this);
    bool signalled = ConsumeSignal();
    while (!signalled) {
        // The pump runs without the mutex because it may take long, and may call this event. The waiter stays counted,
        // so a signal that comes meanwhile is consumed by the look with which ConsumeBefore starts.
        if (pump != nullptr) {
            const kz::PthreadUnlocked lock(&mMutex);
            pump(pumpArg);
        }
        signalled = ConsumeBefore(kz::Deadline(milliseconds), Wakes::kEndIt);
    }
    return kWaitSignalled;
}

// There are no window messages here.
int PlatformEventPosix::MsgWaitMultiple(PlatformEvent* /*other*/, int /*milliseconds*/, int /*flags*/, int* /*out1*/,
                                        int* /*out2*/)
{
    return kWaitFailed;
}

// All figures are 0, because taking them would cost each signal two looks at the clock.
void PlatformEventPosix::GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                                         unsigned long long* max, unsigned long long* last) const
{
    if (count != nullptr) {
        *count = 0;
    }
    for (unsigned long long* const figure : {total, min, max, last}) {
        if (figure != nullptr) {
            *figure = 0;
        }
    }
}

}  // namespace

PlatformEvent* CreatePlatformEvent(int initialState)
{
    std::unique_ptr<PlatformEvent> event(new (std::nothrow) PlatformEventPosix);
    if (event == nullptr || event->Init(initialState) != kzErrNone) {
        return nullptr;
    }
    return event.release();
}

KzErr DestroyPlatformEvent(PlatformEvent* event)
{
    if (event == nullptr) {
        return kzErrNone;
    }
    // The object goes even if the system refuses, because the caller has no way to try again.
    const KzErr result = event->Uninit();
    delete event;
    return result;
}
