// The start order is found by counting: an item's fire count is the number of its needs in the same registry that are
// not placed yet, and an item is ready at 0. Each placement lowers the count of the items that depend on it. The scan
// for a ready item restarts at the head every time, so among ready services the order is that of their addresses.
//
// A registry is open while mStartedCount is 0. The first mStartedCount entries of mInitOrder are started; nothing else
// counts starts, so a failed start leaves a registry that its stop understands.
//
// Items are owned by a list of their own, not by the map: a cycle empties the map while the start order still refers
// to them. The map's keys are compared, never dereferenced, because a stop may have destroyed the services.
#include "ServiceRegistry.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <utility>
#include <vector>

#include "KzAssert.h"
#include "NeverDestroyed.h"
#include "Report.h"
#include "ServiceEnd.h"
#include "ServiceRegistryItem.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/ServiceRegistry";
constexpr int kMaxNameSize = 128;

// The services that any registry has started and not stopped yet. Never destroyed: a registry may stop late.
std::set<IServiceObject*>& AllInitializedServices()
{
    static kz::NeverDestroyed<std::set<IServiceObject*>> services;
    return *services;
}

void LogFailedStop(const char* name, KzErr err)
{
    KZ_LOG(kDbgLog) << "ServiceRegistry: Service " << name << " uninit failed with error " << err;
}

class ServiceRegistry final : public IServiceRegistry {
public:
    KzErr RunInit() override;
    KzErr RunUninit() override;
    void Release() override { delete this; }
    KzErr AddService(IServiceObject* service) override;
    KzErr RemoveService(IServiceObject* service) override;
    bool ContainsService(IServiceObject* service) const override { return mItems.count(service) != 0; }

private:
    friend void kz::EndServices(IServiceRegistry* registry);

    bool CollectNeeds(std::vector<ServiceRegistryItem*>& workList);
    bool LinkNeeds(ServiceRegistryItem& item, const ServiceDependencyList& needs);
    void PlaceInOrder(std::vector<ServiceRegistryItem*>& workList);
    KzErr StartInOrder();
    KzErr StopNewest();
    IServiceObject* TakeNewest();

    std::map<IServiceObject*, ServiceRegistryItem*> mItems;
    std::vector<ServiceRegistryItem*> mInitOrder;
    int32 mStartedCount = 0;
    IServiceObject* mFailedStart = nullptr;  // whose Init the last RunInit saw fail; a reference on it is left
    std::vector<std::unique_ptr<ServiceRegistryItem>> mOwnedItems;
};

KzErr ServiceRegistry::AddService(IServiceObject* service)
{
    if (mStartedCount > 0) {
        return kzErrGeneric;
    }
    if (service == nullptr || ContainsService(service)) {
        return kzErrArgument;
    }
    // Owned first, because an item in the map alone would leak when there is no memory for the list.
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        mOwnedItems.push_back(std::make_unique<ServiceRegistryItem>(service));
        mItems.emplace(service, mOwnedItems.back().get());
        return kzErrNone;
    });
}

KzErr ServiceRegistry::RemoveService(IServiceObject* service)
{
    if (mStartedCount > 0) {
        return kzErrGeneric;
    }
    // The item stays owned: the order of a start that was undone may still list it.
    return service != nullptr && mItems.erase(service) != 0 ? kzErrNone : kzErrArgument;
}

KzErr ServiceRegistry::RunInit()
{
    if (mStartedCount > 0) {
        return kzErrGeneric;
    }
    // When a need can't be met the order stays empty, and the start ends with 0, because the report has said what is
    // wrong.
    return kz::ErrOf(kModule, __LINE__, [&] {
        std::vector<ServiceRegistryItem*> workList;
        mInitOrder.clear();
        if (CollectNeeds(workList)) {
            PlaceInOrder(workList);
        }
        return StartInOrder();
    });
}

// Puts all items, by address, on the work list and links each with its needs. False when a need can't be met.
bool ServiceRegistry::CollectNeeds(std::vector<ServiceRegistryItem*>& workList)
{
    for (const auto& [service, item] : mItems) {
        item->ResetOrder();
    }
    ServiceDependencyList needs;
    for (const auto& [service, item] : mItems) {
        needs.Clear();
        item->GetDependencies(&needs);
        if (!LinkNeeds(*item, needs)) {
            return false;
        }
        workList.push_back(item);
    }
    return true;
}

// A need outside the registry must have been started by another one, because this registry can't start it.
bool ServiceRegistry::LinkNeeds(ServiceRegistryItem& item, const ServiceDependencyList& needs)
{
    for (unsigned long i = 0; i < needs.GetCount(); ++i) {
        IServiceObject* const need = needs.Get(i);
        const auto found = mItems.find(need);
        if (found != mItems.end()) {
            KZ_ASSERT(found->second->GetServiceObject() == need);
            item.IncrementFireCount();
            found->second->AddDependent(item.GetServiceObject());
        } else if (AllInitializedServices().count(need) == 0) {
            KZ_REPORT(kDbgFatal, 0xC41D7A62)
                << "ServiceRegistry: Service \"" << item.GetServiceObject()->GetName() << "\" has a dependency \""
                << need->GetName() << "\" that does not exist!";
            return false;
        }
    }
    return true;
}

// Moves items from the work list to the start order, each behind its needs.
void ServiceRegistry::PlaceInOrder(std::vector<ServiceRegistryItem*>& workList)
{
    KZ_ASSERT(mInitOrder.empty());
    while (!workList.empty()) {
        const auto ready = std::find_if(workList.begin(), workList.end(),
                                        [](const ServiceRegistryItem* item) { return item->GetFireCount() == 0; });
        if (ready == workList.end()) {
            KZ_REPORT(kDbgFatal, 0x6B92E80D) << "ServiceRegistry: Service dependencies form a cycle.";
            mItems.clear();  // a later start would meet the cycle again
            return;
        }
        ServiceRegistryItem* const item = *ready;
        mInitOrder.push_back(item);
        for (unsigned long i = 0; i < item->GetDependentsCount(); ++i) {
            mItems.find(item->GetDependent(i))->second->DecrementFireCount();
        }
        workList.erase(ready);
    }
}

KzErr ServiceRegistry::StartInOrder()
{
    KZ_ASSERT(mStartedCount == 0);
    mFailedStart = nullptr;
    for (ServiceRegistryItem* item : mInitOrder) {
        IServiceObject* const service = item->GetServiceObject();
        // Recorded before it starts, so that a lack of memory for that leaves no started service unrecorded.
        const bool isNew = AllInitializedServices().insert(service).second;
        const KzErr err = item->RunInit();
        if (err != kzErrNone) {
            mFailedStart = service;
            if (isNew) {
                AllInitializedServices().erase(service);
            }
            KZ_LOG(kDbgLog) << "ServiceRegistry: Service " << service->GetName() << " init failed with error " << err;
            return err;
        }
        ++mStartedCount;
    }
    return kzErrNone;
}

KzErr ServiceRegistry::RunUninit()
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        while (mStartedCount > 0) {
            const KzErr err = StopNewest();
            if (err != kzErrNone) {
                return err;
            }
        }
        return kzErrNone;
    });
}

KzErr ServiceRegistry::StopNewest()
{
    KZ_ASSERT(mStartedCount > 0 && static_cast<unsigned long>(mStartedCount) <= mInitOrder.size());
    ServiceRegistryItem& item = *mInitOrder[static_cast<unsigned long>(mStartedCount - 1)];
    char name[kMaxNameSize];  // copied before the stop, which may destroy the service
    std::snprintf(name, sizeof name, "%s", item.GetServiceObject()->GetName());
    const KzErr err = item.RunUninit();
    if (err != kzErrNone) {
        LogFailedStop(name, err);
        return err;
    }
    TakeNewest();
    return kzErrNone;
}

// Counts the newest started service as stopped, whether or not it is.
IServiceObject* ServiceRegistry::TakeNewest()
{
    KZ_ASSERT(mStartedCount > 0);
    --mStartedCount;
    IServiceObject* const service = mInitOrder[static_cast<unsigned long>(mStartedCount)]->GetServiceObject();
    AllInitializedServices().erase(service);
    return service;
}

}  // namespace

void kz::EndService(IServiceObject* service)
{
    KZ_ASSERT(service != nullptr);
    const KzErr err = service->Uninit();
    if (err != kzErrNone) {
        LogFailedStop(service->GetName(), err);
        delete service;
    }
}

void kz::EndServices(IServiceRegistry* registry)
{
    KZ_ASSERT(dynamic_cast<ServiceRegistry*>(registry) != nullptr);
    ServiceRegistry& services = *static_cast<ServiceRegistry*>(registry);
    // The run ends at the first stop that fails. That service is destroyed without another try, and the run goes on
    // behind it, service by service.
    const bool stopFailed = services.RunUninit() != kzErrNone;
    if (services.mFailedStart != nullptr) {
        EndService(std::exchange(services.mFailedStart, nullptr));
    }
    if (stopFailed) {
        delete services.TakeNewest();
    }
    while (services.mStartedCount > 0) {
        EndService(services.TakeNewest());
    }
}

IServiceRegistry* CreateServiceRegistry(IServiceObject** services)
{
    if (services == nullptr) {
        return nullptr;
    }
    // A service that is listed twice is taken once, because the start order holds each service once.
    std::unique_ptr<ServiceRegistry> registry(new (std::nothrow) ServiceRegistry);
    for (; registry != nullptr && *services != nullptr; ++services) {
        const KzErr err = registry->AddService(*services);
        if (err == kzErrArgument) {
            KZ_REPORT(kDbgFatal, 0x27B5049E)
                << "ServiceRegistry: A service has already been registered that has the name \""
                << (*services)->GetName() << "\".";
        } else if (err != kzErrNone) {
            return nullptr;
        }
    }
    return registry.release();
}
