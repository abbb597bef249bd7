// Where the calling thread's stack ends.
#ifndef KZCORE_PLATFORMSTACK_H
#define KZCORE_PLATFORMSTACK_H

#include <cstdint>

namespace kz {

// The end of the stack of the calling thread, if `frame` lies on it: what lies between the two can be read. For any
// other frame the result may lie below it. Takes no lock and allocates nothing; makes a system call only until the main
// thread is known. Any thread.
uintptr_t StackTop(uintptr_t frame);

}  // namespace kz

#endif
