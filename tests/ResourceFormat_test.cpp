#include "ResourceFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ResourceMap.h"
#include "zvresfile.h"

namespace {

using kztest::Json;
using kztest::ResImage;

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
    MapBlock(std::string map, const RsrcHeader& header)
    {
        map.resize(std::max<std::size_t>(header.mapSize, sizeof(RsrcMap)));
        mBytes.assign(map.begin(), map.end());
        mBytes.shrink_to_fit();
    }
    RsrcMap* Map() { return reinterpret_cast<RsrcMap*>(mBytes.data()); }
    const std::vector<unsigned char>& Bytes() const { return mBytes; }

private:
    std::vector<unsigned char> mBytes;
};

// Touches whatever a file object would in an accepted map.
void WalkMap(RsrcMap* map)
{
    kz::SortRsrcIDs(map);
    TypeMap* types = kz::GetTypeMap(map);
    for (int i = 0; i < kz::TypeCount(map); ++i) {
        const TypeList list = kz::FirstType(types)[i];
        RsrcList* entry = kz::FirstEntry(types, list);
        for (int k = 0; k < kz::EntryCount(list); ++k, ++entry) {
            kz::EntryName(map, *entry);
            kz::SearchID(kz::FirstEntry(types, list), kz::EntryCount(list), entry->id);
        }
    }
}

TEST(ResourceFormat, HeadersOfTheVectors)
{
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_headers.jsonl")) {
        SCOPED_TRACE(row.Line());
        const RsrcHeader header = NativeHeader(row["header"].Hex());
        EXPECT_EQ(header.ValidMagicAndVersion(), row["validMagicAndVersion"].Int() != 0);
        EXPECT_EQ(header.MeetsMinimalSanity(static_cast<int>(row["fileSize"].Int())), row["sanity"].Int());
    }
}

TEST(ResourceFormat, MapsOfTheVectors)
{
    kztest::ReportCatcher reports;
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_maps.jsonl")) {
        SCOPED_TRACE(row.Line());
        const RsrcHeader header = NativeHeader(row["header"].Hex());
        MapBlock block(row["map"].Hex(), header);
        const int result = ZVResFile::NativizeAndValidateRsrcMap(block.Map(), header);
        EXPECT_EQ(result, row["result"].Int());
        EXPECT_EQ(reports.Take(kDbgWarning, "ZVResFile::VerifyRsrcHeaderAgreement: no agreement;"), result == 7);
        if (result == 0) {
            WalkMap(block.Map());
        }
    }
}

TEST(ResourceFormat, HeadersThatNoVectorHolds)
{
    const ResImage image({{"AAAA", 1, "12345678"}});
    const RsrcHeader sound = NativeHeader(image.Header());
    const int size = static_cast<int>(image.Bytes().size());
    RsrcHeader mapBehindTheEnd = sound;
    mapBehindTheEnd.mapOffset = static_cast<unsigned>(size) + 1;
    RsrcHeader noMap = sound;
    noMap.mapSize = 0;
    RsrcHeader noData = sound;
    noData.dataSize = 0;
    EXPECT_EQ(sound.MeetsMinimalSanity(size), 0);
    EXPECT_EQ(mapBehindTheEnd.MeetsMinimalSanity(size), 2);
    EXPECT_EQ(noMap.MeetsMinimalSanity(size), 6);
    EXPECT_EQ(noData.MeetsMinimalSanity(size), 6);
}

// A sound image with one number replaced, and what the code under test makes of it.
struct Row {
    int line;
    const char* broken;
    std::size_t offset;
    unsigned value;
    int expected;
};

TEST(ResourceFormat, MapsThatNoVectorHolds)
{
    // Three entries, A A B, with names "one" and "two" at 0 and 4 of the 8 bytes from 140.
    const ResImage sound({{"AAAA", 1, "1234", "one"}, {"AAAA", 2, "5678"}, {"BBBB", 1, "", "two"}});
    const Row kRows[] = {
        {__LINE__, "nothing", sound.MapField(32), 0xFFFFFFFF, 0},
        {__LINE__, "version of the copy", sound.MapField(4), 0x0D0A0002, 7},
        {__LINE__, "map size of the copy", sound.MapField(20), 0x7FFFFFFF, 7},
        {__LINE__, "data size of the copy", sound.MapField(28), 0x7FFFFFFC, 7},
        {__LINE__, "type map in the head", sound.MapField(44), 51, 11},
        {__LINE__, "list in the type map", sound.TypeField(0, 8), 8, 17},
        {__LINE__, "list between entries", sound.TypeField(0, 8), sound.ListOffset(0) + 4, 17},
        {__LINE__, "list runs out of the space", sound.TypeField(0, 8), sound.ListOffset(2), 18},
        {__LINE__, "resource attribute 0x40", sound.EntryField(1, 8), 0x40, 19},
        {__LINE__, "name without bytes", sound.MapField(144), 0x006F6E65, 21},
        {__LINE__, "name one byte too long", sound.MapField(144), 0x0474776F, 21},
        {__LINE__, "data at an odd place", sound.EntryField(0, 12), 2, 22},
        {__LINE__, "data before the section", sound.EntryField(0, 12), 0xFFFFFFFC, 22},
        {__LINE__, "data at the last word", sound.EntryField(0, 12), 16, 0},
    };
    kztest::ReportCatcher reports;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        ResImage image = sound;
        image.PutU32(row.offset, row.value);
        const RsrcHeader header = NativeHeader(image.Header());
        MapBlock block(image.Map(), header);
        EXPECT_EQ(ZVResFile::NativizeAndValidateRsrcMap(block.Map(), header), row.expected) << row.broken;
        EXPECT_EQ(reports.Take(kDbgWarning, "no agreement;"), row.expected == 7);
    }

    // Types that fit the map, but not the space before its names.
    ResImage image({{"AAAA", 1, "1234", "a name of 20 bytes.."}});
    image.PutU32(image.MapField(52), 2);
    const RsrcHeader header = NativeHeader(image.Header());
    MapBlock block(image.Map(), header);
    EXPECT_EQ(ZVResFile::NativizeAndValidateRsrcMap(block.Map(), header), 14);
}

TEST(ResourceFormat, ConversionToTheFileUndoesTheConversionToTheHost)
{
    for (const char* name : {"strings", "names", "many_types", "layout", "attributes", "edited"}) {
        SCOPED_TRACE(name);
        const std::string file = kztest::ReadWholeFile(kztest::DataFile("rsrc/" + std::string(name) + ".rsrc"));
        const RsrcHeader header = NativeHeader(file);
        const MapBlock stored(file.substr(header.mapOffset, header.mapSize), header);
        MapBlock weak = stored;
        MapBlock strict = stored;
        EXPECT_EQ(ZVResFile::StandardizeRsrcMap(weak.Map(), ZVResFile::toNative, &header), 0);
        EXPECT_EQ(ZVResFile::NativizeAndValidateRsrcMap(strict.Map(), header), 0);
        EXPECT_EQ(weak.Bytes(), strict.Bytes());
        EXPECT_EQ(ZVResFile::StandardizeRsrcMap(weak.Map(), ZVResFile::toFile, nullptr), 0);
        EXPECT_EQ(weak.Bytes(), stored.Bytes());
        EXPECT_EQ(ZVResFile::StandardizeRsrcMap(weak.Map(), ZVResFile::toNative, nullptr), 0);
        EXPECT_EQ(weak.Bytes(), strict.Bytes());
    }
}

TEST(ResourceFormat, WeakConversionRefusesOnlyWhatLeadsOutside)
{
    const ResImage sound({{"AAAA", 1, "1234", "one"}, {"BBBB", 1, ""}});
    const Row kRows[] = {
        {__LINE__, "map attributes", sound.MapField(40), 0xFFFFFFFF, 0},
        {__LINE__, "resource attributes", sound.EntryField(0, 8), 0xFFFFFFFF, 0},
        {__LINE__, "name offset", sound.EntryField(0, 4), 0x7FFFFFFF, 0},
        {__LINE__, "name runs out of the map", sound.EntryField(0, 4), 3, 0},
        {__LINE__, "data offset", sound.EntryField(0, 12), 0xFFFFFFFF, 0},
        {__LINE__, "lists overlap", sound.TypeField(1, 8), sound.ListOffset(0), 0},
        {__LINE__, "type map in the head", sound.MapField(44), 0, 0},
        {__LINE__, "negative count", sound.TypeField(0, 4), 0x80000000, 0},
        {__LINE__, "names behind the end", sound.MapField(48), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "type map behind the end", sound.MapField(44), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "most entries that can be said", sound.TypeField(0, 4), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "list behind the end", sound.TypeField(1, 8), 0xFFFFFFF0, kzErrIO},
        {__LINE__, "list over the type map", sound.TypeField(1, 8), 4, kzErrIO},
        {__LINE__, "more types than fit", sound.MapField(52), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "fewest types that can be said", sound.MapField(52), 0x80000000, kzErrIO},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        ResImage image = sound;
        image.PutU32(row.offset, row.value);
        const RsrcHeader header = NativeHeader(image.Header());
        MapBlock block(image.Map(), header);
        EXPECT_EQ(ZVResFile::StandardizeRsrcMap(block.Map(), ZVResFile::toNative, &header), row.expected) << row.broken;
        if (row.expected == 0) {
            WalkMap(block.Map());
        }
    }
}

TEST(ResourceFormat, AnEmptyHeaderIsSound)
{
    RsrcHeader header;
    header.InitEmptyHeader(kz::FourCharCode("MAKE"), kz::FourCharCode("TYPE"));
    EXPECT_EQ(header.MeetsMinimalSanity(32), 0);
    header.Endianize(ZVResFile::toFile);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&header), sizeof header),
              std::string("RSRC\r\n\0\3TYPEMAKE\0\0\0\x20\0\0\0\0\0\0\0\x20\0\0\0\0", 32));
}

TEST(ResourceFormat, ReadRsrcHeaderNeedsASource)
{
    kztest::ReportCatcher reports;
    RsrcHeader header;
    int shift = 0;
    EXPECT_EQ(ZVResFile::ReadRsrcHeader(nullptr, &header, &shift), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "ZVResFile::ReadRsrcHeader, Bad Argument"));
}

}  // namespace
