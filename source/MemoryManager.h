// Relocatable memory behind handles, and plain pointer blocks. Usable from C11 and C++20.
//
// A handle is the address of a master pointer, which points to the data; it stays the same for its whole life, while a
// resize moves the data: read the master pointer again after it. Sizes are bytes. A handle is disposed by whoever made
// it, unless a call is told to take it over. Handles exist while the memory service runs; plain pointers always.
//
// Alignment. The address of a handle's data plus an offset is a multiple of an alignment. Where a call does not give
// the two, the size chooses: the alignment is 8 below 1,024 bytes, 16 below 1,048,576, else 4,096; the offset is 8 for
// a size that is a multiple of 8, 4 for one that leaves 4, else 8 for alignment 8 and otherwise 0. So the data of a
// block of 12 bytes is only 4-aligned, and what follows its leading 4-byte count is 8-aligned. Where a call gives
// them, the alignment becomes the next power of two from 8 to 32,768, the offset the next multiple of 4.
//
// Failures. A make gives null after the memory-full procedure has run; while the memory service does not run, after a
// report of level 2 in its place, and calls that would make a handle then give kzErrGeneric where they give
// kzErrMemoryFull otherwise. Calls on a handle give kzErrBadZone for one
// that is not in use, after a report of level 4; a failed resize or disposal is then reported at level 2 with its code
// and the call's name. How hard a handle is looked at is set by DSSetHandleChecking. A failed resize leaves the handle
// and its data as they were.
//
// Variables. A parameter called `variable` is the address of a variable that holds a handle, of whatever type it points
// to, or null. In C++ a handle in its place does not compile; C can't tell the two apart.
//
// Families. Each AZ call is the DS call of the same name. Calls with "Cache" take big blocks from a cache of a few
// freed ones, or give them to it, and are else the same as those without.
//
// Threads. Any thread, at any time, but one at a time for each handle or block. Settings may be changed at any time.
#ifndef KZCORE_MEMORYMANAGER_H
#define KZCORE_MEMORYMANAGER_H

#include "KZTypes.h"
#include "MemoryProcs.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

KZ_EXTERN_C_BEGIN

// Make a handle or a pointer block, which may be of size 0. "Clr" and "PClr" zero it. Pointers are aligned as those of
// malloc.
KZ_EXPORT UHandle DSNewHandle(unsigned long size);
KZ_EXPORT UHandle AZNewHandle(unsigned long size);
KZ_EXPORT UHandle DSNewHClr(unsigned long size);
KZ_EXPORT UHandle AZNewHClr(unsigned long size);
KZ_EXPORT UHandle DSNewHandleCache(unsigned long size);
KZ_EXPORT UHandle DSNewHClrCache(unsigned long size);
KZ_EXPORT UHandle DSNewAlignedHandle(unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT UHandle DSNewAlignedHClr(unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT void* DSNewPtr(unsigned long size);
KZ_EXPORT void* AZNewPtr(unsigned long size);
KZ_EXPORT void* DSNewPClr(unsigned long size);
KZ_EXPORT void* AZNewPClr(unsigned long size);

// Resize a handle, keeping what fits of its data. "Clr" zeros what is new. The same size, alignment and offset as
// before change nothing; anything else moves the data. kzErrMemoryFull: out of memory, or too large.
KZ_EXPORT KzErr DSSetHandleSize(void* handle, unsigned long size);
KZ_EXPORT KzErr AZSetHandleSize(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetHSzClr(void* handle, unsigned long size);
KZ_EXPORT KzErr AZSetHSzClr(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetHandleSizeCache(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetHSzClrCache(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetAlignedHandleSize(void* handle, unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT KzErr DSSetAlignedHSzClr(void* handle, unsigned long size, unsigned long alignment, unsigned long offset);

// Resize the handle in the variable, or put a new one there when it holds null: kzErrMemoryFull when that can't be
// made. kzErrArgument: the address is null. The last two make nothing of size 0, and dispose and null a handle that
// shall have it.
KZ_EXPORT KzErr DSSetHandleSizeOrNewHandle(void* variable, unsigned long size);
KZ_EXPORT KzErr DSSetHSzOrNewHClr(void* variable, unsigned long size);
KZ_EXPORT KzErr DSSetHandleSizeOrNewHandleCache(void* variable, unsigned long size);
KZ_EXPORT KzErr DSSetHSzOrNewHClrCache(void* variable, unsigned long size);
KZ_EXPORT KzErr DataSetHandleSizeOrNewHandle(void* variable, unsigned long size);
KZ_EXPORT KzErr DataSetHSzOrNewHClr(void* variable, unsigned long size);

// Free a handle; null gives 0.
KZ_EXPORT KzErr DSDisposeHandle(void* handle);
KZ_EXPORT KzErr AZDisposeHandle(void* handle);
KZ_EXPORT KzErr DSDisposeHandleCache(void* handle);

// Frees the handle in the variable and sets it to null, also when the disposal fails. A null address or a null handle
// gives 0.
KZ_EXPORT KzErr DSDisposeHandleAndNull(void* variable);

// Free a pointer block. kzErrArgument: null. kzErrBadZone: its guards are damaged, and it is not freed.
KZ_EXPORT KzErr DSDisposePtr(void* ptr);
KZ_EXPORT KzErr AZDisposePtr(void* ptr);

// The size of a handle's data; 0 and a report of level 4 for one that is not in use.
KZ_EXPORT unsigned long DSGetHandleSize(const void* handle);
KZ_EXPORT unsigned long AZGetHandleSize(const void* handle);

// 0 for a handle in use, kzErrBadZone for anything else, null too, without a report of level 4. The first always looks
// in the tables of all handles, so any address may be asked about; the second as hard as DSSetHandleChecking says.
// Where guards are checked at each use both read the handle's block, so no other thread may be resizing or disposing
// it.
KZ_EXPORT KzErr DSCheckHandle(const void* handle);
KZ_EXPORT KzErr AZCheckHandle(const void* handle);

// Whether any address is a handle in use. Guards are not looked at.
KZ_EXPORT KzBool IsDSHandle(const void* handle);

// 0, or kzErrBadZone for null and for a block whose guards are checked and damaged.
KZ_EXPORT KzErr DSCheckPtr(const void* ptr);
KZ_EXPORT KzErr AZCheckPtr(const void* ptr);

// The handle whose data stands at `ptr`, or null after a report of level 4. Looks at each handle.
KZ_EXPORT UHandle DSRecoverHandle(const void* ptr);
KZ_EXPORT UHandle AZRecoverHandle(const void* ptr);

// Swaps the data of two handles. kzErrBadZone: one is not in use. The same one twice gives 0, after a report of
// level 4.
KZ_EXPORT KzErr DSSwapHandles(void* a, void* b);

// Copies. They fail as makes and resizes do, with kzErrBadZone for a bad handle and kzErrArgument for the null address
// of a variable or of bytes to copy, and then leave all handles as they were. Sources may stand in the handle that is
// written to.

// Makes the handle in the variable a copy of `src`, by a resize or a new handle. A null `src` disposes what is in the
// variable and nulls it. A variable that holds `src` itself is left alone, with a report of level 2, and gives 0.
KZ_EXPORT KzErr DSCopyHandle(void* variable, const void* src);
KZ_EXPORT KzErr AZCopyHandle(void* variable, const void* src);

// Put a new copy of the handle in the variable into the variable; the old handle stays its owner's.
KZ_EXPORT KzErr DSHandToHand(void* variable);
KZ_EXPORT KzErr AZHandToHand(void* variable);

// Resize or make the handle in the variable to hold a copy of `n` bytes. "PtrToHand" takes no notice of what is in the
// variable. The third disposes and nulls the handle when `n` is 0.
KZ_EXPORT KzErr DSSetHandleFromPtr(void* variable, const void* ptr, unsigned long n);
KZ_EXPORT KzErr AZSetHandleFromPtr(void* variable, const void* ptr, unsigned long n);
KZ_EXPORT KzErr DSSetHandleFromPtrNULLMeansEmpty(void* variable, const void* ptr, unsigned long n);
KZ_EXPORT KzErr DSPtrToHand(const void* ptr, void* variable, unsigned long n);
KZ_EXPORT KzErr AZPtrToHand(const void* ptr, void* variable, unsigned long n);

// Make a handle hold a copy of `n` bytes, or append them, or all of another handle, to it.
KZ_EXPORT KzErr DSPtrToXHand(const void* ptr, void* handle, unsigned long n);
KZ_EXPORT KzErr AZPtrToXHand(const void* ptr, void* handle, unsigned long n);
KZ_EXPORT KzErr DSPtrAndHand(const void* ptr, void* handle, unsigned long n);
KZ_EXPORT KzErr AZPtrAndHand(const void* ptr, void* handle, unsigned long n);
KZ_EXPORT KzErr DSHandAndHand(const void* from, void* to);
KZ_EXPORT KzErr AZHandAndHand(const void* from, void* to);

// As memcmp, memmove (source first) and memset to 0; with `n` of 0 nothing is touched. Moves and clears then call the
// procedure of SetMemoryCheckCallback.
KZ_EXPORT int32 BlockCmp(const void* a, const void* b, unsigned long n);
KZ_EXPORT void MoveBlock(const void* src, void* dest, unsigned long n);
KZ_EXPORT void ClearMem(void* p, unsigned long n);

// Swaps two areas of `n` bytes that do not overlap.
KZ_EXPORT void SwapBlock(void* a, void* b, unsigned long n);

// States of a handle. Nothing moves or is purged on its own, so these only look at the handle: a bad one is reported,
// and gives kzErrBadZone from the first two and 0 from AZHGetState.
KZ_EXPORT KzErr AZHLock(void* handle);
KZ_EXPORT KzErr AZHUnlock(void* handle);
KZ_EXPORT void AZHPurge(void* handle);
KZ_EXPORT void AZHNoPurge(void* handle);
KZ_EXPORT void AZHSetState(void* handle, int32 state);
KZ_EXPORT int32 AZHGetState(void* handle);

// Check the tables of handles, and with the memory debugger on the chain of free ones; damage is reported at level 4
// and gives kzErrCorrupt. With `verbose` the statistics are logged. A check within a check gives 0.
KZ_EXPORT KzErr DSHeapCheck(KzBool verbose);
KZ_EXPORT KzErr AZHeapCheck(KzBool verbose);

// A verbose check with the memory debugger's setting flipped. Returns that setting, as it is again.
KZ_EXPORT KzBool MemCheckHeaps(void);

// A verbose check when the memory debugger is on. Always 0: there is nothing to compact.
KZ_EXPORT KzErr DSCompact(void);

// Sizes in bytes. totAllocSize is the growth of the process's data segment since the service started; the rest is 0.
typedef struct MemStatRec {
    uInt64 totFreeSize;
    uInt64 maxFreeSize;
    uInt64 maxAllocSize;
    uInt64 totAllocSize;
    uInt64 totHandleSize;
    uInt64 totPtrSize;
    uInt64 spare;
    uInt64 totPhysSize;
    uInt32 freeCount;
    uInt32 handleCount;
    uInt32 ptrCount;
    uInt32 blockCount;
} MemStatRec;

// Check as DSHeapCheck does, then fill the record, or those of the outputs that are not null, which are in its order.
// Return the check's result.
KZ_EXPORT KzErr DSMemStats(MemStatRec* stats);
KZ_EXPORT KzErr AZMemStats(MemStatRec* stats);
KZ_EXPORT KzErr DSMemStats2(uInt64* totFreeSize, uInt64* maxFreeSize, uInt64* maxAllocSize, uInt64* totAllocSize,
                            uInt64* totHandleSize, uInt64* totPtrSize, uInt64* spare, uInt64* totPhysSize,
                            uInt32* freeCount, uInt32* handleCount, uInt32* ptrCount, uInt32* blockCount);

// Zeros 24 bytes at `stats`. Always 0.
KZ_EXPORT KzErr DSMemStatsSlow(void* stats);

// Nothing limits memory but the system: 0.
KZ_EXPORT unsigned long DSMaxMem(void);
KZ_EXPORT unsigned long AZMaxMem(void);

// Installs the memory-full procedure and returns the one before; null installs one that does nothing, which is also
// the default and what a stop of the memory service leaves.
KZ_EXPORT MemFullProc SetMemFullProc(MemFullProc proc);
KZ_EXPORT void CallSetMemFullProc(unsigned long size);

// Install the procedure that is told of handles, or is called after each MoveBlock and ClearMem; null for none, the
// default. Return the one before.
KZ_EXPORT MemEventTraceProc SetMemEventTraceProc(MemEventTraceProc proc);
KZ_EXPORT MemoryCheckCallback SetMemoryCheckCallback(MemoryCheckCallback proc);

// Stress handles: moves of data are not counted. Off at first.
KZ_EXPORT void SetStressHandles(KzBool flag);
KZ_EXPORT KzBool GetStressHandles(void);

// The memory debugger: makes of handles check the chain of free ones first, makes of pointers the whole heap, which is
// slow. Off at each start of the memory service. The second logs the change and returns the new setting.
KZ_EXPORT void SetMemoryDebugger(KzBool flag);
KZ_EXPORT KzBool ToggleMemoryDebugging(void);

// How hard the calls look at a handle: 2, always in the tables of all handles; 1, so for all but size queries and
// disposals; 0, only at the master pointer. More than 2 means 2. Returns the level set. At load the environment
// variable ZVHandleCheck sets it: "all" or "2", "resize" or "1", "off", "none", "0" or an empty text; 2 without it.
KZ_EXPORT uInt32 DSSetHandleChecking(uInt32 level);

// Whether the memory service runs.
KZ_EXPORT KzBool GetMemoryManagerInitialized(void);

// Reads the limits of the cache of freed blocks from the configuration, if both the memory service and a configuration
// run: SelectiveDeallocation.BufferCache.MinBufferSize, .MaxSize, .CleanUpThreshold (I32) and .ResizeFactor (F32).
// What is absent stays as it is: blocks from 16,384 bytes, five of them, 31,457,280 bytes in all, 1.5. A negative
// number counts as 0.
KZ_EXPORT void ReadConfigTokensForBufferCache(void);

// Four 32-bit counts in two words, in the order of memory: handles made, pointers made (the library's own tables too),
// resizes that found a good handle and something to do, resizes that moved the data. They wrap, start anew with the
// service and read 0 without it; a count may be lost between threads. Null does nothing.
KZ_EXPORT void DSReadCounters(uInt64* counters);
KZ_EXPORT void DSSetCounters(const uInt64* counters);

// Settings that are kept and have no effect.
KZ_EXPORT void SetCheckHighWaterMarks(KzBool flag);
KZ_EXPORT void SetLogMemMutexAccessProc(MemMutexAccessProc proc);

// Nothing is tracked, pooled or merged here: these do nothing.
KZ_EXPORT void MemResetTracker(void);
KZ_EXPORT void MemDumpTracker(void);
KZ_EXPORT void StartScopedAllocationTracking(void);
KZ_EXPORT void StopScopedAllocationTracking(void);
KZ_EXPORT void FreeSmartHeapPool(void);
KZ_EXPORT void SetMergeAdjVirtualAllocs(KzBool flag);

KZ_EXTERN_C_END

#ifdef __cplusplus

// What does not compile: a handle, or another address, where that of a handle's variable is meant.
template <kz::NotAHandleType T>
KzErr DSSetHandleSizeOrNewHandle(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DSSetHSzOrNewHClr(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DSSetHandleSizeOrNewHandleCache(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DSSetHSzOrNewHClrCache(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DataSetHandleSizeOrNewHandle(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DataSetHSzOrNewHClr(T* variable, unsigned long size) = delete;
template <kz::NotAHandleType T>
KzErr DSDisposeHandleAndNull(T* variable) = delete;
template <kz::NotAHandleType T>
KzErr DSCopyHandle(T* variable, const void* src) = delete;
template <kz::NotAHandleType T>
KzErr AZCopyHandle(T* variable, const void* src) = delete;
template <kz::NotAHandleType T>
KzErr DSHandToHand(T* variable) = delete;
template <kz::NotAHandleType T>
KzErr AZHandToHand(T* variable) = delete;
template <kz::NotAHandleType T>
KzErr DSSetHandleFromPtr(T* variable, const void* ptr, unsigned long n) = delete;
template <kz::NotAHandleType T>
KzErr AZSetHandleFromPtr(T* variable, const void* ptr, unsigned long n) = delete;
template <kz::NotAHandleType T>
KzErr DSSetHandleFromPtrNULLMeansEmpty(T* variable, const void* ptr, unsigned long n) = delete;
template <kz::NotAHandleType T>
KzErr DSPtrToHand(const void* ptr, T* variable, unsigned long n) = delete;
template <kz::NotAHandleType T>
KzErr AZPtrToHand(const void* ptr, T* variable, unsigned long n) = delete;

// Starts and stops the handles. The stop logs and disposes each handle that is left.
class MemoryManager_Service : public PlainService_T<MemoryManager_Service> {
    friend KZ_GammaPolicy<MemoryManager_Service>;

    MemoryManager_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;
};

// The service, made on the first call.
KZ_EXPORT MemoryManager_Service* MemoryManagerService();
#endif

#endif
