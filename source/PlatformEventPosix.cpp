// How no wake-up is lost: a signaller stores the state word and then reads the waiter count; a waiter raises the
// count and then reads the state word. Both are sequentially consistent, so that at least one of the two sees the
// other: acquire and release would let both miss. A waiter holds the mutex from raising the count until the condition
// wait lets go of it; so a signaller that saw the waiter, and takes the mutex, signals the condition either
// before the waiter looked at the word, which is set by then, or while it waits.
//
// A waiter first tries to consume a signal without the mutex, spinning a little. It is not counted yet, so a signaller
// that does not see it leaves the signal in the word, where this waiter or a counted one finds it. When it takes a
// signal whose signaller has woken a counted waiter, that one looks at the word, finds nothing and waits on.
#include "PlatformEventPosix.h"

#include <cerrno>

#include "KzErr.h"
#include "UnixMutexUtil.h"

namespace {

// Values of the state word.
constexpr int32 kSignalled = 0;
constexpr int32 kNotSignalled = 1;

// The deadline of a wait without limit.
constexpr timespec kForever{0, -1};

bool IsForever(const timespec& deadline)
{
    return deadline.tv_nsec < 0;
}

timespec DeadlineIn(int milliseconds)
{
    if (milliseconds < 0) {
        return kForever;
    }
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    deadline.tv_nsec += milliseconds % 1000 * 1'000'000L;
    if (deadline.tv_nsec >= 1'000'000'000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1'000'000'000L;
    }
    return deadline;
}

}  // namespace

KzErr PlatformEventPosix::Init(int initialState)
{
    mWaiters = 0;
    mState = initialState != 0 ? kSignalled : kNotSignalled;
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
    const int conditionResult = pthread_cond_destroy(&mCondition);
    const int mutexResult = pthread_mutex_destroy(&mMutex);
    return conditionResult == 0 && mutexResult == 0 ? kzErrNone : kzErrGeneric;
}

int PlatformEventPosix::Signal()
{
    mState.store(kSignalled);
    if (mWaiters.load() == 0) {
        return 0;
    }
    pthread_mutex_lock(&mMutex);
    pthread_cond_signal(&mCondition);
    pthread_mutex_unlock(&mMutex);
    return 1;
}

int PlatformEventPosix::Reset()
{
    return ConsumeSignal() ? 1 : 0;
}

bool PlatformEventPosix::ConsumeSignal()
{
    return mState.exchange(kNotSignalled) == kSignalled;
}

// One wait on the condition, with the mutex held. Only a time-out ends a wait: any other result is a wake, after
// which the caller looks at the state word again.
int PlatformEventPosix::WaitStep(const timespec& deadline)
{
    const int result = IsForever(deadline) ? pthread_cond_wait(&mCondition, &mMutex)
                                           : pthread_cond_clockwait(&mCondition, &mMutex, CLOCK_MONOTONIC, &deadline);
    return result == ETIMEDOUT ? kWaitTimedOut : kWaitSignalled;
}

bool PlatformEventPosix::SpinForSignal()
{
    return mSpin.Until([this] { return mState.load(std::memory_order_relaxed) == kSignalled && ConsumeSignal(); });
}

int PlatformEventPosix::Wait(int milliseconds)
{
    int result = kWaitSignalled;
    if (ConsumeSignal() || (milliseconds != 0 && SpinForSignal())) {
        return result;
    }
    pthread_mutex_lock(&mMutex);
    mWaiters.fetch_add(1);
    if (!ConsumeSignal()) {
        const timespec deadline = DeadlineIn(milliseconds);
        bool signalled = false;
        do {
            result = WaitStep(deadline);
            signalled = ConsumeSignal();
        } while (!signalled && result != kWaitTimedOut);
        if (signalled) {
            result = kWaitSignalled;
        }
    }
    mWaiters.fetch_sub(1);
    pthread_mutex_unlock(&mMutex);
    return result;
}

int PlatformEventPosix::WaitAndPump(void (*pump)(int), int pumpArg, int milliseconds)
{
    pthread_mutex_lock(&mMutex);
    mWaiters.fetch_add(1);
    while (!ConsumeSignal()) {
        pthread_mutex_unlock(&mMutex);
        if (pump != nullptr) {
            pump(pumpArg);
        }
        pthread_mutex_lock(&mMutex);
        // A signal during the pump found this thread counted as a waiter, and signalled a condition that nobody
        // waited on; the word tells.
        if (mState.load() == kNotSignalled) {
            WaitStep(DeadlineIn(milliseconds));
        }
    }
    mWaiters.fetch_sub(1);
    pthread_mutex_unlock(&mMutex);
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
