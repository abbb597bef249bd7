// What a host can set about handles and pointer blocks, as the calls read it. MemoryManager.h documents each setting
// with the call that sets it.
//
// Every call looks at some of these, so they are plain variables that are read relaxed: they order nothing, and a
// change holds for other threads from some later call on.
#ifndef KZCORE_MEMORYSETTINGS_H
#define KZCORE_MEMORYSETTINGS_H

#include <atomic>
#include <cstring>

#include "KZTypes.h"
#include "KzAssert.h"
#include "MemoryProcs.h"

// Null: no procedure. The memory-full procedure is never null.
extern std::atomic<MemEventTraceProc> gMemEventTraceProc;
extern std::atomic<MemoryCheckCallback> gMemoryCheckCallback;
extern std::atomic<MemFullProc> gMemFullProc;

extern std::atomic<KzBool> gMemoryDebugger;
extern std::atomic<KzBool> gStressHandles;
extern std::atomic<KzBool> gMemoryInited;

namespace kz {

// The levels of DSSetHandleChecking from which a call looks in the tables of all handles.
inline constexpr uInt32 kRangeForQueries = 2;  // size and disposal
inline constexpr uInt32 kRangeForChanges = 1;  // everything else
inline constexpr uInt32 kRangeAlways = 0;
inline constexpr uInt32 kHighestHandleChecking = kRangeForQueries;

// The level of DSSetHandleChecking. The environment sets it at load, and until then it acts as the highest one.
extern std::atomic<uInt32> gHandleChecking;

// Installs a memory-full procedure, or one that does nothing for null, and returns the one before.
MemFullProc ExchangeMemFullProc(MemFullProc proc);

// Tells the memory-full procedure of a size that could not be had. It may call anything, so no lock is held here.
inline void TellMemoryFull(unsigned long size)
{
    const MemFullProc proc = gMemFullProc.load();
    KZ_ASSERT(proc != nullptr);
    proc(size);
}

// Calls the procedure that follows each move and clearing of bytes, if there is one.
inline void CallMemoryCheck()
{
    if (const MemoryCheckCallback proc = gMemoryCheckCallback.load(std::memory_order_relaxed)) {
        proc();
    }
}

// MoveBlock, for the calls below the exported ones.
inline void MoveBytes(const void* from, void* to, unsigned long n)
{
    if (n != 0) {
        std::memmove(to, from, n);
        CallMemoryCheck();
    }
}

}  // namespace kz

#endif
