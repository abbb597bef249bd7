#include "PathManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>

#include "FileManager.h"
#include "PathCache.h"
#include "PathClassic.h"
#include "PathManagerImplementation.h"
#include "PathTesting.h"
#include "TempFolder.h"

namespace {

using kztest::MakePath;
using kztest::MakePathBelow;

class PathManagerTest : public kztest::PathTest {};

TEST_F(PathManagerTest, FileSystemText)
{
    struct Case {
        PathRef path;
        KzErr err;
        std::string text;
    };
    const std::string part(255, 'p');
    const Case cases[] = {
        {PathRef(0), 0, "/"},
        {MakePath(PathRef::kAbsolute, {"usr", "lib"}), 0, "/usr/lib"},
        {MakePath(PathRef::kAbsolute, {"..", "x"}), 0, "/../x"},
        {MakePath(PathRef::kAbsolute, {part, part, part, part}), 0, "/" + part + "/" + part + "/" + part + "/" + part},
        {MakePath(PathRef::kAbsolute, {part, part, part, part + "p"}), 1, ""},
        {MakePath(PathRef::kAbsolute, {"x", part, part, part, part}), 1, ""},
        {MakePath(PathRef::kAbsolute, {"a/b"}), 1, ""},
        {MakePath(PathRef::kAbsolute, {std::string("a\0b", 3)}), 1, ""},
        {MakePath(PathRef::kRelative, {"usr"}), 1, ""},
        {MakePath(PathRef::kUNC, {"usr"}), 1, ""},
        {PathRef(), 1, ""},
    };
    for (const Case& test : cases) {
        std::string text = "-";
        EXPECT_EQ(kz::PathToFileSystemText(test.path, &text), test.err) << test.text;
        EXPECT_EQ(text, test.text);
    }
}

TEST_F(PathManagerTest, WhatIsAtAPath)
{
    const kztest::TempFolder folder;
    const std::string file = folder.Write("file", "x");
    ASSERT_EQ(mkfifo(folder.File("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink(file.c_str(), folder.File("link").c_str()), 0);
    struct Case {
        std::string text;
        int kind;  // of FExists
        bool isSpecial;
    };
    const Case cases[] = {{folder.File("file"), kFMIsFile, false},
                          {folder.File("."), kFMIsDirectory, false},
                          {folder.File("link"), kFMIsFile, false},
                          {folder.File("fifo"), kFMIsFile, true},
                          {folder.File("absent"), kFMAbsent, false},
                          {"/", kFMIsDirectory, false},
                          {"relative", kFMAbsent, false}};
    for (const Case& test : cases) {
        const PathRef path(test.text, "pathref_unix");
        EXPECT_EQ(path.Exists(), test.kind != kFMAbsent) << test.text;
        EXPECT_EQ(path.IsAFile(), test.kind == kFMIsFile) << test.text;
        EXPECT_EQ(path.IsADirectory(), test.kind == kFMIsDirectory) << test.text;
        EXPECT_EQ(path.IsSpecial(), test.isSpecial) << test.text;
    }
    // A folder that is known to be absent answers for all below it.
    using PathRefPrivate::CachedPathFlavor;
    const PathRef fifo(folder.File("fifo"), "pathref_unix");
    ASSERT_EQ(fifo.GetParentDirectory().Cache("FExists", new CachedPathFlavor(CachedPathFlavor::kAbsent, 60000,
                                                                              CachedPathFlavor::kDependsOnMetaData)),
              kzErrNone);
    EXPECT_FALSE(fifo.IsSpecial());
}

TEST_F(PathManagerTest, ClassicCalls)
{
    for (int base = 0; base < 5; ++base) {
        const PathRef path(base);
        EXPECT_EQ(FIsAbsPath(&path) != 0, base == PathRef::kAbsolute) << base;
    }
    EXPECT_FALSE(FIsAbsPath(nullptr));
    auto* path = new PathRef(0);
    EXPECT_EQ(FDestroyPath(&path), kzErrNone);
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(FDestroyPath(nullptr), kzErrNone);
    EXPECT_TRUE(mReports.Take(2, "This is a noop."));
    EXPECT_TRUE(FileNameNEqual("abX", "ABy", 2));
    EXPECT_FALSE(FileNameCStrEqual("abX", "ABy"));
}

TEST(PathManagerServiceTest, LocaleAndSteppingByCharacter)
{
    kztest::ReportCatcher reports;
    const char text[] = "a\xE5\x90\x8D/";
    EXPECT_EQ(PathNextChar(text, 1), 2);
    EXPECT_EQ(PathPrevChar(text, 4), 3);
    unsetenv("LANG");
    std::setlocale(LC_CTYPE, "C.UTF-8");  // alone: the locale of all categories then has no plain name
    {
        const kztest::RunningLibrary library;
        ASSERT_EQ(library.baseResult, kzErrNone);
        EXPECT_STREQ(std::getenv("LANG"), "C.UTF-8");
        EXPECT_EQ(PathNextChar(text, 1), 4);
        EXPECT_EQ(PathPrevChar(text, 4), 1);
    }
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(PathNextChar(text, 1), 2);
    EXPECT_EQ(PathPrevChar(text, 0), 0);
    EXPECT_EQ(PathPrevChar(text, -1), 0);
    EXPECT_TRUE(reports.Take(2, "Negative index into string in PathPrevChar"));
}

}  // namespace
