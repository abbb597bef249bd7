// The slots of a cookie jar: records at indices of 20 bits, in a four-level radix tree that never moves one.
//
// A record is the caller's info from offset 0, padding, and the slot's state in its last 12 bytes; its size is a
// multiple of 8, so that 8 bytes of info are read and written as one. Slots come into being 64 at a time, in the order
// of their indices, zeroed but for their links.
//
// Growth is serialised by the caller. Find may run at any time on any thread, because nodes are published by release
// stores and nothing that was published moves or goes before the tree does. The state's fields are read as atomics.
#ifndef KZCORE_POUCHTREE_H
#define KZCORE_POUCHTREE_H

#include <atomic>

#include "KZTypes.h"

namespace kz {

struct CookieSlotState {
    uInt32 salt;     // 0 when free
    int32 link;      // -1 when in use, else the next free index
    int32 refCount;  // 0 in a jar without reference counts
};

class PouchTree {
public:
    static constexpr uInt32 kIndexBits = 20;
    static constexpr uInt32 kMaxSlots = 1u << kIndexBits;
    static constexpr uInt32 kLeafSlots = 64;

    // The size of a record around `infoSize` bytes of info.
    static constexpr uInt64 RecordSize(uInt32 infoSize) { return (uInt64{infoSize} + 19) & ~uInt64{7}; }

    explicit PouchTree(uInt32 recordSize) : mRecordSize(recordSize) {}
    ~PouchTree();
    PouchTree(const PouchTree&) = delete;
    PouchTree& operator=(const PouchTree&) = delete;

    // The record at an index below kMaxSlots, or null where there is none yet.
    unsigned char* Find(uInt32 index) const
    {
        // The first leaf spares the hottest indices the look in the table.
        if (index < kLeafSlots - 1) {
            if (unsigned char* const leaf = mFirstLeaf.load(std::memory_order_acquire)) {
                return leaf + index * mRecordSize;
            }
        }
        const LeafTable* const table = mLeaves.load(std::memory_order_acquire);
        unsigned char* const leaf = table != nullptr && index / kLeafSlots < table->count
                                        ? table->leaves[index / kLeafSlots].load(std::memory_order_acquire)
                                        : WalkToLeaf(index);
        return leaf == nullptr ? nullptr : leaf + (index % kLeafSlots) * mRecordSize;
    }

    // The record at an index below kMaxSlots, made with its leaf where it is missing: the links of new slots lead
    // from index to index, the last to the first index of the next leaf. Null when out of memory, with the size that
    // failed in `*missing`; the memory-full procedure is the caller's to call.
    unsigned char* Make(uInt32 index, unsigned long* missing);

    // The state of a record of this tree.
    CookieSlotState* State(unsigned char* record) const
    {
        return reinterpret_cast<CookieSlotState*>(record + mRecordSize - sizeof(CookieSlotState));
    }

    // Calls `visit(index, record)` for each slot from index `from` up until it returns false. The caller keeps the tree
    // from growing.
    template <typename Visit>
    void ForEachSlot(uInt32 from, Visit visit) const
    {
        uInt32 i = from % kLeafSlots;
        for (uInt32 first = from - i; first < kMaxSlots; first += kLeafSlots) {
            unsigned char* const leaf = Find(first);
            if (leaf == nullptr) {
                return;  // leaves are made in order
            }
            for (; i < kLeafSlots; ++i) {
                if (!visit(first + i, leaf + i * mRecordSize)) {
                    return;
                }
            }
            i = 0;
        }
    }

private:
    struct Level {
        uInt32 bits;
        uInt32 shift;
        uInt32 mask;
    };
    static constexpr Level kLevels[] = {{4, 16, 0xF}, {5, 11, 0x1F}, {5, 6, 0x1F}, {6, 0, 0x3F}};
    static constexpr int kLeafLevel = 3;
    static_assert(kLevels[0].bits + kLevels[1].bits + kLevels[2].bits + kLevels[3].bits == kIndexBits);
    static_assert(kLeafSlots == 1u << kLevels[kLeafLevel].bits);
    static_assert(std::atomic_ref<void*>::is_always_lock_free);

    static std::atomic_ref<void*> Child(void* node, int level, uInt32 index)
    {
        return std::atomic_ref<void*>(static_cast<void**>(node)[(index >> kLevels[level].shift) & kLevels[level].mask]);
    }
    // The leaves by their place, which spares a look-up the walk from the root. A larger table replaces one that is
    // full, and the old ones stay until the tree goes, because a reader may still be in them. Where there was no memory
    // for a table the walk finds the leaf.
    struct LeafTable {
        LeafTable* older;                       // owned
        uInt32 count;                           // of leaves
        std::atomic<unsigned char*> leaves[1];  // null where a leaf was not made yet
    };

    [[gnu::cold]] unsigned char* WalkToLeaf(uInt32 index) const;
    void AddToTable(uInt32 index, unsigned char* leaf);
    static void DisposeNode(void* node, int level);
    unsigned char* MakeLeaf(uInt32 index, unsigned long* missing) const;

    const unsigned long mRecordSize;
    std::atomic<void*> mRoot{nullptr};
    std::atomic<unsigned char*> mFirstLeaf{nullptr};
    std::atomic<LeafTable*> mLeaves{nullptr};
};

}  // namespace kz

#endif
