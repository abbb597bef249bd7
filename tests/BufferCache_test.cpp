#include "BufferCache.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "CfgAccess.h"
#include "CfgSlot.h"
#include "FaultLoop.h"
#include "HandleLayout.h"
#include "KzErr.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

constexpr unsigned long kThreshold = 0x1E00000;

class BufferCacheTest : public testing::Test {
protected:
    ~BufferCacheTest() override { EXPECT_EQ(nullptr, kz::BufferCacheFault()); }

    // Makes and disposes a block of this size; the address of its data, for comparisons.
    static unsigned char* Keep(unsigned long size)
    {
        UHandle const handle = DSNewHandle(size);
        unsigned char* const data = *handle;
        DSDisposeHandleCache(handle);
        return data;
    }

    // Whether a cached request gets this block.
    static bool Gets(unsigned long size, const unsigned char* data)
    {
        UHandle const handle = DSNewHandleCache(size);
        const bool got = *handle == data;
        DSDisposeHandle(handle);
        return got;
    }

    static bool HasKept(unsigned long size)
    {
        BufferCache::iterator found;
        return s_bufferCachePtr.load()->FindBuffer(size, found) && found->size == size;
    }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

TEST_F(BufferCacheTest, SizesThatAreKept)
{
    for (const auto& [size, kept] :
         {std::pair(16383ul, false), {16384ul, true}, {kThreshold - 1, true}, {kThreshold, false}}) {
        EXPECT_EQ(kept, s_bufferCachePtr.load()->CanCacheAllocation(size)) << size;
        Keep(size);
        EXPECT_EQ(kept, HasKept(size)) << size;
        s_bufferCachePtr.load()->ClearCache();
    }
}

TEST_F(BufferCacheTest, OnlyTheBestFitOfJustTheSizeIsUsed)
{
    unsigned char* const data = Keep(30000);
    UHandle other = DSNewHandleCache(20000);
    EXPECT_TRUE(HasKept(30000)) << "a larger block does not serve";
    UHandle aligned = DSNewAlignedHandle(30000, 4096, 8);  // not by the cache
    EXPECT_TRUE(HasKept(30000));
    EXPECT_TRUE(Gets(30000, data));
    EXPECT_FALSE(HasKept(30000));

    // A finer alignment serves a coarser request, another offset does not.
    unsigned char* const fine = *aligned;
    DSDisposeHandleCache(aligned);
    EXPECT_EQ(fine, s_bufferCachePtr.load()->GetAllocation(30000, 16, 8));
    kz::FreeHandleData(fine);
    aligned = DSNewAlignedHandle(30000, 16, 4);
    DSDisposeHandleCache(aligned);
    EXPECT_EQ(nullptr, s_bufferCachePtr.load()->GetAllocation(30000, 16, 8));
    EXPECT_EQ(nullptr, s_bufferCachePtr.load()->GetAllocation(30000, 32, 4));
    s_bufferCachePtr.load()->ClearCache();

    // Of two the newer one is taken, and behind it alone nothing is looked at.
    UHandle const a = DSNewHandle(20000);
    UHandle const b = DSNewAlignedHandle(20000, 16, 0);
    unsigned char* const first = *a;
    DSDisposeHandleCache(a);
    DSDisposeHandleCache(b);
    EXPECT_FALSE(Gets(20000, first)) << "the newer one has another offset";
    s_bufferCachePtr.load()->ClearCache();
    DSDisposeHandle(other);
}

TEST_F(BufferCacheTest, NewestStayWithinBothLimits)
{
    for (unsigned long i = 0; i < 6; ++i) {
        Keep(20000 + i);
    }
    EXPECT_FALSE(HasKept(20000)) << "the oldest of six";
    for (unsigned long i = 1; i < 6; ++i) {
        EXPECT_TRUE(HasKept(20000 + i));
    }
    Keep(kThreshold - 20000 * 2);
    EXPECT_TRUE(HasKept(kThreshold - 20000 * 2));
    EXPECT_TRUE(HasKept(20005));
    EXPECT_FALSE(HasKept(20004)) << "too many bytes";
}

TEST_F(BufferCacheTest, ReusedBlocksAreClearedAndKeepTheRest)
{
    UHandle handle = DSNewHandleCache(20000);
    std::memset(*handle, 0xAB, 20000);
    EXPECT_EQ(0, DSDisposeHandleCache(handle));
    handle = DSNewHClrCache(20000);
    EXPECT_EQ(std::string(20000, 0), std::string(*handle, *handle + 20000));
    std::memset(*handle, 0xCD, 20000);
    Keep(40000);
    EXPECT_EQ(0, DSSetHSzClrCache(handle, 40000));
    EXPECT_FALSE(HasKept(40000)) << "the resize took it";
    EXPECT_FALSE(HasKept(20000)) << "the old block went to the system";
    EXPECT_EQ(std::string(20000, '\xCD') + std::string(20000, 0), std::string(*handle, *handle + 40000));
    EXPECT_EQ(3, DSDisposeHandleCache(*handle));
    EXPECT_EQ(2u, reports.TakeAll().size());
    EXPECT_EQ(0, DSDisposeHandleCache(handle));
    EXPECT_EQ(0, DSDisposeHandleCache(nullptr));
}

int32 gSizes[3];

TEST_F(BufferCacheTest, Tokens)
{
    static std::vector<std::string> sAsked;
    sAsked.clear();
    const kz::CfgAccess access = {nullptr,
                                  [](ConfigManager*, uInt32 type, const unsigned char* token, void* out) -> KzErr {
                                      const std::string name(token + 1, token + 1 + token[0]);
                                      const std::size_t which = sAsked.size();
                                      sAsked.push_back(name + (type == kz::FourCharCode("I32 ")   ? " I32"
                                                               : type == kz::FourCharCode("F32 ") ? " F32"
                                                                                                  : " ?"));
                                      if (which >= 3 || gSizes[which] < 0) {
                                          return kzErrTokenNotFound;
                                      }
                                      std::memcpy(out, &gSizes[which], sizeof gSizes[which]);
                                      return kzErrNone;
                                  }};
    kz::SetMainCfgAccess(&access);
    gSizes[0] = 100;
    gSizes[1] = 2;
    gSizes[2] = -1;  // not set
    ReadConfigTokensForBufferCache();
    kz::SetMainCfgAccess(nullptr);
    const std::vector<std::string> expected = {
        "SelectiveDeallocation.BufferCache.MinBufferSize I32", "SelectiveDeallocation.BufferCache.MaxSize I32",
        "SelectiveDeallocation.BufferCache.CleanUpThreshold I32", "SelectiveDeallocation.BufferCache.ResizeFactor F32"};
    EXPECT_EQ(expected, sAsked);
    EXPECT_TRUE(s_bufferCachePtr.load()->CanCacheAllocation(100));
    EXPECT_FALSE(s_bufferCachePtr.load()->CanCacheAllocation(99));
    EXPECT_FALSE(s_bufferCachePtr.load()->CanCacheAllocation(kThreshold));
    Keep(100);
    Keep(200);
    Keep(300);
    EXPECT_FALSE(HasKept(100));
    EXPECT_TRUE(HasKept(300));
}

TEST(BufferCacheWithoutMemory, TokensBeforeTheServiceRuns)
{
    EXPECT_EQ(nullptr, kz::BufferCacheFault());
    ReadConfigTokensForBufferCache();
}

TEST_F(BufferCacheTest, OutOfMemory)
{
    kztest::FaultLoop([](auto failed) {
        UHandle handle = DSNewHandleCache(20000);
        EXPECT_EQ(failed(), handle == nullptr);
        EXPECT_EQ(0, DSDisposeHandleCache(handle)) << "a block that can't be kept is freed";
        s_bufferCachePtr.load()->ClearCache();
    });
}

TEST_F(BufferCacheTest, ManyThreads)
{
    std::vector<std::jthread> threads;
    for (unsigned seed = 0; seed < 8; ++seed) {
        threads.emplace_back([seed] {
            std::mt19937 random(seed);
            for (int i = 0; i < 3000; ++i) {
                const unsigned long size = 20000 + random() % 4 * 8;
                UHandle const handle = DSNewHandleCache(size);
                std::memset(*handle, static_cast<int>(seed), size);
                EXPECT_EQ(seed, (*handle)[size - 1]);
                EXPECT_EQ(0, DSDisposeHandleCache(handle));
            }
        });
    }
}

}  // namespace
