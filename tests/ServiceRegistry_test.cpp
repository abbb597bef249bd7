#include "ServiceRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <utility>

#include "FaultLoop.h"
#include "PlatformClock.h"
#include "ReportCatcher.h"
#include "ServiceEnd.h"
#include "ServiceRegistryItem.h"
#include "zvexcept.h"

namespace {

using kztest::ReportCatcher;
using kztest::ReportRows;

struct RegistryRelease {
    void operator()(IServiceRegistry* registry) const { registry->Release(); }
};
using RegistryPtr = std::unique_ptr<IServiceRegistry, RegistryRelease>;

constexpr KzErr kThrow = -57;        // stands for an exception that carries 57
constexpr KzErr kThrowNumber = -58;  // stands for one that is no exception of the library's or the standard's

std::string gLog;  // starts (+), stops (-) and ends (~), each with the service's letter

KzErr ResultOf(char event, char letter, KzErr result)
{
    gLog += {event, letter};
    if (result == kThrow) {
        throw ZVExcept(57, nullptr, nullptr, 0);
    }
    if (result == kThrowNumber) {
        throw 7;
    }
    return result;
}

class TestService final : public IServiceObject {
public:
    ~TestService() override { gLog += {'~', name[0]}; }
    KzErr Init() override { return ResultOf('+', name[0], initResult); }
    KzErr Uninit() override { return ResultOf('-', name[0], uninitResult); }
    const char* GetName() const override { return name.c_str(); }
    void GetDependencies(IServiceDependencyList* list) const override
    {
        std::for_each(needs.begin(), needs.end(), [list](IServiceObject* need) { list->Add(need); });
    }

    std::string name;
    std::vector<IServiceObject*> needs;
    KzErr initResult = kzErrNone;
    KzErr uninitResult = kzErrNone;
};

// A registry that works out its order by looking at all services again and again. What runs is known to all of them.
class RegistryModel final : public IServiceRegistry {
public:
    using Services = std::vector<IServiceObject*>;

    RegistryModel(std::set<IServiceObject*>& running, const Services& services) : mRunning(running)
    {
        for (IServiceObject* service : services) {
            if (service != nullptr && AddService(service) != kzErrNone) {
                Tell(kDbgFatal, "A service has already been registered that has the name \"" + Name(service) + "\".");
            }
        }
    }
    void Release() override { delete this; }
    KzErr AddService(IServiceObject* service) override
    {
        return !mStarted.empty()                                      ? kzErrGeneric
               : service == nullptr || !mItems.insert(service).second ? kzErrArgument
                                                                      : kzErrNone;
    }
    KzErr RemoveService(IServiceObject* service) override
    {
        return !mStarted.empty() ? kzErrGeneric : mItems.erase(service) == 0 ? kzErrArgument : kzErrNone;
    }
    bool ContainsService(IServiceObject* service) const override { return mItems.count(service) != 0; }

    KzErr RunInit() override
    {
        if (!mStarted.empty()) {
            return kzErrGeneric;
        }
        for (IServiceObject* service : mItems) {
            for (IServiceObject* need : Needs(service)) {
                if (!ContainsService(need) && mRunning.count(need) == 0) {
                    const std::string text = "\" has a dependency \"" + Name(need) + "\" that does not exist!";
                    Tell(kDbgFatal, "Service \"" + Name(service) + text);
                    return kzErrNone;
                }
            }
        }
        for (IServiceObject* service : Order()) {
            const KzErr err = Told(kz::ErrOf("", 0, [&] { return service->Init(); }), Name(service) + " init");
            if (err != kzErrNone) {
                return err;
            }
            mRunning.insert(service);
            mStarted.push_back(service);
        }
        return kzErrNone;
    }
    KzErr RunUninit() override
    {
        for (; !mStarted.empty(); mStarted.pop_back()) {
            IServiceObject* const service = mStarted.back();
            const KzErr err = Told(service->Uninit(), Name(service).substr(0, 127) + " uninit");
            if (err != kzErrNone) {
                return err;
            }
            mRunning.erase(service);
        }
        return kzErrNone;
    }

private:
    static std::string Name(IServiceObject* service) { return service->GetName(); }
    static const Services& Needs(IServiceObject* service) { return static_cast<TestService*>(service)->needs; }
    static void Tell(int level, const std::string& text)
    {
        DebugOutputCallHandler("", 0, "", level, 0, ("ServiceRegistry: " + text).substr(0, 255).c_str(), 0);
    }
    static KzErr Told(KzErr err, const std::string& what)
    {
        if (err != kzErrNone) {
            Tell(kDbgLog, "Service " + what + " failed with error " + std::to_string(err));
        }
        return err;
    }

    Services Order()
    {
        Services order;
        const auto waits = [&](IServiceObject* service) {
            return ContainsService(service) && std::find(order.begin(), order.end(), service) == order.end();
        };
        while (order.size() < mItems.size()) {
            const auto next = std::find_if(mItems.begin(), mItems.end(), [&](IServiceObject* service) {
                return waits(service) && std::none_of(Needs(service).begin(), Needs(service).end(), waits);
            });
            if (next == mItems.end()) {
                Tell(kDbgFatal, "Service dependencies form a cycle.");
                mItems.clear();
                break;
            }
            order.push_back(*next);
        }
        return order;
    }

    std::set<IServiceObject*> mItems;
    Services mStarted;
    std::set<IServiceObject*>& mRunning;
};

// Two registries over six services at rising addresses, "a" to "f", under random calls and changes of the services.
void CompareWithTheModel(unsigned seed)
{
    std::mt19937 random(seed);
    const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random()) % limit; };
    TestService services[6];
    const auto any = [&]() -> TestService& { return services[below(6)]; };
    for (TestService& service : services) {
        service.name = std::string(below(8) == 0 ? 300 : 1, static_cast<char>('a' + (&service - services)));
    }
    ReportCatcher reports;
    std::set<IServiceObject*> running;
    RegistryPtr registries[2];
    RegistryPtr models[2];
    // What a call comes to: its result, runs, reports and what is there afterwards.
    const auto outcome = [&](IServiceRegistry& registry, auto call) {
        gLog.clear();
        const KzErr err = call(registry);
        std::vector<bool> contained;
        for (TestService& service : services) {
            contained.push_back(registry.ContainsService(&service));
        }
        return std::make_tuple(err, gLog, reports.TakeRows(), contained);
    };
    const auto compare = [&](unsigned which, auto call) {
        EXPECT_EQ(outcome(*registries[which], call), outcome(*models[which], call));
    };
    for (unsigned which : {0u, 1u}) {
        RegistryModel::Services list(below(9));
        std::generate(list.begin(), list.end(), [&] { return &any(); });
        list.push_back(nullptr);
        registries[which].reset(CreateServiceRegistry(list.data()));
        const ReportRows told = reports.TakeRows();
        models[which].reset(new RegistryModel(running, list));
        EXPECT_EQ(told, reports.TakeRows());
    }
    for (int step = 0; step < 40; ++step) {
        TestService& changed = any();
        changed.needs.assign(std::max(below(8), 5u) - 5, &any());
        std::generate(changed.needs.begin(), changed.needs.end(), [&] { return &any(); });
        changed.initResult = below(8) < 7 ? 0 : below(2) == 0 ? 57 : kThrow;
        changed.uninitResult = below(8) < 7 ? 0 : 58;
        TestService* const service = below(20) == 0 ? nullptr : &any();
        const unsigned call = below(6);
        compare(below(2), [=](IServiceRegistry& registry) {
            return call == 0   ? registry.AddService(service)
                   : call == 1 ? registry.RemoveService(service)
                   : call < 4  ? registry.RunInit()
                               : registry.RunUninit();
        });
    }
    std::for_each(std::begin(services), std::end(services), [](TestService& service) { service.uninitResult = 0; });
    compare(0, [](IServiceRegistry& registry) { return registry.RunUninit(); });
    compare(1, [](IServiceRegistry& registry) { return registry.RunUninit(); });
}

TEST(ServiceRegistry, FollowsItsModel)
{
    EXPECT_EQ(CreateServiceRegistry(nullptr), nullptr);
    for (unsigned seed = 0; seed < kztest::ModelSequences() && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        CompareWithTheModel(seed);
    }
}

TEST(ServiceRegistry, ADependencyListHasALimitAndAnItemTakesTime)
{
    ReportCatcher reports;
    TestService services[2];
    ServiceDependencyList list;
    list.Add(nullptr);
    EXPECT_TRUE(reports.Take(kDbgWarning, "Cannot add null service dependency to dependency list."));
    for (int i = 0; i < 1025; ++i) {
        EXPECT_TRUE(reports.TakeAll().empty());
        list.Add(&services[i % 2]);
    }
    EXPECT_EQ(list.GetCount(), 1024u);
    EXPECT_EQ(list.Get(1023), &services[1]);
    EXPECT_EQ(list.Get(1024), nullptr);
    EXPECT_EQ(reports.TakeRows(), (ReportRows{{kDbgFatal, "Too many service dependencies (1024)."},
                                              {kDbgFatal, "Service dependency index 1024 not in range 0..1024"}}));
    list.Clear();
    EXPECT_EQ(list.GetCount(), 0u);

    static uInt64 sTicks = 0;
    const kz::TickSource clock = kz::SetTickSource([] { return sTicks += 7'000'000; });
    ServiceRegistryItem item(&services[0]);
    services[0].initResult = 3;
    EXPECT_EQ(item.RunInit(), 3);
    EXPECT_EQ(item.RunUninit(), 0);
    kz::SetTickSource(clock);
    EXPECT_EQ(item.GetInitTime(), 7u);
    EXPECT_EQ(item.GetUninitTime(), 7u);
}

TEST(ServiceRegistry, TheEndLeavesNothingUp)
{
    // Four services, each of which needs the one before it. What fails to stop is destroyed.
    const struct {
        std::pair<KzErr, KzErr> results[4];  // of each one's start and stop
        KzErr initResult;
        std::string end;
        std::vector<std::pair<KzErr, std::string>> stops;  // that failed
    } kRows[] = {
        {{}, 0, "-D-C-B-A", {}},
        // A failed start is given back behind the stop, or behind the first failure of that.
        {{{}, {}, {}, {31, 0}}, 31, "-C-B-A-D", {}},
        {{{}, {0, 32}, {}, {31, 33}}, 31, "-C-B-D~D~B-A", {{32, "B"}, {33, "D"}}},
        // Nothing is stopped a second time.
        {{{0, 32}, {0, 34}, {0, 32}, {}}, 0, "-D-C~C-B~B-A~A", {{32, "C"}, {34, "B"}, {32, "A"}}},
        {{{kThrow, 0}, {}, {}, {}}, 57, "-A", {}},
    };
    ReportCatcher reports;
    for (const auto& row : kRows) {
        SCOPED_TRACE("row " + std::to_string(&row - kRows));
        std::unique_ptr<TestService> services[4];
        for (size_t i = 0; i < 4; ++i) {
            services[i] = std::make_unique<TestService>();
            services[i]->name = static_cast<char>('A' + i);
            services[i]->needs.assign(i > 0, services[i - (i > 0)].get());
            std::tie(services[i]->initResult, services[i]->uninitResult) = row.results[i];
        }
        IServiceObject* list[] = {services[3].get(), services[1].get(), services[0].get(), services[2].get(), nullptr};
        const RegistryPtr registry(CreateServiceRegistry(list));
        EXPECT_EQ(registry->RunInit(), row.initResult);
        gLog.clear();
        reports.TakeAll();
        kz::EndServices(registry.get());
        EXPECT_EQ(gLog, row.end);
        for (const auto& [err, name] : row.stops) {
            EXPECT_TRUE(reports.Take(kDbgLog, "Service " + name + " uninit failed with error " + std::to_string(err)));
            static_cast<void>(services[name[0] - 'A'].release());
        }
        EXPECT_EQ(reports.TakeRows(), ReportRows{});
    }
}

constinit KzErr gCountedResult = 0;

// What a concrete service adds to the counted start, and the singleton behind it.
class Counted_Service : public PlainService_T<Counted_Service> {
public:
    Counted_Service() : PlainService_T("A") {}
    ~Counted_Service() override { gLog += "~A"; }

protected:
    KzErr _Init() override { return ResultOf('+', 'A', gCountedResult); }
    KzErr _Uninit() override { return ResultOf('-', 'A', gCountedResult); }
};

// The first start and the last stop count. A failed start is not tried again, a failed stop is by the next. An object
// that goes without a stop leaves its slot, too.
TEST(RefcountedService, FollowsItsModel)
{
    using Counted = KZSingleton_T<Counted_Service>;
    constexpr KzErr kResults[] = {0, 0, 0, 31, kThrow, kThrowNumber};
    constexpr KzErr kCodes[] = {0, 0, 0, 31, 57, 42};
    ReportCatcher reports;
    std::mt19937 random(1);
    KzErr started = 0;
    for (int step = 0, references = 0; step <= 2000; ++step) {
        const auto result = random() % 6;
        gCountedResult = kResults[result];
        gLog.clear();
        if (step == 2000 || random() % 50 == 0) {
            delete Counted::Instance();
            EXPECT_EQ(Counted::M_instPtr, nullptr);
            references = 0;
            continue;
        }
        const bool isStart = random() % 2 == 0;
        const KzErr err = isStart ? Counted::Instance()->Init() : Counted::Instance()->Uninit();
        const bool isCalled = references == (isStart ? 0 : 1);
        const KzErr called = isCalled ? kCodes[result] : 0;
        const bool ends = isCalled && !isStart && called == 0;
        started = isCalled && isStart ? called : started;
        references += isStart ? 1 : ends || references > 1 ? -1 : 0;
        EXPECT_EQ(err, isStart ? started : called) << step;
        EXPECT_EQ(gLog, !isCalled ? "" : isStart ? "+A" : ends ? "-A~A" : "-A") << step;
        EXPECT_EQ(Counted::M_instPtr == nullptr, ends) << step;
        EXPECT_EQ(reports.Take(kDbgError, "called from inside catch(...)"), called == 42) << step;
    }
}

TEST(SingletonWithData, IsMadeOnceFromTheFirstArgument)
{
    using Number = KZSingletonWithData_T<std::vector<char>>;
    const std::vector<char>* const first = Number::Instance(7);
    EXPECT_EQ(Number::Instance(8), first);
    EXPECT_EQ(first->size(), 7u);
}

}  // namespace
