// The orders are the edges of a graph: from a lock that is held to one that its holder takes. A cycle in it is what is
// reported. A graph is searched only when it gets a new edge, so a program that has run for a while pays for a look-up.
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

struct Order {
    uInt64 held;
    uInt64 taken;
};

// Chains stand apart, so that a search touches little memory.
constinit std::mutex gOrdersLock;
constinit Order gOrders[kMaxOrders] = {};
constinit int gNumOrders = 0;
StackChainFS<16>* const gChains = new StackChainFS<16>[kMaxOrders];  // never freed: locks are taken to the last

// Locks that went from one thread to another, which the first may still have among those it holds. Relaxed: the number
// says only whether a look is worth it.
constexpr int kMaxHandedOver = 64;
constinit uInt64 gHandedOver[kMaxHandedOver] = {};
constinit std::atomic<int> gNumHandedOver{0};

constinit std::atomic<uInt64> gLastId{0};

struct HeldLocks {
    uInt64 locks[kMaxHeld];
    int count;
    int untold;      // more that are held
    bool reporting;  // a report may take locks itself
};
constinit thread_local HeldLocks tHeld = {};

int FindOrder(uInt64 held, uInt64 taken)
{
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held == held && gOrders[i].taken == taken) {
            return i;
        }
    }
    return -1;
}

// The first order on a way from `from` to `to`, or -1.
int FindWay(uInt64 from, uInt64 to)
{
    bool seen[kMaxOrders] = {};
    int first[kMaxOrders];
    int queue[kMaxOrders];
    int queued = 0;
    const auto follow = [&](uInt64 lock, int origin) {
        for (int i = 0; i < gNumOrders; ++i) {
            if (gOrders[i].held == lock && !seen[i]) {
                seen[i] = true;
                first[i] = origin < 0 ? i : origin;
                queue[queued++] = i;
            }
        }
    };
    follow(from, -1);
    for (int next = 0; next < queued; ++next) {
        const int order = queue[next];
        if (gOrders[order].taken == to) {
            return first[order];
        }
        follow(gOrders[order].taken, first[order]);
    }
    return -1;
}

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
    tHeld.reporting = true;
    try {
        LogChain("this order: ", now);
        LogChain("the other order: ", before);
    } catch (const std::bad_alloc&) {
        // The report without its chains is worth more than none.
    }
    KZ_REPORT(kDbgError, 0x5EA2C917) << "Locks are taken in contradicting orders: " << order.taken << " under "
                                     << order.held << ", and the other way round";
    tHeld.reporting = false;
}

bool IsHandedOver(uInt64 lock)
{
    const int count = gNumHandedOver.load(std::memory_order_relaxed);
    return std::find(gHandedOver, gHandedOver + count, lock) != gHandedOver + count;
}

void ForgetOrders(uInt64 lock)
{
    int kept = 0;
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held != lock && gOrders[i].taken != lock) {
            gOrders[kept] = gOrders[i];
            gChains[kept++] = gChains[i];
        }
    }
    gNumOrders = kept;
}

void HandOver(uInt64 lock)
{
    std::lock_guard<std::mutex> guard(gOrdersLock);
    const int count = gNumHandedOver.load(std::memory_order_relaxed);
    if (!IsHandedOver(lock) && count < kMaxHandedOver) {
        ForgetOrders(lock);
        gHandedOver[count] = lock;
        gNumHandedOver.store(count + 1, std::memory_order_relaxed);
    }
}

// Drops the locks that another thread has given back.
void DropHandedOver(HeldLocks* held)
{
    if (gNumHandedOver.load(std::memory_order_relaxed) != 0) {
        std::lock_guard<std::mutex> guard(gOrdersLock);
        held->count =
            static_cast<int>(std::remove_if(held->locks, held->locks + held->count, &IsHandedOver) - held->locks);
    }
}

// The thread takes a lock that it holds.
void ReportSecondTake(uInt64 lock)
{
    tHeld.reporting = true;
    KZ_REPORT(kDbgError, 0x94B7D16E) << "Lock " << lock
                                     << " is taken by the thread that holds it, which will wait for ever";
    tHeld.reporting = false;
}

// Learns that `taken` is taken under `held`.
void Learn(uInt64 held, uInt64 taken)
{
    StackChainFS<16> now;
    StackChainFS<16> before;
    {
        std::lock_guard<std::mutex> lock(gOrdersLock);
        if (gChains == nullptr || FindOrder(held, taken) >= 0 || gNumOrders == kMaxOrders || IsHandedOver(held) ||
            IsHandedOver(taken)) {
            return;
        }
        now.Record(3);
        const int contradiction = FindWay(taken, held);
        gChains[gNumOrders] = now;
        gOrders[gNumOrders++] = {held, taken};
        if (contradiction < 0) {
            return;
        }
        before = gChains[contradiction];
    }
    Report({held, taken}, now, before);
}

}  // namespace

namespace kz {

LockOrder::LockOrder() : mId(gLastId.fetch_add(1, std::memory_order_relaxed) + 1) {}

LockOrder::~LockOrder()
{
    std::lock_guard<std::mutex> guard(gOrdersLock);
    ForgetOrders(mId);
    const int count = gNumHandedOver.load(std::memory_order_relaxed);
    uInt64* const end = std::remove(gHandedOver, gHandedOver + count, mId);
    gNumHandedOver.store(static_cast<int>(end - gHandedOver), std::memory_order_relaxed);
}

void LockOrder::Take()
{
    HeldLocks& held = tHeld;
    if (held.reporting) {
        return;
    }
    DropHandedOver(&held);
    for (int i = 0; i < held.count; ++i) {
        if (held.locks[i] == mId) {
            ReportSecondTake(mId);
        } else {
            Learn(held.locks[i], mId);
        }
    }
    if (held.count < kMaxHeld) {
        held.locks[held.count++] = mId;
    } else {
        ++held.untold;
    }
}

void LockOrder::Release()
{
    HeldLocks& held = tHeld;
    if (held.reporting) {
        return;
    }
    for (int i = held.count; i-- > 0;) {
        if (held.locks[i] == mId) {
            std::copy(held.locks + i + 1, held.locks + held.count, held.locks + i);
            --held.count;
            return;
        }
    }
    if (held.untold > 0) {
        --held.untold;
    } else {
        HandOver(mId);
    }
}

}  // namespace kz

#endif
