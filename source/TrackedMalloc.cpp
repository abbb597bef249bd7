// Blocks of this family are laid out as pointer blocks, but by a word of their own. Where no family has room for guards
// and this one does not check, both calls are those of the C library, so that their cost is one test.
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
    // A sum that wraps would make a small block that passes for a large one.
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
    // Damage is told of and the block freed all the same, because no caller can hear of a failure here.
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
