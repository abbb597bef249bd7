// The thread library tells where a stack ends downwards only with locks and memory. What is known of it is learned
// instead: a frame further down than any before it is on the same stack when each page between can be read, because a
// gap follows below every stack. That is asked of the kernel once a page.
#include "PlatformStack.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

// Set by the dynamic loader to the stack pointer that the kernel gave to the main thread.
extern "C" void* __libc_stack_end;

namespace {

constexpr uintptr_t kPageSize = 4096;  // or a part of one

// A frame further below what is known than this is taken for one of another stack, though it may be one of this.
constexpr uintptr_t kFurthest = uintptr_t{16} << 20;

// The known part of the calling thread's stack. A signal may come between any two reads or writes of it: `top` is
// written once, after `low`, and `low` then sinks only, so that the two promise no more than is known in any order.
struct KnownStack {
    uintptr_t low;
    uintptr_t top;  // 0 before the thread's first question
};
constinit thread_local KnownStack tStack __attribute__((tls_model("initial-exec"))) = {0, 0};

constexpr uintptr_t PageOf(uintptr_t address)
{
    return address & ~(kPageSize - 1);
}

// The control block, whose address pthread_self() is, stands above the stack of a thread that the thread library made.
// The main thread's lies among the mapped images instead.
uintptr_t StackTop()
{
    return syscall(SYS_gettid) == getpid() ? reinterpret_cast<uintptr_t>(__libc_stack_end)
                                           : static_cast<uintptr_t>(pthread_self());
}

// A caller may be about to look at errno.
class KeptErrno {
public:
    KeptErrno() : mError(errno) {}
    ~KeptErrno() { errno = mError; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

private:
    int mError;
};

// A copy between processes, of which this is both: what another thread unmaps meanwhile is no fault. How many bytes
// could be read, or -1 with errno.
ssize_t CopyWithin(uintptr_t address, void* to, size_t size)
{
    const iovec into = {to, size};
    const iovec from = {reinterpret_cast<void*>(address), size};
    return process_vm_readv(getpid(), &into, 1, &from, 1, 0);
}

// The same question to a call that every sandbox allows: the kernel reads the new mask from the page before it refuses
// to change the mask in an unknown way. The second choice, because memory checkers take it for a mistake.
bool IsReadableMask(uintptr_t page)
{
    constexpr int kUnknownWay = -1;
    constexpr size_t kMaskSize = 8;
    syscall(SYS_rt_sigprocmask, kUnknownWay, page, nullptr, kMaskSize);
    return errno != EFAULT;
}

bool IsReadablePage(uintptr_t page)
{
    const KeptErrno kept;
    char byte;
    if (CopyWithin(page, &byte, sizeof byte) == sizeof byte) {
        return true;
    }
    return errno != EFAULT && IsReadableMask(page);  // any other error is a refusal, which says nothing of the page
}

// Out of line, because its frame would slow the questions that are answered by what is known.
__attribute__((noinline)) uintptr_t LearnDownTo(uintptr_t frame)
{
    if (tStack.top == 0) {
        const uintptr_t top = StackTop();
        tStack.low = PageOf(top);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        tStack.top = top;
    }
    const uintptr_t top = tStack.top;
    if (frame >= top || (frame < tStack.low && tStack.low - frame > kFurthest)) {
        return 0;
    }
    for (uintptr_t low = tStack.low; frame < low; tStack.low = low) {
        low -= kPageSize;
        if (!IsReadablePage(low)) {
            return 0;
        }
    }
    return top;
}

}  // namespace

namespace kz {

uintptr_t OwnStackTop(uintptr_t frame)
{
    const uintptr_t top = tStack.top;
    return frame < top && frame >= tStack.low ? top : LearnDownTo(frame);
}

size_t CopyReadable(uintptr_t address, void* to, size_t size)
{
    const KeptErrno kept;
    const ssize_t copied = CopyWithin(address, to, size);
    return copied < 0 ? 0 : static_cast<size_t>(copied);
}

}  // namespace kz
