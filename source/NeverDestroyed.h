// A static object whose destructor never runs, for state that other static objects, late threads and exit handlers
// still use after the end of main. It needs no memory of its own, so making it can't fail for want of some, and
// registers nothing to be run at the exit. It is made at run time: make it a static variable of a function, so that it
// is there whenever it is asked for.
#ifndef KZCORE_NEVERDESTROYED_H
#define KZCORE_NEVERDESTROYED_H

#include <new>
#include <utility>

namespace kz {

template <class T>
class NeverDestroyed {
public:
    template <class... Args>
    explicit NeverDestroyed(Args&&... args)
    {
        ::new (static_cast<void*>(mRoom)) T(std::forward<Args>(args)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(mRoom)); }
    T* operator->() { return &**this; }

private:
    alignas(T) unsigned char mRoom[sizeof(T)];
};

}  // namespace kz

#endif
