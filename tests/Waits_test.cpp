// Events, timed events and locks as one: things that a thread waits for, and another one completes.
#include <gtest/gtest.h>

#include <sched.h>

#include <cerrno>
#include <initializer_list>
#include <string>
#include <type_traits>

#include "HiResClock.h"
#include "Racing.h"
#include "ScopedLock.h"
#include "Spin.h"
#include "ThEvent.h"
#include "ThTmoEvent.h"

namespace {

thread_local int tCallsLeft = 0;   // of those below, until the one that fails
thread_local int tInheriting = 0;  // mutexes that were asked to inherit priorities

bool CallFails(bool inherits)
{
    tInheriting += inherits;
    return tCallsLeft > 0 && --tCallsLeft == 0;
}

}  // namespace

// The system's calls that set up a mutex or a condition.
#define KZ_FAILING_CALL(name, parameters, arguments, inherits)         \
    int __real_##name parameters;                                      \
    int __wrap_##name parameters                                       \
    {                                                                  \
        return CallFails(inherits) ? EAGAIN : __real_##name arguments; \
    }

extern "C" {
KZ_FAILING_CALL(pthread_mutexattr_init, (pthread_mutexattr_t * a), (a), false)
KZ_FAILING_CALL(pthread_mutexattr_setprotocol, (pthread_mutexattr_t * a, int p), (a, p), p == PTHREAD_PRIO_INHERIT)
KZ_FAILING_CALL(pthread_mutex_init, (pthread_mutex_t * m, const pthread_mutexattr_t* a), (m, a), false)
KZ_FAILING_CALL(pthread_condattr_init, (pthread_condattr_t * a), (a), false)
KZ_FAILING_CALL(pthread_cond_init, (pthread_cond_t * c, const pthread_condattr_t* a), (c, a), false)
}

namespace {

// Each kind is made incomplete; one Complete lets one Wait through.
struct Event {
    using Handle = ThEvent;
    static constexpr bool kTellsOfFailure = false;
    static KzErr Create(ThEvent* out) { return ThEventCreate(out, nullptr, 0); }
    static void Complete(ThEvent event) { ThEventSignal(event); }
    static void Wait(ThEvent event) { EXPECT_EQ(ThEventWaitWithTimeout(event, kztest::kPatienceMs), 0); }
    static void Destroy(ThEvent event) { ThEventDestroy(event); }
};

struct TimedEvent {
    using Handle = ThTmoEvent;
    static constexpr bool kTellsOfFailure = true;
    static KzErr Create(ThTmoEvent* out) { return ThTmoEventCreate(out); }
    static void Complete(ThTmoEvent event) { ThTmoEventChangeTmo(event, (MilliSecs() - 1) | 1); }
    static void Wait(ThTmoEvent event)
    {
        ThTmoEventWait(event);
        ThTmoEventChangeTmo(event, 0);
    }
    static void Destroy(ThTmoEvent event) { ThTmoEventDestroy(event); }
};

// A lock that one thread takes again and again, and the other one gives back.
struct Lock {
    using Handle = ThMutex;
    static constexpr bool kTellsOfFailure = false;
    static KzErr Create(ThMutex* out)
    {
        const KzErr err = ThMutexCreate(out, nullptr);
        kztest::Take(err == 0 ? *out : nullptr);
        return err;
    }
    static void Complete(ThMutex lock) { kztest::GiveBack(lock); }
    static void Wait(ThMutex lock) { kztest::Take(lock); }
    static void Destroy(ThMutex lock)
    {
        kztest::GiveBack(lock);
        ThMutexDestroy(lock);
    }
};

template <typename Kind>
class WaitsTest : public kztest::ThreadTest {
protected:
    using Handle = typename Kind::Handle;

    static Handle Make()
    {
        Handle made = nullptr;
        EXPECT_EQ(Kind::Create(&made), 0);
        return made;
    }

    // Makes one, or is told as it should be that there is no memory.
    static void MakeUnless(bool fails, KzErr err, Handle made)
    {
        EXPECT_EQ(err, fails ? kzErrMemoryFull : kzErrNone);
        EXPECT_EQ(made == nullptr, fails);
        if (made != nullptr) {
            Kind::Destroy(made);
        }
    }

    static void CompleteAndDestroy(int rounds);
    static void CompleteAgainAndAgain(int rounds);
};

using Kinds = testing::Types<Event, TimedEvent, Lock>;
TYPED_TEST_SUITE(WaitsTest, Kinds);

TYPED_TEST(WaitsTest, EachAllocationAndSystemCallMayFail)
{
    EXPECT_EQ(TypeParam::Create(nullptr), kzErrArgument);
    kztest::FaultLoop([](auto failed) {
        typename TypeParam::Handle made = nullptr;
        const KzErr err = TypeParam::Create(&made);
        TestFixture::MakeUnless(failed(), err, made);
    });
    kztest::TestHost host;
    IKZApp* const outer = KZApp();
    KZAppInterfaceSet(&host);
    for (const KzBool isRealTime : {0, 1}) {
        host.isRealTimeTarget = isRealTime;
        const int calls = isRealTime ? 5 : 4;
        const long news = kztest::LiveNewCount();
        tInheriting = 0;
        for (int n = 1; n <= calls + 1; ++n) {
            const kztest::LiveCounts before = kztest::CountLive();
            tCallsLeft = n;
            typename TypeParam::Handle made = nullptr;
            const KzErr err = TypeParam::Create(&made);
            EXPECT_EQ(tCallsLeft, n > calls ? 1 : 0) << "calls of the system";
            tCallsLeft = 0;
            TestFixture::MakeUnless(n <= calls, err, made);
            const auto told = this->reports.TakeAll();
            ASSERT_EQ(told.size(), TypeParam::kTellsOfFailure && n <= calls ? 1u : 0u);
            for (const kztest::CaughtReport& report : told) {
                EXPECT_EQ(report.level, kDbgFatal);
                EXPECT_EQ(report.text, n <= calls - 2 ? "Bad mutex init" : "Bad condition variable init");
            }
            EXPECT_EQ(kztest::CountLive(), before);
        }
        EXPECT_EQ(tInheriting, isRealTime ? calls : 0) << "all but the first try come so far";
        // Not in the first round, whose reports may be the first of the process: these make what all later ones use.
        if (isRealTime) {
            EXPECT_EQ(kztest::LiveNewCount(), news);
        }
    }
    KZAppInterfaceSet(outer);
}

TYPED_TEST(WaitsTest, MadeBeforeTheHostIsSetItWorksWithAReport)
{
    IKZApp* const host = KZApp();
    KZAppInterfaceSet(nullptr);
    tInheriting = 0;
    const auto made = TestFixture::Make();
    EXPECT_EQ(tInheriting, 1) << "the target may be a real-time one";
    const std::vector<kztest::CaughtReport> told = this->reports.TakeAll();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].level, kDbgWarning);
    EXPECT_EQ(told[0].text, "mutex created before kzcore is initialized, move caller to after KZApp is ready\n");
    TypeParam::Complete(made);
    TypeParam::Wait(made);
    TypeParam::Destroy(made);
    KZAppInterfaceSet(host);
}

// Who waited for something destroys it at once, while the thread that let it go on may still be on its way out of the
// call. A touch after that is one of freed memory, which the sanitizers see.
template <typename Kind>
void WaitsTest<Kind>::CompleteAndDestroy(int rounds)
{
    std::atomic<Handle> next{nullptr};
    std::jthread waiter([&] {
        for (int round = 0; round < rounds; ++round) {
            Handle thing = nullptr;
            kztest::Await([&] { return (thing = next.exchange(nullptr)) != nullptr; });
            kztest::Dawdle(round % 7);
            Kind::Wait(thing);
            Kind::Destroy(thing);
        }
    });
    for (int round = 0; round < rounds; ++round) {
        const Handle thing = Make();
        kztest::Await([&] { return next == nullptr; });
        next = thing;
        kztest::Dawdle(round % 11 * (round % 5 == 0 ? 100 : 1));  // now and then the waiter is asleep by then
        Kind::Complete(thing);
    }
}

// Both set off at the same moment, round after round on one thing, so that it is often completed between the waiter's
// look at it and its sleep. A wake-up that is lost runs into the wait's limit.
template <typename Kind>
void WaitsTest<Kind>::CompleteAgainAndAgain(int rounds)
{
    Handle thing = nullptr;
    std::jthread([&thing] { thing = Make(); }).join();  // a lock that threads hand over has no order
    std::atomic<int> started{0};
    std::atomic<int> passed{0};
    int handedOver = 0;  // ordered by the thing alone
    std::thread waiter([&] {
        for (int round = 1; round <= rounds; ++round) {
            kztest::Await([&] { return started >= round; });
            kztest::Dawdle(round % 7);
            Kind::Wait(thing);
            EXPECT_EQ(handedOver, round);
            passed = round;
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        handedOver = round;
        started = round;
        kztest::Dawdle(round % 11);
        Kind::Complete(thing);
        kztest::Await([&] { return passed >= round; });
    }
    waiter.join();
    Kind::Destroy(thing);
}

TYPED_TEST(WaitsTest, NoWakeUpIsLostAndTheWaiterMayDestroyAtOnce)
{
    const int rounds = kztest::StressRounds(30000);
    cpu_set_t usable;
    ASSERT_EQ(sched_getaffinity(0, sizeof usable, &usable), 0);
    for (const bool spins : {true, false}) {
        kz::AllowSpins(spins);
        EXPECT_EQ(kz::SpinsPay(), spins && CPU_COUNT(&usable) > 1);
        TestFixture::CompleteAgainAndAgain(rounds);
        TestFixture::CompleteAndDestroy(rounds);
        kztest::Race(4, [&](int) { TestFixture::CompleteAndDestroy(rounds / 4); });  // eight threads
    }
    kz::AllowSpins(true);
}

template <typename Result, typename Handle, typename... Others>
Handle HandleOf(Result (*)(Handle, Others...));

// Calls a function on a block, whatever that is; 0 where it has no result.
template <auto function, auto... others>
int32 On(void* block)
{
    const auto handle = static_cast<decltype(HandleOf(function))>(block);
    if constexpr (std::is_void_v<decltype(function(handle, others...))>) {
        function(handle, others...);
        return 0;
    } else {
        return static_cast<int32>(function(handle, others...));
    }
}

int32 MessageWaitWithSecond(ThEvent second)
{
    ThEvent event = nullptr;
    EXPECT_EQ(ThEventCreate(&event, nullptr, 0), 0);
    const int32 result = ThEventMsgWaitMultiple(event, second, 0, 0);
    ThEventDestroy(event);
    return second == nullptr ? 1 - result : result;  // no second one is no fault
}

// What each call says to a block that is not of its kind, and which report it makes. Null has the same result, and no
// report but those of the last column, at level 3.
const struct {
    const char* name;
    int32 (*call)(void* block);
    int32 result;
    int level;
    const char* text;
    const char* nullText;
} kRefusals[] = {
    {"signal", &On<&ThEventSignal>, 0, kDbgFatal, "Bad verifier in event.", ""},
    {"reset", &On<&ThEventReset>, 0, kDbgFatal, "", ""},
    {"wait", &On<&ThEventWait>, kzErrArgument, kDbgFatal, "", ""},
    {"pump", &On<&ThEventWaitAndPump, nullptr, 0, 0>, kzErrArgument, kDbgFatal, "", ""},
    {"message", &On<&ThEventMsgWaitMultiple, nullptr, 0, 0>, 1, kDbgFatal, "", ""},
    {"second", &On<&MessageWaitWithSecond>, 1, kDbgFatal, "", ""},
    {"destroy event", &On<&ThEventDestroy>, 0, kDbgFatal, "", "Bad ThEvent in ThEventDestroy()"},
    {"change", &On<&ThTmoEventChangeTmo, 1>, 0, kDbgFatal, "", ""},
    {"wait for a time", &On<&ThTmoEventWait>, 0, kDbgFatal, "", ""},
    {"get", &On<&ThTmoEventGetTmo>, 0, kDbgFatal, "", ""},
    {"destroy timed event", &On<&ThTmoEventDestroy>, 0, kDbgFatal, "", "Bad ThTmoEvent in ThTmoEventDestroy()"},
    {"destroy lock", &On<&ThMutexDestroy>, 0, kDbgError, "bad mutex verifier in ThMutexDestroy", ""},
};

using RefusalTest = kztest::ThreadTest;

TEST_F(RefusalTest, NullForeignAndDestroyedBlocks)
{
    static const unsigned char kReadOnly[128] = {};
    // What is left of a destroyed thing is such a block too.
    alignas(16) unsigned char ofEvent[128] = {};
    alignas(16) unsigned char ofLock[128] = {};
    ThEvent event = nullptr;
    ASSERT_EQ(ThEventCreate(&event, nullptr, 0), 0);
    kztest::CopyAtDelete(event, ofEvent, 16);
    ThEventDestroy(event);
    const ThMutex lock = kztest::MakeLock();
    kztest::CopyAtDelete(lock, ofLock, 24);
    ThMutexDestroy(lock);
    ASSERT_TRUE(kztest::CopiedAtDelete());
    const unsigned char* const blocks[] = {nullptr, kReadOnly, ofEvent, ofLock};
    for (const auto& row : kRefusals) {
        for (const unsigned char* const block : blocks) {
            EXPECT_EQ(row.call(const_cast<unsigned char*>(block)), row.result) << row.name;
            const std::vector<kztest::CaughtReport> told = reports.TakeAll();
            const std::string text = block == nullptr ? row.nullText : row.text;
            ASSERT_EQ(told.size(), block == nullptr && text.empty() ? 0U : 1U) << row.name;
            for (const kztest::CaughtReport& report : told) {
                EXPECT_EQ(report.level, block == nullptr ? kDbgError : row.level) << row.name;
                EXPECT_EQ(report.text, text) << row.name;
            }
        }
    }
}

}  // namespace
