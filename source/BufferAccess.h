// The buffers that hold their bytes in one block, from within: what a typed reader or writer needs for each value,
// without a call. A buffer with an error latched has nothing left and no room.
#ifndef KZCORE_BUFFERACCESS_H
#define KZCORE_BUFFERACCESS_H

#include "InputBuf.h"
#include "OutputBuf.h"

namespace kz {

struct MemInputAccess {
    // Whether the next `size` bytes, not 0, are there. If not, the buffer itself is to be asked.
    static bool Has(const MemInputBuf& buffer, unsigned long size) { return size <= buffer.mSize - buffer.mPosition; }

    // The next bytes, which are there.
    static const void* Take(MemInputBuf& buffer, unsigned long size)
    {
        const void* const start = buffer.mData + buffer.mPosition;
        buffer.mPosition += size;
        return start;
    }
};

struct OutputAccess {
    // The same for the room of a buffer.
    template <typename Buffer>
    static bool Has(const Buffer& buffer, unsigned long size)
    {
        return size <= buffer.mCapacity - buffer.mWritten;
    }

    template <typename Buffer>
    static unsigned char* Take(Buffer& buffer, unsigned long size)
    {
        unsigned char* const start = StartOf(buffer) + buffer.mWritten;
        buffer.mWritten += size;
        return start;
    }

    // What a buffer that counts does for `size` bytes.
    static void Count(PreflightOutputBuf& buffer, unsigned long size) { buffer.mWritten += size; }

private:
    static unsigned char* StartOf(const StaticOutputBuf& buffer) { return buffer.mData; }
    static unsigned char* StartOf(const HandleOutputBuf& buffer) { return *buffer.mHandle; }
    static unsigned char* StartOf(const LStrOutputBuf& buffer) { return (*buffer.mHandle)->str; }
};

}  // namespace kz

#endif
