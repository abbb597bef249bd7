// What the exported handle calls are made of: one make, one resize and one disposal. `call` is the name of the exported
// call, for the reports of its failures. Any thread may call, one at a time for each handle.
#ifndef KZCORE_HANDLECALLS_H
#define KZCORE_HANDLECALLS_H

#include <atomic>

#include "GuardChecks.h"
#include "HandleLayout.h"
#include "MemorySettings.h"
#include "MemoryZone.h"

namespace kz {

enum class Blocks { kFresh, kCached };

// What a make or a resize asks for. kZero zeros what is new; kCached asks the buffer cache first.
struct HandleRequest {
    unsigned long size;
    HandleAlignment align;
    Fill fill = Fill::kNone;
    Blocks blocks = Blocks::kFresh;
};

// A request whose alignment the size chooses.
constexpr HandleRequest BySize(unsigned long size, Fill fill = Fill::kNone, Blocks blocks = Blocks::kFresh)
{
    return {size, AlignmentForSize(size), fill, blocks};
}

// Bytes that a resized handle gets at an offset, within its new size. They may stand in the handle's own old data,
// which is freed after they are copied.
struct Insertion {
    const void* from = nullptr;
    unsigned long at = 0;
    unsigned long size = 0;
};

// The data of a handle that passes validation, or null. Callers go on with this address instead of reading the master
// again, because a second reading could find what another thread has made of it. Inlined everywhere, because a call of
// its own would cost as much as the look.
[[gnu::always_inline]] inline unsigned char* GoodData(const void* handle, uInt32 rangeLevel)
{
    const bool skipRange = gHandleChecking.load(std::memory_order_relaxed) < rangeLevel;
    unsigned char* const data = FindHandleData(MemZone(), handle, skipRange);
    return data != nullptr && HandleGuardsPass(data) ? data : nullptr;
}

inline bool IsGoodHandle(const void* handle, uInt32 rangeLevel)
{
    return GoodData(handle, rangeLevel) != nullptr;
}

// In builds with assertions every call that changes a handle ends with this: a walk over all memory, where
// WalkMemoryAtEachCall asks for it, or a look at the one handle if it isn't null. Elsewhere it does nothing.
void CheckAfterChange(const void* handle);

// The data of a handle that is known to be good.
inline unsigned char* DataOf(const void* handle)
{
    return LoadMaster(static_cast<const MasterWord*>(handle));
}

// The caller's to dispose; null when out of memory, after the memory-full procedure, and while the memory service does
// not run, after a report of that.
UHandle NewHandle(const HandleRequest& request);

// Why the make that has just given null did: kzErrMemoryFull, or kzErrGeneric while the memory service does not run.
KzErr FailedMake();

// kzErrBadZone: no good handle; kzErrMemoryFull. Both are reported, and leave the handle and its data as they were.
KzErr ResizeHandle(const char* call, void* handle, const HandleRequest& request, const Insertion& insertion = {});

// The same for a handle whose data GoodData has returned.
KzErr ResizeGoodHandle(const char* call, void* handle, unsigned char* data, const HandleRequest& request,
                       const Insertion& insertion = {});

// The handle in the variable is resized, or a new one put there when it is null; kzErrArgument for a null variable, the
// code of FailedMake for a handle that can't be made.
KzErr ResizeOrNewHandle(const char* call, void* variable, const HandleRequest& request,
                        const Insertion& insertion = {});

// Null gives 0; kzErrBadZone, reported, for no good handle.
KzErr DisposeHandle(const char* call, void* handle, Blocks blocks = Blocks::kFresh);

// Disposes the handle in the variable and nulls it, whatever happens. A null address gives 0.
KzErr DisposeAndNull(const char* call, void* variable);

// The reports of a bad handle, and of a call that failed. Both return the error.
KzErr BadHandle(const char* call);
KzErr Failed(const char* call, KzErr err);

// Handle variables come as void*, whatever type they point to, and are copied as bytes.
UHandle LoadVariable(const void* variable);
void StoreVariable(void* variable, UHandle handle);

// Gives back a handle whose data GoodData has returned: the master to the zone, the data to the cache or the system.
void DisposeGoodHandle(MemZoneRec* zone, MasterWord* master, unsigned char* data, Blocks blocks);

// A procedure that the stop of the memory service calls for each handle that is left, before it disposes the handle, so
// that a module can free what hangs on a handle of its own. Null for none.
using LeftHandleProc = void (*)(UHandle handle, unsigned char* data);
extern std::atomic<LeftHandleProc> gLeftHandleProc;

// Reports damage of the free chain at level 4; false for damage.
bool ReportFreeChain(FreeChainState state);

}  // namespace kz

#endif
