// What is unique to a call of a path: refusals, kinds of paths, texts, settings, cached items, and the service.
#include "PathRef.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>

#include "PathCache.h"
#include "PathClassic.h"
#include "PathFormatReader.h"
#include "PathManager.h"
#include "PathTesting.h"
#include "ScopedLock.h"
#include "StringCStr.h"
#include "VirtualClock.h"

namespace {

using kztest::Names;
using kztest::PathOf;
using PathRefPrivate::CachedPathFlavor;

constexpr int32 kHour = 3600 * 1000;
constexpr auto kMeta = PathCachedItem::kDependsOnMetaData;
constexpr auto kFree = PathCachedItem::kIndependentOfMetaData;

class PathRefTest : public kztest::PathTest {
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

    const PathRef mPath = PathOf("/a/b");
};

const auto kBad = static_cast<PathRef::ComparePolicy>(9);

// Each call is made on "/a/b/c", returns or throws the code, and changes nothing. The text is that of the report or of
// what is thrown.
TEST_F(PathRefTest, Refusals)
{
    struct Row {
        const char* name;
        KzErr code;
        std::function<KzErr(PathRef&)> call;
        std::string text = "";
    };
    static const char* const sNull = nullptr;
    CachedBool item(true, 0, kMeta);
    const char* const policy = "Unexpected PathRef::ComparePolicy";
    const Row rows[] = {
        {"no place", 1, [](PathRef& p) { return p = PathRef(PathRef::TempDir()), 0; }, "Unknown standardLocationName"},
        {"null place", 1, [](PathRef& p) { return p = PathRef(sNull), 0; }, "Unknown standardLocationName"},
        {"ConvertToPath", 1, [](PathRef& p) { return p.ConvertToPath(nullptr); }},
        {"ConvertToString", 1, [](PathRef& p) { return p.ConvertToString(nullptr, "other"); }},
        {"CopyItemAt", 1, [](PathRef& p) { return p.CopyItemAt(0, nullptr); }},
        {"AssignToName", 1, [](PathRef& p) { return p.AssignToName(nullptr); }},
        {"Cache, no key", 1, [&](PathRef& p) { return p.Cache(nullptr, &item); }},
        {"Cache, no path", 1, [&](PathRef&) { return PathRef().Cache("k", &item); }},
        {"FlushCache", 0, [](PathRef&) { return static_cast<KzErr>(PathRef().FlushCache()); }},
        {"FDestroyPath", 0, [](PathRef&) { return FDestroyPath(nullptr); }, "This is a noop."},
        {"FIsAbsPath", 0, [](PathRef&) { return FIsAbsPath(nullptr); }},
        {"FileNameNEqual 2", 1, [](PathRef&) { return FileNameNEqual("abX", "ABy", 2); }},
        {"FileNameNEqual 3", 0, [](PathRef&) { return FileNameNEqual("abX", "ABy", 3); }},
        {"FileNameCStrEqual", 0, [](PathRef&) { return FileNameCStrEqual("abX", "ABy"); }},
        {"NameEquals", 1, [](PathRef& p) { return p.NameEquals("a", "A", kBad); }, policy},
        {"NameCompare", -1, [](PathRef& p) { return p.NameCompare("a", "B", kBad); }, policy},
        {"Back", 0, [](PathRef&) { return PathPrevChar("", -1); }, "Negative index into string in PathPrevChar"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PathRef path = PathOf("/a/b/c");
        KzErr code = 0;
        const auto thrown = kztest::Thrown([&] { code = row.call(path); });
        EXPECT_EQ(code + thrown.first, row.code);
        EXPECT_TRUE(thrown.second == row.text || mReports.Take(2, row.text));
        EXPECT_EQ(kztest::NamesOf(path), (Names{"0", "a", "b", "c"}));
    }
}

TEST_F(PathRefTest, Kinds)
{
    for (const PathRef& none : {PathRef(), PathRef(nullptr), PathRef(static_cast<const PathRef*>(nullptr))}) {
        EXPECT_TRUE(none.Element() == nullptr && none.IsSane(false) && none.Name().empty());
    }
    EXPECT_TRUE(PathRef(PathRef::kUNC).IsSane(false));
    EXPECT_FALSE(PathRef(PathRef::kNullPath).IsSane(false));
    EXPECT_TRUE(mReports.Take(2, "PathRef is not valid"));

    PathItemElement stray;
    PathRef lost;
    stray.AddReference();
    lost.AssignElement(&stray, PathRef::kAddReference, false);
    EXPECT_FALSE(lost.IsSane(false));
    EXPECT_TRUE(mReports.Take(2, "mPathElement not in storage"));

    PathRef odd;
    {
        const kz::ScopedLock lock(PathItemElement::mMutex);
        odd.AssignElement(PathItemStorage::Create("odd", 0, nullptr, 0), PathRef::kTakeReference, true);
    }
    odd.Append("name");
    EXPECT_FALSE(odd.IsValid());
    EXPECT_TRUE(mReports.Take(2, "Need to add sanity checking for other types"));
    std::string text;
    EXPECT_EQ(odd.ConvertToString(&text, "pathref_unix"), kzErrArgument);
    EXPECT_EQ(text, "<Not A Path>");
}

TEST_F(PathRefTest, Settings)
{
    const std::tuple<const char*, int, uInt32> rows[] = {{"utf8", 1, 1},   {"other", 1, 1},   {"debug", 1, 3},
                                                         {"sysenc", 0, 3}, {"nodebug", 0, 1}, {nullptr, 0, 1}};
    for (const auto& [text, isUTF8, state] : rows) {
        PathRef::Setting(text);
        EXPECT_TRUE(gUseUTF8 == isUTF8 && kz::gPathState == state) << text;
    }
}

TEST_F(PathRefTest, Texts)
{
    // No deeper than the stack.
    EXPECT_EQ(PathOf("a" + std::string(1000000, '/') + "b").ToString("pathref_unix"), "a/b");
    EXPECT_FALSE(WidePathFormat::PathFormatReader::Iterator());
    // A text is kept with the element, where there is memory for it.
    for (const int isRealTime : {1, 0}) {
        mHost.isRealTimeTarget = isRealTime;
        EXPECT_EQ(mPath.ToString("pathref_unix"), "/a/b");
        mPath.FlushCache();
        bool found = false;
        mPath.GetCached<std::string, CachedPathString>("internal_unix", &found, kSearchThisOnly, nullptr);
        EXPECT_EQ(found, isRealTime == 0);
    }
}

TEST_F(PathRefTest, KindsOfItems)
{
    CheckKind<CachedBool>(true, 16);
    CheckKind<CachedInt32>(7, 24);
    CheckKind<CachedPathString>(std::string(100, 't'), 124);
    CheckKind<CachedPath>(PathRef(1), 40);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kAbsent, 16);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kFile, 16);
    CheckKind<CachedPathFlavor>(CachedPathFlavor::kDirectory, 16);
}

TEST_F(PathRefTest, NewValues)
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
TEST_F(PathRefTest, Flushing)
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
TEST_F(PathRefTest, LookUpsLeaveTheDebugModeAlone)
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

// A process of no language gets one of its characters' locale, and is then put into the locale of its language. The
// stop is the tree's too.
TEST(PathManagerServiceTest, LocaleAndSteppingByCharacter)
{
    const kztest::ReportCatcher reports;
    const char text[] = "a\xE5\x90\x8D/";
    const auto steps = [&text] {
        return std::tuple(PathNextChar(text, 1), PathPrevChar(text, 4), PathPrevChar(text, 0));
    };
    unsetenv("LC_ALL");
    unsetenv("LC_CTYPE");
    for (const char* language : {"C.UTF-8", static_cast<const char*>(nullptr)}) {
        std::setlocale(LC_ALL, "C");
        std::setlocale(LC_CTYPE, language == nullptr ? "C.UTF-8" : "C");
        language == nullptr ? unsetenv("LANG") : setenv("LANG", language, 1);
        EXPECT_EQ(steps(), std::tuple(2, 3, 0));
        {
            const kztest::RunningLibrary library;
            ASSERT_EQ(library.baseResult, kzErrNone);
            EXPECT_STREQ(std::getenv("LANG"), "C.UTF-8");
            EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
            EXPECT_EQ(steps(), std::tuple(4, 1, 0));
        }
    }
    EXPECT_EQ(steps(), std::tuple(2, 3, 0));
    EXPECT_EQ(PathRef(0).Element(), nullptr);
}

}  // namespace
