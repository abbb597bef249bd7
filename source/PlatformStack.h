// Which memory the calling thread's frames may be read from. Takes no lock and allocates nothing. Any thread, signal
// handlers too.
#ifndef KZCORE_PLATFORMSTACK_H
#define KZCORE_PLATFORMSTACK_H

#include <cstddef>
#include <cstdint>

namespace kz {

// The end of the calling thread's own stack, when `frame` lies on it: what lies between the two can be read for as long
// as the thread lives. 0 when it does not: on a fibre's stack, on a signal's, or anywhere else. Makes system calls only
// for a frame further down than all before it.
//
// Memory that can be read and follows below the stack without a gap counts as the stack. The thread library leaves a
// gap below the stacks that it makes, unless the host asks for a guard size of 0; such a host, and one that gives a
// thread a stack of its own, leaves a gap itself if it frees what is below.
uintptr_t OwnStackTop(uintptr_t frame);

// Copies memory that may not be there: up to `size` bytes, as many as can be read from `address` on, and returns how
// many; 0 in a sandbox that forbids the system call.
std::size_t CopyReadable(uintptr_t address, void* to, std::size_t size);

}  // namespace kz

#endif
