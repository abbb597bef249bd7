#include "PathCache.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <type_traits>

#include "PathTesting.h"
#include "ScopedLock.h"
#include "VirtualClock.h"

namespace {

using PathRefPrivate::CachedPathFlavor;

constexpr int32 kHour = 3600 * 1000;
constexpr auto kMeta = PathCachedItem::kDependsOnMetaData;
constexpr auto kFree = PathCachedItem::kIndependentOfMetaData;

class PathCacheTest : public kztest::PathTest {
protected:
    // A kind of items: a time to live across the clock's wrap, and look-ups by its class alone.
    template <typename Item, typename T>
    void CheckKind(const T& value, int32 size)
    {
        using Other = std::conditional_t<std::is_same_v<Item, CachedBool>, CachedInt32, CachedBool>;
        SCOPED_TRACE(Item::ClassName());
        kztest::VirtualClock clock(0xFFFFFF00);
        auto* const item = new Item(value, 1000, kFree);
        ASSERT_EQ(mPath.Cache("k", item), kzErrNone);
        const std::string own = Item::ClassName();
        for (const char* name : {"CachedBool", "CachedInt32", "CachedPathString", "CachedPath", "CachedPathFlavor"}) {
            EXPECT_EQ(item->IsA(name), name == own) << name;
        }
        EXPECT_TRUE(item->IsA("CachedItem") && !item->IsA(nullptr));
        EXPECT_EQ(item->Size(), size);
        bool found = false;
        EXPECT_TRUE((mPath.GetCached<T, Item>("k", &found, kSearchThisOnly, nullptr)) == value && found);
        mPath.GetCached<int32, Other>("k", &found, kSearchThisOnly, nullptr);
        EXPECT_FALSE(found);
        for (const auto& [step, isExpired, rotten] : {std::tuple{999u, false, 0}, {1u, true, 0}, {1u, true, 1}}) {
            clock.Advance(step);
            EXPECT_TRUE(item->Expired() == isExpired && item->Rotten() == rotten) << rotten;
        }
        item->Reset(5);
        EXPECT_FALSE(item->Expired() || item->Invalidate());
        EXPECT_TRUE(std::make_unique<Item>(value, 0, kMeta)->Invalidate());
    }

    const PathRef mPath = kztest::PathOf("/a/b");
};

TEST_F(PathCacheTest, KindsOfItems)
{
    CheckKind<CachedBool>(true, 16);
    CheckKind<CachedInt32>(7, 24);
    CheckKind<CachedPathString>(std::string(100, 't'), 124);
    CheckKind<CachedPath>(PathRef(1), 40);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kAbsent, 16);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kFile, 16);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kDirectory, 16);
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
        }
        EXPECT_TRUE(!item->Expired() && item->Get().Element() == mPath.Element());
        EXPECT_EQ(isTaken ? mPath.Cache("p", nullptr) : (delete item, kzErrNone), kzErrNone);
        EXPECT_EQ(mPath.Element()->ReferenceCount(), 1);
    }
}

// An item counts for its own bytes and 16, the last one of a path for 48 more.
TEST_F(PathCacheTest, Flushing)
{
    ASSERT_EQ(mPath.Cache("meta", new CachedBool(true, kHour, kMeta)), kzErrNone);
    ASSERT_EQ(mPath.Cache("free", new CachedBool(true, kHour, kFree)), kzErrNone);
    ASSERT_EQ(mPath.Cache("old", new CachedBool(true, 0, kFree)), kzErrNone);
    EXPECT_EQ(mPath.FlushCache(), 2u * (16 + 16));
    ASSERT_EQ(mPath.Cache("meta", new CachedBool(true, kHour, kMeta)), kzErrNone);
    ASSERT_EQ(mPath.GetParentDirectory().Cache("x", new CachedInt32(1, kHour, kFree)), kzErrNone);
    const kz::ScopedLock lock(PathItemElement::mMutex);
    EXPECT_EQ(mPath.Element()->FlushCore(kFlushOld), 0u);
    EXPECT_EQ(PathItemStorage::Standard(PathRef::kAbsolute)->FlushCore(kFlushSubtree),
              (2 * (16u + 16) + 48) + (24u + 16 + 48));
}

// The debug mode is for others to change, and for their paths to go by, during a look-up too.
TEST_F(PathCacheTest, LookUpsLeaveTheDebugModeAlone)
{
    struct Switching : PathCachedItem {
        using PathCachedItem::PathCachedItem;
        bool Expired() const override
        {
            stateSeen = kz::gPathState;
            return PathRef::Setting("nodebug"), false;
        }
        uInt32 Get() const { return stateSeen; }
        mutable uInt32 stateSeen = 0;
    };
    ASSERT_EQ(mPath.Cache("k", new Switching(kHour, kFree)), kzErrNone);
    PathRef::Setting("debug");
    EXPECT_EQ((mPath.GetCached<uInt32, Switching>("k", nullptr, kSearchThisOnly, nullptr)), 3u);
    EXPECT_EQ(kz::gPathState, uInt32{kz::kPathsRun});
}

}  // namespace
