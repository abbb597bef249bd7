// Input buffers: raw memory to read from, handed out by pointer. C++ only, but for CreateMemInputBuf.
//
// Sizes and positions are bytes. Codes are those of KzErr.h; 0 is no error.
#ifndef KZCORE_INPUTBUF_H
#define KZCORE_INPUTBUF_H

#include "KZTypes.h"
#include "KzErr.h"

namespace kz {
struct MemInputAccess;
}

// The first error latches: after it every access gives null and that error. One thread at a time. A buffer that ends
// with an error reports it. The slots stand in this order, the destructor pair last.
class KZ_EXPORT InputBuf {
public:
    // A pointer to the next `size` bytes, valid until the buffer changes or ends; the position moves past them unless
    // `peek` is not 0. Null with an error in `err`: the latched one, or kzErrCorrupt, which latches, when fewer bytes
    // are left and `gotSize` is null. With `gotSize` a short read is allowed: *gotSize gets the bytes that are there,
    // and null with no error means none. A size of 0 gives null and tells the latched error.
    virtual const void* GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize = nullptr,
                                       int32 peek = 0) = 0;

    // The position, which neither a peek nor an error moves.
    virtual unsigned long GetBytesRead() const = 0;

    // The bytes of the data in all; 0 with an error latched.
    virtual unsigned long GetSize() const = 0;

    virtual ~InputBuf() = default;
};

// Reads memory of the caller's, which must outlive the buffer. Null data or size 0 is an empty buffer.
class KZ_EXPORT MemInputBuf : public InputBuf {
public:
    MemInputBuf(const void* data, unsigned long size);
    ~MemInputBuf() override;
    MemInputBuf(const MemInputBuf&) = delete;
    MemInputBuf& operator=(const MemInputBuf&) = delete;

    const void* GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek) override;
    unsigned long GetBytesRead() const override;
    unsigned long GetSize() const override;

private:
    friend struct kz::MemInputAccess;

    KzErr mError = kzErrNone;
    const unsigned char* mData;   // not owned
    unsigned long mSize;          // the position, once an error is latched
    unsigned long mPosition = 0;  // at most mSize
};

// Reads the text of a counted string, whose handle it owns.
class KZ_EXPORT LStrInputBuf : public InputBuf {
public:
    // Takes the handle over and makes the caller's variable null. A null handle latches kzErrArgument.
    explicit LStrInputBuf(LStr**& handle);
    ~LStrInputBuf() override;
    LStrInputBuf(const LStrInputBuf&) = delete;
    LStrInputBuf& operator=(const LStrInputBuf&) = delete;

    const void* GetDataPointer(unsigned long size, KzErr& err, unsigned long* gotSize, int32 peek) override;
    unsigned long GetBytesRead() const override;
    unsigned long GetSize() const override;

    // Gives the handle to the caller, and latches kzErrArgument.
    LStr** ReleaseOwnership();

private:
    unsigned long TextSize() const;

    LStr** mHandle;  // owned; null once it is released
    KzErr mError;
    unsigned long mPosition = 0;  // may be behind the text's end if that changes
};

// Each makes a buffer, which the caller deletes with delete; null when memory is full: the handle then stays the
// caller's, and its variable as it is.
extern "C" KZ_EXPORT InputBuf* CreateMemInputBuf(const void* data, unsigned long size);
KZ_EXPORT InputBuf* CreateLStrInputBuf(LStr**& handle);

#endif
