// The orders are the edges of a graph: from a lock that is held to one that its holder takes. Threads can wait for each
// other in a circle if the graph has a cycle whose orders can all be under way at once, each in a thread of its own.
// They can't if two of them have a lock in common that is held meanwhile, a gate, since only one thread holds it at a
// time. So each order is learned with all the locks that were held, and the search for a cycle goes only by orders that
// have none of these in common. One pair of locks makes several orders if it is taken under different gates; one whose
// locks are all held in another one of the same pair makes that other one needless.
//
// The graph is searched only when it gets a new order, so a program that has run for a while pays for a look-up.
//
// No error is a guess: when the recorder can't know what a thread holds, because the thread holds too many locks or
// there are too many at all, it stops for good. With too many orders it learns no new ones, which hides cycles but
// makes none. A lock that was once given back by another thread than its taker has no order, but it can still be a
// gate. Until then nobody can know of a second take by the holder whether some thread will let it in, so that is a
// warning.
//
// What a thread holds lies in thread-local storage, which only that thread touches; everything that threads share is
// changed under gOrdersLock. A lock is known by its number, never by its address, because a new lock at an old address
// would inherit the old one's orders.
#include "LockOrder.h"

#ifndef NDEBUG

#include <algorithm>
#include <array>
#include <atomic>
#include <new>

#include "KzAssert.h"
#include "NeverDestroyed.h"
#include "PthreadScopes.h"
#include "Report.h"
#include "StackChain.h"
#include "StackDecoder.h"

namespace {

constexpr char kModule[] = "source/LockOrder";

constexpr int kMaxHeld = 16;
constexpr int kMaxOrders = 2048;
constexpr uInt64 kMaxLocks = 16384;

// Not a ThMutex, because taking one leads here.
constinit kz::PthreadMutex gOrdersLock;

// The locks that exist. A lock has a number that no other lock has before or after it, and a place here that follows
// from the number. The place holds the number and, above it, how often the lock was given back by another thread than
// its taker; 0 if the place is free. So a thread that notes the word while it holds the lock sees later whether it
// still does. Places are changed under gOrdersLock and read without it; relaxed is enough, because a thread that has to
// know of a change got the lock from the thread that made it.
constexpr int kNumberBits = 40;
constexpr uInt64 kOneHandOver = uInt64{1} << kNumberBits;
constinit std::atomic<uInt64> gLocks[kMaxLocks] = {};
constinit uInt64 gNumLocks KZ_GUARDED_BY(gOrdersLock) = 0;
constinit uInt64 gLastNumber KZ_GUARDED_BY(gOrdersLock) = 0;

struct LockSet {
    uInt64 locks[kMaxHeld];
    int count;

    const uInt64* begin() const { return locks; }
    const uInt64* end() const { return locks + count; }
};

struct Order {
    uInt64 held;
    uInt64 taken;
};

// The orders, each under one index in three arrays: chains and what was held stand apart, because a search that has to
// touch only the pairs is faster. No order stands for a lock that was handed over or destroyed.
constinit Order gOrders[kMaxOrders] KZ_GUARDED_BY(gOrdersLock) = {};
constinit LockSet gHolding[kMaxOrders] KZ_GUARDED_BY(gOrdersLock) = {};  // numbers, sorted; `held` is among them
constinit int gNumOrders KZ_GUARDED_BY(gOrdersLock) = 0;

// Relaxed: a switch that orders nothing. It is never turned back.
constinit std::atomic<bool> gStopped{false};

struct ThreadLocks {
    LockSet held;    // the words of their places, when they were taken
    bool reporting;  // a report may take locks itself
};
constinit thread_local ThreadLocks tThread = {};

// The chain of each order. Never destroyed, because locks are taken until the last exit handler has run.
StackChainFS<16>& ChainOf(int order) KZ_REQUIRES(gOrdersLock)
{
    static kz::NeverDestroyed<std::array<StackChainFS<16>, kMaxOrders>> chains;
    return (*chains)[static_cast<std::size_t>(order)];
}

uInt64 NumberOf(uInt64 word)
{
    return word % kOneHandOver;
}

std::atomic<uInt64>& PlaceOf(uInt64 word)
{
    return gLocks[NumberOf(word) % kMaxLocks];
}

uInt64 WordOf(uInt64 number)
{
    return PlaceOf(number).load(std::memory_order_relaxed);
}

// Whether the lock exists and was never given back by another thread than its taker.
bool HasOrder(uInt64 number)
{
    return WordOf(number) == number;
}

bool HaveLockInCommon(const LockSet& a, const LockSet& b)
{
    return std::find_first_of(a.begin(), a.end(), b.begin(), b.end()) != a.end();
}

// Whether all of `few` are among `many`; both are sorted.
bool AreAmong(const LockSet& few, const LockSet& many)
{
    return std::includes(many.begin(), many.end(), few.begin(), few.end());
}

// Removes the orders whose index the predicate accepts, and moves the others down without changing their sequence.
template <typename Predicate>
void RemoveOrders(Predicate isNeedless) KZ_REQUIRES(gOrdersLock)
{
    int kept = 0;
    for (int i = 0; i < gNumOrders; ++i) {
        if (!isNeedless(i)) {
            if (kept != i) {
                gOrders[kept] = gOrders[i];
                gHolding[kept] = gHolding[i];
                ChainOf(kept) = ChainOf(i);
            }
            ++kept;
        }
    }
    gNumOrders = kept;
}

// Searches for orders that lead from a lock to another and can be under way at once. First it marks every order from
// which the goal can be reached at all, going backwards, so that the search proper, which goes forwards and tries every
// way, does not enter parts of the graph that lead nowhere. For one search each.
class WaySearch {
public:
    // The first order of a way from `order.taken` to `order.held` whose orders have no lock in common with each other
    // or with `holding`, or -1.
    int Find(const Order& order, const LockSet& holding) KZ_REQUIRES(gOrdersLock)
    {
        KZ_ASSERT(order.held != order.taken);
        MarkOrdersTowards(order.held);
        mWay[0] = &holding;
        return Extend(order.taken, order.held, 1);
    }

private:
    // So many steps reach every way of a graph that a program of some thousands of locks has. A way that is not reached
    // is not reported; without the limit a dense graph would take time that doubles with each lock.
    static constexpr int kMaxSteps = 4096;
    static constexpr int kMaxLength = 16;

    void MarkOrdersTowards(uInt64 to) KZ_REQUIRES(gOrdersLock)
    {
        std::fill_n(mLeadsThere, gNumOrders, false);
        int queued = 0;
        const auto queueTowards = [&](uInt64 lock) KZ_REQUIRES(gOrdersLock) {
            for (int i = 0; i < gNumOrders; ++i) {
                if (gOrders[i].taken == lock && !mLeadsThere[i]) {
                    mLeadsThere[i] = true;
                    mQueue[queued++] = i;
                }
            }
        };
        queueTowards(to);
        for (int next = 0; next < queued; ++next) {
            queueTowards(gOrders[mQueue[next]].held);
        }
    }

    // Whether an order can be under way together with all orders of the way so far.
    bool CanFollow(int order, int length) const KZ_REQUIRES(gOrdersLock)
    {
        const LockSet& holding = gHolding[order];
        return std::none_of(mWay, mWay + length,
                            [&holding](const LockSet* before) { return HaveLockInCommon(*before, holding); });
    }

    // Finds an order from `from` by which a way of `length` orders can go on to `to`. A way can't run in a circle for
    // ever, because an order that it has already taken has its locks in common with itself.
    int Extend(uInt64 from, uInt64 to, int length) KZ_REQUIRES(gOrdersLock)
    {
        KZ_ASSERT(length >= 1 && length <= kMaxLength);
        if (length == kMaxLength || --mStepsLeft < 0) {
            return -1;
        }
        for (int i = 0; i < gNumOrders; ++i) {
            if (mLeadsThere[i] && gOrders[i].held == from && CanFollow(i, length)) {
                mWay[length] = &gHolding[i];
                if (gOrders[i].taken == to || Extend(gOrders[i].taken, to, length + 1) >= 0) {
                    return i;
                }
            }
        }
        return -1;
    }

    bool mLeadsThere[kMaxOrders];
    int mQueue[kMaxOrders];
    const LockSet* mWay[kMaxLength] = {};  // what is held in each order so far
    int mStepsLeft = kMaxSteps;
};

void LogChain(const char* title, StackChain& chain)
{
    MacStackDecoder decoder(chain.GetBuffer(), chain.GetCount());
    for (long i = 0; i < chain.GetCount(); ++i) {
        char name[128];
        long offset = 0;
        decoder.GetNameForAddress(chain.GetBuffer()[i], name, sizeof name, &offset);
        KZ_LOG(kDbgLog) << title << name << " + " << offset;
    }
}

// Reports with both call chains. The names of a chain's functions are looked up here, without gOrdersLock, because a
// look-up takes locks of the loader. Locks that a handler takes during the report are not looked at, because the
// report of one contradiction could find the next without end.
void ReportContradiction(const Order& order, StackChain& now, StackChain& before)
{
    tThread.reporting = true;
    try {
        LogChain("this order: ", now);
        LogChain("the other order: ", before);
    } catch (const std::bad_alloc&) {
        // The report without its chains is worth more than none.
    }
    KZ_REPORT(kDbgError, 0x5EA2C917) << "Locks are taken in contradicting orders: " << order.taken << " under "
                                     << order.held << ", and the other way round";
    tThread.reporting = false;
}

// The thread takes a lock that it holds. In a sound program another thread is yet to release it.
void ReportSecondTake(uInt64 lock)
{
    tThread.reporting = true;
    KZ_REPORT(kDbgWarning, 0x94B7D16E)
        << "Lock " << lock << " is taken by the thread that holds it, which waits until another thread releases it";
    tThread.reporting = false;
}

void ForgetOrders(uInt64 lock) KZ_REQUIRES(gOrdersLock)
{
    RemoveOrders([lock](int i) KZ_REQUIRES(gOrdersLock) {
        const LockSet& held = gHolding[i];
        return gOrders[i].taken == lock || std::find(held.begin(), held.end(), lock) != held.end();
    });
}

// A thread gives back a lock that it has not taken. The count above the number makes the word that the taker has noted
// stale, by which the taker drops the lock when it looks next.
void HandOver(uInt64 lock)
{
    const kz::PthreadLocked guard(&gOrdersLock);
    KZ_ASSERT(NumberOf(WordOf(lock)) == lock);
    PlaceOf(lock).fetch_add(kOneHandOver, std::memory_order_relaxed);
    ForgetOrders(lock);
}

// Whether this order was learned, with no more locks held than these.
bool IsKnown(const Order& order, const LockSet& holding) KZ_REQUIRES(gOrdersLock)
{
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held == order.held && gOrders[i].taken == order.taken && AreAmong(gHolding[i], holding)) {
            return true;
        }
    }
    return false;
}

// What is wrong with one order, or null.
const char* OrderFault(int i) KZ_REQUIRES(gOrdersLock)
{
    const Order& order = gOrders[i];
    const LockSet& holding = gHolding[i];
    if (order.held == order.taken || !HasOrder(order.held) || !HasOrder(order.taken)) {
        return "an order is not one between two locks that have an order";
    }
    if (holding.count > kMaxHeld || !std::is_sorted(holding.begin(), holding.end()) ||
        !std::binary_search(holding.begin(), holding.end(), order.held)) {
        return "what was held in an order is unsorted or lacks the lock of the order itself";
    }
    // A lock that was handed over can be among them all the same: it may still be a gate.
    const bool exist =
        std::all_of(holding.begin(), holding.end(), [](uInt64 number) { return NumberOf(WordOf(number)) == number; });
    return exist ? nullptr : "an order knows a lock that was destroyed";
}

// Learns that a lock is taken under one of those that are held. The graph is searched before the order is added, so a
// way that is found is one of older orders, and its first one, which contradicts, has a chain of its own.
void Learn(const Order& order, const LockSet& holding)
{
    KZ_ASSERT(std::binary_search(holding.begin(), holding.end(), order.held));
    StackChainFS<16> now;
    StackChainFS<16> before;
    {
        const kz::PthreadLocked lock(&gOrdersLock);
        if (!HasOrder(order.held) || !HasOrder(order.taken) || IsKnown(order, holding)) {
            return;
        }
        // An order that was learned with more locks held says less than this one, so it goes.
        RemoveOrders([&](int i) KZ_REQUIRES(gOrdersLock) {
            return gOrders[i].held == order.held && gOrders[i].taken == order.taken && AreAmong(holding, gHolding[i]);
        });
        if (gNumOrders == kMaxOrders) {
            return;
        }
        now.Record(3);
        const int contradiction = WaySearch().Find(order, holding);
        gOrders[gNumOrders] = order;
        gHolding[gNumOrders] = holding;
        ChainOf(gNumOrders++) = now;
        KZ_ASSERT_SLOW(OrderFault(gNumOrders - 1) == nullptr);
        if (contradiction < 0) {
            return;
        }
        before = ChainOf(contradiction);
    }
    ReportContradiction(order, now, before);
}

void Stop()
{
    gStopped.store(true, std::memory_order_relaxed);
}

// Whether what the thread holds is not to be looked at.
bool IsOff(const ThreadLocks& thread)
{
    return thread.reporting || gStopped.load(std::memory_order_relaxed);
}

// A number for a new lock; 0, and the end of all recording, if there are too many. Numbers whose place is taken by an
// older lock are passed over, and since fewer locks than places exist one is found.
uInt64 NumberNewLock()
{
    const kz::PthreadLocked guard(&gOrdersLock);
    if (gNumLocks == kMaxLocks) {
        Stop();
        return 0;
    }
    ++gNumLocks;
    do {
        ++gLastNumber;
    } while (WordOf(gLastNumber) != 0);
    PlaceOf(gLastNumber).store(gLastNumber, std::memory_order_relaxed);
    return gLastNumber;
}

// Drops what the thread does not hold any more because another thread has given it back.
void DropHandedOver(LockSet* held)
{
    const uInt64* const kept = std::remove_if(held->locks, held->locks + held->count,
                                              [](uInt64 word) { return WordOf(NumberOf(word)) != word; });
    held->count = static_cast<int>(kept - held->locks);
}

// The numbers of the locks that these words are of, sorted.
LockSet NumbersOf(const LockSet& held)
{
    KZ_ASSERT(held.count >= 0 && held.count <= kMaxHeld);
    LockSet numbers = {};
    numbers.count = held.count;
    std::transform(held.begin(), held.end(), numbers.locks, &NumberOf);
    std::sort(numbers.locks, numbers.locks + numbers.count);
    return numbers;
}

}  // namespace

namespace kz {

LockOrder::LockOrder() : mNumber(NumberNewLock()) {}

LockOrder::~LockOrder()
{
    if (mNumber == 0) {
        return;
    }
    const PthreadLocked guard(&gOrdersLock);
    KZ_ASSERT(NumberOf(WordOf(mNumber)) == mNumber && gNumLocks > 0);
    ForgetOrders(mNumber);
    PlaceOf(mNumber).store(0, std::memory_order_relaxed);
    --gNumLocks;
}

// Learns before the lock is taken, because a thread that waits for ever in a deadlock would report nothing afterwards.
void LockOrder::Take()
{
    ThreadLocks& thread = tThread;
    if (IsOff(thread)) {
        return;
    }
    KZ_ASSERT(mNumber != 0);
    DropHandedOver(&thread.held);
    const LockSet holding = NumbersOf(thread.held);
    for (const uInt64 held : holding) {
        if (held != mNumber) {
            Learn({held, mNumber}, holding);
        } else if (HasOrder(mNumber)) {
            ReportSecondTake(mNumber);
        }
    }
}

// With one lock too many the recorder stops, because a lock that it left out could be a gate, and without the gate it
// would accuse a correct program.
void LockOrder::Taken()
{
    ThreadLocks& thread = tThread;
    if (IsOff(thread)) {
        return;
    }
    KZ_ASSERT(mNumber != 0);
    DropHandedOver(&thread.held);
    if (thread.held.count == kMaxHeld) {
        Stop();
        return;
    }
    thread.held.locks[thread.held.count++] = WordOf(mNumber);
}

void LockOrder::Release()
{
    ThreadLocks& thread = tThread;
    if (IsOff(thread)) {
        return;
    }
    DropHandedOver(&thread.held);
    // A lock that is not among those that the thread holds was taken by another thread.
    LockSet& held = thread.held;
    uInt64* const end = held.locks + held.count;
    if (std::remove(held.locks, end, WordOf(mNumber)) == end) {
        HandOver(mNumber);
    } else {
        --held.count;
    }
}

const char* LockGraphFault()
{
    const PthreadLocked guard(&gOrdersLock);
    // A lock is found by its number alone, so one that stood elsewhere would be taken for a lock that does not exist.
    uInt64 locks = 0;
    for (uInt64 place = 0; place < kMaxLocks; ++place) {
        const uInt64 number = NumberOf(gLocks[place].load(std::memory_order_relaxed));
        if (number != 0 && (number % kMaxLocks != place || number > gLastNumber)) {
            return "a lock stands in a place that is not its own";
        }
        locks += number != 0;
    }
    if (locks != gNumLocks) {
        return "the count of locks is wrong";
    }
    for (int i = 0; i < gNumOrders; ++i) {
        if (const char* const fault = OrderFault(i)) {
            return fault;
        }
        // Orders that say the same twice would fill the recorder until it learns no more.
        for (int j = 0; j < gNumOrders; ++j) {
            if (i != j && gOrders[i].held == gOrders[j].held && gOrders[i].taken == gOrders[j].taken &&
                AreAmong(gHolding[i], gHolding[j])) {
                return "an order makes another one needless";
            }
        }
    }
    return nullptr;
}

}  // namespace kz

#endif
