// A jar is made and ended here, and its slots change here. A jar is a handle, so that the memory manager can find the
// jars that nobody has disposed when it stops: it shows each handle that is left to TearDownLeftJar. By its handle a
// jar is also told from every other block, because its verifier depends on the handle.
#include "MagicCookieJar.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "HandleCalls.h"
#include "HiResClock.h"
#include "LiveCount.h"
#include "MemoryManager.h"
#include "MemoryZone.h"
#include "ScopedLock.h"

namespace kz {

namespace {

// Tied to the handle, so that a copy of a jar's bytes is no jar.
uInt32 VerifierOf(const void* handle)
{
    return FourCharCode("CJar") ^ static_cast<uInt32>(reinterpret_cast<uintptr_t>(handle) / sizeof(void*));
}

void AddToCount(MagicCookieJarRec* jar, int32 by) KZ_REQUIRES(jar->jarRights)
{
    KZ_ASSERT(by > 0 || jar->cookieCount > 0);
    // A load and a store instead of one addition, because the lock keeps other writers away and readers see either.
    const std::atomic_ref<uInt32> count = CountOf(jar);
    count.store(count.load(std::memory_order_relaxed) + static_cast<uInt32>(by), std::memory_order_relaxed);
    CountLive(Live::kCookies, by);
}

// The salt is cleared before all else, because a reader without the lock trusts it to the last.
void FreeSlotLocked(MagicCookieJarRec* jar, unsigned char* record, uInt32 index) KZ_REQUIRES(jar->jarRights)
{
    CookieSlotState* const state = jar->tree->State(record);
    KZ_ASSERT(index <= kCookieIndexMask && state->link == -1 && state->salt != 0);
    SaltOf(state).store(0, std::memory_order_relaxed);
    RefCountOf(state).store(0, std::memory_order_relaxed);
    StoreInfo(jar, record, nullptr);
    LinkOf(state).store(static_cast<int32>(jar->freeIndex), std::memory_order_relaxed);
    jar->freeIndex = index;
    AddToCount(jar, -1);
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

// Fills what NewJar has zeroed; false when out of memory, with what was made left for TearDownJar. The salts start at
// the clock's time, so that cookies of a jar made in an earlier run are rarely taken for this one's.
bool SetUpJar(MagicCookieJarRec* jar, uInt32 infoSize,
              bool refCounting) KZ_NO_THREAD_CHECK  // nobody else knows the jar
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
    jar->nextSalt = std::max(MilliSecs() & kCookieSaltMask, 1u);
    void* const storage = DSNewPClr(sizeof(PouchTree));
    if (storage == nullptr) {
        return false;
    }
    jar->tree = ::new (storage) PouchTree(jar->recordSize);
    return true;
}

// A jar that nobody has disposed ends with the memory service.
void TearDownLeftJar(UHandle handle, unsigned char* data)
{
    if (MagicCookieJarRec* const jar = LivingJar(handle, data)) {
        TearDownJar(jar);
    }
}

}  // namespace

// The size comes first, because a smaller handle ends before the verifier; the verifier is copied out, because the data
// of a handle that is no jar holds no such record.
MagicCookieJarRec* LivingJar(const void* handle, unsigned char* data)
{
    uInt32 verifier;
    if (HandleDataSize(data) != sizeof(MagicCookieJarRec)) {
        return nullptr;
    }
    std::memcpy(&verifier, data + offsetof(MagicCookieJarRec, verifier), sizeof verifier);
    return verifier == VerifierOf(handle) ? reinterpret_cast<MagicCookieJarRec*>(data) : nullptr;
}

bool IsLivingJar(const void* handle)
{
    unsigned char* const data = FindHandleData(MemZone(), handle, false);
    return data != nullptr && LivingJar(handle, data) != nullptr;
}

// What could not be made whole is ended like any other jar, so the only way back from a failure is the one that is
// always in use.
MagicCookieJarRec** NewJar(uInt32 infoSize, bool refCounting)
{
    gLeftHandleProc.store(&TearDownLeftJar, std::memory_order_release);
    const auto jar = reinterpret_cast<MagicCookieJarRec**>(DSNewHClr(sizeof(MagicCookieJarRec)));
    if (jar == nullptr) {
        return nullptr;
    }
    (*jar)->verifier = VerifierOf(jar);
    if (!SetUpJar(*jar, infoSize, refCounting)) {
        TearDownJar(*jar);
        DSDisposeHandle(jar);
        return nullptr;
    }
    return jar;
}

// What a failed set-up has not made is null, which each of these calls takes. The tree's storage goes with the
// analysis off, because nobody else may use the jar any more.
void TearDownJar(MagicCookieJarRec* jar) KZ_NO_THREAD_CHECK
{
    jar->verifier = 0;
    CountLive(Live::kCookies, -int64{jar->cookieCount});
    if (jar->tree != nullptr) {
        jar->tree->~PouchTree();
        DSDisposePtr(jar->tree);
    }
    ThMutexDestroy(jar->jarRights);
    for (ThMutex rights : jar->countRights) {
        ThMutexDestroy(rights);
    }
}

void StoreInfo(const MagicCookieJarRec* jar, unsigned char* record, const void* info)
{
    if (jar->infoSize == kAtomicInfoSize) {
        uInt64 value = 0;
        if (info != nullptr) {
            std::memcpy(&value, info, sizeof value);
        }
        // Release keeps the cleared salt of a record that ends before this store, for a reader that sees the store.
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

// The salt is stored after all else, with release, because a reader without the lock takes a record with the right salt
// for a whole one. The salt of a slot differs each time the slot is used again, until the jar has given 4,095 others.
uInt32 NewCookieLocked(MagicCookieJarRec* jar, const void* info, unsigned long* missing)
{
    const uInt32 index = jar->freeIndex;
    if (index > kCookieIndexMask) {
        return 0;
    }
    unsigned char* const record = jar->tree->Make(index, missing);
    if (record == nullptr) {
        return 0;
    }
    const uInt32 salt = jar->nextSalt & kCookieSaltMask;
    jar->nextSalt = (salt + 1) & kCookieSaltMask;
    if (jar->nextSalt == 0) {
        jar->nextSalt = 1;
    }
    CookieSlotState* const state = jar->tree->State(record);
    KZ_ASSERT(state->salt == 0 && state->link >= 0);
    jar->freeIndex = static_cast<uInt32>(LinkOf(state).load(std::memory_order_relaxed));
    AddToCount(jar, 1);
    StoreInfo(jar, record, info);
    RefCountOf(state).store(jar->refCounting != 0 ? 1 : 0, std::memory_order_relaxed);
    LinkOf(state).store(-1, std::memory_order_relaxed);
    SaltOf(state).store(salt, std::memory_order_release);
    return salt << PouchTree::kIndexBits | index;
}

KzErr EndCookie(MagicCookieJarRec* jar, uInt32 cookie, void* infoOut)
{
    const ScopedLock lock(jar->jarRights);
    unsigned char* const record = FindCookie(jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    CopyInfo(jar, record, infoOut);
    FreeSlotLocked(jar, record, cookie & kCookieIndexMask);
    return kzErrNone;
}

}  // namespace kz
