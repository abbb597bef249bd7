// The list, the newest block first, and the total of its sizes change together under the lock. A block's node is made
// before the lock is taken and freed after it, so that no allocator runs under it; ClearCache alone frees inside,
// because it runs where nobody else uses the cache.
//
// A kept block has no master pointer, so no validity test finds it, and its header goes on telling its size.
#include "BufferCache.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>

#include "CfgAccess.h"
#include "GuardBytes.h"
#include "GuardChecks.h"
#include "HandleLayout.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "MemoryPoison.h"
#include "ScopedLock.h"

constinit std::atomic<BufferCache*> s_bufferCachePtr{nullptr};

namespace {

constexpr unsigned long kDefaultMinSize = 16384;
constexpr unsigned long kDefaultMaxEntries = 5;
constexpr unsigned long kDefaultThreshold = 0x1E00000;
constexpr float kDefaultResizeFactor = 1.5f;

// No block of this size or more is looked for.
constexpr unsigned long kBestSizeLimit = 0x7FFFFFFF;

constexpr uInt32 kInt32Token = kz::FourCharCode("I32 ");
constexpr uInt32 kFloat32Token = kz::FourCharCode("F32 ");

constexpr kz::CountedLiteral kMinSizeToken{"SelectiveDeallocation.BufferCache.MinBufferSize"};
constexpr kz::CountedLiteral kMaxEntriesToken{"SelectiveDeallocation.BufferCache.MaxSize"};
constexpr kz::CountedLiteral kThresholdToken{"SelectiveDeallocation.BufferCache.CleanUpThreshold"};
constexpr kz::CountedLiteral kResizeFactorToken{"SelectiveDeallocation.BufferCache.ResizeFactor"};

void ReadSize(const unsigned char* token, std::atomic<unsigned long>& setting)
{
    // A negative limit counts as 0, because it would else become a huge one.
    int32 value = 0;
    if (CfgGetDefault(kInt32Token, token, &value) == kzErrNone) {
        setting = static_cast<unsigned long>(std::max(value, 0));
    }
}

// A kept block is poisoned, because nobody may touch it meanwhile and its next owner is not to see what it held.
void PoisonData(const BufferCacheQueueEntry& entry)
{
    kz::PoisonMemory(entry.data, entry.size);
}

void UnpoisonData(const BufferCacheQueueEntry& entry)
{
    kz::UnpoisonMemory(entry.data, entry.size);
}

// The poison is lifted first, because the allocator writes into what it gets back.
void Free(const BufferCacheQueueEntry& entry)
{
    UnpoisonData(entry);
    kz::FreeHandleData(entry.data);
}

}  // namespace

BufferCache::BufferCache(unsigned long minSize, unsigned long maxEntries, unsigned long threshold, float factor)
    : mMinSize(minSize), mMaxEntries(maxEntries), mThreshold(threshold), mResizeFactor(factor)
{
    // Without memory for its lock the cache accepts no size, because a null lock would guard nothing.
    if (ThMutexCreate(&mLock, "BufferCacheLock") != kzErrNone) {
        mMinSize = std::numeric_limits<unsigned long>::max();
    }
}

BufferCache::~BufferCache()
{
    ClearCache();
    ThMutexDestroy(mLock);
}

void BufferCache::ReadConfigTokens()
{
    // A cache without a lock goes on accepting no size, whatever the configuration says.
    if (mLock == nullptr) {
        return;
    }
    ReadSize(kMinSizeToken.text, mMinSize);
    ReadSize(kMaxEntriesToken.text, mMaxEntries);
    ReadSize(kThresholdToken.text, mThreshold);
    float factor = 0;
    if (CfgGetDefault(kFloat32Token, kResizeFactorToken.text, &factor) == kzErrNone) {
        mResizeFactor = factor;
    }
}

bool BufferCache::FindBuffer(unsigned long size, iterator& found)
{
    // The newest stands first and only a smaller one replaces it, so of equals the newest is found, whose pages are the
    // likeliest to be in memory still.
    unsigned long best = kBestSizeLimit;
    for (auto entry = mEntries.begin(); entry != mEntries.end(); ++entry) {
        if (entry->size >= size && entry->size < best) {
            best = entry->size;
            found = entry;
        }
    }
    return best < kBestSizeLimit;
}

unsigned char* BufferCache::GetAllocation(unsigned long size, unsigned long alignment, unsigned long offset)
{
    if (!CanCacheAllocation(size)) {
        return nullptr;
    }
    std::list<BufferCacheQueueEntry> taken;  // its node is freed outside the lock
    kz::ScopedLock lock(mLock);
    iterator best;
    // A larger block would do but for its header, which tells the block's own size to whoever asks for the handle's.
    if (!FindBuffer(size, best) || best->size != size) {
        return nullptr;
    }
    // Any multiple of the alignment fulfils it, but the offset is stored in the block and must be the one asked for.
    const kz::HandleAlignment align = kz::HandleDataPlace(best->data).align;
    if (align.alignment % alignment != 0 || align.offset != offset) {
        return nullptr;
    }
    taken.splice(taken.begin(), mEntries, best);
    mTotal -= size;
    UnpoisonData(taken.front());
    return taken.front().data;
}

void BufferCache::AddAllocation(unsigned char* data, unsigned long size)
{
    KZ_ASSERT(kz::HandleDataSize(data) == size);
    // The node is the only thing that can fail, and without it the block is one that the cache did not want.
    const BufferCacheQueueEntry entry{data, size};
    std::list<BufferCacheQueueEntry> added;
    try {
        added.push_front(entry);
    } catch (const std::bad_alloc&) {
        kz::FreeHandleData(data);
        return;
    }
    bool isTooMuch = false;
    {
        kz::ScopedLock lock(mLock);
        PoisonData(entry);
        mEntries.splice(mEntries.begin(), added);
        mTotal += size;
        isTooMuch = mEntries.size() > mMaxEntries || mTotal > mThreshold;
    }
    // CleanupProc runs outside the lock, which it takes anew for each block.
    if (isTooMuch) {
        CleanupProc();
    }
}

void BufferCache::CleanupProc()
{
    // Another thread may add or take blocks between two rounds, so each round asks again whether there are too many.
    for (;;) {
        std::list<BufferCacheQueueEntry> oldest;
        {
            kz::ScopedLock lock(mLock);
            if (mEntries.empty() || (mEntries.size() <= mMaxEntries && mTotal <= mThreshold)) {
                return;
            }
            oldest.splice(oldest.begin(), mEntries, std::prev(mEntries.end()));
            mTotal -= oldest.front().size;
        }
        Free(oldest.front());
    }
}

void BufferCache::ClearCache()
{
    kz::ScopedLock lock(mLock);
    for (const BufferCacheQueueEntry& entry : mEntries) {
        Free(entry);
    }
    mEntries.clear();
    mTotal = 0;
}

const char* BufferCache::ListFaultLocked() const
{
    unsigned long total = 0;
    for (const BufferCacheQueueEntry& entry : mEntries) {
        if (kz::HandleDataSize(entry.data) != entry.size) {
            return "a kept block's header does not tell its size";
        }
        total += entry.size;
    }
    return total == mTotal ? nullptr : "the kept blocks' sizes do not add up to the total";
}

const char* BufferCache::Fault()
{
    kz::ScopedLock lock(mLock);
    if (const char* const fault = ListFaultLocked()) {
        return fault;
    }
    // Damage comes from a write through a disposed handle, which nothing else would notice before the next owner.
    for (const BufferCacheQueueEntry& entry : mEntries) {
        if (ShouldCheckHandleGuardBytes() && !kz::GuardsAreSound(entry.data, true)) {
            return "a kept block's guards are damaged";
        }
    }
    return nullptr;
}

namespace kz {

void CreateBufferCache()
{
    s_bufferCachePtr.store(
        new (std::nothrow) BufferCache(kDefaultMinSize, kDefaultMaxEntries, kDefaultThreshold, kDefaultResizeFactor),
        std::memory_order_release);
}

void DestroyBufferCache()
{
    delete s_bufferCachePtr.exchange(nullptr);
}

const char* BufferCacheFault()
{
    BufferCache* const cache = s_bufferCachePtr.load(std::memory_order_acquire);
    return cache == nullptr ? nullptr : cache->Fault();
}

}  // namespace kz
