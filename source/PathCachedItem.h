// What a path's cache holds: items with a time to live, under text keys. Times are milliseconds on the clock of
// MilliSecs.
//
// Once the cache has taken an item, the item is touched and destroyed under PathRef::GetCacheMutex() only, so its
// members must neither make nor drop paths other than through CachedPath (PathCache.h).
#ifndef KZCORE_PATHCACHEDITEM_H
#define KZCORE_PATHCACHEDITEM_H

#include <string>
#include <utility>

#include "KZTypes.h"

// What every item has: when it expires, and whether a change of the file's metadata makes it wrong. PathRef::CachedItem
// is this class. An item that no cache has taken belongs to one thread.
class KZ_EXPORT PathCachedItem {
public:
    // Whether PathRef::FlushCache, which follows a change of the file, removes the item.
    enum RelationToMetaData : int32 { kDependsOnMetaData = 0, kIndependentOfMetaData = 1 };

    // `ttl`: the milliseconds from this moment until the item expires, up to half the clock's range.
    explicit PathCachedItem(int32 ttl, RelationToMetaData relation = kDependsOnMetaData);
    PathCachedItem(const PathCachedItem&) = delete;
    PathCachedItem& operator=(const PathCachedItem&) = delete;

    static const char* ClassName() { return "CachedItem"; }

    // True for the item's own class name and for "CachedItem"; false for null.
    virtual bool IsA(const char* className) const;
    virtual ~PathCachedItem() = default;
    // True from the end of the time to live on.
    virtual bool Expired() const;
    // True if a change of the file's metadata makes the item wrong.
    virtual bool Invalidate() const;
    // Starts the time to live anew, with `ttl` as in the constructor.
    virtual void Reset(int32 ttl);
    // Bytes, for the accounts of PathRef::MemorySize and of what a flush gives back.
    virtual int32 Size() const;
    // How many milliseconds past its expiry the item is, 0 before.
    virtual int32 Rotten() const;
    // Called by the cache as it takes the item, with the cache's lock held; from here on the item is the cache's.
    virtual void Accepted() {}

private:
    uInt32 mExpiry;    // on the clock of MilliSecs, which wraps
    bool mInvalidate;  // what Invalidate says
};

// The items that keep one value. Their classes are told apart by name, so a look-up gives a value only to who asks for
// the class that was stored. `Get` is for the cache's visitor, under the cache's lock.
class KZ_EXPORT CachedBool final : public PathCachedItem {
public:
    CachedBool(bool value, int32 ttl, RelationToMetaData relation) : PathCachedItem(ttl, relation), mValue(value) {}
    static const char* ClassName() { return "CachedBool"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 16; }
    bool Get() const { return mValue; }
    // Changes the value and starts the time to live anew.
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

// Keeps a text. Its size counts the room that the text has taken.
class KZ_EXPORT CachedPathString final : public PathCachedItem {
public:
    CachedPathString(std::string value, int32 ttl, RelationToMetaData relation)
        : PathCachedItem(ttl, relation), mValue(std::move(value))
    {}
    static const char* ClassName() { return "CachedPathString"; }
    bool IsA(const char* className) const override;
    int32 Size() const override { return 24 + static_cast<int32>(mValue.capacity()); }
    const std::string& Get() const { return mValue; }
    // Changes the text and starts the time to live anew.
    void ResetString(const std::string& value, int32 ttl);

private:
    std::string mValue;
};

namespace PathRefPrivate {

// Whether there was a file at the path when somebody looked, and of which kind.
class KZ_EXPORT CachedPathFlavor final : public PathCachedItem {
public:
    // A look-up that finds no item gives kAbsent too; its `found` tells the two apart.
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

#endif
