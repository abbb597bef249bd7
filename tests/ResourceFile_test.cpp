// Stored resource files, from every kind of source: the codes, listings and strings that the index tells.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>

#include "CfgAccess.h"
#include "FileManager.h"
#include "JsonLines.h"
#include "LiveCounts.h"
#include "MemoryManager.h"
#include "PathRef.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ResourceManager.h"
#include "TempFolder.h"
#include "TestHost.h"

namespace {

using kztest::Json;
using kztest::ResImage;

PathRef PathOf(const std::string& file)
{
    return PathRef(file, PathRef::StringUnix());
}

std::string Text(const unsigned char* pstr)
{
    return {reinterpret_cast<const char*>(pstr + 1), pstr[0]};
}

_ResourceType TypeOf(const std::string& text)
{
    _ResourceType type = 0;
    std::memcpy(&type, text.data(), sizeof type);
    return type;
}

std::string TextOf(uInt32 code)
{
    return {reinterpret_cast<const char*>(&code), sizeof code};
}

std::string Crc32(const std::string& bytes)
{
    uInt32 crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
        }
    }
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08X", ~crc);
    return text.data();
}

// One way to open the bytes of a file.
struct Source {
    const char* name;
    int mode;
    KzErr (*open)(const std::string& file, const std::string& bytes, int mode, RsrcFile* refnum, _FMFileType* type,
                  _FMFileCreator* creator);
};

KzErr OpenPath(const std::string& file, const std::string& /*bytes*/, int mode, RsrcFile* refnum, _FMFileType* type,
               _FMFileCreator* creator)
{
    const PathRef path = PathOf(file);
    return ROpenFile(&path, mode, refnum, type, creator);
}

KzErr OpenFileRefnum(const std::string& file, const std::string& /*bytes*/, int mode, RsrcFile* refnum,
                     _FMFileType* type, _FMFileCreator* creator)
{
    const PathRef path = PathOf(file);
    File_t open = nullptr;
    EXPECT_EQ(FMOpen(&open, &path, mode, kFMDenyNone), 0);
    const KzErr err = ROpenFileRefnum(open, mode, refnum, type, creator);
    if (err != kzErrNone) {
        EXPECT_EQ(FMClose(open), 0) << "the file stays the caller's";
    }
    return err;
}

KzErr OpenHandle(const std::string& /*file*/, const std::string& bytes, int mode, RsrcFile* refnum, _FMFileType* type,
                 _FMFileCreator* creator)
{
    const UHandle handle = DSNewHandle(bytes.size());
    std::memcpy(*handle, bytes.data(), bytes.size());
    const KzErr err = ROpenUHandle(handle, mode, refnum, type, creator);
    if (err != kzErrNone) {
        EXPECT_EQ(DSDisposeHandle(handle), 0) << "the handle stays the caller's";
    }
    return err;
}

KzErr OpenConstant(const std::string& /*file*/, const std::string& bytes, int /*mode*/, RsrcFile* refnum,
                   _FMFileType* type, _FMFileCreator* creator)
{
    return ROpenUPtr(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), refnum, type, creator);
}

const Source kSources[] = {
    {"path, read-only", kRsrcReadOnly, &OpenPath},
    {"path, writable", kRsrcReadWrite, &OpenPath},
    {"open file, read-only", kRsrcReadOnly, &OpenFileRefnum},
    {"open file, writable", kRsrcReadWrite, &OpenFileRefnum},
    {"handle, read-only", kRsrcReadOnly, &OpenHandle},
    {"handle, writable", kRsrcReadWrite, &OpenHandle},
    {"constant memory", kRsrcReadOnly, &OpenConstant},
};

void CheckResource(RsrcFile refnum, const std::string& typeText, int index, const Json& row)
{
    SCOPED_TRACE(typeText + " at " + std::to_string(index));
    const _ResourceType type = TypeOf(typeText);
    const int id = static_cast<int>(row["id"].Int());
    UHandle handle = nullptr;
    int gotId = 0;
    int attrs = 0;
    unsigned char name[256];
    EXPECT_EQ(RGetIndInfo(refnum, type, index, &gotId, &attrs, name), 0);
    EXPECT_EQ(gotId, id);
    EXPECT_EQ(attrs, row["attrs"].Int());
    EXPECT_EQ(Text(name), row["name"].IsNull() ? "" : row["name"].Str());
    EXPECT_FALSE(RIsLoaded(refnum, type, id)) << "telling loads nothing";
    if (row.Has("error")) {
        EXPECT_EQ(RGetInd(refnum, type, index, &handle), row["error"].Int());
        EXPECT_EQ(handle, nullptr);
        EXPECT_FALSE(RIsLoaded(refnum, type, id));
        return;
    }
    ASSERT_EQ(RGetInd(refnum, type, index, &handle), 0);
    int size = 0;
    _ResourceType gotType = 0;
    EXPECT_EQ(RGetInfo(handle, &gotId, &gotType, name), 0);
    EXPECT_EQ(gotId, id);
    EXPECT_EQ(TextOf(gotType), typeText);
    EXPECT_EQ(Text(name), row["name"].IsNull() ? "" : row["name"].Str());
    EXPECT_EQ(RGetAttrs(handle, &attrs), 0);
    EXPECT_EQ(attrs, row["attrs"].Int());
    EXPECT_EQ(RSize(handle, &size), 0);
    EXPECT_EQ(size, row["size"].Int());
    const std::string data(reinterpret_cast<const char*>(*handle), static_cast<std::size_t>(size));
    EXPECT_EQ(Crc32(data), row["crc32"].Str());
    if (row.Has("data")) {
        EXPECT_EQ(data, row["data"].Hex());
    }
    UHandle again = nullptr;
    EXPECT_EQ(RGet(refnum, type, id, &again), 0);
    EXPECT_EQ(again, handle);
    EXPECT_TRUE(RIsLoaded(refnum, type, id));
    EXPECT_EQ(RRelease(handle), (attrs & kRsrcChanged) != 0 ? kzErrArgument : 0);
}

void CheckStrings(RsrcFile refnum, const Json& row)
{
    unsigned char str[256];
    if (row.Has("stringLists")) {
        for (const auto& [id, strings] : row["stringLists"].Members()) {
            const int listId = std::stoi(id);
            const int count = static_cast<int>(strings.size());
            for (int index = 1; index <= count; ++index) {
                EXPECT_EQ(RGetIndString(refnum, str, listId, index), 0);
                EXPECT_EQ(Text(str), strings[static_cast<std::size_t>(index - 1)].Str());
            }
            for (const int outside : {0, count + 1, -1}) {
                EXPECT_EQ(RGetIndString(refnum, str, listId, outside), kzErrResNotFound);
                EXPECT_EQ(str[0], 0);
            }
        }
    }
    if (row.Has("strings")) {
        for (const auto& [id, text] : row["strings"].Members()) {
            EXPECT_EQ(RGetPStr(refnum, std::stoi(id), str), 0);
            EXPECT_EQ(Text(str), text.Str());
        }
    }
}

void CheckContent(RsrcFile refnum, const Json& row)
{
    const Json& types = row["content"]["types"];
    int count = -1;
    EXPECT_EQ(RCountTypes(refnum, &count), 0);
    ASSERT_EQ(count, static_cast<int>(types.size()));
    int total = 0;
    for (int i = 1; i <= count; ++i) {
        const Json& expected = types[static_cast<std::size_t>(i - 1)];
        _ResourceType type = 0;
        EXPECT_EQ(RGetIndType(refnum, &type, i), 0);
        ASSERT_EQ(TextOf(type), expected["type"].Str());
        const Json& resources = expected["resources"];
        int inType = -1;
        EXPECT_EQ(RCount(refnum, type, &inType), 0);
        ASSERT_EQ(inType, static_cast<int>(resources.size()));
        total += inType;
        for (int k = 1; k <= inType; ++k) {
            CheckResource(refnum, expected["type"].Str(), k, resources[static_cast<std::size_t>(k - 1)]);
        }
    }
    EXPECT_EQ(total, row["readOnly"]["resources"].Int());
    CheckStrings(refnum, row);
}

// What the debug stream tells about a failed open.
void CheckDetail(kztest::ReportCatcher* reports, const Json& result)
{
    if (result.Has("sanity")) {
        const std::string number = std::to_string(result["sanity"].Int());
        EXPECT_TRUE(reports->Take(kDbgWarning, "ZVResFile::ReadRsrcHeader: header validationErr=" + number));
    }
    if (result.Has("map")) {
        const std::string number = std::to_string(result["map"].Int());
        EXPECT_TRUE(reports->Take(kDbgWarning, "ZVResFile::Open: map validation failure " + number));
        EXPECT_EQ(reports->Take(kDbgWarning, "no agreement;"), number == "7");
    }
}

TEST(ResourceFile, StoredFilesGiveWhatTheIndexTells)
{
    kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    for (const Json& row : kztest::ReadJsonLines("rsrc/index.jsonl")) {
        const std::string bytes = kztest::ReadWholeFile(kztest::DataFile("rsrc/" + row["file"].Str()));
        ASSERT_EQ(bytes.size(), static_cast<std::size_t>(row["bytes"].Int()));
        const std::string file = folder.Write("copy.rsrc", bytes);
        for (const Source& source : kSources) {
            SCOPED_TRACE(row["file"].Str() + " from " + source.name);
            const kztest::LiveCounts before = kztest::CountLive();
            const Json& result = row[source.mode == kRsrcReadOnly ? "readOnly" : "readWrite"];
            RsrcFile refnum = 77;
            _FMFileType type = 77;
            _FMFileCreator creator = 77;
            ASSERT_EQ(source.open(file, bytes, source.mode, &refnum, &type, &creator), result["open"].Int());
            if (result["open"].Int() == 0) {
                EXPECT_EQ(TextOf(type), row["content"]["fileType"].Str());
                EXPECT_EQ(TextOf(creator), row["content"]["creator"].Str());
                int attrs = -1;
                EXPECT_EQ(RGetFileAttrs(refnum, &attrs), 0);
                EXPECT_EQ(attrs, source.mode == kRsrcReadOnly ? kRsrcMapReadOnly : 0);
                CheckContent(refnum, row);
                while (reports.Take(kDbgWarning, "!!! Tried to release a changed resource")) {
                }
                EXPECT_EQ(RCloseFile(refnum), 0);
            } else {
                EXPECT_EQ(refnum, 0u);
                EXPECT_EQ(type, 0u);
                EXPECT_EQ(creator, 0u);
                CheckDetail(&reports, result);
            }
            EXPECT_EQ(kztest::CountLive(), before);
        }
        EXPECT_EQ(kztest::ReadWholeFile(file), bytes) << "reading changed the file";
    }
}

TEST(ResourceFile, EveryTruncationFailsCleanly)
{
    kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const std::string whole = kztest::ReadWholeFile(kztest::DataFile("rsrc/strings.rsrc"));
    const kztest::LiveCounts before = kztest::CountLive();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const std::string bytes = whole.substr(0, size);
        RsrcFile refnum = 0;
        ASSERT_EQ(OpenConstant("", bytes, 1, &refnum, nullptr, nullptr), size < 32 ? kzErrEndOfFile : kzErrGeneric)
            << size;
        ASSERT_EQ(OpenHandle("", bytes, 0, &refnum, nullptr, nullptr), size < 32 ? kzErrEndOfFile : kzErrGeneric)
            << size;
    }
    EXPECT_EQ(kztest::CountLive(), before);
    reports.TakeAll();
}

TEST(ResourceFile, AMappedFileIsServedFromMemory)
{
    const kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    const std::string bytes = ResImage({{"STR ", 1, "\4text"}, {"STR ", 2, "\4more"}}, "QKVZ").Bytes();
    const std::string file = folder.Write("mapped.rsrc", bytes);
    RsrcFile refnum = 0;
    ASSERT_EQ(OpenPath(file, "", kRsrcReadOnly, &refnum, nullptr, nullptr), 0);
    folder.Write("mapped.rsrc", std::string(bytes.size(), 'x'));
    unsigned char str[256];
    EXPECT_EQ(RGetPStr(refnum, 1, str), 0);
    EXPECT_EQ(Text(str), "text");
    EXPECT_EQ(RGetPStr(refnum, 2, str), 0);
    EXPECT_EQ(Text(str), "more");
    EXPECT_EQ(RCloseFile(refnum), 0);
}

TEST(ResourceFile, ARunTimeProcessTakesIdsAsSorted)
{
    const kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    const std::string bytes = ResImage({{"AAAA", 3, "c"}, {"AAAA", 2, "b"}, {"AAAA", 1, "a"}}).Bytes();
    for (const KzBool runTime : {0, 1}) {
        library.host.isRunTime = runTime;
        RsrcFile refnum = 0;
        ASSERT_EQ(OpenConstant("", bytes, 1, &refnum, nullptr, nullptr), 0);
        UHandle handle = nullptr;
        ASSERT_EQ(RGetInd(refnum, TypeOf("AAAA"), 1, &handle), 0);
        EXPECT_EQ(**handle, runTime ? 'c' : 'a');
        EXPECT_EQ(RCloseFile(refnum), 0);
    }
}

// The library, started by a configuration that asks for weak validation.
class WeakLibrary {
public:
    WeakLibrary()
    {
        kz::SetMainCfgAccess(&kAccess);
        mLibrary.emplace();
        kz::SetMainCfgAccess(nullptr);
    }

private:
    static KzErr Read(ConfigManager* /*manager*/, uInt32 type, const unsigned char* token, void* out)
    {
        if (type != TypeOf("Bool") || Text(token) != "UseWeakRsrcFileValidation") {
            return kzErrTokenNotFound;
        }
        *static_cast<int32*>(out) = 1;
        return kzErrNone;
    }

    static constexpr kz::CfgAccess kAccess{nullptr, &Read};
    std::optional<kztest::RunningLibrary> mLibrary;
};

TEST(ResourceFile, WeakValidationOpensWhatOnlyTheValidatorsRefuse)
{
    kztest::ReportCatcher reports;
    const WeakLibrary library;
    struct Row {
        const char* file;
        KzErr result;
    };
    const Row kRows[] = {
        {"strings.rsrc", 0},
        {"damaged/map_attributes.rsrc", 0},
        {"damaged/map_entry_attributes.rsrc", 0},
        {"damaged/map_types.rsrc", 0},
        {"damaged/map_other_header.rsrc", kzErrGeneric},
        {"damaged/bad_mark.rsrc", kzErrResFileNotOpen},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.file);
        const std::string bytes = kztest::ReadWholeFile(kztest::DataFile("rsrc/" + std::string(row.file)));
        for (const Source& source : {kSources[4], kSources[6]}) {
            RsrcFile refnum = 0;
            EXPECT_EQ(source.open("", bytes, source.mode, &refnum, nullptr, nullptr), row.result) << source.name;
            EXPECT_EQ(RCloseFile(refnum), row.result == 0 ? 0 : kzErrResFileNotOpen);
        }
    }
    while (reports.Take(kDbgWarning, "no agreement;")) {
    }
}

// A block that a weakly checked file claims to have, and the file does not.
TEST(ResourceFile, WeakValidationReadsNothingOutsideTheFile)
{
    kztest::ReportCatcher reports;
    const WeakLibrary library;
    const kztest::TempFolder folder;
    ResImage image({{"AAAA", 1, "1234"}});
    for (const std::size_t header : {std::size_t{0}, image.MapField(0)}) {
        image.PutU32(header + 28, 0x7FFFFFF0);
    }
    image.PutU32(32, 0x7FFFFF00);
    const std::string file = folder.Write("claims.rsrc", image.Bytes());
    for (const Source& source : kSources) {
        SCOPED_TRACE(source.name);
        RsrcFile refnum = 0;
        ASSERT_EQ(source.open(file, image.Bytes(), source.mode, &refnum, nullptr, nullptr), 0);
        UHandle handle = nullptr;
        EXPECT_EQ(RGet(refnum, TypeOf("AAAA"), 1, &handle), kzErrResFileNotOpen);
        EXPECT_EQ(RCloseFile(refnum), 0);
    }
}

}  // namespace
