// The last two pairs of a handle and its Resource, for calls that start from a handle.
//
// Two serve a caller that works on one resource beside another. Their order is that of recording, not of use: a hit
// moves nothing, so that it writes no slot.
//
// One thread at a time records and looks up. Any thread may forget, because files die on any. Forgetting only clears
// handles, which empties slots and never mixes two pairs, so relaxed atomics are enough. A pair must not outlive its
// resource, nor a handle that is given away: a new resource may get a handle at the same address.
#ifndef KZCORE_RESHANDLECACHE_H
#define KZCORE_RESHANDLECACHE_H

#include <atomic>

#include "KZTypes.h"
#include "KzAssert.h"

class Resource;

namespace kz {

class ResHandleCache {
public:
    // The resource of a recorded handle. Null: none is recorded, or the handle is null, which an empty slot has too.
    Resource* Find(UHandle handle)
    {
        ++mLookups;
        for (Slot& slot : mSlots) {
            if (handle != nullptr && slot.handle.load(std::memory_order_relaxed) == handle) {
                ++mHits;
                mLastHit = true;
                return slot.resource.load(std::memory_order_relaxed);
            }
        }
        mLastHit = false;
        return nullptr;
    }

    // Puts a pair first; the first one moves to the second place. Requires: neither is null.
    void Record(UHandle handle, Resource* resource)
    {
        KZ_ASSERT(handle != nullptr && resource != nullptr);
        mSlots[1].Set(mSlots[0].handle.load(std::memory_order_relaxed),
                      mSlots[0].resource.load(std::memory_order_relaxed));
        mSlots[0].Set(handle, resource);
    }

    // Empties the slots of a resource that dies or gives its handle away.
    void Forget(const Resource* resource)
    {
        for (Slot& slot : mSlots) {
            if (slot.resource.load(std::memory_order_relaxed) == resource) {
                slot.handle.store(nullptr, std::memory_order_relaxed);
            }
        }
    }

    void Clear()
    {
        for (Slot& slot : mSlots) {
            slot.handle.store(nullptr, std::memory_order_relaxed);
        }
    }

    // Shows `visit(handle, resource)` each pair until it returns true. Returns whether it did. For the thread that
    // records.
    template <typename Visit>
    bool VisitPairs(const Visit& visit) const
    {
        for (const Slot& slot : mSlots) {
            const UHandle handle = slot.handle.load(std::memory_order_relaxed);
            if (handle != nullptr && visit(handle, slot.resource.load(std::memory_order_relaxed))) {
                return true;
            }
        }
        return false;
    }

    // How many times Find was called, and found.
    uInt32 Lookups() const { return mLookups; }
    uInt32 Hits() const { return mHits; }
    // Whether the last lookup found its handle.
    bool LastHit() const { return mLastHit; }

private:
    struct Slot {
        std::atomic<UHandle> handle{nullptr};  // null: the slot is empty
        std::atomic<Resource*> resource{nullptr};

        // The handle is cleared first, so that no moment shows it with another one's resource.
        void Set(UHandle newHandle, Resource* newResource)
        {
            handle.store(nullptr, std::memory_order_relaxed);
            resource.store(newResource, std::memory_order_relaxed);
            handle.store(newHandle, std::memory_order_relaxed);
        }
    };

    Slot mSlots[2];
    uInt32 mLookups = 0;
    uInt32 mHits = 0;
    bool mLastHit = false;
};

// The one of the process.
inline constinit ResHandleCache gResHandleCache;

}  // namespace kz

#endif
