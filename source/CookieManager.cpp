// Each change of a slot is ordered so that a reader without the lock can trust the salt: a new record's info is stored
// before its salt, and an old record's salt is cleared before its info. A reader of 8 bytes of info therefore knows,
// when the salt is still the cookie's after the read, that the bytes were the cookie's.
#include "CookieManager.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>

#include "HandleCalls.h"
#include "HiResClock.h"
#include "LiveCount.h"
#include "MemoryManager.h"
#include "MemoryZone.h"
#include "PouchTree.h"
#include "Report.h"
#include "ScopedLock.h"

using kz::CookieSlotState;
using kz::PouchTree;

namespace {

constexpr char kModule[] = "source/CookieManager";

constexpr uInt32 kIndexMask = PouchTree::kMaxSlots - 1;
constexpr uInt32 kSaltMask = 0xFFF;
constexpr uInt32 kFirstCookie = 0x100000;
constexpr uInt32 kAtomicInfoSize = sizeof(uInt64);

}  // namespace

// Lives in a handle; a handle's data is aligned to 8 because its size is a multiple of 8.
struct MagicCookieJarRec {
    ThMutex jarRights;
    uInt32 nextSalt;
    uInt32 verifier;  // VerifierOf the jar's handle while the jar lives
    PouchTree* tree;
    uInt32 infoSize;
    uInt32 recordSize;
    uInt32 freeIndex;
    uInt32 cookieCount;
    int32 refCounting;       // 0: reference counts are not kept
    ThMutex countRights[8];  // null without reference counts
};
static_assert(sizeof(MagicCookieJarRec) == 112);
static_assert(std::atomic_ref<uInt32>::is_always_lock_free && std::atomic_ref<uInt64>::is_always_lock_free);
static_assert(std::atomic_ref<uInt64>::required_alignment <= 8);

namespace {

// Tied to the handle, so that a copy of a jar's bytes is no jar.
uInt32 VerifierOf(const void* handle)
{
    return kz::FourCharCode("CJar") ^ static_cast<uInt32>(reinterpret_cast<uintptr_t>(handle) / sizeof(void*));
}

// The jar that a handle with this data is, or null for any other handle and for a jar that has ended.
MagicCookieJarRec* LivingJar(const void* handle, unsigned char* data)
{
    uInt32 verifier;
    if (kz::HandleDataSize(data) != sizeof(MagicCookieJarRec)) {
        return nullptr;
    }
    std::memcpy(&verifier, data + offsetof(MagicCookieJarRec, verifier), sizeof verifier);
    return verifier == VerifierOf(handle) ? reinterpret_cast<MagicCookieJarRec*>(data) : nullptr;
}

// Asks without a report; guard bytes are left to the calls on a jar.
bool IsLivingJar(const void* handle)
{
    unsigned char* const data = kz::FindHandleData(kz::MemZone(), handle, false);
    return data != nullptr && LivingJar(handle, data) != nullptr;
}

std::atomic_ref<uInt32> SaltOf(CookieSlotState* state)
{
    return std::atomic_ref<uInt32>(state->salt);
}

std::atomic_ref<int32> LinkOf(CookieSlotState* state)
{
    return std::atomic_ref<int32>(state->link);
}

std::atomic_ref<uInt64> AtomicInfo(unsigned char* record)
{
    return std::atomic_ref<uInt64>(*reinterpret_cast<uInt64*>(record));
}

// Changed under the count rights of the slot, or before the slot has a salt.
std::atomic_ref<int32> RefCountOf(CookieSlotState* state)
{
    return std::atomic_ref<int32>(state->refCount);
}

// Relaxed: whoever reads it without the lock looks again under it. Changed under the jar rights.
std::atomic_ref<uInt32> CountOf(MagicCookieJarRec* jar)
{
    return std::atomic_ref<uInt32>(jar->cookieCount);
}

void AddToCount(MagicCookieJarRec* jar, int32 by)
{
    const std::atomic_ref<uInt32> count = CountOf(jar);
    count.store(count.load(std::memory_order_relaxed) + static_cast<uInt32>(by), std::memory_order_relaxed);
    kz::CountLive(kz::Live::kCookies, by);
}

bool HoldsCookie(CookieSlotState* state, uInt32 cookie)
{
    return SaltOf(state).load(std::memory_order_acquire) == cookie >> PouchTree::kIndexBits &&
           LinkOf(state).load(std::memory_order_relaxed) < 0;
}

// The record of a live cookie, or null. Needs no lock.
[[gnu::always_inline]] inline unsigned char* FindCookie(const MagicCookieJarRec* jar, uInt32 cookie)
{
    if (cookie < kFirstCookie) {
        return nullptr;
    }
    const PouchTree& tree = *jar->tree;
    unsigned char* const record = tree.Find(cookie & kIndexMask);
    return record != nullptr && HoldsCookie(tree.State(record), cookie) ? record : nullptr;
}

// Whether the record is not on its way out: in a jar with reference counts, as soon as the last one is given back.
bool IsUsable(const MagicCookieJarRec* jar, unsigned char* record)
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
ThMutex CountRightsOf(const MagicCookieJarRec* jar, uInt32 cookie)
{
    return jar->countRights[cookie % std::size(jar->countRights)];
}

// The accesses to info under the jar rights. Those of 8 bytes are atomic, for the readers without the lock.
void StoreInfo(const MagicCookieJarRec* jar, unsigned char* record, const void* info)
{
    if (jar->infoSize == kAtomicInfoSize) {
        uInt64 value = 0;
        if (info != nullptr) {
            std::memcpy(&value, info, sizeof value);
        }
        AtomicInfo(record).store(value, std::memory_order_release);
    } else if (info != nullptr) {
        std::memcpy(record, info, jar->infoSize);
    } else {
        std::memset(record, 0, jar->infoSize);
    }
}

void CopyInfo(const MagicCookieJarRec* jar, const unsigned char* record, void* infoOut)
{
    if (infoOut != nullptr) {
        std::memcpy(infoOut, record, jar->infoSize);
    }
}

// Takes the address without a type, as CopyInfo does, because a typed jar's record may be less aligned than a word.
void ClearInfo(void* infoOut, std::size_t size)
{
    if (infoOut != nullptr) {
        std::memset(infoOut, 0, size);
    }
}

// Gives a free slot's cookie; 0 when the jar is full, or when memory is out and `*missing` bytes could not be had.
uInt32 NewCookieLocked(MagicCookieJarRec* jar, const void* info, unsigned long* missing)
{
    const uInt32 index = jar->freeIndex;
    if (index > kIndexMask) {
        return 0;
    }
    unsigned char* const record = jar->tree->Make(index, missing);
    if (record == nullptr) {
        return 0;
    }
    const uInt32 salt = jar->nextSalt & kSaltMask;
    jar->nextSalt = (salt + 1) & kSaltMask;
    if (jar->nextSalt == 0) {
        jar->nextSalt = 1;
    }
    CookieSlotState* const state = jar->tree->State(record);
    jar->freeIndex = static_cast<uInt32>(LinkOf(state).load(std::memory_order_relaxed));
    AddToCount(jar, 1);
    StoreInfo(jar, record, info);
    RefCountOf(state).store(jar->refCounting != 0 ? 1 : 0, std::memory_order_relaxed);
    LinkOf(state).store(-1, std::memory_order_relaxed);
    SaltOf(state).store(salt, std::memory_order_release);
    return salt << PouchTree::kIndexBits | index;
}

void FreeSlotLocked(MagicCookieJarRec* jar, unsigned char* record, uInt32 index)
{
    CookieSlotState* const state = jar->tree->State(record);
    SaltOf(state).store(0, std::memory_order_relaxed);
    RefCountOf(state).store(0, std::memory_order_relaxed);
    StoreInfo(jar, record, nullptr);
    LinkOf(state).store(static_cast<int32>(jar->freeIndex), std::memory_order_relaxed);
    jar->freeIndex = index;
    AddToCount(jar, -1);
}

// Calls `visit(cookie, record)` for each live cookie from index `from` up until it returns false. Under the jar rights.
template <typename Visit>
void ForEachCookieLocked(const MagicCookieJarRec* jar, uInt32 from, Visit visit)
{
    const PouchTree& tree = *jar->tree;
    tree.ForEachSlot(from, [&](uInt32 index, unsigned char* record) {
        CookieSlotState* const state = tree.State(record);
        const uInt32 salt = SaltOf(state).load(std::memory_order_relaxed);
        return LinkOf(state).load(std::memory_order_relaxed) >= 0 ||
               visit(salt << PouchTree::kIndexBits | index, record);
    });
}

// The bytes of a list of `count` cookies; an empty one has room for one.
unsigned long ListSize(uInt32 count)
{
    return offsetof(MagicCookieListRec, cookies) + std::max(count, 1u) * sizeof(uInt32);
}

// Makes or resizes the list variable at `list`; the list is an empty one then, until it is filled.
KzErr SizeList(MagicCookieList* list, uInt32 count)
{
    const KzErr err = DSSetHandleSizeOrNewHandle(list, ListSize(count));
    if (err == kzErrNone) {
        std::memset(**list, 0, sizeof(uInt32));
    }
    return err;
}

// Fills a list of that size with at most that many cookies; false when the jar holds fewer than its count says.
bool FillListLocked(const MagicCookieJarRec* jar, uInt32 count, unsigned char* list)
{
    std::memset(list, 0, ListSize(count));
    std::memcpy(list, &count, sizeof count);
    unsigned char* at = list + offsetof(MagicCookieListRec, cookies);
    uInt32 found = 0;
    ForEachCookieLocked(jar, 0, [&](uInt32 cookie, const unsigned char*) {
        if (found == count) {
            return false;
        }
        std::memcpy(at, &cookie, sizeof cookie);
        at += sizeof cookie;
        ++found;
        return true;
    });
    return found == count;
}

bool CreateCountRights(MagicCookieJarRec* jar)
{
    char name[] = "refCountRights0";
    for (ThMutex& rights : jar->countRights) {
        if (ThMutexCreate(&rights, name) != kzErrNone) {
            return false;
        }
        ++name[sizeof name - 2];
    }
    return true;
}

// Fills what NewJar has zeroed; false when out of memory.
bool SetUpJar(MagicCookieJarRec* jar, uInt32 infoSize, bool refCounting)
{
    const uInt64 recordSize = PouchTree::RecordSize(infoSize);
    if (recordSize > ~uInt32{0} || ThMutexCreate(&jar->jarRights, "JarRights") != kzErrNone) {
        return false;
    }
    if (refCounting && !CreateCountRights(jar)) {
        return false;
    }
    jar->refCounting = refCounting;
    jar->infoSize = infoSize;
    jar->recordSize = static_cast<uInt32>(recordSize);
    jar->nextSalt = std::max(MilliSecs() & kSaltMask, 1u);
    void* const storage = DSNewPClr(sizeof(PouchTree));
    if (storage == nullptr) {
        return false;
    }
    jar->tree = ::new (storage) PouchTree(jar->recordSize);
    return true;
}

// Ends all of a jar but its handle, which is no jar from here on.
void TearDownJar(MagicCookieJarRec* jar)
{
    jar->verifier = 0;
    kz::CountLive(kz::Live::kCookies, -int64{jar->cookieCount});
    if (jar->tree != nullptr) {
        jar->tree->~PouchTree();
        DSDisposePtr(jar->tree);
    }
    ThMutexDestroy(jar->jarRights);
    for (ThMutex rights : jar->countRights) {
        ThMutexDestroy(rights);
    }
}

// A jar that nobody has disposed ends with the memory service.
void TearDownLeftJar(UHandle handle, unsigned char* data)
{
    if (MagicCookieJarRec* const jar = LivingJar(handle, data)) {
        TearDownJar(jar);
    }
}

MagicCookieJar NewJar(uInt32 infoSize, bool refCounting)
{
    kz::gLeftHandleProc.store(&TearDownLeftJar, std::memory_order_release);
    const auto jar = reinterpret_cast<MagicCookieJar>(DSNewHClr(sizeof(MagicCookieJarRec)));
    if (jar == nullptr) {
        return nullptr;
    }
    (*jar)->verifier = VerifierOf(jar);
    if (!SetUpJar(*jar, infoSize, refCounting)) {
        MCDisposeJar(jar);
        return nullptr;
    }
    return jar;
}

// Kept out of line because its frame would slow the look-up without the lock.
[[gnu::noinline]] KzErr CopyInfoWithLock(const MagicCookieJarRec* jar, uInt32 cookie, void* infoOut)
{
    kz::ScopedLock lock(jar->jarRights);
    const unsigned char* const record = FindUsableCookie(jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    CopyInfo(jar, record, infoOut);
    return kzErrNone;
}

// In builds with assertions a small jar is walked after each change: one that has never had a second leaf, because the
// walk looks at free slots too.
[[maybe_unused]] bool IsSoundIfSmall(MagicCookieJar jar)
{
    return (*jar)->tree->Find(PouchTree::kLeafSlots) != nullptr || kz::CookieJarFault(jar) == nullptr;
}

// With the count rights of the cookie held, in a jar that has them.
KzErr EndCookie(MagicCookieJarRec* jar, uInt32 cookie, void* infoOut)
{
    kz::ScopedLock lock(jar->jarRights);
    unsigned char* const record = FindCookie(jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    CopyInfo(jar, record, infoOut);
    FreeSlotLocked(jar, record, cookie & kIndexMask);
    return kzErrNone;
}

}  // namespace

extern "C" {

MagicCookieJar MCNewJar(void)
{
    return NewJar(kAtomicInfoSize, false);
}

MagicCookieJar MCNewBigJar(uInt32 infoSize)
{
    return NewJar(infoSize, false);
}

MagicCookieJar MCNewRCJar(void)
{
    return NewJar(kAtomicInfoSize, true);
}

KzErr MCDisposeJar(MagicCookieJar jar)
{
    if (jar == nullptr) {
        return kzErrNone;
    }
    unsigned char* const data = kz::GoodData(jar, kz::kRangeAlways);
    MagicCookieJarRec* const rec = data == nullptr ? nullptr : LivingJar(jar, data);
    if (rec == nullptr) {
        kz::BadHandle("MCDisposeJar");
        return kzErrNone;
    }
    assert(rec->tree == nullptr || kz::CookieJarFault(jar) == nullptr);
    if (const uInt32 count = rec->cookieCount) {
        KZ_LOG(kDbgLog) << "Disposing jar with " << count << " cookies remaining";
    }
    TearDownJar(rec);
    DSDisposeHandle(jar);
    return kzErrNone;
}

uInt32 MCNewCookie(MagicCookieJar jar, const void* info)
{
    if (jar == nullptr) {
        return 0;
    }
    unsigned long missing = 0;
    uInt32 cookie;
    {
        kz::ScopedLock lock((*jar)->jarRights);
        cookie = NewCookieLocked(*jar, info, &missing);
    }
    assert(IsSoundIfSmall(jar));
    if (missing != 0) {
        CallSetMemFullProc(missing);
    }
    return cookie;
}

KzErr MCDisposeCookie(MagicCookieJar jar, uInt32 cookie, void* infoOut)
{
    if (jar == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(CountRightsOf(*jar, cookie));
    const KzErr err = EndCookie(*jar, cookie, infoOut);
    assert(IsSoundIfSmall(jar));
    return err;
}

KzBool MCIsACookie(MagicCookieJar jar, uInt32 cookie)
{
    return jar != nullptr && FindUsableCookie(*jar, cookie) != nullptr;
}

KzErr MCGetCookieInfo(MagicCookieJar jar, uInt32 cookie, void* infoOut)
{
    if (jar == nullptr || infoOut == nullptr) {
        return kzErrArgument;
    }
    if ((*jar)->infoSize != kAtomicInfoSize) {
        return CopyInfoWithLock(*jar, cookie, infoOut);
    }
    unsigned char* const record = FindUsableCookie(*jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    const uInt64 info = AtomicInfo(record).load(std::memory_order_acquire);
    const bool stayed = HoldsCookie((*jar)->tree->State(record), cookie) && IsUsable(*jar, record);
    const uInt64 given = stayed ? info : 0;
    std::memcpy(infoOut, &given, sizeof given);
    return stayed ? kzErrNone : kzErrArgument;
}

KzErr MCSetCookieInfo(MagicCookieJar jar, uInt32 cookie, const void* info)
{
    if (jar == nullptr || info == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock((*jar)->jarRights);
    unsigned char* const record = FindUsableCookie(*jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    StoreInfo(*jar, record, info);
    return kzErrNone;
}

KzErr MCGetCookieInfoPtr(MagicCookieJar jar, uInt32 cookie, void** out)
{
    unsigned char* const record = jar == nullptr ? nullptr : FindUsableCookie(*jar, cookie);
    if (out != nullptr) {
        *out = record;
    }
    return record == nullptr ? kzErrArgument : kzErrNone;
}

KzErr MCJarSize(MagicCookieJar jar, int32* out)
{
    if (jar == nullptr || out == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock((*jar)->jarRights);
    *out = static_cast<int32>((*jar)->cookieCount);
    return kzErrNone;
}

KzErr MCGetCookieList(MagicCookieJar jar, MagicCookieList* list)
{
    if (jar == nullptr || list == nullptr) {
        return kzErrArgument;
    }
    // The list is sized without the lock, since a failure calls the host's memory-full procedure; it is sized again
    // when the jar has outgrown it meanwhile.
    uInt32 count = CountOf(*jar).load(std::memory_order_relaxed);
    for (;;) {
        const KzErr err = SizeList(list, count);
        if (err != kzErrNone) {
            return err;
        }
        const uInt32 room = count;
        kz::ScopedLock lock((*jar)->jarRights);
        count = (*jar)->cookieCount;
        if (count <= room) {
            if (FillListLocked(*jar, count, reinterpret_cast<unsigned char*>(**list))) {
                return kzErrNone;
            }
            break;
        }
    }
    KZ_REPORT(kDbgError, 0x94E0B7D3) << "PouchTree::CollectMagicCookies: cookie count discrepancy";
    return kzErrNone;
}

uInt32 MCGetCookieForInfo(MagicCookieJar jar, const void* info)
{
    if (jar == nullptr || info == nullptr) {
        return 0;
    }
    uInt32 found = 0;
    kz::ScopedLock lock((*jar)->jarRights);
    ForEachCookieLocked(*jar, 0, [&](uInt32 cookie, const unsigned char* record) {
        if (BlockCmp(record, info, (*jar)->infoSize) == 0) {
            found = cookie;
        }
        return found == 0;
    });
    return found;
}

}  // extern "C"

CookieList::~CookieList()
{
    DSDisposeHandle(mCookies);
}

KzErr CookieList::SetCount(int count)
{
    if (count < 0) {
        return kzErrArgument;
    }
    if (count == 0) {
        mCount = 0;
        return DSDisposeHandleAndNull(&mCookies);
    }
    const auto newCount = static_cast<unsigned long>(count);
    const auto oldCount = static_cast<unsigned long>(mCount);
    const KzErr err = DSSetHandleSizeOrNewHandle(&mCookies, newCount * sizeof(uInt32));
    mCount = err == kzErrNone ? count : 0;
    if (err == kzErrNone && newCount > oldCount) {
        ClearMem(*mCookies + oldCount * sizeof(uInt32), (newCount - oldCount) * sizeof(uInt32));
    }
    return err;
}

unsigned int CookieList::GetCookie(int index) const
{
    uInt32 cookie = 0;
    if (index >= 0 && index < mCount) {
        std::memcpy(&cookie, *mCookies + static_cast<unsigned long>(index) * sizeof cookie, sizeof cookie);
    }
    return cookie;
}

KzErr CookieList::SetCookie(int index, unsigned int cookie)
{
    if (index < 0 || index >= mCount) {
        return kzErrArgument;
    }
    std::memcpy(*mCookies + static_cast<unsigned long>(index) * sizeof cookie, &cookie, sizeof cookie);
    return kzErrNone;
}

BaseCookieJar::~BaseCookieJar()
{
    if (IsLivingJar(mJar)) {
        MCDisposeJar(mJar);
    }
}

KzErr BaseCookieJar::Init(unsigned int infoSize, int refCounted)
{
    Uninit();
    mJar = NewJar(infoSize, refCounted != 0);
    return mJar == nullptr ? kzErrMemoryFull : kzErrNone;
}

KzErr BaseCookieJar::Uninit()
{
    const MagicCookieJar jar = mJar;
    mJar = nullptr;
    return MCDisposeJar(jar);
}

bool BaseCookieJar::AcquireCookieRights(const unsigned int& cookie, long* infoOut)
{
    MagicCookieJarRec* const jar = mJar == nullptr ? nullptr : *mJar;
    if (jar != nullptr && jar->refCounting != 0) {
        kz::ScopedLock lock(CountRightsOf(jar, cookie));
        if (unsigned char* const record = FindUsableCookie(jar, cookie)) {
            // The slot stays this cookie's: without the count rights nobody disposes it.
            const std::atomic_ref<int32> count = RefCountOf(jar->tree->State(record));
            count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            kz::ScopedLock jarLock(jar->jarRights);
            CopyInfo(jar, record, infoOut);
            return true;
        }
    }
    ClearInfo(infoOut, jar == nullptr ? sizeof *infoOut : jar->infoSize);
    return false;
}

int BaseCookieJar::ReleaseCookieRights(const unsigned int& cookie)
{
    MagicCookieJarRec* const jar = mJar == nullptr ? nullptr : *mJar;
    if (jar == nullptr || jar->refCounting == 0) {
        return 0;
    }
    kz::ScopedLock lock(CountRightsOf(jar, cookie));
    unsigned char* const record = FindUsableCookie(jar, cookie);
    if (record == nullptr) {
        return 0;
    }
    const std::atomic_ref<int32> count = RefCountOf(jar->tree->State(record));
    const int32 before = count.load(std::memory_order_relaxed);
    count.store(before - 1, std::memory_order_relaxed);
    if (before == 1) {
        EndCookie(jar, cookie, nullptr);
    }
    return before;
}

KzErr BaseCookieJar::GetCookieList(CookieList* list) const
{
    if (list == nullptr) {
        return kzErrArgument;
    }
    MagicCookieList found = nullptr;
    KzErr err = MCGetCookieList(mJar, &found);
    if (err == kzErrNone) {
        const int count = (*found)->count;
        err = list->SetCount(count);
        for (int i = 0; err == kzErrNone && i < count; ++i) {
            err = list->SetCookie(i, (*found)->cookies[i]);
        }
    }
    DSDisposeHandle(found);
    return err;
}

namespace kz {

uInt32 NextCookie(MagicCookieJar jar, uInt32 cookie)
{
    uInt32 next = 0;
    if (jar != nullptr) {
        ScopedLock lock((*jar)->jarRights);
        ForEachCookieLocked(*jar, cookie == 0 ? 0 : (cookie & kIndexMask) + 1, [&](uInt32 found, const unsigned char*) {
            next = found;
            return false;
        });
    }
    return next;
}

const char* CookieJarFault(MagicCookieJar jar)
{
    const MagicCookieJarRec* const rec = *jar;
    const PouchTree& tree = *rec->tree;
    ScopedLock lock(rec->jarRights);
    uInt32 slots = 0;
    uInt32 live = 0;
    const char* fault = nullptr;
    tree.ForEachSlot(0, [&](uInt32 /*index*/, unsigned char* record) {
        const CookieSlotState* const state = tree.State(record);
        const bool inUse = state->link == -1;
        if (inUse != (state->salt != 0) || state->salt > kSaltMask || state->link < -1) {
            fault = "a slot is neither free nor in use";
        }
        // A cookie whose last right was given back has none for a moment.
        const int32 rights = RefCountOf(tree.State(record)).load(std::memory_order_relaxed);
        if (rec->refCounting == 0 || !inUse ? rights != 0 : rights < 0) {
            fault = "a slot's reference count is wrong";
        }
        live += inUse;
        ++slots;
        return fault == nullptr;
    });
    uInt32 next = rec->freeIndex;
    uInt32 freeSlots = 0;
    for (; fault == nullptr && next < slots && freeSlots <= slots; ++freeSlots) {
        const int32 link = tree.State(tree.Find(next))->link;
        fault = link < 0 ? "the free chain holds a slot in use" : nullptr;
        next = static_cast<uInt32>(link);
    }
    if (fault == nullptr && (next != slots || freeSlots + live != slots)) {
        fault = "the free chain does not hold just the free slots";
    }
    if (fault == nullptr && live != rec->cookieCount) {
        fault = "the count of cookies is wrong";
    }
    return fault;
}

}  // namespace kz
