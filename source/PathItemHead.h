// The head of a path's element: the only part of it that PathRef's inline operations touch, so that a copy of a path is
// one atomic addition. All else about elements is internal (PathItemElement.h). Nothing here is for hosts to call.
#ifndef KZCORE_PATHITEMHEAD_H
#define KZCORE_PATHITEMHEAD_H

#include <atomic>

#include "KZTypes.h"

class PathItemElement;

namespace kz {

// The number of references and the number of components. An element begins with its head.
class PathItemHead {
public:
    // Components: 0 at a base, else the parent's plus 1. Constant while the element is referenced.
    int32 Count() const { return mCount; }
    // At this moment; other threads may change it at any time.
    int32 ReferenceCount() const { return mReferenceCount.load(std::memory_order_relaxed); }

    // Adds a reference; by a holder of one, or with the tree's lock held. Relaxed because the holder's reference keeps
    // the element alive, and the last release orders itself against all earlier ones.
    void AddReference() { mReferenceCount.fetch_add(1, std::memory_order_relaxed); }

    // Drops a reference that is not the last one without a lock; false if it may be the last, and was not dropped.
    // Release order, so that the one who frees the element sees what this holder did.
    bool DropIfShared()
    {
        int32 count = ReferenceCount();
        while (count > 1) {
            if (mReferenceCount.compare_exchange_weak(count, count - 1, std::memory_order_release,
                                                      std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

private:
    friend class ::PathItemElement;

    std::atomic<int32> mReferenceCount{0};  // from paths, the two tables, and one from each child
    int32 mCount = 0;                       // set while the element is claimed, before anybody else knows it
};

static_assert(std::atomic<int32>::is_always_lock_free, "path counts are lock-free by contract");

// The element begins with its head, so the cast is that from an object to its first member. It is written as one
// because the class is complete in the library only, where its source asserts the layout.
inline PathItemHead& HeadOf(PathItemElement* element)
{
    return *reinterpret_cast<PathItemHead*>(element);
}

}  // namespace kz

#endif
