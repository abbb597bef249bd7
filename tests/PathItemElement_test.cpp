#include "PathItemElement.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "PathTesting.h"
#include "StringUtils.h"

namespace {

using kztest::MakePath;

class PathItemElementTest : public kztest::PathTest {
protected:
    PathItemElement* Base() { return PathItemStorage::Standard(PathRef::kAbsolute); }
};

// Enough names that share one hash to have several of them on either side of a search's middle.
std::vector<std::string> CollidingNames()
{
    std::map<uInt32, std::vector<std::string>> byHash;
    for (int i = 0; i < 256 * 256 * 16; ++i) {
        const std::string name = {static_cast<char>('a' + i / 65536), static_cast<char>(1 + i / 256 % 255),
                                  static_cast<char>(1 + i % 255)};
        auto& names = byHash[StringUtils::Hash(name, false)];
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
        if (names.size() == 5) {
            return names;
        }
    }
    return {};
}

TEST_F(PathItemElementTest, OneElementForEachName)
{
    PathItemElement* const first = Base()->CreateChild("usr");
    PathItemElement* const again = Base()->CreateChild("usr");
    PathItemElement* const other = Base()->CreateChild("USR");
    EXPECT_EQ(first, again);
    EXPECT_EQ(first->ReferenceCount(), 2);
    EXPECT_NE(first, other);
    for (PathItemElement* element : {first, again, other}) {
        element->ReleaseCore(false);
    }
}

TEST_F(PathItemElementTest, SiblingsOfOneHashAreAllFound)
{
    std::vector<std::string> names = CollidingNames();
    ASSERT_EQ(names.size(), 5u);
    for (int i = 0; i < 40; ++i) {
        names.push_back("neighbour" + std::to_string(i));  // hashes around them, of both signs
    }
    std::vector<PathItemElement*> made;
    for (const std::string& name : names) {
        made.push_back(Base()->CreateChild(name));
        ASSERT_TRUE(kz::PathTreeIsSane());
    }
    for (size_t i = 0; i < names.size(); ++i) {
        size_t index = 0;
        const int32 hash = static_cast<int32>(StringUtils::Hash(names[i], false));
        EXPECT_EQ(Base()->FindChild(names[i], hash, &index), made[i]);
        EXPECT_EQ(Base()->FindChild(made[i], &index), made[i]);
    }
    for (PathItemElement* element : made) {
        element->ReleaseCore(false);
        ASSERT_TRUE(kz::PathTreeIsSane());
    }
}

TEST_F(PathItemElementTest, ReleasingALeafFreesItsChain)
{
    const int64 before = kz::LivePathElementCount();
    for (const int depth : {1, 198, 199, 200, 201, 1000}) {
        PathRef path(PathRef::kAbsolute);
        for (int i = 0; i < depth; ++i) {
            path.Append("d");
        }
        PathRef held = MakePath(PathRef::kAbsolute, {"d"});
        EXPECT_EQ(kz::LivePathElementCount(), before + depth);
        path = nullptr;
        EXPECT_EQ(kz::LivePathElementCount(), before + 1) << depth;
        EXPECT_TRUE(kz::PathTreeIsSane());
        held = nullptr;
        EXPECT_EQ(kz::LivePathElementCount(), before);
        mReports.TakeAll();  // a sound deep chain is reported as suspicious
    }
    EXPECT_TRUE(Base()->InUse());
}

TEST_F(PathItemElementTest, AVeryDeepChainNeedsNoStack)
{
    const int64 before = kz::LivePathElementCount();
    PathRef path(PathRef::kRelative);
    for (int i = 0; i < 100000; ++i) {
        path.Append("d");
    }
    EXPECT_EQ(path.ItemCount(), 100000);
    EXPECT_TRUE(path.IsSane(false));
    EXPECT_TRUE(mReports.Take(2, "Stopped sanity check because of very deep path."));
    path = nullptr;
    EXPECT_EQ(kz::LivePathElementCount(), before);
}

TEST_F(PathItemElementTest, AVeryDeepLeakIsPurged)
{
    PathRef path(PathRef::kRelative);
    for (int i = 0; i < 100000; ++i) {
        path.Append("d");
    }
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "Possible path leak, unable to purge elements of base #1"));
    path = nullptr;
    EXPECT_EQ(PathRef::Init(), kzErrNone);
}

TEST_F(PathItemElementTest, CollectionFreesEmptyBlocks)
{
    EXPECT_EQ(PathRef::GarbageCollect(0), 0u);
    EXPECT_TRUE(mReports.Take(1, "Path Garbage Collect: 0 bytes reclaimed"));
    std::vector<PathRef> paths;
    for (int i = 0; i < 3 * PathItemStorage::kElements; ++i) {
        paths.push_back(MakePath(PathRef::kAbsolute, {"n" + std::to_string(i)}));
    }
    EXPECT_EQ(PathRef::GarbageCollect(1), 0u);
    PathRef last = paths.back();
    paths.clear();
    EXPECT_EQ(PathRef::GarbageCollect(0), 0u);
    // The first block holds the bases, another one the last path.
    EXPECT_EQ(PathRef::GarbageCollect(1), 2 * sizeof(PathItemStorage));
    EXPECT_EQ(last.Name(), "n1535");
    last = nullptr;
    mReports.TakeAll();
    EXPECT_EQ(PathRef::GarbageCollect(1), sizeof(PathItemStorage));
    EXPECT_TRUE(
        mReports.Take(1, "Path Garbage Collect: " + std::to_string(sizeof(PathItemStorage)) + " bytes reclaimed"));
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

TEST_F(PathItemElementTest, APathThatOutlivesTheTree)
{
    PathRef held = MakePath(PathRef::kAbsolute, {"held", "path"});
    PathRef copied = held;
    EXPECT_EQ(PathRef::UnInit(), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "Possible path leak, unable to purge elements of base #0"));
    EXPECT_EQ(PathRef(held).Element(), nullptr);
    copied = held;
    EXPECT_EQ(copied.Element(), nullptr);
    held = nullptr;
    EXPECT_EQ(PathRef(PathRef::kAbsolute).Element(), nullptr);
    EXPECT_EQ(PathRef::Init(), kzErrNone);
    EXPECT_EQ(MakePath(PathRef::kAbsolute, {"held"}).ItemCount(), 1);
}

TEST_F(PathItemElementTest, RestartsLeaveNothingBehind)
{
    const int64 before = kz::LivePathElementCount();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(MakePath(PathRef::kAbsolute, {"a"}).AssignToName("here"), kzErrNone);
        PathRef::Setting("debug");
        PathRef::Setting("nodebug");
        EXPECT_EQ(PathRef::Init(), kzErrNone);
        EXPECT_EQ(PathRef::UnInit(), kzErrNone);
        EXPECT_EQ(PathRef::UnInit(), kzErrNone);
        EXPECT_EQ(kz::LivePathElementCount(), 0);
        EXPECT_EQ(PathRef::Init(), kzErrNone);
        EXPECT_EQ(kz::LivePathElementCount(), before);
        EXPECT_EQ(kztest::Thrown([] { PathRef("here"); }), kzErrArgument);
    }
}

TEST_F(PathItemElementTest, MemoryIsSharedOutAmongReferences)
{
    const PathRef path = MakePath(PathRef::kAbsolute, {"shared"});
    const double alone = path.MemorySize();
    const double share = alone - static_cast<double>(sizeof(PathRef)) - PathRef(PathRef::kAbsolute).MemorySize();
    EXPECT_GT(share, 0);
    const PathRef copy = path;
    EXPECT_LT(path.MemorySize(), alone);
}

// Made for the thread sanitizer: all that may run at once does.
TEST_F(PathItemElementTest, ThreadsMakeCopyCompareAndDrop)
{
    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    const int64 before = kz::LivePathElementCount();
    const PathRef shared = MakePath(PathRef::kAbsolute, {"data", "shared"});
    std::atomic<int> running{kThreads};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                // Few names, so that threads meet on elements that come and go.
                const std::string text = "/data/x" + std::to_string(i % 7) + "/y" + std::to_string((i + t) % 5);
                const PathRef path(text, "pathref_unix");
                PathRef copy = path;
                copy.Append("..");
                copy.Append("y" + std::to_string((i + t) % 5));
                std::string written;
                const bool right = copy == path && copy.ConvertToString(&written, "pathref_unix") == kzErrNone &&
                                   written == text && path.Compare(shared, PathRef::kCompareExact) > 0;
                wrong += right ? 0 : 1;
                copy = shared;
                copy.FlushCache();
            }
            --running;
        });
    }
    while (running > 0) {
        PathRef::GarbageCollect(1);
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    mReports.TakeAll();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(kz::LivePathElementCount(), before + 2);
}

}  // namespace
