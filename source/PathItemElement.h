// One node of the shared tree of path names. A path (PathRef.h) is a reference to a node; the node's ancestors are the
// path's components, and equal paths are the same node. Hosts see the class only because PathRef's copy and release
// are inline; nothing of it is theirs to call.
#ifndef KZCORE_PATHITEMELEMENT_H
#define KZCORE_PATHITEMELEMENT_H

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "KZTypes.h"
#include "ThMutex.h"

class PathCachedItem;
class PathItemStorage;
namespace kz {
class PathTreeWalk;
}
struct PathItemCache;

// Where a cache look-up goes on when the element itself has no such item.
enum PathSearchDirection : int32 { kSearchAncestors = 0, kSearchThisOnly = 1, kSearchDescendants = 2 };

// What a flush of an element's cache removes.
enum PathFlushMethod : int32 {
    kFlushAll = 0,             // every item
    kFlushMetaDataAndOld = 1,  // items that depend on the file's metadata, and expired ones
    kFlushOld = 2,             // expired items
    kFlushSubtree = 3          // every item here and below
};

// The names of members tell their locking: "...Unsafe", FlushCore and PurgeCore require mMutex to be held; those with
// `alreadyLocked` take it unless that is true; FindChild, RemoveChild and RemoveParent require it as well. All others
// take it themselves or need none.
class PathItemElement {
public:
    struct ChildItem {
        int32 hash;  // StringUtils::Hash of the child's name
        PathItemElement* child;
    };

    PathItemElement();
    ~PathItemElement();  // requires mMutex to be held; runs only with its block
    PathItemElement(const PathItemElement&) = delete;
    PathItemElement& operator=(const PathItemElement&) = delete;

    const std::string& Name() const { return mName; }
    PathItemElement* Parent() const { return mParent; }
    int32 Count() const { return mCount; }
    int32 ReferenceCount() const { return mReferenceCount.load(std::memory_order_relaxed); }
    // Acquire pairs with the last store of a release: who sees 0 sees an element that nobody touches any more.
    bool InUse() const { return mInUse.load(std::memory_order_acquire) != 0; }
    // The base; a walk of Count() steps.
    const PathItemElement* Root() const;

    // Adds a reference; by a holder of one, or with mMutex held. Relaxed: the holder's reference keeps the element
    // alive, and the last release orders itself against all earlier ones.
    void AddReference() { mReferenceCount.fetch_add(1, std::memory_order_relaxed); }

    // Drops a reference that is not the last one without a lock; false if it may be the last, and was not dropped.
    // Release order, so that the one who frees the element sees what this holder did.
    bool DropIfShared()
    {
        int32 count = mReferenceCount.load(std::memory_order_relaxed);
        while (count > 1) {
            if (mReferenceCount.compare_exchange_weak(count, count - 1, std::memory_order_release,
                                                      std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }

    // Drops one reference. The last one frees the element, and its ancestors as far as nothing else holds them.
    void ReleaseCore(bool alreadyLocked);

    // The child of this name, or null; `*index` is its position, or where it belongs. Names are case-sensitive.
    PathItemElement* FindChild(std::string_view name, int32 hash, size_t* index) const;
    // `child` if it is one of the children, else null; `*index` as above.
    PathItemElement* FindChild(const PathItemElement* child, size_t* index) const;

    // The child of this name, made if there is none, with one reference for the caller; null without memory.
    PathItemElement* CreateChild(std::string_view name);
    // The same, but `*made` tells whether the child is new; only then it carries a reference for the caller.
    PathItemElement* FindOrCreateUnsafe(std::string_view name, bool* made);
    static PathItemElement* Create(std::string_view name, int32 hash, PathItemElement* parent, size_t index);

    // Takes `child` out of the children; `*index` (may be null) is where it stood. No effect on a stranger.
    void RemoveChild(const PathItemElement* child, size_t* index);
    // Unlinks a free element from a parent that it still has; false if there is nothing to do.
    bool RemoveParent();

    // True if the element is held from outside the tree; `*count` is then the number of such references.
    bool GetReferencedInfo(int32* count) const;

    // Removes cached items; the bytes given back. Allocates nothing.
    uInt64 FlushCore(int32 method);
    // Forces the element and all below it into the free state; true if this needed no force. Allocates nothing.
    bool PurgeCore();

    // Takes ownership of `item`; kzErrMemoryFull leaves it with the caller. A null item removes the entry.
    KzErr Cache(const char* key, PathCachedItem* item);
    // With mMutex held: a live item of the class, or null; `*element` is the holder, or null.
    PathCachedItem* GetCached(const char* key, const char* className, PathSearchDirection direction,
                              PathItemElement** element);
    PathCachedItem* GetCachedInformation(const char* key, PathSearchDirection direction, PathItemElement** element);
    PathCachedItem* GetCachedChildren(const char* key, PathItemElement** element);

    // True if the pointer lies in a block of elements.
    static bool ValidElement(const void* pointer);
    bool IsSane() { return IsSane(false, 0); }
    bool IsSane(bool alreadyLocked, int32 depth);
    bool IsSaneDeep(bool alreadyLocked);

    // The bytes of the tree that one reference to this path accounts for.
    double MemorySize() const;

    // Guards the shape of the tree and all caches. Taken before PathItemStorage's two. Null while paths are not up.
    static constinit ThMutex mMutex;

private:
    friend class PathItemStorage;

    friend class kz::PathTreeWalk;

    bool Init(std::string_view name, int32 hash, PathItemElement* parent, size_t index);
    void AdoptUnsafe(int32 hash, size_t index);
    bool ReleaseStartUnsafe();
    void ReleaseFinishIfStartedUnsafe();
    void RetireUnsafe();
    uInt64 FlushOwnItems(int32 method);
    PathItemElement* FirstOfWalk();
    PathItemElement* NextOfWalk();
    uInt64 FlushSubtree();
    bool PurgeSelf();
    bool ChildrenAreSane();

    std::string mName;  // empty for an up dir
    PathItemElement* mParent = nullptr;
    std::atomic<int32> mReferenceCount{0};  // from paths, the two tables, and one from each child
    std::atomic<uInt32> mInUse{0};          // 0: free in its block
    std::vector<ChildItem> mChildren;       // by hash, ascending
    uInt32 mChildrenChecked = 0;            // IsSane has seen the children since they last changed
    PathItemCache* mCache = nullptr;        // owned; null while nothing is cached
    int32 mCount = 0;                       // components: 0 at a base, else the parent's plus 1
};

static_assert(std::atomic<int32>::is_always_lock_free, "path counts are lock-free by contract");

namespace kz {

// Walks down the tree under one hold of its lock, which is what makes a path of many names cheap: elements on the way
// need no references, since none can be freed before the walk ends. The start must be referenced for the walk's whole
// life, and no path may be made or dropped by the walking thread during it.
class PathTreeWalk {
public:
    explicit PathTreeWalk(PathItemElement* start);
    ~PathTreeWalk();
    PathTreeWalk(const PathTreeWalk&) = delete;
    PathTreeWalk& operator=(const PathTreeWalk&) = delete;

    // True if the walk stands on `base` or below it; cheap for a base without children.
    bool IsBelow(const PathItemElement* base) const;
    // Goes to the child of exactly this name. kzErrArgument without an element, kzErrMemoryFull.
    KzErr Child(std::string_view name);
    // Goes on by PathRef::Append's rules for ".", ".." and the empty name. Errors as Child.
    KzErr Append(std::string_view name);
    // The element reached, with one reference for the caller. Ends the walk's use; the lock stays until destruction.
    PathItemElement* Take();

private:
    ThMutex const mMutex;
    PathItemElement* mCurrent;
    bool mOwned = false;  // mCurrent carries a reference of the walk's own
};

}  // namespace kz

#endif
