// The calls on jars, and the classes over them. MagicCookieJar.h says what a jar is made of and how its slots change; a
// call here looks at its arguments, takes the locks, and has the rest done there. The look-up is inlined into each
// call, because a call of its own would cost as much as the look.
//
// No call goes out to the host with a lock held: a host's memory-full procedure is called after the lock is given back.
#include "CookieManager.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "CookieWalk.h"
#include "HandleCalls.h"
#include "KzAssert.h"
#include "MagicCookieJar.h"
#include "MemoryManager.h"
#include "Report.h"
#include "ScopedLock.h"

using kz::CopyInfo;
using kz::CountRightsOf;
using kz::FindUsableCookie;
using kz::ForEachCookieLocked;
using kz::HoldsCookie;
using kz::PouchTree;
using kz::RefCountOf;

namespace {

constexpr char kModule[] = "source/CookieManager";

// Clears a caller's record. The address has no type, as that of CopyInfo has none, because a typed jar's record may be
// less aligned than a word.
void ClearInfo(void* infoOut, std::size_t size)
{
    if (infoOut != nullptr) {
        std::memset(infoOut, 0, size);
    }
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
bool FillListLocked(const MagicCookieJarRec* jar, uInt32 count, unsigned char* list) KZ_REQUIRES(jar->jarRights)
{
    KZ_ASSERT(list != nullptr);
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

// Kept out of line because its frame would slow the look-up without the lock.
[[gnu::noinline]] KzErr CopyInfoWithLock(const MagicCookieJarRec* jar, uInt32 cookie, void* infoOut)
{
    const kz::ScopedLock lock(jar->jarRights);
    const unsigned char* const record = FindUsableCookie(jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    CopyInfo(jar, record, infoOut);
    return kzErrNone;
}

// In builds with assertions a small jar is walked after each change. Small is one that has never had a second leaf,
// because the walk looks at free slots too.
[[maybe_unused]] bool IsSoundIfSmall(MagicCookieJar jar)
{
    return (*jar)->tree->Find(PouchTree::kLeafSlots) != nullptr || kz::CookieJarFault(jar) == nullptr;
}

}  // namespace

extern "C" {

MagicCookieJar MCNewJar(void)
{
    return kz::NewJar(kz::kAtomicInfoSize, false);
}

MagicCookieJar MCNewBigJar(uInt32 infoSize)
{
    return kz::NewJar(infoSize, false);
}

MagicCookieJar MCNewRCJar(void)
{
    return kz::NewJar(kz::kAtomicInfoSize, true);
}

KzErr MCDisposeJar(MagicCookieJar jar)
{
    if (jar == nullptr) {
        return kzErrNone;
    }
    unsigned char* const data = kz::GoodData(jar, kz::kRangeAlways);
    MagicCookieJarRec* const rec = data == nullptr ? nullptr : kz::LivingJar(jar, data);
    if (rec == nullptr) {
        kz::BadHandle("MCDisposeJar");
        return kzErrNone;
    }
    KZ_ASSERT_SLOW(kz::CookieJarFault(jar) == nullptr);
    // Cookies that are left are logged and not reported, because an owner may well end a jar with all that is in it.
    if (const uInt32 count = kz::CountOf(rec).load(std::memory_order_relaxed)) {
        KZ_LOG(kDbgLog) << "Disposing jar with " << count << " cookies remaining";
    }
    kz::TearDownJar(rec);
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
        const kz::ScopedLock lock((*jar)->jarRights);
        cookie = kz::NewCookieLocked(*jar, info, &missing);
    }
    KZ_ASSERT(IsSoundIfSmall(jar));
    // The host is told of missing memory only here, because its procedure may call on the jar.
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
    // Whoever holds the count rights keeps a cookie alive, so it ends under them whatever its count is.
    const kz::ScopedLock lock(CountRightsOf(*jar, cookie));
    const KzErr err = kz::EndCookie(*jar, cookie, infoOut);
    KZ_ASSERT(IsSoundIfSmall(jar));
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
    if ((*jar)->infoSize != kz::kAtomicInfoSize) {
        return CopyInfoWithLock(*jar, cookie, infoOut);
    }
    unsigned char* const record = FindUsableCookie(*jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    // The slot is looked at once more behind the read, because the cookie may have ended meanwhile. The bytes of
    // another record are never given away: a read that came too late gives zeros.
    const uInt64 info = kz::AtomicInfo(record).load(std::memory_order_acquire);
    const bool stayed = HoldsCookie((*jar)->tree->State(record), cookie) && kz::IsUsable(*jar, record);
    const uInt64 given = stayed ? info : 0;
    std::memcpy(infoOut, &given, sizeof given);
    return stayed ? kzErrNone : kzErrArgument;
}

KzErr MCSetCookieInfo(MagicCookieJar jar, uInt32 cookie, const void* info)
{
    if (jar == nullptr || info == nullptr) {
        return kzErrArgument;
    }
    const kz::ScopedLock lock((*jar)->jarRights);
    unsigned char* const record = FindUsableCookie(*jar, cookie);
    if (record == nullptr) {
        return kzErrArgument;
    }
    // The cookie can't end between the look and the store, because it ends under the same lock.
    kz::StoreInfo(*jar, record, info);
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
    const kz::ScopedLock lock((*jar)->jarRights);
    *out = static_cast<int32>((*jar)->cookieCount);
    return kzErrNone;
}

KzErr MCGetCookieList(MagicCookieJar jar, MagicCookieList* list)
{
    if (jar == nullptr || list == nullptr) {
        return kzErrArgument;
    }
    // The list is sized without the lock, because a failure calls the host's memory-full procedure. It is sized again
    // when the jar has outgrown it meanwhile.
    uInt32 count = kz::CountOf(*jar).load(std::memory_order_relaxed);
    for (;;) {
        const KzErr err = SizeList(list, count);
        if (err != kzErrNone) {
            return err;
        }
        const uInt32 room = count;
        const kz::ScopedLock lock((*jar)->jarRights);
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
    // No index leads from infos to cookies, because every change of a record would have to keep it up. The walk goes by
    // indices, so the lowest comes first.
    uInt32 found = 0;
    const kz::ScopedLock lock((*jar)->jarRights);
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
    // A handle that can't be resized is kept, but the count is 0 then: a list that lost its new part would look whole.
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
    if (kz::IsLivingJar(mJar)) {
        MCDisposeJar(mJar);
    }
}

KzErr BaseCookieJar::Init(unsigned int infoSize, int refCounted)
{
    Uninit();
    mJar = kz::NewJar(infoSize, refCounted != 0);
    return mJar == nullptr ? kz::FailedMake() : kzErrNone;
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
        const kz::ScopedLock lock(CountRightsOf(jar, cookie));
        if (unsigned char* const record = FindUsableCookie(jar, cookie)) {
            // The slot stays this cookie's, because nobody disposes it without the count rights.
            const std::atomic_ref<int32> count = RefCountOf(jar->tree->State(record));
            count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            const kz::ScopedLock jarLock(jar->jarRights);
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
    const kz::ScopedLock lock(CountRightsOf(jar, cookie));
    unsigned char* const record = FindUsableCookie(jar, cookie);
    if (record == nullptr) {
        return 0;
    }
    const std::atomic_ref<int32> count = RefCountOf(jar->tree->State(record));
    // The count is 0 before the slot is free, which tells look-ups without a lock that the cookie is on its way out.
    const int32 before = count.load(std::memory_order_relaxed);
    KZ_ASSERT(before > 0);
    count.store(before - 1, std::memory_order_relaxed);
    if (before == 1) {
        kz::EndCookie(jar, cookie, nullptr);
    }
    return before;
}

KzErr BaseCookieJar::GetCookieList(CookieList* list) const
{
    if (list == nullptr) {
        return kzErrArgument;
    }
    // The cookies are copied from a list of the C call's into this object's own, which is no MagicCookieList: it has no
    // count in its handle.
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
