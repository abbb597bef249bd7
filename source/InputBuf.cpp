// Both kinds of buffer are a run of bytes, a position in it, and an error that never goes once it is there. Take holds
// the rules of an access, so that the two can't differ.
//
// In a MemInputBuf the position never passes the size, and from the first error on the size is the position. So the
// readers that look into the buffer (BufferAccess.h) find nothing left, with the one comparison that they make anyway,
// and come to GetDataPointer, which answers the error.
//
// The text of an LStrInputBuf can change length between two accesses, because the caller who gave the
// handle may have kept a copy. Each access asks for the length anew, and a position behind the end means that nothing
// is left.
#include "InputBuf.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "HandleText.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/InputBuf";

// One access to `dataSize` bytes at `data`, of which those up to `position` have been read. `latched` is the buffer's
// own error, which an access without `gotSize` sets where bytes are missing; nothing moves then, so that the caller of
// an optional part can't take half of it for the whole.
const void* Take(const unsigned char* data, unsigned long dataSize, unsigned long& position, KzErr& latched,
                 unsigned long size, KzErr& err, unsigned long* gotSize, bool peek)
{
    KZ_ASSERT(data != nullptr || dataSize == 0);
    err = latched;
    if (gotSize != nullptr) {
        *gotSize = 0;
    }
    if (latched != kzErrNone || size == 0) {
        return nullptr;
    }
    // Compared with what is left rather than added to the position, because a size from a file may make the sum wrap.
    const unsigned long left = position < dataSize ? dataSize - position : 0;
    if (size > left && gotSize == nullptr) {
        err = latched = kzErrCorrupt;
        return nullptr;
    }
    const unsigned long taken = std::min(size, left);
    if (taken == 0) {
        return nullptr;
    }
    const unsigned char* start = data + position;
    if (!peek) {
        position += taken;
    }
    if (gotSize != nullptr) {
        *gotSize = taken;
    }
    return start;
}

}  // namespace

MemInputBuf::MemInputBuf(const void* data, unsigned long size)
    : mData(size == 0 ? nullptr : static_cast<const unsigned char*>(data)), mSize(data == nullptr ? 0 : size)
{}

MemInputBuf::~MemInputBuf()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x7B19F2A6) << "MemInputBuf finished with " << mError << " error";
    }
}

const void* MemInputBuf::GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek)
{
    const void* const start = Take(mData, mSize, mPosition, mError, size, err, gotSize, peek != 0);
    if (mError != kzErrNone) {
        mSize = mPosition;  // see the top of this file
    }
    KZ_ASSERT(mPosition <= mSize);
    return start;
}

unsigned long MemInputBuf::GetBytesRead() const
{
    return mPosition;
}

unsigned long MemInputBuf::GetSize() const
{
    return mError == kzErrNone ? mSize : 0;
}

LStrInputBuf::LStrInputBuf(LStr**& handle) : mHandle(handle), mError(handle == nullptr ? kzErrArgument : kzErrNone)
{
    handle = nullptr;
}

LStrInputBuf::~LStrInputBuf()
{
    if (mError != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0xD8450E3F) << "LStrInputBuf finished with " << mError << " error";
    }
    if (mHandle != nullptr) {
        DSDisposeHandle(mHandle);
    }
}

// The count of the string, as far as its block holds it: a count that lies would lead readers out of the block.
unsigned long LStrInputBuf::TextSize() const
{
    return static_cast<unsigned long>(kz::HeldCount(mHandle, offsetof(LStr, str), 1));
}

const void* LStrInputBuf::GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek)
{
    const unsigned long textSize = TextSize();
    const unsigned char* text = textSize == 0 ? nullptr : (*mHandle)->str;
    return Take(text, textSize, mPosition, mError, size, err, gotSize, peek != 0);
}

unsigned long LStrInputBuf::GetBytesRead() const
{
    return mPosition;
}

unsigned long LStrInputBuf::GetSize() const
{
    return mError == kzErrNone ? TextSize() : 0;
}

// The error keeps later accesses from the string, which is the caller's to change or dispose. The destructor reports
// the error like any other: a buffer does not tell a release from a read that failed.
LStr** LStrInputBuf::ReleaseOwnership()
{
    LStr** const handle = mHandle;
    mHandle = nullptr;
    mError = kzErrArgument;
    return handle;
}

InputBuf* CreateMemInputBuf(const void* data, unsigned long size)
{
    return new (std::nothrow) MemInputBuf(data, size);
}

InputBuf* CreateLStrInputBuf(LStr**& handle)
{
    return new (std::nothrow) LStrInputBuf(handle);
}
