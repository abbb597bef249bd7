// Where the calling thread's stack ends.
#ifndef KZCORE_PLATFORMSTACK_H
#define KZCORE_PLATFORMSTACK_H

#include <cstdint>

namespace kz {

// The end of the stack of the calling thread that `frame` lies on: what lies between the two can be read. Takes no
// lock, allocates nothing and makes no system call. Any thread.
uintptr_t StackTop(uintptr_t frame);

}  // namespace kz

#endif
