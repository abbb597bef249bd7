#include "HandleLayout.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <random>

namespace {

using kz::HandleAlignment;

TEST(HandleLayout, Alignments)
{
    constexpr unsigned long kBySize[][3] = {
        // the size, the alignment, the offset
        {0, 8, 8},          {1, 8, 8},          {8, 8, 8},          {12, 8, 4},          {1022, 8, 8},
        {1024, 16, 8},      {1025, 16, 0},      {1028, 16, 4},      {2000, 16, 8},       {1048575, 16, 0},
        {1048576, 4096, 8}, {1048577, 4096, 0}, {1048580, 4096, 4}, {ULONG_MAX, 4096, 0}};
    for (const auto& [size, alignment, offset] : kBySize) {
        EXPECT_TRUE((kz::AlignmentForSize(size) == HandleAlignment{alignment, offset})) << size;
    }
    constexpr unsigned long kGiven[][4] = {
        // both as they are given, and as they are
        {0, 0, 8, 8},       {7, 4, 8, 4},     {8, 16, 8, 8},    {8, 12, 8, 12},        {8, 5, 8, 8},
        {9, 0, 16, 0},      {24, 3, 32, 4},   {16, 8, 16, 8},   {32769, 0, 32768, 0},  {ULONG_MAX, 65532, 32768, 65532},
        {16, 65533, 16, 0}, {8, 70004, 8, 4}, {8, 80000, 8, 8}, {64, ULONG_MAX, 64, 0}};
    for (const auto& [givenAlignment, givenOffset, alignment, offset] : kGiven) {
        EXPECT_TRUE((kz::NormalAlignment(givenAlignment, givenOffset) == HandleAlignment{alignment, offset}))
            << givenOffset;
    }
}

// Every part within the block and clear of the others, wherever the allocator puts the block.
TEST(HandleLayout, FitsForEveryAlignmentAndOffset)
{
    constexpr unsigned long kMost = 2 * kz::kMaxHandleAlignment + kz::kMaxHandleOffset + 4096;
    std::unique_ptr<void, decltype(&std::free)> area(std::aligned_alloc(65536, (kMost / 65536 + 2) * 65536),
                                                     &std::free);
    std::mt19937_64 random(1);
    for (int round = 0; round < 200000; ++round) {
        const HandleAlignment align =
            kz::NormalAlignment(8ul << random() % 13, random() % 2 == 0 ? random() % 80 : random() % 65536);
        const unsigned long size = random() % (random() % 2 == 0 ? 16 : 2000), guard = random() % 2 * 8;
        unsigned char* const block = static_cast<unsigned char*>(area.get()) + 8 * (random() % 4096);
        SCOPED_TRACE(round);
        unsigned char* const data = kz::LayOutHandle(block, size, align, guard);
        const unsigned char* const header = data - guard - kz::kHandleHeaderSize;
        ASSERT_EQ(0u, (reinterpret_cast<uintptr_t>(data) + align.offset) % align.alignment);
        ASSERT_LE(data + size + guard, block + kz::HandleBlockSize(size, align, guard));
        ASSERT_TRUE(header == block || header >= block + 4);
        ASSERT_EQ(size, kz::HandleDataSize(data, guard));
        const kz::HandlePlace place = kz::HandleDataPlace(data, guard);
        ASSERT_TRUE(place.block == block && place.size == size && place.align == align);
        ASSERT_EQ(0u, kz::HandleBlockSize(ULONG_MAX - random() % 17, align, 0)) << "the sum wraps";
        ASSERT_NE(0u, kz::HandleBlockSize(ULONG_MAX / 2, align, 8));
    }
}

}  // namespace
