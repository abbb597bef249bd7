// Locks and events, beside those of the system and of common libraries.
#include <absl/synchronization/mutex.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <semaphore>

#include "Harness.h"

namespace {

using kzbench::AtMost;
using kzbench::Faster;
using kzbench::Measure;
using kzbench::MeasureTwoThreads;
using kzbench::Medians;

ThMutex gMutex;
pthread_mutex_t gPthreadMutex = PTHREAD_MUTEX_INITIALIZER;
absl::Mutex gAbslMutex;
std::atomic<int> gWord;
std::vector<ThMutex> gLocks(10'000);

// Some 100 ns of work outside the lock.
void Work()
{
    for (int i = 0; i < 60; ++i) {
        benchmark::DoNotOptimize(i);
    }
}

struct KzLock {
    static void Lock() { ThMutexAcquire(gMutex); }
    static void Unlock() { ThMutexRelease(gMutex); }
};
struct PthreadLock {
    static void Lock() { pthread_mutex_lock(&gPthreadMutex); }
    static void Unlock() { pthread_mutex_unlock(&gPthreadMutex); }
};
struct AbslLock {
    static void Lock() { gAbslMutex.Lock(); }
    static void Unlock() { gAbslMutex.Unlock(); }
};

template <typename L>
void MeasureLock(const std::string& name)
{
    Measure((name + " lock").c_str(), [] {
        L::Lock();
        benchmark::ClobberMemory();
        L::Unlock();
    });
    MeasureTwoThreads((name + " lock, 2 threads").c_str(), 200'000, [](int, long count) {
        for (; count > 0; --count) {
            L::Lock();
            benchmark::ClobberMemory();
            L::Unlock();
        }
    });
    MeasureTwoThreads((name + " lock, 2 threads, work").c_str(), 200'000, [](int, long count) {
        for (; count > 0; --count) {
            L::Lock();
            benchmark::ClobberMemory();
            L::Unlock();
            Work();
        }
    });
}

// An event of the plain library: a flag under a mutex.
class ConditionEvent {
public:
    void Signal()
    {
        std::lock_guard<std::mutex> lock(mLock);
        mSignalled = true;
        mCondition.notify_one();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lock(mLock);
        mCondition.wait(lock, [this] { return mSignalled; });
        mSignalled = false;
    }

private:
    std::mutex mLock;
    std::condition_variable mCondition;
    bool mSignalled = false;
};

class KzEvent {
public:
    KzEvent() { ThEventCreate(&mEvent, nullptr, 0); }
    ~KzEvent() { ThEventDestroy(mEvent); }
    KzEvent(const KzEvent&) = delete;
    KzEvent& operator=(const KzEvent&) = delete;
    void Signal() { ThEventSignal(mEvent); }
    void Wait() { ThEventWait(mEvent); }

private:
    ThEvent mEvent = nullptr;
};

class SemaphoreEvent {
public:
    void Signal() { mSemaphore.release(); }
    void Wait() { mSemaphore.acquire(); }

private:
    std::binary_semaphore mSemaphore{0};
};

class DescriptorEvent {
public:
    ~DescriptorEvent() { close(mDescriptor); }
    void Signal() { (void)!write(mDescriptor, &kOne, sizeof kOne); }
    void Wait()
    {
        uInt64 value;
        (void)!read(mDescriptor, &value, sizeof value);
    }

private:
    static constexpr uInt64 kOne = 1;
    int mDescriptor = eventfd(0, 0);
};

template <typename Event>
void MeasureEvent(const std::string& name)
{
    static Event sEvents[2];
    Measure((name + " signal+wait").c_str(), [] {
        sEvents[0].Signal();
        sEvents[0].Wait();
    });
    // A round trip: one thread's signal and the other's answer.
    MeasureTwoThreads((name + " ping-pong").c_str(), 20'000, [](int thread, long count) {
        for (; count > 0; --count) {
            if (thread == 0) {
                sEvents[0].Signal();
                sEvents[1].Wait();
            } else {
                sEvents[0].Wait();
                sEvents[1].Signal();
            }
        }
    });
}

void MeasureTimedWaits()
{
    static ThEvent sEvent;
    ThEventCreate(&sEvent, nullptr, 0);
    Measure("kz wait 1 ms", [] { ThEventWaitWithTimeout(sEvent, 1); });
    static std::mutex sLock;
    static std::condition_variable sCondition;
    Measure("condvar wait 1 ms", [] {
        std::unique_lock<std::mutex> lock(sLock);
        sCondition.wait_for(lock, std::chrono::milliseconds(1));
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const kzbench::RunningProgram program;
    ThMutexCreate(&gMutex, "bench");
    for (ThMutex& lock : gLocks) {
        ThMutexCreate(&lock, "bench");
    }
    Measure("locked add", [] { gWord.fetch_add(1); });
    MeasureLock<PthreadLock>("pthread");
    MeasureLock<KzLock>("kz");
    MeasureLock<AbslLock>("absl");
    Measure("kz lock, 10,000 made", [] {
        ThMutexAcquire(gLocks.back());
        benchmark::ClobberMemory();
        ThMutexRelease(gLocks.back());
    });
    MeasureEvent<KzEvent>("kz");
    MeasureEvent<ConditionEvent>("condvar");
    MeasureEvent<SemaphoreEvent>("std semaphore");
    MeasureEvent<DescriptorEvent>("eventfd");
    MeasureTimedWaits();
    const auto overshoot = [](const Medians& t) { return t("condvar wait 1 ms"); };
    return kzbench::RunWithGoals(
        argc, argv,
        {AtMost("lock, uncontended", "kz lock", 1.0, "pthread lock"),
         AtMost("lock, uncontended", "kz lock", 2.2, "locked add"),
         AtMost("lock, 2 threads", "kz lock, 2 threads", 4, "pthread lock, 2 threads"),
         AtMost("lock, 2 threads", "kz lock, 2 threads", 1, "absl lock, 2 threads"),
         AtMost("lock, 2 threads, work outside", "kz lock, 2 threads, work", 4, "pthread lock, 2 threads, work"),
         AtMost("lock, 2 threads, work outside", "kz lock, 2 threads, work", 1, "absl lock, 2 threads, work"),
         Faster("event signal+wait", "kz signal+wait", 1.8, "condvar signal+wait"),
         Faster("event signal+wait", "kz signal+wait", 70, "eventfd signal+wait"),
         AtMost("event ping-pong", "kz ping-pong", 1.0, "std semaphore ping-pong"),
         AtMost("event ping-pong", "kz ping-pong", 1.05, "condvar ping-pong"),
         {"timed wait of 1 ms", "kz wait 1 ms", "overshoot <= condvar's", overshoot, {"condvar wait 1 ms"}},
         AtMost("growth: lock, 10,000 made", "kz lock, 10,000 made", 1.1, "kz lock")});
}
