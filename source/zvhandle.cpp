#include "zvhandle.h"

#include <climits>

#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/zvhandle";

}  // namespace

ZVHandle::~ZVHandle()
{
    Resize(0);
}

void ZVHandle::AttachHandle(UHandle handle)
{
    if (mHandle != nullptr) {
        KZ_REPORT(kDbgFatal, 0xF3068D5B) << "Can't attach to non null ZVHandle.";
    }
    mHandle = handle;
}

UHandle ZVHandle::DetachHandle()
{
    UHandle handle = mHandle;
    mHandle = nullptr;
    return handle;
}

KzErr ZVHandle::Resize(unsigned long size)
{
    if (size == 0) {
        if (UHandle old = DetachHandle(); old != nullptr) {
            DSDisposeHandle(old);
        }
        return kzErrNone;
    }
    if (mHandle != nullptr) {
        return DSSetHandleSize(mHandle, size);
    }
    mHandle = DSNewHandle(size);
    return mHandle != nullptr ? kzErrNone : kzErrMemoryFull;
}

KzErr ZVHandle::ResizeField(unsigned char** field, unsigned long oldSize, unsigned long newSize)
{
    if (oldSize == newSize) {
        return kzErrNone;
    }
    if (mHandle == nullptr || field == nullptr || *field < *mHandle) {
        return kzErrArgument;
    }
    const unsigned long blockSize = DSGetHandleSize(mHandle);
    const auto offset = static_cast<unsigned long>(*field - *mHandle);
    if (offset > blockSize || oldSize > blockSize - offset) {
        return kzErrArgument;
    }
    if (newSize > ULONG_MAX - (blockSize - oldSize)) {
        return kzErrMemoryFull;
    }
    const unsigned long tailSize = blockSize - offset - oldSize;
    const unsigned long newBlockSize = blockSize - oldSize + newSize;
    const auto moveTail = [&] {
        if (tailSize != 0) {
            MoveBlock(*mHandle + offset + oldSize, *mHandle + offset + newSize, tailSize);
        }
    };
    // The tail is moved while the block has room for both of its places.
    if (newSize < oldSize) {
        moveTail();
    }
    const KzErr err = DSSetHandleSize(mHandle, newBlockSize);
    if (newSize > oldSize && err == kzErrNone) {
        moveTail();
    }
    *field = *mHandle + offset;
    return err;
}
