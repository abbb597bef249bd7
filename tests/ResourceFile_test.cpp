// Stored resource files, from every kind of source: the codes, listings and strings that the index tells.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>

#include "CfgAccess.h"
#include "CfgSlot.h"
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
#include "ZVResfileIO.h"
#include "zvresfile.h"

namespace {

using kztest::Bytes;
using kztest::Json;
using kztest::ResImage;
using kztest::Text;

PathRef PathOf(const std::string& file)
{
    return PathRef(file, PathRef::StringUnix());
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

struct Opened {
    RsrcFile refnum = 77;
    _FMFileType type = 77;
    _FMFileCreator creator = 77;
};

KzErr OpenPath(const std::string& file, const std::string& /*bytes*/, int mode, Opened* out)
{
    const PathRef path = PathOf(file);
    return ROpenFile(&path, mode, &out->refnum, &out->type, &out->creator);
}

KzErr OpenFileRefnum(const std::string& file, const std::string& /*bytes*/, int mode, Opened* out)
{
    const PathRef path = PathOf(file);
    File_t open = nullptr;
    EXPECT_EQ(FMOpen(&open, &path, mode, kFMDenyNone), 0);
    const KzErr err = ROpenFileRefnum(open, mode, &out->refnum, &out->type, &out->creator);
    if (err != kzErrNone) {
        EXPECT_EQ(FMClose(open), 0) << "the file stays the caller's";
    }
    return err;
}

UHandle HandleWith(const std::string& bytes)
{
    const UHandle handle = DSNewHandle(bytes.size());
    std::memcpy(*handle, bytes.data(), bytes.size());
    return handle;
}

// Serves every path from memory.
const std::string* gHookBytes = nullptr;
bool ServeFromMemory(const PathRef& /*path*/, File_t* /*file*/, UHandle* mapped, unsigned char** data, int32* size)
{
    *mapped = HandleWith(*gHookBytes);
    *data = **mapped;
    *size = static_cast<int32>(gHookBytes->size());
    return true;
}

KzErr OpenThroughHook(const std::string& /*file*/, const std::string& bytes, int mode, Opened* out)
{
    gHookBytes = &bytes;
    ZVResfileIO::InitResfileIO(&ServeFromMemory);
    const KzErr err = OpenPath("/nowhere", bytes, mode, out);
    ZVResfileIO::InitResfileIO(nullptr);
    return err;
}

KzErr OpenHandle(const std::string& /*file*/, const std::string& bytes, int mode, Opened* out)
{
    const UHandle handle = HandleWith(bytes);
    const KzErr err = ROpenUHandle(handle, mode, &out->refnum, &out->type, &out->creator);
    if (err != kzErrNone) {
        EXPECT_EQ(DSDisposeHandle(handle), 0) << "the handle stays the caller's";
    }
    return err;
}

KzErr OpenConstant(const std::string& /*file*/, const std::string& bytes, int /*mode*/, Opened* out)
{
    return ROpenUPtr(Bytes(bytes), bytes.size(), &out->refnum, &out->type, &out->creator);
}

// The ways to open the bytes of a file.
const struct Source {
    const char* name;
    int mode;
    KzErr (*open)(const std::string& file, const std::string& bytes, int mode, Opened* out);
} kSources[] = {
    {"path, read-only", kRsrcReadOnly, &OpenPath},
    {"path, writable", kRsrcReadWrite, &OpenPath},
    {"path, through the hook", kRsrcReadOnly, &OpenThroughHook},
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
    const std::string nameText = row["name"].IsNull() ? "" : row["name"].Str();
    UHandle handle = nullptr;
    int gotId = 0;
    int attrs = 0;
    unsigned char name[256];
    EXPECT_EQ(RGetIndInfo(refnum, type, index, &gotId, &attrs, name), 0);
    EXPECT_EQ(gotId, id);
    EXPECT_EQ(attrs, row["attrs"].Int());
    EXPECT_EQ(Text(name), nameText);
    EXPECT_FALSE(RIsLoaded(refnum, type, id)) << "telling loads nothing";
    const KzErr error = row.Has("error") ? static_cast<KzErr>(row["error"].Int()) : 0;
    EXPECT_EQ(RGetInd(refnum, type, index, &handle), error);
    EXPECT_EQ(RIsLoaded(refnum, type, id), error == 0);
    ASSERT_EQ(handle != nullptr, error == 0);
    if (error != 0) {
        return;
    }
    int size = 0;
    _ResourceType gotType = 0;
    gotId = attrs = -1;
    EXPECT_EQ(RGetInfo(handle, &gotId, &gotType, name), 0);
    EXPECT_EQ(gotId, id);
    EXPECT_EQ(gotType, type);
    EXPECT_EQ(Text(name), nameText);
    EXPECT_EQ(RGetAttrs(handle, &attrs), 0);
    EXPECT_EQ(attrs, row["attrs"].Int());
    EXPECT_EQ(RSize(handle, &size), 0);
    ASSERT_EQ(size, row["size"].Int());
    EXPECT_EQ(Crc32({reinterpret_cast<const char*>(*handle), static_cast<std::size_t>(size)}), row["crc32"].Str());
    UHandle again = nullptr;
    EXPECT_EQ(RGet(refnum, type, id, &again), 0);
    EXPECT_EQ(again, handle);
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
            const bool opens = result["open"].Int() == 0;
            Opened open;
            ASSERT_EQ(source.open(file, bytes, source.mode, &open), result["open"].Int());
            EXPECT_EQ(open.refnum != 0, opens);
            EXPECT_EQ(TextOf(open.type), opens ? row["content"]["fileType"].Str() : TextOf(0));
            EXPECT_EQ(TextOf(open.creator), opens ? row["content"]["creator"].Str() : TextOf(0));
            if (opens) {
                int attrs = -1;
                _FMFileType type = 0;
                EXPECT_EQ(RGetFileAttrs(open.refnum, &attrs), 0);
                EXPECT_EQ(ZVResFile::RGetFileType(PathOf(file), &type, nullptr), 0);
                EXPECT_EQ(type, open.type) << "without opening";
                EXPECT_EQ(attrs, source.mode == kRsrcReadOnly ? kRsrcMapReadOnly : 0);
                CheckContent(open.refnum, row);
                while (reports.Take(kDbgWarning, "!!! Tried to release a changed resource")) {
                }
                EXPECT_EQ(RCloseFile(open.refnum), 0);
            } else {
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
        for (const auto& open : {&OpenConstant, &OpenHandle}) {
            Opened out;
            ASSERT_EQ(open("", bytes, kRsrcReadWrite, &out), size < 32 ? kzErrEndOfFile : kzErrGeneric) << size;
        }
    }
    EXPECT_EQ(kztest::CountLive(), before);
    reports.TakeAll();
}

// What a file loses while it is open is missed; what was read at once stays.
TEST(ResourceFile, AFileMayShrinkWhileItIsOpen)
{
    const kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    for (const bool mapped : {false, true}) {
        const ResImage image({{"STR ", 1, "\4text"}, {"STR ", 2, std::string(9000, 'x')}}, mapped ? "QKVZ" : "TEST");
        const std::string file = folder.Write("shrinks.rsrc", image.Bytes());
        Opened open;
        ASSERT_EQ(OpenPath(file, "", kRsrcReadOnly, &open), 0);
        std::filesystem::resize_file(file, mapped ? 0 : 5000);
        unsigned char str[256];
        EXPECT_EQ(RGetPStr(open.refnum, 1, str), 0);
        EXPECT_EQ(Text(str), "text");
        EXPECT_EQ(RGetPStr(open.refnum, 2, str), mapped ? 0 : kzErrResFileNotOpen);
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

TEST(ResourceFile, ARunTimeProcessTakesIdsAsSorted)
{
    const kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    const std::string bytes = ResImage({{"AAAA", 3, "c"}, {"AAAA", 2, "b"}, {"AAAA", 1, "a"}}).Bytes();
    for (const KzBool runTime : {0, 1}) {
        library.host.isRunTime = runTime;
        Opened open;
        ASSERT_EQ(OpenConstant("", bytes, 1, &open), 0);
        UHandle handle = nullptr;
        ASSERT_EQ(RGetInd(open.refnum, TypeOf("AAAA"), 1, &handle), 0);
        EXPECT_EQ(**handle, runTime ? 'c' : 'a');
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

// A file object may be opened again, from the same source or another one.
TEST(ResourceFile, OpensAnew)
{
    const kztest::ReportCatcher reports;
    const kztest::RunningLibrary library;
    const std::string bytes = ResImage({{"AAAA", 1, "a"}}).Bytes();
    const kztest::LiveCounts before = kztest::CountLive();
    {
        ZVResFile file;
        auto* const source = new ZVResfileIO(HandleWith(bytes), kRsrcReadOnly);
        for (ZVResfileIO* io : {source, source, new ZVResfileIO(Bytes(bytes), bytes.size())}) {
            ASSERT_EQ(file.Open(io), 0);
            bool loaded = true;
            Resource* resource = nullptr;
            EXPECT_EQ(file.RIsLoaded(TypeOf("AAAA"), 1, &loaded), 0);
            EXPECT_FALSE(loaded);
            ASSERT_EQ(file.RGet(TypeOf("AAAA"), 1, &resource), 0);
            EXPECT_EQ(*resource->GetData(), 'a');
        }
    }
    EXPECT_EQ(kztest::CountLive(), before);
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
        Opened open;
        EXPECT_EQ(OpenConstant("", bytes, kRsrcReadOnly, &open), row.result);
        EXPECT_EQ(RCloseFile(open.refnum), row.result == 0 ? 0 : kzErrResFileNotOpen);
    }
    while (reports.Take(kDbgWarning, "no agreement;")) {
    }
}

// Of a block that a weakly checked file claims to have, nothing is read outside the file.
TEST(ResourceFile, WeakValidationTrustsNoLength)
{
    const kztest::ReportCatcher reports;
    const WeakLibrary library;
    const kztest::TempFolder folder;
    ResImage image({{"AAAA", 1, "1234"}});
    image.PutU32(28, 0x7FFFFFF0);
    image.PutU32(image.MapField(28), 0x7FFFFFF0);
    image.PutU32(32, 0x7FFFFF00);
    const std::string file = folder.Write("claims.rsrc", image.Bytes());
    for (const Source& source : kSources) {
        SCOPED_TRACE(source.name);
        Opened open;
        ASSERT_EQ(source.open(file, image.Bytes(), source.mode, &open), 0);
        UHandle handle = nullptr;
        EXPECT_EQ(RGet(open.refnum, TypeOf("AAAA"), 1, &handle), kzErrResFileNotOpen);
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

}  // namespace
