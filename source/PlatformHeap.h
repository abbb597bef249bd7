// What the operating system knows about the size of the process's heap.
#ifndef KZCORE_PLATFORMHEAP_H
#define KZCORE_PLATFORMHEAP_H

#include <cstdint>

#include "KZTypes.h"

namespace kz {

// The address where the process's data segment ends, 0 when the system can't tell. Any thread.
uintptr_t ProgramBreak();

// The bytes that the segment has grown by since ProgramBreak gave `mark`; 0 when it has shrunk.
uInt64 ProgramBreakGrowth(uintptr_t mark);

}  // namespace kz

#endif
