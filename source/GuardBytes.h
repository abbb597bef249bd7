// Guard bytes: 8 known bytes just before and just behind a block's data, which show writes past its ends and blocks
// that come from a library of another version. Usable from C11 and C++20.
//
// A guard is "ZOR", the two characters of the version, "MEM". Handles, plain pointers and TrackedMalloc blocks are
// guarded each on its own, by a word: bit 0 makes room for guards, bit 1 writes them, bit 2 checks them at each use.
// The environment sets the words once, at load or at the first use: ZVGuardBytes_Handle, ZVGuardBytes_Ptr and
// ZVGuardBytes_NewDelete, or ZVGuardBytes for those that are absent; "off" is 0, "alloc" 3, "check" 7. Without it
// guards are off and cost the test of one byte.
//
// The words are read without a lock. Any thread may call, on blocks that no other thread resizes or frees meanwhile.
#ifndef KZCORE_GUARDBYTES_H
#define KZCORE_GUARDBYTES_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

typedef enum GuardByteFailureTypes {
    kGuardUnderrun = 0,
    kGuardOverrun = 1,
    kGuardVersionMismatch = 2
} GuardByteFailureTypes;

// Is told of each failed check: the data's address, what is wrong, and for a version mismatch the foreign version's two
// characters as text, else null.
typedef void (*GuardByteCheckFailedProc)(const void* ptr, int32 type, const char* version);

// Reads the environment, the first time that it is called.
KZ_EXPORT void InitializeGuardByteSettingsCore(void);

// Turns checking at each use on or off in the families that write guards. Whether all three do.
KZ_EXPORT KzBool ConfigGuardBytes(int32 on);

// Whether handles are checked at each use.
KZ_EXPORT KzBool ShouldCheckHandleGuardBytes(void);

// Installs what is told of failed checks and returns the one before; null for none. The default reports at level 3.
KZ_EXPORT GuardByteCheckFailedProc SetGuardByteCheckFailedProc(GuardByteCheckFailedProc proc);
KZ_EXPORT void StandardGuardByteCheckFailedProc(const void* ptr, int32 type, const char* version);

// Tells the installed procedure; a report of level 3 when there is none.
KZ_EXPORT void ReportGuardByteCheckFailed(const void* ptr, int32 type, const char* version);

// Looks at both guards of a block by the address of its data, a handle's or not, and tells of the first fault. False
// for a fault and, with a report of level 3, for null. The block must have guards.
KZ_EXPORT KzBool CheckGuards(const void* ptr, KzBool isHandle);

// Writes the guards around `size` bytes at `data`.
KZ_EXPORT void InitGuards(void* data, unsigned long size);

// Stores the size at the start of a block and the guards around what follows; returns the address of the data, 16
// bytes into the block.
KZ_EXPORT void* InitGuardsAndSize(void* block, unsigned long size);

// The bytes that guards take: each of the two of a handle; all of a pointer or TrackedMalloc block, its size included.
KZ_EXPORT unsigned long GetOneHandleGuardSize(void);
KZ_EXPORT unsigned long GetAllPtrGuardsSize(void);
KZ_EXPORT unsigned long GetAllNewDeleteGuardsSize(void);

// The address of the data in a block with room for `size` bytes and the guards, which are written if they are on, or
// null for no block; and back from the data to the block.
KZ_EXPORT void* InitPtrGuards(void* block, unsigned long size);
KZ_EXPORT void* InitNewDeleteGuards(void* block, unsigned long size);
KZ_EXPORT void* GetOrigPtrFromGuardedPtr(void* ptr);
KZ_EXPORT void* GetOrigNewDeletePtrFromGuardedPtr(void* ptr);

// Writes the guards around a handle's data, by the size in its header, if they are on.
KZ_EXPORT void InitHandleGuards(void* data);

// Whether the guards are sound where guards are written; true where they are not. A null handle is reported at level 3
// and false.
KZ_EXPORT KzBool DSCheckHandleGuardBytes(const void* handle);
KZ_EXPORT KzBool DSCheckPtrGuardBytes(const void* ptr);

// The same where guards are checked at each use; true where they are not.
KZ_EXPORT KzBool CheckHandleGuards(const void* handle);
KZ_EXPORT KzBool CheckPtrGuards(const void* ptr);
KZ_EXPORT KzBool CheckNewDeleteGuards(const void* ptr);

KZ_EXTERN_C_END

#endif
