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
#include "PlatformEventPosix.h"

#include <cerrno>

#include "KzErr.h"
#include "PthreadScopes.h"
#include "UnixMutexUtil.h"

// A thread that waits: it holds the mutex and is counted. Relaxed: what orders is the look for the signal after it.
class PlatformEventPosix::Waiter {
public:
    explicit Waiter(PlatformEventPosix* event) : mEvent(event), mLocked(&event->mMutex)
    {
        mEvent->mWord.fetch_add(kOneWaiter, std::memory_order_relaxed);
    }
    ~Waiter() { mEvent->mWord.fetch_sub(kOneWaiter, std::memory_order_relaxed); }
    Waiter(const Waiter&) = delete;
    Waiter& operator=(const Waiter&) = delete;

private:
    PlatformEventPosix* const mEvent;
    const kz::PthreadLocked mLocked;
};

KzErr PlatformEventPosix::Init(int initialState)
{
    mWord.store(initialState != 0 ? 0 : kNotSignalled, std::memory_order_relaxed);
    if (kzcore_pthread_mutex_init(&mMutex) != 0) {
        return kzErrMemoryFull;
    }
    if (kzcore_pthread_cond_init(&mCondition) != 0) {
        pthread_mutex_destroy(&mMutex);
        return kzErrMemoryFull;
    }
    return kzErrNone;
}

KzErr PlatformEventPosix::Uninit()
{
    LetSignallersLeave();
    const int conditionResult = pthread_cond_destroy(&mCondition);
    const int mutexResult = pthread_mutex_destroy(&mMutex);
    return conditionResult == 0 && mutexResult == 0 ? kzErrNone : kzErrGeneric;
}

// Takes the mutex even if no signaller is counted, because the last one may still hold it.
void PlatformEventPosix::LetSignallersLeave()
{
    const kz::CancellationOff untilGone;
    const kz::PthreadLocked lock(&mMutex);
    while (mWord.load(std::memory_order_relaxed) >= kOneSignaller) {
        pthread_cond_wait(&mCondition, &mMutex);
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
    mWord.fetch_sub(kOneSignaller, std::memory_order_relaxed);
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

// Called by a waiter: whether a signal came in time. Without one the deadline ends the wait, and a wake if told so:
// whatever else a condition wait returns is a wake, but for the EAGAIN of a test's clock.
bool PlatformEventPosix::ConsumeBefore(const kz::Deadline& deadline, Wakes wakes)
{
    bool ends = false;
    while (!ConsumeSignal()) {
        if (ends) {
            return false;
        }
        const int result = deadline.WaitOn(&mCondition, &mMutex);
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
        if (pump != nullptr) {
            const kz::PthreadUnlocked lock(&mMutex);
            pump(pumpArg);
        }
        signalled = ConsumeBefore(kz::Deadline(milliseconds), Wakes::kEndIt);
    }
    return kWaitSignalled;
}

int PlatformEventPosix::MsgWaitMultiple(PlatformEvent* /*other*/, int /*milliseconds*/, int /*flags*/, int* /*out1*/,
                                        int* /*out2*/)
{
    return kWaitFailed;
}

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
