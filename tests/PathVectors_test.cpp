// Paths against stored cases: a row is an edit, a comparison or a text, and what comes of it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <set>
#include <stdexcept>

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

int IndexOf(const Json& number)
{
    return static_cast<int>(number.Int());
}

// A text, or null.
const char* TextOf(const Json& text)
{
    return text.IsNull() ? nullptr : text.Str().c_str();
}

const std::map<std::string, void (*)(PathRef& path, const Json& step)> kEdits = {
    {"Append", [](PathRef& path, const Json& step) { path.Append(TextOf(step[1])); }},
    {"AppendPath", [](PathRef& path, const Json& step) { path.Append(PathOf(step[1])); }},
    {"AppendUpDir", [](PathRef& path, const Json&) { path.AppendUpDir(); }},
    {"GetParentDirectory", [](PathRef& path, const Json&) { path = path.GetParentDirectory(); }},
    {"Replace", [](PathRef& path, const Json& step) { path.Replace(IndexOf(step[1]), TextOf(step[2])); }},
};

void Edit(const Json& row)
{
    PathRef path = PathOf(row["start"]);
    ExpectThrown(row, [&] {
        for (const Json& step : row["steps"].Items()) {
            kEdits.at(step[0].Str())(path, step);
        }
    });
    EXPECT_EQ(NamesOf(path), NamesOf(PathOf(row["result"])));
    EXPECT_EQ(path.CountUpDir(), row["upDirs"].Int());
    EXPECT_EQ(path.IsValid(), row["valid"].Int() != 0);
    EXPECT_EQ(FIsAbsPath(&path) != 0, path.IsValid() && path.StartsWith(PathRef::kAbsolute));
}

void Relate(const Json& row)
{
    const PathRef a = PathOf(row["a"]);
    const PathRef b = PathOf(row["b"]);
    const auto policy = static_cast<PathRef::ComparePolicy>(row["policy"].Int());
    EXPECT_EQ(row["op"].Str() == "Compare" ? a.Compare(b, policy) : a.Equals(b, policy), row["result"].Int());
    EXPECT_TRUE(policy != PathRef::kComparePlatform || (a == b) == a.Equals(b, policy));
}

void FindItem(const Json& row)
{
    const PathRef path = PathOf(row["a"]);
    const bool isNone = row["name"].IsNull();
    const std::string expected = isNone ? "-" : row["name"].Str();
    std::string name = "-";
    EXPECT_EQ(path.CopyItemAt(IndexOf(row["index"]), &name), isNone ? kzErrArgument : kzErrNone);
    EXPECT_EQ(name, expected);
    const auto [code, detail] = Thrown([&] { EXPECT_EQ(path.ItemAt(IndexOf(row["index"])), expected); });
    EXPECT_EQ(code, isNone ? kzErrCorrupt : kzErrNone);
    EXPECT_EQ(detail, isNone ? "PathRef ItemAt, invalid index" : "");
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
        const std::string detail = code != kzErrNone ? "PathRef ToString" : "";
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(path.ToString(form), text); }), std::pair(code, detail));
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

const std::map<std::string, void (*)(const Json& row)> kDrivers = {
    {"edit", Edit},
    {"Compare", Relate},
    {"Equals", Relate},
    {"Item", FindItem},
    {"read", Read},
    {"write", Write},
    {"mac reader", ReadNames<WidePathFormat::PathFormatReaderMac>},
    {"unix reader", ReadNames<WidePathFormat::PathFormatReaderUnix>},
    {"report", [](const Json& row) { KZ_LOG(kDbgWarning) << PathOf(row); }},
};

const std::set<std::string> kLackingForms = {"pathref_dos", "pathref_platformindependent", "pathref_platformagnostic"};

class PathVectorsTest : public kztest::PathTest {};

// Rows of operations and text forms that the library lacks are passed over.
TEST_F(PathVectorsTest, Rows)
{
    int driven = 0;
    for (const char* name : {"edits", "relations", "text"}) {
        for (const Json& row : kztest::ReadJsonLines("vectors/path_" + std::string(name) + ".jsonl")) {
            SCOPED_TRACE(row.Line());
            if (row.Has("notAPath")) {
                PathRef::SetNotAPathString(row["notAPath"].Str());
            }
            if (row.Has("home")) {
                row["home"].IsNull() ? unsetenv("HOME") : setenv("HOME", TextOf(row["home"]), 1);
            }
            if (row.Has("format") && kLackingForms.count(row["format"].IsNull() ? "" : row["format"].Str()) != 0) {
                continue;
            }
            try {
                kDrivers.at(row.Has("op") ? row["op"].Str() : "edit")(row);
                ++driven;
            } catch (const std::out_of_range&) {
            }
            EXPECT_TRUE(!row.Has("report") || mReports.Take(2, row["report"].Str()));
            EXPECT_TRUE(kz::PathTreeIsSane());
        }
    }
    EXPECT_GE(driven, 621);
}

}  // namespace
