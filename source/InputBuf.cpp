#include "InputBuf.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "HandleText.h"
#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/InputBuf";

// The access that both kinds share, on `dataSize` bytes at `data`.
const void* Take(const unsigned char* data, unsigned long dataSize, unsigned long& position, KzErr& latched,
                 unsigned long size, KzErr& err, unsigned long* gotSize, bool peek)
{
    err = latched;
    if (gotSize != nullptr) {
        *gotSize = 0;
    }
    if (latched != kzErrNone || size == 0) {
        return nullptr;
    }
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
        mSize = mPosition;
    }
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

// A count that isn't sound is cut to what the block holds.
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
