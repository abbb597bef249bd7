// Lists that stand in one block: a 32-bit count, then the records one after the other, each of which tells its own size
// (`CPStr`, `CLStr`). Here are the walk over the records, the one way in which records come and go, and the walkers
// that say what is wrong with a list.
//
// The count is a claim. A list that came from a file or a host may tell more records than its block holds, and records
// that reach behind its end, so whoever is given a handle goes by a walk that knows the block's size. Every change of a
// list leaves a true count.
#ifndef KZCORE_PACKEDLIST_H
#define KZCORE_PACKEDLIST_H

#include <algorithm>
#include <cstddef>
#include <limits>

#include "ByteOrder.h"
#include "HandleSplice.h"
#include "KzAssert.h"
#include "MemoryManager.h"

namespace kz {

// A list without records is its count only.
inline constexpr std::size_t kListCountSize = sizeof(int32);

// Sizes of lists are signed 32-bit numbers.
inline constexpr std::size_t kMaxListSize = std::numeric_limits<int32>::max();

// A walk over the whole records of a list, of which each stands from At to End, as offsets in the block. It ends at the
// first record that the block does not hold, whatever the count says. Rule::Size gives the size of the record at an
// address, or 0 if that is more than what is left of the block.
//
// A walk is a value: a copy of it goes on from where it stands. Before the first record both At and End are where that
// would start, so that an insertion in front needs no case of its own.
template <typename Rule>
class PackedWalk {
public:
    // A list whose count is relied on: the caller has no block to ask. Null is empty.
    explicit PackedWalk(const void* list) : PackedWalk(list, std::numeric_limits<std::size_t>::max()) {}

    // A list in a block of this size; null is empty.
    PackedWalk(const void* list, std::size_t block)
        : mBytes(static_cast<const unsigned char*>(list)),
          mBlock(block),
          mCount(list == nullptr || block < kListCountSize ? 0 : LoadNative<int32>(list))
    {}

    // The list in a handle; a null handle is empty. So is a bad one, which is reported.
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
        KZ_ASSERT(mBytes != nullptr && mEnd <= mBlock);
        const std::size_t size = Rule::Size(mBytes + mEnd, mBlock - mEnd);
        if (size == 0) {
            return false;
        }
        KZ_ASSERT(size <= mBlock - mEnd);
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

    // The records so far, the one where the walk stands included; what the list's count says; the place of that record;
    // and the block's size, 0 for a bad handle.
    int32 Count() const { return mIndex + 1; }
    int32 Claimed() const { return mCount; }
    std::size_t At() const { return mAt; }
    std::size_t End() const { return mEnd; }
    std::size_t Block() const { return mBlock; }

    // The record's first byte. Requires that Next has found one; valid until the list changes.
    const unsigned char* Record() const
    {
        KZ_ASSERT(mIndex >= 0);
        return mBytes + mAt;
    }

private:
    const unsigned char* mBytes;  // the block; null for an empty list without one
    std::size_t mBlock;
    int32 mCount;
    int32 mIndex = -1;  // of the record where the walk stands; -1 before the first
    std::size_t mAt = kListCountSize;
    std::size_t mEnd = kListCountSize;
};

// The records of a CPStr: a count byte and that many bytes.
struct ShortStringRule {
    // A count byte equal to what is left is one too many, because the byte itself takes one.
    static std::size_t Size(const unsigned char* record, std::size_t left)
    {
        return left == 0 || record[0] >= left ? 0 : 1u + record[0];
    }
};
using ShortStringWalk = PackedWalk<ShortStringRule>;

// The records of a CLStr: a 32-bit count, that many bytes, and zeros up to a multiple of 4.
struct LongStringRule {
    // What a string of `count` bytes takes. Requires a count that isn't negative.
    static constexpr std::size_t Size(int32 count)
    {
        return sizeof(int32) + ((static_cast<std::size_t>(count) + 3) & ~std::size_t{3});
    }

    // The same, or 0 for a count that is negative or more than what is left.
    static constexpr std::size_t WholeSize(int32 count, std::size_t left)
    {
        return count < 0 || Size(count) > left ? 0 : Size(count);
    }

    static std::size_t Size(const unsigned char* record, std::size_t left)
    {
        return left < sizeof(int32) ? 0 : WholeSize(LoadNative<int32>(record), left);
    }
};
using LongStringWalk = PackedWalk<LongStringRule>;

// What becomes of a list: the record from `at` to `end`, or none where the two are equal, gives way to new bytes, or to
// none.
struct RecordChange {
    std::size_t block;  // the block's size
    std::size_t used;   // of it, to the end of the last whole record
    std::size_t at;
    std::size_t end;
    const void* bytes = nullptr;  // of the new record
    std::size_t size = 0;         // of those
    std::size_t padding = 0;      // zeros behind them
    int32 count;                  // of the list afterwards
};

// Makes the change. A record of the old one's size takes its place in the block as that is; else the fit says what
// becomes of the block. The new bytes may stand in the block if no old record goes. On an error the list is as it was:
// kzErrMemoryFull without a report for a list that would be too large, and that of DSSetHandleSize.
KzErr ChangeRecord(void* handle, const RecordChange& change, Fit fit);

// What is wrong with the list in a handle, as a text for a test or an assertion; null if nothing is. A list is sound if
// its block holds a count that isn't negative, and as many whole records. More room than that is no fault.
template <typename Rule>
const char* PackedFault(const void* handle)
{
    const unsigned char* const data = handle == nullptr ? nullptr : GoodData(handle, kRangeAlways);
    if (data == nullptr) {
        return "the list has no handle in use";
    }
    const std::size_t block = HandleDataSize(data);
    if (block < kListCountSize) {
        return "the block of the list holds no count";
    }
    PackedWalk<Rule> walk(data, block);
    walk.Finish();
    if (walk.Claimed() < 0) {
        return "the count of the list is negative";
    }
    return walk.Count() == walk.Claimed() ? nullptr : "the count of the list tells more records than the block holds";
}

// The same for each kind. That of a CLStr looks at the padding too, which is a fault where it isn't zero: a list that a
// host made may have that fault, so it is for tests and not for assertions.
const char* CPStrFault(const void* handle);
const char* CLStrFault(const void* handle);

}  // namespace kz

#endif
