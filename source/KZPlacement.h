// Objects in static storage: they exist before any service runs, need no allocator of ours, and are destroyed by
// KZPlacementNewRunCleanup, newest first, instead of at process exit.
//
// Registering is safe from any thread. A cleanup runs on one thread, when no other uses a placed object.
#ifndef KZCORE_KZPLACEMENT_H
#define KZCORE_KZPLACEMENT_H

#include <atomic>
#include <mutex>
#include <new>
#include <type_traits>

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
        std::lock_guard<std::mutex> lock(mLock);
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
        std::lock_guard<std::mutex> lock(mLock);
        mObject.exchange(nullptr, std::memory_order_acq_rel)->~T();
    }

    std::atomic<T*> mObject{nullptr};  // null, or the object in mStorage; set and cleared under mLock
    std::mutex mLock;                  // guards the making and the end of the object, not its use
    alignas(T) unsigned char mStorage[sizeof(T)]{};
};

}  // namespace kz

#endif
