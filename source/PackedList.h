// Steps over lists that stand in one block: a 32-bit count, then the records one after the other.
#ifndef KZCORE_PACKEDLIST_H
#define KZCORE_PACKEDLIST_H

#include <algorithm>
#include <cstddef>
#include <limits>

#include "ByteOrder.h"
#include "MemoryManager.h"

namespace kz {

inline constexpr std::size_t kListCountSize = sizeof(int32);

// Sizes of lists are signed 32-bit numbers.
inline constexpr std::size_t kMaxListSize = std::numeric_limits<int32>::max();

// A walk over the whole records of a list, of which each stands from At to End, as offsets in the block. It ends at the
// first record that the block does not hold, whatever the count says. Rule::Size gives the size of the record at an
// address, or 0 if it is more than what is left of the block.
template <typename Rule>
class PackedWalk {
public:
    // A list whose count is relied on.
    explicit PackedWalk(const void* list) : PackedWalk(list, std::numeric_limits<std::size_t>::max()) {}

    // A list in a block of this size; null is empty.
    PackedWalk(const void* list, std::size_t block)
        : mBytes(static_cast<const unsigned char*>(list)),
          mBlock(block),
          mCount(list == nullptr || block < kListCountSize ? 0 : LoadNative<int32>(list))
    {}

    // The list in a handle; a null handle is empty.
    template <typename List>
    static PackedWalk OfHandle(List* const* handle)
    {
        if (handle == nullptr) {
            return PackedWalk(nullptr, 0);
        }
        // The master pointer is read only where the manager says that there is a block.
        const std::size_t block = DSGetHandleSize(handle);
        return PackedWalk(block < kListCountSize ? nullptr : *handle, block);
    }

    // On to the next record; false, and nothing changes, when there is none.
    bool Next()
    {
        if (mIndex + 1 >= mCount) {
            return false;
        }
        const std::size_t size = Rule::Size(mBytes + mEnd, mBlock - mEnd);
        if (size == 0) {
            return false;
        }
        mAt = mEnd;
        mEnd += size;
        ++mIndex;
        return true;
    }

    // On to the record of this index, or to the last one if it is above, or the first if it is negative.
    void Seek(int32 index)
    {
        const int32 target = std::max(index, 0);
        while (mIndex < target && Next()) {
        }
    }

    // On to the end of the list; what stood before is returned.
    PackedWalk Finish()
    {
        const PackedWalk before = *this;
        while (Next()) {
        }
        return before;
    }

    int32 Count() const { return mIndex + 1; }  // records so far
    std::size_t At() const { return mAt; }
    std::size_t End() const { return mEnd; }
    std::size_t Block() const { return mBlock; }
    const unsigned char* Record() const { return mBytes + mAt; }

private:
    const unsigned char* mBytes;
    std::size_t mBlock;
    int32 mCount;
    int32 mIndex = -1;
    std::size_t mAt = kListCountSize;
    std::size_t mEnd = kListCountSize;
};

// The records of a CPStr.
struct ShortStringRule {
    static std::size_t Size(const unsigned char* record, std::size_t left)
    {
        return left == 0 || record[0] >= left ? 0 : 1u + record[0];
    }
};
using ShortStringWalk = PackedWalk<ShortStringRule>;

}  // namespace kz

#endif
