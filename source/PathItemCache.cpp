// A dying item may hold a path, whose release frees other elements and flushes their caches. It never flushes this one,
// because whoever flushes a cache holds a reference on its element or frees it. An item leaves the map before it dies
// all the same, so that the map is sound at every moment at which foreign code runs.
#include "PathItemCache.h"

#include <string_view>
#include <utility>

#include "KzAssert.h"

namespace {

// What an entry of the map counts for beside its item.
constexpr uInt64 kEntryBytes = 16;

bool IsFlushed(const PathCachedItem& item, int32 method)
{
    if (method != kFlushMetaDataAndOld && method != kFlushOld) {
        return true;
    }
    return item.Expired() || (method == kFlushMetaDataAndOld && item.Invalidate());
}

}  // namespace

PathCachedItem* PathItemCache::Find(const char* key) const
{
    KZ_ASSERT(key != nullptr);
    const auto it = mItems.find(std::string_view(key));
    return it == mItems.end() ? nullptr : it->second.get();
}

void PathItemCache::Put(const char* key, PathCachedItem* item)
{
    KZ_ASSERT(key != nullptr);
    auto it = mItems.find(std::string_view(key));
    if (it == mItems.end()) {
        if (item == nullptr) {
            return;
        }
        // The entry is made empty, because an entry that owned the item already would destroy it if memory ran out.
        it = mItems.emplace(key, nullptr).first;
    } else if (item == it->second.get()) {
        return;
    }
    if (item == nullptr) {
        const std::unique_ptr<PathCachedItem> old = std::move(it->second);
        mItems.erase(it);
        return;
    }
    // The old item dies before the new one hears that it was taken: an order that items can see.
    std::unique_ptr<PathCachedItem>(item).swap(it->second);
    item->Accepted();
}

uInt64 PathItemCache::Flush(int32 method)
{
    uInt64 bytes = 0;
    // The item is asked for its size before it dies, and dies after the iterator has moved on.
    for (auto it = mItems.begin(); it != mItems.end();) {
        if (!IsFlushed(*it->second, method)) {
            ++it;
            continue;
        }
        const std::unique_ptr<PathCachedItem> item = std::move(it->second);
        bytes += static_cast<uInt64>(item->Size()) + kEntryBytes;
        it = mItems.erase(it);
    }
    return bytes;
}

double PathItemCache::ItemSizes() const
{
    double bytes = 0;
    for (const auto& entry : mItems) {
        bytes += entry.second->Size();
    }
    return bytes;
}
