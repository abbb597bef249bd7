// An owner of one handle, or of none. A null handle is an empty block here, so Resize serves as the only way to make,
// to change and to dispose.
//
// ResizeField promises that a failure leaves the block as it was. A handle's resize is the only step of it that can
// fail, so a field that grows is moved after it, and one that shrinks is moved before it in a way that can be undone.
#include "zvhandle.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "HandleCalls.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "MemorySource.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/zvhandle";

// The tail, which is the block's end from `place` on, moves up by `growth`. The resize may move the block, so addresses
// are taken from the handle behind it.
KzErr GrowField(UHandle handle, unsigned long place, unsigned long growth, unsigned long tailSize)
{
    KZ_ASSERT(handle != nullptr && growth != 0);
    const KzErr err = DSSetHandleSize(handle, place + growth + tailSize);
    if (err == kzErrNone && tailSize != 0) {
        MoveBlock(*handle + place, *handle + place + growth, tailSize);
    }
    return err;
}

// The tail, which ends the block, moves down to `place`, over the `loss` bytes that go. The bytes that the tail
// overwrites are kept aside until the block is resized, so that a failure can undo the move. Without memory for them
// the lost bytes and the tail change places instead, which is slower and needs none. So nothing but the resize can
// fail.
KzErr ShrinkField(UHandle handle, unsigned long place, unsigned long loss, unsigned long tailSize)
{
    KZ_ASSERT(handle != nullptr && loss != 0);
    if (tailSize == 0) {
        return DSSetHandleSize(handle, place);
    }
    const unsigned long overwritten = std::min(loss, tailSize);
    const std::unique_ptr<void, decltype(&std::free)> aside(kz::AllocateBytes(overwritten), &std::free);
    unsigned char* field = *handle + place;
    if (aside != nullptr) {
        std::memcpy(aside.get(), field, overwritten);
        MoveBlock(field + loss, field, tailSize);
    } else {
        std::rotate(field, field + loss, field + loss + tailSize);
    }
    const KzErr err = DSSetHandleSize(handle, place + tailSize);
    if (err == kzErrNone) {
        return err;
    }
    field = *handle + place;
    if (aside != nullptr) {
        MoveBlock(field, field + loss, tailSize);
        std::memcpy(field, aside.get(), overwritten);
    } else {
        std::rotate(field, field + tailSize, field + tailSize + loss);
    }
    return err;
}

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
    // The wrapper is empty before the handle goes, because a dispose may call the host back.
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
    return mHandle != nullptr ? kzErrNone : kz::FailedMake();
}

KzErr ZVHandle::ResizeField(unsigned char** field, unsigned long oldSize, unsigned long newSize)
{
    if (oldSize == newSize) {
        return kzErrNone;
    }
    // The field is judged by numbers that can't wrap, because both sizes are the caller's: a field before the block,
    // one that ends behind it, and a block that no unsigned long can count would each let a move reach foreign memory.
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
    // A failed resize may have moved the block as well, so the field's place is told in all cases.
    const KzErr err = newSize > oldSize ? GrowField(mHandle, offset + oldSize, newSize - oldSize, tailSize)
                                        : ShrinkField(mHandle, offset + newSize, oldSize - newSize, tailSize);
    *field = *mHandle + offset;
    return err;
}
