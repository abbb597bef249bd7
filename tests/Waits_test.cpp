// Events, timed events and locks as one: things that a thread waits for, and another one completes.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <type_traits>
#include <utility>

#include "HiResClock.h"
#include "Racing.h"
#include "Spin.h"
#include "ThEvent.h"
#include "ThInternals.h"
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

// Each kind is made incomplete; one Complete lets one Wait through, and says whether it woke somebody where that is
// known.
struct Event {
    using Handle = ThEvent;
    static constexpr void (*kWaits[])(ThEvent) = {
        [](ThEvent event) { ThEventWait(event); },
        [](ThEvent event) { ThEventWaitWithTimeout(event, kztest::kPatienceMs); },
        [](ThEvent event) { ThEventWaitAndPump(event, nullptr, kztest::kPatienceMs, 0); },
        [](ThEvent event) {
            ThEventWaitAndPump(
                event, [](int32) { pthread_testcancel(); }, 0, 0);
        },
    };
    static KzErr Create(ThEvent* out) { return ThEventCreate(out, nullptr, 0); }
    static int32 Complete(ThEvent event) { return ThEventSignal(event); }
    static void Wait(ThEvent event) { EXPECT_EQ(ThEventWaitWithTimeout(event, kztest::kPatienceMs), 0); }
    static void Destroy(ThEvent event) { ThEventDestroy(event); }
};

struct TimedEvent {
    using Handle = ThTmoEvent;
    static constexpr void (*kWaits[])(ThTmoEvent) = {&ThTmoEventWait};
    static KzErr Create(ThTmoEvent* out) { return ThTmoEventCreate(out); }
    static int32 Complete(ThTmoEvent event) { return ThTmoEventChangeTmo(event, (MilliSecs() - 1) | 1), 0; }
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
    static constexpr void (*kWaits[])(ThMutex) = {&kztest::Take};
    static KzErr Create(ThMutex* out)
    {
        const KzErr err = ThMutexCreate(out, nullptr);
        kztest::Take(err == 0 ? *out : nullptr);
        return err;
    }
    static int32 Complete(ThMutex lock) { return kztest::GiveBack(lock), 0; }
    static void Wait(ThMutex lock) { kztest::Take(lock); }
    static void Destroy(ThMutex lock)
    {
        kztest::GiveBack(lock);
        EXPECT_EQ(kz::ThMutexCount(lock), -1);
        ThMutexDestroy(lock);
    }
};

// Whether a thread waits for the lock, or may wait for the event, which does not tell.
bool IsAwaited(ThMutex lock)
{
    return kz::ThMutexCount(lock) == 1;
}

bool IsAwaited(void* /*event*/)
{
    return true;
}

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
    template <typename Condition>
    static void MakeUnless(Condition fails)
    {
        Handle made = nullptr;
        const KzErr err = Kind::Create(&made);
        EXPECT_EQ(err, fails() ? kzErrMemoryFull : kzErrNone);
        EXPECT_EQ(made == nullptr, fails());
        made == nullptr ? void() : Kind::Destroy(made);
    }

    static void HandOver(int rounds, bool anew);
};

using Kinds = testing::Types<Event, TimedEvent, Lock>;
TYPED_TEST_SUITE(WaitsTest, Kinds);

TYPED_TEST(WaitsTest, EachAllocationAndSystemCallMayFail)
{
    EXPECT_EQ(TypeParam::Create(nullptr), kzErrArgument);
    kztest::FaultLoop([](auto failed) { TestFixture::MakeUnless(failed); });
    for (const int isRealTime : {0, 1}) {
        TestFixture::Host().isRealTimeTarget = isRealTime;
        const int calls = isRealTime ? 5 : 4;
        const long news = kztest::LiveNewCount();
        tInheriting = 0;
        for (int n = 1; n <= calls + 1; ++n) {
            const kztest::LiveCounts before = kztest::CountLive();
            tCallsLeft = n;
            TestFixture::MakeUnless([&] { return n <= calls; });
            EXPECT_EQ(std::exchange(tCallsLeft, 0), n > calls ? 1 : 0) << "calls of the system";
            const bool tells = std::is_same_v<TypeParam, TimedEvent> && n <= calls;
            const char* const text = n <= calls - 2 ? "Bad mutex init" : "Bad condition variable init";
            EXPECT_EQ(this->reports.TakeRows(), kztest::ReportRows(tells ? 1 : 0, {kDbgFatal, text}));
            EXPECT_EQ(kztest::CountLive(), before);
        }
        EXPECT_EQ(tInheriting, isRealTime ? calls : 0) << "all but the first try come so far";
        // Not in the first round, whose reports may be the first of the process: these make what all later ones use.
        EXPECT_TRUE(!isRealTime || kztest::LiveNewCount() == news);
    }
}

TYPED_TEST(WaitsTest, MadeBeforeTheHostIsSetItWorksWithAReport)
{
    IKZApp* const host = KZApp();
    KZAppInterfaceSet(nullptr);
    tInheriting = 0;
    const auto made = TestFixture::Make();
    EXPECT_EQ(tInheriting, 1) << "the target may be a real-time one";
    const char* const text = "mutex created before kzcore is initialized, move caller to after KZApp is ready\n";
    EXPECT_EQ(this->reports.TakeRows(), (kztest::ReportRows{{kDbgWarning, text}}));
    TypeParam::Complete(made);
    TypeParam::Wait(made);
    TypeParam::Destroy(made);
    KZAppInterfaceSet(host);
}

// A thread that is cancelled in a wait leaves no trace on the event; one that waits for a lock ends when it has it.
TYPED_TEST(WaitsTest, CancelledWaitsLeaveNoTrace)
{
    constexpr bool kIsLock = std::is_same_v<TypeParam, Lock>;
    const auto thing = TestFixture::Make();
    for (const auto wait : TypeParam::kWaits) {
        std::atomic<bool> begins{false};
        std::atomic<bool> passes{false};
        std::thread waiter([&] {
            begins = true;
            wait(thing);
            for (passes = true;;) {
                pthread_testcancel();
            }
        });
        kztest::Await([&] { return begins && IsAwaited(thing); });
        pthread_cancel(waiter.native_handle());
        kztest::Dawdle(100000);
        kIsLock ? TypeParam::Complete(thing) : 0;
        waiter.join();
        EXPECT_EQ(passes, kIsLock);
        EXPECT_EQ(TypeParam::Complete(thing), 0) << "nobody waits";
        TypeParam::Wait(thing);
    }
    TypeParam::Destroy(thing);
}

// Both threads set off at the same moment, round after round, so that a thing is often completed between the waiter's
// look at it and its sleep. A wake-up that is lost runs into the wait's limit. Who waited for a thing of its own
// destroys it at once, while the other thread may still be on its way out of the call; a touch after that is one of
// freed memory, which the sanitizers see.
template <typename Kind>
void WaitsTest<Kind>::HandOver(int rounds, bool anew)
{
    Handle thing = nullptr;
    std::jthread([&thing] { thing = Make(); }).join();  // a lock that threads hand over has no order
    std::atomic<Handle> next{nullptr};
    int handedOver = 0;  // ordered by the thing alone
    std::jthread waiter([&] {
        for (int round = 1; round <= rounds; ++round) {
            Handle own = nullptr;
            kztest::Await([&] { return (own = next) != nullptr; });
            kztest::Dawdle(round % 7);
            Kind::Wait(own);
            EXPECT_EQ(handedOver, round);
            anew ? Kind::Destroy(own) : void();
            next = nullptr;
        }
    });
    for (int round = 1; round <= rounds; ++round) {
        const Handle own = anew ? Make() : thing;
        next = own;
        kztest::Dawdle(round % 11 * (round % 5 == 0 ? 100 : 1));  // now and then the waiter is asleep by then
        handedOver = round;
        Kind::Complete(own);
        kztest::Await([&] { return next == nullptr; });
    }
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
        TestFixture::HandOver(rounds, false);
        TestFixture::HandOver(rounds, true);
        kztest::Race(4, [&](int) { TestFixture::HandOver(rounds / 4, true); });  // eight threads
    }
    kz::AllowSpins(true);
}

// An address of whatever a call wants.
struct Block {
    template <typename Record>
    operator Record*() const
    {
        return static_cast<Record*>(at);
    }
    void* at;
};

// A wait for two events whose first one is sound. No second one is no fault.
int32 WaitWithSecond(Block second)
{
    ThEvent event = nullptr;
    EXPECT_EQ(ThEventCreate(&event, nullptr, 0), 0);
    const int32 result = ThEventMsgWaitMultiple(event, second, 0, 0);
    ThEventDestroy(event);
    return second.at == nullptr ? 1 - result : result;
}

// What each call says to a block that is not of its kind, and which report it makes. Null has the same result, and no
// report but those of the last column, at level 3.
const struct {
    const char* name;
    int32 (*call)(Block block);
    int32 result;
    int level;
    const char* text;
    const char* nullText;
} kRefusals[] = {
    {"signal", [](Block b) { return ThEventSignal(b); }, 0, kDbgFatal, "Bad verifier in event.", ""},
    {"reset", [](Block b) { return ThEventReset(b); }, 0, kDbgFatal, "", ""},
    {"wait", [](Block b) { return int32{ThEventWait(b)}; }, kzErrArgument, kDbgFatal, "", ""},
    {"pump", [](Block b) { return int32{ThEventWaitAndPump(b, nullptr, 0, 0)}; }, kzErrArgument, kDbgFatal, "", ""},
    {"message", [](Block b) { return ThEventMsgWaitMultiple(b, nullptr, 0, 0); }, 1, kDbgFatal, "", ""},
    {"second", &WaitWithSecond, 1, kDbgFatal, "", ""},
    {"destroy", [](Block b) { return ThEventDestroy(b), 0; }, 0, kDbgFatal, "", "Bad ThEvent in ThEventDestroy()"},
    {"change", [](Block b) { return ThTmoEventChangeTmo(b, 1), 0; }, 0, kDbgFatal, "", ""},
    {"wait for a time", [](Block b) { return ThTmoEventWait(b), 0; }, 0, kDbgFatal, "", ""},
    {"get", [](Block b) { return static_cast<int32>(ThTmoEventGetTmo(b)); }, 0, kDbgFatal, "", ""},
    {"destroy timed", [](Block b) { return ThTmoEventDestroy(b), 0; }, 0, kDbgFatal, "",
     "Bad ThTmoEvent in ThTmoEventDestroy()"},
    {"destroy lock", [](Block b) { return ThMutexDestroy(b), 0; }, 0, kDbgError, "bad mutex verifier in ThMutexDestroy",
     ""},
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
            EXPECT_EQ(row.call({const_cast<unsigned char*>(block)}), row.result) << row.name;
            const int level = block == nullptr ? kDbgError : row.level;
            const char* const text = block == nullptr ? row.nullText : row.text;
            const std::size_t count = block == nullptr && *text == '\0' ? 0 : 1;
            EXPECT_EQ(reports.TakeRows(), kztest::ReportRows(count, {level, text})) << row.name;
        }
    }
}

}  // namespace
