#include "PlatformStack.h"

#include <pthread.h>

// Set by the dynamic loader to the stack pointer that the kernel gave to the main thread.
extern "C" void* __libc_stack_end;

namespace kz {

// The control block, whose address pthread_self() is, stands above the stack of a thread that the thread library made.
// The main thread's lies among the mapped images instead, below its stack, which the kernel puts at the top of the
// address space. So one comparison tells the two, and holds in the child of a fork from any thread.
uintptr_t StackTop(uintptr_t frame)
{
    const auto controlBlock = static_cast<uintptr_t>(pthread_self());
    return frame < controlBlock ? controlBlock : reinterpret_cast<uintptr_t>(__libc_stack_end);
}

}  // namespace kz
