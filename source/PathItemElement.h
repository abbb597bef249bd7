// One node of the shared tree of path names. A path (PathRef.h) is a reference to a node; the node's ancestors are the
// path's components, and equal paths are the same node. Internal to the path layer: hosts see its head alone.
#ifndef KZCORE_PATHITEMELEMENT_H
#define KZCORE_PATHITEMELEMENT_H

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KZTypes.h"
#include "KzErr.h"
#include "PathItemHead.h"
#include "PathTypes.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

class PathCachedItem;
class PathItemCache;
class PathItemStorage;

// Members that require the tree's lock say so to the compiler. Those with `alreadyLocked` take it unless that is true,
// a choice that the compiler can't follow. All others take it themselves or need none: a name, a parent, a root and a
// count don't change while the element is referenced.
class PathItemElement {
public:
    struct ChildItem {
        int32 hash;  // of the child's name, as StringUtils::Hash makes it
        PathItemElement* child;
    };

    // Guards the shape of the tree and all caches. Taken before PathItemStorage's two. Null while paths are not up.
    static constinit ThMutex mMutex;

    PathItemElement();
    ~PathItemElement() KZ_NO_THREAD_CHECK;  // runs only with its block, under mMutex, or for one of no block
    PathItemElement(const PathItemElement&) = delete;
    PathItemElement& operator=(const PathItemElement&) = delete;

    const std::string& Name() const { return mName; }
    PathItemElement* Parent() const { return mParent; }
    int32 Count() const { return mHead.Count(); }
    int32 ReferenceCount() const { return mHead.ReferenceCount(); }
    // Acquire pairs with the last store of a release: who sees 0 sees an element that nobody touches any more.
    bool InUse() const { return mInUse.load(std::memory_order_acquire) != 0; }
    // The ancestor without a parent; the element itself at a base.
    const PathItemElement* Root() const { return mRoot; }
    // True for an element in use below the absolute or the relative base; one below no known base is reported.
    bool IsValid() const;

    // As PathItemHead::AddReference.
    void AddReference() { mHead.AddReference(); }
    // Drops one reference. The last one frees the element, and its ancestors as far as nothing else holds them.
    void ReleaseCore(bool alreadyLocked) KZ_NO_THREAD_CHECK;
    void ReleaseUnsafe() KZ_REQUIRES(mMutex);

    // The child of this name, or null; `*index` is its position, or where it belongs. Names are case-sensitive.
    PathItemElement* FindChild(std::string_view name, int32 hash, size_t* index) const KZ_REQUIRES(mMutex);
    // `child` if it is one of the children, else null; `*index` as above.
    PathItemElement* FindChild(const PathItemElement* child, size_t* index) const KZ_REQUIRES(mMutex);

    // The child of this name, made if there is none, with one reference for the caller; null without memory.
    PathItemElement* CreateChild(std::string_view name);
    // The same, but `*made` tells whether the child is new; only then it carries a reference for the caller.
    PathItemElement* FindOrCreateUnsafe(std::string_view name, bool* made) KZ_REQUIRES(mMutex);

    // Takes `child` out of the children; `*index` (may be null) is where it stood. No effect on a stranger.
    void RemoveChild(const PathItemElement* child, size_t* index) KZ_REQUIRES(mMutex);
    // Unlinks a free element from a parent that it still has; false if there is nothing to do.
    bool RemoveParent() KZ_REQUIRES(mMutex);

    // True if the element is held from outside the tree; `*count` is then the number of such references.
    bool GetReferencedInfo(int32* count) const KZ_REQUIRES(mMutex);

    // Removes cached items; the bytes given back. Allocates nothing.
    uInt64 FlushCore(int32 method) KZ_REQUIRES(mMutex);
    // Forces the element and all below it into the free state; true if this needed no force. Allocates nothing.
    bool PurgeCore() KZ_REQUIRES(mMutex);

    // Takes ownership of `item`; kzErrMemoryFull leaves it with the caller. A null item removes the entry.
    KzErr Cache(const char* key, PathCachedItem* item);
    // A live item of the class, or null; `*element` is the holder, or null.
    PathCachedItem* GetCached(const char* key, const char* className, PathSearchDirection direction,
                              PathItemElement** element) KZ_REQUIRES(mMutex);
    // The first item under the key, live or not and of any class; otherwise as GetCached.
    PathCachedItem* GetCachedInformation(const char* key, PathSearchDirection direction, PathItemElement** element)
        KZ_REQUIRES(mMutex);
    // The same among all below, depth first. May throw std::bad_alloc.
    PathCachedItem* GetCachedChildren(const char* key, PathItemElement** element) KZ_REQUIRES(mMutex);

    // True if the pointer lies in a block of elements.
    static bool ValidElement(const void* pointer);
    // Whether the links and counts from here to the base, and those to the children, fit together; reports most of what
    // does not. `depth` is how many children lie between this element and the one that was asked about.
    bool IsSane() { return IsSane(false, 0); }
    bool IsSane(bool alreadyLocked, int32 depth) KZ_NO_THREAD_CHECK;
    // The same for all below too.
    bool IsSaneDeep(bool alreadyLocked) KZ_NO_THREAD_CHECK;

    // The bytes of the tree that one reference to this path accounts for.
    double MemorySize() const;

private:
    friend class PathItemStorage;

    // Makes a claimed element the child of `parent` at `index`, or a base for null, with one reference. False without
    // memory: no child was added.
    bool Init(std::string_view name, int32 hash, PathItemElement* parent, size_t index) KZ_REQUIRES(mMutex);
    // The two ways in which parent, root and count change: this element becomes a child of `parent`, whose children
    // must have room, or forgets its parent.
    void AdoptUnsafe(PathItemElement* parent, int32 hash, size_t index) KZ_REQUIRES(mMutex);
    void DetachUnsafe() KZ_REQUIRES(mMutex);
    // The two halves of a release: the first drops a reference and tells whether it was the last, the second frees.
    bool ReleaseStartUnsafe() KZ_REQUIRES(mMutex);
    void ReleaseFinishIfStartedUnsafe() KZ_REQUIRES(mMutex);
    // The element's end with its block.
    void RetireUnsafe() KZ_REQUIRES(mMutex);
    uInt64 FlushOwnItems(int32 method) KZ_REQUIRES(mMutex);
    // The walk through all below an element, children before their parent, without memory.
    PathItemElement* FirstOfWalk() KZ_REQUIRES(mMutex);
    PathItemElement* NextOfWalk() KZ_REQUIRES(mMutex);
    uInt64 FlushSubtree() KZ_REQUIRES(mMutex);
    bool PurgeSelf() KZ_REQUIRES(mMutex);
    bool ChildrenAreSane() KZ_REQUIRES(mMutex);
    PathCachedItem* FindOwnItem(const char* key) const KZ_REQUIRES(mMutex);

    kz::PathItemHead mHead;         // first, where kz::HeadOf finds it
    std::atomic<uInt32> mInUse{0};  // 0: free in its block
    // IsSane has seen the children since they last changed.
    uInt32 mChildrenChecked KZ_GUARDED_BY(mMutex) = 0;
    PathItemElement* mParent = nullptr;  // holds a reference on it; null at a base and in a free element
    // The parent's root, or the element itself. It follows the parent wherever that is set, so it is constant as long.
    PathItemElement* mRoot = this;
    std::string mName;                                       // empty for an up dir
    std::vector<ChildItem> mChildren KZ_GUARDED_BY(mMutex);  // by hash, ascending
    PathItemCache* mCache KZ_GUARDED_BY(mMutex) = nullptr;   // owned; null while nothing is cached
};

namespace kz {

// Owns one reference on an element, or nothing.
class PathItemHold {
public:
    PathItemHold() = default;
    ~PathItemHold() { Reset(nullptr); }
    PathItemHold(const PathItemHold&) = delete;
    PathItemHold& operator=(const PathItemHold&) = delete;

    // Takes over the caller's reference on `element`, which may be null, and lets go of the old one.
    void Reset(PathItemElement* element)
    {
        if (PathItemElement* const old = std::exchange(mElement, element)) {
            old->ReleaseCore(false);
        }
    }
    PathItemElement* Get() const { return mElement; }
    // Hands the reference to the caller.
    PathItemElement* Take() { return std::exchange(mElement, nullptr); }

private:
    PathItemElement* mElement = nullptr;
};

}  // namespace kz

#endif
