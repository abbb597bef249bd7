// The walker of a jar counts what it finds in two ways that share nothing: slot by slot through the tree, and along the
// free chain. A jar in which both agree, with each other and with the jar's count, has lost no slot and has none twice.
#include "CookieWalk.h"

#include "KzAssert.h"
#include "MagicCookieJar.h"
#include "ScopedLock.h"

namespace kz {

namespace {

struct SlotCounts {
    uInt32 slots = 0;
    uInt32 live = 0;
};

// What is wrong with one slot, or null. A chain through damaged links could lead out of the tree, so each slot is
// judged before the chain is followed.
const char* SlotFault(const MagicCookieJarRec* jar, unsigned char* record)
{
    CookieSlotState* const state = jar->tree->State(record);
    const bool inUse = state->link == -1;
    if (inUse != (state->salt != 0) || state->salt > kCookieSaltMask || state->link < -1) {
        return "a slot is neither free nor in use";
    }
    // A cookie whose last right was given back has none for a moment.
    const int32 rights = RefCountOf(state).load(std::memory_order_relaxed);
    if (jar->refCounting == 0 || !inUse ? rights != 0 : rights < 0) {
        return "a slot's reference count is wrong";
    }
    return nullptr;
}

// What is wrong with the free chain, or null. The chain may be no longer than there are slots, because one that bites
// its tail would never end.
const char* FreeChainFaultLocked(const MagicCookieJarRec* jar, const SlotCounts& found) KZ_REQUIRES(jar->jarRights)
{
    KZ_ASSERT(found.live <= found.slots);
    uInt32 next = jar->freeIndex;
    uInt32 freeSlots = 0;
    for (; next < found.slots && freeSlots <= found.slots; ++freeSlots) {
        const int32 link = jar->tree->State(jar->tree->Find(next))->link;
        if (link < 0) {
            return "the free chain holds a slot in use";
        }
        next = static_cast<uInt32>(link);
    }
    if (next != found.slots || freeSlots + found.live != found.slots) {
        return "the free chain does not hold just the free slots";
    }
    return nullptr;
}

}  // namespace

// The walk goes on by the index, because the cookie may be gone and its slot in use again.
uInt32 NextCookie(MagicCookieJarRec** jar, uInt32 cookie)
{
    uInt32 next = 0;
    if (jar != nullptr) {
        const ScopedLock lock((*jar)->jarRights);
        const uInt32 from = cookie == 0 ? 0 : (cookie & kCookieIndexMask) + 1;
        ForEachCookieLocked(*jar, from, [&](uInt32 found, const unsigned char*) {
            next = found;
            return false;
        });
    }
    return next;
}

const char* CookieJarFault(MagicCookieJarRec** jar)
{
    KZ_ASSERT(jar != nullptr);
    const MagicCookieJarRec* const rec = *jar;
    const ScopedLock lock(rec->jarRights);
    SlotCounts found;
    const char* fault = nullptr;
    rec->tree->ForEachSlot(0, [&](uInt32 /*index*/, unsigned char* record) {
        fault = SlotFault(rec, record);
        found.live += rec->tree->State(record)->link == -1;
        ++found.slots;
        return fault == nullptr;
    });
    if (fault == nullptr) {
        fault = FreeChainFaultLocked(rec, found);
    }
    if (fault == nullptr && found.live != rec->cookieCount) {
        fault = "the count of cookies is wrong";
    }
    return fault;
}

}  // namespace kz
