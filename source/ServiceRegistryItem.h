// A registry's record of one service. One thread at a time, as the registry's.
#ifndef KZCORE_SERVICEREGISTRYITEM_H
#define KZCORE_SERVICEREGISTRYITEM_H

#include "HiResClock.h"
#include "KZTypes.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "ServiceDependencyList.h"
#include "ServiceObject.h"
#include "zvexcept.h"

// A registry's record of one service: where it stands in the start order, and how its start and stop went.
class ServiceRegistryItem {
public:
    explicit ServiceRegistryItem(IServiceObject* service) : mService(service) {}
    ServiceRegistryItem(const ServiceRegistryItem&) = delete;
    ServiceRegistryItem& operator=(const ServiceRegistryItem&) = delete;

    IServiceObject* GetServiceObject() const { return mService; }

    // Forgets needs and dependents, which each start works out anew.
    void ResetOrder()
    {
        mFireCount = 0;
        mDependents.Clear();
    }

    // The number of needs in the same registry that are not placed yet.
    void IncrementFireCount() { ++mFireCount; }
    void DecrementFireCount()
    {
        KZ_ASSERT(mFireCount > 0);
        --mFireCount;
    }
    int32 GetFireCount() const { return mFireCount; }

    void GetDependencies(IServiceDependencyList* list) const { mService->GetDependencies(list); }

    // The services of the same registry that need this one.
    void AddDependent(IServiceObject* service) { mDependents.Add(service); }
    unsigned long GetDependentsCount() const { return mDependents.GetCount(); }
    IServiceObject* GetDependent(unsigned long index) const { return mDependents.Get(index); }

    // Start or stop the service, taking the time. What it throws becomes its code.
    KzErr RunInit()
    {
        mInitStart = MilliSecs();
        mInitResult = kz::ErrOf("source/ServiceRegistry", __LINE__, [this] { return mService->Init(); });
        mInitEnd = MilliSecs();
        return mInitResult;
    }
    KzErr RunUninit()
    {
        mUninitStart = MilliSecs();
        mUninitResult = kz::ErrOf("source/ServiceRegistry", __LINE__, [this] { return mService->Uninit(); });
        mUninitEnd = MilliSecs();
        return mUninitResult;
    }

    // How long that took, in milliseconds.
    uInt32 GetInitTime() const { return mInitEnd - mInitStart; }
    uInt32 GetUninitTime() const { return mUninitEnd - mUninitStart; }

private:
    IServiceObject* const mService;
    int32 mFireCount = 0;  // never below 0: a need is placed once
    ServiceDependencyList mDependents;
    KzErr mInitResult = kzErrNone;
    uInt32 mInitStart = 0;
    uInt32 mInitEnd = 0;
    KzErr mUninitResult = kzErrNone;
    uInt32 mUninitStart = 0;
    uInt32 mUninitEnd = 0;
};

#endif
