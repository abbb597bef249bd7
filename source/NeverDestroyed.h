// A static object whose destructor never runs, for state that other static objects, late threads and exit handlers
// still use after the end of main. It needs no memory of its own, so making it can't fail for want of some.
#ifndef KZCORE_NEVERDESTROYED_H
#define KZCORE_NEVERDESTROYED_H

#include <utility>

namespace kz {

template <class T>
class NeverDestroyed {
public:
    template <class... Args>
    constexpr explicit NeverDestroyed(Args&&... args) : mValue(std::forward<Args>(args)...)
    {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    // Written out because a union with such a member has no destructor of its own: this one leaves the value alone.
    ~NeverDestroyed() {}

    constexpr T& operator*() { return mValue; }
    constexpr T* operator->() { return &mValue; }

private:
    union {
        T mValue;
    };
};

}  // namespace kz

#endif
