#include "StringPStr.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "FaultLoop.h"
#include "JsonLines.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"
#include "TestStrings.h"

namespace {

using kztest::Json;
using kztest::PStrBuffer;
using kztest::PStrValue;

// One that is full has no room for a terminator, which takes the place of its last byte where it must be.
TEST(StringPStr, Terminating)
{
    for (const int count : {0, 254, 255}) {
        const std::string text(static_cast<std::size_t>(count), 'x');
        PStrBuffer able(text), forced(text);
        EXPECT_TRUE(PStrTerminateIfPossible(able) == count && PStrNullTerminate(forced) == count);
        EXPECT_EQ(able.Text(), text);
        EXPECT_EQ(forced.Text(), count == 255 ? text.substr(1) + '\0' : text);
        EXPECT_TRUE(count == 255 || (able.bytes[count + 1] == 0 && forced.bytes[count + 1] == 0));
    }
}

// What a row's call returns; its results by text go to `dst`, and where there are two, to `source` too.
long long Called(const Json& row, PStrBuffer& dst, PStrBuffer& source)
{
    const std::string& op = row["op"].Str();
    if (op == "PStrInPStr") {
        return PStrInPStr(source, static_cast<int32>(row["start"].Int()), PStrValue(row["sub"].Str()));
    }
    if (op == "PStrEndsWith") {
        return PStrEndsWith(source, row["suffix"].Str().c_str());
    }
    if (op == "PStrSplitAtChar") {
        return PStrSplitAtChar(source, row["at"].Str()[0], dst, source);
    }
    if (op == "PStrFindReplace") {
        return PStrFindReplace(dst, source, row["find"].Str().c_str(), row["replace"].Str().c_str());
    }
    return PStrNCpy(dst, source, static_cast<uInt32>(row["n"].UInt())) == dst.bytes ? 1 : 0;
}

// Behind each text stands more that would match.
TEST(StringPStr, Vectors)
{
    int rows = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/short_strings.jsonl")) {
        if (row["op"].Str()[0] != 'P') {
            continue;
        }
        SCOPED_TRACE(row.Line());
        const std::string& s = row["s"].Str();
        PStrBuffer dst("old"), source((s + " two.txt,,aab").substr(0, 255));
        source.bytes[0] = static_cast<unsigned char>(s.size());
        EXPECT_EQ(Called(row, dst, source), row["result"].Int());
        if (row.Has("text")) {
            EXPECT_EQ(dst.Text(), row["text"].Str());
        }
        if (row.Has("right")) {
            EXPECT_EQ(source.Text(), row["right"].Str());
        }
        if (row.Has("find")) {
            Called(row, source, source);
            EXPECT_EQ(source.Text(), row["text"].Str()) << "in place";
        }
        ++rows;
    }
    EXPECT_EQ(rows, 36);
}

TEST(StringPStr, Hashes)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/hashes.jsonl")) {
        if (row["op"].Str() == "PStrHash32") {
            EXPECT_EQ(PStrHash32(PStrValue(row["text"].Str()), row["ignoreCase"].Int() != 0), row["hash"].UInt())
                << row.Line();
        }
    }
    EXPECT_EQ(PStrHash32(nullptr, 1), 0u);
    const PStrValue name("stra\u00DFe"), upper("STRASSe");
    uInt32 hash = 0;
    {
        kztest::FailAllocation fail(1, kztest::FailAllocation::kForGood, kztest::FailAllocation::kBlocksAndNew);
        hash = PStrHash32(name, 1);
    }
    EXPECT_EQ(hash, PStrHash32(upper, 0)) << "without memory";
}

TEST(StringPStr, BothSpellings)
{
    char text[256] = "\4a.bb", left[256] = "", right[256] = "", plain[256] = "";
    unsigned char dst[256], find[] = "b", replace[] = "cd";
    EXPECT_TRUE(PStrSplitAtChar(text, '.', left, right));
    EXPECT_STREQ(left, "\1a");
    EXPECT_EQ(PStrCat(PStrCpy(left, right), left), 4);
    EXPECT_EQ(PStrInPStr(left, 1, right), 3);
    EXPECT_EQ(PStrCmp(text, left), 'a' - 'b');
    EXPECT_EQ(PToCStr(PStrNCpy(right, text, 3), plain), 2);
    EXPECT_STREQ(plain, "a.");
    EXPECT_EQ(PToCStr(text, text), 4);
    EXPECT_EQ(CToPStr(text, text), 4) << "in place";
    EXPECT_EQ(PToCStr(kz::AsBytes(text), dst), 4);
    EXPECT_EQ(CToPStr(dst, kz::AsBytes(text)), 4);
    EXPECT_TRUE(PStrFindReplace(left, text, "b", "cd") && PStrEndsWith(left, "cdcd"));
    EXPECT_TRUE(PStrFindReplace(dst, kz::AsBytes(text), find, replace) && PStrEqual(dst, kz::AsBytes(left)));
}

TEST(StringPStr, Duplicating)
{
    kztest::ReportCatcher reports;
    const PStrValue text("text");
    kztest::FaultLoop(
        [&](auto failed) {
            unsigned char* const copy = PStrDup(text);
            EXPECT_TRUE(copy == nullptr ? failed() : PStrEqual(copy, text) != 0);
            DSDisposePtr(copy);
        },
        kztest::FailAllocation::kBlocks);
    EXPECT_TRUE(reports.Take(kDbgWarning, "PStrDup FAILED:text, size 5, NULL"));
    reports.TakeAll();
    EXPECT_EQ(PStrDup(nullptr), nullptr);
}

}  // namespace
