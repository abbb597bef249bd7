// The item of a path's cache that holds another path. The other items are in PathCachedItem.h.
#ifndef KZCORE_PATHCACHE_H
#define KZCORE_PATHCACHE_H

#include "KZTypes.h"
#include "PathCachedItem.h"
#include "PathRef.h"

// Holds a path, and with it a reference on the path's element. Once a cache has taken the item, it lets its path go
// with the tree's lock held, which is the reason why items make and drop paths by this class only.
class KZ_EXPORT CachedPath final : public PathCachedItem {
public:
    CachedPath(const PathRef& value, int32 ttl, RelationToMetaData relation)
        : PathCachedItem(ttl, relation), mValue(value)
    {}
    // Lets the path go, without taking the tree's lock once a cache has the item.
    ~CachedPath() override;
    static const char* ClassName() { return "CachedPath"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 40; }
    // The tree's lock is held by the cache from here on.
    void Accepted() override { mAccepted = true; }
    // For the cache's visitor, under the cache's lock; a copy that is made of it may leave the lock.
    const PathRef& Get() const { return mValue; }
    // Changes the path and starts the time to live anew.
    void ResetPath(const PathRef& value, int32 ttl);

private:
    PathRef mValue;
    bool mAccepted = false;  // in the cache: the tree's lock is held whenever the path is let go
};

#endif
