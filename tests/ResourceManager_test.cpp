#include "ResourceManager.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "LiveCounts.h"
#include "MemoryManager.h"
#include "PathRef.h"
#include "RFReadWrite.h"
#include "ReportCatcher.h"
#include "ResFileFactory.h"
#include "ResHandleCache.h"
#include "ResImage.h"
#include "TempFolder.h"
#include "TestHost.h"

namespace {

using kztest::Bytes;
using kztest::ResImage;
using kztest::Text;

constexpr _ResourceType kAAAA = kz::FourCharCode("AAAA");
constexpr _ResourceType kBBBB = kz::FourCharCode("BBBB");
constexpr _ResourceType kStrList = kz::FourCharCode("STR#");

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
        RCloseFile(constant);
        RCloseFile(writable);
    }

    kztest::ReportCatcher reports;
    kztest::RunningLibrary library;
    ResImage image{{{"AAAA", 7, "seven", "Lucky"},
                    {"AAAA", -1, "minus", "LAST"},
                    {"AAAA", 9, "", "lucky"},
                    {"STR#", 1, std::string("\0\3\1a\0\5short", 11)},
                    {"STR#", 2, "\1"},
                    {"STR#", 3, std::string("\0\3\1a\0\5shor", 10)},
                    {"STR#", 4, std::string("\0\3\1a\0", 5)},
                    {"STR ", 1, "?text"},
                    {"STR ", 2, ""},
                    {"STR ", 3, std::string(300, 'x')}}};
    RsrcFile constant = 0;
    RsrcFile writable = 0;
    UHandle source = nullptr;
};

TEST_F(ResourceManager, UnknownRefnumsAnswerNotOpen)
{
    const RsrcFile stale = constant;
    EXPECT_EQ(RCloseFile(constant), 0);
    for (const RsrcFile refnum : {0u, 5u, 0xFFFFFFFFu, stale}) {
        UHandle handle = source;
        int number = 5;
        _ResourceType type = 5;
        unsigned char str[256] = {5};
        const unsigned char* pointer = str;
        const KzErr results[] = {RGet(refnum, kAAAA, 7, &handle),
                                 RGetNamed(refnum, kAAAA, Bytes("\5lucky"), &handle),
                                 RGetInd(refnum, kAAAA, 1, &handle),
                                 RGetIndInfo(refnum, kAAAA, 1, nullptr, nullptr, nullptr),
                                 RGetString(refnum, 1, &handle),
                                 RExists(refnum, kAAAA, 7, &number),
                                 RCount(refnum, kAAAA, &number),
                                 RCountTypes(refnum, &number),
                                 RGetFileAttrs(refnum, &number),
                                 RGetIndType(refnum, &type, 1),
                                 RGetIndString(refnum, str, 1, 1),
                                 RGetPStr(refnum, 1, str),
                                 RGetIndStringPtr(refnum, &pointer, 1, 1, kStrList),
                                 RCloseFile(refnum)};
        for (const KzErr& result : results) {
            EXPECT_EQ(result, kzErrResFileNotOpen) << refnum << ", call " << &result - results;
        }
        EXPECT_FALSE(RIsLoaded(refnum, kAAAA, 7));
        EXPECT_TRUE(handle == nullptr && number == 0 && type == 0 && str[0] == 0 && pointer == nullptr) << refnum;
    }
}

TEST_F(ResourceManager, UnknownHandlesAnswerNotFound)
{
    for (const UHandle handle : {UHandle{nullptr}, source}) {
        int number = 0;
        EXPECT_EQ(RSize(handle, &number), kzErrResNotFound);
        EXPECT_EQ(number, -1);
        EXPECT_EQ(RGetInfo(handle, nullptr, nullptr, nullptr), kzErrResNotFound);
        EXPECT_EQ(RGetAttrs(handle, &number), kzErrResNotFound);
        EXPECT_EQ(RDetach(handle), kzErrResNotFound);
        EXPECT_EQ(RRelease(handle), kzErrResNotFound);
        EXPECT_TRUE(reports.Take(kDbgWarning, "Releasing a non-resource"));
    }
}

TEST_F(ResourceManager, LookUpsFindWhatIsThere)
{
    for (const RsrcFile refnum : {constant, writable}) {
        UHandle handle = nullptr;
        int number = 0;
        _ResourceType type = 0;
        EXPECT_EQ(RCount(refnum, kBBBB, &number), 0);
        EXPECT_EQ(number, 0);
        EXPECT_EQ(RGet(refnum, kBBBB, 7, &handle), kzErrResNotFound);
        EXPECT_EQ(RGet(refnum, kAAAA, 8, &handle), kzErrResNotFound);
        EXPECT_EQ(RExists(refnum, kAAAA, 8, &number), kzErrResNotFound);
        EXPECT_EQ(RExists(refnum, kAAAA, 9, &number), 0);
        EXPECT_EQ(number, 1);
        EXPECT_FALSE(RIsLoaded(refnum, kAAAA, 9)) << "asking loads nothing";
        for (const int index : {0, 4, -1}) {
            EXPECT_EQ(RGetInd(refnum, kAAAA, index, &handle), kzErrResNotFound);
            EXPECT_EQ(RGetIndInfo(refnum, kAAAA, index, nullptr, nullptr, nullptr), kzErrResNotFound);
            EXPECT_EQ(RGetIndType(refnum, &type, index), kzErrResNotFound);
        }
        EXPECT_EQ(RGetNamed(refnum, kAAAA, Bytes("\5LUCKY"), &handle), 0);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(*handle), 5), "seven") << "the first in the order of ids";
        EXPECT_EQ(RGetNamed(refnum, kAAAA, Bytes("\4luck"), &handle), kzErrResNotFound);
        EXPECT_EQ(RGetNamed(refnum, kBBBB, Bytes("\5lucky"), &handle), kzErrResNotFound);
    }
}

TEST_F(ResourceManager, StringsStayInsideTheirResource)
{
    struct Row {
        int line;
        int id;
        int index;  // 0: a "STR ", not a list
        KzErr result;
        std::string text;
    };
    const Row kRows[] = {
        {__LINE__, 1, 1, 0, "a"},
        {__LINE__, 1, 2, 0, ""},
        {__LINE__, 1, 3, 0, "short"},
        {__LINE__, 1, 4, kzErrResNotFound, ""},
        {__LINE__, 2, 1, kzErrResNotFound, ""},  // half a count
        {__LINE__, 3, 2, 0, ""},
        {__LINE__, 3, 3, kzErrResNotFound, ""},  // says more bytes than there are
        {__LINE__, 4, 2, 0, ""},
        {__LINE__, 4, 3, kzErrResNotFound, ""},  // is counted and not there
        {__LINE__, 5, 1, kzErrResNotFound, ""},
        {__LINE__, 1, 0, 0, "text"},
        {__LINE__, 2, 0, 0, std::string(255, '\0')},
        {__LINE__, 3, 0, 0, std::string(299 - 256, 'x')},
        {__LINE__, 4, 0, kzErrResNotFound, ""},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.line);
        unsigned char str[256] = {5};
        EXPECT_EQ(row.index != 0 ? RGetIndString(constant, str, row.id, row.index) : RGetPStr(constant, row.id, str),
                  row.result);
        EXPECT_EQ(Text(str), row.text);
    }
}

TEST_F(ResourceManager, ReleasedAndDetachedResourcesLoadAnew)
{
    for (const RsrcFile refnum : {constant, writable}) {
        UHandle first = nullptr;
        ASSERT_EQ(RGet(refnum, kAAAA, 7, &first), 0);
        EXPECT_TRUE(RIsLoaded(refnum, kAAAA, 7));
        EXPECT_EQ(RDetach(first), 0);
        EXPECT_FALSE(RIsLoaded(refnum, kAAAA, 7));
        UHandle second = nullptr;
        ASSERT_EQ(RGet(refnum, kAAAA, 7, &second), 0);
        EXPECT_NE(second, first);
        EXPECT_EQ(RRelease(first), kzErrResNotFound);
        EXPECT_TRUE(reports.Take(kDbgWarning, "Releasing a non-resource"));
        EXPECT_EQ(RRelease(second), 0);
        EXPECT_FALSE(RIsLoaded(refnum, kAAAA, 7));
        EXPECT_EQ(DSCheckHandle(first), 0) << "the caller's";
        EXPECT_EQ(std::string(reinterpret_cast<char*>(*first), DSGetHandleSize(first)), "seven");
        EXPECT_EQ(DSDisposeHandle(first), 0);
    }
}

TEST_F(ResourceManager, TheHandleCacheKeepsTwoPairsAndForgetsTheDead)
{
    UHandle handles[3] = {};
    int index = 0;
    for (UHandle& handle : handles) {
        ASSERT_EQ(RGetInd(constant, kAAAA, ++index, &handle), 0);
    }
    int size = 0;
    const auto hits = [&](UHandle handle) {
        EXPECT_EQ(RSize(handle, &size), 0);
        return kz::gResHandleCache.LastHit();
    };
    EXPECT_TRUE(hits(handles[2]));
    EXPECT_TRUE(hits(handles[1]));
    EXPECT_FALSE(hits(handles[0]));
    EXPECT_TRUE(hits(handles[0]));
    EXPECT_TRUE(hits(handles[2]));
    EXPECT_EQ(RCloseFile(constant), 0);
    EXPECT_EQ(RSize(handles[0], &size), kzErrResNotFound);

    // A resource that dies behind the cache's back takes its handle along.
    ASSERT_EQ(RGet(writable, kAAAA, 7, &handles[0]), 0);
    RFReader reader(writable);
    EXPECT_EQ(reader.AllocDSHandle(kAAAA, 7, &handles[1]), 0);
    EXPECT_EQ(handles[1], handles[0]);
    EXPECT_EQ(RSize(handles[0], &size), kzErrResNotFound);
    EXPECT_EQ(DSDisposeHandle(handles[1]), 0);
}

TEST_F(ResourceManager, OnlyAWritableHandleIsCopied)
{
    Resource* resource = nullptr;
    ResChain* chain = RFReader(constant).LowLevelResChain();
    ASSERT_EQ(chain->RGet(kAAAA, 7, &resource), 0);
    EXPECT_EQ(resource->GetData(), Bytes(image.Bytes()) + 32 + 4) << "served in place";
    const UHandle shared = resource->GetSharedDSHandle();
    EXPECT_EQ(resource->GetSharedDSHandle(), shared);
    EXPECT_TRUE(resource->ContainsHandle(shared));
    EXPECT_FALSE(resource->ContainsHandle(nullptr));

    ASSERT_EQ(RFReader(writable).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
    EXPECT_NE(resource->GetData(), *source + 32 + 4);
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
    EXPECT_EQ(RCloseFile(writable), kzErrNoPermission) << "changes can't be written";
    EXPECT_EQ(DSCheckHandle(source), kzErrBadZone) << "closed all the same";
}

TEST_F(ResourceManager, ADetachedHandleLeavesTheResourceWithoutBytes)
{
    Resource* resource = nullptr;
    ASSERT_EQ(RFReader(writable).LowLevelResChain()->RGet(kAAAA, 7, &resource), 0);
    const UHandle handle = resource->GetSharedDSHandle();
    EXPECT_EQ(resource->DetachHandle(), 0);
    EXPECT_EQ(resource->GetData(), nullptr);
    EXPECT_EQ(resource->GetSize(), 0);
    EXPECT_TRUE(RIsLoaded(writable, kAAAA, 7));
    int size = 0;
    EXPECT_EQ(RSize(handle, &size), kzErrResNotFound);
    EXPECT_EQ(DSDisposeHandle(handle), 0);
}

TEST_F(ResourceManager, OpeningRefusesBadArguments)
{
    RsrcFile refnum = 5;
    const PathRef relative("a/b.rsrc", PathRef::StringUnix());
    const PathRef missing("/nowhere/b.rsrc", PathRef::StringUnix());
    const PathRef folder("/", PathRef::StringUnix());
    const KzErr results[] = {ROpenFile(nullptr, 1, &refnum, nullptr, nullptr),
                             ROpenFile(&relative, 1, &refnum, nullptr, nullptr),
                             ROpenFile(&missing, 2, &refnum, nullptr, nullptr),
                             ROpenFile(&missing, 1, nullptr, nullptr, nullptr),
                             ROpenFileRefnum(nullptr, 1, &refnum, nullptr, nullptr),
                             ROpenUHandle(nullptr, 1, &refnum, nullptr, nullptr),
                             ROpenUPtr(nullptr, 0, &refnum, nullptr, nullptr),
                             ROpenUPtr(Bytes(image.Bytes()), 0x80000000, &refnum, nullptr, nullptr)};
    for (const KzErr& result : results) {
        EXPECT_EQ(result, kzErrArgument) << "call " << &result - results;
    }
    EXPECT_EQ(refnum, 0u);
    EXPECT_EQ(ROpenFile(&missing, 1, &refnum, nullptr, nullptr), kzErrNotFound);
    EXPECT_EQ(ROpenFile(&folder, 1, &refnum, nullptr, nullptr), kzErrIO);
    while (reports.Take(kDbgWarning, "cannot seek to start of resource file")) {
    }
}

TEST_F(ResourceManager, AReaderOwnsWhatItOpens)
{
    const kztest::TempFolder folder;
    const PathRef path(folder.Write("one.rsrc", image.Bytes()), PathRef::StringUnix());
    const kztest::LiveCounts before = kztest::CountLive();
    {
        RFReader reader;
        UHandle handle = source;
        const void* data = &handle;
        int size = 5;
        EXPECT_EQ(reader.Close(), kzErrNotFound);
        EXPECT_EQ(reader.PtrToResDataInternal(kAAAA, 7, &data, &size), kzErrResNotFound);
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(size, 0);
        EXPECT_EQ(reader.AllocDSHandle(kAAAA, 7, &handle), kzErrResNotFound);
        EXPECT_EQ(handle, nullptr);
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
    }
    EXPECT_EQ(kztest::CountLive(), before);
    {
        const std::unique_ptr<RFReader> borrowing(CreateRFReader(writable));
        EXPECT_EQ(borrowing->PtrToResDataInternal(kAAAA, 9, nullptr, nullptr), 0);
    }
    EXPECT_TRUE(RIsLoaded(writable, kAAAA, 9)) << "not closed with a reader that only borrows";
    EXPECT_EQ(RCloseFile(writable), 0);
    writable = 0;
}

TEST(ResourceManagerService, AStopReportsOpenFilesAndAStartForgetsThem)
{
    kztest::ReportCatcher reports;
    const ResImage image({{"AAAA", 1, "1"}});
    RsrcFile refnum = 0;
    ResFile* left = nullptr;
    {
        const kztest::RunningLibrary library;
        ASSERT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &refnum, nullptr, nullptr), 0);
        left = static_cast<ResFile*>(RFReader(refnum).LowLevelResChain());
        UninitKZCoreAppSupport();
        EXPECT_TRUE(reports.Take(kDbgWarning, "The Resource Manager is being shut down with open files!"));
        EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
        delete left;
        RsrcFile late = 5;
        EXPECT_EQ(ROpenUPtr(Bytes(image.Bytes()), image.Bytes().size(), &late, nullptr, nullptr), kzErrResFileNotOpen);
        EXPECT_EQ(late, 0u);
    }
    const kztest::RunningLibrary library;
    EXPECT_EQ(RCloseFile(refnum), kzErrResFileNotOpen);
}

}  // namespace
