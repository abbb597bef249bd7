// The tree of elements: chains that come and go, collection, starts and stops, and what a fault leaves behind.
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

namespace {

using kztest::PathOf;

PathRef Deep(PathRef::PathBase base, int depth)
{
    PathRef path(base);
    for (int i = 0; i < depth; ++i) {
        path.Append("d");
    }
    return path;
}

class PathItemElementTest : public kztest::PathTest {
protected:
    PathItemElement* Base() { return PathItemStorage::Standard(PathRef::kAbsolute); }
    static int64 Live() { return kz::LivePathElementCount(); }

    const int64 mBefore = Live();
};

// A chain may have more names than a thread's stack has room for calls.
TEST_F(PathItemElementTest, DeepChains)
{
    EXPECT_TRUE(Deep(PathRef::kAbsolute, 512).IsSane(false));
    EXPECT_TRUE(Deep(PathRef::kAbsolute, 513).IsSane(false));
    EXPECT_EQ(mReports.TakeAll().size(), 1u);  // "Stopped sanity check because of very deep path."
    EXPECT_EQ(Deep(PathRef::kAbsolute, 100000).ItemCount(), 100000);
    EXPECT_EQ(Live(), mBefore);
}

// The first block holds the bases, another one the last path.
TEST_F(PathItemElementTest, CollectionFreesEmptyBlocksAndListsWhatIsHeld)
{
    const PathRef file = PathOf("/between/file");
    std::vector<PathRef> paths;
    for (int i = 0; i < 3 * PathItemStorage::kElements; ++i) {
        paths.push_back(PathOf("/n" + std::to_string(i)));
    }
    EXPECT_EQ(PathRef::GarbageCollect(1), 0u);
    const PathRef copies[] = {paths.back(), paths.back()};
    paths.clear();
    EXPECT_EQ(PathRef::GarbageCollect(0), 0u);
    mReports.TakeAll();
    EXPECT_EQ(PathRef::GarbageCollect(2), 2 * sizeof(PathItemStorage));
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 2 refs to n1535"));
    EXPECT_TRUE(mReports.Take(1, "Leaked Path Element: 1 refs to file"));
    EXPECT_FALSE(mReports.Take(1, "between"));
    EXPECT_TRUE(mReports.Take(1, "Path Garbage Collect: " + std::to_string(2 * sizeof(PathItemStorage)) + " bytes"));
    EXPECT_EQ(PathOf("/again").Name(), "again");
}

// The handler of a report may use paths, and keep them: each element is reported once all the same.
TEST_F(PathItemElementTest, CollectionWhileTheHandlerMakesPaths)
{
    static std::vector<PathRef> sKept;
    const std::vector<PathRef> held(600, PathOf("/held"));
    const DebugOutputHandler old = DebugOutputGetHandler();
    DebugOutputSetHandler([](const char*, int32, const char*, int32, uInt32, const char* text, uInt64) {
        if (std::strncmp(text, "Leaked", 6) == 0) {
            sKept.push_back(PathOf("/k" + std::to_string(sKept.size())));
        }
    });
    PathRef::GarbageCollect(2);
    DebugOutputSetHandler(old);
    EXPECT_TRUE(sKept.size() == 5 || sKept.size() == 6) << sKept.size();  // the bases too
    sKept = {};
    EXPECT_EQ(Live(), mBefore + 1);
}

// What the loop below does with a path that it keeps; what it throws is for want of memory.
KzErr UsePath(PathRef* path)
{
    path->Append("folder of a name that needs memory");
    for (int i = 0; i < 6; ++i) {
        path->Append(*path);
    }
    path->Replace(-2, "other");
    path->AssignToName("here");
    const PathRef here("here");
    auto item = std::make_unique<CachedPath>(here, 1000, PathCachedItem::kDependsOnMetaData);
    if (here.Cache("key", item.get()) == kzErrNone) {
        static_cast<void>(item.release());
    }
    *path = PathRef(here.ToString("pathref_unix"), "pathref_display");
    static_cast<void>(here.GetCached<PathRef, CachedPath>("key", nullptr, kSearchDescendants, path));
    path->Append("..");
    return kzErrNone;
}

// What fails is told, nothing stays behind, and the next start is a clean one: the tree's alone, and its service's. The
// stop allocates nothing, and tells of a path that is held.
TEST(PathStartAndStop, WithoutMemory)
{
    static int sLeft = 0;  // reports of what is left, which are counted because to keep them would allocate
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    DebugOutputSetHandler([](const char*, int32, const char*, int32 level, uInt32, const char* text, uInt64) {
        sLeft += level >= kDbgWarning && std::strstr(text, "memory") == nullptr;
    });
    ASSERT_EQ(DebugStreamService()->Init(), kzErrNone);  // as in the library's stop: without it a report allocates
    for (const bool isService : {false, true}) {
        kztest::FaultLoop([isService](auto failed) {
            PathManager_Service* service = nullptr;
            const KzErr err = kz::ErrOf("test", __LINE__, [&] {
                return isService ? (service = PathManagerService())->Init() : PathRef::Init();
            });
            EXPECT_TRUE(err == kzErrNone || (err == kzErrMemoryFull && failed()));
            EXPECT_EQ(kz::gPathsStepByCharacter, isService && err == kzErrNone);
            EXPECT_TRUE(isService || PathRef::Init() == err);
            EXPECT_EQ(PathRef::NotAPath() != nullptr, err == kzErrNone);
            PathRef held(PathRef::kRelative);
            EXPECT_TRUE(kz::ErrOf("test", __LINE__, [&] { return UsePath(&held); }) == kzErrNone || failed());
            if (isService) {
                held = nullptr;
            }
            const bool isHeld = held.Element() != nullptr;
            const bool hasFailed = failed();
            sLeft = 0;
            PathRef::GarbageCollect(2);
            EXPECT_EQ(service != nullptr ? service->Uninit() : PathRef::UnInit(), kzErrNone);
            EXPECT_TRUE(failed() == hasFailed && sLeft == isHeld);
            EXPECT_TRUE(kz::LivePathElementCount() == 0 && !kz::gPathsStepByCharacter);
        });
    }
    EXPECT_EQ(DebugStreamService()->Uninit(), kzErrNone);
    std::setlocale(LC_ALL, "C");
    DebugOutputSetHandler(nullptr);
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
    const PathRef old = PathOf("old");
    const PathRef other = PathOf("/[relative]");
    PathItemStorage::SetStandard(PathRef::kRelative, other.Element());
    EXPECT_TRUE(mReports.Take(2, "Possible threading issue, see documentation note for PathItemStorage::SetStandard!"));
    EXPECT_EQ(PathRef(PathRef::kRelative).Element(), other.Element());
    EXPECT_TRUE(old.IsValid());
    PathItemStorage::SetStandard(PathRef::kRelative, const_cast<PathItemElement*>(old.Element()->Root()));
    mReports.TakeAll();
}

TEST_F(PathItemElementTest, PathsThatOutliveTheTree)
{
    PathRef held = Deep(PathRef::kRelative, 100000);
    PathRef copied = held;
    EXPECT_EQ(held.AssignToName("here"), kzErrNone);
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "Possible path leak, unable to purge elements of base #1"));
    copied = held;
    EXPECT_TRUE(PathRef(held).Element() == nullptr && copied.Element() == nullptr);
    held = nullptr;
    EXPECT_TRUE(PathRef(PathRef::kAbsolute).Element() == nullptr && PathRef::NotAPath() == nullptr);
    EXPECT_TRUE(mReports.Take(2, "Call to GetNotAPath before PathRef::Init() or after PathRef::Uninit()?"));
    EXPECT_TRUE(PathRef::UnInit() == kzErrNone && Live() == 0);
    EXPECT_TRUE(PathRef::Init() == kzErrNone && PathRef::Init() == kzErrNone);
    EXPECT_EQ(Live(), mBefore);
    EXPECT_EQ(PathRef::NotAPath()->Element(), nullptr);
    EXPECT_EQ(kztest::Thrown([] { PathRef("here"); }).first, kzErrArgument);
    EXPECT_EQ(PathOf("/a").ItemCount(), 1);
}

TEST_F(PathItemElementTest, MemoryIsSharedOutAmongReferences)
{
    const PathRef path = PathOf("/shared");
    ASSERT_EQ(path.Cache("k", new CachedBool(true, 0, PathCachedItem::kDependsOnMetaData)), kzErrNone);
    const double alone = 4 * 6 + sizeof(PathItemElement) + 16 / 512.0 + 48 + 16;
    EXPECT_DOUBLE_EQ(path.Element()->MemorySize() - Base()->MemorySize(), alone);
    const PathRef copy = path;
    EXPECT_DOUBLE_EQ(path.Element()->MemorySize() - Base()->MemorySize(), alone / 2);
}

}  // namespace
