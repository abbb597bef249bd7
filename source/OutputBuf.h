// Output buffers: raw memory to write into, handed out by pointer. C++ only, but for the four makers at the end.
//
// Sizes and positions are bytes. Codes are those of KzErr.h; 0 is no error.
#ifndef KZCORE_OUTPUTBUF_H
#define KZCORE_OUTPUTBUF_H

#include "KZTypes.h"
#include "KzErr.h"

namespace kz {
struct OutputAccess;
}

// The first error latches: after it every access gives null and that error. One thread at a time. A buffer that ends
// with an error reports it, and disposes of the handle that it still has. The slots stand in this order, the destructor
// pair first.
class KZ_EXPORT OutputBuf {
public:
    virtual ~OutputBuf() = default;

    // A pointer to the next `size` bytes, to be written to before the next access; the position moves past them. Null
    // with the latched error in `err`; null without an error for a size of 0, and from a buffer that only counts.
    virtual void* GetDataPointer(unsigned long size, KzErr& err) = 0;

    // The position, which an error does not move.
    virtual unsigned long GetBytesWritten() const = 0;

    // Whether the bytes are counted only, so that null without an error is no failure.
    virtual bool IsOnlyDeterminingSize() const;
};

// Writes into memory of the caller's, which must outlive the buffer. kzErrCorrupt: it is full.
class KZ_EXPORT StaticOutputBuf : public OutputBuf {
public:
    // Room for `size` bytes at `data`, or for none if that is null.
    StaticOutputBuf(void* data, unsigned long size);
    ~StaticOutputBuf() override;
    StaticOutputBuf(const StaticOutputBuf&) = delete;
    StaticOutputBuf& operator=(const StaticOutputBuf&) = delete;

    void* GetDataPointer(unsigned long size, KzErr& err) override;
    unsigned long GetBytesWritten() const override;

private:
    friend struct kz::OutputAccess;

    KzErr mError = kzErrNone;
    unsigned char* mData;     // not owned
    unsigned long mCapacity;  // of mData; in each buffer it is mWritten once an error is latched
    unsigned long mWritten = 0;
};

// Writes into a handle that it makes, and grows by what is needed and 4,096 bytes. kzErrMemoryFull, from the start
// where no handle could be made; kzErrArgument once the handle is released.
class KZ_EXPORT HandleOutputBuf : public OutputBuf {
public:
    // Room for `initialSize` bytes, which may be 0.
    explicit HandleOutputBuf(unsigned long initialSize);
    ~HandleOutputBuf() override;
    HandleOutputBuf(const HandleOutputBuf&) = delete;
    HandleOutputBuf& operator=(const HandleOutputBuf&) = delete;

    void* GetDataPointer(unsigned long size, KzErr& err) override;
    unsigned long GetBytesWritten() const override;

    // The handle, cut to what was written; a failure to cut it latches. With `release` it is the caller's from now on.
    // Null with an error latched, and with kzErrArgument, which latches, when it was released before.
    UHandle GetHandle(bool release);

private:
    friend struct kz::OutputAccess;

    KzErr mError = kzErrNone;
    UHandle mHandle;  // owned; null once it is released, or where it could not be made
    unsigned long mCapacity;
    unsigned long mWritten = 0;
};

// Writes the text of a counted string, and grows likewise. A text of 2^31 bytes or more is kzErrMemoryFull, as its
// count could not tell it.
class KZ_EXPORT LStrOutputBuf : public OutputBuf {
public:
    // A new string with room for `initialSize` bytes.
    explicit LStrOutputBuf(unsigned long initialSize);

    // A string that the buffer owns from now on and writes from its start: resized to the room of `initialSize` bytes,
    // or with the room that it has if that is 0. A null one is made, with room for 4,096 bytes if `initialSize` is 0.
    LStrOutputBuf(LStr** handle, unsigned long initialSize);

    ~LStrOutputBuf() override;
    LStrOutputBuf(const LStrOutputBuf&) = delete;
    LStrOutputBuf& operator=(const LStrOutputBuf&) = delete;

    void* GetDataPointer(unsigned long size, KzErr& err) override;
    unsigned long GetBytesWritten() const override;

    // As HandleOutputBuf::GetHandle. The count is set here only.
    LStr** GetHandle(bool release);

private:
    friend struct kz::OutputAccess;

    void Make(unsigned long room);
    void SetCapacity(unsigned long room);

    KzErr mError = kzErrNone;
    LStr** mHandle = nullptr;     // as that of HandleOutputBuf
    unsigned long mCapacity = 0;  // of the text, no more than its count can tell
    unsigned long mWritten = 0;
};

// Counts what another buffer would be given. Never has an error.
class KZ_EXPORT PreflightOutputBuf : public OutputBuf {
public:
    void* GetDataPointer(unsigned long size, KzErr& err) override;
    unsigned long GetBytesWritten() const override;
    bool IsOnlyDeterminingSize() const override;

private:
    friend struct kz::OutputAccess;

    unsigned long mWritten = 0;
};

// Each makes a buffer of the kind in its name with these arguments, which the caller deletes with delete. Null when
// there is no memory for the object itself; a handle that can't be made is the buffer's latched error.
KZ_EXTERN_C_BEGIN
KZ_EXPORT OutputBuf* CreateStaticOutputBuf(void* data, unsigned long size);
KZ_EXPORT OutputBuf* CreatePreflightOutputBuf(void);
KZ_EXPORT OutputBuf* CreateHandleOutputBuf(unsigned long initialSize);
KZ_EXPORT OutputBuf* CreateLStrOutputBuf(unsigned long initialSize);
KZ_EXTERN_C_END

#endif
