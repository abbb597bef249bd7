// Three kinds of buffer hold bytes: a block, a capacity, how much of it is written, and an error that never goes once
// it is there. What is written never exceeds the capacity, and from the first error on both are equal. So the writers
// that look into the buffer (BufferAccess.h) find no room left, with the one comparison that they make anyway, and come
// to GetDataPointer, which answers the error.
//
// A buffer that owns a handle grows it by what is needed and a fixed margin, never by doubling. The margin is what
// keeps a writer of small values from one resize each; the final size is set when the handle is asked for.
//
// The count of an LStrOutputBuf's string is set only when the handle is asked for. Until then it tells nothing, as a
// resize copies the old block whatever its count says.
#include "OutputBuf.h"

#include <algorithm>
#include <climits>
#include <new>

#include "HandleCalls.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/OutputBuf";

// What a handle gets beyond what it needs, at each growth.
constexpr unsigned long kMargin = 4096;

constexpr unsigned long kCountSize = sizeof(int32);
constexpr unsigned long kGreatestText = INT_MAX;  // what a count can tell

// Makes room for `size` more bytes behind the first `written`, in a handle whose data starts with `head` bytes that are
// not counted in either. On an error, where the sizes overflow or the handle can't grow, nothing has changed.
KzErr Grow(void* handle, unsigned long head, unsigned long written, unsigned long size, unsigned long* capacity)
{
    KZ_ASSERT(written <= *capacity);
    if (size <= *capacity - written) {
        return kzErrNone;
    }
    // A sum that wrapped would give a block smaller than what is then written to it.
    if (size > ULONG_MAX - written - head - kMargin) {
        return kzErrMemoryFull;
    }
    const unsigned long grown = written + size + kMargin;
    const KzErr err = DSSetHandleSize(handle, grown + head);
    if (err == kzErrNone) {
        *capacity = grown;
    }
    return err;
}

}  // namespace

bool OutputBuf::IsOnlyDeterminingSize() const
{
    return false;
}

StaticOutputBuf::StaticOutputBuf(void* data, unsigned long size)
    : mData(static_cast<unsigned char*>(data)), mCapacity(data == nullptr ? 0 : size)
{}

StaticOutputBuf::~StaticOutputBuf()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x41D7A59C) << "StaticOutputBuf finished with " << mError << " error";
    }
}

void* StaticOutputBuf::GetDataPointer(unsigned long size, KzErr& err)
{
    KZ_ASSERT(mWritten <= mCapacity);
    // Compared with what is left, because the position and a size from outside may add up to more than a number holds.
    if (mError == kzErrNone && size > mCapacity - mWritten) {
        mError = kzErrCorrupt;
        mCapacity = mWritten;
    }
    err = mError;
    if (mError != kzErrNone || size == 0) {
        return nullptr;
    }
    void* const start = mData + mWritten;
    mWritten += size;
    return start;
}

unsigned long StaticOutputBuf::GetBytesWritten() const
{
    return mWritten;
}

HandleOutputBuf::HandleOutputBuf(unsigned long initialSize)
    : mHandle(DSNewHandle(initialSize)), mCapacity(mHandle == nullptr ? 0 : initialSize)
{
    if (mHandle == nullptr) {
        mError = kz::FailedMake();
    }
}

HandleOutputBuf::~HandleOutputBuf()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x9A2E6F07) << "HandleOutputBuf finished with " << mError << " error";
    }
    DSDisposeHandle(mHandle);
}

void* HandleOutputBuf::GetDataPointer(unsigned long size, KzErr& err)
{
    // A released handle is an error of its own, found by the first access that needs room, so that writing nothing to a
    // buffer whose handle was taken is no fault.
    if (mError == kzErrNone && size != 0) {
        mError = mHandle == nullptr ? kzErrArgument : Grow(mHandle, 0, mWritten, size, &mCapacity);
        mCapacity = mError == kzErrNone ? mCapacity : mWritten;
    }
    err = mError;
    if (mError != kzErrNone || size == 0) {
        return nullptr;
    }
    void* const start = *mHandle + mWritten;
    mWritten += size;
    return start;
}

unsigned long HandleOutputBuf::GetBytesWritten() const
{
    return mWritten;
}

UHandle HandleOutputBuf::GetHandle(bool release)
{
    if (mError == kzErrNone && mHandle == nullptr) {
        mError = kzErrArgument;
    }
    if (mError != kzErrNone) {
        return nullptr;
    }
    mError = DSSetHandleSize(mHandle, mWritten);
    mCapacity = mWritten;
    // The handle is given although the cut failed: what was written stands in it, with some room behind. The error
    // shows at the next call.
    const UHandle handle = mHandle;
    if (release) {
        mHandle = nullptr;
    }
    return handle;
}

// A capacity that stopped at what a count can tell keeps writers that look into the buffer from longer texts.
void LStrOutputBuf::SetCapacity(unsigned long room)
{
    mCapacity = std::min(room, kGreatestText);
}

void LStrOutputBuf::Make(unsigned long room)
{
    const unsigned long size = room + kCountSize;  // wraps for the largest rooms
    if (size < room) {
        mError = kzErrMemoryFull;
        return;
    }
    mHandle = reinterpret_cast<LStr**>(DSNewHandle(size));
    if (mHandle == nullptr) {
        mError = kz::FailedMake();
    } else {
        SetCapacity(room);
    }
}

LStrOutputBuf::LStrOutputBuf(unsigned long initialSize)
{
    Make(initialSize);
}

// The three cases differ in the block only; whatever the count of a given string says, it is written over.
LStrOutputBuf::LStrOutputBuf(LStr** handle, unsigned long initialSize) : mHandle(handle)
{
    if (handle == nullptr) {
        Make(initialSize == 0 ? kMargin : initialSize);
    } else if (initialSize == 0) {
        const unsigned long size = DSGetHandleSize(handle);
        SetCapacity(size < kCountSize ? 0 : size - kCountSize);
    } else {
        const unsigned long size = initialSize + kCountSize;
        mError = size < initialSize ? kzErrMemoryFull : DSSetHandleSize(handle, size);
        SetCapacity(mError == kzErrNone ? initialSize : 0);
    }
}

LStrOutputBuf::~LStrOutputBuf()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0xE5086BD3) << "LStrOutputBuf finished with " << mError << " error";
    }
    DSDisposeHandle(mHandle);
}

void* LStrOutputBuf::GetDataPointer(unsigned long size, KzErr& err)
{
    KZ_ASSERT(mWritten <= mCapacity && mCapacity <= kGreatestText);
    // The text's limit is asked first: Grow knows only that of sizes, and would make a block whose count can't be told.
    if (mError == kzErrNone && size != 0) {
        mError = mHandle == nullptr                ? kzErrArgument
                 : size > kGreatestText - mWritten ? kzErrMemoryFull
                                                   : Grow(mHandle, kCountSize, mWritten, size, &mCapacity);
        SetCapacity(mError == kzErrNone ? mCapacity : mWritten);
    }
    err = mError;
    if (mError != kzErrNone || size == 0) {
        return nullptr;
    }
    void* const start = reinterpret_cast<unsigned char*>(*mHandle) + kCountSize + mWritten;
    mWritten += size;
    return start;
}

unsigned long LStrOutputBuf::GetBytesWritten() const
{
    return mWritten;
}

LStr** LStrOutputBuf::GetHandle(bool release)
{
    if (mError == kzErrNone && mHandle == nullptr) {
        mError = kzErrArgument;
    }
    if (mError != kzErrNone) {
        return nullptr;
    }
    mError = DSSetHandleSize(mHandle, mWritten + kCountSize);
    mCapacity = mWritten;
    // A handle that the caller gave may have been smaller than a count, and the resize that mends that may have failed.
    if (DSGetHandleSize(mHandle) >= kCountSize) {
        (*mHandle)->cnt = static_cast<int32>(mWritten);
    }
    LStr** const handle = mHandle;
    if (release) {
        mHandle = nullptr;
    }
    return handle;
}

void* PreflightOutputBuf::GetDataPointer(unsigned long size, KzErr& err)
{
    err = kzErrNone;
    mWritten += size;  // null is no failure here, so callers ask for the error before they store
    return nullptr;
}

unsigned long PreflightOutputBuf::GetBytesWritten() const
{
    return mWritten;
}

bool PreflightOutputBuf::IsOnlyDeterminingSize() const
{
    return true;
}

OutputBuf* CreateStaticOutputBuf(void* data, unsigned long size)
{
    return new (std::nothrow) StaticOutputBuf(data, size);
}

OutputBuf* CreatePreflightOutputBuf()
{
    return new (std::nothrow) PreflightOutputBuf;
}

OutputBuf* CreateHandleOutputBuf(unsigned long initialSize)
{
    return new (std::nothrow) HandleOutputBuf(initialSize);
}

OutputBuf* CreateLStrOutputBuf(unsigned long initialSize)
{
    return new (std::nothrow) LStrOutputBuf(initialSize);
}
