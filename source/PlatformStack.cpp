#include "PlatformStack.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

// Set by the dynamic loader to the stack pointer that the kernel gave to the main thread.
extern "C" void* __libc_stack_end;

namespace kz {

namespace {

// The main thread's control block, once it is known. Relaxed: threads compare it with their own only.
constinit std::atomic<uintptr_t> gMainControlBlock{0};

bool IsMainThread(uintptr_t controlBlock)
{
    const uintptr_t known = gMainControlBlock.load(std::memory_order_relaxed);
    if (known != 0) {
        return known == controlBlock;
    }
    if (syscall(SYS_gettid) != getpid()) {
        return false;
    }
    gMainControlBlock.store(controlBlock, std::memory_order_relaxed);
    return true;
}

}  // namespace

// The control block, whose address pthread_self() is, stands above the stack of a thread that the thread library made.
// The main thread's lies among the mapped images instead, below its stack, which the kernel puts at the top of the
// address space. A frame above the control block of another thread lies on a stack of its own, a signal's for one, of
// which nothing is known.
uintptr_t StackTop(uintptr_t frame)
{
    const auto controlBlock = static_cast<uintptr_t>(pthread_self());
    return frame < controlBlock || !IsMainThread(controlBlock) ? controlBlock
                                                               : reinterpret_cast<uintptr_t>(__libc_stack_end);
}

}  // namespace kz
