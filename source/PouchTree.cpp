#include "PouchTree.h"

#include "MemoryZone.h"

namespace kz {

namespace {

// A zeroed pointer block; on failure its size is in `*missing`.
void* MakeNode(unsigned long size, unsigned long* missing)
{
    void* const node = AllocateClearedPtr(size);
    if (node == nullptr) {
        *missing = size;
    }
    return node;
}

}  // namespace

PouchTree::~PouchTree()
{
    DisposeNode(mRoot.load(std::memory_order_relaxed), 0);
}

void PouchTree::DisposeNode(void* node, int level)
{
    if (node == nullptr) {
        return;
    }
    if (level < kLeafLevel) {
        for (uInt32 i = 0; i <= kLevels[level].mask; ++i) {
            DisposeNode(Child(node, level, i << kLevels[level].shift).load(std::memory_order_relaxed), level + 1);
        }
    }
    FreePtr(node);
}

unsigned char* PouchTree::MakeLeaf(uInt32 index, unsigned long* missing) const
{
    auto* const leaf = static_cast<unsigned char*>(MakeNode(kLeafSlots * mRecordSize, missing));
    if (leaf != nullptr) {
        const uInt32 first = index - index % kLeafSlots;
        for (uInt32 i = 0; i < kLeafSlots; ++i) {
            State(leaf + i * mRecordSize)->link = static_cast<int32>(first + i + 1);
        }
    }
    return leaf;
}

unsigned char* PouchTree::Make(uInt32 index, unsigned long* missing)
{
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
    return leaf + (index % kLeafSlots) * mRecordSize;
}

}  // namespace kz
