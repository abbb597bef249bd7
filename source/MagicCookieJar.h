// The inside of a jar: its record, the look-up of a cookie in it, and the changes of its slots.
//
// A slot is in one of two states. In use: its link is -1, and its salt is the high 12 bits of its cookie. Free: its
// salt is 0, and its link is the next index of the free chain, which starts at the jar's freeIndex and ends at the
// first index that has no slot yet. NewCookieLocked alone moves a slot from free to in use, FreeSlotLocked alone back.
//
// Look-ups take no lock. Each change is ordered so that they can trust the salt: a new record's info is stored before
// its salt, and an old record's salt is cleared before its info. A reader of 8 bytes of info therefore knows, when the
// salt is still the cookie's after the read, that the bytes were the cookie's. A salt that comes back could deceive it,
// but a jar runs through 4,095 others first.
//
// Locks: the count rights of a slot, then the jar rights. In a jar with reference counts a cookie ends with both held,
// so whoever holds the count rights of a cookie that is alive keeps it alive.
#ifndef KZCORE_MAGICCOOKIEJAR_H
#define KZCORE_MAGICCOOKIEJAR_H

#include <atomic>
#include <cstddef>
#include <iterator>

#include "KZTypes.h"
#include "KzAssert.h"
#include "PouchTree.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

// Lives in a handle; a handle's data is aligned to 8 because its size is a multiple of 8. Fields without a lock are set
// while the jar is made and constant until it ends.
struct MagicCookieJarRec {
    ThMutex jarRights;
    uInt32 nextSalt KZ_GUARDED_BY(jarRights);  // never 0, which is the salt of a free slot
    uInt32 verifier;                           // VerifierOf the jar's handle while the jar lives
    kz::PouchTree* tree;                       // owned; grows under jarRights
    uInt32 infoSize;                           // bytes
    uInt32 recordSize;                         // bytes of a slot: info, padding and CookieSlotState
    uInt32 freeIndex KZ_GUARDED_BY(jarRights);
    uInt32 cookieCount KZ_GUARDED_BY(jarRights);
    int32 refCounting;       // 0: reference counts are not kept
    ThMutex countRights[8];  // by the low bits of a cookie, of the reference counts; null where none are kept
};
static_assert(sizeof(MagicCookieJarRec) == 112);
static_assert(std::atomic_ref<uInt32>::is_always_lock_free && std::atomic_ref<uInt64>::is_always_lock_free);
static_assert(std::atomic_ref<uInt64>::required_alignment <= 8);

namespace kz {

constexpr uInt32 kCookieIndexMask = PouchTree::kMaxSlots - 1;
constexpr uInt32 kCookieSaltMask = 0xFFF;
constexpr uInt32 kFirstCookie = 0x100000;  // because a salt is never 0
constexpr uInt32 kAtomicInfoSize = sizeof(uInt64);
static_assert(kFirstCookie == 1u << PouchTree::kIndexBits);

inline std::atomic_ref<uInt32> SaltOf(CookieSlotState* state)
{
    return std::atomic_ref<uInt32>(state->salt);
}

inline std::atomic_ref<int32> LinkOf(CookieSlotState* state)
{
    return std::atomic_ref<int32>(state->link);
}

inline std::atomic_ref<uInt64> AtomicInfo(unsigned char* record)
{
    return std::atomic_ref<uInt64>(*reinterpret_cast<uInt64*>(record));
}

// Changed under the count rights of the slot, or before the slot has a salt.
inline std::atomic_ref<int32> RefCountOf(CookieSlotState* state)
{
    return std::atomic_ref<int32>(state->refCount);
}

// The count of cookies for a reader without the lock, who looks again under it; so relaxed is enough. The analysis is
// off because only changes need the lock.
inline std::atomic_ref<uInt32> CountOf(MagicCookieJarRec* jar) KZ_NO_THREAD_CHECK
{
    return std::atomic_ref<uInt32>(jar->cookieCount);
}

inline bool HoldsCookie(CookieSlotState* state, uInt32 cookie)
{
    return SaltOf(state).load(std::memory_order_acquire) == cookie >> PouchTree::kIndexBits &&
           LinkOf(state).load(std::memory_order_relaxed) < 0;
}

// The record of a live cookie, or null. Needs no lock.
[[gnu::always_inline]] inline unsigned char* FindCookie(const MagicCookieJarRec* jar, uInt32 cookie)
{
    // A number without a salt would match a slot that is just being filled, whose link is set before its salt.
    if (cookie < kFirstCookie) {
        return nullptr;
    }
    const PouchTree& tree = *jar->tree;
    unsigned char* const record = tree.Find(cookie & kCookieIndexMask);
    return record != nullptr && HoldsCookie(tree.State(record), cookie) ? record : nullptr;
}

// Whether the record is not on its way out: in a jar with reference counts, as soon as the last one is given back.
inline bool IsUsable(const MagicCookieJarRec* jar, unsigned char* record)
{
    return jar->refCounting == 0 || RefCountOf(jar->tree->State(record)).load(std::memory_order_acquire) > 0;
}

// The record of a live cookie that may be used, or null. Needs no lock: where there are counts the slot is looked at
// again after its count, which could be that of the cookie that has the slot next.
[[gnu::always_inline]] inline unsigned char* FindUsableCookie(const MagicCookieJarRec* jar, uInt32 cookie)
{
    unsigned char* const record = FindCookie(jar, cookie);
    if (record == nullptr || jar->refCounting == 0) {
        return record;
    }
    return IsUsable(jar, record) && HoldsCookie(jar->tree->State(record), cookie) ? record : nullptr;
}

// The lock of a slot's reference count, the same for all cookies that the slot ever has; null without counts.
inline ThMutex CountRightsOf(const MagicCookieJarRec* jar, uInt32 cookie)
{
    return jar->countRights[cookie % std::size(jar->countRights)];
}

// The jar that a handle with this data is, or null for any other handle and for a jar that has ended. Reads no more
// than the handle holds.
MagicCookieJarRec* LivingJar(const void* handle, unsigned char* data);

// Whether a number is a living jar, asked without a report; guard bytes are left to the calls on a jar. Any thread.
bool IsLivingJar(const void* handle);

// A new jar, or null when out of memory or before the memory service runs. Any thread.
MagicCookieJarRec** NewJar(uInt32 infoSize, bool refCounting);

// Ends all of a jar but its handle, which is no jar from here on. No other thread uses it.
void TearDownJar(MagicCookieJarRec* jar);

// Gives a free slot's cookie; 0 when the jar is full, or when memory is out and `*missing` bytes could not be had.
uInt32 NewCookieLocked(MagicCookieJarRec* jar, const void* info, unsigned long* missing) KZ_REQUIRES(jar->jarRights);

// Ends a cookie and copies its record to `infoOut` unless that is null. kzErrArgument: no such cookie.
KzErr EndCookie(MagicCookieJarRec* jar, uInt32 cookie, void* infoOut) KZ_REQUIRES(CountRightsOf(jar, cookie));

// Copies `info`, or zeros for null, into a record. Info of 8 bytes is stored at once, for the readers without the lock.
void StoreInfo(const MagicCookieJarRec* jar, unsigned char* record, const void* info) KZ_REQUIRES(jar->jarRights);

// Copies a record's info to `infoOut` unless that is null.
void CopyInfo(const MagicCookieJarRec* jar, const unsigned char* record, void* infoOut) KZ_REQUIRES(jar->jarRights);

// Calls `visit(cookie, record)` for each live cookie from index `from` up until it returns false.
template <typename Visit>
void ForEachCookieLocked(const MagicCookieJarRec* jar, uInt32 from, Visit visit) KZ_REQUIRES(jar->jarRights)
{
    KZ_ASSERT(from <= PouchTree::kMaxSlots);
    const PouchTree& tree = *jar->tree;
    tree.ForEachSlot(from, [&](uInt32 index, unsigned char* record) {
        CookieSlotState* const state = tree.State(record);
        const uInt32 salt = SaltOf(state).load(std::memory_order_relaxed);
        return LinkOf(state).load(std::memory_order_relaxed) >= 0 ||
               visit(salt << PouchTree::kIndexBits | index, record);
    });
}

}  // namespace kz

#endif
