// What the library's own modules ask of the guards around each block that they use, and the test of one byte that those
// questions cost while guards are off. GuardBytes.cpp defines what is not inline. Any thread, as in GuardBytes.h.
#ifndef KZCORE_GUARDCHECKS_H
#define KZCORE_GUARDCHECKS_H

#include <atomic>

#include "KZTypes.h"

namespace kz {

// The bytes of a handle's header, which begins with the size of the data. The guard behind the data is found by that
// size, so this module needs to know where it stands.
inline constexpr unsigned long kHandleHeaderSize = 16;

// The words of the three families, and what is known of them. GuardBytes.h tells their bits. Relaxed everywhere because
// they are settings, which order nothing.
extern std::atomic<uInt32> gGuardBytes_Handle;
extern std::atomic<uInt32> gGuardBytes_Ptr;
extern std::atomic<uInt32> gGuardBytes_NewDelete;
extern std::atomic<bool> gGuardBytes_Initialized;
extern std::atomic<bool> gGuardBytes_InitializedAndDisabled;

// Whether guards play no part, as far as handles and pointers go. False until the environment is read, so that the
// first look at a word is made, which reads it.
inline bool GuardsDisabled()
{
    return gGuardBytes_InitializedAndDisabled.load(std::memory_order_relaxed);
}

// The same sizes as the two inline functions below, after a look at the environment where nobody has had one.
unsigned long HandleGuardSizeSet();
unsigned long PtrGuardsSizeSet();

// The bytes of each of the two guards of a handle.
inline unsigned long HandleGuardSize()
{
    return GuardsDisabled() ? 0 : HandleGuardSizeSet();
}

// The bytes of all guards of a pointer block, with the size that is stored before the first.
inline unsigned long PtrGuardsSize()
{
    return GuardsDisabled() ? 0 : PtrGuardsSizeSet();
}

// Whether the guards are sound where they are checked at each use; true where they are not. Tells of a fault. They take
// the address of the data, a handle's too, because the master may belong to another handle by the time of the check.
bool CheckHandleDataGuards(const void* data);
bool CheckPtrDataGuards(const void* ptr);

// The checks of a use, for a block that has passed all other ones.
inline bool HandleGuardsPass(const void* data)
{
    return GuardsDisabled() || CheckHandleDataGuards(data);
}

inline bool PtrGuardsPass(const void* ptr)
{
    return GuardsDisabled() || CheckPtrDataGuards(ptr);
}

// Whether a guarded block is sound, without telling anybody.
bool GuardsAreSound(const void* ptr, bool isHandle);

}  // namespace kz

#endif
