// Resource files: every kind of source times an index of stored files, beside a model; allocations that fail; a table
// of refusals; and what is unique to a call.
#include "ResourceManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "CfgAccess.h"
#include "CfgSlot.h"
#include "FaultLoop.h"
#include "FileManager.h"
#include "JsonLines.h"
#include "PathRef.h"
#include "RFReadWrite.h"
#include "ReportCatcher.h"
#include "ResCache.h"
#include "ResFileMap.h"
#include "ResHandleCache.h"
#include "ResImage.h"
#include "ResourceChecks.h"
#include "TestHost.h"
#include "zvresfile.h"

namespace {

using kztest::Bytes;
using kztest::Json;
using kztest::ResImage;
using kztest::Text;

constexpr _ResourceType kAAAA = kz::FourCharCode("AAAA");
constexpr _ResourceType kBBBB = kz::FourCharCode("BBBB");
constexpr char kRefusedRelease[] = "!!! Tried to release a changed resource";
constexpr char kRefusedDetach[] = "!!! Tried to detach a changed resource";
constexpr char kNoResource[] = "Releasing a non-resource";
constexpr char kNoOutput[] = "ResCache::FindRL, outType or outRLEntry are NULL";
constexpr char kNoArgument[] = "ZVResFile::ReadRsrcHeader, Bad Argument";
constexpr char kNoSeek[] = "cannot seek to start of";

_ResourceType TypeOf(const std::string& text)
{
    _ResourceType type = 0;
    std::memcpy(&type, text.data(), sizeof type);
    return type;
}

// The bytes of a resource file, which stand at the path too.
struct Stored {
    Stored(const kztest::TempFolder& folder, const std::string& content)
        : path(folder.Write("stored.rsrc", content), PathRef::StringUnix()), bytes(content)
    {}

    const PathRef path;
    const std::string bytes;
};

// An open file, and the handles that are known of its resources.
struct Opened {
    RsrcFile refnum = 0;
    _FMFileType type = 77;
    _FMFileCreator creator = 77;
    std::map<std::pair<_ResourceType, int>, UHandle> known = {};
};

// A handle with the bytes; null when there is no memory.
UHandle HandleWith(const std::string& bytes)
{
    const UHandle handle = DSNewHandle(bytes.size());
    if (handle != nullptr) {
        std::memcpy(*handle, bytes.data(), bytes.size());
    }
    return handle;
}

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

class ResourceManager : public testing::Test {
protected:
    ~ResourceManager() override
    {
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        EXPECT_STREQ(kz::MemoryFault(), nullptr);
        EXPECT_EQ(kztest::CountLive(), before);
    }

    Opened Open(const Source& source, const Stored& stored, const Json& row, bool weak);
    void Step(const Stored& stored, Opened* file, const Json& types, int at, int index, int call);

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    const kztest::TempFolder folder;
    const kztest::LiveCounts before = kztest::CountLive();
};

// ---- Sources times the index ----

std::string InfoText(_ResourceType type, long long id, long long attrs, const std::string& name)
{
    return std::to_string(type) + " " + std::to_string(id) + " " + std::to_string(attrs) + " " + name;
}

// Opens a file and checks what the index tells: the code, what the debug stream says of it, and the file's codes. The
// weak way may open what the validators refuse.
Opened ResourceManager::Open(const Source& source, const Stored& stored, const Json& row, bool weak)
{
    SCOPED_TRACE(source.name);
    const Json& result = row[source.mode == kRsrcReadOnly ? "readOnly" : "readWrite"];
    const KzErr expected = static_cast<KzErr>(result[weak && result.Has("weak") ? "weak" : "open"].Int());
    Opened open;
    EXPECT_EQ(source.open(stored, source.mode, &open), expected);
    EXPECT_EQ(open.refnum != 0, expected == 0);
    int attrs = -1;
    EXPECT_EQ(RGetFileAttrs(open.refnum, &attrs), expected == 0 ? 0 : kzErrResFileNotOpen);
    EXPECT_EQ(attrs, expected == 0 && source.mode == kRsrcReadOnly ? kRsrcMapReadOnly : 0);
    int types = 0;
    EXPECT_EQ(RCountTypes(open.refnum, &types), expected == 0 ? 0 : kzErrResFileNotOpen);
    const bool isKnown = expected == 0 && row.Has("content");
    EXPECT_TRUE(!isKnown || types == static_cast<int>(row["content"]["types"].size()));
    EXPECT_TRUE(!isKnown || open.type == TypeOf(row["content"]["fileType"].Str()));
    EXPECT_TRUE(!isKnown || open.creator == TypeOf(row["content"]["creator"].Str()));
    _FMFileType type = 0;
    _FMFileCreator creator = 0;
    EXPECT_TRUE(expected != 0 || ZVResFile::RGetFileType(stored.path, &type, &creator) == 0) << "without opening";
    EXPECT_TRUE(open.type == type && open.creator == creator);
    for (const auto& [kind, text] : {std::pair("sanity", "ZVResFile::ReadRsrcHeader: header validationErr="),
                                     std::pair("map", "ZVResFile::Open: map validation failure ")}) {
        if (result.Has(kind) && !weak) {
            EXPECT_TRUE(reports.Take(kDbgWarning, text + std::to_string(result[kind].Int())));
        }
    }
    const bool agrees = weak ? expected != kzErrGeneric : !result.Has("map") || result["map"].Int() != 7;
    EXPECT_EQ(reports.Take(kDbgWarning, "no agreement;"), !agrees);
    return open;
}

// What a file tells of a type and a resource by their indexes, without loading it.
void CheckListed(RsrcFile refnum, const Json& list, int at, int index, const std::string& info)
{
    _ResourceType type = 0;
    int count = 0, id = 0, attrs = 0, found = 0;
    unsigned char name[256];
    EXPECT_EQ(RGetIndType(refnum, &type, at), 0);
    EXPECT_EQ(RCount(refnum, type, &count), 0);
    EXPECT_EQ(count, static_cast<int>(list["resources"].size()));
    EXPECT_EQ(RGetIndInfo(refnum, type, index, &id, &attrs, name), 0);
    EXPECT_EQ(InfoText(type, id, attrs, Text(name)), info);
    EXPECT_TRUE(RExists(refnum, type, id, &found) == 0 && found == 1);
}

// What the calls by handle tell of a handle that a resource has, or had, or of none.
void CheckHandle(UHandle handle, bool isResource, const std::string& info, const std::string& data)
{
    const KzErr expected = isResource && handle != nullptr ? 0 : kzErrResNotFound;
    _ResourceType type = 0;
    int size = 0, id = 0, attrs = 0;
    unsigned char name[256];
    EXPECT_EQ(RSize(handle, &size), expected);
    EXPECT_EQ(size, expected == 0 ? static_cast<int>(data.size()) : -1);
    EXPECT_EQ(RGetInfo(handle, &id, &type, name), expected);
    EXPECT_EQ(RGetAttrs(handle, &attrs), expected);
    EXPECT_TRUE(expected != 0 || InfoText(type, id, attrs, Text(name)) == info);
    EXPECT_TRUE(handle == nullptr || data == std::string(reinterpret_cast<char*>(*handle), DSGetHandleSize(handle)));
}

// One of seven calls on a resource of an open file, beside what the index tells of the resource. Whatever the call is,
// the file knows afterwards which handle the resource has, if any.
void ResourceManager::Step(const Stored& stored, Opened* file, const Json& types, int at, int index, int call)
{
    const Json& list = types[at - 1];
    const Json& row = list["resources"][index - 1];
    const _ResourceType type = TypeOf(list["type"].Str());
    const int id = static_cast<int>(row["id"].Int());
    const RsrcFile refnum = file->refnum;
    UHandle& known = file->known[{type, id}];
    std::string name = row["name"].IsNull() ? "" : row["name"].Str();
    const std::string info = InfoText(type, id, row["attrs"].Int(), name);
    CheckListed(refnum, list, at, index, info);
    EXPECT_EQ(RIsLoaded(refnum, type, id), known != nullptr);

    const KzErr error = row.Has("error") ? static_cast<KzErr>(row["error"].Int()) : 0;
    const std::string data = error == 0 ? stored.bytes.substr(row["at"].UInt(), row["size"].UInt()) : "";
    const bool isChanged = (row["attrs"].Int() & kRsrcChanged) != 0;
    const KzErr ending = known == nullptr || isChanged ? kzErrResNotFound : 0;
    const RFReader reader(refnum);
    Resource* resource = nullptr;
    int size = 0;
    UHandle got = nullptr;    // the file's
    UHandle taken = nullptr;  // the caller's
    if (call == 0) {
        EXPECT_EQ(RGetInd(refnum, type, index, &got), error);
    } else if (call == 1 && !name.empty()) {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; });
        EXPECT_EQ(RGetNamed(refnum, type, Bytes(kztest::Big(name.size(), 1) + name), &got), error);
    } else if (call == 2 && !isChanged) {
        EXPECT_EQ(reader.AllocDSHandle(type, id, &taken), error);
    } else if (call == 3) {
        EXPECT_EQ(RDetach(known), ending);
        EXPECT_EQ(reports.Take(kDbgWarning, kRefusedDetach), known != nullptr && isChanged);
        taken = isChanged ? nullptr : known;
    } else if (call == 4 && !isChanged && error == 0) {
        ASSERT_EQ(reader.LowLevelResChain()->RGet(type, id, &resource), 0);
        taken = resource->GetSharedDSHandle();
        EXPECT_EQ(resource->DetachResource(), 0);
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        EXPECT_EQ(resource->DetachResource(), kzErrResNotFound);
        EXPECT_TRUE(resource->GetSize() == 0 && resource->GetData() == nullptr);
        EXPECT_EQ(resource->GetSharedDSHandle(), nullptr);
        delete resource;
    } else if (call == 5) {
        EXPECT_EQ(RRelease(known), known != nullptr && isChanged ? kzErrArgument : ending);
        EXPECT_TRUE(ending == 0 || reports.Take(kDbgWarning, known != nullptr ? kRefusedRelease : kNoResource));
        EXPECT_EQ(RSize(known, &size), known != nullptr && isChanged ? 0 : kzErrResNotFound);
        known = isChanged ? known : nullptr;
    } else {
        EXPECT_EQ(RGet(refnum, type, id, &got), error);
    }

    for (const UHandle handle : {got, taken}) {
        EXPECT_TRUE(handle == nullptr || known == nullptr || handle == known);
        CheckHandle(handle, handle != taken, info, data);
    }
    known = got != nullptr ? got : taken != nullptr ? nullptr : known;
    DSDisposeHandle(taken);
    EXPECT_STREQ(kz::ResourceFault(), nullptr);
}

void CheckStrings(RsrcFile refnum, const Json& row)
{
    static const std::map<std::string, Json> none;
    unsigned char str[256];
    for (const auto& [id, strings] : row.Has("stringLists") ? row["stringLists"].Members() : none) {
        const int count = static_cast<int>(strings.size());
        for (int index = -1; index <= count + 1; ++index) {
            const bool isThere = index > 0 && index <= count;
            EXPECT_EQ(RGetIndString(refnum, str, std::stoi(id), index), isThere ? 0 : kzErrResNotFound);
            EXPECT_EQ(Text(str), isThere ? strings[index - 1].Str() : "");
        }
    }
    for (const auto& [id, text] : row.Has("strings") ? row["strings"].Members() : none) {
        EXPECT_EQ(RGetPStr(refnum, std::stoi(id), str), 0);
        EXPECT_EQ(Text(str), text.Str());
    }
}

// All sources of a file are open at the same time, and get calls at random.
TEST_F(ResourceManager, StoredFilesGiveWhatTheIndexTells)
{
    std::mt19937 random(1);
    for (const Json& row : kztest::ReadJsonLines("rsrc/index.jsonl")) {
        const Stored stored(folder, kztest::ReadWholeFile(kztest::DataFile("rsrc/" + row["file"].Str())));
        ASSERT_EQ(stored.bytes.size(), row["bytes"].UInt());
        for (const bool weak : {false, true}) {
            SCOPED_TRACE(row["file"].Str() + (weak ? " weakly" : ""));
            kz::SetWeakRsrcFileValidation(weak);
            std::vector<Opened> files;
            for (const Source& source : kSources) {
                files.push_back(Open(source, stored, row, weak));
                if (files.back().refnum == 0) {
                    files.pop_back();
                }
            }
            for (unsigned round = 0; round < (row.Has("content") ? 4 * files.size() : 0); ++round) {
                const Json& types = row["content"]["types"];
                for (int at = 1; at <= static_cast<int>(types.size()); ++at) {
                    for (int index = 1; index <= static_cast<int>(types[at - 1]["resources"].size()); ++index) {
                        Opened& file = files[(round + static_cast<unsigned>(index)) % files.size()];
                        Step(stored, &file, types, at, index, static_cast<int>(random() % 7));
                    }
                }
            }
            for (const Opened& file : files) {
                CheckStrings(file.refnum, row);
                EXPECT_EQ(RCloseFile(file.refnum), 0);
                EXPECT_EQ(RCloseFile(file.refnum), kzErrResFileNotOpen);
            }
        }
        EXPECT_EQ(kztest::ReadWholeFile(folder.File("stored.rsrc")), stored.bytes) << "reading changed the file";
    }
    kz::SetWeakRsrcFileValidation(false);
}

TEST_F(ResourceManager, AnyAllocationMayFail)
{
    // What is reported is not kept, because that would take memory too.
    DebugOutputSetHandler([](const char*, int32, const char*, int32, uInt32, const char*, uInt64) {});
    for (const char* name : {"rsrc/blocks.rsrc", "rsrc/mapped.rsrc"}) {
        const Stored stored(folder, kztest::ReadWholeFile(kztest::DataFile(name)));
        for (const Source& source : kSources) {
            SCOPED_TRACE(std::string(name) + " from " + source.name);
            kztest::FaultLoop([&](auto failed) {
                Opened open;
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

// ---- Refusals ----

// One file open from constant memory, and a writable copy of it in a handle.
class ResourceCalls : public ResourceManager {
protected:
    ResourceCalls()
    {
        EXPECT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &constant, nullptr, nullptr), 0);
        EXPECT_EQ(ROpenUHandle(source, kRsrcReadWrite, &writable, nullptr, nullptr), 0);
    }
    ~ResourceCalls() override
    {
        RCloseFile(constant);
        RCloseFile(writable);
    }
    // The resource "seven" of a file.
    static Resource* Seven(RsrcFile refnum)
    {
        Resource* resource = nullptr;
        EXPECT_EQ(RFReader(refnum).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
        return resource;
    }

    const ResImage image{{{"AAAA", -1, "minus", "LAST"},
                          {"AAAA", 7, "seven", "Lucky"},
                          {"AAAA", 9, "", "lucky"},
                          {"CCCC", 7, "see"},
                          {"STR ", 1, "?text"}}};
    const UHandle source = HandleWith(image.Bytes());
    RsrcFile constant = 0;
    RsrcFile writable = 0;
};

// Where a call puts what it gives, whatever that is.
struct Output {
    template <typename T>
    operator T*() const
    {
        return reinterpret_cast<T*>(place);
    }
    unsigned char* place;
};

constexpr KzErr kNone = kzErrResNotFound;
constexpr KzErr kNeverMissing = -1;
constexpr struct {
    std::size_t size;  // of what the call gives
    KzErr missing;     // the code in an open file
    KzErr (*call)(RsrcFile r, ResFile& file, int missing, Output out);
} kCallsByRefnum[] = {
    {8, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGet(r, kAAAA, id, out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int, Output out) { return RGet(r, kBBBB, 7, out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int, Output out) { return RGetNamed(r, kAAAA, Bytes("\4luck"), out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int, Output out) { return RGetNamed(r, kBBBB, Bytes("\5lucky"), out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetInd(r, kAAAA, id, out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetString(r, id, out); }},
    {4, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RExists(r, kAAAA, id, out); }},
    {4, kzErrNone, [](RsrcFile r, ResFile&, int, Output out) { return RCount(r, kBBBB, out); }},
    {4, kNeverMissing, [](RsrcFile r, ResFile&, int, Output out) { return RCountTypes(r, out); }},
    {4, kNeverMissing, [](RsrcFile r, ResFile&, int, Output out) { return RGetFileAttrs(r, out); }},
    {4, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetIndType(r, out, id); }},
    {1, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetIndString(r, out, id, 1); }},
    {1, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetPStr(r, id, out); }},
    {8, kNone, [](RsrcFile r, ResFile&, int id, Output out) { return RGetIndStringPtr(r, out, id, 1, kAAAA); }},
    {8, kNone, [](RsrcFile, ResFile& file, int id, Output out) { return file.RGet(kAAAA, id, out); }},
    {8, kNone, [](RsrcFile, ResFile& file, int, Output out) { return file.RGetNamed(kAAAA, Bytes(""), out); }},
    {8, kNone, [](RsrcFile, ResFile& file, int id, Output out) { return file.RGetInd(kAAAA, id, out); }},
    {4, kNone, [](RsrcFile, ResFile& file, int id, Output out) { return file.RExists(kAAAA, id, out); }},
    {1, kNone, [](RsrcFile, ResFile& file, int id, Output out) { return file.RIsLoaded(kAAAA, id, out); }},
};

// The object is that of the refnum, or a closed one.
TEST_F(ResourceCalls, ByRefnumRefuseAndClear)
{
    const RsrcFile stale = writable;
    EXPECT_EQ(RCloseFile(writable), 0);
    ZVResFile closed;
    for (const RsrcFile refnum : {constant, 0u, 5u, 0xFFFFFFFFu, stale}) {
        const bool isOpen = refnum == constant;
        ResFile& file = isOpen ? *kz::FileOrNull<ResFile>(constant) : closed;
        for (const int missing : {0, 10, -2, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
            for (const auto& row : kCallsByRefnum) {
                SCOPED_TRACE("row " + std::to_string(&row - kCallsByRefnum) + " without " + std::to_string(missing));
                EXPECT_EQ(row.call(refnum, file, missing, {nullptr}), kzErrArgument);
                if (!isOpen || row.missing != kNeverMissing) {
                    alignas(8) std::array<unsigned char, 256> out;
                    out.fill(5);
                    EXPECT_EQ(row.call(refnum, file, missing, {out.data()}),
                              isOpen ? row.missing : kzErrResFileNotOpen);
                    EXPECT_EQ(std::string(out.begin(), out.end()),
                              std::string(row.size, '\0') + std::string(out.size() - row.size, '\5'));
                }
            }
            EXPECT_FALSE(RIsLoaded(refnum, kAAAA, missing));
            EXPECT_EQ(RGetIndInfo(refnum, kAAAA, missing, nullptr, nullptr, nullptr),
                      isOpen ? kzErrResNotFound : kzErrResFileNotOpen);
        }
    }
}

TEST_F(ResourceCalls, OthersRefuse)
{
    const PathRef relative("a/b.rsrc", PathRef::StringUnix());
    const PathRef missing("/nowhere/b.rsrc", PathRef::StringUnix());
    const PathRef root("/", PathRef::StringUnix());
    RsrcFile refnum = 5;
    RsrcHeader header;
    int shift = 0, size = 5;
    ZVResfileIO io(Bytes(image.Bytes()), image.Bytes().size());
    ZVResFile closed;
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    Resource* none = nullptr;
    UHandle handle = source;
    const void* data = &handle;
    const struct {
        const char* name;
        KzErr result;
        KzErr expected;
        const char* report = nullptr;
    } kRows[] = {
        {"no path", ROpenFile(nullptr, 1, &refnum, nullptr, nullptr), kzErrArgument},
        {"no absolute path", ROpenFile(&relative, 1, &refnum, nullptr, nullptr), kzErrArgument},
        {"mode above", ROpenFile(&missing, 2, &refnum, nullptr, nullptr), kzErrArgument},
        {"mode below", ROpenUHandle(source, -1, &refnum, nullptr, nullptr), kzErrArgument},
        {"no output", ROpenFile(&missing, 1, nullptr, nullptr, nullptr), kzErrArgument},
        {"no file", ROpenFile(&missing, 1, &refnum, nullptr, nullptr), kzErrNotFound},
        {"folder", ROpenFile(&root, 1, &refnum, nullptr, nullptr), kzErrIO},
        {"null file", ROpenFileRefnum(nullptr, 1, &refnum, nullptr, nullptr), kzErrArgument, kNoSeek},
        {"null handle", ROpenUHandle(nullptr, 1, &refnum, nullptr, nullptr), kzErrArgument, kNoSeek},
        {"null bytes", ROpenUPtr(nullptr, 0, &refnum, nullptr, nullptr), kzErrArgument, kNoSeek},
        {"2 GB", ROpenUPtr(Bytes(image.Bytes()), 0x80000000, &refnum, nullptr, nullptr), kzErrArgument},
        {"type of none", ZVResFile::RGetFileType(missing, nullptr, nullptr), kzErrNotFound},
        {"object, null source", ZVResFile().Open(nullptr), kzErrArgument, "fileIO object is NULL"},
        {"header, null source", ZVResFile::ReadRsrcHeader(nullptr, &header, &shift), kzErrArgument, kNoArgument},
        {"null header", ZVResFile::ReadRsrcHeader(&io, nullptr, &shift), kzErrArgument, kNoArgument},
        {"null shift", ZVResFile::ReadRsrcHeader(&io, &header, nullptr), kzErrArgument, kNoArgument},
        {"cache, null type", ResCache().FindRL(source, nullptr, &entry), false, kNoOutput},
        {"cache, null entry", ResCache().FindRL(source, &type, nullptr), false, kNoOutput},
        {"cache by resource, null type", ResCache().FindRL(none, nullptr, &entry), false, kNoOutput},
        {"cache by resource, null entry", ResCache().FindRL(none, &type, nullptr), false, kNoOutput},
        {"close of a closed file", closed.RCloseFile(), kzErrResFileNotOpen},
        {"handle in a closed file", closed.GetResourceForHandle(source, &none), kzErrResNotFound, "map is NULL"},
        {"size of no resource", RSize(source, &shift), kzErrResNotFound},
        {"no output of the size", RSize(source, nullptr), kzErrArgument},
        {"info of no resource", RGetInfo(source, nullptr, nullptr, nullptr), kzErrResNotFound},
        {"attributes of no resource", RGetAttrs(source, &shift), kzErrResNotFound},
        {"no output of the attributes", RGetAttrs(source, nullptr), kzErrArgument},
        {"detaching no resource", RDetach(source), kzErrResNotFound},
        {"data, closed reader", RFReader().PtrToResDataInternal(kAAAA, 7, &data, &size), kzErrResNotFound},
        {"handle, closed reader", RFReader().AllocDSHandle(kAAAA, 7, &handle), kzErrResNotFound},
        {"null handle, reader", RFReader(constant).AllocDSHandle(kAAAA, 7, nullptr), kzErrArgument},
        {"closed reader", RFReader().Close(), kzErrNotFound},
        {"releasing no resource", RRelease(source), kzErrResNotFound, kNoResource},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.result, row.expected) << row.name;
        EXPECT_TRUE(row.report == nullptr || reports.Take(kDbgWarning, row.report)) << row.name;
    }
    EXPECT_TRUE(refnum == 0 && shift == -1 && data == nullptr && size == 0 && handle == nullptr);
}

// ---- What is unique to a call ----

TEST_F(ResourceCalls, TheHandleCacheKeepsTwoPairs)
{
    UHandle handles[3] = {};
    EXPECT_EQ(RGetInd(constant, kAAAA, 1, &handles[0]), 0);
    EXPECT_EQ(RGetNamed(constant, kAAAA, Bytes("\5LUCKY"), &handles[1]), 0);
    EXPECT_EQ(RGetInd(constant, kAAAA, 3, &handles[2]), 0);
    EXPECT_TRUE(Seven(constant)->ContainsHandle(handles[1])) << "the first of two names";
    const uInt32 lookups = kz::gResHandleCache.Lookups();
    const uInt32 hits = kz::gResHandleCache.Hits();
    std::string seen;
    for (const int i : {2, 1, 0, 0, 2, 1}) {
        int size = 0;
        EXPECT_EQ(RSize(handles[i], &size), 0);
        seen += kz::gResHandleCache.LastHit() ? 'h' : 'm';
    }
    EXPECT_EQ(seen, "hhmhhm");
    EXPECT_EQ(kz::gResHandleCache.Lookups() - lookups, 6u);
    EXPECT_EQ(kz::gResHandleCache.Hits() - hits, 4u);
}

// Constant bytes are served in place, and what can be written is copied. A handle that is given up leaves the resource
// in its file, without bytes. Changes are refused to constant bytes, and held by others, which then can't be closed
// well.
TEST_F(ResourceCalls, BytesAndChanges)
{
    for (const RsrcFile refnum : {constant, writable}) {
        Resource* const resource = Seven(refnum);
        const unsigned char* const data = resource->GetData();
        const unsigned char* const bytes = refnum == constant ? Bytes(image.Bytes()) : *source;
        EXPECT_EQ(data > bytes && data < bytes + image.Bytes().size(), refnum == constant);
        UHandle handle = nullptr;
        EXPECT_EQ(RGet(refnum, kAAAA, 7, &handle), 0);
        EXPECT_EQ(resource->GetSharedDSHandle(), handle);
        EXPECT_TRUE(resource->ContainsHandle(handle) && !resource->ContainsHandle(nullptr));
        EXPECT_EQ(resource->DetachHandle(), 0);
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        int size = 5, attrs = 0;
        EXPECT_EQ(RSize(handle, &size), kzErrResNotFound);
        EXPECT_EQ(DSDisposeHandle(handle), 0);
        EXPECT_EQ(resource->RSize(&size), 0);
        EXPECT_TRUE(size == 0 && resource->GetSize() == 0 && resource->GetData() == nullptr);
        EXPECT_EQ(RGet(refnum, kAAAA, 7, &handle), kzErrMemoryFull) << "no handle leads to it";
        EXPECT_TRUE(RIsLoaded(refnum, kAAAA, 7));

        EXPECT_EQ(resource->RSetAttrs(kRsrcProtected), refnum == constant ? kzErrNoPermission : 0);
        EXPECT_EQ(resource->RChanged(), refnum == constant ? kzErrNoPermission : 0);
        EXPECT_EQ(resource->RGetAttrs(&attrs), 0);
        EXPECT_EQ(attrs, refnum == constant ? 0 : kRsrcProtected | kRsrcChanged);
        EXPECT_EQ(RGetFileAttrs(refnum, &attrs), 0);
        EXPECT_EQ(attrs, refnum == constant ? kRsrcMapReadOnly : kRsrcMapChanged);
    }
    EXPECT_EQ(RCloseFile(writable), kzErrNoPermission) << "changes can't be written";
    EXPECT_EQ(DSCheckHandle(source), kzErrBadZone) << "closed all the same";
}

TEST_F(ResourceCalls, AReaderOwnsWhatItOpens)
{
    const Stored stored(folder, image.Bytes());
    RFReader reader;
    EXPECT_EQ(reader.LowLevelResChain(), nullptr);
    EXPECT_TRUE(reports.Take(kDbgFatal, "Uninitialized RFReader"));
    UHandle handle = nullptr;
    const void* data = nullptr;
    int size = 5;
    _FMFileType type = 0;
    EXPECT_EQ(reader.OpenPath(stored.path, 1, &type, nullptr), 0);
    EXPECT_EQ(type, TypeOf("TEST"));
    EXPECT_EQ(reader.PtrToResDataByNameInternal(kAAAA, Bytes("\4last"), &data, &size), 0);
    EXPECT_EQ(std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)), "minus");
    EXPECT_EQ(reader.GetString(1, &handle), 0);
    EXPECT_EQ(DSDisposeHandle(handle), 0);
    EXPECT_EQ(reader.Close(), 0);
    EXPECT_EQ(reader.OpenPath(stored.path, 1, nullptr, nullptr), 0);
    EXPECT_EQ(reader.OpenPath(stored.path, 1, nullptr, nullptr), 0) << "gives up the first";
    EXPECT_EQ(std::unique_ptr<RFReader>(CreateRFReader(writable))->PtrToResDataInternal(kAAAA, 9, nullptr, nullptr), 0);
    EXPECT_TRUE(RIsLoaded(writable, kAAAA, 9)) << "not closed with a reader that only borrows";
}

// What a file loses while it is open is missed; what was read at once stays.
TEST_F(ResourceManager, AFileMayShrinkWhileItIsOpen)
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

// A file object may be opened again, from the same source or another one.
TEST_F(ResourceManager, OpensAnew)
{
    const std::string bytes = ResImage({{"AAAA", 1, "a"}}).Bytes();
    ZVResFile file;
    auto* const source = new ZVResfileIO(HandleWith(bytes), kRsrcReadOnly);
    for (ZVResfileIO* io : {source, source, new ZVResfileIO(Bytes(bytes), bytes.size())}) {
        ASSERT_EQ(file.Open(io), 0);
        EXPECT_TRUE(io->IsOpen());
        bool loaded = true;
        Resource* resource = nullptr;
        EXPECT_EQ(file.RIsLoaded(kAAAA, 1, &loaded), 0);
        EXPECT_FALSE(loaded);
        ASSERT_EQ(file.RGet(kAAAA, 1, &resource), 0);
        EXPECT_EQ(*resource->GetData(), 'a');
    }
    EXPECT_EQ(file.RCloseFile(), 0);
}

TEST_F(ResourceManager, ARunTimeProcessTakesIdsAsSorted)
{
    const Stored stored(folder, ResImage({{"AAAA", 3, "c"}, {"AAAA", 2, "b"}, {"AAAA", 1, "a"}}).Bytes());
    for (const KzBool runTime : {0, 1}) {
        library.host.isRunTime = runTime;
        Opened open;
        UHandle handle = nullptr;
        EXPECT_EQ(OpenConstant(stored, kRsrcReadOnly, &open), 0);
        ASSERT_EQ(RGetInd(open.refnum, kAAAA, 1, &handle), 0);
        EXPECT_EQ(**handle, runTime ? 'c' : 'a');
        EXPECT_EQ(RCloseFile(open.refnum), 0);
    }
}

KzErr WeakToken(ConfigManager* /*manager*/, uInt32 type, const unsigned char* token, void* out)
{
    const bool known = type == TypeOf("Bool") && Text(token) == "UseWeakRsrcFileValidation";
    *static_cast<int32*>(out) = known;
    return known ? kzErrNone : kzErrTokenNotFound;
}

// A configuration may ask for weak validation. A stop reports open files, and a start knows of none.
TEST(ResourceManagerService, StartsAndStops)
{
    kztest::ReportCatcher reports;
    const ResImage image({{"AAAA", 1, "1"}});
    RsrcFile refnum = 0;
    static constexpr kz::CfgAccess kWeak{nullptr, &WeakToken};
    for (const kz::CfgAccess* access : {&kWeak, static_cast<const kz::CfgAccess*>(nullptr)}) {
        kz::SetMainCfgAccess(access);
        const kztest::RunningLibrary library;
        kz::SetMainCfgAccess(nullptr);
        EXPECT_EQ(kz::WeakRsrcFileValidation(), access != nullptr);
        EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
        ASSERT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &refnum, nullptr, nullptr), 0);
        const std::unique_ptr<ResChain> left(RFReader(refnum).LowLevelResChain());
        UninitKZCoreAppSupport();
        EXPECT_TRUE(reports.Take(kDbgWarning, "The Resource Manager is being shut down with open files!"));
        EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
        RsrcFile late = 5;
        EXPECT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &late, nullptr, nullptr), kzErrResFileNotOpen);
        EXPECT_EQ(late, 0u);
    }
}

}  // namespace
