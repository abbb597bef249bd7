// The buffers that hold their bytes in one block, from within: what a typed reader or writer needs for each value,
// without a call.
//
// Each of these buffers keeps its position at most at its size or capacity, and exactly there once it has an error. One
// comparison thus tells whether bytes or room are there, whatever else is wrong. Where it says no, the buffer itself is
// to be asked, which grows or answers the error.
#ifndef KZCORE_BUFFERACCESS_H
#define KZCORE_BUFFERACCESS_H

#include <cstring>
#include <type_traits>
#include <typeinfo>

#include "InputBuf.h"
#include "KzAssert.h"
#include "OutputBuf.h"

namespace kz {

// Whether `object` is of the class Known itself and not of one derived from it. The description is taken out of the
// virtual table, where the platform's C++ ABI puts it, because it is null for a class that a host compiled without
// RTTI: `typeid` would read through it.
template <typename Known, typename Base>
bool IsExactly(const Base& object)
{
    static_assert(std::is_polymorphic_v<Base> && std::is_base_of_v<Base, Known>);
    const void* const* table = nullptr;
    std::memcpy(&table, static_cast<const void*>(&object), sizeof table);
    const auto* const type = static_cast<const std::type_info*>(table[-1]);
    return type != nullptr && *type == typeid(Known);
}

struct MemInputAccess {
    // Whether the next `size` bytes are there. Requires a size above 0, because an access of size 0 asks for the error.
    static bool Has(const MemInputBuf& buffer, unsigned long size)
    {
        KZ_ASSERT(size != 0 && buffer.mPosition <= buffer.mSize);
        return size <= buffer.mSize - buffer.mPosition;
    }

    // The next bytes. Requires that Has has said yes.
    static const void* Take(MemInputBuf& buffer, unsigned long size)
    {
        KZ_ASSERT(Has(buffer, size) && buffer.mError == kzErrNone);
        const void* const start = buffer.mData + buffer.mPosition;
        buffer.mPosition += size;
        return start;
    }
};

// The same for room to write in, in any of the three buffers that have some.
struct OutputAccess {
    template <typename Buffer>
    static bool Has(const Buffer& buffer, unsigned long size)
    {
        KZ_ASSERT(size != 0 && buffer.mWritten <= buffer.mCapacity);
        return size <= buffer.mCapacity - buffer.mWritten;
    }

    template <typename Buffer>
    static unsigned char* Take(Buffer& buffer, unsigned long size)
    {
        KZ_ASSERT(Has(buffer, size) && buffer.mError == kzErrNone);
        unsigned char* const start = StartOf(buffer) + buffer.mWritten;
        buffer.mWritten += size;
        return start;
    }

    // What a buffer that only counts does for `size` bytes. Such a buffer never has an error.
    static void Count(PreflightOutputBuf& buffer, unsigned long size) { buffer.mWritten += size; }

private:
    // Where the first byte is written. A handle's master is read each time, because a resize moves the block.
    static unsigned char* StartOf(const StaticOutputBuf& buffer) { return buffer.mData; }
    static unsigned char* StartOf(const HandleOutputBuf& buffer) { return *buffer.mHandle; }
    static unsigned char* StartOf(const LStrOutputBuf& buffer) { return (*buffer.mHandle)->str; }
};

}  // namespace kz

#endif
