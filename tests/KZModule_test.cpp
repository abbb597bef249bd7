#include "KZModule.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DebugStreamService.h"
#include "FileManager.h"
#include "MemoryManager.h"
#include "PathManager.h"
#include "ResourceManager.h"
#include "ServiceRegistry.h"
#include "StringUtils.h"
#include "ThAtomic.h"
#include "ThEvent.h"
#include "ThMutex.h"
#include "TrackedMalloc.h"
#include "UnixUserUtil.h"
#include "support/ReportCatcher.h"
#include "support/TempFolder.h"
#include "support/TestHost.h"

namespace {

using kztest::ReportCatcher;
using kztest::RunningLibrary;
using kztest::TestHost;

template <typename Service>
bool Exists()
{
    return KZSingleton_T<Service>::M_instPtr.load() != nullptr;
}

TEST(KZApp, QueriesFallBackToTheStoredInterface)
{
    TestHost stored;
    TestHost given;
    given.apiVersion = 11;
    given.editorVersion = 12;
    given.isTopLevel = 0;
    given.isBoundApp = given.isRunTime = given.isFullFeatureRunTime = 1;
    const auto ask = [](IKZApp* app) {
        return std::vector<uInt32>{
            KZGetAppAPIVersion(app),
            KZGetAppEditorVersion(app),
            static_cast<uInt32>(KZGetIsTopLevel(app)),
            static_cast<uInt32>(KZGetIsBoundApp(app)),
            static_cast<uInt32>(KZGetIsRunTime(app)),
            static_cast<uInt32>(KZGetIsFullFeatureRunTime(app)),
        };
    };
    EXPECT_EQ(KZApp(), nullptr);
    EXPECT_EQ(ask(nullptr), (std::vector<uInt32>{0, 0, 0, 0, 0, 0}));
    KZAppInterfaceSet(&stored);
    EXPECT_EQ(KZApp(), &stored);
    EXPECT_EQ(ask(nullptr), (std::vector<uInt32>{0x01008000, 0x01008000, 1, 0, 0, 0}));
    EXPECT_EQ(ask(&given), (std::vector<uInt32>{11, 12, 0, 1, 1, 1}));
    KZAppInterfaceSet(nullptr);
    EXPECT_EQ(KZApp(), nullptr);
}

// The four calls by their letters: B and b start and stop the base, A and a application support.
struct Orders {
    const char* calls;
    bool baseRuns;
    bool appSupportRuns;
    int refused;    // starts of the base that gave kzErrArgument
    int toldEarly;  // reports of a start of application support before the base
};

TEST(KZModule, EveryOrderOfTheCallsIsHarmless)
{
    const Orders table[] = {
        {"", false, false, 0, 0},    {"ab", false, false, 0, 0},    {"BAA", true, true, 0, 0},
        {"BAAa", true, false, 0, 0},  // the second A added no reference
        {"BAaa", true, false, 0, 0}, {"BAabb", false, false, 0, 0}, {"BAba", false, false, 0, 0},
        {"BAbBA", true, true, 0, 0},  // without a
        {"BAaBA", true, true, 1, 0},  // without b
        {"BABA", true, true, 1, 0},   // without either
        {"A", false, false, 0, 1},   {"AaBA", true, true, 0, 1},    {"BAbABA", true, true, 0, 1},
    };
    const std::string image = kztest::ReadWholeFile(kztest::DataFile("rsrc/strings.rsrc"));
    const auto* const bytes = reinterpret_cast<const unsigned char*>(image.data());
    ReportCatcher reports;
    TestHost host;
    KZAppInterfaceSet(&host);
    for (const Orders& order : table) {
        int refused = 0;
        for (const char* call = order.calls; *call != '\0'; ++call) {
            const KzErr err = *call == 'B'   ? InitKZCoreBase()
                              : *call == 'b' ? UninitKZCoreBase()
                              : *call == 'A' ? InitKZCoreAppSupport()
                                             : UninitKZCoreAppSupport();
            refused += *call == 'B' && err == kzErrArgument;
            EXPECT_TRUE(err == kzErrNone || *call == 'B') << order.calls;
        }
        EXPECT_EQ(refused, order.refused) << order.calls;
        for (int i = 0; i < order.toldEarly; ++i) {
            EXPECT_TRUE(reports.Take(kDbgWarning, "InitKZCoreAppSupport called while the base does not run"));
        }
        EXPECT_EQ(Exists<FileManager_Service>(), order.baseRuns) << order.calls;
        EXPECT_EQ(Exists<ResourceManager_Service>(), order.appSupportRuns) << order.calls;
        RsrcFile refnum = 0;
        EXPECT_EQ(ROpenUPtr(bytes, image.size(), &refnum, nullptr, nullptr),
                  order.appSupportRuns ? kzErrNone : kzErrResFileNotOpen)
            << order.calls;
        RCloseFile(refnum);
        UninitKZCoreBase();
    }
    KZAppInterfaceSet(nullptr);
}

// Collects the names of needs.
class NameList final : public IServiceDependencyList {
public:
    void Add(IServiceObject* service) override
    {
        names += names.empty() ? "" : " ";
        names += service->GetName();
    }
    std::string names;
};

TEST(KZModule, ServicesHaveTheirNamesAndNeeds)
{
    RunningLibrary library;
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
    for (const auto& test : cases) {
        EXPECT_STREQ(test.service->GetName(), test.name);
        NameList needs;
        test.service->GetDependencies(&needs);
        EXPECT_EQ(needs.names, test.needs) << test.name;
    }
}

// Holds services, each with all that it needs, and gives them back newest first.
class HeldServices final : public IServiceDependencyList {
public:
    ~HeldServices() override
    {
        for (; !mServices.empty(); mServices.pop_back()) {
            EXPECT_EQ(mServices.back()->Uninit(), 0);
        }
    }
    void Add(IServiceObject* service) override
    {
        service->GetDependencies(this);
        EXPECT_EQ(service->Init(), 0);
        mServices.push_back(service);
    }

private:
    std::vector<IServiceObject*> mServices;
};

TEST(KZModule, AServiceThatIsHeldWithItsNeedsWorksThroughAStop)
{
    const std::string image = kztest::ReadWholeFile(kztest::DataFile("rsrc/strings.rsrc"));
    TestHost host;
    KZAppInterfaceSet(&host);
    EXPECT_EQ(InitKZCoreBase(), 0);
    {
        HeldServices held;
        held.Add(ResourceManagerService());
        UninitKZCoreBase();
        RsrcFile refnum = 0;
        const auto* const bytes = reinterpret_cast<const unsigned char*>(image.data());
        EXPECT_EQ(ROpenUPtr(bytes, image.size(), &refnum, nullptr, nullptr), 0);
        EXPECT_EQ(RCloseFile(refnum), 0);
    }
    EXPECT_FALSE(Exists<ResourceManager_Service>());
    EXPECT_FALSE(Exists<MemoryManager_Service>());
    KZAppInterfaceSet(nullptr);
}

// Needs everything, and fails to start.
class Failing_Service : public RefcountedServiceObject_T<Failing_Service> {
public:
    const char* GetName() const override { return "Failing"; }
    void GetDependencies(IServiceDependencyList* list) const override
    {
        list->Add(FileManagerService());
        list->Add(DebugStreamService());
    }

protected:
    KzErr _Init() override { return 77; }
    KzErr _Uninit() override { return 0; }
};

TEST(KZModule, AFailedStartUnwindsAndALaterOneWorks)
{
    ReportCatcher reports;
    TestHost host;
    KZAppInterfaceSet(&host);
    IServiceObject* services[] = {
        KZSingleton_T<Failing_Service>::Instance(),
        FileManagerService(),
        PathManagerService(),
        TrackedMallocFreeService(),
        MemoryManagerService(),
        UnixUserUtilService(),
        ProtectedAtomicOperationsService(),
        StringUtilsLocaleCacheService(),
        ThMutexService(),
        ThEventService(),
        DebugStreamService(),
        nullptr,
    };
    IServiceRegistry* const registry = CreateServiceRegistry(services);
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(registry->RunInit(), 77);
    EXPECT_TRUE(reports.Take(kDbgLog, "ServiceRegistry: Service Failing init failed with error 77"));
    EXPECT_TRUE(Exists<FileManager_Service>());
    EXPECT_EQ(registry->RunUninit(), 0);
    registry->Release();
    EXPECT_FALSE(Exists<FileManager_Service>());
    EXPECT_FALSE(Exists<MemoryManager_Service>());
    EXPECT_EQ(KZSingleton_T<Failing_Service>::Instance()->Uninit(), 0);
    EXPECT_FALSE(Exists<Failing_Service>());

    RunningLibrary library;
    EXPECT_EQ(library.baseResult, 0);
}

}  // namespace
