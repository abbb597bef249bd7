// The data segment is one part of the heap: the C library takes big blocks from mappings of their own, which this does
// not see. What it shows is slow growth by many small blocks.
#include "PlatformHeap.h"

#include <unistd.h>

namespace kz {

uintptr_t ProgramBreak()
{
    const auto address = reinterpret_cast<uintptr_t>(sbrk(0));
    return address == UINTPTR_MAX ? 0 : address;  // sbrk fails with (void*)-1
}

uInt64 ProgramBreakGrowth(uintptr_t mark)
{
    const uintptr_t now = ProgramBreak();
    return now > mark ? now - mark : 0;
}

}  // namespace kz
