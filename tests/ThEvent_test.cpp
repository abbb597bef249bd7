#include "ThEvent.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <random>
#include <utility>

#include "HiResClock.h"
#include "PlatformEvent.h"
#include "Racing.h"
#include "ThInternals.h"
#include "VirtualClock.h"

namespace {

thread_local int tEmptyWakes = 0;  // that end this thread's next waits at once

}  // namespace

extern "C" {
int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
int __wrap_pthread_cond_clockwait(pthread_cond_t* c, pthread_mutex_t* m, clockid_t clock, const timespec* until)
{
    return tEmptyWakes > 0 && tEmptyWakes-- > 0 ? 0 : __real_pthread_cond_clockwait(c, m, clock, until);
}
}

namespace {

using Clock = std::chrono::steady_clock;

class ThEventTest : public kztest::ThreadTest {
protected:
    ThEventTest() { EXPECT_EQ(ThEventCreate(&event, nullptr, 0), kzErrNone); }
    ~ThEventTest() override { ThEventDestroy(event); }

    ThEvent event = nullptr;
};

TEST_F(ThEventTest, KeepsOneSignal)
{
    std::mt19937 random(1);
    for (int32 initialState = 0; initialState < 3; ++initialState) {
        ThEventDestroy(event);
        EXPECT_EQ(ThEventCreate(&event, nullptr, initialState), kzErrNone);
        bool kept = initialState != 0;
        for (int step = 0; step < 300; ++step) {
            const auto call = random() % 4;
            if (call == 0) {
                EXPECT_EQ(ThEventReset(event), kept ? 1 : 0);
            } else if (call == 1) {
                EXPECT_EQ(ThEventWaitWithTimeout(event, 0), kept ? kzErrNone : kzErrTimeout);
            } else if (call == 2) {
                EXPECT_EQ(ThEventSignal(event), 0);
            } else {
                EXPECT_EQ(kept ? ThEventWait(event) : kzErrNone, kzErrNone);
            }
            kept = call == 2;
        }
    }
    ThEventReset(event);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ThEventWaitWithTimeout(event, 30), kzErrTimeout);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
}

struct Pump {
    ThEvent event;
    int signalAt;
    int calls;
    int arg;
};
Pump gPump;

void CountingPump(int32 arg)
{
    gPump.arg = arg;
    if (++gPump.calls == gPump.signalAt) {
        ThEventSignal(gPump.event);
    }
}

TEST_F(ThEventTest, PumpsUntilSignalled)
{
    // The first call is the one before the wait. A signal that comes during a pump ends even an endless round.
    const struct {
        int milliseconds;
        int signalAt;
    } cases[] = {{0, 1}, {0, 5}, {1, 4}, {-1, 2}, {kztest::kPatienceMs, 2}};
    for (const auto& each : cases) {
        gPump = {event, each.signalAt, 0, 0};
        EXPECT_EQ(ThEventWaitAndPump(event, &CountingPump, each.milliseconds, 7), kzErrNone);
        EXPECT_TRUE(gPump.calls == each.signalAt && gPump.arg == 7) << each.milliseconds;
        EXPECT_EQ(ThEventReset(event), 0);
    }
    gPump = {};
    EXPECT_EQ(ThEventWaitAndPump(nullptr, &CountingPump, 0, 8), kzErrArgument);
    EXPECT_EQ(gPump.calls, 1);
    const auto throwing = [](int32) { ++gPump.calls == 4 ? throw 3 : 0; };
    EXPECT_THROW(ThEventWaitAndPump(event, throwing, 0, 0), int);
    EXPECT_EQ(ThEventSignal(event), 0) << "nobody waits";
    EXPECT_EQ(ThEventWaitWithTimeout(event, kztest::kPatienceMs), kzErrNone);
}

// A wake whose signal somebody else has taken ends a step of a pumping wait, and no other wait.
TEST_F(ThEventTest, AWakeWithoutASignalPumpsAgain)
{
    gPump = {event, 5, 0, 0};
    tEmptyWakes = 100;
    EXPECT_EQ(ThEventWaitAndPump(event, &CountingPump, 50, 0), kzErrNone);
    EXPECT_TRUE(gPump.calls == 5 && tEmptyWakes == 97) << "twice before a wake, and in the end with a signal";
    EXPECT_EQ(ThEventWaitWithTimeout(event, 20), kzErrTimeout);
    EXPECT_EQ(tEmptyWakes, 0);
}

// An hour by a clock of the test's own, in seconds by the system's.
TEST_F(ThEventTest, TimeOutsGoByTheClockInPlace)
{
    constexpr uInt32 kHour = 3'600'000;
    kztest::VirtualClock clock(0xFFFFF000);
    std::atomic<bool> done{false};
    std::jthread waiter([&] {
        const uInt32 start = MilliSecs();
        EXPECT_EQ(ThEventWaitWithTimeout(event, kHour), kzErrTimeout);
        EXPECT_GE(MilliSecs() - start, kHour);
        done = true;
    });
    kztest::Await([&] {
        clock.Advance(10'000);
        std::this_thread::sleep_for(
            std::chrono::microseconds(100));  // or the clock goes round while the waiter is kept
        return done.load();
    });
    ThEventSignal(event);
}

// A platform that answers what it is told to.
class ScriptedEvent final : public PlatformEvent {
public:
    int Signal() override { return 0; }
    int Reset() override { return 0; }
    int Wait(int /*milliseconds*/) override { return waitResult; }
    int WaitAndPump(void (* /*pump*/)(int), int /*pumpArg*/, int /*milliseconds*/) override { return 0; }
    int MsgWaitMultiple(PlatformEvent*, int, int, int*, int*) override { return kWaitFailed; }
    void GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                         unsigned long long* max, unsigned long long* /*last*/) const override
    {
        *count = latencies;
        *total = 4'000'000;
        *min = 500'000;
        *max = 1'250'000;
    }
    KzErr Init(int /*initialState*/) override { return kzErrNone; }
    KzErr Uninit() override { return uninitResult; }

    int waitResult = kWaitSignalled;
    unsigned int latencies = 0;
    KzErr uninitResult = kzErrNone;
};

TEST_F(ThEventTest, TellsWhatThePlatformCouldNotDo)
{
    ScriptedEvent* const platform = new ScriptedEvent;
    ThEventDestroy(std::exchange(event, kz::ThEventAdopt(platform)));
    ASSERT_NE(event, nullptr);
    for (const int answer : {int{kWaitFailed}, 3}) {
        platform->waitResult = answer;
        EXPECT_EQ(ThEventWait(event), kzErrArgument);
    }
    EXPECT_EQ(reports.TakeRows(), (kztest::ReportRows{{kDbgFatal, "Wait on event failed"},
                                                      {kDbgWarning, "We were not supposed to retry here"}}));
    platform->latencies = 4;
    platform->uninitResult = kzErrGeneric;
    ThEventDestroy(std::exchange(event, nullptr));
    const char* const figures = "ThEventDestroy:: (ms) avg latency=1.00000 nEvents=4 min=0.50000 max=1.25000";
    EXPECT_EQ(reports.TakeRows(),
              (kztest::ReportRows{{kDbgLog, figures}, {kDbgError, "DestroyPlatformEvent failed with KzErr 42"}}));
    EXPECT_EQ(DestroyPlatformEvent(nullptr), kzErrNone);
    ThEventCreate(&event, nullptr, 0);
}

}  // namespace
