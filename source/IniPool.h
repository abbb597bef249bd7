// Elements of one size that stay where they are and are known by numbers of 32 bits. C library only.
#ifndef KZCORE_INIPOOL_H
#define KZCORE_INIPOOL_H

#include <stddef.h>

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

// Numbers run from 1 up to kMost; 0 is none. A number that is given back is the next to be taken.
class Pool {
public:
    static constexpr unsigned kMost = 0x7FFFFFFF;

    explicit Pool(size_t elementSize) : m_elementSize(elementSize)  // at least that of a number
    {
        while (elementSize << (m_chunkBits + 1) <= kChunkSize) {
            ++m_chunkBits;
        }
    }

    void* At(unsigned number) const
    {
        CountSteps(1);
        return m_chunks[number >> m_chunkBits] + (number & (PerChunk() - 1)) * m_elementSize;
    }

    // Makes sure that `count` numbers can be taken. False when out of memory.
    bool Reserve(unsigned count);

    // Requires a number reserved. What stands in the element is undefined.
    unsigned Take();
    void Give(unsigned number);

    // Frees the memory of all elements.
    void Clear();

    // Whether the number was ever taken.
    bool IsMade(unsigned number) const { return number > 0 && number < m_made; }

    // What is wrong with the pool, or null. For tests and KZ_ASSERT_SLOW.
    const char* Fault() const;

    size_t elementSize() const { return m_elementSize; }
    unsigned live() const { return m_made - 1 - m_givenBack; }

private:
    static constexpr size_t kChunkSize = 4096;

    unsigned PerChunk() const { return 1u << m_chunkBits; }
    bool AddChunk();

    size_t m_elementSize;
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
