#include "PathItemElement.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "DebugStreamService.h"
#include "FaultLoop.h"
#include "PathCache.h"
#include "PathTesting.h"
#include "ScopedLock.h"
#include "StringUtils.h"

namespace {

using kztest::MakePath;

class PathItemElementTest : public kztest::PathTest {
protected:
    PathItemElement* Base() { return PathItemStorage::Standard(PathRef::kAbsolute); }

    const int64 mBefore = kz::LivePathElementCount();
};

TEST_F(PathItemElementTest, OneElementForEachName)
{
    const PathRef first = MakePath(PathRef::kAbsolute, {"usr"});
    const PathRef again = MakePath(PathRef::kAbsolute, {"usr"});
    EXPECT_EQ(first.Element(), again.Element());
    EXPECT_EQ(first.Element()->ReferenceCount(), 2);
    EXPECT_NE(first.Element(), MakePath(PathRef::kAbsolute, {"USR"}).Element());
}

TEST_F(PathItemElementTest, SiblingsOfOneHashAreAllFound)
{
    std::vector<std::string> names = {"aaqq", "aara", "aau1", "abaq", "abba"};
    for (const std::string& name : names) {
        ASSERT_EQ(StringUtils::Hash(name, false), StringUtils::Hash(names[0], false));
    }
    for (int i = 0; i < 40; ++i) {
        names.push_back("neighbour" + std::to_string(i));
    }
    std::vector<PathItemElement*> made;
    for (const std::string& name : names) {
        made.push_back(Base()->CreateChild(name));
        ASSERT_TRUE(kz::PathTreeIsSane());
    }
    for (size_t i = 0; i < names.size(); ++i) {
        size_t index = 0;
        const int32 hash = static_cast<int32>(StringUtils::Hash(names[i], false));
        const kz::ScopedLock lock(PathItemElement::mMutex);
        EXPECT_EQ(Base()->FindChild(names[i], hash, &index), made[i]);
        EXPECT_EQ(Base()->FindChild(made[i], &index), made[i]);
    }
    for (PathItemElement* element : made) {
        element->ReleaseCore(false);
        ASSERT_TRUE(kz::PathTreeIsSane());
    }
}

// The deepest ones have more names than a thread's stack has room for calls.
TEST_F(PathItemElementTest, ReleasingALeafFreesItsChain)
{
    for (const int depth : {1, 199, 200, 100000}) {
        PathRef path = MakePath(PathRef::kAbsolute, std::vector<std::string>(static_cast<size_t>(depth), "d"));
        PathRef held = MakePath(PathRef::kAbsolute, {"d"});
        EXPECT_EQ(kz::LivePathElementCount(), mBefore + depth);
        EXPECT_TRUE(path.IsSane(false));
        EXPECT_EQ(mReports.Take(2, "Stopped sanity check because of very deep path."), depth > 512);
        path = nullptr;
        EXPECT_EQ(kz::LivePathElementCount(), mBefore + 1) << depth;
        EXPECT_TRUE(kz::PathTreeIsSane());
        held = nullptr;
        EXPECT_EQ(kz::LivePathElementCount(), mBefore);
    }
}

TEST_F(PathItemElementTest, CollectionFreesEmptyBlocks)
{
    std::vector<PathRef> paths;
    for (int i = 0; i < 3 * PathItemStorage::kElements; ++i) {
        paths.push_back(MakePath(PathRef::kAbsolute, {"n" + std::to_string(i)}));
    }
    EXPECT_EQ(PathRef::GarbageCollect(1), 0u);
    PathRef last = paths.back();
    paths.clear();
    EXPECT_EQ(PathRef::GarbageCollect(0), 0u);
    EXPECT_TRUE(mReports.Take(1, "Path Garbage Collect: 0 bytes reclaimed"));
    // The first block holds the bases, another one the last path.
    EXPECT_EQ(PathRef::GarbageCollect(1), 2 * sizeof(PathItemStorage));
    EXPECT_EQ(last.Name(), "n1535");
    last = nullptr;
    EXPECT_EQ(PathRef::GarbageCollect(1), sizeof(PathItemStorage));
    EXPECT_EQ(MakePath(PathRef::kAbsolute, {"again"}).Name(), "again");
}

TEST_F(PathItemElementTest, CollectionListsWhatIsHeld)
{
    const PathRef folder = MakePath(PathRef::kAbsolute, {"folder"});
    const PathRef copy = folder;
    const PathRef file = MakePath(PathRef::kAbsolute, {"between", "file"});
    PathRef::GarbageCollect(2);
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 2 refs to folder"));
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 1 refs to file"));
    EXPECT_FALSE(mReports.Take(1, "between"));
}

// The handler of a report may use paths, and keep them: each element is reported once all the same.
TEST_F(PathItemElementTest, CollectionWhileTheHandlerMakesPaths)
{
    static std::vector<PathRef>* sKept = nullptr;
    std::vector<PathRef> kept;
    sKept = &kept;
    const std::vector<PathRef> held(600, MakePath(PathRef::kAbsolute, {"held"}));
    const DebugOutputHandler old = DebugOutputGetHandler();
    DebugOutputSetHandler([](const char*, int32, const char*, int32, uInt32, const char* text, uInt64) {
        if (std::strncmp(text, "Leaked", 6) == 0) {
            sKept->push_back(MakePath(PathRef::kAbsolute, {"k" + std::to_string(sKept->size())}));
        }
    });
    PathRef::GarbageCollect(2);
    DebugOutputSetHandler(old);
    EXPECT_GE(kept.size(), 5u);  // the bases too
    EXPECT_LE(kept.size(), 6u);
    kept.clear();
    EXPECT_EQ(kz::LivePathElementCount(), mBefore + 1);
}

// Counts the reports of things that are left, and allocates nothing.
struct LeftCounter {
    LeftCounter()
    {
        sCount = 0;
        DebugOutputSetHandler([](const char*, int32, const char*, int32 level, uInt32, const char* text, uInt64) {
            sCount += level >= kDbgWarning && std::strstr(text, "memory") == nullptr;
        });
    }
    ~LeftCounter() { DebugOutputSetHandler(nullptr); }
    static inline int sCount = 0;
};

// What fails is told, nothing stays behind, and the next start is a clean one.
TEST(PathStartAndStop, WithoutMemory)
{
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const LeftCounter reports;
    kztest::FaultLoop([](auto failed) {
        const KzErr err = PathRef::Init();
        EXPECT_TRUE(err == kzErrNone || (err == kzErrMemoryFull && failed()));
        EXPECT_EQ(PathRef::Init(), err);
        try {
            PathRef path(PathRef::kAbsolute);
            path.Append("folder of a name that needs memory");
            EXPECT_TRUE(path.AssignToName("here") == kzErrNone || failed());
            const PathRef here("here");
            auto item = std::make_unique<CachedPath>(here, 1000, PathCachedItem::kDependsOnMetaData);
            if (here.Cache("key", item.get()) == kzErrNone) {
                static_cast<void>(item.release());
            }
            static_cast<void>(here.GetCached<PathRef, CachedPath>("key", nullptr, kSearchAncestors, &path));
            path.Append("..");
        } catch (const ZVExcept&) {
            EXPECT_TRUE(failed());
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(failed());
        }
        PathRef::GarbageCollect(2);
        EXPECT_EQ(PathRef::UnInit(), kzErrNone);
        EXPECT_EQ(kz::LivePathElementCount(), 0);
    });
    EXPECT_EQ(reports.sCount, 0);
    KZAppInterfaceSet(nullptr);
}

// With paths held, items cached and names given, in deep and wide places.
TEST(PathStartAndStop, AStopAllocatesNothing)
{
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const LeftCounter reports;
    ASSERT_EQ(DebugStreamService()->Init(), kzErrNone);  // as in the library's stop: without it a report allocates
    ASSERT_EQ(PathRef::Init(), kzErrNone);
    std::vector<PathRef> held;
    for (int i = 0; i < 2000; ++i) {
        PathRef path = i % 3 == 0 || held.empty() ? PathRef(i % 2) : held.back();
        path.Append("n" + std::to_string(i));
        ASSERT_EQ(path.Cache("p", new CachedPath(path, 1000, PathCachedItem::kDependsOnMetaData)), kzErrNone);
        ASSERT_EQ(path.AssignToName(path.Name().c_str()), kzErrNone);
        held.push_back(path);
    }
    {
        const kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood, kztest::FailAllocation::kBlocksAndNew);
        PathRef::GarbageCollect(2);
        EXPECT_EQ(PathRef::UnInit(), kzErrNone);
        EXPECT_FALSE(kztest::FailAllocation::Happened());
    }
    EXPECT_EQ(kz::LivePathElementCount(), 0);
    EXPECT_EQ(reports.sCount, 2);  // of the bases with paths below
    EXPECT_EQ(DebugStreamService()->Uninit(), kzErrNone);
    KZAppInterfaceSet(nullptr);
}

TEST_F(PathItemElementTest, OneReleaseTooMany)
{
    PathItemElement* const element = Base()->CreateChild("once");
    element->ReleaseCore(false);
    element->ReleaseCore(false);
    EXPECT_TRUE(mReports.Take(1, "name= once"));
    EXPECT_TRUE(mReports.Take(1, "count= 0"));
    EXPECT_TRUE(mReports.Take(2, "Release of PathItemElement, but we did not have enough retains"));
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "Deleting PathItemElement with outstanding references = -1"));
    EXPECT_EQ(PathRef::Init(), kzErrNone);
}

TEST_F(PathItemElementTest, ABaseSetLateIsTakenWithAWarning)
{
    const PathRef old = MakePath(PathRef::kRelative, {"old"});
    const PathRef other = MakePath(PathRef::kAbsolute, {"[relative]"});
    PathItemStorage::SetStandard(PathRef::kRelative, other.Element());
    EXPECT_TRUE(mReports.Take(2, "Possible threading issue, see documentation note for PathItemStorage::SetStandard!"));
    EXPECT_EQ(PathRef(PathRef::kRelative).Element(), other.Element());
    EXPECT_TRUE(old.IsValid());
    PathItemStorage::SetStandard(PathRef::kRelative, const_cast<PathItemElement*>(old.Element()->Root()));
    mReports.TakeAll();
}

TEST_F(PathItemElementTest, PathsThatOutliveTheTree)
{
    PathRef held = MakePath(PathRef::kRelative, std::vector<std::string>(100000, "d"));
    PathRef copied = held;
    EXPECT_EQ(copied.AssignToName("here"), kzErrNone);
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "Possible path leak, unable to purge elements of base #1"));
    EXPECT_EQ(PathRef(held).Element(), nullptr);
    copied = held;
    EXPECT_EQ(copied.Element(), nullptr);
    held = nullptr;
    EXPECT_EQ(PathRef(PathRef::kAbsolute).Element(), nullptr);
    EXPECT_EQ(PathRef::NotAPath(), nullptr);
    EXPECT_TRUE(mReports.Take(2, "Call to GetNotAPath before PathRef::Init() or after PathRef::Uninit()?"));
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_EQ(kz::LivePathElementCount(), 0);
    EXPECT_EQ(PathRef::Init(), kzErrNone);
    EXPECT_EQ(PathRef::Init(), kzErrNone);
    EXPECT_EQ(kz::LivePathElementCount(), mBefore);
    EXPECT_EQ(PathRef::NotAPath()->Element(), nullptr);
    EXPECT_EQ(kztest::Thrown([] { PathRef("here"); }), kzErrArgument);
    EXPECT_EQ(MakePath(PathRef::kAbsolute, {"a"}).ItemCount(), 1);
}

TEST_F(PathItemElementTest, MemoryIsSharedOutAmongReferences)
{
    const PathRef path = MakePath(PathRef::kAbsolute, {"shared"});
    const auto ownShare = [&] { return path.Element()->MemorySize() - Base()->MemorySize(); };
    const double alone = ownShare();
    EXPECT_DOUBLE_EQ(alone, 4 * 6 + sizeof(PathItemElement) + 16 / 512.0);
    const PathRef copy = path;
    EXPECT_DOUBLE_EQ(ownShare(), alone / 2);
}

// Made for the thread sanitizer: elements that threads meet on come and go while blocks are collected.
TEST_F(PathItemElementTest, ThreadsMakeCopyAndDrop)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    const PathRef shared = MakePath(PathRef::kAbsolute, {"data", "shared"});
    std::atomic<int> running{kThreads};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const std::string name = "y" + std::to_string((i + t) % 5);
                const std::string text = "/data/x" + std::to_string(i % 7) + "/" + name;
                const PathRef path(text, "pathref_unix");
                PathRef copy = path;
                copy.Append("..");
                copy.Append(name);
                wrong += copy.Element() == path.Element() && copy.ToString("pathref_unix") == text ? 0 : 1;
                copy = shared;
                copy.FlushCache();
                static_cast<void>(path.GetCached<bool, CachedBool>("none", nullptr, kSearchAncestors, nullptr));
            }
            --running;
        });
    }
    for (int32 method = 1; running > 0; method = 3 - method) {
        PathRef::GarbageCollect(method);
        mReports.TakeAll();
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(kz::LivePathElementCount(), mBefore + 2);
}

}  // namespace
