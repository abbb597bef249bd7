// Learns in which order threads take locks, and reports at level 3, with both call chains, when two orders contradict
// each other: the threads could wait for each other for ever, even if they never did so far. A lock that a thread takes
// while it holds it is such a contradiction too. In builds with assertions; in others there is nothing here.
//
// A lock that one thread takes and another gives back belongs to no thread: from then on it has no order.
//
// The recorder allocates nothing. It knows a limited number of orders and of locks held at once, and learns no more
// beyond that. Any thread.
#ifndef KZCORE_LOCKORDER_H
#define KZCORE_LOCKORDER_H

#include "KZTypes.h"

namespace kz {

#ifdef NDEBUG

class LockOrder {
public:
    void Take() {}
    void Release() {}
};

#else

// What the recorder knows a lock by, as a field of it.
class LockOrder {
public:
    LockOrder();
    ~LockOrder();
    LockOrder(const LockOrder&) = delete;
    LockOrder& operator=(const LockOrder&) = delete;

    void Take();     // the thread is about to take the lock
    void Release();  // the thread gives the lock back, or one that another thread took

private:
    const uInt64 mId;  // locks are counted as they are made, so that a new one at an old address is another
};

#endif

}  // namespace kz

#endif
