#include "TrackedMalloc.h"

#include <cstdlib>

#include "GuardBytes.h"
#include "GuardChecks.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "MemorySource.h"

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

TrackedMallocFree_Service::TrackedMallocFree_Service()
    : PlainService_T("TrackedMallocFree", &kz::AddNeeds<&MemoryManagerService>)
{}

TrackedMallocFree_Service* TrackedMallocFreeService()
{
    return KZSingleton_T<TrackedMallocFree_Service>::Instance();
}
