// The objects that the library itself places in static storage: KZPlacement with a lock and a place for each.
//
// The lock guards the making and the end of an object, not its use: a cleanup runs when no other thread uses one.
#ifndef KZCORE_STATICOBJECT_H
#define KZCORE_STATICOBJECT_H

#include <atomic>
#include <new>
#include <type_traits>

#include "KZPlacement.h"
#include "KzAssert.h"
#include "PthreadScopes.h"
#include "ThreadAnnotations.h"

namespace kz {

// One placed object with its storage and pointer. Define it constinit with static storage duration. Get() works from
// any thread and in load-time code; the object that a cleanup destroyed is made anew by the next Get().
template <typename T>
class StaticObject {
public:
    constexpr StaticObject() = default;
    StaticObject(const StaticObject&) = delete;
    StaticObject& operator=(const StaticObject&) = delete;

    T* Get()
    {
        T* object = mObject.load(std::memory_order_acquire);
        return object != nullptr ? object : Place();
    }

private:
    class Deletion final : public KZPlacementDeletor {
    public:
        explicit Deletion(StaticObject& owner) : mOwner(owner) {}
        ~Deletion() override { mOwner.Destroy(); }

    private:
        StaticObject& mOwner;
    };

    // Out of the way of Get, because it runs once for each time that the object is made.
    T* Place()
    {
        static_assert(std::is_trivially_destructible_v<StaticObject>, "threads may use it while the process exits");
        const PthreadLocked lock(&mLock);
        T* object = mObject.load(std::memory_order_relaxed);
        if (object == nullptr) {
            object = KZPlacementNew<T>(mStorage);
            // Without memory for the record the object just outlives every cleanup.
            KZPlacementNewRegisterDeletor(new (std::nothrow) Deletion(*this));
            mObject.store(object, std::memory_order_release);
        }
        return object;
    }

    // The pointer goes first, under the lock, so that no Get() hands out the dying object or reuses its storage.
    void Destroy()
    {
        const PthreadLocked lock(&mLock);
        T* const object = mObject.exchange(nullptr, std::memory_order_acq_rel);
        KZ_ASSERT(object != nullptr);  // each deletion record stands for one making
        object->~T();
    }

    std::atomic<T*> mObject{nullptr};  // null, or the object in mStorage; set and cleared under mLock
    PthreadMutex mLock;                // not a ThMutex, which could not be made while the library loads
    alignas(T) unsigned char mStorage[sizeof(T)] KZ_GUARDED_BY(mLock){};
};

}  // namespace kz

#endif
