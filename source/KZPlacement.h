// Objects in static storage: they exist before any service runs, need no allocator of ours, and are destroyed by
// KZPlacementNewRunCleanup, newest first, instead of at process exit.
//
// Registering is safe from any thread. A cleanup runs on one thread, when no other uses a placed object.
#ifndef KZCORE_KZPLACEMENT_H
#define KZCORE_KZPLACEMENT_H

#include <new>

#include "KZTypes.h"

// A deletion record. Destroying it destroys what it stands for.
class KZ_EXPORT KZPlacementDeletor {
public:
    virtual ~KZPlacementDeletor() = default;

    KZPlacementDeletor* next = nullptr;  // the next older record of the chain
};

// Destroys an object in place; its storage is not freed.
template <typename T>
class KZPlacementDelete : public KZPlacementDeletor {
public:
    explicit KZPlacementDelete(T* object) : mObject(object) {}
    ~KZPlacementDelete() override { mObject->~T(); }

private:
    T* mObject;
};

// Makes a T in `storage`, which has its size and alignment; null gives null.
template <typename T>
T* KZPlacementNew(void* storage)
{
    return storage == nullptr ? nullptr : ::new (storage) T;
}

KZ_EXTERN_C_BEGIN

// Takes over a record made with new, which the next cleanup deletes. Null is ignored.
KZ_EXPORT void KZPlacementNewRegisterDeletor(KZPlacementDeletor* record);

// Deletes the records registered so far, newest first. What their destructors register stays for the next cleanup.
KZ_EXPORT void KZPlacementNewRunCleanup(void);

KZ_EXTERN_C_END

#endif
