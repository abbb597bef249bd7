// The block behind a handle: where its parts stand, and the way from the allocator and back.
//
// From the start of the allocated block:
//   the tag     2 bytes alignment, 2 bytes offset: only where the header's address field is not 0
//   the header  8 bytes size of the data, 8 bytes address of the block; 0 when the block starts with the header, and
//               alignment and offset are then both 8
//   a guard     `guard` bytes
//   the data    its address plus the offset is a multiple of the alignment
//   a guard     `guard` bytes
//
// A guard is 0 or 8 bytes, the same for all handles from the first one on, because the environment sets it once. Blocks
// come from malloc, so they start at a multiple of 8. With an offset of 4 modulo 8 the header and the data stand at 4
// modulo 8, so all fields are copied as bytes.
//
// Any thread may call, on a block that no other thread resizes or frees meanwhile.
#ifndef KZCORE_HANDLELAYOUT_H
#define KZCORE_HANDLELAYOUT_H

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "GuardChecks.h"
#include "KZTypes.h"
#include "KzAssert.h"
#include "MemorySource.h"

namespace kz {

// The address of the data plus `offset` is a multiple of `alignment`. Always in the form that NormalAlignment and
// AlignmentForSize give: a power of two from 8 to 32,768, a multiple of 4 up to 65,532. With alignment 8 an offset that
// is a multiple of 8 is 8, which is what a block without a tag stands for.
struct HandleAlignment {
    unsigned long alignment;
    unsigned long offset;

    bool operator==(const HandleAlignment&) const = default;
};

inline constexpr unsigned long kMaxHandleAlignment = 32768;
inline constexpr unsigned long kMaxHandleOffset = 65532;

// The alignment of a handle whose maker gives only its size.
constexpr HandleAlignment AlignmentForSize(unsigned long size)
{
    HandleAlignment result{8, 8};
    if (size >= 1024 * 1024) {
        result = {4096, 0};
    } else if (size >= 1024) {
        result = {16, 0};
    }
    if (size != 0 && size % 4 == 0) {
        result.offset = size % 8 == 0 ? 8 : 4;
    }
    return result;
}

// The alignment of a handle whose maker gives any two numbers.
constexpr HandleAlignment NormalAlignment(unsigned long alignment, unsigned long offset)
{
    unsigned long power = 8;
    while (power < alignment && power < kMaxHandleAlignment) {
        power *= 2;
    }
    // An offset near the top of the range wraps to 0, which asks for the same addresses.
    unsigned long rounded = offset % 4 == 0 ? offset : (offset + 4) & ~3ul;
    if (rounded > kMaxHandleOffset) {
        rounded %= power;  // the tag holds 16 bits; the same addresses fulfil it
    }
    if (power == 8 && rounded % 8 == 0) {
        rounded = 8;
    }
    return {power, rounded};
}

// The size of the block for a handle of `size` bytes; 0 when it does not fit the address space. An alignment above 8
// needs room for the tag and for the data to move up, by less than the alignment and the offset together.
constexpr unsigned long HandleBlockSize(unsigned long size, HandleAlignment align, unsigned long guard)
{
    unsigned long block = size + 2 * guard + kHandleHeaderSize;
    const bool offsetIsOdd4 = (align.offset & 4) != 0;
    if (align.alignment == 8) {
        block += offsetIsOdd4 ? 4 : 0;
    } else {
        block += align.alignment + align.offset + 4 + (offsetIsOdd4 ? 0 : 4);
    }
    block = (block + align.alignment - 1) & ~(align.alignment - 1);
    // What is added is less than 200,000, so a sum that has wrapped is smaller than the size.
    return block > size ? block : 0;
}

// Writes header and tag into a block of HandleBlockSize bytes and returns the address of the data.
inline unsigned char* LayOutHandle(unsigned char* block, unsigned long size, HandleAlignment align, unsigned long guard)
{
    const auto base = reinterpret_cast<uintptr_t>(block);
    KZ_ASSERT(base % 8 == 0);
    uintptr_t header = base;
    if (align.alignment > 8) {
        // The first address behind the tag that aligns the data.
        header = base + align.alignment + align.offset + 4 + kHandleHeaderSize + guard;
        header &= ~(align.alignment - 1);
        header -= kHandleHeaderSize + guard + align.offset;
    } else if ((align.offset & 4) != 0) {
        header = base + 4;
    }
    const uintptr_t address = header == base ? 0 : base;
    if (address != 0) {
        const uInt16 tag[2] = {static_cast<uInt16>(align.alignment), static_cast<uInt16>(align.offset)};
        std::memcpy(block, tag, sizeof tag);
    }
    unsigned char* const at = block + (header - base);
    std::memcpy(at, &size, sizeof size);
    std::memcpy(at + sizeof size, &address, sizeof address);
    return at + kHandleHeaderSize + guard;
}

// The size stored in the header of the data.
inline unsigned long HandleDataSize(const unsigned char* data, unsigned long guard = HandleGuardSize())
{
    unsigned long size;
    std::memcpy(&size, data - guard - kHandleHeaderSize, sizeof size);
    return size;
}

// What the header says of the data: its size, the block that it stands in, and the alignment that it was laid out with.
// Only as true as the handle is good, so the calls look at the handle, and at its guards where they are checked, before
// they believe it.
struct HandlePlace {
    unsigned long size;
    unsigned char* block;
    HandleAlignment align;
};

inline HandlePlace HandleDataPlace(unsigned char* data, unsigned long guard = HandleGuardSize())
{
    unsigned char* const header = data - guard - kHandleHeaderSize;
    unsigned long size;
    uintptr_t address;
    std::memcpy(&size, header, sizeof size);
    std::memcpy(&address, header + sizeof size, sizeof address);
    if (address == 0) {
        return {size, header, {8, 8}};
    }
    // Reached from the header and not made from the number, so that the pointer keeps its origin.
    unsigned char* const block = header - (reinterpret_cast<uintptr_t>(header) - address);
    uInt16 tag[2];
    std::memcpy(tag, block, sizeof tag);
    return {size, block, {tag[0], tag[1]}};
}

// The data of a new block, with room for its guards where those are on; null when out of memory. `*blockSize` is what
// was asked of the allocator, 0 when that can't be said in an unsigned long. Freed with FreeHandleData.
inline unsigned char* AllocateHandleData(unsigned long size, HandleAlignment align, Fill fill, unsigned long* blockSize)
{
    KZ_ASSERT(align == NormalAlignment(align.alignment, align.offset));
    const unsigned long guard = HandleGuardSize();
    *blockSize = HandleBlockSize(size, align, guard);
    if (*blockSize == 0) {
        return nullptr;
    }
    // A handle without data gets a byte more. The data's address would else be the end of the block, where another
    // block may begin, and DSRecoverHandle would find the handle for that block's address.
    auto* const block = static_cast<unsigned char*>(AllocateBytes(*blockSize + (size == 0 ? 1 : 0), fill));
    if (block == nullptr) {
        return nullptr;
    }
    unsigned char* const data = LayOutHandle(block, size, align, guard);
    KZ_ASSERT(HandleDataPlace(data).block == block && HandleDataPlace(data).align == align);
    KZ_ASSERT(data + size + guard <= block + *blockSize);
    return data;
}

inline void FreeHandleData(unsigned char* data)
{
    KZ_ASSERT(data != nullptr);
    std::free(HandleDataPlace(data).block);
}

}  // namespace kz

#endif
