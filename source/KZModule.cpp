// The base services are a registry's, which starts them in the order of their needs. The application services start in
// the order of their table; the stop goes by the list of those whose Init was called, since only they hold a reference.
//
// A stop leaves nothing up, whatever the start before it came to: what fails to stop is destroyed, so that each start
// begins with new services. It needs no memory. For that the pool of reports is open through the whole of it, by a
// reference beside the registry's: a report without the pool would allocate its text, and lose it without memory.
#include "KZModule.h"

#include <cstddef>
#include <iterator>

#include "DebugStreamService.h"
#include "FileManager.h"
#include "KZStaticObjects.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "PathManager.h"
#include "Report.h"
#include "ResourceManager.h"
#include "ServiceEnd.h"
#include "ServiceRegistry.h"
#include "StringUtils.h"
#include "ThAtomic.h"
#include "ThEvent.h"
#include "ThMutex.h"
#include "TrackedMalloc.h"
#include "UnixUserUtil.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/KZModule";

constinit IServiceRegistry* gBaseRegistry = nullptr;  // from a start, failed or not, to the next stop
constinit bool gBaseRuns = false;                     // the last start of the base succeeded, and no stop came since

// One step of the start of application support: a service, by its accessor, or an action.
struct AppSupportStep {
    IServiceObject* (*service)();
    void (*action)();
};

template <auto Accessor>
constexpr AppSupportStep kServiceStep{[]() -> IServiceObject* { return Accessor(); }, nullptr};

constexpr AppSupportStep kAppSupport[] = {
    {nullptr, &ReadConfigTokensForBufferCache},
    kServiceStep<&ResourceManagerService>,
};

constinit bool gAppSupportStarted = false;
constinit IServiceObject* gAppServices[std::size(kAppSupport)] = {};  // whose Init was called, in that order
constinit std::size_t gAppServiceCount = 0;

// The order here means nothing: the registry finds one from the needs.
IServiceRegistry* CreateBaseRegistry()
{
    IServiceObject* services[] = {
        DebugStreamService(),
        ThEventService(),
        ThMutexService(),
        StringUtilsLocaleCacheService(),
        ProtectedAtomicOperationsService(),
        UnixUserUtilService(),
        MemoryManagerService(),
        TrackedMallocFreeService(),
        PathManagerService(),
        FileManagerService(),
        nullptr,
    };
    return CreateServiceRegistry(services);
}

// The result of an Init is kept by the service, whose calls answer with failures after a failed one.
void Run(const AppSupportStep& step)
{
    if (step.action != nullptr) {
        step.action();
        return;
    }
    KZ_ASSERT(step.service != nullptr && gAppServiceCount < std::size(gAppServices));
    IServiceObject* const service = step.service();
    gAppServices[gAppServiceCount++] = service;
    service->Init();
}

}  // namespace

KzErr InitKZCoreBase()
{
    if (gBaseRegistry != nullptr) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, []() -> KzErr {
        kz::PlaceStaticObjects();
        gBaseRegistry = CreateBaseRegistry();
        if (gBaseRegistry == nullptr) {
            return kzErrMemoryFull;
        }
        DebugStreamService()->Init();  // before the first service and until behind the last, in any order of theirs
        const KzErr err = gBaseRegistry->RunInit();
        gBaseRuns = err == kzErrNone;
        return err;
    });
}

KzErr UninitKZCoreBase()
{
    UninitKZCoreAppSupport();
    KZ_ASSERT(!gBaseRuns || gBaseRegistry != nullptr);
    gBaseRuns = false;
    if (gBaseRegistry != nullptr) {
        kz::EndServices(gBaseRegistry);
        gBaseRegistry->Release();
        gBaseRegistry = nullptr;
        kz::EndService(DebugStreamService());
    }
    return kzErrNone;
}

KzErr InitKZCoreAppSupport()
{
    if (gAppSupportStarted) {
        return kzErrNone;
    }
    if (!gBaseRuns) {
        KZ_REPORT(kDbgWarning, 0x4E9B37D2) << "InitKZCoreAppSupport called while the base does not run";
        return kzErrNone;
    }
    KZ_ASSERT(gAppServiceCount == 0);
    gAppSupportStarted = true;
    for (const AppSupportStep& step : kAppSupport) {
        // A step without memory is left out; the next start tries it again.
        kz::ErrOf(kModule, __LINE__, [&step]() -> KzErr {
            Run(step);
            return kzErrNone;
        });
    }
    return kzErrNone;
}

KzErr UninitKZCoreAppSupport()
{
    while (gAppServiceCount > 0) {
        kz::EndService(gAppServices[--gAppServiceCount]);
    }
    gAppSupportStarted = false;
    return kzErrNone;
}
