// The tree proper is the four levels of nodes under mRoot; mFirstLeaf and mLeaves only lead to the same leaves on
// shorter ways. A record's address never changes, so a look-up needs no lock and a caller may keep the address. For the
// same reason nothing is freed before the whole tree is: a slot that is free again waits in its leaf for the next
// cookie.
//
// Nodes and leaves are pointer blocks of the memory manager's, which a host finds in its counts and checks. Tables are
// plain memory, because they are only a short cut and their number should not show.
#include "PouchTree.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "GuardChecks.h"
#include "KzAssert.h"
#include "MemorySource.h"

namespace kz {

namespace {

// A zeroed pointer block; on failure its size is in `*missing`.
void* MakeNode(unsigned long size, unsigned long* missing)
{
    void* const node = AllocatePtr(size, Fill::kZero);
    if (node == nullptr) {
        *missing = size;
    }
    return node;
}

}  // namespace

PouchTree::~PouchTree()
{
    DisposeNode(mRoot.load(std::memory_order_relaxed), 0);
    for (LeafTable* table = mLeaves.load(std::memory_order_relaxed); table != nullptr;) {
        LeafTable* const older = table->older;
        std::free(table);
        table = older;
    }
}

// A block whose guard bytes are damaged is left behind, because what wrote over them may have written over its
// header too.
void PouchTree::DisposeNode(void* node, int level)
{
    KZ_ASSERT(level >= 0 && level <= kLeafLevel);
    if (node == nullptr) {
        return;
    }
    if (level < kLeafLevel) {
        for (uInt32 i = 0; i <= kLevels[level].mask; ++i) {
            DisposeNode(Child(node, level, i << kLevels[level].shift).load(std::memory_order_relaxed), level + 1);
        }
    }
    if (PtrGuardsPass(node)) {
        FreePtr(node);
    }
}

unsigned char* PouchTree::MakeLeaf(uInt32 index, unsigned long* missing) const
{
    KZ_ASSERT(index < kMaxSlots);
    auto* const leaf = static_cast<unsigned char*>(MakeNode(kLeafSlots * mRecordSize, missing));
    if (leaf != nullptr) {
        const uInt32 first = index - index % kLeafSlots;
        for (uInt32 i = 0; i < kLeafSlots; ++i) {
            State(leaf + i * mRecordSize)->link = static_cast<int32>(first + i + 1);
        }
    }
    return leaf;
}

unsigned char* PouchTree::WalkToLeaf(uInt32 index) const
{
    KZ_ASSERT(index < kMaxSlots);
    void* node = mRoot.load(std::memory_order_acquire);
    for (int level = 0; node != nullptr && level < kLeafLevel; ++level) {
        node = Child(node, level, index).load(std::memory_order_acquire);
    }
    return static_cast<unsigned char*>(node);
}

// Tables double, so that all the old ones together are no larger than the one in use. A new table is filled from the
// tree and not from the old table, because that may lack leaves for which there was no memory.
void PouchTree::AddToTable(uInt32 index, unsigned char* leaf)
{
    KZ_ASSERT(leaf != nullptr && WalkToLeaf(index) == leaf);
    constexpr uInt32 kFirstCount = 32;
    LeafTable* table = mLeaves.load(std::memory_order_relaxed);
    const uInt32 place = index / kLeafSlots;
    const uInt32 oldCount = table == nullptr ? 0 : table->count;
    if (place >= oldCount) {
        uInt32 count = std::max(kFirstCount, oldCount * 2);
        while (count <= place) {
            count *= 2;
        }
        void* const storage = AllocateBytes(offsetof(LeafTable, leaves) + count * sizeof(leaf));
        if (storage == nullptr) {
            return;
        }
        auto* const larger = static_cast<LeafTable*>(storage);
        larger->older = table;
        larger->count = count;
        for (uInt32 i = 0; i < count; ++i) {
            ::new (&larger->leaves[i]) std::atomic<unsigned char*>(WalkToLeaf(i * kLeafSlots));
        }
        table = larger;
        mLeaves.store(table, std::memory_order_release);
    }
    table->leaves[place].store(leaf, std::memory_order_release);
}

// A node is filled before it is published, and published before anything below it, so a reader on its way down finds
// either nothing or something whole. When memory is out, the nodes that were made stay for the next try.
unsigned char* PouchTree::Make(uInt32 index, unsigned long* missing)
{
    KZ_ASSERT(index < kMaxSlots && missing != nullptr);
    if (unsigned char* const record = Find(index)) {
        return record;
    }
    void* node = mRoot.load(std::memory_order_relaxed);
    if (node == nullptr) {
        node = MakeNode(sizeof(void*) << kLevels[0].bits, missing);
        mRoot.store(node, std::memory_order_release);
    }
    for (int level = 0; node != nullptr && level < kLeafLevel; ++level) {
        const std::atomic_ref<void*> child = Child(node, level, index);
        node = child.load(std::memory_order_relaxed);
        if (node == nullptr) {
            const bool isLeaf = level + 1 == kLeafLevel;
            node = isLeaf ? MakeLeaf(index, missing) : MakeNode(sizeof(void*) << kLevels[level + 1].bits, missing);
            child.store(node, std::memory_order_release);
        }
    }
    if (node == nullptr) {
        return nullptr;
    }
    auto* const leaf = static_cast<unsigned char*>(node);
    if (mFirstLeaf.load(std::memory_order_relaxed) == nullptr) {
        mFirstLeaf.store(leaf, std::memory_order_release);
    }
    AddToTable(index, leaf);
    return leaf + (index % kLeafSlots) * mRecordSize;
}

}  // namespace kz
