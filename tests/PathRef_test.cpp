#include "PathRef.h"

#include <gtest/gtest.h>

#include <climits>

#include "PathTesting.h"
#include "ScopedLock.h"
#include "StreamText.h"
#include "StringCStr.h"

namespace {

using kztest::Describe;
using kztest::Json;
using kztest::MakePath;
using kztest::PathOf;
using kztest::Thrown;

class PathRefTest : public kztest::PathTest {};

TEST_F(PathRefTest, WaysToMakeAPath)
{
    for (int base = -1; base < 6; ++base) {
        EXPECT_EQ(Describe(PathRef(base)), base < 0 || base > 4 ? "3" : std::to_string(base));
    }
    const PathRef lib = MakePath(PathRef::kAbsolute, {"usr", "lib"});
    EXPECT_EQ(Describe(PathRef()), "3");
    EXPECT_EQ(Describe(PathRef(nullptr)), "3");
    EXPECT_EQ(Describe(PathRef(&lib)), "0[usr][lib]");
    EXPECT_EQ(Describe(PathRef(static_cast<const PathRef*>(nullptr))), "3");
    PathRef assigned(1);
    assigned = &lib;
    EXPECT_EQ(assigned.Element(), lib.Element());
    assigned = nullptr;
    EXPECT_EQ(Describe(assigned), "3");
}

TEST_F(PathRefTest, CopiesShareMovesTake)
{
    const PathRef path = MakePath(PathRef::kAbsolute, {"usr"});
    PathItemElement* const element = path.Element();
    {
        PathRef copy(path);
        PathRef& same = copy;
        copy = same;
        EXPECT_EQ(element->ReferenceCount(), 2);
        PathRef moved(std::move(copy));
        PathRef other(1);
        other = std::move(moved);
        EXPECT_EQ(element->ReferenceCount(), 2);
        EXPECT_EQ(other.Element(), element);
    }
    PathRef* made = nullptr;
    EXPECT_EQ(path.ConvertToPath(&made), kzErrNone);
    EXPECT_EQ(made->Element(), element);
    EXPECT_EQ(PathRef(1).ConvertToPath(&made), kzErrNone);
    EXPECT_EQ(Describe(*made), "1");
    PathRef::DisposePath(made);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(path.ConvertToPath(nullptr), kzErrArgument);
    EXPECT_EQ(element->ReferenceCount(), 1);
}

// What the vectors below leave out.
TEST_F(PathRefTest, OddNames)
{
    EXPECT_EQ(Describe(MakePath(PathRef::kRelative, {"a", ".", ""})), "1");
    EXPECT_EQ(Describe(MakePath(PathRef::kAbsolute, {"..", "a"})), "0[][a]");
    EXPECT_EQ(Describe(MakePath(PathRef::kRelative, {"a/b", "c:d"})), "1[a/b][c:d]");
    EXPECT_EQ(Describe(MakePath(PathRef::kUNC, {"server", "share"})), "2[server][share]");
    PathRef path = MakePath(PathRef::kRelative, {"..", "a", "b"});
    path.Append(path);
    EXPECT_EQ(Describe(path), "1[][a][a][b]");
    path.Replace(1, "..");
    EXPECT_EQ(Describe(path), "1[][..][a][b]");
    EXPECT_EQ(kztest::MakePathBelow(PathRef::kRelative, {"", "a", ""}).CountUpDir(), 1);
    EXPECT_TRUE(mReports.Take(2, "There are not supposed to be 'up dirs' in the middle of paths"));
}

TEST_F(PathRefTest, FailedEditsClearThePath)
{
    const PathRef abc = MakePath(PathRef::kAbsolute, {"a", "b", "c"});
    const auto check = [](PathRef path, KzErr err, const char* text, auto&& edit) {
        std::string detail;
        EXPECT_EQ(Thrown([&] { edit(path); }, &detail), err);
        EXPECT_EQ(detail, text);
        EXPECT_EQ(path.Element(), nullptr);
        EXPECT_TRUE(kz::PathTreeIsSane());
    };
    constexpr char kBadItem[] = "PathRef replace, invalid element index (element)";
    for (const int index : {3, -4, INT_MIN}) {
        check(abc, 1, kBadItem, [index](PathRef& path) { path.Replace(index, "z"); });
    }
    check(PathRef(), 1, "PathRef replace, NULL parameter", [](PathRef& path) { path.Replace(0, "z"); });
    check(PathRef(), 1, "Append(PathRef::StringType)", [](PathRef& path) { path.Append("z"); });
    check(PathRef(4), 1, "Append(PathRef::StringType)", [](PathRef& path) { path.Append("z"); });
    check(abc, 1, "Append(relativePath): Must be appending a relative path", [&](PathRef& path) { path.Append(abc); });
    constexpr char kNoPath[] = "Append(relativePath): NULL or NotAPath cannot be used";
    check(abc, 1, kNoPath, [](PathRef& path) { path.Append(PathRef(4)); });
    check(PathRef(), 1, kNoPath, [](PathRef& path) { path.Append(PathRef(1)); });
    PathRef unchanged;
    unchanged.Append(".");
    EXPECT_EQ(unchanged.Element(), nullptr);
}

TEST_F(PathRefTest, ComponentsByIndex)
{
    const PathRef path = MakePath(PathRef::kRelative, {"a", "b", "c"});
    std::string name;
    for (const auto& [index, expected] : {std::pair{0, "a"}, {2, "c"}, {-1, "c"}, {-3, "a"}}) {
        EXPECT_EQ(path.ItemAt(index), expected);
        EXPECT_EQ(path.CopyItemAt(index, &name), kzErrNone);
        EXPECT_EQ(name, expected);
    }
    for (const int index : {3, -4, INT_MAX}) {
        EXPECT_EQ(Thrown([&] { path.ItemAt(index); }), kzErrCorrupt);
        EXPECT_EQ(path.CopyItemAt(index, &name), kzErrArgument);
    }
    EXPECT_EQ(path.CopyItemAt(0, nullptr), kzErrArgument);
    EXPECT_EQ(Thrown([] { PathRef(1).ItemAt(-1); }), kzErrCorrupt);
    EXPECT_EQ(PathRef(0).Name(), "");
    EXPECT_EQ(PathRef().Name(), "");
}

TEST_F(PathRefTest, Kinds)
{
    for (int base = 0; base < 5; ++base) {
        EXPECT_EQ(PathRef(base).IsValid(), base < 2) << base;
        EXPECT_TRUE(PathRef(base).IsSane(true)) << base;
    }
    EXPECT_TRUE(PathRef(PathRef::kUNC).IsSane(false));
    EXPECT_FALSE(PathRef(PathRef::kNullPath).IsSane(false));
    EXPECT_TRUE(mReports.Take(2, "PathRef is not valid"));

    PathItemElement stray;
    PathRef lost;
    stray.AddReference();
    stray.AddReference();
    lost.AssignElement(&stray, PathRef::kAddReference, false);
    EXPECT_FALSE(lost.IsSane(false));
    EXPECT_TRUE(mReports.Take(2, "mPathElement not in storage"));
}

TEST_F(PathRefTest, AnElementOfNoKnownBase)
{
    PathRef path;
    {
        const kz::ScopedLock lock(PathItemElement::mMutex);
        path.AssignElement(PathItemStorage::Create("odd", 0, nullptr, 0), PathRef::kTakeReference, true);
    }
    path.Append("name");
    EXPECT_FALSE(path.IsValid());
    EXPECT_TRUE(mReports.Take(2, "Need to add sanity checking for other types"));
    std::string text;
    EXPECT_EQ(path.ConvertToString(&text, "pathref_unix"), kzErrArgument);
    EXPECT_EQ(text, "<Not A Path>");
}

TEST_F(PathRefTest, NamedLocations)
{
    const PathRef temp = MakePath(PathRef::kAbsolute, {"tmp"});
    const auto isUnknown = [] {
        std::string detail;
        return Thrown([] { PathRef{PathRef::TempDir()}; }, &detail) == kzErrArgument &&
               detail == "Unknown standardLocationName";
    };
    EXPECT_TRUE(isUnknown());
    EXPECT_EQ(PathRef().AssignToName("os_temp"), kzErrNone);
    EXPECT_EQ(temp.AssignToName("os_temp"), kzErrNone);
    EXPECT_EQ(PathRef(1).AssignToName("os_temp"), kzErrArgument);
    EXPECT_EQ(PathRef("os_temp").Element(), temp.Element());
    PathItemStorage::SetNamed("os_temp", nullptr);
    EXPECT_TRUE(isUnknown());
    EXPECT_EQ(PathRef(1).AssignToName("os_temp"), kzErrNone);
}

// Every change of a path then makes its text, which takes the tree's lock.
TEST_F(PathRefTest, DebugMode)
{
    PathRef::Setting("debug");
    PathRef path = MakePath(PathRef::kAbsolute, {"a", "b"});
    const PathRef copy = path;
    path.Replace(0, "c");
    path = PathRef(PathRef::kNullPath);
    path = copy;
    PathRef::Setting("nodebug");
    EXPECT_EQ(path.ToString("pathref_unix"), "/a/b");
    PathRef::Setting("utf8");
    PathRef::Setting("other");
    EXPECT_EQ(gUseUTF8, 1);
    PathRef::Setting("sysenc");
    EXPECT_EQ(gUseUTF8, 0);
}

TEST(PathRefReportTest, InReports)
{
    const kztest::RunningPaths paths;
    EXPECT_EQ(kztest::ValueText(MakePath(PathRef::kAbsolute, {std::string(251, 'x')})), "/" + std::string(251, 'x'));
    EXPECT_EQ(kztest::ValueText(MakePath(PathRef::kAbsolute, {std::string(252, 'x')})), "<path too long>");
    EXPECT_EQ(kztest::ValueText(PathRef()), "<Not A Path>");
    EXPECT_EQ(kztest::ValueText(PathRef(4)).rfind("<display path error=1 \"", 0), 0u);
}

// ---- Against independent data ----

// False for an operation that this suite does not drive.
bool Apply(const Json& step, PathRef& path)
{
    const std::string& name = step.Items().front().Str();
    if (name == "Append") {
        path.Append(step[1].Str());
    } else if (name == "AppendPath") {
        path.Append(PathOf(step[1]));
    } else if (name == "AppendUpDir") {
        path.AppendUpDir();
    } else if (name == "GetParentDirectory") {
        path = path.GetParentDirectory();
    } else if (name == "Replace") {
        path.Replace(static_cast<int>(step[1].Int()), step[2].Str());
    } else {
        return false;
    }
    return true;
}

TEST_F(PathRefTest, EditVectors)
{
    int driven = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/path_edits.jsonl")) {
        PathRef path = PathOf(row["start"]);
        bool known = true;
        KzErr err = kzErrNone;
        for (size_t i = 0; i < row["steps"].size() && known && err == kzErrNone; ++i) {
            err = Thrown([&] { known = Apply(row["steps"][i], path); });
            ASSERT_TRUE(kz::PathTreeIsSane()) << row.Line();
        }
        if (!known) {
            continue;
        }
        ++driven;
        EXPECT_EQ(err, row["error"].Int()) << row.Line();
        EXPECT_EQ(Describe(path), Describe(PathOf(row["result"]))) << row.Line();
        EXPECT_EQ(path.CountUpDir(), row["upDirs"].Int()) << row.Line();
        EXPECT_EQ(path.IsValid(), row["valid"].Int() != 0) << row.Line();
    }
    EXPECT_GE(driven, 25);
}

TEST_F(PathRefTest, RelationVectors)
{
    int driven = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/path_relations.jsonl")) {
        const std::string& op = row["op"].Str();
        if (op != "Compare" && op != "Equals") {
            continue;
        }
        ++driven;
        const PathRef a = PathOf(row["a"]);
        const PathRef b = PathOf(row["b"]);
        const auto policy = static_cast<PathRef::ComparePolicy>(row["policy"].Int());
        EXPECT_EQ(op == "Compare" ? a.Compare(b, policy) : a.Equals(b, policy), row["result"].Int()) << row.Line();
    }
    EXPECT_EQ(driven, 30);
}

TEST_F(PathRefTest, Relations)
{
    const auto at = [](const char* text) { return PathRef(text, "pathref_unix"); };
    EXPECT_TRUE(at("/A/b").Equals(at("/a/B"), PathRef::kComparePlatform));
    EXPECT_FALSE(at("/A/b").Equals(at("/a/B"), PathRef::kCompareExact));
    EXPECT_TRUE(at("/A/b") == at("/a/b"));
    EXPECT_FALSE(at("/a/b") == at("a/b"));
    struct Case {
        const char* a;
        const char* b;
        PathRef::ComparePolicy policy;
        int result;
    };
    const Case cases[] = {
        {"a", "/a", PathRef::kCompareLexical, 1},       {"/a", "a", PathRef::kCompareLexical, -1},
        {"a", "/a", PathRef::kComparePlatform, -1},     {"/a", "a", PathRef::kComparePlatform, -1},
        {"/a/b", "/a/b/c", PathRef::kCompareExact, -3}, {"/A/x", "/a/Y", PathRef::kCompareLexical, -2},
        {"/A/x", "/a/a", PathRef::kCompareExact, -1},   {"/", "/a/b", PathRef::kCompareExact, -2},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(at(test.a).Compare(at(test.b), test.policy), test.result) << test.a << " " << test.b;
    }
    EXPECT_EQ(PathRef().Compare(at("/a"), PathRef::kCompareExact), 1);
    EXPECT_EQ(at("/a").Compare(PathRef(), PathRef::kCompareExact), -1);
    EXPECT_EQ(PathRef().Compare(PathRef(), PathRef::kCompareExact), 0);
    // A bad policy is told of once, however many names there are.
    const auto bad = static_cast<PathRef::ComparePolicy>(9);
    EXPECT_TRUE(PathRef::NameEquals("a", "A", bad));
    EXPECT_TRUE(at("/a/b/c/d").Equals(at("/A/B/C/D"), bad));
    EXPECT_EQ(at("/a/b/c/d").Compare(at("/A/B/C/e"), bad), -4);
    for (int calls = 0; calls < 3; ++calls) {
        EXPECT_TRUE(mReports.Take(2, "Unexpected PathRef::ComparePolicy"));
    }
}

}  // namespace
