// How many processors the process may use is asked once: a process that is confined later spins in vain for a while,
// which costs it time and nothing else.
#include "Spin.h"

#include <sched.h>

namespace kz {

namespace {

// Relaxed: a setting, which orders nothing.
constinit std::atomic<bool> gAllowed{true};

bool HasSeveralProcessors()
{
    cpu_set_t usable;
    CPU_ZERO(&usable);
    return sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) > 1;
}

}  // namespace

bool SpinsPay()
{
    static const bool several = HasSeveralProcessors();
    return several && gAllowed.load(std::memory_order_relaxed);
}

void AllowSpins(bool allow)
{
    gAllowed.store(allow, std::memory_order_relaxed);
}

}  // namespace kz
