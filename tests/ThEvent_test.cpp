#include "ThEvent.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

#include "FaultLoop.h"
#include "HiResClock.h"
#include "PlatformEvent.h"
#include "ReportCatcher.h"
#include "SlotOf.h"
#include "Spin.h"
#include "TestHost.h"
#include "ThInternals.h"
#include "VirtualClock.h"

namespace {

using Clock = std::chrono::steady_clock;

// Longer than any wait that ends as it should.
constexpr int kHang = 60000;

class ThEventTest : public testing::Test {
protected:
    ThEventTest() { KZAppInterfaceSet(&mHost); }
    ~ThEventTest() override { KZAppInterfaceSet(nullptr); }

    static ThEvent MakeEvent(int32 initialState)
    {
        ThEvent event = nullptr;
        EXPECT_EQ(ThEventCreate(&event, nullptr, initialState), kzErrNone);
        return event;
    }

    static void SignalAndWait(int rounds);

    kztest::TestHost mHost;
    kztest::ReportCatcher mReports;
};

TEST_F(ThEventTest, KeepsOneSignalForOneWaiter)
{
    const ThEvent event = MakeEvent(1);
    EXPECT_EQ(ThEventWaitWithTimeout(event, 0), kzErrNone);
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(ThEventWaitWithTimeout(event, 30), kzErrTimeout);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));

    EXPECT_EQ(ThEventSignal(event), 0);
    EXPECT_EQ(ThEventSignal(event), 0);
    EXPECT_EQ(ThEventWait(event), kzErrNone);
    EXPECT_EQ(ThEventWaitWithTimeout(event, 0), kzErrTimeout);

    EXPECT_EQ(ThEventReset(event), 0);
    ThEventSignal(event);
    EXPECT_EQ(ThEventReset(event), 1);
    EXPECT_EQ(ThEventWaitWithTimeout(event, 0), kzErrTimeout);
    ThEventDestroy(event);
}

// A signaller and a waiter set off at the same moment, round after round, so that the signal often falls between the
// waiter's look at the event and its sleep. A wake-up that is lost runs into the wait's limit.
void ThEventTest::SignalAndWait(int rounds)
{
    const ThEvent event = MakeEvent(0);
    std::atomic<int> started{0};
    std::atomic<int> passed{0};
    int handedOver = 0;  // ordered by the signals
    const auto waitFor = [](const std::atomic<int>& counter, int value) {
        for (int tries = 0; counter < value; ++tries) {
            if (tries > 1000) {
                std::this_thread::yield();
            }
        }
    };
    const auto dawdle = [](int steps) {
        for (std::atomic<int> step{0}; step < steps; ++step) {
        }
    };
    std::thread waiter([&] {
        for (int round = 1; round <= rounds; ++round) {
            waitFor(started, round);
            dawdle(round % 7);
            EXPECT_EQ(ThEventWaitWithTimeout(event, kHang), kzErrNone);
            EXPECT_EQ(handedOver, round);
            passed = round;
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        handedOver = round;
        started = round;
        dawdle(round % 11);
        ThEventSignal(event);
        waitFor(passed, round);
    }
    waiter.join();
    ThEventDestroy(event);
}

// KZ_STRESS_ROUNDS raises the number of signals.
TEST_F(ThEventTest, NoWakeUpIsLost)
{
    const char* const text = std::getenv("KZ_STRESS_ROUNDS");
    const int rounds = text == nullptr ? 50000 : std::atoi(text);
    SignalAndWait(rounds);
    kz::AllowSpins(false);
    SignalAndWait(rounds);
    kz::AllowSpins(true);
}

struct Pump {
    ThEvent event = nullptr;
    int calls = 0;
    int signalAt = 0;
    int arg = 0;
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
    } cases[] = {{0, 1}, {0, 5}, {1, 4}, {-1, 2}, {kHang, 2}};
    for (const auto& each : cases) {
        gPump = {MakeEvent(0), 0, each.signalAt, 0};
        EXPECT_EQ(ThEventWaitAndPump(gPump.event, &CountingPump, each.milliseconds, 7), kzErrNone);
        EXPECT_EQ(gPump.calls, each.signalAt);
        EXPECT_EQ(gPump.arg, 7);
        EXPECT_EQ(ThEventReset(gPump.event), 0);
        ThEventDestroy(gPump.event);
    }

    gPump = {};
    EXPECT_EQ(ThEventWaitAndPump(nullptr, &CountingPump, 0, 8), kzErrArgument);
    EXPECT_EQ(gPump.calls, 1);

    const ThEvent signalled = MakeEvent(1);
    EXPECT_EQ(ThEventWaitAndPump(signalled, nullptr, 0, 0), kzErrNone);
    ThEventDestroy(signalled);
}

// A wake whose signal somebody else has taken ends a step, however long.
TEST_F(ThEventTest, AWakeWithoutASignalPumpsAgain)
{
    static std::atomic<int> sCalls;
    const ThEvent event = MakeEvent(0);
    const Clock::time_point patience = Clock::now() + std::chrono::seconds(20);
    const auto hasPumped = [patience] { return sCalls >= 3 || Clock::now() >= patience; };  // twice before a wake
    for (sCalls = 0; !hasPumped();) {
        sCalls = 0;
        std::atomic<bool> done{false};
        std::jthread waiter([&] {
            ThEventWaitAndPump(
                event, [](int32) { ++sCalls; }, kHang, 0);
            done = true;
        });
        while (!done && !hasPumped()) {
            ThEventSignal(event);
            ThEventReset(event);
        }
        for (; !done; std::this_thread::yield()) {
            ThEventSignal(event);
        }
    }
    EXPECT_GE(sCalls, 3);
    ThEventDestroy(event);
}

void CancelledPump(int32 /*arg*/)
{
    ++gPump.calls;
    pthread_testcancel();
}

void ThrowingPump(int32 /*arg*/)
{
    if (++gPump.calls == 3) {
        throw 3;
    }
}

// A thread that goes away in the middle of a wait leaves no trace on the event.
TEST_F(ThEventTest, WaitsThatAreCancelledOrThrownOutOf)
{
    static ThEvent sEvent;
    sEvent = MakeEvent(0);
    const auto expectNoTrace = [](const char* name) {
        EXPECT_EQ(ThEventSignal(sEvent), 0) << name << ": nobody waits";
        EXPECT_EQ(ThEventWaitWithTimeout(sEvent, kHang), kzErrNone) << name;
    };
    static std::atomic<bool> sBegins;
    static void (*sWait)();
    const struct {
        const char* name;
        void (*wait)();
    } kRows[] = {
        {"wait", [] { ThEventWait(sEvent); }},
        {"wait with a limit", [] { ThEventWaitWithTimeout(sEvent, kHang); }},
        {"between pumps", [] { ThEventWaitAndPump(sEvent, nullptr, kHang, 0); }},
        {"in a pump", [] { ThEventWaitAndPump(sEvent, &CancelledPump, 0, 0); }},
    };
    for (const auto& row : kRows) {
        sBegins = false;
        sWait = row.wait;
        pthread_t thread;
        const auto run = [](void*) -> void* {
            sBegins = true;
            sWait();
            return nullptr;
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
        while (!sBegins) {
            std::this_thread::yield();
        }
        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED) << row.name;
        expectNoTrace(row.name);
    }
    gPump = {};
    EXPECT_THROW(ThEventWaitAndPump(sEvent, &ThrowingPump, 0, 0), int);
    expectNoTrace("thrown out of");
    ThEventDestroy(sEvent);
}

// An hour by a clock of the test's own, in seconds by the system's.
TEST_F(ThEventTest, TimeOutsGoByTheClockInPlace)
{
    constexpr uInt32 kHour = 3'600'000;
    const ThEvent event = MakeEvent(0);
    kztest::VirtualClock clock(0xFFFFF000);
    std::atomic<bool> done{false};
    uInt32 took = 0;
    KzErr result = kzErrNone;
    std::thread waiter([&] {
        const uInt32 start = MilliSecs();
        result = ThEventWaitWithTimeout(event, kHour);
        took = MilliSecs() - start;
        done = true;
    });
    const Clock::time_point patience = Clock::now() + std::chrono::seconds(20);
    while (!done && Clock::now() < patience) {
        clock.Advance(1000);
        std::this_thread::yield();
    }
    ThEventSignal(event);
    waiter.join();
    EXPECT_EQ(result, kzErrTimeout);
    EXPECT_GE(took, kHour);
    ThEventDestroy(event);
}

TEST_F(ThEventTest, NullAndForeignEvents)
{
    EXPECT_EQ(ThEventCreate(nullptr, nullptr, 0), kzErrArgument);
    EXPECT_EQ(DestroyPlatformEvent(nullptr), kzErrNone);
    ThEventDestroy(nullptr);
    EXPECT_TRUE(mReports.Take(kDbgError, "Bad ThEvent in ThEventDestroy()"));

    static const unsigned char kReadOnly[64] = {};
    const ThEvent foreign = reinterpret_cast<ThEvent>(const_cast<unsigned char*>(kReadOnly));
    const ThEvent event = MakeEvent(0);
    const struct {
        const char* name;
        std::function<int32(ThEvent)> call;
        int32 result;
        const char* foreignText;
    } cases[] = {
        {"signal", &ThEventSignal, 0, "Bad verifier in event."},
        {"reset", &ThEventReset, 0, ""},
        {"wait", &ThEventWait, kzErrArgument, ""},
        {"pump", [](ThEvent e) { return ThEventWaitAndPump(e, nullptr, 0, 0); }, kzErrArgument, ""},
        {"message", [](ThEvent e) { return ThEventMsgWaitMultiple(e, nullptr, 0, 0); }, 1, ""},
        {"second", [&](ThEvent e) { return ThEventMsgWaitMultiple(e != nullptr ? event : nullptr, e, 0, 0); }, 1, ""},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(each.call(nullptr), each.result) << each.name;
        EXPECT_TRUE(mReports.TakeAll().empty()) << each.name;
        EXPECT_EQ(each.call(foreign), each.result) << each.name;
        const std::vector<kztest::CaughtReport> reports = mReports.TakeAll();
        ASSERT_EQ(reports.size(), 1U) << each.name;
        EXPECT_EQ(reports[0].level, kDbgFatal) << each.name;
        EXPECT_EQ(reports[0].text, each.foreignText) << each.name;
    }
    ThEventDestroy(foreign);
    EXPECT_TRUE(mReports.Take(kDbgFatal, ""));
    EXPECT_EQ(ThEventMsgWaitMultiple(event, nullptr, 0, 0), 0);

    // What is left of a destroyed event is one of these blocks.
    alignas(16) unsigned char block[64] = {};
    kztest::CopyAtDelete(event, block, 16);
    ThEventDestroy(event);
    ASSERT_TRUE(kztest::CopiedAtDelete());
    ASSERT_EQ(memmem(block, sizeof block, "Evnt", 4), nullptr);
    ThEventDestroy(reinterpret_cast<ThEvent>(block));
    EXPECT_TRUE(mReports.Take(kDbgFatal, ""));
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
    const ThEvent event = kz::ThEventAdopt(platform);
    ASSERT_NE(event, nullptr);
    platform->waitResult = kWaitFailed;
    EXPECT_EQ(ThEventWait(event), kzErrArgument);
    EXPECT_TRUE(mReports.Take(kDbgFatal, "Wait on event failed"));
    platform->waitResult = 3;
    EXPECT_EQ(ThEventWait(event), kzErrArgument);
    EXPECT_TRUE(mReports.Take(kDbgWarning, "We were not supposed to retry here"));

    platform->latencies = 4;
    platform->uninitResult = kzErrGeneric;
    ThEventDestroy(event);
    EXPECT_TRUE(mReports.Take(kDbgError, "DestroyPlatformEvent failed with KzErr 42"));
    const std::vector<kztest::CaughtReport> reports = mReports.TakeAll();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].level, kDbgLog);
    EXPECT_EQ(reports[0].text, "ThEventDestroy:: (ms) avg latency=1.00000 nEvents=4 min=0.50000 max=1.25000");
}

TEST(PlatformEventLayout, SlotsStandInOrder)
{
    EXPECT_EQ(kztest::SlotsOf(&PlatformEvent::Signal, &PlatformEvent::Reset, &PlatformEvent::Wait,
                              &PlatformEvent::WaitAndPump, &PlatformEvent::MsgWaitMultiple,
                              &PlatformEvent::GetLatencyStats, &PlatformEvent::Init, &PlatformEvent::Uninit),
              (std::vector<long>{2, 3, 4, 5, 6, 7, 8, 9}));
}

}  // namespace
