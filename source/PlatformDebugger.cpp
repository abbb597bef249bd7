// A debugger is found by asking the kernel who traces this process, each time, because one may attach or go at any
// moment. The trap that a debugger stops at would kill a process without one, so it is raised under a handler that
// ignores it.
#include "PlatformDebugger.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "KzAssert.h"

namespace {

// The kernel names the tracing process in the status of this one; 0 is none. A process can name itself like a field,
// but not begin a line with its name.
bool IsTraced()
{
    const int status = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (status < 0) {
        return false;
    }
    char text[512];  // twice what the lines down to this one take; the stack may be a signal's
    text[0] = '\n';  // before the first line too
    const ssize_t size = read(status, text + 1, sizeof text - 2);
    close(status);
    if (size <= 0) {
        return false;
    }
    text[1 + size] = '\0';
    constexpr char kField[] = "\nTracerPid:";
    const char* field = std::strstr(text, kField);
    return field != nullptr && std::strtol(field + sizeof kField - 1, nullptr, 10) != 0;
}

sigset_t SetOf(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

void IgnoreSignal(int) {}

// Raises the trap that a debugger stops at. Other tracers pass it on to this process, which would end by it or be taken
// by the host's crash reporter: so it does nothing here while it is raised. A handler that does nothing rather than
// SIG_IGN, which a program started at that moment would inherit; let through, because a blocked trap would come when
// the handler is gone. The handler is the process's, so one thread at a time.
void Break()
{
    static constinit std::atomic_flag sBreaking;
    if (sBreaking.test_and_set(std::memory_order_acquire)) {
        return;
    }
    struct sigaction ignore = {};
    struct sigaction old = {};
    ignore.sa_handler = &IgnoreSignal;
    ignore.sa_flags = SA_RESTART;
    sigemptyset(&ignore.sa_mask);
    if (sigaction(SIGTRAP, &ignore, &old) == 0) {
        const sigset_t trap = SetOf(SIGTRAP);
        sigset_t oldMask;
        pthread_sigmask(SIG_UNBLOCK, &trap, &oldMask);
        std::raise(SIGTRAP);
        pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
        sigaction(SIGTRAP, &old, nullptr);
    }
    sBreaking.clear(std::memory_order_release);
}

// Keeps SIGPIPE from this thread, and takes back the one that a write of it caused meanwhile.
class NoBrokenPipe {
public:
    NoBrokenPipe()
    {
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &mPipe, &mOldMask);
    }
    ~NoBrokenPipe()
    {
        if (!mWasPending) {
            const timespec now = {};
            sigtimedwait(&mPipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &mOldMask, nullptr);
    }
    NoBrokenPipe(const NoBrokenPipe&) = delete;
    NoBrokenPipe& operator=(const NoBrokenPipe&) = delete;

private:
    const sigset_t mPipe = SetOf(SIGPIPE);
    sigset_t mOldMask;
    bool mWasPending;
};

}  // namespace

namespace kz {

void WriteToStderr(const void* bytes, size_t size)
{
    KZ_ASSERT(bytes != nullptr || size == 0);
    const NoBrokenPipe guard;
    const auto* next = static_cast<const unsigned char*>(bytes);
    while (size > 0) {
        const ssize_t written = write(STDERR_FILENO, next, size);
        if (written > 0) {
            next += written;
            size -= static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return;  // nobody is left to be told
        }
    }
}

void DebugStr(const unsigned char* text)
{
    KZ_ASSERT(text != nullptr);
    if (!IsTraced()) {
        return;
    }
    unsigned char line[256];  // the longest text and a newline: one write, which no other thread's divides
    const size_t length = text[0];
    std::memcpy(line, text + 1, length);
    line[length] = '\n';
    WriteToStderr(line, length + 1);
    Break();
}

void StopProcess()
{
    __builtin_trap();
}

}  // namespace kz
