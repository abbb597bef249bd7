// Learns in which order threads take locks, and reports at level 3, with both call chains, when two orders contradict
// each other: the threads could wait for each other for ever, even if they never did so far. In builds with assertions;
// in others there is nothing here.
//
// The recorder allocates nothing. It knows a limited number of orders and of locks held at once, and learns no more
// beyond that. Any thread.
#ifndef KZCORE_LOCKORDER_H
#define KZCORE_LOCKORDER_H

#include "KZTypes.h"

namespace kz {

#ifdef NDEBUG

inline void LockOrderTake(const void* /*lock*/) {}
inline void LockOrderRelease(const void* /*lock*/) {}
inline void LockOrderForget(const void* /*lock*/) {}

#else

// The thread is about to take the lock.
void LockOrderTake(const void* lock);

// The thread gives the lock back.
void LockOrderRelease(const void* lock);

// The lock is gone; its address may become another lock's.
void LockOrderForget(const void* lock);

#endif

}  // namespace kz

#endif
