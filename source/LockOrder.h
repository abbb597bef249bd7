// Learns in which order threads take locks, and reports at level 3, with both call chains, when orders contradict each
// other: threads could wait for each other for ever, even if they never did so far. Orders that are only taken under a
// common third lock don't contradict each other, because no two threads can be at them at once. A lock that a thread
// takes while it holds it is reported at level 2, since it waits until another thread releases the lock, if any does.
// In builds with assertions; in others there is nothing here.
//
// A lock may be given back by another thread than the one that took it, without a report; from then on it has no order.
//
// The recorder allocates nothing. It knows a limited number of orders, and learns no more beyond that; when a thread
// holds more than 16 locks, or more than 16,384 exist, it stops for good, because from then on it could accuse a
// correct program. Any thread.
#ifndef KZCORE_LOCKORDER_H
#define KZCORE_LOCKORDER_H

#include "KZTypes.h"

namespace kz {

#ifdef NDEBUG

class LockOrder {
public:
    void Take() {}
    void Taken() {}
    void Release() {}
};

inline const char* LockGraphFault()
{
    return nullptr;
}

#else

// What the recorder knows a lock by, as a field of it.
class LockOrder {
public:
    LockOrder();
    ~LockOrder();
    LockOrder(const LockOrder&) = delete;
    LockOrder& operator=(const LockOrder&) = delete;

    void Take();     // the thread is about to take the lock
    void Taken();    // it has the lock
    void Release();  // it is about to give the lock back, be it that another thread took it

private:
    // Counts the locks as they are made, so that a new one at an old address is another. 0 once there are too many.
    const uInt64 mNumber;
};

// What is wrong with what the recorder has learned, or null when it is sound: each order is one between locks that
// exist, with the sorted locks that were held, and no order makes another one needless. Looks at each lock and each
// pair of orders, so it is for tests.
const char* LockGraphFault();

#endif

}  // namespace kz

#endif
