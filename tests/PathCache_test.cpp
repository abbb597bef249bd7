#include "PathCache.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "PathTesting.h"
#include "ScopedLock.h"
#include "SlotOf.h"

namespace {

using kztest::Describe;
using kztest::MakePath;

constexpr int32 kHour = 3600 * 1000;
constexpr auto kMeta = PathCachedItem::kDependsOnMetaData;
constexpr auto kFree = PathCachedItem::kIndependentOfMetaData;

class PathCacheTest : public kztest::PathTest {
protected:
    bool Holds(const PathRef& path, const char* key)
    {
        bool found = false;
        EXPECT_EQ((path.GetCached<bool, CachedBool>(key, &found, kSearchThisOnly, nullptr)), found);
        return found;
    }

    const PathRef mPath = MakePath(PathRef::kAbsolute, {"a", "b"});
};

TEST_F(PathCacheTest, OneItemForEachKey)
{
    EXPECT_FALSE(Holds(mPath, "k"));
    EXPECT_EQ(mPath.Cache("k", new CachedBool(true, kHour, kFree)), kzErrNone);
    EXPECT_TRUE(Holds(mPath, "k"));
    // An item of another class takes the first one's place.
    EXPECT_EQ(mPath.Cache("k", new CachedInt32(7, kHour, kFree)), kzErrNone);
    EXPECT_FALSE(Holds(mPath, "k"));
    EXPECT_EQ((mPath.GetCached<int32, CachedInt32>("k", nullptr, kSearchThisOnly, nullptr)), 7);
    EXPECT_EQ(mPath.Cache("k", nullptr), kzErrNone);
    EXPECT_EQ((mPath.GetCached<int32, CachedInt32>("k", nullptr, kSearchThisOnly, nullptr)), 0);

    const std::unique_ptr<CachedBool> refused(new CachedBool(true, 0, kFree));
    EXPECT_EQ(PathRef().Cache("k", refused.get()), kzErrArgument);
    EXPECT_EQ(mPath.Cache(nullptr, refused.get()), kzErrArgument);
}

TEST_F(PathCacheTest, TimeToLive)
{
    const CachedBool now(true, 0, kMeta);
    EXPECT_TRUE(now.Expired());
    CachedBool later(true, kHour, kFree);
    EXPECT_FALSE(later.Expired());
    EXPECT_FALSE(later.Invalidate());
    EXPECT_EQ(later.Rotten(), 0);
    later.ResetBool(false, -1000);
    EXPECT_TRUE(later.Expired());
    EXPECT_GE(later.Rotten(), 1000);
    EXPECT_FALSE(later.Get());
    EXPECT_EQ(mPath.Cache("k", new CachedBool(true, 0, kMeta)), kzErrNone);
    EXPECT_FALSE(Holds(mPath, "k"));
}

TEST_F(PathCacheTest, Classes)
{
    using Item = PathCachedItem;
    EXPECT_EQ(kztest::SlotsOf(&Item::IsA, &Item::Expired, &Item::Invalidate, &Item::Reset, &Item::Size, &Item::Rotten,
                              &Item::Accepted),
              (std::vector<long>{0, 3, 4, 5, 6, 7, 8}));
    const CachedPathString text(std::string(100, 't'), kHour, kMeta);
    EXPECT_TRUE(text.IsA("CachedPathString"));
    EXPECT_TRUE(text.IsA("CachedItem"));
    EXPECT_FALSE(text.IsA("CachedPath"));
    EXPECT_FALSE(text.IsA(nullptr));
    EXPECT_GE(text.Size(), 124);
    using PathRefPrivate::CachedPathFlavor;
    for (const auto flavor : {CachedPathFlavor::kAbsent, CachedPathFlavor::kFile, CachedPathFlavor::kDirectory}) {
        EXPECT_EQ(CachedPathFlavor(flavor, kHour, kMeta).Get(), flavor);
    }
}

TEST_F(PathCacheTest, LookUpAlongTheTree)
{
    const PathRef parent = mPath.GetParentDirectory();
    PathRef holder(1);
    EXPECT_EQ(parent.Cache("up", new CachedInt32(1, kHour, kFree)), kzErrNone);
    EXPECT_EQ((mPath.GetCached<int32, CachedInt32>("up", nullptr, kSearchAncestors, &holder)), 1);
    EXPECT_EQ(Describe(holder), "0[a]");
    EXPECT_EQ((mPath.GetCached<int32, CachedInt32>("up", nullptr, kSearchThisOnly, &holder)), 0);
    EXPECT_EQ(holder.Element(), nullptr);
    EXPECT_EQ(mPath.Cache("down", new CachedInt32(2, kHour, kFree)), kzErrNone);
    EXPECT_EQ((PathRef(0).GetCached<int32, CachedInt32>("down", nullptr, kSearchDescendants, &holder)), 2);
    EXPECT_EQ(Describe(holder), "0[a][b]");
    // The path that asks may also be the one that gets the answer.
    PathRef self = mPath;
    EXPECT_EQ((self.GetCached<int32, CachedInt32>("up", nullptr, kSearchAncestors, &self)), 1);
    EXPECT_EQ(Describe(self), "0[a]");
    EXPECT_EQ((PathRef().GetCached<int32, CachedInt32>("up", nullptr, kSearchAncestors, &self)), 0);
    EXPECT_EQ(self.Element(), nullptr);
}

TEST_F(PathCacheTest, Flushing)
{
    ASSERT_EQ(mPath.Cache("meta", new CachedBool(true, kHour, kMeta)), kzErrNone);
    ASSERT_EQ(mPath.Cache("free", new CachedBool(true, kHour, kFree)), kzErrNone);
    ASSERT_EQ(mPath.Cache("old", new CachedBool(true, 0, kFree)), kzErrNone);
    EXPECT_EQ(mPath.FlushCache(), 2u * (16 + 16));
    EXPECT_TRUE(Holds(mPath, "free"));
    EXPECT_FALSE(Holds(mPath, "meta"));
    ASSERT_EQ(mPath.GetParentDirectory().Cache("x", new CachedInt32(1, kHour, kFree)), kzErrNone);
    {
        const kz::ScopedLock lock(PathItemElement::mMutex);
        PathItemElement* const base = PathItemStorage::Standard(PathRef::kAbsolute);
        EXPECT_EQ(mPath.Element()->FlushCore(kFlushOld), 0u);
        EXPECT_EQ(base->FlushCore(kFlushSubtree), (16u + 16 + 48) + (24u + 16 + 48));
    }
    EXPECT_FALSE(Holds(mPath, "free"));
    EXPECT_EQ(PathRef().FlushCache(), 0u);
}

// The debug mode is for others to change, and for their paths to go by, during a look-up too.
TEST_F(PathCacheTest, LookUpsLeaveTheDebugModeAlone)
{
    class Switching : public PathCachedItem {
    public:
        using PathCachedItem::PathCachedItem;
        static const char* ClassName() { return "CachedItem"; }
        bool Expired() const override
        {
            stateSeen = kz::gPathState;
            PathRef::Setting("nodebug");
            return false;
        }
        uInt32 Get() const { return stateSeen; }
        mutable uInt32 stateSeen = 0;
    };
    ASSERT_EQ(mPath.Cache("k", new Switching(kHour, kFree)), kzErrNone);
    PathRef::Setting("debug");
    EXPECT_EQ((mPath.GetCached<uInt32, Switching>("k", nullptr, kSearchThisOnly, nullptr)),
              uInt32{kz::kPathsRun} | kz::kPathsDebug);
    EXPECT_EQ(kz::gPathState, uInt32{kz::kPathsRun});
}

// A flush from above reaches each element once, though the items that go hold one another's elements.
TEST_F(PathCacheTest, FlushOfAWholeTree)
{
    std::mt19937 random(8);
    const int64 before = kz::LivePathElementCount();
    for (const bool areHeld : {true, false}) {
        std::vector<PathRef> paths = {MakePath(PathRef::kAbsolute, {"root"})};
        for (int i = 0; i < 1000; ++i) {
            paths.push_back(paths[random() % paths.size()]);
            paths.back().Append("n" + std::to_string(i));
        }
        for (const PathRef& path : paths) {
            ASSERT_EQ(path.Cache("p", new CachedPath(paths[random() % paths.size()], kHour, kFree)), kzErrNone);
        }
        if (!areHeld) {
            paths.clear();
        }
        const int64 live = kz::LivePathElementCount() - before;
        EXPECT_GT(live, areHeld ? 1000 : 1);
        {
            const kz::ScopedLock lock(PathItemElement::mMutex);
            PathItemElement* const base = PathItemStorage::Standard(PathRef::kAbsolute);
            EXPECT_EQ(base->FlushCore(kFlushSubtree), static_cast<uInt64>(live) * (40 + 16 + 48));
        }
        EXPECT_EQ(kz::LivePathElementCount() - before, areHeld ? live : 0);
    }
}

// Items that hold paths are let go under the tree's lock, where their paths must not take it again.
TEST_F(PathCacheTest, PathsInTheCache)
{
    const int64 before = kz::LivePathElementCount();
    {
        const PathRef key = MakePath(PathRef::kAbsolute, {"key"});
        ASSERT_EQ(key.Cache("p", new CachedPath(MakePath(PathRef::kAbsolute, {"only", "here"}), kHour, kMeta)), 0);
        ASSERT_EQ(key.Cache("q", new CachedPath(MakePath(PathRef::kAbsolute, {"key", "below"}), kHour, kMeta)), 0);
        EXPECT_EQ(kz::LivePathElementCount(), before + 4);
        PathRef::Setting("debug");
        const auto found = key.GetCached<PathRef, CachedPath>("p", nullptr, kSearchThisOnly, nullptr);
        PathRef::Setting("nodebug");
        EXPECT_EQ(Describe(found), "0[only][here]");
        ASSERT_EQ(key.Cache("p", new CachedPath(key, kHour, kMeta)), 0);
        key.FlushCache();
        EXPECT_EQ(kz::LivePathElementCount(), before + 3);
        ASSERT_EQ(key.Cache("r", new CachedPath(MakePath(PathRef::kAbsolute, {"x", "y"}), kHour, kFree)), 0);
    }
    EXPECT_EQ(kz::LivePathElementCount(), before);
    EXPECT_TRUE(kz::PathTreeIsSane());
}

}  // namespace
