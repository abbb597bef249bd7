// A few freed blocks of big handles, kept for the "Cache" variants of the handle calls, because memory whose pages the
// process owns already is much cheaper than fresh memory. One instance exists while the memory service runs.
#ifndef KZCORE_BUFFERCACHE_H
#define KZCORE_BUFFERCACHE_H

#include <atomic>
#include <list>

#include "KZTypes.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

// A block of the cache: a handle's data with its header and guards, without a master pointer.
struct BufferCacheQueueEntry {
    unsigned char* data;
    unsigned long size;
};

// Any thread may call, between the making and the end.
class BufferCache {
public:
    using iterator = std::list<BufferCacheQueueEntry>::iterator;

    // Keeps at most `maxEntries` blocks of at least `minSize` bytes, each below `threshold` and all together at most
    // that. `factor` is kept; nothing depends on it.
    BufferCache(unsigned long minSize, unsigned long maxEntries, unsigned long threshold, float factor);
    ~BufferCache();
    BufferCache(const BufferCache&) = delete;
    BufferCache& operator=(const BufferCache&) = delete;

    // Takes the limits that the configuration has, if one runs. They hold from the next call on: a block of a size that
    // they do not allow is not found again, and stays until it is the oldest of too many or the cache ends.
    void ReadConfigTokens();

    bool CanCacheAllocation(unsigned long size) const
    {
        return size >= mMinSize.load(std::memory_order_relaxed) && size < mThreshold.load(std::memory_order_relaxed);
    }

    // Whether there is a block of at least `size` bytes; *found is the smallest, of equals the newest. Called with the
    // lock held, or while no other thread uses the cache, which the analysis of locks can't know.
    bool FindBuffer(unsigned long size, iterator& found) KZ_NO_THREAD_CHECK;

    // The data of a kept block of just this size and offset and of a fitting alignment, which leaves the cache, or
    // null. Only the best of FindBuffer is looked at. The data is what the block held last.
    unsigned char* GetAllocation(unsigned long size, unsigned long alignment, unsigned long offset);

    // Takes over a block whose size CanCacheAllocation has accepted, and frees the oldest ones when there are too many.
    void AddAllocation(unsigned char* data, unsigned long size);

    // Frees the oldest blocks until number and total are within their limits.
    void CleanupProc();

    // Frees all blocks.
    void ClearCache();

    // What is wrong with the cache, or null when the total and each block's header agree with the list and the blocks'
    // guards are whole, where they are checked.
    const char* Fault();

private:
    const char* ListFaultLocked() const KZ_REQUIRES(mLock);

    // Settings, which order nothing: relaxed.
    std::atomic<unsigned long> mMinSize;
    std::atomic<unsigned long> mMaxEntries;
    std::atomic<unsigned long> mThreshold;
    std::atomic<float> mResizeFactor;

    ThMutex mLock = nullptr;
    std::list<BufferCacheQueueEntry> mEntries KZ_GUARDED_BY(mLock);  // the newest first
    unsigned long mTotal KZ_GUARDED_BY(mLock) = 0;                   // of the entries' sizes
};

// The instance; null while the memory service does not run.
extern std::atomic<BufferCache*> s_bufferCachePtr;

namespace kz {

// Makes the instance with the default limits; without memory for it there is none, and nothing is cached.
void CreateBufferCache();
void DestroyBufferCache();

// BufferCache::Fault of the instance; null without one.
const char* BufferCacheFault();

}  // namespace kz

#endif
