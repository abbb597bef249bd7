// The items that one path element caches, by key. Knows neither elements nor paths: the element that owns it guards it
// with the tree's lock.
#ifndef KZCORE_PATHITEMCACHE_H
#define KZCORE_PATHITEMCACHE_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "KZTypes.h"
#include "PathCachedItem.h"
#include "PathTypes.h"

// Owns its items. Not safe for threads by itself.
class PathItemCache {
public:
    // The item under `key`, expired or not, or null. It stays the cache's.
    PathCachedItem* Find(const char* key) const;
    // Takes ownership of `item` and destroys the one that it replaces; a null item only removes. The same item again
    // changes nothing. Throws std::bad_alloc, with the cache as it was and `item` still the caller's.
    void Put(const char* key, PathCachedItem* item);
    // Destroys what the method removes; the bytes given back. kFlushSubtree is kFlushAll here. Allocates nothing.
    uInt64 Flush(int32 method);

    bool IsEmpty() const { return mItems.empty(); }
    // The bytes of all items by their own account.
    double ItemSizes() const;

private:
    // Ordered, with a comparison that takes keys as they come, so that a look-up makes no string.
    std::map<std::string, std::unique_ptr<PathCachedItem>, std::less<>> mItems;
};

#endif
