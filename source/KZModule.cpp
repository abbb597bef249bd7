#include "KZModule.h"

#include "DebugStream.h"
#include "FileManager.h"
#include "KZStaticObjects.h"
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
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/KZModule";

constinit IServiceRegistry* gBaseRegistry = nullptr;
constinit bool gAppSupportStarted = false;

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

}  // namespace

KzErr InitKZCoreBase()
{
    if (gBaseRegistry != nullptr) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, []() -> KzErr {
        kz::PlaceStaticObjects();
        gBaseRegistry = CreateBaseRegistry();
        return gBaseRegistry == nullptr ? kzErrMemoryFull : gBaseRegistry->RunInit();
    });
}

KzErr UninitKZCoreBase()
{
    if (gBaseRegistry != nullptr) {
        gBaseRegistry->RunUninit();
        gBaseRegistry->Release();
        gBaseRegistry = nullptr;
    }
    return kzErrNone;
}

KzErr InitKZCoreAppSupport()
{
    if (!gAppSupportStarted) {
        ReadConfigTokensForBufferCache();
        kz::ErrOf(kModule, __LINE__, [] { return ResourceManagerService()->Init(); });
        gAppSupportStarted = true;
    }
    return kzErrNone;
}

KzErr UninitKZCoreAppSupport()
{
    if (gAppSupportStarted) {
        kz::ErrOf(kModule, __LINE__, [] { return ResourceManagerService()->Uninit(); });
        gAppSupportStarted = false;
    }
    return kzErrNone;
}
