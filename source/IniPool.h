// Elements of one size that stay where they are and are known by numbers of 32 bits. C library only. A pool is not
// copied while it has elements, since nobody would know whose they are; Clear, and not a destructor, frees them.
#ifndef KZCORE_INIPOOL_H
#define KZCORE_INIPOOL_H

#include <stddef.h>

#include "KzAssert.h"

namespace qkini {

// Counts what the structures in pools do, one for each element looked up or moved, so that tests can hold the cost of
// edits to a bound. Only in builds with KZ_COUNT_LIVE, as those of the tests are, because At is the hottest line of a
// look-up.
#if defined(KZ_COUNT_LIVE)
inline thread_local size_t g_steps = 0;
inline void CountSteps(size_t steps)
{
    g_steps += steps;
}
#else
inline void CountSteps(size_t /*steps*/) {}
#endif

// Numbers run from 1 up to kMost; 0 is none. A number that is given back is the next to be taken. Elements are raw
// bytes that the pool never looks into while they are taken, aligned for a type of their size.
class Pool {
public:
    static constexpr unsigned kMost = 0x7FFFFFFF;

    // Requires a size of at least that of a number, which an element holds when it is given back.
    explicit Pool(size_t elementSize) : m_elementSize(elementSize)
    {
        KZ_ASSERT(elementSize >= sizeof(unsigned));
        while (elementSize << (m_chunkBits + 1) <= kChunkSize) {
            ++m_chunkBits;
        }
    }

    // Where an element stands, for as long as the number is taken. Requires a number that was taken once.
    void* At(unsigned number) const
    {
        KZ_ASSERT(IsMade(number));
        CountSteps(1);
        return m_chunks[number >> m_chunkBits] + (number & (PerChunk() - 1)) * m_elementSize;
    }

    // Makes sure that `count` numbers can be taken. False when out of memory.
    bool Reserve(unsigned count);

    // Takes a number. Requires one reserved, so that this can't fail. The element's bytes are undefined.
    unsigned Take();

    // Gives a number back that is taken.
    void Give(unsigned number);

    // Frees the memory of all elements; no number is taken then.
    void Clear();

    // Whether the number was ever taken.
    bool IsMade(unsigned number) const { return number > 0 && number < m_made; }

    // What is wrong with the pool, or null. For tests and KZ_ASSERT_SLOW.
    const char* Fault() const;

    size_t elementSize() const { return m_elementSize; }
    unsigned live() const { return m_made - 1 - m_givenBack; }

private:
    // Bytes. Small, because most objects hold a few items.
    static constexpr size_t kChunkSize = 4096;

    // A power of two, so that an element is found by a shift and a mask.
    unsigned PerChunk() const { return 1u << m_chunkBits; }
    bool AddChunk();

    size_t m_elementSize;      // bytes
    unsigned m_chunkBits = 0;  // the logarithm of the number of elements in a chunk
    char** m_chunks = nullptr;
    unsigned m_chunkCount = 0;
    unsigned m_chunkRoom = 0;  // in the table of chunks
    unsigned m_made = 1;       // the first element is nobody's
    unsigned m_firstFree = 0;  // each number given back holds the next one
    unsigned m_givenBack = 0;
};

}  // namespace qkini

#endif
