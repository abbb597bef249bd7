// malloc and free with guard bytes as the environment asks for them: the family for C++ objects and for memory that is
// no handle. Usable from C11 and C++20. Any thread.
#ifndef KZCORE_TRACKEDMALLOC_H
#define KZCORE_TRACKEDMALLOC_H

#include <stddef.h>

#include "KZTypes.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

KZ_EXTERN_C_BEGIN

// `size` bytes, aligned as those of malloc, to be freed with TrackedFree; null when out of memory.
KZ_EXPORT void* TrackedMalloc(size_t size);

// Frees a block after a check of its guards, which tells what is wrong. Null does nothing.
KZ_EXPORT void TrackedFree(void* ptr);

// Nothing is tracked by these: they do nothing.
KZ_EXPORT void TrackedMallocResetTracker(void);
KZ_EXPORT void TrackedMallocDumpTracker(void);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The place of these calls in the order of services; they work without it.
class TrackedMallocFree_Service : public PlainService_T<TrackedMallocFree_Service> {
    friend KZ_GammaPolicy<TrackedMallocFree_Service>;

    TrackedMallocFree_Service();
};

// The service, made on the first call.
KZ_EXPORT TrackedMallocFree_Service* TrackedMallocFreeService();
#endif

#endif
