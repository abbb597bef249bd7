// The procedures that a host may give to the memory manager, by the calls of MemoryManager.h. Usable from C11 and
// C++20.
#ifndef KZCORE_MEMORYPROCS_H
#define KZCORE_MEMORYPROCS_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// A procedure that is called with the size that could not be had, on the thread that asked, at each failed allocation.
// It may call any function of this library.
typedef void (*MemFullProc)(unsigned long size);

// A procedure that is told of each make (kind 0), resize that had something to do (1) and disposal (2) of a handle, on
// its thread, at its end. A failure has its code, and for a make a null handle. A disposal has the size that the handle
// had as `newSize`.
enum MemEventKind { kMemEventMake = 0, kMemEventResize = 1, kMemEventDispose = 2 };
typedef void (*MemEventTraceProc)(int32 kind, KzErr error, UHandle handle, unsigned long newSize,
                                  unsigned long oldSize);

// A procedure that is called after each MoveBlock and ClearMem, on the thread that called it.
typedef void (*MemoryCheckCallback)(void);

// A procedure that is kept and not called.
typedef void (*MemMutexAccessProc)(void);

KZ_EXTERN_C_END

#endif
