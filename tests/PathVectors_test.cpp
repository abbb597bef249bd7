// Paths against stored cases: a row is an edit, a comparison or a text, and what comes of it. Rows of operations and
// text forms that the library lacks are passed over.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "PathFormatReader.h"
#include "PathManagerImplementation.h"
#include "PathTesting.h"

namespace {

using kztest::Json;
using kztest::NamesOf;
using kztest::PathOf;
using kztest::Thrown;

// Whether `body` throws what the row says, if anything.
template <typename Body>
void ExpectThrown(const Json& row, Body&& body)
{
    std::string detail;
    EXPECT_EQ(Thrown(body, &detail), row.Has("error") ? row["error"].Int() : 0);
    EXPECT_EQ(detail, row.Has("detail") ? row["detail"].Str() : detail);
}

const std::map<std::string, void (*)(PathRef& path, const Json& step)> kEdits = {
    {"Append", [](PathRef& path, const Json& step) { path.Append(step[1].Str()); }},
    {"AppendPath", [](PathRef& path, const Json& step) { path.Append(PathOf(step[1])); }},
    {"AppendUpDir", [](PathRef& path, const Json&) { path.AppendUpDir(); }},
    {"GetParentDirectory", [](PathRef& path, const Json&) { path = path.GetParentDirectory(); }},
    {"Replace", [](PathRef& path, const Json& step) { path.Replace(static_cast<int>(step[1].Int()), step[2].Str()); }},
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
    if (op == "Item") {
        const PathRef path = PathOf(row["a"]);
        const int index = static_cast<int>(row["index"].Int());
        const bool isNone = row["name"].IsNull();
        const std::string expected = isNone ? "-" : row["name"].Str();
        std::string copied = "-";
        std::string read = "-";
        EXPECT_EQ(path.CopyItemAt(index, &copied), isNone ? kzErrArgument : kzErrNone);
        EXPECT_EQ(Thrown([&] { read = path.ItemAt(index); }), isNone ? kzErrCorrupt : kzErrNone);
        EXPECT_EQ(copied, expected);
        EXPECT_EQ(read, expected);
        return true;
    }
    return false;
}

void Read(const Json& row, const char* form)
{
    PathRef path(1);
    ExpectThrown(row, [&] { path = PathRef(row["text"].Str(), form); });
    EXPECT_EQ(NamesOf(path), NamesOf(row.Has("error") ? PathRef(1) : PathOf(row)));
}

void Write(const Json& row, const char* form)
{
    const PathRef path = PathOf(row);
    for (const char* from : {"made", "cached"}) {
        std::string text = "-";
        const bool isForSystem = form != nullptr && std::string(form) == "filesystem";
        EXPECT_EQ(isForSystem ? kz::PathToFileSystemText(path, &text) : path.ConvertToString(&text, form),
                  row["result"].Int());
        EXPECT_EQ(text, row["text"].IsNull() ? text : row["text"].Str()) << from;
    }
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
    const std::string form = row["format"].IsNull() ? "" : row["format"].Str();
    if (row["op"].Str() == "reader") {
        form == "mac" ? ReadNames<WidePathFormat::PathFormatReaderMac>(row)
                      : ReadNames<WidePathFormat::PathFormatReaderUnix>(row);
        return true;
    }
    if (form == "pathref_dos" || form == "pathref_platformindependent" || form == "pathref_platformagnostic") {
        return false;
    }
    PathRef::SetNotAPathString(row["notAPath"].Str());
    if (row.Has("home")) {
        row["home"].IsNull() ? unsetenv("HOME") : setenv("HOME", row["home"].Str().c_str(), 1);
    }
    (row["op"].Str() == "read" ? Read : Write)(row, row["format"].IsNull() ? nullptr : form.c_str());
    return true;
}

TEST(PathVectorsTest, Rows)
{
    struct File {
        const char* name;
        bool (*drive)(const Json& row);  // false for a row that it passes over
        int atLeast;                     // rows that are driven
    };
    const File files[] = {{"vectors/path_edits.jsonl", DriveEdits, 204},
                          {"vectors/path_relations.jsonl", DriveRelations, 226},
                          {"vectors/path_text.jsonl", DriveTexts, 163}};
    const char* const home = std::getenv("HOME");
    const std::string oldHome = home != nullptr ? home : "";
    kztest::ReportCatcher reports;
    const kztest::RunningPaths paths;
    for (const File& file : files) {
        int driven = 0;
        for (const Json& row : kztest::ReadJsonLines(file.name)) {
            SCOPED_TRACE(row.Line());
            driven += file.drive(row);
            EXPECT_TRUE(!row.Has("report") || reports.Take(2, row["report"].Str()));
            EXPECT_TRUE(kz::PathTreeIsSane());
        }
        EXPECT_GE(driven, file.atLeast) << file.name;
    }
    home != nullptr ? setenv("HOME", oldHome.c_str(), 1) : unsetenv("HOME");
}

}  // namespace
