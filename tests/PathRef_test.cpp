#include "PathRef.h"

#include <gtest/gtest.h>

#include <tuple>

#include "PathCache.h"
#include "PathClassic.h"
#include "PathTesting.h"
#include "ScopedLock.h"
#include "StreamText.h"
#include "StringCStr.h"

namespace {

using kztest::MakePath;
using kztest::NamesOf;
using kztest::Thrown;

class PathRefTest : public kztest::PathTest {};

const auto kBad = static_cast<PathRef::ComparePolicy>(9);

// Each call is made on "/a/b/c"; what can't be edited is then no path.
TEST_F(PathRefTest, Refusals)
{
    enum How { kReturns, kReports, kThrows };
    struct Row {
        const char* name;
        KzErr (*call)(PathRef& path);
        KzErr code;
        How how;
        std::string text = "";  // of the report or of what is thrown
    };
    static CachedBool sItem(true, 0, PathCachedItem::kDependsOnMetaData);
    static const char* const sNull = nullptr;
    const Row rows[] = {
        {"Append(null)", [](PathRef& p) { return p.Append(sNull), 0; }, 1, kThrows, "Append(PathRef::StringType)"},
        {"Replace(null)", [](PathRef& p) { return p.Replace(0, sNull), 0; }, 1, kThrows,
         "PathRef replace, NULL parameter"},
        {"ItemAt(3)", [](PathRef& p) { return p.ItemAt(3), 0; }, kzErrCorrupt, kThrows,
         "PathRef ItemAt, invalid index"},
        {"ToString", [](PathRef& p) { return p.ToString("other"), 0; }, 53, kThrows, "PathRef ToString"},
        {"no place", [](PathRef& p) { return p = PathRef(PathRef::TempDir()), 0; }, 1, kThrows,
         "Unknown standardLocationName"},
        {"null place", [](PathRef& p) { return p = PathRef(sNull), 0; }, 1, kThrows, "Unknown standardLocationName"},
        {"ConvertToPath", [](PathRef& p) { return p.ConvertToPath(nullptr); }, 1, kReturns},
        {"ConvertToString", [](PathRef& p) { return p.ConvertToString(nullptr, "other"); }, 1, kReturns},
        {"CopyItemAt", [](PathRef& p) { return p.CopyItemAt(0, nullptr); }, 1, kReturns},
        {"AssignToName", [](PathRef& p) { return p.AssignToName(nullptr); }, 1, kReturns},
        {"Cache, no key", [](PathRef& p) { return p.Cache(nullptr, &sItem); }, 1, kReturns},
        {"Cache, no path", [](PathRef&) { return PathRef().Cache("k", &sItem); }, 1, kReturns},
        {"FDestroyPath", [](PathRef&) { return FDestroyPath(nullptr); }, 0, kReports, "This is a noop."},
        {"NameEquals", [](PathRef&) { return 2 * PathRef::NameEquals("a", "A", kBad); }, 2, kReports,
         "Unexpected PathRef::ComparePolicy"},
        {"NameCompare", [](PathRef&) { return PathRef::NameCompare("a", "B", kBad); }, -1, kReports,
         "Unexpected PathRef::ComparePolicy"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        PathRef path = MakePath(PathRef::kAbsolute, {"a", "b", "c"});
        std::string detail;
        KzErr code = 0;
        const KzErr thrown = Thrown([&] { code = row.call(path); }, &detail);
        EXPECT_EQ(row.how == kThrows ? thrown : code, row.code);
        EXPECT_EQ(detail, row.how == kThrows ? row.text : "");
        EXPECT_TRUE(row.how != kReports || mReports.Take(2, row.text));
        const bool isEdit = std::string(row.name).find("(null)") != std::string::npos;
        EXPECT_EQ(NamesOf(path), isEdit ? kztest::Names{"3"} : (kztest::Names{"0", "a", "b", "c"}));
    }
}

TEST_F(PathRefTest, WaysToMakeNoPath)
{
    const PathRef path(1);
    PathRef assigned = path;
    assigned = nullptr;
    for (const PathRef& none : {PathRef(), PathRef(nullptr), PathRef(static_cast<const PathRef*>(nullptr)), assigned}) {
        EXPECT_EQ(none.Element(), nullptr);
        EXPECT_TRUE(none.IsSane(false));
        EXPECT_EQ(none.Name(), "");
    }
    EXPECT_EQ(PathRef(&path).Element(), path.Element());
}

TEST_F(PathRefTest, Kinds)
{
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
        EXPECT_EQ(gUseUTF8, isUTF8) << text;
        EXPECT_EQ(kz::gPathState, state) << text;
    }
}

TEST(PathRefReportTest, InReports)
{
    const kztest::RunningPaths paths;
    EXPECT_EQ(kztest::ValueText(MakePath(PathRef::kAbsolute, {std::string(251, 'x')})), "/" + std::string(251, 'x'));
    EXPECT_EQ(kztest::ValueText(MakePath(PathRef::kAbsolute, {std::string(252, 'x')})), "<path too long>");
    EXPECT_EQ(kztest::ValueText(PathRef()), "<Not A Path>");
    EXPECT_EQ(kztest::ValueText(PathRef(4)).rfind("<display path error=1 \"", 0), 0u);
}

}  // namespace
