// ZVHandle, the owner of one handle.
#ifndef KZCORE_ZVHANDLE_H
#define KZCORE_ZVHANDLE_H

#include "KZTypes.h"
#include "KzErr.h"

// Disposes its handle when it dies. One thread at a time; needs the memory service unless empty.
class KZ_EXPORT ZVHandle {
public:
    ZVHandle() = default;
    // Takes over `handle`, which may be null.
    explicit ZVHandle(UHandle handle) : mHandle(handle) {}
    ~ZVHandle();
    ZVHandle(const ZVHandle&) = delete;
    ZVHandle& operator=(const ZVHandle&) = delete;

    // The handle, still owned here; null when empty.
    UHandle GetHandle() const { return mHandle; }

    // Takes over `handle`. Doing so while another is held is a defect, reported at level 4; the old handle is then
    // nobody's.
    void AttachHandle(UHandle handle);

    // Gives the handle to the caller and leaves the wrapper empty.
    UHandle DetachHandle();

    // Makes the block `size` bytes, which moves it, or makes a new one when empty; 0 disposes it. kzErrMemoryFull, or
    // the result of DSSetHandleSize, with the old block kept.
    KzErr Resize(unsigned long size);

    // Changes the size of a field inside the block and moves what follows it. `field` is the address of a pointer to
    // the field, which is set to the field's new place in all cases. kzErrArgument if the field does not lie in the
    // block, kzErrMemoryFull for a size that can't be, or the result of DSSetHandleSize; the block is then as before.
    KzErr ResizeField(unsigned char** field, unsigned long oldSize, unsigned long newSize);

private:
    UHandle mHandle = nullptr;
};

#endif
