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
#include "LockOrder.h"

#ifndef NDEBUG

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>

#include "Report.h"
#include "StackChain.h"
#include "StackDecoder.h"

namespace {

constexpr char kModule[] = "source/LockOrder";

constexpr int kMaxHeld = 16;
constexpr int kMaxOrders = 2048;
constexpr uInt64 kMaxLocks = 16384;

// The locks that exist. A lock has a number that no other lock has before or after it, and a place here that follows
// from the number. The place holds the number and, above it, how often the lock was given back by another thread than
// its taker; 0 if it is free. So who notes that word while he holds the lock sees later whether he does still. Relaxed:
// who has to know of a change got the lock from who made it.
constexpr int kNumberBits = 40;
constexpr uInt64 kOneHandOver = uInt64{1} << kNumberBits;
constinit std::atomic<uInt64> gLocks[kMaxLocks] = {};
constinit uInt64 gNumLocks = 0;
constinit uInt64 gLastNumber = 0;

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

// Chains and what was held stand apart, so that a search touches little memory.
constinit std::mutex gOrdersLock;  // changes all that is above and all that follows
constinit Order gOrders[kMaxOrders] = {};
constinit LockSet gHolding[kMaxOrders] = {};  // numbers, sorted; `held` is among them
constinit int gNumOrders = 0;
StackChainFS<16>* const gChains = new StackChainFS<16>[kMaxOrders];  // never freed: locks are taken to the last

// Relaxed: a switch that orders nothing.
constinit std::atomic<bool> gStopped{false};

struct ThreadLocks {
    LockSet held;    // the words of their places, when they were taken
    bool reporting;  // a report may take locks itself
};
constinit thread_local ThreadLocks tThread = {};

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

template <typename Predicate>
void RemoveOrders(Predicate isNeedless)
{
    int kept = 0;
    for (int i = 0; i < gNumOrders; ++i) {
        if (!isNeedless(i)) {
            if (kept != i) {
                gOrders[kept] = gOrders[i];
                gHolding[kept] = gHolding[i];
                gChains[kept] = gChains[i];
            }
            ++kept;
        }
    }
    gNumOrders = kept;
}

// Searches for orders that lead from a lock to another and can be under way at once. One at a time.
class WaySearch {
public:
    // The first order of a way from `order.taken` to `order.held` whose orders have no lock in common with each other
    // or with `holding`, or -1.
    int Find(const Order& order, const LockSet& holding)
    {
        MarkOrdersTowards(order.held);
        mWay[0] = &holding;
        return Extend(order.taken, order.held, 1);
    }

private:
    // Reaches every way of a graph that a program of some thousands of locks has. One that is not reached is not
    // reported.
    static constexpr int kMaxSteps = 4096;
    static constexpr int kMaxLength = 16;

    void MarkOrdersTowards(uInt64 to)
    {
        std::fill_n(mLeadsThere, gNumOrders, false);
        int queued = 0;
        const auto queueTowards = [&](uInt64 lock) {
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

    bool CanFollow(int order, int length) const
    {
        return std::none_of(mWay, mWay + length,
                            [order](const LockSet* before) { return HaveLockInCommon(*before, gHolding[order]); });
    }

    int Extend(uInt64 from, uInt64 to, int length)
    {
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

void Report(const Order& order, StackChain& now, StackChain& before)
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

void ForgetOrders(uInt64 lock)
{
    RemoveOrders([lock](int i) {
        const LockSet& held = gHolding[i];
        return gOrders[i].taken == lock || std::find(held.begin(), held.end(), lock) != held.end();
    });
}

// A thread gives back a lock that it has not taken.
void HandOver(uInt64 lock)
{
    std::lock_guard<std::mutex> guard(gOrdersLock);
    PlaceOf(lock).fetch_add(kOneHandOver, std::memory_order_relaxed);
    ForgetOrders(lock);
}

// Whether this order was learned, with no more locks held than these.
bool IsKnown(const Order& order, const LockSet& holding)
{
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held == order.held && gOrders[i].taken == order.taken && AreAmong(gHolding[i], holding)) {
            return true;
        }
    }
    return false;
}

// Learns that a lock is taken under one of those that are held.
void Learn(const Order& order, const LockSet& holding)
{
    StackChainFS<16> now;
    StackChainFS<16> before;
    {
        std::lock_guard<std::mutex> lock(gOrdersLock);
        if (gChains == nullptr || !HasOrder(order.held) || !HasOrder(order.taken) || IsKnown(order, holding)) {
            return;
        }
        RemoveOrders([&](int i) {
            return gOrders[i].held == order.held && gOrders[i].taken == order.taken && AreAmong(holding, gHolding[i]);
        });
        if (gNumOrders == kMaxOrders) {
            return;
        }
        now.Record(3);
        const int contradiction = WaySearch().Find(order, holding);
        gOrders[gNumOrders] = order;
        gHolding[gNumOrders] = holding;
        gChains[gNumOrders++] = now;
        if (contradiction < 0) {
            return;
        }
        before = gChains[contradiction];
    }
    Report(order, now, before);
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

// A number for a new lock; 0, and the end of all recording, if there are too many.
uInt64 NumberNewLock()
{
    std::lock_guard<std::mutex> guard(gOrdersLock);
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

// Drops what the thread does not hold any more: another thread has given it back.
void DropHandedOver(LockSet* held)
{
    const uInt64* const kept = std::remove_if(held->locks, held->locks + held->count,
                                              [](uInt64 word) { return WordOf(NumberOf(word)) != word; });
    held->count = static_cast<int>(kept - held->locks);
}

LockSet NumbersOf(const LockSet& held)
{
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
    std::lock_guard<std::mutex> guard(gOrdersLock);
    ForgetOrders(mNumber);
    PlaceOf(mNumber).store(0, std::memory_order_relaxed);
    --gNumLocks;
}

void LockOrder::Take()
{
    ThreadLocks& thread = tThread;
    if (IsOff(thread)) {
        return;
    }
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

void LockOrder::Taken()
{
    ThreadLocks& thread = tThread;
    if (IsOff(thread)) {
        return;
    }
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
    LockSet& held = thread.held;
    uInt64* const end = held.locks + held.count;
    if (std::remove(held.locks, end, WordOf(mNumber)) == end) {
        HandOver(mNumber);
    } else {
        --held.count;
    }
}

}  // namespace kz

#endif
