#include "PathItemElement.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <memory>

#include "DebugStreamService.h"
#include "FaultLoop.h"
#include "PathCache.h"
#include "PathManager.h"
#include "PathStepMode.h"
#include "PathTesting.h"
#include "zvexcept.h"

namespace {

using kztest::MakePath;

class PathItemElementTest : public kztest::PathTest {
protected:
    PathItemElement* Base() { return PathItemStorage::Standard(PathRef::kAbsolute); }

    const int64 mBefore = kz::LivePathElementCount();
};

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

TEST_F(PathItemElementTest, CollectionFreesEmptyBlocksAndListsWhatIsHeld)
{
    const PathRef file = MakePath(PathRef::kAbsolute, {"between", "file"});
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
    PathRef copy = last;
    EXPECT_EQ(PathRef::GarbageCollect(2), 2 * sizeof(PathItemStorage));
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 2 refs to n1535"));
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 1 refs to file"));
    EXPECT_FALSE(mReports.Take(1, "between"));
    last = copy = nullptr;
    EXPECT_EQ(PathRef::GarbageCollect(1), sizeof(PathItemStorage));
    EXPECT_EQ(MakePath(PathRef::kAbsolute, {"again"}).Name(), "again");
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

// What the loops below do with paths; what it throws is for want of memory.
void UsePaths()
{
    PathRef path(PathRef::kRelative);
    path.Append("folder of a name that needs memory");
    for (int i = 0; i < 6; ++i) {
        path.Append(path);
    }
    path.Replace(-2, "other");
    path.AssignToName("here");
    const PathRef here("here");
    auto item = std::make_unique<CachedPath>(here, 1000, PathCachedItem::kDependsOnMetaData);
    if (here.Cache("key", item.get()) == kzErrNone) {
        static_cast<void>(item.release());
    }
    path = PathRef(here.ToString("pathref_unix"), "pathref_display");
    static_cast<void>(here.GetCached<PathRef, CachedPath>("key", nullptr, kSearchDescendants, &path));
    path.Append("..");
}

// What fails is told, nothing stays behind, and the next start is a clean one: the tree's alone, and its service's.
TEST(PathStartAndStop, WithoutMemory)
{
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const LeftCounter reports;
    for (const bool isService : {false, true}) {
        kztest::FaultLoop([isService](auto failed) {
            PathManager_Service* service = nullptr;
            const KzErr err = kz::ErrOf("test", __LINE__, [&]() -> KzErr {
                return isService ? (service = PathManagerService())->Init() : PathRef::Init();
            });
            EXPECT_TRUE(err == kzErrNone || (err == kzErrMemoryFull && failed()));
            EXPECT_EQ(kz::gPathsStepByCharacter, isService && err == kzErrNone);
            EXPECT_TRUE(isService || PathRef::Init() == err);
            const KzErr thrown = kz::ErrOf("test", __LINE__, []() -> KzErr { return UsePaths(), kzErrNone; });
            EXPECT_TRUE(thrown == kzErrNone || failed());
            PathRef::GarbageCollect(2);
            EXPECT_EQ(service != nullptr ? service->Uninit() : PathRef::UnInit(), kzErrNone);
            EXPECT_FALSE(kz::gPathsStepByCharacter);
            EXPECT_EQ(kz::LivePathElementCount(), 0);
        });
    }
    EXPECT_EQ(reports.sCount, 0);
    std::setlocale(LC_ALL, "C");
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

}  // namespace
