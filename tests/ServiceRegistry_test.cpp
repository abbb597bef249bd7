#include "ServiceRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "KZApp.h"
#include "PlatformClock.h"
#include "ServiceEnd.h"
#include "ServiceRegistryItem.h"
#include "StackChain.h"
#include "StackDecoder.h"
#include "support/ReportCatcher.h"
#include "support/SlotOf.h"
#include "zvexcept.h"

namespace {

using kztest::ReportCatcher;

struct RegistryRelease {
    void operator()(IServiceRegistry* registry) const { registry->Release(); }
};
using RegistryPtr = std::unique_ptr<IServiceRegistry, RegistryRelease>;

// Writes its starts (+) and stops (-) to a common log.
class TestService final : public IServiceObject {
public:
    KzErr Init() override
    {
        *log += "+" + name;
        return initResult;
    }
    KzErr Uninit() override
    {
        *log += "-" + name;
        return uninitResult;
    }
    const char* GetName() const override { return name.c_str(); }
    void GetDependencies(IServiceDependencyList* list) const override
    {
        for (IServiceObject* need : needs) {
            list->Add(need);
        }
    }

    std::string name;
    std::string* log = nullptr;
    std::vector<IServiceObject*> needs;
    KzErr initResult = kzErrNone;
    KzErr uninitResult = kzErrNone;
};

// Services "a", "b", ... at rising addresses.
class ServiceRegistryTest : public ::testing::Test {
protected:
    ServiceRegistryTest()
    {
        for (int i = 0; i < 6; ++i) {
            services[i].name = std::string(1, static_cast<char>('a' + i));
            services[i].log = &log;
        }
    }

    TestService& Get(char name) { return services[name - 'a']; }

    // "c:ab" makes c need a, then b.
    void SetNeeds(const std::vector<std::string>& table)
    {
        for (const std::string& row : table) {
            for (char need : row.substr(2)) {
                Get(row[0]).needs.push_back(&Get(need));
            }
        }
    }

    RegistryPtr Create(const std::string& names)
    {
        std::vector<IServiceObject*> list;
        for (char name : names) {
            list.push_back(&Get(name));
        }
        list.push_back(nullptr);
        return RegistryPtr(CreateServiceRegistry(list.data()));
    }

    ReportCatcher reports;
    std::string log;
    TestService services[6];
};

TEST_F(ServiceRegistryTest, StartsByAddressAfterNeedsAndStopsInReverse)
{
    const struct {
        std::vector<std::string> needs;
        std::string order;
    } cases[] = {
        {{}, "abcdef"},
        {{"a:f"}, "bcdefa"},
        // d becomes ready by e, and goes before f, which was ready all the time.
        {{"d:e"}, "abcedf"},
        {{"a:d", "b:a", "c:ab"}, "dabcef"},
        {{"a:b", "b:c", "c:d", "d:e", "e:f"}, "fedcba"},
        // A need that is named twice is counted and met twice.
        {{"a:bb"}, "bacdef"},
    };
    for (const auto& test : cases) {
        for (TestService& service : services) {
            service.needs.clear();
        }
        SetNeeds(test.needs);
        RegistryPtr registry = Create("fdbeca");
        EXPECT_EQ(registry->RunInit(), 0);
        EXPECT_EQ(registry->RunUninit(), 0);
        std::string expected;
        for (char name : test.order) {
            expected += std::string("+") + name;
        }
        for (auto name = test.order.rbegin(); name != test.order.rend(); ++name) {
            expected += std::string("-") + *name;
        }
        EXPECT_EQ(log, expected);
        log.clear();
    }
}

TEST_F(ServiceRegistryTest, NeedsAreMetByWhatAnEarlierRegistryStarted)
{
    SetNeeds({"a:f", "b:a"});
    RegistryPtr first = Create("f");
    RegistryPtr second = Create("ab");
    ASSERT_EQ(first->RunInit(), 0);
    EXPECT_EQ(second->RunInit(), 0);
    EXPECT_EQ(log, "+f+a+b");
    EXPECT_EQ(second->RunUninit(), 0);
    EXPECT_EQ(first->RunUninit(), 0);

    // Once the first has stopped, the need is missing again, and nothing starts: not even what comes before or needs
    // none.
    SetNeeds({"c:f"});
    RegistryPtr third = Create("bcd");
    Get('b').needs.clear();
    log.clear();
    EXPECT_EQ(third->RunInit(), 0);
    EXPECT_EQ(third->RunUninit(), 0);
    EXPECT_EQ(log, "");
    EXPECT_TRUE(reports.Take(kDbgFatal, "ServiceRegistry: Service \"c\" has a dependency \"f\" that does not exist!"));
    EXPECT_EQ(third->AddService(&Get('f')), 0);
}

TEST_F(ServiceRegistryTest, CycleStartsWhatWasPlacedBeforeIt)
{
    SetNeeds({"b:c", "c:b", "d:c"});
    RegistryPtr registry = Create("abcde");
    EXPECT_EQ(registry->RunInit(), 0);
    EXPECT_TRUE(reports.Take(kDbgFatal, "ServiceRegistry: Service dependencies form a cycle."));
    EXPECT_FALSE(registry->ContainsService(&Get('a')));
    EXPECT_EQ(registry->RunUninit(), 0);
    EXPECT_EQ(log, "+a+e-e-a");
}

TEST_F(ServiceRegistryTest, FailedStartIsUnwoundOnRequest)
{
    Get('e').initResult = 57;
    RegistryPtr registry = Create("abcde");
    EXPECT_EQ(registry->RunInit(), 57);
    EXPECT_TRUE(reports.Take(kDbgLog, "ServiceRegistry: Service e init failed with error 57"));
    EXPECT_EQ(log, "+a+b+c+d+e");
    EXPECT_EQ(registry->AddService(&Get('f')), kzErrGeneric);
    log.clear();
    EXPECT_EQ(registry->RunUninit(), 0);
    EXPECT_EQ(log, "-d-c-b-a");
    EXPECT_EQ(registry->AddService(&Get('f')), 0);
}

TEST_F(ServiceRegistryTest, FailedStopIsTriedAgainFirst)
{
    RegistryPtr registry = Create("abc");
    ASSERT_EQ(registry->RunInit(), 0);
    log.clear();
    Get('b').uninitResult = 58;
    Get('b').name = std::string(300, 'n');
    EXPECT_EQ(registry->RunUninit(), 58);
    EXPECT_TRUE(reports.Take(kDbgLog, "Service " + std::string(127, 'n') + " uninit failed with error 58"));
    EXPECT_EQ(log, "-c-" + Get('b').name);
    log.clear();
    Get('b').uninitResult = 0;
    Get('b').name = "b";
    EXPECT_EQ(registry->RunUninit(), 0);
    EXPECT_EQ(log, "-b-a");
}

TEST_F(ServiceRegistryTest, EachRunWorksOutTheOrderAnew)
{
    SetNeeds({"a:bc", "c:b"});
    RegistryPtr registry = Create("abc");
    for (int run = 0; run < 3; ++run) {
        EXPECT_EQ(registry->RunInit(), 0);
        EXPECT_EQ(registry->RunInit(), kzErrGeneric);  // closed: nothing starts twice
        EXPECT_EQ(registry->RunUninit(), 0);
        EXPECT_EQ(registry->RunUninit(), 0);
    }
    EXPECT_EQ(log, "+b+c+a-a-c-b+b+c+a-a-c-b+b+c+a-a-c-b");
}

TEST_F(ServiceRegistryTest, AddAndRemoveOnlyWhileOpen)
{
    RegistryPtr registry = Create("ab");
    EXPECT_EQ(registry->AddService(nullptr), kzErrArgument);
    EXPECT_EQ(registry->AddService(&Get('a')), kzErrArgument);
    EXPECT_EQ(registry->RemoveService(nullptr), kzErrArgument);
    EXPECT_EQ(registry->RemoveService(&Get('c')), kzErrArgument);
    EXPECT_EQ(registry->AddService(&Get('c')), 0);
    EXPECT_EQ(registry->RemoveService(&Get('a')), 0);
    EXPECT_FALSE(registry->ContainsService(&Get('a')));

    ASSERT_EQ(registry->RunInit(), 0);
    EXPECT_EQ(log, "+b+c");
    EXPECT_EQ(registry->AddService(&Get('d')), kzErrGeneric);
    EXPECT_EQ(registry->RemoveService(&Get('b')), kzErrGeneric);
    EXPECT_FALSE(registry->ContainsService(&Get('d')));
    EXPECT_EQ(registry->RunUninit(), 0);
    EXPECT_EQ(registry->RemoveService(&Get('b')), 0);
}

TEST_F(ServiceRegistryTest, CreationSkipsWhatIsListedTwice)
{
    EXPECT_EQ(CreateServiceRegistry(nullptr), nullptr);
    EXPECT_EQ(Create("")->RunInit(), 0);
    Get('c').name = "a";  // only the object counts, not its name
    RegistryPtr registry = Create("abac");
    ASSERT_NE(registry, nullptr);
    EXPECT_TRUE(
        reports.Take(kDbgFatal, "ServiceRegistry: A service has already been registered that has the name \"a\"."));
    EXPECT_EQ(registry->RunInit(), 0);
    EXPECT_EQ(registry->RunUninit(), 0);
    EXPECT_EQ(log, "+a+b+a-a-b-a");
}

TEST_F(ServiceRegistryTest, DependencyListLimits)
{
    ServiceDependencyList list;
    list.Add(nullptr);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Cannot add null service dependency to dependency list."));
    for (int i = 0; i < 1025; ++i) {
        EXPECT_TRUE(reports.TakeAll().empty());
        list.Add(&services[i % 2]);
    }
    EXPECT_TRUE(reports.Take(kDbgFatal, "Too many service dependencies (1024)."));
    EXPECT_EQ(list.GetCount(), 1024u);
    EXPECT_EQ(list.Get(1023), &services[1]);
    EXPECT_EQ(list.Get(1024), nullptr);
    EXPECT_TRUE(reports.Take(kDbgFatal, "Service dependency index 1024 not in range 0..1024"));
    list.Clear();
    EXPECT_EQ(list.GetCount(), 0u);
}

TEST_F(ServiceRegistryTest, AnItemTakesTheTimeOfItsRuns)
{
    static uInt64 sTicks = 0;
    const kz::TickSource clock = kz::SetTickSource([] { return sTicks += 7'000'000; });
    ServiceRegistryItem item(&Get('a'));
    Get('a').initResult = 3;
    EXPECT_EQ(item.RunInit(), 3);
    EXPECT_EQ(item.RunUninit(), 0);
    kz::SetTickSource(clock);
    EXPECT_EQ(item.GetInitTime(), 7u);
    EXPECT_EQ(item.GetUninitTime(), 7u);
}

TEST(Interfaces, SlotOrder)
{
    const auto slots = [](auto... members) { return std::vector<long>{kztest::SlotOf(members)...}; };
    EXPECT_EQ(slots(&IServiceObject::Init, &IServiceObject::Uninit, &IServiceObject::GetName,
                    &IServiceObject::GetDependencies),
              (std::vector<long>{0, 1, 2, 3}));
    EXPECT_EQ(slots(&IServiceDependencyList::Add), std::vector<long>{0});
    EXPECT_EQ(
        slots(&IServiceRegistry::RunInit, &IServiceRegistry::RunUninit, &IServiceRegistry::Release,
              &IServiceRegistry::AddService, &IServiceRegistry::RemoveService, &IServiceRegistry::ContainsService),
        (std::vector<long>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(slots(&IKZApp::GetAppSectionName, &IKZApp::GetAppBaseName, &IKZApp::GetAppAPIVersion,
                    &IKZApp::GetAppEditorVersion, &IKZApp::GetAppVersionText, &IKZApp::GetBoundAppName,
                    &IKZApp::IsTopLevel, &IKZApp::IsBoundApp, &IKZApp::IsRunTime, &IKZApp::IsFullFeatureRunTime,
                    &IKZApp::IsRealTimeTarget, &IKZApp::PrepareAppPath, &IKZApp::GetDefaultResourceFile),
              (std::vector<long>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));
    EXPECT_EQ(slots(&StackChain::Record, &StackChain::RecordFrom, &StackChain::FrameDecoder, &StackChain::GetBuffer,
                    &StackChain::GetBufferEntries),
              (std::vector<long>{2, 3, 4, 5, 6}));
    EXPECT_EQ(slots(&StackDecoder::SetDecodeLevel, &StackDecoder::GetStackCrawl, &StackDecoder::GetNameForAddress),
              (std::vector<long>{2, 3, 4}));
}

// What a concrete service adds: the counted start, and the singleton behind it.
constexpr KzErr kThrow = -57;        // stands for an exception that carries 57
constexpr KzErr kThrowNumber = -58;  // stands for one that is no exception of the library's or the standard's

struct StartAndStop {
    KzErr init;
    KzErr uninit;
};
constinit StartAndStop gCountedResults[4] = {};
std::string gCountedLog;

KzErr ResultOf(const char* event, const char* name, KzErr result)
{
    gCountedLog.append(event).append(name);
    if (result == kThrow) {
        throw ZVExcept(57, nullptr, nullptr, 0);
    }
    if (result == kThrowNumber) {
        throw 7;
    }
    return result;
}

// One service for each number; it needs the one before it.
template <int N>
class Counted_Service : public RefcountedServiceObject_T<Counted_Service<N>> {
public:
    ~Counted_Service() override { gCountedLog.append("~").append(kName); }
    const char* GetName() const override { return kName; }
    void GetDependencies(IServiceDependencyList* list) const override
    {
        if constexpr (N > 0) {
            list->Add(KZSingleton_T<Counted_Service<N - 1>>::Instance());
        }
    }

protected:
    KzErr _Init() override { return ResultOf("+", kName, gCountedResults[N].init); }
    KzErr _Uninit() override { return ResultOf("-", kName, gCountedResults[N].uninit); }

private:
    static constexpr char kName[] = {'A' + N, '\0'};
};

template <int N>
IServiceObject* Counted()
{
    return KZSingleton_T<Counted_Service<N>>::Instance();
}

template <int N>
bool CountedExists()
{
    return KZSingleton_T<Counted_Service<N>>::M_instPtr.load() != nullptr;
}

class RefcountedServiceTest : public ::testing::Test {
protected:
    RefcountedServiceTest()
    {
        std::fill(std::begin(gCountedResults), std::end(gCountedResults), StartAndStop{});
        gCountedLog.clear();
    }

    ReportCatcher reports;
};

TEST_F(RefcountedServiceTest, FirstStartAndLastStopCount)
{
    gCountedResults[0] = {31, 0};
    ASSERT_FALSE(CountedExists<0>());
    EXPECT_EQ(Counted<0>(), Counted<0>());
    EXPECT_EQ(Counted<0>()->Uninit(), 0);  // without a reference
    EXPECT_EQ(Counted<0>()->Init(), 31);
    gCountedResults[0] = {};
    EXPECT_EQ(Counted<0>()->Init(), 31);  // a failed start is not tried again
    EXPECT_EQ(Counted<0>()->Uninit(), 0);
    EXPECT_EQ(gCountedLog, "+A");
    EXPECT_EQ(Counted<0>()->Uninit(), 0);
    EXPECT_FALSE(CountedExists<0>());

    EXPECT_EQ(Counted<0>()->Init(), 0);  // a new object
    EXPECT_EQ(Counted<0>()->Uninit(), 0);
    EXPECT_EQ(gCountedLog, "+A-A~A+A-A~A");
}

TEST_F(RefcountedServiceTest, AFailedStopIsTriedAgainByTheNext)
{
    gCountedResults[0] = {kThrow, 32};
    EXPECT_EQ(Counted<0>()->Init(), 57);
    EXPECT_EQ(Counted<0>()->Uninit(), 32);
    gCountedResults[0] = {0, kThrow};
    EXPECT_EQ(Counted<0>()->Uninit(), 57);
    gCountedResults[0] = {0, kThrowNumber};
    EXPECT_EQ(Counted<0>()->Uninit(), 42);
    EXPECT_TRUE(reports.Take(kDbgError, "GetExceptionInCatch() called from inside catch(...)"));
    EXPECT_EQ(Counted<0>()->Init(), 57);  // the same object
    EXPECT_EQ(Counted<0>()->Uninit(), 0);
    gCountedResults[0] = {};
    EXPECT_EQ(Counted<0>()->Uninit(), 0);
    EXPECT_EQ(gCountedLog, "+A-A-A-A-A~A");
    EXPECT_FALSE(CountedExists<0>());
}

TEST_F(RefcountedServiceTest, TheEndOfARegistryLeavesNothingUp)
{
    const struct {
        StartAndStop results[4];
        KzErr initResult;
        const char* end;
    } cases[] = {
        {{}, 0, "-D~D-C~C-B~B-A~A"},
        // A failed start is given back behind the stop, or behind the first failure of that.
        {{{}, {}, {}, {31, 0}}, 31, "-C~C-B~B-A~A-D~D"},
        {{{}, {0, 32}, {}, {31, 33}}, 31, "-C~C-B-D~D~B-A~A"},
        // Nothing is stopped a second time.
        {{{0, 32}, {0, kThrow}, {0, 32}, {}}, 0, "-D~D-C~C-B~B-A~A"},
        {{{kThrow, 0}, {}, {}, {}}, 57, "-A~A"},
    };
    for (const auto& test : cases) {
        std::copy(std::begin(test.results), std::end(test.results), gCountedResults);
        IServiceObject* services[] = {Counted<3>(), Counted<1>(), Counted<0>(), Counted<2>(), nullptr};
        const RegistryPtr registry(CreateServiceRegistry(services));
        EXPECT_EQ(registry->RunInit(), test.initResult);
        gCountedLog.clear();
        kz::EndServices(registry.get());
        EXPECT_EQ(gCountedLog, test.end);
        EXPECT_FALSE(CountedExists<0>());
    }
    // The last case has started no others; an object that goes without a stop leaves its slot, too.
    for (IServiceObject* service : {Counted<1>(), Counted<2>(), Counted<3>()}) {
        delete service;
    }
    EXPECT_FALSE(CountedExists<1>() || CountedExists<2>() || CountedExists<3>());
}

TEST(SingletonWithData, IsMadeOnceFromTheFirstArgument)
{
    struct Data {
        explicit Data(unsigned long n) : number(n) {}
        unsigned long number;
    };
    Data* const first = KZSingletonWithData_T<Data>::Instance(7);
    EXPECT_EQ(KZSingletonWithData_T<Data>::Instance(8), first);
    EXPECT_EQ(first->number, 7u);
}

}  // namespace
