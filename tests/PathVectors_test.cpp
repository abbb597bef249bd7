// Paths against stored cases: a row is an edit, a comparison or a text, and what comes of it. Rows of operations and
// text forms that the library lacks are passed over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <tuple>

#include "PathClassic.h"
#include "PathFormatReader.h"
#include "PathManagerImplementation.h"
#include "PathTesting.h"
#include "Report.h"

namespace {

using kztest::Json;
using kztest::NamesOf;
using kztest::PathOf;
using kztest::Thrown;

constexpr char kModule[] = "PathVectors_test";

// Whether `body` throws what the row says, if anything.
template <typename Body>
void ExpectThrown(const Json& row, Body&& body)
{
    const auto [code, detail] = Thrown(body);
    EXPECT_EQ(code, row.Has("error") ? row["error"].Int() : 0);
    EXPECT_EQ(detail, row.Has("detail") ? row["detail"].Str() : detail);
}

// A name, or null.
const char* TextOf(const Json& name)
{
    return name.IsNull() ? nullptr : name.Str().c_str();
}

const std::map<std::string, void (*)(PathRef& path, const Json& step)> kEdits = {
    {"Append", [](PathRef& path, const Json& step) { path.Append(TextOf(step[1])); }},
    {"AppendPath", [](PathRef& path, const Json& step) { path.Append(PathOf(step[1])); }},
    {"AppendUpDir", [](PathRef& path, const Json&) { path.AppendUpDir(); }},
    {"GetParentDirectory", [](PathRef& path, const Json&) { path = path.GetParentDirectory(); }},
    {"Replace",
     [](PathRef& path, const Json& step) { path.Replace(static_cast<int>(step[1].Int()), TextOf(step[2])); }},
};

bool DriveEdits(const Json& row)
{
    const std::vector<Json>& steps = row["steps"].Items();
    if (!std::all_of(steps.begin(), steps.end(), [](const Json& step) { return kEdits.count(step[0].Str()) != 0; })) {
        return false;
    }
    PathRef path = PathOf(row["start"]);
    ExpectThrown(row, [&] {
        std::for_each(steps.begin(), steps.end(), [&](const Json& step) { kEdits.at(step[0].Str())(path, step); });
    });
    EXPECT_EQ(NamesOf(path), NamesOf(PathOf(row["result"])));
    EXPECT_EQ(path.CountUpDir(), row["upDirs"].Int());
    EXPECT_EQ(path.IsValid(), row["valid"].Int() != 0);
    EXPECT_EQ(FIsAbsPath(&path) != 0, path.IsValid() && path.StartsWith(PathRef::kAbsolute));
    return true;
}

bool DriveRelations(const Json& row)
{
    const std::string& op = row["op"].Str();
    if (op == "Compare" || op == "Equals") {
        const PathRef a = PathOf(row["a"]);
        const PathRef b = PathOf(row["b"]);
        const auto policy = static_cast<PathRef::ComparePolicy>(row["policy"].Int());
        EXPECT_EQ(op == "Compare" ? a.Compare(b, policy) : a.Equals(b, policy), row["result"].Int());
        EXPECT_TRUE(policy != PathRef::kComparePlatform || (a == b) == a.Equals(b, policy));
        return true;
    }
    if (op != "Item") {
        return false;
    }
    const PathRef path = PathOf(row["a"]);
    const int index = static_cast<int>(row["index"].Int());
    const bool isNone = row["name"].IsNull();
    std::string copied = "-";
    std::string read = "-";
    EXPECT_EQ(path.CopyItemAt(index, &copied), isNone ? kzErrArgument : kzErrNone);
    const auto thrown = Thrown([&] { read = path.ItemAt(index); });
    EXPECT_EQ(thrown.first, isNone ? kzErrCorrupt : kzErrNone);
    EXPECT_EQ(thrown.second, isNone ? "PathRef ItemAt, invalid index" : "");
    EXPECT_EQ(copied, isNone ? "-" : row["name"].Str());
    EXPECT_EQ(read, copied);
    return true;
}

void Read(const Json& row)
{
    PathRef path(1);
    ExpectThrown(row, [&] { path = PathRef(row["text"].Str(), TextOf(row["format"])); });
    EXPECT_EQ(NamesOf(path), NamesOf(row.Has("error") ? PathRef(1) : PathOf(row)));
}

// The first text is made, the second one is what the first left in the cache.
void Write(const Json& row)
{
    const PathRef path = PathOf(row);
    const char* const form = TextOf(row["format"]);
    const auto code = static_cast<KzErr>(row["result"].Int());
    std::string text = "-";
    if (form != nullptr && std::string(form) == "filesystem") {
        EXPECT_EQ(kz::PathToFileSystemText(path, &text), code);
    } else {
        EXPECT_EQ(path.ConvertToString(&text, form), code);
        const auto thrown = Thrown([&] { EXPECT_EQ(path.ToString(form), text); });
        EXPECT_EQ(thrown, std::pair(code, std::string(code != 0 ? "PathRef ToString" : "")));
    }
    EXPECT_EQ(text, row["text"].IsNull() ? text : row["text"].Str());
}

template <typename Reader>
void ReadNames(const Json& row)
{
    const std::string text = row["text"].Str();
    Reader reader(&text);
    EXPECT_EQ(reader.PathBase(), row["base"].Int());
    size_t count = 0;
    std::string name;
    for (auto it = reader.FirstElement(); it; it++) {
        EXPECT_TRUE(it.CopyName(&name));
        EXPECT_EQ(name, row["names"][count++].Str());
    }
    EXPECT_EQ(count, row["names"].size());
}

bool DriveTexts(const Json& row)
{
    const std::string op = row["op"].Str();
    const std::string form = row["format"].IsNull() ? "" : row["format"].Str();
    if (form == "pathref_dos" || form == "pathref_platformindependent" || form == "pathref_platformagnostic") {
        return false;
    }
    PathRef::SetNotAPathString(row.Has("notAPath") ? row["notAPath"].Str() : "<Not A Path>");
    if (row.Has("home")) {
        row["home"].IsNull() ? unsetenv("HOME") : setenv("HOME", TextOf(row["home"]), 1);
    }
    if (op == "reader") {
        form == "mac" ? ReadNames<WidePathFormat::PathFormatReaderMac>(row)
                      : ReadNames<WidePathFormat::PathFormatReaderUnix>(row);
    } else if (op == "report") {
        KZ_LOG(kDbgInternal) << PathOf(row);
    } else {
        (op == "read" ? Read : Write)(row);
    }
    return true;
}

class PathVectorsTest : public kztest::PathTest {};

TEST_F(PathVectorsTest, Rows)
{
    // What drives a row, or passes it over with false; how many rows are driven at least.
    const std::tuple<const char*, bool (*)(const Json& row), int> files[] = {
        {"vectors/path_edits.jsonl", DriveEdits, 206},
        {"vectors/path_relations.jsonl", DriveRelations, 226},
        {"vectors/path_text.jsonl", DriveTexts, 167}};
    const char* const home = std::getenv("HOME");
    const std::string oldHome = home != nullptr ? home : "";
    for (const auto& [name, drive, atLeast] : files) {
        int driven = 0;
        for (const Json& row : kztest::ReadJsonLines(name)) {
            SCOPED_TRACE(row.Line());
            driven += drive(row);
            const int level = row.Has("level") ? static_cast<int>(row["level"].Int()) : 2;
            EXPECT_TRUE(!row.Has("report") || mReports.Take(level, row["report"].Str()));
            EXPECT_TRUE(kz::PathTreeIsSane());
        }
        EXPECT_GE(driven, atLeast) << name;
    }
    home != nullptr ? setenv("HOME", oldHome.c_str(), 1) : unsetenv("HOME");
}

}  // namespace
