// Atomic operations on plain words. Usable from C11 and C++20.
//
// The words are naturally aligned. The lock-free operations are sequentially consistent and may be called from any
// thread. The others take a lock, because they serve data that other code protects with that lock; null is no lock.
#ifndef KZCORE_THATOMIC_H
#define KZCORE_THATOMIC_H

#include "KZTypes.h"
#include "ThMutex.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

KZ_EXTERN_C_BEGIN

// Stores `newValue` in `*p` if it holds `oldValue`: true if it did. Lock-free.
KZ_EXPORT KzBool ThSwapIfSame(uInt32* p, uInt32 newValue, uInt32 oldValue);
KZ_EXPORT KzBool ThSwapIfSamePtr(void** p, void* newValue, void* oldValue);

// Stores `newValue` in `*p` and returns what it held. Lock-free.
KZ_EXPORT void* ThAtomicSwapPtr(void** p, void* newValue);

// Stores `newValue` in `*p` under `mutex` and returns what it held.
KZ_EXPORT uInt32 ThAtomicSwap(uInt32* p, uInt32 newValue, ThMutex mutex);

// Copies two words under `mutex`: from `a` to `b` when `dir` is not 0, else from `b` to `a`.
KZ_EXPORT void Th8ByteAtomicWrtRd(uInt32* a, uInt32* b, int32 dir, ThMutex mutex);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The place of these operations in the order of services; they work without it.
class ProtectedAtomicOperations_Service : public PlainService_T<ProtectedAtomicOperations_Service> {
    friend KZ_GammaPolicy<ProtectedAtomicOperations_Service>;

    ProtectedAtomicOperations_Service();
};

// The service, made on the first call.
KZ_EXPORT ProtectedAtomicOperations_Service* ProtectedAtomicOperationsService();
#endif

#endif
