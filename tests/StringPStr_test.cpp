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

TEST(StringPStr, CopyingAndAppending)
{
    const std::string longest(255, 'x');
    PStrBuffer buffer;
    EXPECT_EQ(PStrCpy(buffer, PStrValue(longest)), +buffer);
    EXPECT_EQ(buffer.Text(), longest);
    PStrBuffer cut(std::string(200, 'a'));
    EXPECT_EQ(PStrCat(cut, PStrValue(std::string(200, 'b'))), 255);
    EXPECT_EQ(cut.Text(), std::string(200, 'a') + std::string(55, 'b'));
    PStrBuffer twice("abc");
    EXPECT_EQ(PStrCat(twice, twice), 6);
    EXPECT_EQ(twice.Text(), "abcabc");
}

TEST(StringPStr, TerminatingAndConverting)
{
    PStrBuffer full(std::string(255, 'x'));
    EXPECT_EQ(PStrTerminateIfPossible(full), 255);
    EXPECT_EQ(full.bytes[255], 'x');
    EXPECT_EQ(PStrNullTerminate(full), 255);
    EXPECT_EQ(full.Text(), std::string(254, 'x') + '\0');
    for (const bool isForced : {false, true}) {
        PStrBuffer longest(std::string(254, 'x'));
        EXPECT_EQ(isForced ? PStrNullTerminate(longest) : PStrTerminateIfPossible(longest), 254);
        EXPECT_EQ(longest.bytes[255], 0);
    }
    PStrBuffer p;
    EXPECT_EQ(CToPStr(std::string(300, 'y').c_str(), p), 255);
    EXPECT_EQ(p.Text(), std::string(255, 'y'));
    char c[8] = "0123456";
    EXPECT_EQ(PToCStr(PStrValue("abc"), c), 3);
    EXPECT_STREQ(c, "abc");
    EXPECT_EQ(CToPStr(c, reinterpret_cast<unsigned char*>(c)), 3) << "in place";
    EXPECT_EQ(PToCStr(reinterpret_cast<unsigned char*>(c), c), 3);
    EXPECT_STREQ(c, "abc");
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
