// Starts a set of services, each after what it needs, and stops the started ones in the opposite order.
//
// A registry takes no lock: all calls come from one thread at a time, and services start and stop on it. Services are
// not owned, and a registry outlives none of them: those that a stop destroyed must be removed, or the registry
// released, before the next call that starts. RemoveService and ContainsService only compare addresses.
#ifndef KZCORE_SERVICEREGISTRY_H
#define KZCORE_SERVICEREGISTRY_H

#include "KZTypes.h"
#include "KzErr.h"
#include "ServiceDependencyList.h"
#include "ServiceObject.h"

// A registry. The slots stand in this order; the destructor pair stands last. It is open while none of its services
// is started, and closed to AddService and RemoveService from the first start to the last stop.
class KZ_EXPORT IServiceRegistry {
public:
    // Starts the services, which all are to be alive; again after a full stop. Services that don't need one another
    // start in the order of their addresses. A need is met by a service of this registry or one that an earlier
    // registry has started; a need that is met by neither (reported at level 4) keeps all services from starting, with
    // result 0. In a cycle of needs (level 4) those that could be placed before it still start, with result 0.
    // Otherwise the first failed start ends the run with its result, and what did start stays up until RunUninit; the
    // reference on the service that failed is the caller's to give back, by its Uninit. kzErrMemoryFull when memory
    // runs out. kzErrGeneric, with nothing done, while closed.
    virtual KzErr RunInit() = 0;

    // Stops what is started, newest first; allocates nothing. A failed stop ends the run with its result, and the next
    // RunUninit begins with the same service.
    virtual KzErr RunUninit() = 0;

    // Destroys the registry, and stops nothing.
    virtual void Release() = 0;

    // kzErrGeneric while closed; kzErrArgument for null or a service that is already present; kzErrMemoryFull.
    virtual KzErr AddService(IServiceObject* service) = 0;

    // kzErrGeneric while closed; kzErrArgument for null or a service that is not present.
    virtual KzErr RemoveService(IServiceObject* service) = 0;

    virtual bool ContainsService(IServiceObject* service) const = 0;

    virtual ~IServiceRegistry() = default;
};

// A registry's record of one service: where it stands in the start order, and how its start and stop went.
class ServiceRegistryItem {
public:
    explicit ServiceRegistryItem(IServiceObject* service) : mService(service) {}
    ServiceRegistryItem(const ServiceRegistryItem&) = delete;
    ServiceRegistryItem& operator=(const ServiceRegistryItem&) = delete;

    IServiceObject* GetServiceObject() const { return mService; }

    // Forgets needs and dependents, which each start works out anew.
    void ResetOrder();

    // The number of needs in the same registry that are not placed yet.
    void IncrementFireCount() { ++mFireCount; }
    void DecrementFireCount() { --mFireCount; }
    int32 GetFireCount() const { return mFireCount; }

    void GetDependencies(IServiceDependencyList* list) const { mService->GetDependencies(list); }

    // The services of the same registry that need this one.
    void AddDependent(IServiceObject* service) { mDependents.Add(service); }
    unsigned long GetDependentsCount() const { return mDependents.GetCount(); }
    IServiceObject* GetDependent(unsigned long index) const { return mDependents.Get(index); }

    // Start or stop the service, taking the time. What it throws becomes its code.
    KzErr RunInit();
    KzErr RunUninit();

    // How long that took, in milliseconds.
    uInt32 GetInitTime() const { return mInitEnd - mInitStart; }
    uInt32 GetUninitTime() const { return mUninitEnd - mUninitStart; }

private:
    IServiceObject* const mService;
    int32 mFireCount = 0;
    ServiceDependencyList mDependents;
    KzErr mInitResult = kzErrNone;
    uInt32 mInitStart = 0;
    uInt32 mInitEnd = 0;
    KzErr mUninitResult = kzErrNone;
    uInt32 mUninitStart = 0;
    uInt32 mUninitEnd = 0;
};

KZ_EXTERN_C_BEGIN

// A new registry of the services in an array that a null pointer ends; the caller ends it with Release. A service
// listed twice is reported at level 4 and taken once. Null for a null array or when memory runs out.
KZ_EXPORT IServiceRegistry* CreateServiceRegistry(IServiceObject** services);

KZ_EXTERN_C_END

namespace kz {

// For the library's own stop, which leaves nothing up whatever fails. EndService gives a reference back and destroys
// the service if its last stop fails, so that the next accessor call makes a new one. EndServices does so for all that
// a registry of CreateServiceRegistry has started, newest first, and for the service whose start failed. A service
// whose stop has failed is not stopped again. Both allocate nothing.
void EndService(IServiceObject* service);
void EndServices(IServiceRegistry* registry);

}  // namespace kz

#endif
