// A pool is a table of chunks that never move, so that an element keeps its address while the pool grows. Elements are
// known by numbers because these take half of a pointer's room in the trees and indexes that consist of little else.
//
// Numbers are made in order, m_made is the next one. Those given back form a chain through their elements, whose first
// bytes hold the number of the next. Number 0 is made at once and never taken, so that 0 can stand for none.

#include "IniPool.h"

#include <stdlib.h>
#include <string.h>

#include "IniMemory.h"
#include "KzAssert.h"

namespace qkini {

bool Pool::AddChunk()
{
    constexpr unsigned kFirstRoom = 4;
    // One more chunk would have numbers beyond kMost, whose highest bit is for the users of numbers.
    if (m_chunkCount > kMost >> m_chunkBits) {
        return false;
    }
    if (m_chunkCount == m_chunkRoom) {
        const unsigned room = m_chunkRoom == 0 ? kFirstRoom : m_chunkRoom * 2;
        auto* const chunks = static_cast<char**>(Reallocate(m_chunks, room * sizeof(char*)));
        if (chunks == nullptr) {
            return false;
        }
        m_chunks = chunks;
        m_chunkRoom = room;
    }
    // Without memory for the chunk the larger table stays, which says the same as the smaller one.
    auto* const chunk = static_cast<char*>(Allocate(PerChunk() * m_elementSize));
    if (chunk == nullptr) {
        return false;
    }
    m_chunks[m_chunkCount] = chunk;
    ++m_chunkCount;
    return true;
}

bool Pool::Reserve(unsigned count)
{
    while (count > m_givenBack && m_made + (count - m_givenBack) > m_chunkCount * PerChunk()) {
        if (!AddChunk()) {
            return false;
        }
    }
    return true;
}

unsigned Pool::Take()
{
    if (m_firstFree == 0) {
        KZ_ASSERT(m_made < m_chunkCount * PerChunk());
        return m_made++;
    }
    const unsigned number = m_firstFree;
    memcpy(&m_firstFree, At(number), sizeof m_firstFree);
    --m_givenBack;
    return number;
}

void Pool::Give(unsigned number)
{
    KZ_ASSERT(number > 0 && number < m_made);
    memcpy(At(number), &m_firstFree, sizeof m_firstFree);
    m_firstFree = number;
    ++m_givenBack;
}

const char* Pool::Fault() const
{
    if (m_chunkCount > m_chunkRoom || m_givenBack >= m_made || (m_made > 1 && m_made > m_chunkCount * PerChunk())) {
        return "a pool has given out what it has not";
    }
    unsigned number = m_firstFree;
    for (unsigned i = 0; i < m_givenBack; ++i) {
        if (!IsMade(number)) {
            return "a pool lost what was given back";
        }
        memcpy(&number, At(number), sizeof number);
    }
    return number == 0 ? nullptr : "a pool has more given back than it counts";
}

void Pool::Clear()
{
    for (unsigned i = 0; i < m_chunkCount; ++i) {
        free(m_chunks[i]);
    }
    free(m_chunks);
    *this = Pool(m_elementSize);
}

}  // namespace qkini
