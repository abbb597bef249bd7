// Stored resource files, from every kind of source: the codes, listings and strings that the index tells.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <string>

#include "CfgAccess.h"
#include "CfgSlot.h"
#include "FaultLoop.h"
#include "FileManager.h"
#include "JsonLines.h"
#include "PathRef.h"
#include "ReportCatcher.h"
#include "ResImage.h"
#include "ResourceChecks.h"
#include "ResourceManager.h"
#include "TestHost.h"
#include "zvresfile.h"

namespace {

using kztest::Bytes;
using kztest::Json;
using kztest::ResImage;
using kztest::Text;

// The bytes of a resource file, which stand at the path too.
struct Stored {
    Stored(const kztest::TempFolder& folder, const std::string& content)
        : path(folder.Write("stored.rsrc", content), PathRef::StringUnix()), bytes(content)
    {}

    const PathRef path;
    const std::string bytes;
};

struct Opened {
    RsrcFile refnum = 0;
    _FMFileType type = 77;
    _FMFileCreator creator = 77;
};

KzErr OpenPath(const Stored& stored, int mode, Opened* out)
{
    return ROpenFile(&stored.path, mode, &out->refnum, &out->type, &out->creator);
}

KzErr OpenFileRefnum(const Stored& stored, int mode, Opened* out)
{
    File_t file = nullptr;
    KzErr err = FMOpen(&file, &stored.path, mode, kFMDenyNone);
    if (err == kzErrNone && (err = ROpenFileRefnum(file, mode, &out->refnum, &out->type, &out->creator)) != kzErrNone) {
        EXPECT_EQ(FMClose(file), 0) << "the file stays the caller's";
    }
    return err;
}

// A handle with the bytes; null when there is no memory.
UHandle HandleWith(const std::string& bytes)
{
    const UHandle handle = DSNewHandle(bytes.size());
    if (handle != nullptr) {
        std::memcpy(*handle, bytes.data(), bytes.size());
    }
    return handle;
}

KzErr OpenHandle(const Stored& stored, int mode, Opened* out)
{
    const UHandle handle = HandleWith(stored.bytes);
    const KzErr err = ROpenUHandle(handle, mode, &out->refnum, &out->type, &out->creator);
    if (err != kzErrNone && handle != nullptr) {
        EXPECT_EQ(DSDisposeHandle(handle), 0) << "the handle stays the caller's";
    }
    return handle != nullptr ? err : kzErrMemoryFull;
}

// Opens a path at which there is no file, and which the hook serves from memory.
KzErr OpenThroughHook(const Stored& stored, int mode, Opened* out)
{
    static const Stored* served = nullptr;
    served = &stored;
    ZVResfileIO::InitResfileIO([](const PathRef&, File_t*, UHandle* mapped, unsigned char** data, int32* size) {
        *mapped = HandleWith(served->bytes);
        *data = *mapped != nullptr ? **mapped : nullptr;
        *size = static_cast<int32>(served->bytes.size());
        return *mapped != nullptr;
    });
    const PathRef nowhere(PathRef::kAbsolute);
    const KzErr err = ROpenFile(&nowhere, mode, &out->refnum, &out->type, &out->creator);
    ZVResfileIO::InitResfileIO(nullptr);
    return err;
}

KzErr OpenConstant(const Stored& stored, int /*mode*/, Opened* out)
{
    return ROpenUPtr(Bytes(stored.bytes), stored.bytes.size(), &out->refnum, &out->type, &out->creator);
}

// The ways to open them. A failed opening leaves nothing behind.
constexpr struct Source {
    const char* name;
    int mode;
    KzErr (*open)(const Stored& stored, int mode, Opened* out);
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

class ResourceFile : public testing::Test {
protected:
    ~ResourceFile() override
    {
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        EXPECT_EQ(kztest::CountLive(), before);
    }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    const kztest::LiveCounts before = kztest::CountLive();
};

_ResourceType TypeOf(const std::string& text)
{
    _ResourceType type = 0;
    std::memcpy(&type, text.data(), sizeof type);
    return type;
}

std::string Crc32(const unsigned char* bytes, int count)
{
    uInt32 crc = 0xFFFFFFFF;
    for (; count > 0; --count) {
        crc ^= *bytes++;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
        }
    }
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08X", ~crc);
    return text.data();
}

std::string InfoText(_ResourceType type, long long id, long long attrs, const std::string& name)
{
    return std::to_string(type) + " " + std::to_string(id) + " " + std::to_string(attrs) + " " + name;
}

void CheckResource(RsrcFile refnum, _ResourceType type, int index, const Json& row)
{
    SCOPED_TRACE(index);
    const std::string expected =
        InfoText(type, row["id"].Int(), row["attrs"].Int(), row["name"].IsNull() ? "" : row["name"].Str());
    int id = 0;
    int attrs = 0;
    unsigned char name[256];
    EXPECT_EQ(RGetIndInfo(refnum, type, index, &id, &attrs, name), 0);
    EXPECT_EQ(InfoText(type, id, attrs, Text(name)), expected);
    EXPECT_FALSE(RIsLoaded(refnum, type, id)) << "telling loads nothing";
    UHandle handle = nullptr;
    UHandle again = nullptr;
    const KzErr error = row.Has("error") ? static_cast<KzErr>(row["error"].Int()) : 0;
    EXPECT_EQ(RGetInd(refnum, type, index, &handle), error);
    EXPECT_EQ(RGet(refnum, type, id, &again), error);
    EXPECT_EQ(again, handle);
    EXPECT_EQ(RIsLoaded(refnum, type, id), error == 0);
    ASSERT_EQ(handle != nullptr, error == 0);
    if (error != 0) {
        return;
    }
    int size = 0;
    _ResourceType gotType = 0;
    EXPECT_EQ(RGetInfo(handle, &id, &gotType, name), 0);
    EXPECT_EQ(RGetAttrs(handle, &attrs), 0);
    EXPECT_EQ(InfoText(gotType, id, attrs, Text(name)), expected);
    EXPECT_EQ(RSize(handle, &size), 0);
    ASSERT_EQ(size, row["size"].Int());
    EXPECT_EQ(Crc32(*handle, size), row["crc32"].Str());
    EXPECT_EQ(RRelease(handle), (attrs & kRsrcChanged) != 0 ? kzErrArgument : 0);
}

const std::map<std::string, Json>& MembersOf(const Json& row, const char* key)
{
    static const std::map<std::string, Json> none;
    return row.Has(key) ? row[key].Members() : none;
}

void CheckStrings(RsrcFile refnum, const Json& row)
{
    unsigned char str[256];
    for (const auto& [id, strings] : MembersOf(row, "stringLists")) {
        const int count = static_cast<int>(strings.size());
        for (const int index : {-1, 0, count + 1, 0x7FFFFFFF}) {
            EXPECT_EQ(RGetIndString(refnum, str, std::stoi(id), index), kzErrResNotFound);
            EXPECT_EQ(str[0], 0);
        }
        for (int index = 1; index <= count; ++index) {
            EXPECT_EQ(RGetIndString(refnum, str, std::stoi(id), index), 0);
            EXPECT_EQ(Text(str), strings[index - 1].Str());
        }
    }
    for (const auto& [id, text] : MembersOf(row, "strings")) {
        EXPECT_EQ(RGetPStr(refnum, std::stoi(id), str), 0);
        EXPECT_EQ(Text(str), text.Str());
    }
}

void CheckContent(const Opened& open, const Json& row)
{
    const Json& content = row["content"];
    EXPECT_EQ(open.type, TypeOf(content["fileType"].Str()));
    EXPECT_EQ(open.creator, TypeOf(content["creator"].Str()));
    int count = -1;
    EXPECT_EQ(RCountTypes(open.refnum, &count), 0);
    ASSERT_EQ(count, static_cast<int>(content["types"].size()));
    for (int i = 1; i <= count; ++i) {
        const Json& expected = content["types"][i - 1];
        SCOPED_TRACE(expected["type"].Str());
        _ResourceType type = 0;
        EXPECT_EQ(RGetIndType(open.refnum, &type, i), 0);
        ASSERT_EQ(type, TypeOf(expected["type"].Str()));
        int inType = -1;
        EXPECT_EQ(RCount(open.refnum, type, &inType), 0);
        ASSERT_EQ(inType, static_cast<int>(expected["resources"].size()));
        for (int k = 1; k <= inType; ++k) {
            CheckResource(open.refnum, type, k, expected["resources"][k - 1]);
        }
    }
    CheckStrings(open.refnum, row);
}

// What the index tells of an opening: its code, what the debug stream says of it, and the content. The weak way may
// open what the validators refuse.
void CheckOpening(const Source& source, const Stored& stored, const Json& row, bool weak,
                  kztest::ReportCatcher* reports)
{
    const Json& result = row[source.mode == kRsrcReadOnly ? "readOnly" : "readWrite"];
    const KzErr expected = static_cast<KzErr>(result[weak && result.Has("weak") ? "weak" : "open"].Int());
    Opened open;
    ASSERT_EQ(source.open(stored, source.mode, &open), expected);
    const bool opens = expected == 0;
    ASSERT_EQ(open.refnum != 0, opens);
    if (opens) {
        int attrs = -1;
        Opened closed;
        EXPECT_EQ(RGetFileAttrs(open.refnum, &attrs), 0);
        EXPECT_EQ(attrs, source.mode == kRsrcReadOnly ? kRsrcMapReadOnly : 0);
        EXPECT_EQ(ZVResFile::RGetFileType(stored.path, &closed.type, &closed.creator), 0);
        EXPECT_TRUE(closed.type == open.type && closed.creator == open.creator) << "without opening";
        if (row.Has("content")) {
            CheckContent(open, row);
        }
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        while (reports->Take(kDbgWarning, "!!! Tried to release a changed resource")) {
        }
    } else {
        EXPECT_TRUE(open.type == 0 && open.creator == 0);
    }
    EXPECT_EQ(RCloseFile(open.refnum), opens ? 0 : kzErrResFileNotOpen);
    for (const auto& [kind, text] : {std::pair("sanity", "ZVResFile::ReadRsrcHeader: header validationErr="),
                                     std::pair("map", "ZVResFile::Open: map validation failure ")}) {
        if (result.Has(kind) && !weak) {
            EXPECT_TRUE(reports->Take(kDbgWarning, text + std::to_string(result[kind].Int())));
        }
    }
    const bool agrees = weak ? expected != kzErrGeneric : !result.Has("map") || result["map"].Int() != 7;
    EXPECT_EQ(reports->Take(kDbgWarning, "no agreement;"), !agrees);
}

TEST_F(ResourceFile, StoredFilesGiveWhatTheIndexTells)
{
    for (const Json& row : kztest::ReadJsonLines("rsrc/index.jsonl")) {
        const std::string bytes = kztest::ReadWholeFile(kztest::DataFile("rsrc/" + row["file"].Str()));
        ASSERT_EQ(bytes.size(), row["bytes"].UInt());
        const Stored stored(folder, bytes);
        for (const bool weak : {false, true}) {
            kz::SetWeakRsrcFileValidation(weak);
            for (const Source& source : kSources) {
                SCOPED_TRACE(row["file"].Str() + (weak ? " weakly from " : " from ") + source.name);
                CheckOpening(source, stored, row, weak, &reports);
            }
        }
        EXPECT_EQ(kztest::ReadWholeFile(folder.File("stored.rsrc")), bytes) << "reading changed the file";
    }
}

TEST_F(ResourceFile, AnyAllocationMayFail)
{
    // What is reported is not kept, because that would take memory too.
    DebugOutputSetHandler([](const char*, int32, const char*, int32, uInt32, const char*, uInt64) {});
    for (const char* name : {"rsrc/blocks.rsrc", "rsrc/mapped.rsrc"}) {
        const Stored stored(folder, kztest::ReadWholeFile(kztest::DataFile(name)));
        for (const Source& source : kSources) {
            SCOPED_TRACE(std::string(name) + " from " + source.name);
            kztest::FaultLoop([&](auto failed) {
                Opened open{};
                UHandle handle = nullptr;
                KzErr err = source.open(stored, source.mode, &open);
                for (int index = 1; err == kzErrNone; ++index) {
                    err = RGetInd(open.refnum, TypeOf("BLOK"), index, &handle);
                }
                // A hook without memory leaves the opening to the system, which can't read a folder.
                const KzErr lack = source.open == &OpenThroughHook && err == kzErrIO ? err : kzErrMemoryFull;
                EXPECT_TRUE(err == kzErrResNotFound || (err == lack && failed())) << err;
                EXPECT_STREQ(kz::ResourceFault(), nullptr);
                EXPECT_EQ(RCloseFile(open.refnum), open.refnum != 0 ? 0 : kzErrResFileNotOpen);
            });
        }
    }
}

// What a file loses while it is open is missed; what was read at once stays.
TEST_F(ResourceFile, AFileMayShrinkWhileItIsOpen)
{
    for (const bool mapped : {false, true}) {
        const ResImage image({{"STR ", 1, "\4text"}, {"STR ", 2, std::string(9000, 'x')}}, mapped ? "QKVZ" : "TEST");
        const Stored stored(folder, image.Bytes());
        Opened open;
        ASSERT_EQ(OpenPath(stored, kRsrcReadOnly, &open), 0);
        std::filesystem::resize_file(folder.File("stored.rsrc"), mapped ? 0 : 5000);
        unsigned char str[256];
        EXPECT_EQ(RGetPStr(open.refnum, 1, str), 0);
        EXPECT_EQ(Text(str), "text");
        EXPECT_EQ(RGetPStr(open.refnum, 2, str), mapped ? 0 : kzErrResFileNotOpen);
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

TEST_F(ResourceFile, ARunTimeProcessTakesIdsAsSorted)
{
    const Stored stored(folder, ResImage({{"AAAA", 3, "c"}, {"AAAA", 2, "b"}, {"AAAA", 1, "a"}}).Bytes());
    for (const KzBool runTime : {0, 1}) {
        library.host.isRunTime = runTime;
        Opened open;
        ASSERT_EQ(OpenConstant(stored, kRsrcReadOnly, &open), 0);
        UHandle handle = nullptr;
        ASSERT_EQ(RGetInd(open.refnum, TypeOf("AAAA"), 1, &handle), 0);
        EXPECT_EQ(**handle, runTime ? 'c' : 'a');
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

// A file object may be opened again, from the same source or another one.
TEST_F(ResourceFile, OpensAnew)
{
    const std::string bytes = ResImage({{"AAAA", 1, "a"}}).Bytes();
    ZVResFile file;
    auto* const source = new ZVResfileIO(HandleWith(bytes), kRsrcReadOnly);
    for (ZVResfileIO* io : {source, source, new ZVResfileIO(Bytes(bytes), bytes.size())}) {
        ASSERT_EQ(file.Open(io), 0);
        EXPECT_TRUE(io->IsOpen());
        bool loaded = true;
        Resource* resource = nullptr;
        EXPECT_EQ(file.RIsLoaded(TypeOf("AAAA"), 1, &loaded), 0);
        EXPECT_FALSE(loaded);
        ASSERT_EQ(file.RGet(TypeOf("AAAA"), 1, &resource), 0);
        EXPECT_EQ(*resource->GetData(), 'a');
    }
    EXPECT_EQ(file.RCloseFile(), 0);
}

KzErr WeakToken(ConfigManager* /*manager*/, uInt32 type, const unsigned char* token, void* out)
{
    const bool known = type == TypeOf("Bool") && Text(token) == "UseWeakRsrcFileValidation";
    *static_cast<int32*>(out) = known;
    return known ? kzErrNone : kzErrTokenNotFound;
}

TEST(ResourceFileSettings, AConfigurationMayAskForWeakValidation)
{
    const kztest::ReportCatcher reports;
    static constexpr kz::CfgAccess kWeak{nullptr, &WeakToken};
    for (const kz::CfgAccess* access : {&kWeak, static_cast<const kz::CfgAccess*>(nullptr)}) {
        kz::SetMainCfgAccess(access);
        const kztest::RunningLibrary library;
        kz::SetMainCfgAccess(nullptr);
        EXPECT_EQ(kz::WeakRsrcFileValidation(), access != nullptr);
    }
}

}  // namespace
