#include "KZModule.h"

#include <gtest/gtest.h>

#include <random>

#include "DebugStreamService.h"
#include "FaultLoop.h"
#include "FileManager.h"
#include "PathManager.h"
#include "ReportCatcher.h"
#include "ResourceManager.h"
#include "ServiceRegistry.h"
#include "StringUtils.h"
#include "TempFolder.h"
#include "TestHost.h"
#include "ThAtomic.h"
#include "ThEvent.h"
#include "TrackedMalloc.h"
#include "UnixUserUtil.h"

namespace {

using kztest::ReportCatcher;
using kztest::TestHost;

template <typename Service>
bool Exists()
{
    return KZSingleton_T<Service>::M_instPtr.load() != nullptr;
}

// Opens and closes a resource file, which needs all of the library.
KzErr OpenResources()
{
    const std::string image = kztest::ReadWholeFile(kztest::DataFile("rsrc/strings.rsrc"));
    const auto* const bytes = reinterpret_cast<const unsigned char*>(image.data());
    RsrcFile refnum = 0;
    const KzErr err = ROpenUPtr(bytes, image.size(), &refnum, nullptr, nullptr);
    RCloseFile(refnum);
    return err;
}

TEST(KZApp, QueriesFallBackToTheStoredInterface)
{
    TestHost stored;
    TestHost given;
    given.apiVersion = 11;
    given.editorVersion = 12;
    given.isTopLevel = 13;
    given.isBoundApp = 14;
    given.isRunTime = 15;
    given.isFullFeatureRunTime = 16;
    const struct {
        IKZApp* stored;
        IKZApp* given;
        std::vector<int64> answers;
    } kRows[] = {
        {nullptr, nullptr, {0, 0, 0, 0, 0, 0}},
        {&stored, nullptr, {0x01008000, 0x01008000, 1, 0, 0, 0}},
        {&stored, &given, {11, 12, 13, 14, 15, 16}},
        {nullptr, &given, {11, 12, 13, 14, 15, 16}},
    };
    for (const auto& row : kRows) {
        KZAppInterfaceSet(row.stored);
        EXPECT_EQ(KZApp(), row.stored);
        EXPECT_EQ((std::vector<int64>{KZGetAppAPIVersion(row.given), KZGetAppEditorVersion(row.given),
                                      KZGetIsTopLevel(row.given), KZGetIsBoundApp(row.given), KZGetIsRunTime(row.given),
                                      KZGetIsFullFeatureRunTime(row.given)}),
                  row.answers);
    }
    KZAppInterfaceSet(nullptr);
}

TEST(KZModule, EveryOrderOfTheCallsIsHarmless)
{
    ReportCatcher reports;
    TestHost host;
    KZAppInterfaceSet(&host);
    std::mt19937 random(1);
    unsigned char text[256];
    int types = 0;
    bool baseRuns = false;
    bool supportRuns = false;
    long news = 0;  // behind a stop
    for (int step = 0; step < 1000; ++step) {
        const auto call = step == 999 ? 1 : random() % 4;
        const bool stops = call == 1 && baseRuns;
        if (call == 0) {
            EXPECT_EQ(InitKZCoreBase(), baseRuns ? kzErrArgument : kzErrNone);
            baseRuns = true;
        } else if (call == 1) {
            EXPECT_EQ(UninitKZCoreBase(), kzErrNone);
            baseRuns = supportRuns = false;
        } else {
            EXPECT_EQ(call == 2 ? InitKZCoreAppSupport() : UninitKZCoreAppSupport(), kzErrNone);
            supportRuns = call == 2 && baseRuns;
            EXPECT_EQ(reports.Take(kDbgWarning, "InitKZCoreAppSupport called while the base does not run"),
                      call == 2 && !baseRuns);
        }
        for (const auto& [level, report] : reports.TakeRows()) {
            EXPECT_LT(level, kDbgWarning) << report;
        }
        if (stops) {  // what the first start makes may be kept
            news = news == 0 ? kztest::LiveNewCount() : news;
            EXPECT_EQ(kztest::LiveNewCount(), news) << step;
        }
        ASSERT_EQ(Exists<FileManager_Service>(), baseRuns) << step;
        ASSERT_EQ(Exists<ResourceManager_Service>(), supportRuns) << step;
        ASSERT_EQ(OpenResources(), supportRuns ? kzErrNone : kzErrResFileNotOpen) << step;
        ASSERT_EQ(RGetIndString(0x100000, text, 1000, 3), kzErrResFileNotOpen) << step;
        ASSERT_EQ(RCountTypes(0x100000, &types), kzErrResFileNotOpen) << step;
        ASSERT_EQ(RCloseFile(0x100000), kzErrResFileNotOpen) << step;
    }
    KZAppInterfaceSet(nullptr);
}

// The names of what a service needs.
class NeedNames final : public IServiceDependencyList {
public:
    explicit NeedNames(const IServiceObject* service) { service->GetDependencies(this); }
    void Add(IServiceObject* service) override
    {
        names += (names.empty() ? "" : " ") + std::string(service->GetName());
    }

    std::string names;
};

TEST(KZModule, ServicesHaveTheirNamesAndNeedsAndThoseThatAreHeldWorkThroughAStop)
{
    TestHost host;
    KZAppInterfaceSet(&host);
    EXPECT_EQ(InitKZCoreBase(), 0);
    const struct {
        IServiceObject* service;
        const char* name;
        const char* needs;
    } cases[] = {
        {DebugStreamService(), "DebugStream_Service", ""},
        {ThEventService(), "ThEvent", ""},
        {StringUtilsLocaleCacheService(), "StringUtilsLocaleCache", ""},
        {ThMutexService(), "ThMutex", "ThEvent"},
        {ProtectedAtomicOperationsService(), "ProtectedAtomicOperations", "ThMutex"},
        {UnixUserUtilService(), "UnixUserUtil", "ThMutex"},
        {MemoryManagerService(), "MemoryManager", "ThMutex ProtectedAtomicOperations"},
        {TrackedMallocFreeService(), "TrackedMallocFree", "MemoryManager"},
        {PathManagerService(), "PathManager", "TrackedMallocFree MemoryManager UnixUserUtil"},
        {FileManagerService(), "FileManager", "PathManager UnixUserUtil MemoryManager"},
        {ResourceManagerService(), "ResourceManager", "MemoryManager PathManager FileManager"},
    };
    std::vector<IServiceObject*> held;
    for (const auto& test : cases) {
        EXPECT_STREQ(test.service->GetName(), test.name);
        EXPECT_EQ(NeedNames(test.service).names, test.needs) << test.name;
        held.push_back(test.service);
        EXPECT_EQ(test.service->Init(), 0);
    }
    UninitKZCoreBase();
    EXPECT_EQ(OpenResources(), 0);
    for (; !held.empty(); held.pop_back()) {
        EXPECT_EQ(held.back()->Uninit(), 0);
    }
    EXPECT_FALSE(Exists<ResourceManager_Service>());
    EXPECT_FALSE(Exists<MemoryManager_Service>());
    KZAppInterfaceSet(nullptr);
}

}  // namespace
