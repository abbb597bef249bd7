#include "PathText.h"

#include <gtest/gtest.h>

#include "PathCachedItem.h"
#include "PathFormatReader.h"
#include "PathTesting.h"
#include "PathTextFormat.h"
#include "SlotOf.h"

namespace {

class PathTextTest : public kztest::PathTest {};

TEST_F(PathTextTest, ATextOfSeparatorsIsNoDeeperThanTheStack)
{
    EXPECT_EQ(PathRef("a" + std::string(1000000, '/') + "b", "pathref_unix").ToString("pathref_unix"), "a/b");
    EXPECT_FALSE(WidePathFormat::PathFormatReader::Iterator());
}

TEST_F(PathTextTest, TextIsKeptWithTheElement)
{
    const PathRef path = kztest::MakePath(PathRef::kAbsolute, {"a", "b"});
    for (const int isRealTime : {1, 0}) {
        mPaths.host.isRealTimeTarget = isRealTime;
        EXPECT_EQ(path.ToString("pathref_unix"), "/a/b");
        path.FlushCache();
        bool found = false;
        path.GetCached<std::string, CachedPathString>("internal_unix", &found, kSearchThisOnly, nullptr);
        EXPECT_EQ(found, isRealTime == 0);
    }
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
    using Item = PathCachedItem;
    EXPECT_EQ(kztest::SlotsOf(&Item::IsA, &Item::Expired, &Item::Invalidate, &Item::Reset, &Item::Size, &Item::Rotten,
                              &Item::Accepted),
              (std::vector<long>{0, 3, 4, 5, 6, 7, 8}));
}

}  // namespace
