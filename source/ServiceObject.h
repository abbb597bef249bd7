// Services: lazily made singletons with a counted start and stop, and the names of the services that they need.
#ifndef KZCORE_SERVICEOBJECT_H
#define KZCORE_SERVICEOBJECT_H

#include <atomic>
#include <type_traits>

#include "KZTypes.h"
#include "KzErr.h"
#include "zvexcept.h"

class IServiceObject;

// A list that a service fills with what it needs. The destructor pair stands last.
class KZ_EXPORT IServiceDependencyList {
public:
    virtual void Add(IServiceObject* service) = 0;
    virtual ~IServiceDependencyList() = default;
};

// A service. The slots stand in this order; the destructor pair stands last.
class KZ_EXPORT IServiceObject {
public:
    // Starts the service or adds a reference; the result is that of the first start.
    virtual KzErr Init() = 0;

    // Drops a reference; the last one stops the service and destroys the object. A stop that fails gives its code and
    // leaves the object with its last reference, so that the next Uninit tries again.
    virtual KzErr Uninit() = 0;

    // The service's name; owned by the service.
    virtual const char* GetName() const = 0;

    // Adds each service that this one needs to `list`.
    virtual void GetDependencies(IServiceDependencyList* list) const = 0;

    virtual ~IServiceObject() = default;
};

// Makes the object on the first Instance() call, and a new one on the first call after it was destroyed. Threads may
// race here: one object wins, the others are deleted before anyone sees them.
template <typename T>
class KZ_GammaPolicy {
public:
    static T* Instance(std::atomic<T*>& slot)
    {
        T* object = slot.load(std::memory_order_acquire);
        if (object != nullptr) {
            return object;
        }
        // Made before the slot is claimed, because a constructor that throws must leave the slot empty.
        T* made = new T;
        if (slot.compare_exchange_strong(object, made, std::memory_order_acq_rel)) {
            return made;
        }
        delete made;
        return object;
    }
};

// Holds the one instance of T in a static slot; the policy decides when it is made.
template <typename T, template <typename> class Policy = KZ_GammaPolicy>
class KZSingleton_T {
public:
    static T* Instance() { return Policy<T>::Instance(M_instPtr); }

    // The instance, or null while there is none.
    static inline constinit std::atomic<T*> M_instPtr{nullptr};
};

// Makes the object on the first Instance() call, from the argument of that call; it is destroyed at process exit.
template <typename T>
class KZ_MeyersPolicyWithData {
public:
    static T* Instance(unsigned long data)
    {
        static T object(data);
        return &object;
    }
};

// The one instance of T, made from one number. Later calls ignore `data`.
template <typename T, template <typename> class Policy = KZ_MeyersPolicyWithData>
class KZSingletonWithData_T {
public:
    static T* Instance(unsigned long data) { return Policy<T>::Instance(data); }
};

// The base of concrete services: counts starts, keeps the first start's result, destroys the object at the last stop.
// T is the concrete class, whose accessor goes through KZSingleton_T<T>. A start that failed is not tried again on this
// object; its reference is given back with Uninit like any other, and the next object tries anew. What _Init and
// _Uninit throw becomes their code. An Uninit without a reference does nothing.
// Counting is safe from any thread; the first start and the last stop run on one thread, with no other call at the same
// time.
//
// T is not final: a host's calls then go through the table into the image that made the object. Bound at compile time
// they would become the host's own, and use its copy of the singleton's slot.
template <typename T>
class RefcountedServiceObject_T : public IServiceObject {
public:
    KzErr Init() override
    {
        if (mRefCount.fetch_add(1) == 0) {
            mInitResult.store(kz::ErrOf("source/ServiceObject", __LINE__, [this] { return _Init(); }),
                              std::memory_order_release);
        }
        return mInitResult.load(std::memory_order_acquire);
    }

    KzErr Uninit() override
    {
        static_assert(!std::is_final_v<T>);
        int32 count = mRefCount.load();
        while (count > 1 && !mRefCount.compare_exchange_weak(count, count - 1)) {
        }
        if (count != 1) {
            return kzErrNone;
        }
        // The last reference goes with the object, because a stop that fails has to leave both.
        const KzErr result = kz::ErrOf("source/ServiceObject", __LINE__, [this] { return _Uninit(); });
        if (result == kzErrNone) {
            delete this;
        }
        return result;
    }

    // Empties the slot, so that the next accessor call makes a new object, however this one ended. An object that
    // never got into the slot leaves it alone.
    ~RefcountedServiceObject_T() override
    {
        if (KZSingleton_T<T>::M_instPtr.load(std::memory_order_acquire) == this) {
            KZSingleton_T<T>::M_instPtr.store(nullptr, std::memory_order_release);
        }
    }

protected:
    // What the concrete service does when it really starts and stops. _Uninit allocates nothing, and also comes after
    // an _Init that failed, when services that this one needs may have stopped.
    virtual KzErr _Init() = 0;
    virtual KzErr _Uninit() = 0;

private:
    std::atomic<int32> mRefCount{0};
    std::atomic<KzErr> mInitResult{kzErrGeneric};  // a service that was never started reads as failed
};

namespace kz {

// Adds the services of these accessors to `list`: what a PlainService_T needs.
template <auto... Accessors>
void AddNeeds([[maybe_unused]] IServiceDependencyList* list)
{
    (list->Add(Accessors()), ...);
}

}  // namespace kz

// The base of services whose name and needs are fixed. A service that has nothing to start and stop writes no more than
// its constructor; the others override _Init and _Uninit. A library service has all of these private, because hosts
// reach them through the interface only, and names KZ_GammaPolicy<T> its friend, which makes the one object.
template <typename T>
class PlainService_T : public RefcountedServiceObject_T<T> {
public:
    const char* GetName() const override { return mName; }
    void GetDependencies(IServiceDependencyList* list) const override { mAddNeeds(list); }

protected:
    using AddNeedsProc = void (*)(IServiceDependencyList* list);

    // `name` is kept as a pointer.
    explicit PlainService_T(const char* name, AddNeedsProc addNeeds = &kz::AddNeeds<>)
        : mName(name), mAddNeeds(addNeeds)
    {}

    KzErr _Init() override { return kzErrNone; }
    KzErr _Uninit() override { return kzErrNone; }

private:
    const char* const mName;
    const AddNeedsProc mAddNeeds;
};

#endif
