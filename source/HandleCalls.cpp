// The life of a handle. A make takes a master, which is 0 until the data is there; so a validity test never sees a
// handle without data, and a failure gives the master back unseen. A resize fills a new block and shows it by one store
// to the master; until then nothing has changed, so a failure leaves the handle as it was. A disposal gives the master
// back first and frees the data then, so that no handle in use ever has freed data.
//
// No lock is held while the host's procedures run: they may make and dispose handles.
//
// The order of what a host can watch, the memory-full procedure, the trace and the reports, is the same for all calls:
// first the lack of memory, then the trace, then the report of the failed call.
#include "HandleCalls.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "BufferCache.h"
#include "GuardBytes.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryChecks.h"
#include "NotStarted.h"
#include "Report.h"

namespace kz {

constinit std::atomic<LeftHandleProc> gLeftHandleProc{nullptr};

namespace {

constexpr char kModule[] = "source/HandleCalls";

// Tells the trace procedure, if there is one, of a call on a handle that ends here.
void Trace(MemEventKind kind, KzErr err, UHandle handle, unsigned long newSize, unsigned long oldSize)
{
    if (const MemEventTraceProc proc = gMemEventTraceProc.load(std::memory_order_relaxed)) {
        proc(kind, err, handle, newSize, oldSize);
    }
}

// A block from the cache, or null. The cache is asked by size and place alone: what the block held is the caller's to
// overwrite.
unsigned char* TakeCached(const HandleRequest& request)
{
    if (request.blocks != Blocks::kCached) {
        return nullptr;
    }
    BufferCache* const cache = s_bufferCachePtr.load(std::memory_order_acquire);
    return cache == nullptr ? nullptr
                            : cache->GetAllocation(request.size, request.align.alignment, request.align.offset);
}

// The data as it was requested, with fresh guards, but for the first `kept` bytes, which the caller writes. Null when
// out of memory, with `*blockSize` as AllocateHandleData sets it.
unsigned char* ObtainData(const HandleRequest& request, unsigned long kept, unsigned long* blockSize)
{
    KZ_ASSERT(kept <= request.size);
    const unsigned long toZero = request.fill == Fill::kZero ? request.size - kept : 0;
    // The allocator can only zero a whole block. It is asked to where at least half of that is wanted, because the kept
    // bytes are written again anyway.
    Fill fill = toZero != 0 && toZero >= kept ? Fill::kZero : Fill::kNone;
    unsigned char* data = TakeCached(request);
    if (data == nullptr) {
        data = AllocateHandleData(request.size, request.align, fill, blockSize);
    } else {
        fill = Fill::kNone;  // a cached block holds what its last owner left
    }
    if (data == nullptr) {
        return nullptr;
    }
    if (HandleGuardSize() != 0) {
        InitHandleGuards(data);
    }
    if (toZero != 0 && fill == Fill::kNone) {
        std::memset(data + kept, 0, toZero);
    }
    return data;
}

// A free master, or null after the reports and the memory-full call that its lack asks for.
MasterWord* ObtainMaster(MemZoneRec* zone)
{
    // A damaged chain is no lack of memory, so the memory-full procedure is not told of it.
    const bool checks = gMemoryDebugger.load(std::memory_order_relaxed) != 0;
    FreeChainState state = FreeChainState::kSound;
    MasterWord* const master = checks ? TakeMasterChecked(zone, &state) : TakeMaster(zone);
    if (master == nullptr && ReportFreeChain(state)) {
        TellMemoryFull(kMasterBlockSize);
    }
    return master;
}

UHandle TryNewHandle(MemZoneRec* zone, const HandleRequest& request)
{
    MasterWord* const master = ObtainMaster(zone);
    if (master == nullptr) {
        return nullptr;
    }
    unsigned long blockSize;
    unsigned char* const data = ObtainData(request, 0, &blockSize);
    if (data == nullptr) {
        // Nobody has seen the master, which is 0, so it can go back as if it had never been taken.
        ReturnMaster(zone, master);
        return nullptr;
    }
    StoreMaster(master, data);
    RaiseCounter(kHandlesMade);
    return master;
}

void Insert(const Insertion& insertion, unsigned char* data)
{
    KZ_ASSERT(insertion.at + insertion.size <= HandleDataSize(data));
    MoveBytes(insertion.from, data + insertion.at, insertion.size);
}

}  // namespace

void CheckAfterChange([[maybe_unused]] const void* handle)
{
#if !defined(NDEBUG)
    if (IsWalkingMemory()) {
        if (const char* fault = MemoryFault()) {
            KZ_REPORT(kDbgFatal, 0x8F35C1D2) << "Memory is damaged: " << fault;
        }
    } else if (handle != nullptr) {
        // What a faulty layout shows in the handle itself, without a walk over all others.
        unsigned char* const data = DataOf(handle);
        const HandleAlignment align = HandleDataPlace(data).align;
        KZ_ASSERT(align == NormalAlignment(align.alignment, align.offset));
        KZ_ASSERT((reinterpret_cast<uintptr_t>(data) + align.offset) % align.alignment == 0);
    }
#endif
}

bool ReportFreeChain(FreeChainState state)
{
    // This comes after the walk and outside its lock, because a report runs the host's handler.
    switch (state) {
        case FreeChainState::kBadCount:
            KZ_REPORT(kDbgFatal, 0x60B5D89E) << "bad freemaster count";
            return false;
        case FreeChainState::kNotTerminated:
            KZ_REPORT(kDbgFatal, 0x1B97E2F4) << "freemaster chain isn't NULL terminated!";
            return false;
        case FreeChainState::kSound:
            break;
    }
    return true;
}

UHandle NewHandle(const HandleRequest& request)
{
    MemZoneRec* const zone = MemZone();
    if (zone == nullptr) {
        // No lack of memory, so that the memory-full procedure is not asked to mend it.
        Trace(kMemEventMake, kzErrGeneric, nullptr, request.size, 0);
        NotStarted("A handle can't be made");
        return nullptr;
    }
    const UHandle handle = TryNewHandle(zone, request);
    if (handle == nullptr) {
        TellMemoryFull(request.size);
    } else {
        CheckAfterChange(handle);
    }
    Trace(kMemEventMake, handle == nullptr ? kzErrMemoryFull : kzErrNone, handle, request.size, 0);
    return handle;
}

KzErr FailedMake()
{
    return MemZone() == nullptr ? kzErrGeneric : kzErrMemoryFull;
}

KzErr Failed(const char* call, KzErr err)
{
    KZ_REPORT(kDbgWarning, 0x9F2B60A7) << "Memory error " << err << " in " << call;
    return err;
}

KzErr BadHandle(const char* call)
{
    KZ_REPORT(kDbgFatal, 0x3C81E5D4);
    return Failed(call, kzErrBadZone);
}

KzErr ResizeHandle(const char* call, void* handle, const HandleRequest& request, const Insertion& insertion)
{
    unsigned char* const data = GoodData(handle, kRangeForChanges);
    if (data == nullptr) {
        if (request.fill == Fill::kZero) {
            KZ_REPORT(kDbgFatal, 0x5D19A0F3);  // a bad handle is told of twice: as by a query of its size, and below
        }
        return BadHandle(call);
    }
    return ResizeGoodHandle(call, handle, data, request, insertion);
}

KzErr ResizeGoodHandle(const char* call, void* handle, unsigned char* oldData, const HandleRequest& request,
                       const Insertion& insertion)
{
    auto* const master = static_cast<MasterWord*>(handle);
    KZ_ASSERT(IsHandleWord(oldData));
    const unsigned long size = request.size;
    const auto [oldSize, oldBlock, oldAlign] = HandleDataPlace(oldData);
    // Nothing to do is nothing to count or trace. The alignment is compared too, because a call may ask for the same
    // size at another one.
    if (size == oldSize && request.align == oldAlign) {
        Insert(insertion, oldData);
        return kzErrNone;
    }
    const unsigned long kept = std::min(oldSize, size);
    unsigned long blockSize;
    unsigned char* const data = ObtainData(request, kept, &blockSize);
    if (data == nullptr) {
        RaiseCounter(kResizes);
        // A size that no block can have is no lack of memory that the procedure could mend.
        if (blockSize != 0) {
            TellMemoryFull(blockSize);
        }
        CheckAfterChange(nullptr);  // nothing of the handle was laid out anew
        Trace(kMemEventResize, kzErrMemoryFull, master, size, oldSize);
        return Failed(call, kzErrMemoryFull);
    }
    MoveBytes(oldData, data, kept);
    // The old block goes last, because the inserted bytes may stand in it.
    Insert(insertion, data);
    StoreMaster(master, data);
    std::free(oldBlock);
    // Stress handles have this one effect.
    if (gStressHandles.load(std::memory_order_relaxed) == 0) {
        RaiseCounter(kMoves);
    }
    RaiseCounter(kResizes);
    CheckAfterChange(master);
    Trace(kMemEventResize, kzErrNone, master, size, oldSize);
    return kzErrNone;
}

UHandle LoadVariable(const void* variable)
{
    // The handle is copied as bytes, because the variable has a type of its own and may not be read as this one.
    UHandle handle;
    std::memcpy(&handle, variable, sizeof handle);
    return handle;
}

void StoreVariable(void* variable, UHandle handle)
{
    std::memcpy(variable, &handle, sizeof handle);
}

KzErr ResizeOrNewHandle(const char* call, void* variable, const HandleRequest& request, const Insertion& insertion)
{
    if (variable == nullptr) {
        return kzErrArgument;
    }
    if (const UHandle old = LoadVariable(variable)) {
        return ResizeHandle(call, old, request, insertion);
    }
    const UHandle made = NewHandle(request);
    if (made == nullptr) {
        return FailedMake();  // the make has told of it; no call on a handle has failed
    }
    Insert(insertion, DataOf(made));
    StoreVariable(variable, made);
    return kzErrNone;
}

void DisposeGoodHandle(MemZoneRec* zone, MasterWord* master, unsigned char* data, Blocks blocks)
{
    const unsigned long size = HandleDataSize(data);
    KZ_ASSERT(LoadMaster(master) == data);
    // From here on another thread may make a handle with this master, so the trace below gets no more than its name.
    ReturnMaster(zone, master);
    BufferCache* const cache = blocks == Blocks::kCached ? s_bufferCachePtr.load(std::memory_order_acquire) : nullptr;
    if (cache != nullptr && cache->CanCacheAllocation(size)) {
        cache->AddAllocation(data, size);
    } else {
        FreeHandleData(data);
    }
    CheckAfterChange(nullptr);
    Trace(kMemEventDispose, kzErrNone, master, size, 0);
}

KzErr DisposeHandle(const char* call, void* handle, Blocks blocks)
{
    if (handle == nullptr) {
        return kzErrNone;
    }
    unsigned char* const data = GoodData(handle, kRangeForQueries);
    if (data == nullptr) {
        return BadHandle(call);
    }
    DisposeGoodHandle(MemZone(), static_cast<MasterWord*>(handle), data, blocks);
    return kzErrNone;
}

KzErr DisposeAndNull(const char* call, void* variable)
{
    if (variable == nullptr) {
        return kzErrNone;
    }
    // The variable is nulled first, so that no failure leaves a handle there for a second disposal to meet.
    const UHandle old = LoadVariable(variable);
    StoreVariable(variable, nullptr);
    return DisposeHandle(call, old);
}

}  // namespace kz
