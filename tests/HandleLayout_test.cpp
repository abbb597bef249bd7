#include "HandleLayout.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kz::HandleAlignment;

TEST(HandleLayout, Alignments)
{
    const std::pair<unsigned long, HandleAlignment> kBySize[] = {
        {0, {8, 8}},          {1, {8, 8}},          {8, {8, 8}},          {12, {8, 4}},           {1022, {8, 8}},
        {1024, {16, 8}},      {1025, {16, 0}},      {1028, {16, 4}},      {2000, {16, 8}},        {1048575, {16, 0}},
        {1048576, {4096, 8}}, {1048577, {4096, 0}}, {1048580, {4096, 4}}, {ULONG_MAX, {4096, 0}},
    };
    for (const auto& [size, align] : kBySize) {
        EXPECT_TRUE(align == kz::AlignmentForSize(size)) << size;
    }
    const std::pair<HandleAlignment, HandleAlignment> kGiven[] = {
        {{0, 0}, {8, 8}},         {{7, 4}, {8, 4}},
        {{8, 16}, {8, 8}},        {{8, 12}, {8, 12}},
        {{8, 5}, {8, 8}},         {{9, 0}, {16, 0}},
        {{24, 3}, {32, 4}},       {{16, 8}, {16, 8}},
        {{32769, 0}, {32768, 0}}, {{ULONG_MAX, 65532}, {32768, 65532}},
        {{16, 65533}, {16, 0}},   {{8, 70004}, {8, 4}},
        {{8, 80000}, {8, 8}},     {{64, ULONG_MAX}, {64, 0}},
    };
    for (const auto& [given, align] : kGiven) {
        EXPECT_TRUE(align == kz::NormalAlignment(given.alignment, given.offset)) << given.offset;
    }
}

// Every part within the block and clear of the others, wherever the allocator puts the block.
void CheckLayout(unsigned char* block, unsigned long size, HandleAlignment align, unsigned long guard)
{
    unsigned char* const data = kz::LayOutHandle(block, size, align, guard);
    const unsigned char* const header = data - guard - kz::kHandleHeaderSize;
    ASSERT_EQ(0u, (reinterpret_cast<uintptr_t>(data) + align.offset) % align.alignment);
    ASSERT_LE(data + size + guard, block + kz::HandleBlockSize(size, align, guard));
    ASSERT_TRUE(header == block || header >= block + 4);
    ASSERT_EQ(size, kz::HandleDataSize(data, guard));
    const kz::HandlePlace place = kz::HandleDataPlace(data, guard);
    ASSERT_EQ(block, place.block);
    ASSERT_TRUE(align == place.align);
}

TEST(HandleLayout, FitsForEveryAlignmentAndOffset)
{
    constexpr unsigned long kMost = 2 * kz::kMaxHandleAlignment + kz::kMaxHandleOffset + 4096;
    std::unique_ptr<void, decltype(&std::free)> area(std::aligned_alloc(65536, (kMost / 65536 + 2) * 65536),
                                                     &std::free);
    std::vector<unsigned long> offsets = {1020, 4092, 32764, 32768, 65528, 65532};
    for (unsigned long offset = 0; offset <= 72; offset += 4) {
        offsets.push_back(offset);
    }
    for (unsigned long alignment = 8; alignment <= kz::kMaxHandleAlignment; alignment *= 2) {
        for (const unsigned long offset : offsets) {
            const HandleAlignment align = kz::NormalAlignment(alignment, offset);
            for (const unsigned long size : {0ul, 1ul, 4ul, 7ul, 8ul, 12ul, 100ul, 1023ul, 1028ul, 2000ul}) {
                for (const unsigned long at : {0ul, 8ul, 16ul, 24ul, 40ul, 4088ul, 32760ul}) {
                    for (const unsigned long guard : {0ul, 8ul}) {
                        CheckLayout(static_cast<unsigned char*>(area.get()) + at, size, align, guard);
                    }
                    ASSERT_FALSE(HasFatalFailure()) << alignment << "/" << offset << " size " << size << " at " << at;
                }
            }
            for (const unsigned long size : {ULONG_MAX, ULONG_MAX - 7, ULONG_MAX - 15, ULONG_MAX - 16}) {
                EXPECT_EQ(0u, kz::HandleBlockSize(size, align, 0)) << "the sum wraps";
            }
            EXPECT_NE(0u, kz::HandleBlockSize(ULONG_MAX / 2, align, 8));
        }
    }
}

}  // namespace
