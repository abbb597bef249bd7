// Starts a set of services, each after what it needs, and stops the started ones in the opposite order.
//
// A registry takes no lock: all calls come from one thread at a time, and services start and stop on it. Services are
// not owned, and a registry outlives none of them: those that a stop destroyed must be removed, or the registry
// released, before the next call that starts. RemoveService and ContainsService only compare addresses.
#ifndef KZCORE_SERVICEREGISTRY_H
#define KZCORE_SERVICEREGISTRY_H

#include "KZTypes.h"
#include "KzErr.h"
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

KZ_EXTERN_C_BEGIN

// A new registry of the services in an array that a null pointer ends; the caller ends it with Release. A service
// listed twice is reported at level 4 and taken once. Null for a null array or when memory runs out.
KZ_EXPORT IServiceRegistry* CreateServiceRegistry(IServiceObject** services);

KZ_EXTERN_C_END

#endif
