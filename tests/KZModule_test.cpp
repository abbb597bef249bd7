#include "KZModule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "DebugStreamService.h"
#include "FaultLoop.h"
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
    given.isTopLevel = 0;
    given.isBoundApp = given.isRunTime = given.isFullFeatureRunTime = 1;
    const struct {
        IKZApp* stored;
        IKZApp* given;
        std::vector<int64> answers;
    } kRows[] = {
        {nullptr, nullptr, {0, 0, 0, 0, 0, 0}},
        {&stored, nullptr, {0x01008000, 0x01008000, 1, 0, 0, 0}},
        {&stored, &given, {11, 12, 0, 1, 1, 1}},
        {nullptr, &given, {11, 12, 0, 1, 1, 1}},
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
    ReportCatcher reports;
    TestHost host;
    KZAppInterfaceSet(&host);
    InitKZCoreBase();  // makes what is kept
    UninitKZCoreBase();
    reports.TakeAll();
    const long news = kztest::LiveNewCount();
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
        EXPECT_EQ(Exists<FileManager_Service>(), order.baseRuns) << order.calls;
        EXPECT_EQ(Exists<ResourceManager_Service>(), order.appSupportRuns) << order.calls;
        EXPECT_EQ(OpenResources(), order.appSupportRuns ? kzErrNone : kzErrResFileNotOpen) << order.calls;
        UninitKZCoreBase();
        for (int i = 0; i < order.toldEarly; ++i) {
            EXPECT_TRUE(reports.Take(kDbgWarning, "InitKZCoreAppSupport called while the base does not run"));
        }
        for (const auto& [level, text] : reports.TakeRows()) {
            EXPECT_LT(level, kDbgWarning) << text;
        }
        // A report without the pool makes the service of reports.
        EXPECT_LE(kztest::LiveNewCount(), news + order.toldEarly) << order.calls;
    }
    KZAppInterfaceSet(nullptr);
}

// What a service needs.
class NeedList final : public IServiceDependencyList {
public:
    explicit NeedList(const IServiceObject* service) { service->GetDependencies(this); }
    void Add(IServiceObject* service) override { needs.push_back(service); }
    std::string Names() const
    {
        std::string names;
        for (const IServiceObject* need : needs) {
            names += (names.empty() ? "" : " ") + std::string(need->GetName());
        }
        return names;
    }
    std::vector<IServiceObject*> needs;
};

// Adds what a service needs, the service behind it, each once.
void AddWithNeeds(IServiceObject* service, std::vector<IServiceObject*>& services)
{
    for (IServiceObject* need : NeedList(service).needs) {
        AddWithNeeds(need, services);
    }
    if (std::find(services.begin(), services.end(), service) == services.end()) {
        services.push_back(service);
    }
}

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
        EXPECT_EQ(NeedList(test.service).Names(), test.needs) << test.name;
    }
}

TEST(KZModule, AServiceThatIsHeldWithItsNeedsWorksThroughAStop)
{
    TestHost host;
    KZAppInterfaceSet(&host);
    EXPECT_EQ(InitKZCoreBase(), 0);
    std::vector<IServiceObject*> held;
    AddWithNeeds(ResourceManagerService(), held);
    for (IServiceObject* service : held) {
        EXPECT_EQ(service->Init(), 0);
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

// Needs everything, and fails to start.
class Failing_Service : public RefcountedServiceObject_T<Failing_Service> {
public:
    const char* GetName() const override { return "Failing"; }
    void GetDependencies(IServiceDependencyList* list) const override
    {
        list->Add(FileManagerService());
        list->Add(DebugStreamService());
        list->Add(StringUtilsLocaleCacheService());
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
    std::vector<IServiceObject*> services;
    AddWithNeeds(KZSingleton_T<Failing_Service>::Instance(), services);
    std::reverse(services.begin(), services.end());
    services.push_back(nullptr);
    IServiceRegistry* const registry = CreateServiceRegistry(services.data());
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
