// The orders are the edges of a graph: from a lock that is held to one that its holder takes. A cycle in it is what is
// reported. A graph is searched only when it gets a new edge, so a program that has run for a while pays for a look-up.
#include "LockOrder.h"

#ifndef NDEBUG

#include <algorithm>
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
    const void* held;
    const void* taken;
};

// Chains stand apart, so that a search touches little memory.
constinit std::mutex gOrdersLock;
constinit Order gOrders[kMaxOrders] = {};
constinit int gNumOrders = 0;
StackChainFS<16>* const gChains = new StackChainFS<16>[kMaxOrders];  // never freed: locks are taken to the last

struct HeldLocks {
    const void* locks[kMaxHeld];
    int count;
    bool reporting;  // a report may take locks itself
};
constinit thread_local HeldLocks tHeld = {};

int FindOrder(const void* held, const void* taken)
{
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held == held && gOrders[i].taken == taken) {
            return i;
        }
    }
    return -1;
}

// The first order on a way from `from` to `to`, or -1.
int FindWay(const void* from, const void* to)
{
    bool seen[kMaxOrders] = {};
    int first[kMaxOrders];
    int queue[kMaxOrders];
    int queued = 0;
    const auto follow = [&](const void* lock, int origin) {
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
    KZ_REPORT(kDbgError, 0x5EA2C917) << "Locks are taken in contradicting orders: " << DbgFmtPtr(order.taken)
                                     << " under " << DbgFmtPtr(order.held) << ", and the other way round";
    tHeld.reporting = false;
}

// Learns that `taken` is taken under `held`.
void Learn(const void* held, const void* taken)
{
    StackChainFS<16> now;
    StackChainFS<16> before;
    {
        std::lock_guard<std::mutex> lock(gOrdersLock);
        if (gChains == nullptr || FindOrder(held, taken) >= 0 || gNumOrders == kMaxOrders) {
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

void LockOrderTake(const void* lock)
{
    HeldLocks& held = tHeld;
    if (held.reporting) {
        return;
    }
    for (int i = 0; i < held.count; ++i) {
        if (held.locks[i] != lock) {
            Learn(held.locks[i], lock);
        }
    }
    if (held.count < kMaxHeld) {
        held.locks[held.count++] = lock;
    }
}

void LockOrderRelease(const void* lock)
{
    HeldLocks& held = tHeld;
    if (held.reporting) {
        return;
    }
    for (int i = held.count; i-- > 0;) {
        if (held.locks[i] == lock) {
            std::copy(held.locks + i + 1, held.locks + held.count, held.locks + i);
            --held.count;
            return;
        }
    }
}

void LockOrderForget(const void* lock)
{
    std::lock_guard<std::mutex> guard(gOrdersLock);
    int kept = 0;
    for (int i = 0; i < gNumOrders; ++i) {
        if (gOrders[i].held != lock && gOrders[i].taken != lock) {
            gOrders[kept] = gOrders[i];
            gChains[kept++] = gChains[i];
        }
    }
    gNumOrders = kept;
}

}  // namespace kz

#endif
