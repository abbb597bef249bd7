#include <gtest/gtest.h>

#include <cstdlib>

#include "PathCache.h"
#include "PathFormatReader.h"
#include "PathTesting.h"
#include "PathTextFormat.h"
#include "SlotOf.h"

namespace {

using kztest::Describe;
using kztest::Json;
using kztest::MakePath;
using kztest::MakePathBelow;
using kztest::Thrown;

class PathTextTest : public kztest::PathTest {};

bool IsBuilt(const std::string& format)
{
    return format == "pathref_unix" || format == "pathref_commandline" || format == "pathref_display" ||
           format == "pathref_other";
}

TEST_F(PathTextTest, Vectors)
{
    int driven = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/path_text.jsonl")) {
        const std::string& format = row["format"].Str();
        if (!IsBuilt(format)) {
            continue;
        }
        ++driven;
        PathRef::SetNotAPathString(row["notAPath"].Str());
        if (row["op"].Str() == "read") {
            PathRef path;
            const KzErr err = Thrown([&] { path = PathRef(row["text"].Str(), format.c_str()); });
            EXPECT_EQ(err, row.Has("error") ? row["error"].Int() : 0) << row.Line();
            if (err == kzErrNone && !row.Has("error")) {
                EXPECT_EQ(Describe(path), Describe(kztest::PathOf(row))) << row.Line();
            }
        } else {
            std::string text;
            EXPECT_EQ(kztest::PathOf(row).ConvertToString(&text, format.c_str()), row["result"].Int()) << row.Line();
            if (!row["text"].IsNull()) {
                EXPECT_EQ(text, row["text"].Str()) << row.Line();
            }
        }
        ASSERT_TRUE(kz::PathTreeIsSane()) << row.Line();
    }
    EXPECT_GE(driven, 60);
}

TEST_F(PathTextTest, OddUnixText)
{
    const std::pair<std::string, const char*> cases[] = {
        {"/", "0"},
        {"a/../b", "1[b]"},
        {"/./a", "0[a]"},
        {"/..", "0[]"},
        {"./", "1"},
        {"/a\xE5\x90/b", "0[a\xE5\x90][b]"},  // a cut character: stepping is by bytes
        {"a" + std::string(1000000, '/') + "b", "1[a][b]"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(Describe(PathRef(text, "pathref_unix")), expected);
    }
}

TEST_F(PathTextTest, HomeDirectories)
{
    const char* const home = std::getenv("HOME");
    const std::string old = home != nullptr ? home : "";
    setenv("HOME", "/home/tester/", 1);
    EXPECT_EQ(Describe(PathRef("~", "pathref_unix")), "0[home][tester]");
    EXPECT_EQ(Describe(PathRef("~/x", "pathref_display")), "0[home][tester][x]");
    EXPECT_EQ(Describe(PathRef("a/~", "pathref_unix")), "1[a][~]");
    EXPECT_EQ(Describe(PathRef("~root/x", "pathref_commandline")), "0[root][x]");
    EXPECT_EQ(Describe(PathRef("~no such user/x", "pathref_unix")), "1[~no such user][x]");
    setenv("HOME", "~odd", 1);
    EXPECT_EQ(Describe(PathRef("~/x", "pathref_unix")), "1[~][x]");
    unsetenv("HOME");
    EXPECT_EQ(Describe(PathRef("~", "pathref_unix")), "1[~]");
    if (home != nullptr) {
        setenv("HOME", old.c_str(), 1);
    }
}

TEST_F(PathTextTest, TextThatIsRefused)
{
    std::string detail;
    EXPECT_EQ(Thrown([] { PathRef(std::string(), "pathref_commandline"); }, &detail), kzErrArgument);
    EXPECT_EQ(detail, "Empty command line strings cannot be converted to Path");
    EXPECT_EQ(Thrown([] { PathRef("/a", "pathref_other"); }, &detail), kzErrNotSupported);
    EXPECT_EQ(detail, "PathRef from string constructor");
    EXPECT_EQ(Thrown([] { PathRef("/a", nullptr); }), kzErrNotSupported);
    // The not-a-path text goes before everything else.
    EXPECT_EQ(Describe(PathRef("<NOT a path>", "pathref_other")), "3");
    PathRef::SetNotAPathString("");
    EXPECT_EQ(Describe(PathRef("", "pathref_commandline")), "3");
}

TEST_F(PathTextTest, OddPathsAsText)
{
    struct Case {
        PathRef path;
        const char* format;
        KzErr err;
        const char* text;
    };
    const Case cases[] = {
        {PathRef(0), "pathref_commandline", 1, "-"},
        {MakePath(PathRef::kAbsolute, {"..", "x"}), "pathref_unix", 0, "/../x"},
        {PathRef(), "pathref_unix", 0, "<Not A Path>"},
        {PathRef(), "pathref_commandline", 1, "-"},
        {PathRef(), "pathref_other", 53, "-"},
        {MakePathBelow(PathRef::kNullPath, {"x"}), "pathref_unix", 1, "<Not A Path>"},
        {MakePath(PathRef::kUNC, {"server"}), "pathref_other", 0, "<Not A Path>"},
        {PathRef(0), nullptr, 1, "-"},
    };
    for (const Case& test : cases) {
        for (const char* from : {"first", "cached"}) {
            std::string text = "-";
            EXPECT_EQ(test.path.ConvertToString(&text, test.format), test.err) << test.text << " " << from;
            EXPECT_EQ(text, test.text) << from;
        }
    }
    EXPECT_EQ(PathRef(0).ConvertToString(nullptr, "pathref_unix"), kzErrArgument);
    std::string detail;
    EXPECT_EQ(Thrown([] { PathRef(0).ToString("pathref_other"); }, &detail), kzErrNotSupported);
    EXPECT_EQ(detail, "PathRef ToString");
}

TEST_F(PathTextTest, TextIsKeptWithTheElement)
{
    const PathRef path = MakePath(PathRef::kAbsolute, {"a", "b"});
    const auto cached = [&] {
        bool found = false;
        path.GetCached<std::string, CachedPathString>("internal_unix", &found, kSearchThisOnly, nullptr);
        return found;
    };
    std::string text;
    mPaths.host.isRealTimeTarget = 1;
    EXPECT_EQ(path.ConvertToString(&text, "pathref_unix"), kzErrNone);
    EXPECT_FALSE(cached());
    mPaths.host.isRealTimeTarget = 0;
    EXPECT_EQ(path.ConvertToString(&text, "pathref_unix"), kzErrNone);
    EXPECT_TRUE(cached());
    path.FlushCache();
    EXPECT_TRUE(cached());
    EXPECT_EQ(text, "/a/b");
}

// ---- The readers by themselves ----

std::string ReadAll(WidePathFormat::PathFormatReader& reader)
{
    std::string text = std::to_string(reader.PathBase());
    std::string name;
    for (auto it = reader.FirstElement(); it; ++it) {
        EXPECT_TRUE(it.CopyName(&name));
        text += "[" + name + "]";
    }
    return text;
}

TEST_F(PathTextTest, Readers)
{
    struct Case {
        std::string text;
        const char* unixForm;
        const char* macForm;
    };
    const Case cases[] = {
        {"", "0", "0"},
        {"a", "1[a]", "1[a]"},
        {":", "1[:]", "1"},
        {"::a", "1[::a]", "1[][a]"},
        {"HD:", "1[HD:]", "0[HD]"},
        {"HD:a:b:", "1[HD:a:b:]", "0[HD][a][b]"},
        {"/a/../b/", "0[a][][b]", "1[/a/../b/]"},
        {"./a//b", "1[a][b]", "1[./a//b]"},
        {"/./a", "0[.][a]", "1[/./a]"},
    };
    for (const Case& test : cases) {
        WidePathFormat::PathFormatReaderUnix unixReader(&test.text);
        WidePathFormat::PathFormatReaderMac macReader(&test.text);
        EXPECT_EQ(ReadAll(unixReader), test.unixForm) << test.text;
        EXPECT_EQ(ReadAll(macReader), test.macForm) << test.text;
    }
    EXPECT_FALSE(WidePathFormat::PathFormatReader::Iterator());
}

TEST(PathTextSlotTest, Slots)
{
    using Reader = WidePathFormat::PathFormatReader;
    EXPECT_EQ(
        kztest::SlotsOf(&Reader::PathBase, &Reader::FirstElement, &Reader::GetNext, &Reader::Reset, &Reader::Extract,
                        &Reader::HasMore, &Reader::CharacterIsSeparator, &Reader::NextCharacterOffset,
                        &Reader::CharacterPastPathType, &Reader::NextSeparatorCharacter, &Reader::GetActualElementName,
                        &WidePathFormat::PathFormatReaderDotted::SkipToNextIfNeeded),
        (std::vector<long>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
    using Writer = PathTextFormat;
    EXPECT_EQ(kztest::SlotsOf(&Writer::SetToAbsolutePath, &Writer::SetToRelativePath, &Writer::SetToUNCPath,
                              &Writer::AppendElement, &Writer::AppendSeparator, &Writer::AppendAbbreviationMark,
                              &Writer::AppendUpDir, &Writer::Finalize),
              (std::vector<long>{2, 3, 4, 5, 6, 7, 8, 9}));
}

}  // namespace
