#include "ResourceFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "JsonLines.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ZVResfileIO.h"
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

TEST(ResourceFormat, EachBrokenHeaderFieldHasItsNumber)
{
    const ResImage sound({{"AAAA", 1, "12345678"}});
    const unsigned size = static_cast<unsigned>(sound.Bytes().size());
    struct Row {
        int line;
        const char* broken;
        std::size_t offset;
        unsigned value;
        int expected;
    };
    const Row kRows[] = {
        {__LINE__, "nothing", 28, 12, 0},
        {__LINE__, "magic", 0, 0x52535244, 1},
        {__LINE__, "mark", 4, 0x0D0D0003, 1},
        {__LINE__, "version 2 needs no mark", 4, 0x0D0D0002, 0},
        {__LINE__, "version 1", 4, 0x0D0A0001, 1},
        {__LINE__, "negative version", 4, 0x0D0A8003, 1},
        {__LINE__, "data inside the header", 24, 31, 4},
        {__LINE__, "data behind the end", 24, size + 1, 4},
        {__LINE__, "negative data offset", 24, 0x80000000, 4},
        {__LINE__, "negative data size", 28, 0xFFFFFFFC, 5},
        {__LINE__, "data beyond the end", 28, size - 28, 5},
        {__LINE__, "data size no multiple of 4", 28, 11, 5},
        {__LINE__, "map behind the end", 16, size + 1, 2},
        {__LINE__, "negative map offset", 16, 0xFFFFFFFF, 2},
        {__LINE__, "map beyond the end", 16, 45, 3},
        {__LINE__, "negative map size", 20, 0x80000000, 3},
        {__LINE__, "data without a map", 20, 0, 6},
        {__LINE__, "map without data", 28, 0, 6},
        {__LINE__, "map too small", 20, 87, 3},
        {__LINE__, "gap before the map", 28, 8, 10},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        ResImage image = sound;
        image.PutU32(row.offset, row.value);
        const RsrcHeader header = NativeHeader(image.Header());
        EXPECT_EQ(header.MeetsMinimalSanity(static_cast<int>(size)), row.expected) << row.broken;
    }
}

TEST(ResourceFormat, EachBrokenMapFieldHasItsNumber)
{
    // Three entries, A A B, with names "one" and "two" at 0 and 4; the types' lists can be laid over them.
    const ResImage sound({{"AAAA", 1, "1234", "one"}, {"AAAA", 2, "5678"}, {"BBBB", 1, "", "two"}});
    struct Row {
        int line;
        const char* broken;
        std::size_t offset;
        unsigned value;
        int expected;
    };
    const Row kRows[] = {
        {__LINE__, "nothing", sound.MapField(32), 0xFFFFFFFF, 0},
        {__LINE__, "file type of the copy", sound.MapField(8), 0x58585858, 7},
        {__LINE__, "map offset of the copy is not compared", sound.MapField(16), 0, 0},
        {__LINE__, "map attribute 1", sound.MapField(40), 0x01, 8},
        {__LINE__, "map attributes 0xE0", sound.MapField(40), 0xE0, 0},
        {__LINE__, "type map in the head", sound.MapField(44), 51, 11},
        {__LINE__, "type map behind the end", sound.MapField(44), 0x80000000, 11},
        {__LINE__, "names in the type map", sound.MapField(48), 84, 12},
        {__LINE__, "names at an odd place", sound.MapField(48), 141, 12},
        {__LINE__, "no type", sound.MapField(52), 0xFFFFFFFF, 13},
        {__LINE__, "too many types", sound.MapField(52), 4, 13},
        {__LINE__, "types fill the space", sound.MapField(48), 88, 15},
        {__LINE__, "space no multiple of entries", sound.MapField(48), 136, 15},
        {__LINE__, "list without an entry", sound.TypeField(0, 4), 0xFFFFFFFF, 16},
        {__LINE__, "most entries that can be said", sound.TypeField(0, 4), 0x7FFFFFFF, 16},
        {__LINE__, "more entries than there are", sound.TypeField(1, 4), 1, 16},
        {__LINE__, "list in the type map", sound.TypeField(0, 8), 8, 17},
        {__LINE__, "list behind the space", sound.TypeField(0, 8), sound.ListOffset(3), 17},
        {__LINE__, "list between entries", sound.TypeField(0, 8), sound.ListOffset(0) + 4, 17},
        {__LINE__, "lists overlap", sound.TypeField(1, 8), sound.ListOffset(1), 18},
        {__LINE__, "list runs out of the space", sound.TypeField(0, 8), sound.ListOffset(2), 18},
        {__LINE__, "resource attribute 0x40", sound.EntryField(1, 8), 0x40, 19},
        {__LINE__, "name offset -2", sound.EntryField(0, 4), 0xFFFFFFFE, 20},
        {__LINE__, "name at the last byte", sound.EntryField(0, 4), 7, 20},
        {__LINE__, "name length 255", sound.MapField(144), 0xFF6F6E65, 21},
        {__LINE__, "name without bytes", sound.MapField(144), 0x006F6E65, 21},
        {__LINE__, "name runs out of the map", sound.EntryField(0, 4), 6, 21},
        {__LINE__, "data at an odd place", sound.EntryField(0, 12), 2, 22},
        {__LINE__, "data behind the end", sound.EntryField(0, 12), 20, 22},
        {__LINE__, "data at the last word", sound.EntryField(0, 12), 16, 0},
        {__LINE__, "entry of no list", sound.TypeField(0, 4), 0, 23},
    };
    kztest::ReportCatcher reports;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        ResImage image = sound;
        image.PutU32(row.offset, row.value);
        const RsrcHeader header = NativeHeader(image.Header());
        MapBlock block(image.Map(), header);
        EXPECT_EQ(ZVResFile::NativizeAndValidateRsrcMap(block.Map(), header), row.expected) << row.broken;
    }
    reports.Take(kDbgWarning, "no agreement");
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
    struct Row {
        int line;
        const char* broken;
        std::size_t offset;
        unsigned value;
        int expected;
    };
    const Row kRows[] = {
        {__LINE__, "map attributes", sound.MapField(40), 0xFFFFFFFF, 0},
        {__LINE__, "resource attributes", sound.EntryField(0, 8), 0xFFFFFFFF, 0},
        {__LINE__, "name offset", sound.EntryField(0, 4), 0x7FFFFFFF, 0},
        {__LINE__, "data offset", sound.EntryField(0, 12), 0xFFFFFFFF, 0},
        {__LINE__, "lists overlap", sound.TypeField(1, 8), sound.ListOffset(0), 0},
        {__LINE__, "negative count", sound.TypeField(0, 4), 0x80000000, 0},
        {__LINE__, "names behind the end", sound.MapField(48), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "type map behind the end", sound.MapField(44), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "most entries that can be said", sound.TypeField(0, 4), 0x7FFFFFFF, kzErrIO},
        {__LINE__, "list behind the end", sound.TypeField(1, 8), 0xFFFFFFF0, kzErrIO},
        {__LINE__, "list over the type map", sound.TypeField(1, 8), 4, kzErrIO},
        {__LINE__, "more types than fit", sound.MapField(52), 0x7FFFFFFF, kzErrIO},
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

TEST(ResourceFormat, WeakConversionStaysInsideEveryMap)
{
    kztest::ReportCatcher reports;
    std::mt19937 random(20011);
    int accepted = 0;
    for (const Json& row : kztest::ReadJsonLines("vectors/rsrc_maps.jsonl")) {
        const RsrcHeader header = NativeHeader(row["header"].Hex());
        for (int round = 0; round < 40; ++round) {
            std::string map = row["map"].Hex();
            for (int i = 0; i < round % 4; ++i) {
                map[40 + random() % (map.size() - 40)] = static_cast<char>(random() % 3 == 0 ? random() : random() % 4);
            }
            MapBlock block(map, header);
            if (ZVResFile::StandardizeRsrcMap(block.Map(), ZVResFile::toNative, &header) == 0) {
                ++accepted;
                WalkMap(block.Map());
            }
        }
    }
    EXPECT_GT(accepted, 100);
    reports.TakeAll();
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

TEST(ResourceFormat, ReadRsrcHeaderNeedsAllArguments)
{
    kztest::ReportCatcher reports;
    ZVResfileIO io;
    RsrcHeader header;
    int shift = 0;
    EXPECT_EQ(ZVResFile::ReadRsrcHeader(nullptr, &header, &shift), kzErrArgument);
    EXPECT_EQ(ZVResFile::ReadRsrcHeader(&io, nullptr, &shift), kzErrArgument);
    EXPECT_EQ(ZVResFile::ReadRsrcHeader(&io, &header, nullptr), kzErrArgument);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(reports.Take(kDbgWarning, "ZVResFile::ReadRsrcHeader, Bad Argument"));
    }
}

}  // namespace
