// Plain words are made atomic for the length of one operation, because they are fields of a host's records, which C
// code lays out. std::atomic_ref does that without a second copy of the word.
#include "ThAtomic.h"

#include <atomic>

#include "KzErr.h"
#include "ScopedLock.h"

static_assert(std::atomic_ref<uInt32>::is_always_lock_free);
static_assert(std::atomic_ref<void*>::is_always_lock_free);

KzBool ThSwapIfSame(uInt32* p, uInt32 newValue, uInt32 oldValue)
{
    return std::atomic_ref<uInt32>(*p).compare_exchange_strong(oldValue, newValue);
}

KzBool ThSwapIfSamePtr(void** p, void* newValue, void* oldValue)
{
    return std::atomic_ref<void*>(*p).compare_exchange_strong(oldValue, newValue);
}

void* ThAtomicSwapPtr(void** p, void* newValue)
{
    return std::atomic_ref<void*>(*p).exchange(newValue);
}

uInt32 ThAtomicSwap(uInt32* p, uInt32 newValue, ThMutex mutex)
{
    kz::ScopedLock lock(mutex);
    const uInt32 oldValue = *p;
    *p = newValue;
    return oldValue;
}

void Th8ByteAtomicWrtRd(uInt32* a, uInt32* b, int32 dir, ThMutex mutex)
{
    kz::ScopedLock lock(mutex);
    const uInt32* const from = dir != 0 ? a : b;
    uInt32* const to = dir != 0 ? b : a;
    to[0] = from[0];
    to[1] = from[1];
}

ProtectedAtomicOperations_Service::ProtectedAtomicOperations_Service()
    : PlainService_T("ProtectedAtomicOperations", &kz::AddNeeds<&ThMutexService>)
{}

ProtectedAtomicOperations_Service* ProtectedAtomicOperationsService()
{
    return KZSingleton_T<ProtectedAtomicOperations_Service>::Instance();
}
