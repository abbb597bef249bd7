// The stored form: headers and maps of the vectors, read by both validators, and maps with words replaced at random.
#include "ResourceFormat.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "ByteOrder.h"
#include "FaultLoop.h"
#include "JsonLines.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ResourceMap.h"
#include "zvresfile.h"

namespace {

using kztest::Json;

RsrcHeader NativeHeader(const std::string& bytes)
{
    RsrcHeader header;
    std::memcpy(static_cast<void*>(&header), bytes.data(), sizeof header);
    header.Endianize(ZVResFile::toNative);
    return header;
}

// A map in a block of exactly the size that the header promises, so that the sanitizers see every step outside.
class MapBlock {
public:
    MapBlock(const std::string& map, const RsrcHeader& header)
        : mBytes(std::max<std::size_t>(header.mapSize, sizeof(RsrcMap)))
    {
        std::copy_n(map.begin(), std::min(map.size(), mBytes.size()), mBytes.begin());
    }
    RsrcMap* Map() { return reinterpret_cast<RsrcMap*>(mBytes.data()); }
    bool operator==(const MapBlock&) const = default;

    // Touches whatever a file object would in an accepted map.
    void Walk()
    {
        Map()->header.version = kz::kFormatVersion;
        kz::SetFormatMark(&Map()->header);
        kz::SortRsrcIDs(Map());
        ASSERT_STREQ(kz::RsrcMapFault(Map(), static_cast<uInt32>(mBytes.size())), nullptr);
        kz::VisitEntries(Map(), [&](_ResourceType type, RsrcList* entry) {
            kz::EntryName(Map(), *entry);
            const TypeList* list = kz::FindTypeList(Map(), type);
            kz::SearchID(kz::FirstEntry(kz::GetTypeMap(Map()), *list), kz::EntryCount(*list), entry->id);
            return false;
        });
    }

private:
    std::vector<unsigned char> mBytes;
};

// Both validators on the same map. Whatever one of them accepts is sound to walk; what the strict one accepts, the weak
// one takes alike, and its conversion to the file undoes the one from it.
struct BothWays {
    BothWays(const std::string& bytes, const RsrcHeader& header)
    {
        const MapBlock stored(bytes, header);
        MapBlock strictBlock = stored;
        MapBlock weakBlock = stored;
        strict = ZVResFile::NativizeAndValidateRsrcMap(strictBlock.Map(), header);
        weak = ZVResFile::StandardizeRsrcMap(weakBlock.Map(), ZVResFile::toNative, &header);
        if (strict == 0) {
            EXPECT_EQ(weak, 0);
            EXPECT_TRUE(strictBlock == weakBlock);
            EXPECT_EQ(ZVResFile::StandardizeRsrcMap(strictBlock.Map(), ZVResFile::toFile, nullptr), 0);
            EXPECT_TRUE(strictBlock == stored);
            EXPECT_EQ(ZVResFile::StandardizeRsrcMap(strictBlock.Map(), ZVResFile::toNative, nullptr), 0);
            EXPECT_TRUE(strictBlock == weakBlock);
        }
        if (weak == 0) {
            weakBlock.Walk();
        }
    }

    int strict;
    KzErr weak;
};

TEST(ResourceFormat, HeadersOfTheVectors)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_headers.jsonl")) {
        SCOPED_TRACE(row.Line());
        const RsrcHeader header = NativeHeader(row["header"].Hex());
        EXPECT_EQ(header.ValidMagicAndVersion(), row["validMagicAndVersion"].Int() != 0);
        EXPECT_EQ(header.MeetsMinimalSanity(static_cast<int>(row["fileSize"].Int())), row["sanity"].Int());
    }
    RsrcHeader header;
    header.InitEmptyHeader(kz::FourCharCode("MAKE"), kz::FourCharCode("TYPE"));
    header.Endianize(ZVResFile::toFile);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&header), sizeof header),
              std::string("RSRC\r\n\0\3TYPEMAKE\0\0\0\x20\0\0\0\0\0\0\0\x20\0\0\0\0", 32));
}

TEST(ResourceFormat, MapsOfTheVectors)
{
    kztest::ReportCatcher reports;
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_maps.jsonl")) {
        SCOPED_TRACE(row.Line());
        const BothWays result(row["map"].Hex(), NativeHeader(row["header"].Hex()));
        EXPECT_EQ(result.strict, row["result"].Int());
        EXPECT_TRUE(!row.Has("weak") || result.weak == row["weak"].Int()) << result.weak;
        int disagreements = 0;
        while (reports.Take(kDbgWarning, "ZVResFile::VerifyRsrcHeaderAgreement: no agreement;")) {
            ++disagreements;
        }
        EXPECT_EQ(disagreements, (result.strict == 7) + (result.weak == kzErrGeneric));
    }
}

TEST(ResourceFormat, TheWalkerTellsWhatLeadsOutside)
{
    // The last type, the offset and the last entry of the second list, the bytes that the block lacks. The first is
    // right.
    constexpr uInt32 kRows[][4] = {{1, 48, 0, 0}, {1, 48, 0, 1}, {5, 48, 0, 0}, {0x80000000, 48, 0, 0},
                                   {1, 27, 0, 0}, {1, 49, 0, 0}, {1, 48, 1, 0}};
    const std::string image = kztest::ResImage({{"AAAA", 1, ""}, {"BBBB", 1, ""}}).Bytes();
    const RsrcHeader header = NativeHeader(image);
    for (const auto& row : kRows) {
        MapBlock block(image.substr(header.mapOffset), header);
        EXPECT_EQ(ZVResFile::NativizeAndValidateRsrcMap(block.Map(), header), 0);
        TypeMap* types = kz::GetTypeMap(block.Map());
        types->lastTypeIndex = row[0];
        kz::FirstType(types)[1].listOffset = row[1];
        kz::FirstType(types)[1].lastRsrcIndex = static_cast<int32>(row[2]);
        EXPECT_EQ(kz::RsrcMapFault(block.Map(), header.mapSize - row[3]) == nullptr, &row == kRows) << &row - kRows;
    }
}

TEST(ResourceFormat, MapsWithRandomWords)
{
    const kztest::ReportCatcher reports;
    std::vector<Json> sound;
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_maps.jsonl")) {
        if (row["result"].Int() == 0) {
            sound.push_back(row);
        }
    }
    constexpr uInt32 kExtremes[] = {0, 1, 4, 20, 52, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    std::mt19937 random(1);
    for (unsigned n = 0; n < kztest::ModelSequences(); ++n) {
        const Json& row = sound[random() % sound.size()];
        std::string map = row["map"].Hex();
        for (unsigned k = 1 + random() % 2; k > 0; --k) {
            unsigned char* word = reinterpret_cast<unsigned char*>(&map[40 + 4 * (random() % ((map.size() - 40) / 4))]);
            const uInt32 near = kz::LoadBig<uInt32>(word) + 4 * static_cast<uInt32>(random() % 9) - 16;
            kz::StoreBig<uInt32>(word, random() % 2 != 0 ? kExtremes[random() % std::size(kExtremes)] : near);
        }
        SCOPED_TRACE(n);
        BothWays(map, NativeHeader(row["header"].Hex()));
    }
}

}  // namespace
