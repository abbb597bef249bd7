// The cache that each path element carries: items with a time to live, under text keys. All paths to the element share
// it. Times are milliseconds on the clock of MilliSecs.
//
// Once the cache has taken an item, the item is touched and destroyed under PathRef::GetCacheMutex() only, so its
// members must neither make nor drop paths other than through CachedPath.
#ifndef KZCORE_PATHCACHE_H
#define KZCORE_PATHCACHE_H

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "KZTypes.h"
#include "PathRef.h"

// What every item has: when it expires, and whether a change of the file's metadata makes it wrong. PathRef::CachedItem
// is this class.
class KZ_EXPORT PathCachedItem {
public:
    enum RelationToMetaData : int32 { kDependsOnMetaData = 0, kIndependentOfMetaData = 1 };

    explicit PathCachedItem(int32 ttl, RelationToMetaData relation = kDependsOnMetaData);
    PathCachedItem(const PathCachedItem&) = delete;
    PathCachedItem& operator=(const PathCachedItem&) = delete;

    static const char* ClassName() { return "CachedItem"; }

    // True for the item's own class name and for "CachedItem".
    virtual bool IsA(const char* className) const;
    virtual ~PathCachedItem() = default;
    virtual bool Expired() const;
    // True if a change of the file's metadata makes the item wrong.
    virtual bool Invalidate() const;
    // Starts the time to live anew.
    virtual void Reset(int32 ttl);
    // Bytes, for accounting.
    virtual int32 Size() const;
    // How far past its expiry the item is, 0 before.
    virtual int32 Rotten() const;
    // Called by the cache as it takes the item.
    virtual void Accepted() {}

private:
    uInt32 mExpiry;
    bool mInvalidate;
};

class KZ_EXPORT CachedBool final : public PathCachedItem {
public:
    CachedBool(bool value, int32 ttl, RelationToMetaData relation) : PathCachedItem(ttl, relation), mValue(value) {}
    static const char* ClassName() { return "CachedBool"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 16; }
    bool Get() const { return mValue; }
    void ResetBool(bool value, int32 ttl);

private:
    bool mValue;
};

class KZ_EXPORT CachedInt32 final : public PathCachedItem {
public:
    CachedInt32(int32 value, int32 ttl, RelationToMetaData relation) : PathCachedItem(ttl, relation), mValue(value) {}
    static const char* ClassName() { return "CachedInt32"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 24; }
    int32 Get() const { return mValue; }

private:
    int32 mValue;
};

class KZ_EXPORT CachedPathString final : public PathCachedItem {
public:
    CachedPathString(std::string value, int32 ttl, RelationToMetaData relation)
        : PathCachedItem(ttl, relation), mValue(std::move(value))
    {}
    static const char* ClassName() { return "CachedPathString"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 24 + static_cast<int32>(mValue.capacity()); }
    const std::string& Get() const { return mValue; }
    void ResetString(const std::string& value, int32 ttl);

private:
    std::string mValue;
};

class KZ_EXPORT CachedPath final : public PathCachedItem {
public:
    CachedPath(const PathRef& value, int32 ttl, RelationToMetaData relation)
        : PathCachedItem(ttl, relation), mValue(value)
    {}
    ~CachedPath() override;
    static const char* ClassName() { return "CachedPath"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 40; }
    void Accepted() override { mAccepted = true; }
    const PathRef& Get() const { return mValue; }
    void ResetPath(const PathRef& value, int32 ttl);

private:
    PathRef mValue;
    bool mAccepted = false;  // in the cache: the tree's lock is held whenever the path is let go
};

namespace PathRefPrivate {

// Whether there was a file at the path when somebody looked, and of which kind.
class KZ_EXPORT CachedPathFlavor final : public PathCachedItem {
public:
    enum Flavor : int32 { kAbsent = 0, kFile = 1, kDirectory = 2 };

    CachedPathFlavor(Flavor flavor, int32 ttl, RelationToMetaData relation)
        : PathCachedItem(ttl, relation), mIsFile(flavor == kFile), mIsDirectory(flavor == kDirectory)
    {}
    static const char* ClassName() { return "CachedPathFlavor"; }
    bool IsA(const char* className) const override;
    Flavor Get() const { return mIsFile ? kFile : mIsDirectory ? kDirectory : kAbsent; }

private:
    bool mIsFile;
    bool mIsDirectory;
};

}  // namespace PathRefPrivate

// The items of one element; owns them.
struct PathItemCache {
    std::map<std::string, PathCachedItem*, std::less<>> items;
};

template <typename T, typename ItemClass>
T PathRef::GetCached(const char* key, bool* found, SearchDirection direction, PathRef* holder) const
{
    T value{};
    const bool hit = VisitCached(
        key, ItemClass::ClassName(), direction, holder,
        [](CachedItem* item, void* context) {
            *static_cast<T*>(context) = static_cast<T>(static_cast<ItemClass*>(item)->Get());
        },
        &value);
    if (found != nullptr) {
        *found = hit;
    }
    return value;
}

#endif
