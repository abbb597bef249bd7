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
// Failures. A make gives null after the memory-full procedure has run. Calls on a handle give kzErrBadZone for one
// that is not in use, after a report of level 4; a failed resize or disposal is then reported at level 2 with its code
// and the call's name. How hard a handle is looked at is set by DSSetHandleChecking. A failed resize leaves the handle
// and its data as they were.
//
// Threads. Any thread, at any time, but one at a time for each handle or block.
#ifndef KZCORE_MEMORYMANAGER_H
#define KZCORE_MEMORYMANAGER_H

#include "KZTypes.h"
#ifdef __cplusplus
#include "ServiceObject.h"
#endif

KZ_EXTERN_C_BEGIN

// Make a handle or a pointer block, which may be of size 0. "Clr" and "PClr" zero it. Pointers are aligned as those of
// malloc.
KZ_EXPORT UHandle DSNewHandle(unsigned long size);
KZ_EXPORT UHandle DSNewHClr(unsigned long size);
KZ_EXPORT UHandle DSNewAlignedHandle(unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT UHandle DSNewAlignedHClr(unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT void* DSNewPtr(unsigned long size);
KZ_EXPORT void* DSNewPClr(unsigned long size);

// Resize a handle, keeping what fits of its data. "Clr" zeros what is new. The same size, alignment and offset as
// before change nothing; anything else moves the data. kzErrMemoryFull: out of memory, or too large.
KZ_EXPORT KzErr DSSetHandleSize(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetHSzClr(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetAlignedHandleSize(void* handle, unsigned long size, unsigned long alignment, unsigned long offset);
KZ_EXPORT KzErr DSSetAlignedHSzClr(void* handle, unsigned long size, unsigned long alignment, unsigned long offset);

// Resize the handle in the variable at `handle`, or put a new one there when it holds null: kzErrMemoryFull when that
// can't be made. kzErrArgument: the address is null.
KZ_EXPORT KzErr DSSetHandleSizeOrNewHandle(void* handle, unsigned long size);
KZ_EXPORT KzErr DSSetHSzOrNewHClr(void* handle, unsigned long size);

// Frees a handle; null gives 0.
KZ_EXPORT KzErr DSDisposeHandle(void* handle);

// Frees the handle in the variable at `handle` and sets it to null, also when the disposal fails. A null address or a
// null handle gives 0.
KZ_EXPORT KzErr DSDisposeHandleAndNull(void* handle);

// Frees a pointer block. kzErrArgument: null.
KZ_EXPORT KzErr DSDisposePtr(void* ptr);

// The size of a handle's data; 0 and a report of level 4 for one that is not in use.
KZ_EXPORT unsigned long DSGetHandleSize(const void* handle);

// 0 for a handle in use, kzErrBadZone for anything else, null too, without a report. The first always looks in the
// tables of all handles, so any address may be asked about; the second as hard as DSSetHandleChecking says.
KZ_EXPORT KzErr DSCheckHandle(const void* handle);
KZ_EXPORT KzErr AZCheckHandle(const void* handle);

// Whether any address is a handle in use.
KZ_EXPORT KzBool IsDSHandle(const void* handle);

// 0, or kzErrBadZone for null.
KZ_EXPORT KzErr DSCheckPtr(const void* ptr);

// Makes the handle in the variable at `dest` a copy of `src`, by a resize or a new handle, and fails as those do. A
// null `src` disposes what is in the variable and nulls it. A variable that holds `src` itself is left alone, with a
// report of level 2, and gives 0. kzErrArgument: the address is null.
KZ_EXPORT KzErr DSCopyHandle(void* dest, const void* src);

// As memcmp, memmove (source first) and memset to 0; with `n` of 0 nothing is touched.
KZ_EXPORT int32 BlockCmp(const void* a, const void* b, unsigned long n);
KZ_EXPORT void MoveBlock(const void* src, void* dest, unsigned long n);
KZ_EXPORT void ClearMem(void* p, unsigned long n);

// A procedure that is called with the size that could not be had, on the thread that asked, at each failed allocation.
// It may call any function of this library.
typedef void (*MemFullProc)(unsigned long size);

// Installs the memory-full procedure and returns the one before; null installs one that does nothing, which is also
// the default and what a stop of the memory service leaves.
KZ_EXPORT MemFullProc SetMemFullProc(MemFullProc proc);
KZ_EXPORT void CallSetMemFullProc(unsigned long size);

// How hard the calls look at a handle: 2, always in the tables of all handles; 1, so for all but size queries and
// disposals; 0, only at the master pointer. More than 2 means 2. Returns the level set. At load the environment
// variable ZVHandleCheck sets it: "all" or "2", "resize" or "1", "off", "none", "0" or an empty text; 2 without it.
KZ_EXPORT uInt32 DSSetHandleChecking(uInt32 level);

// Whether the memory service runs.
KZ_EXPORT KzBool GetMemoryManagerInitialized(void);

// Four 32-bit counts in two words, in the order of memory: handles made, pointers made (the library's own tables too),
// resizes that found a good handle and something to do, resizes that moved the data. They wrap, start anew with the
// service and read 0 without it; a count may be lost between threads. Null does nothing.
KZ_EXPORT void DSReadCounters(uInt64* counters);
KZ_EXPORT void DSSetCounters(const uInt64* counters);

KZ_EXTERN_C_END

#ifdef __cplusplus

// Starts and stops the handles. The stop logs and disposes each handle that is left.
class MemoryManager_Service : public RefcountedServiceObject_T<MemoryManager_Service> {
public:
    const char* GetName() const override;
    void GetDependencies(IServiceDependencyList* list) const override;

protected:
    KzErr _Init() override;
    KzErr _Uninit() override;
};

// The service, made on the first call.
KZ_EXPORT MemoryManager_Service* MemoryManagerService();

namespace kz {

// The handles in use, and the pointer blocks not yet disposed without the zone's own, at this moment.
uInt32 LiveHandleCount();
int64 LivePointerCount();

// The bytes that the process's data segment has grown by since the service started; 0 without it.
uInt64 HeapGrowth();

// What is wrong with the handle tables or a handle's header, or null when all is sound. While no other thread makes,
// resizes or disposes a handle.
const char* MemoryFault();

}  // namespace kz
#endif

#endif
