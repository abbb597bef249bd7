#include "PathManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>

#include "FileManager.h"
#include "PathCache.h"
#include "PathClassic.h"
#include "PathTesting.h"
#include "TempFolder.h"

namespace {

class PathManagerTest : public kztest::PathTest {};

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
    EXPECT_TRUE(FileNameNEqual("abX", "ABy", 2));
    EXPECT_FALSE(FileNameNEqual("abX", "ABy", 3));
    EXPECT_FALSE(FileNameCStrEqual("abX", "ABy"));
}

// A process of no language gets one of its characters' locale, and is then put into the locale of its language.
TEST(PathManagerServiceTest, LocaleAndSteppingByCharacter)
{
    kztest::ReportCatcher reports;
    const char text[] = "a\xE5\x90\x8D/";
    const auto expectSteps = [&text](int32 next, int32 previous) {
        EXPECT_EQ(PathNextChar(text, 1), next);
        EXPECT_EQ(PathPrevChar(text, 4), previous);
        EXPECT_EQ(PathPrevChar(text, 0), 0);
    };
    unsetenv("LC_ALL");
    unsetenv("LC_CTYPE");
    for (const char* language : {"C.UTF-8", static_cast<const char*>(nullptr)}) {
        std::setlocale(LC_ALL, "C");
        std::setlocale(LC_CTYPE, language == nullptr ? "C.UTF-8" : "C");
        language == nullptr ? unsetenv("LANG") : setenv("LANG", language, 1);
        expectSteps(2, 3);
        {
            const kztest::RunningLibrary library;
            ASSERT_EQ(library.baseResult, kzErrNone);
            EXPECT_STREQ(std::getenv("LANG"), "C.UTF-8");
            EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C.UTF-8");
            expectSteps(4, 1);
        }
    }
    // The stop is the tree's too.
    expectSteps(2, 3);
    EXPECT_EQ(PathRef(0).Element(), nullptr);
    EXPECT_EQ(PathPrevChar(text, -1), 0);
    EXPECT_TRUE(reports.Take(2, "Negative index into string in PathPrevChar"));
}

}  // namespace
