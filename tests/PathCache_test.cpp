#include "PathCache.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <tuple>

#include "PathTesting.h"
#include "ScopedLock.h"
#include "VirtualClock.h"

namespace {

using kztest::MakePath;
using PathRefPrivate::CachedPathFlavor;

constexpr int32 kHour = 3600 * 1000;
constexpr auto kMeta = PathCachedItem::kDependsOnMetaData;
constexpr auto kFree = PathCachedItem::kIndependentOfMetaData;

class PathCacheTest : public kztest::PathTest {
protected:
    const PathRef mPath = MakePath(PathRef::kAbsolute, {"a", "b"});
};

struct Kind {
    std::string name;
    int32 size;
    std::function<PathCachedItem*(int32 ttl, PathCachedItem::RelationToMetaData relation)> make;
    std::function<bool(const PathRef& path)> holds;  // whether a look-up by this class finds the item "k"
};

template <typename Item, typename T>
Kind KindOf(const T& value, int32 size)
{
    return {Item::ClassName(), size, [=](int32 ttl, auto relation) { return new Item(value, ttl, relation); },
            [=](const PathRef& path) {
                bool found = false;
                return path.GetCached<T, Item>("k", &found, kSearchThisOnly, nullptr) == value && found;
            }};
}

// A time to live across the clock's wrap; a look-up by one class finds no item of another.
TEST_F(PathCacheTest, KindsOfItems)
{
    const Kind kinds[] = {KindOf<CachedBool>(true, 16),
                          KindOf<CachedInt32>(7, 24),
                          KindOf<CachedPathString>(std::string(100, 't'), 124),
                          KindOf<CachedPath>(PathRef(1), 40),
                          KindOf<CachedPathFlavor>(CachedPathFlavor::kAbsent, 16),
                          KindOf<CachedPathFlavor>(CachedPathFlavor::kFile, 16),
                          KindOf<CachedPathFlavor>(CachedPathFlavor::kDirectory, 16)};
    for (const Kind& kind : kinds) {
        SCOPED_TRACE(kind.name);
        kztest::VirtualClock clock(0xFFFFFF00);
        PathCachedItem* const item = kind.make(1000, kFree);
        ASSERT_EQ(mPath.Cache("k", item), kzErrNone);
        for (const Kind& other : kinds) {
            EXPECT_EQ(item->IsA(other.name.c_str()), other.name == kind.name) << other.name;
            EXPECT_EQ(other.holds(mPath), &other == &kind) << other.name;
        }
        EXPECT_TRUE(item->IsA("CachedItem"));
        EXPECT_FALSE(item->IsA(nullptr));
        EXPECT_EQ(item->Size(), kind.size);
        for (const auto& [step, isExpired, rotten] : {std::tuple{999u, false, 0}, {1u, true, 0}, {1u, true, 1}}) {
            clock.Advance(step);
            EXPECT_EQ(item->Expired(), isExpired) << step;
            EXPECT_EQ(item->Rotten(), rotten) << step;
        }
        item->Reset(5);
        EXPECT_TRUE(kind.holds(mPath));
        EXPECT_FALSE(item->Invalidate());
        EXPECT_TRUE(std::unique_ptr<PathCachedItem>(kind.make(0, kMeta))->Invalidate());
    }
}

TEST_F(PathCacheTest, NewValues)
{
    CachedBool truth(true, 0, kFree);
    truth.ResetBool(false, kHour);
    CachedPathString text("old", 0, kFree);
    text.ResetString("new", kHour);
    EXPECT_TRUE(!truth.Get() && !truth.Expired() && text.Get() == "new" && !text.Expired());
    for (const bool isTaken : {false, true}) {
        auto* const item = new CachedPath(PathRef(1), 0, kFree);
        ASSERT_TRUE(!isTaken || mPath.Cache("p", item) == kzErrNone);
        {
            const kz::ScopedLock lock(isTaken ? PathRef::GetCacheMutex() : nullptr);
            item->ResetPath(mPath, kHour);
            EXPECT_FALSE(item->Expired());
        }
        EXPECT_EQ(item->Get().Element(), mPath.Element());
        EXPECT_EQ(isTaken ? mPath.Cache("p", nullptr) : (delete item, kzErrNone), kzErrNone);
        EXPECT_EQ(mPath.Element()->ReferenceCount(), 1);
    }
}

TEST_F(PathCacheTest, Flushing)
{
    ASSERT_EQ(mPath.Cache("meta", new CachedBool(true, kHour, kMeta)), kzErrNone);
    ASSERT_EQ(mPath.Cache("free", new CachedBool(true, kHour, kFree)), kzErrNone);
    ASSERT_EQ(mPath.Cache("old", new CachedBool(true, 0, kFree)), kzErrNone);
    EXPECT_EQ(mPath.FlushCache(), 2u * (16 + 16));
    ASSERT_EQ(mPath.Cache("meta", new CachedBool(true, kHour, kMeta)), kzErrNone);
    ASSERT_EQ(mPath.GetParentDirectory().Cache("x", new CachedInt32(1, kHour, kFree)), kzErrNone);
    {
        const kz::ScopedLock lock(PathItemElement::mMutex);
        EXPECT_EQ(mPath.Element()->FlushCore(kFlushOld), 0u);
        EXPECT_EQ(PathItemStorage::Standard(PathRef::kAbsolute)->FlushCore(kFlushSubtree),
                  (2 * (16u + 16) + 48) + (24u + 16 + 48));
    }
    EXPECT_EQ(PathRef().FlushCache(), 0u);
}

// The debug mode is for others to change, and for their paths to go by, during a look-up too.
TEST_F(PathCacheTest, LookUpsLeaveTheDebugModeAlone)
{
    class Switching : public PathCachedItem {
    public:
        using PathCachedItem::PathCachedItem;
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

}  // namespace
