#include "Spin.h"

#include <sched.h>

namespace kz {

bool HasSeveralProcessors()
{
    static const bool several = [] {
        cpu_set_t allowed;
        CPU_ZERO(&allowed);
        return sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 1;
    }();
    return several;
}

}  // namespace kz
