#include "IniPool.h"

#include <assert.h>
#include <stdlib.h>
#include <string.h>

#include "IniText.h"

namespace qkini {

bool Pool::AddChunk()
{
    constexpr unsigned kFirstRoom = 4;
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
        assert(m_made < m_chunkCount * PerChunk());
        return m_made++;
    }
    const unsigned number = m_firstFree;
    memcpy(&m_firstFree, At(number), sizeof m_firstFree);
    --m_givenBack;
    return number;
}

void Pool::Give(unsigned number)
{
    assert(number > 0 && number < m_made);
    memcpy(At(number), &m_firstFree, sizeof m_firstFree);
    m_firstFree = number;
    ++m_givenBack;
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
