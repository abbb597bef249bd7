#include "TrackedMalloc.h"

#include <cstdlib>

#include "GuardBytes.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "MemoryZone.h"

extern "C" {

void* TrackedMalloc(size_t size)
{
    InitializeGuardByteSettingsCore();
    if (kz::GuardsDisabled()) {
        return kz::AllocateBytes(size);
    }
    const size_t whole = size + GetAllNewDeleteGuardsSize();
    void* const block = whole < size ? nullptr : kz::AllocateBytes(whole);
    return block == nullptr ? nullptr : InitNewDeleteGuards(block, size);
}

void TrackedFree(void* ptr)
{
    if (ptr == nullptr) {
        return;
    }
    if (kz::GuardsDisabled()) {
        std::free(ptr);
        return;
    }
    CheckNewDeleteGuards(ptr);
    std::free(GetOrigNewDeletePtrFromGuardedPtr(ptr));
}

void TrackedMallocResetTracker(void) {}

void TrackedMallocDumpTracker(void) {}

}  // extern "C"

const char* TrackedMallocFree_Service::GetName() const
{
    return "TrackedMallocFree";
}

void TrackedMallocFree_Service::GetDependencies(IServiceDependencyList* list) const
{
    list->Add(MemoryManagerService());
}

KzErr TrackedMallocFree_Service::_Init()
{
    return kzErrNone;
}

KzErr TrackedMallocFree_Service::_Uninit()
{
    return kzErrNone;
}

TrackedMallocFree_Service* TrackedMallocFreeService()
{
    return KZSingleton_T<TrackedMallocFree_Service>::Instance();
}
