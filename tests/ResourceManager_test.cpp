// The calls on open resource files: a model under random calls, a table of refusals, and what is unique to a call.
#include "ResourceManager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "FaultLoop.h"
#include "PathRef.h"
#include "RFReadWrite.h"
#include "ReportCatcher.h"
#include "ResCache.h"
#include "ResFileMap.h"
#include "ResHandleCache.h"
#include "ResImage.h"
#include "ResourceChecks.h"
#include "TempFolder.h"
#include "TestHost.h"
#include "zvresfile.h"

namespace {

using kztest::Bytes;
using kztest::ResImage;
using kztest::Text;

constexpr _ResourceType kAAAA = kz::FourCharCode("AAAA");
constexpr _ResourceType kBBBB = kz::FourCharCode("BBBB");

// The library with one file open: from constant memory, and a writable copy of it in a handle.
class ResourceManager : public testing::Test {
protected:
    ResourceManager()
    {
        EXPECT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &constant, nullptr, nullptr), 0);
        source = DSNewHandle(image.Bytes().size());
        std::memcpy(*source, image.Bytes().data(), image.Bytes().size());
        EXPECT_EQ(ROpenUHandle(source, kRsrcReadWrite, &writable, nullptr, nullptr), 0);
    }

    ~ResourceManager() override
    {
        for (const RsrcFile refnum : {constant, writable, RsrcFile{0}}) {
            EXPECT_STREQ(kz::ResourceFault(), nullptr);
            RCloseFile(refnum);
        }
        EXPECT_STREQ(kz::MemoryFault(), nullptr);
    }

    static std::string DataOf(UHandle handle)
    {
        return {reinterpret_cast<const char*>(*handle), DSGetHandleSize(handle)};
    }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    // Sorted by type and id.
    const std::vector<kztest::ResEntry> entries = {
        {"AAAA", -1, "minus", "LAST"}, {"AAAA", 7, "seven", "Lucky"},
        {"AAAA", 9, "", "lucky"},      {"CCCC", 7, "see"},
        {"STR ", 1, "?text"},          {"STR#", 1, std::string("\0\1\1a", 4)}};
    const ResImage image{{entries[4], entries[2], entries[5], entries[0], entries[3], entries[1]}};
    RsrcFile constant = 0;
    RsrcFile writable = 0;
    UHandle source = nullptr;
};

// What a call gives, cleared where it fails; or nothing to give it to.
struct Outputs {
    UHandle* handle = nullptr;
    int* number = nullptr;
    _ResourceType* type = nullptr;
    unsigned char* str = nullptr;
    const unsigned char** pointer = nullptr;
};
using Out = const Outputs&;

TEST_F(ResourceManager, CallsByRefnumRefuseAndClear)
{
    constexpr KzErr kNone = kzErrResNotFound;
    constexpr KzErr kNeverMissing = -1;
    const struct {
        KzErr missing;  // the code for an id or index that is not there
        KzErr (*call)(RsrcFile refnum, int missing, Out out);
    } kRows[] = {
        {kNone, [](RsrcFile r, int id, Out out) { return RGet(r, kAAAA, id, out.handle); }},
        {kNone, [](RsrcFile r, int, Out out) { return RGet(r, kBBBB, 7, out.handle); }},
        {kNone, [](RsrcFile r, int, Out out) { return RGetNamed(r, kAAAA, Bytes("\4luck"), out.handle); }},
        {kNone, [](RsrcFile r, int, Out out) { return RGetNamed(r, kBBBB, Bytes("\5lucky"), out.handle); }},
        {kNone, [](RsrcFile r, int index, Out out) { return RGetInd(r, kAAAA, index, out.handle); }},
        {kNone, [](RsrcFile r, int id, Out out) { return RGetString(r, id, out.handle); }},
        {kNone, [](RsrcFile r, int id, Out out) { return RExists(r, kAAAA, id, out.number); }},
        {kzErrNone, [](RsrcFile r, int, Out out) { return RCount(r, kBBBB, out.number); }},
        {kNeverMissing, [](RsrcFile r, int, Out out) { return RCountTypes(r, out.number); }},
        {kNeverMissing, [](RsrcFile r, int, Out out) { return RGetFileAttrs(r, out.number); }},
        {kNone, [](RsrcFile r, int index, Out out) { return RGetIndType(r, out.type, index); }},
        {kNone, [](RsrcFile r, int id, Out out) { return RGetIndString(r, out.str, id, 1); }},
        {kNone, [](RsrcFile r, int id, Out out) { return RGetPStr(r, id, out.str); }},
        {kNone, [](RsrcFile r, int id, Out out) { return RGetIndStringPtr(r, out.pointer, id, 1, kAAAA); }},
    };
    const RsrcFile stale = writable;
    EXPECT_EQ(RCloseFile(writable), 0);
    for (const auto& row : kRows) {
        EXPECT_EQ(row.call(constant, 1, Outputs{}), kzErrArgument) << "row " << &row - kRows;
        for (const RsrcFile refnum : {constant, 0u, 5u, 0xFFFFFFFFu, stale}) {
            for (const int missing : {0, 10, -2, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
                if (refnum == constant && row.missing == kNeverMissing) {
                    continue;
                }
                SCOPED_TRACE("row " + std::to_string(&row - kRows) + " without " + std::to_string(missing));
                UHandle handle = source;
                int number = 5;
                _ResourceType type = 5;
                unsigned char str[256] = {5};
                const unsigned char* pointer = str;
                const KzErr err = row.call(refnum, missing, {&handle, &number, &type, str, &pointer});
                EXPECT_EQ(err, refnum == constant ? row.missing : kzErrResFileNotOpen) << refnum;
                EXPECT_EQ((handle == nullptr) + (number == 0) + (type == 0) + (str[0] == 0) + (pointer == nullptr), 1);
                EXPECT_FALSE(RIsLoaded(refnum, kAAAA, missing));
                EXPECT_EQ(RGetIndInfo(refnum, kAAAA, missing, nullptr, nullptr, nullptr),
                          refnum == constant ? kzErrResNotFound : kzErrResFileNotOpen);
            }
        }
    }
    EXPECT_EQ(RCloseFile(stale), kzErrResFileNotOpen);
}

TEST_F(ResourceManager, CallsByHandleRefuse)
{
    int number = 0;
    for (const UHandle handle : {UHandle{nullptr}, source}) {
        EXPECT_EQ(RSize(handle, &number), kzErrResNotFound);
        EXPECT_EQ(number, -1);
        EXPECT_EQ(RGetInfo(handle, nullptr, nullptr, nullptr), kzErrResNotFound);
        EXPECT_EQ(RGetAttrs(handle, &number), kzErrResNotFound);
        EXPECT_EQ(RSize(handle, nullptr), kzErrArgument);
        EXPECT_EQ(RGetAttrs(handle, nullptr), kzErrArgument);
        EXPECT_EQ(RDetach(handle), kzErrResNotFound);
        EXPECT_EQ(RRelease(handle), kzErrResNotFound);
        EXPECT_TRUE(reports.Take(kDbgWarning, "Releasing a non-resource"));
    }
}

TEST_F(ResourceManager, OpeningAndInternalCallsRefuse)
{
    const PathRef relative("a/b.rsrc", PathRef::StringUnix());
    const PathRef missing("/nowhere/b.rsrc", PathRef::StringUnix());
    const PathRef folder("/", PathRef::StringUnix());
    RsrcFile refnum = 5;
    RsrcHeader header;
    int shift = 0;
    ZVResfileIO io(Bytes(image.Bytes()), image.Bytes().size());
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    const Resource* const kNoResource = nullptr;
    const char* const kNoArgument = "ZVResFile::ReadRsrcHeader, Bad Argument";
    const char* const kNoOutput = "ResCache::FindRL, outType or outRLEntry are NULL";
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
        {"folder", ROpenFile(&folder, 1, &refnum, nullptr, nullptr), kzErrIO},
        {"null file", ROpenFileRefnum(nullptr, 1, &refnum, nullptr, nullptr), kzErrArgument, "cannot seek to start of"},
        {"null handle", ROpenUHandle(nullptr, 1, &refnum, nullptr, nullptr), kzErrArgument, "cannot seek to start of"},
        {"null bytes", ROpenUPtr(nullptr, 0, &refnum, nullptr, nullptr), kzErrArgument, "cannot seek to start of"},
        {"2 GB", ROpenUPtr(Bytes(image.Bytes()), 0x80000000, &refnum, nullptr, nullptr), kzErrArgument},
        {"type of none", ZVResFile::RGetFileType(missing, nullptr, nullptr), kzErrNotFound},
        {"object, null source", ZVResFile().Open(nullptr), kzErrArgument, "fileIO object is NULL"},
        {"header, null source", ZVResFile::ReadRsrcHeader(nullptr, &header, &shift), kzErrArgument, kNoArgument},
        {"null header", ZVResFile::ReadRsrcHeader(&io, nullptr, &shift), kzErrArgument, kNoArgument},
        {"null shift", ZVResFile::ReadRsrcHeader(&io, &header, nullptr), kzErrArgument, kNoArgument},
        {"cache, null type", ResCache().FindRL(source, nullptr, &entry), false, kNoOutput},
        {"cache, null entry", ResCache().FindRL(source, &type, nullptr), false, kNoOutput},
        {"cache by resource, null type", ResCache().FindRL(kNoResource, nullptr, &entry), false, kNoOutput},
        {"cache by resource, null entry", ResCache().FindRL(kNoResource, &type, nullptr), false, kNoOutput},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.result, row.expected) << row.name;
        EXPECT_TRUE(row.report == nullptr || reports.Take(kDbgWarning, row.report)) << row.name;
    }
    EXPECT_EQ(refnum, 0u);
}

TEST_F(ResourceManager, ObjectsRefuseAndClear)
{
    using Found = Resource**;
    KzErr (*const kCalls[])(ResFile & file, int* number, Found found, bool* loaded) = {
        [](ResFile& file, int*, Found out, bool*) { return file.RGet(kAAAA, 8, out); },
        [](ResFile& file, int*, Found out, bool*) { return file.RGetNamed(kAAAA, Bytes(""), out); },
        [](ResFile& file, int*, Found out, bool*) { return file.RGetInd(kAAAA, 4, out); },
        [](ResFile& file, int* out, Found, bool*) { return file.RExists(kAAAA, 8, out); },
        [](ResFile& file, int*, Found, bool* out) { return file.RIsLoaded(kAAAA, 8, out); },
    };
    ZVResFile closed;
    for (const auto& call : kCalls) {
        for (ResFile* file : {static_cast<ResFile*>(&closed), kz::FileOrNull<ResFile>(constant)}) {
            SCOPED_TRACE(&call - kCalls);
            int number = 5;
            Resource* resource = reinterpret_cast<Resource*>(this);
            bool loaded = true;
            EXPECT_EQ(call(*file, &number, &resource, &loaded),
                      file == &closed ? kzErrResFileNotOpen : kzErrResNotFound);
            EXPECT_EQ((number == 0) + (resource == nullptr) + !loaded, 1);
            EXPECT_EQ(call(*file, nullptr, nullptr, nullptr), kzErrArgument);
        }
    }
    Resource* resource = nullptr;
    EXPECT_EQ(closed.RCloseFile(), kzErrResFileNotOpen);
    EXPECT_EQ(closed.GetResourceForHandle(source, &resource), kzErrResNotFound);
    EXPECT_TRUE(reports.Take(kDbgWarning, "FindRsrcListFromHandle - Resource map is NULL"));
}

// Calls at random on two files with the same resources; the model knows what is loaded, and by which handle.
TEST_F(ResourceManager, FilesAgreeWithAModel)
{
    std::mt19937 random(1);
    std::map<std::pair<RsrcFile, const kztest::ResEntry*>, UHandle> loaded;
    for (unsigned step = 0; step < kztest::ModelSequences(); ++step) {
        SCOPED_TRACE(step);
        const RsrcFile refnum = random() % 2 != 0 ? constant : writable;
        const kztest::ResEntry& entry = entries[random() % entries.size()];
        UHandle& known = loaded[{refnum, &entry}];
        _ResourceType type = 0;
        std::memcpy(&type, entry.type.data(), sizeof type);
        const RFReader reader(refnum);
        Resource* resource = nullptr;
        UHandle got = nullptr;    // the file's
        UHandle taken = nullptr;  // the caller's
        int number = 0;
        EXPECT_EQ(RIsLoaded(refnum, type, entry.id), known != nullptr);
        switch (random() % 6) {
            case 0:
                EXPECT_EQ(entry.name == "Lucky" ? RGetNamed(refnum, type, Bytes("\5LUCKY"), &got)
                                                : RGet(refnum, type, entry.id, &got),
                          0);
                break;
            case 1:
                EXPECT_EQ(
                    RGetInd(refnum, type, type == kAAAA ? static_cast<int>(&entry - entries.data()) + 1 : 1, &got), 0);
                break;
            case 2:
                EXPECT_EQ(reader.AllocDSHandle(type, entry.id, &taken), 0);
                break;
            case 3:
                EXPECT_EQ(RDetach(known), known != nullptr ? 0 : kzErrResNotFound);
                taken = known;
                break;
            case 4:
                ASSERT_EQ(reader.LowLevelResChain()->RGet(type, entry.id, &resource), 0);
                taken = resource->GetSharedDSHandle();
                EXPECT_EQ(resource->DetachResource(), 0);
                EXPECT_STREQ(kz::ResourceFault(), nullptr);
                EXPECT_EQ(resource->DetachResource(), kzErrResNotFound);
                EXPECT_TRUE(resource->GetSize() == 0 && resource->GetData() == nullptr);
                EXPECT_EQ(resource->GetSharedDSHandle(), nullptr);
                delete resource;
                break;
            default:
                EXPECT_EQ(RRelease(known), known != nullptr ? 0 : kzErrResNotFound);
                EXPECT_EQ(reports.Take(kDbgWarning, "Releasing a non-resource"), known == nullptr);
                EXPECT_EQ(RSize(known, &number), kzErrResNotFound);
                known = nullptr;
        }
        for (const UHandle handle : {got, taken}) {
            EXPECT_TRUE(handle == nullptr || known == nullptr || handle == known);
            EXPECT_TRUE(handle == nullptr || DataOf(handle) == entry.data);
        }
        EXPECT_EQ(RSize(got, &number), got != nullptr ? 0 : kzErrResNotFound);
        EXPECT_EQ(number, got != nullptr ? static_cast<int>(entry.data.size()) : -1);
        EXPECT_EQ(RSize(taken, &number), kzErrResNotFound);
        known = got != nullptr ? got : taken != nullptr ? nullptr : known;
        DSDisposeHandle(taken);
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
    }
}

TEST_F(ResourceManager, TheHandleCacheKeepsTwoPairs)
{
    UHandle handles[3] = {};
    int index = 0;
    for (UHandle& handle : handles) {
        ASSERT_EQ(RGetInd(constant, kAAAA, ++index, &handle), 0);
    }
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

TEST_F(ResourceManager, AResourceKnowsWhereItsBytesAre)
{
    Resource* resource = nullptr;
    ASSERT_EQ(RFReader(constant).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
    const unsigned char* const data = resource->GetData();
    EXPECT_TRUE(data > Bytes(image.Bytes()) && data < Bytes(image.Bytes()) + image.Bytes().size()) << "served in place";
    const UHandle shared = resource->GetSharedDSHandle();
    EXPECT_EQ(resource->GetSharedDSHandle(), shared);
    EXPECT_TRUE(resource->ContainsHandle(shared));
    EXPECT_FALSE(resource->ContainsHandle(nullptr));

    // What can be written is copied. A handle that is given up leaves the resource in its file, without bytes.
    for (const RsrcFile refnum : {constant, writable}) {
        ASSERT_EQ(RFReader(refnum).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
        EXPECT_TRUE(resource->GetData() < *source || resource->GetData() >= *source + image.Bytes().size());
        UHandle handle = nullptr;
        ASSERT_EQ(RGet(refnum, kAAAA, 7, &handle), 0);
        EXPECT_EQ(resource->DetachHandle(), 0);
        EXPECT_STREQ(kz::ResourceFault(), nullptr);
        int size = 5;
        EXPECT_EQ(RSize(handle, &size), kzErrResNotFound);
        EXPECT_EQ(DSDisposeHandle(handle), 0);
        EXPECT_EQ(resource->RSize(&size), 0);
        EXPECT_TRUE(size == 0 && resource->GetSize() == 0 && resource->GetData() == nullptr);
        EXPECT_EQ(RGet(refnum, kAAAA, 7, &handle), kzErrMemoryFull) << "no handle leads to it";
        EXPECT_TRUE(RIsLoaded(refnum, kAAAA, 7));
    }
}

TEST_F(ResourceManager, ChangesAreRefusedReadOnlyAndHeldOtherwise)
{
    Resource* resource = nullptr;
    ASSERT_EQ(RFReader(constant).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
    EXPECT_EQ(resource->RChanged(), kzErrNoPermission);
    EXPECT_EQ(resource->RSetAttrs(kRsrcProtected), kzErrNoPermission);

    ASSERT_EQ(RFReader(writable).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
    EXPECT_EQ(resource->RSetAttrs(kRsrcProtected), 0);
    EXPECT_EQ(resource->RChanged(), 0);
    int attrs = 0;
    EXPECT_EQ(resource->RGetAttrs(&attrs), 0);
    EXPECT_EQ(attrs, kRsrcProtected | kRsrcChanged);
    EXPECT_EQ(RGetFileAttrs(writable, &attrs), 0);
    EXPECT_EQ(attrs, kRsrcMapChanged);
    EXPECT_EQ(resource->RRelease(), kzErrArgument);
    EXPECT_TRUE(reports.Take(kDbgWarning, "!!! Tried to release a changed resource"));
    EXPECT_EQ(RDetach(resource->GetSharedDSHandle()), kzErrResNotFound);
    EXPECT_TRUE(reports.Take(kDbgWarning, "!!! Tried to detach a changed resource"));
    EXPECT_STREQ(kz::ResourceFault(), nullptr);
    EXPECT_EQ(RCloseFile(writable), kzErrNoPermission) << "changes can't be written";
    EXPECT_EQ(DSCheckHandle(source), kzErrBadZone) << "closed all the same";
}

TEST_F(ResourceManager, AReaderOwnsWhatItOpens)
{
    const kztest::TempFolder folder;
    const PathRef path(folder.Write("one.rsrc", image.Bytes()), PathRef::StringUnix());
    RFReader reader;
    UHandle handle = source;
    const void* data = &handle;
    int size = 5;
    EXPECT_EQ(reader.Close(), kzErrNotFound);
    EXPECT_EQ(reader.PtrToResDataInternal(kAAAA, 7, &data, &size), kzErrResNotFound);
    EXPECT_TRUE(data == nullptr && size == 0);
    EXPECT_EQ(reader.AllocDSHandle(kAAAA, 7, &handle), kzErrResNotFound);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(reader.AllocDSHandle(kAAAA, 7, nullptr), kzErrArgument);
    EXPECT_EQ(reader.LowLevelResChain(), nullptr);
    EXPECT_TRUE(reports.Take(kDbgFatal, "Uninitialized RFReader"));

    _FMFileType type = 0;
    EXPECT_EQ(reader.OpenPath(path, 1, &type, nullptr), 0);
    EXPECT_EQ(type, kz::FourCharCode("TEST"));
    EXPECT_EQ(reader.PtrToResDataByNameInternal(kAAAA, Bytes("\4last"), &data, &size), 0);
    EXPECT_EQ(std::string(static_cast<const char*>(data), static_cast<std::size_t>(size)), "minus");
    EXPECT_EQ(reader.GetString(1, &handle), 0);
    EXPECT_EQ(DSDisposeHandle(handle), 0);
    EXPECT_EQ(reader.Close(), 0);
    EXPECT_EQ(reader.OpenPath(path, 1, nullptr, nullptr), 0);
    EXPECT_EQ(reader.OpenPath(path, 1, nullptr, nullptr), 0) << "gives up the first";
    EXPECT_EQ(std::unique_ptr<RFReader>(CreateRFReader(writable))->PtrToResDataInternal(kAAAA, 9, nullptr, nullptr), 0);
    EXPECT_TRUE(RIsLoaded(writable, kAAAA, 9)) << "not closed with a reader that only borrows";
}

TEST(ResourceManagerService, AStopReportsOpenFilesAndAStartForgetsThem)
{
    kztest::ReportCatcher reports;
    const ResImage image({{"AAAA", 1, "1"}});
    RsrcFile refnum = 0;
    {
        const kztest::RunningLibrary library;
        ASSERT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &refnum, nullptr, nullptr), 0);
        const std::unique_ptr<ResChain> left(RFReader(refnum).LowLevelResChain());
        UninitKZCoreAppSupport();
        EXPECT_TRUE(reports.Take(kDbgWarning, "The Resource Manager is being shut down with open files!"));
        EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
        RsrcFile late = 5;
        EXPECT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &late, nullptr, nullptr), kzErrResFileNotOpen);
        EXPECT_EQ(late, 0u);
    }
    const kztest::RunningLibrary library;
    EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
}

}  // namespace
