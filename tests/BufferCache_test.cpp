#include "BufferCache.h"

#include <cstring>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "CfgAccess.h"
#include "CfgSlot.h"
#include "KzErr.h"
#include "RunningMemory.h"

namespace {

using kz::HandleAlignment;

// The tokens that the configuration has, behind "SelectiveDeallocation.BufferCache.", and what was asked for.
std::map<std::string, int32> gTokens;
std::vector<std::string> gAsked;

void ReadTokens(BufferCache& cache, const std::map<std::string, int32>& tokens)
{
    static const kz::CfgAccess kAccess = {
        nullptr, [](ConfigManager*, uInt32 type, const unsigned char* token, void* out) -> KzErr {
            const std::string name(token + 1, token + 1 + token[0]);
            gAsked.push_back(name + (type == kz::FourCharCode("F32 ") ? " F32" : " " + std::to_string(type)));
            const auto found = gTokens.find(name.substr(name.rfind('.') + 1));
            return found == gTokens.end() ? kzErrTokenNotFound
                                          : (std::memcpy(out, &found->second, sizeof(int32)), kzErrNone);
        }};
    gTokens = tokens;
    gAsked.clear();
    kz::SetMainCfgAccess(&kAccess);
    cache.ReadConfigTokens();
    kz::SetMainCfgAccess(nullptr);
}

class BufferCacheTest : public kztest::MemoryTest {};

// Blocks of few sizes, some sums of which are just the limit, come and are asked for by chance.
TEST_F(BufferCacheTest, HoldsTheNewestWithinItsLimits)
{
    struct Kept {
        unsigned long size;
        HandleAlignment align;
        unsigned char* data;
    };
    constexpr unsigned long kSizes[] = {100, 200, 300, 400, 500, 101, 99, 999, 1000};
    constexpr HandleAlignment kAligns[] = {{8, 8}, {16, 8}, {32, 8}, {16, 0}};
    BufferCache cache(0, 1, 1, 1);
    ReadTokens(cache, {{"MinBufferSize", 100}, {"MaxSize", 5}, {"CleanUpThreshold", 1000}});
    std::list<Kept> model;  // the newest first
    unsigned long total = 0;
    const auto best = [&](unsigned long size) {
        auto found = model.end();
        for (auto it = model.begin(); it != model.end(); ++it) {
            found = it->size >= size && (found == model.end() || it->size < found->size) ? it : found;
        }
        return found;
    };
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        const unsigned long size = kSizes[random() % 8 == 0 ? random() % 9 : random() % 5];
        const HandleAlignment align = kAligns[random() % 4];
        const bool fits = size >= 100 && size < 1000;
        ASSERT_EQ(fits, cache.CanCacheAllocation(size));
        if (fits && random() % 5 < 3) {
            unsigned long blockSize;
            model.push_front({size, align, kz::AllocateHandleData(size, align, kz::Fill::kNone, &blockSize)});
            cache.AddAllocation(model.front().data, size);
            for (total += size; model.size() > 5 || total > 1000; model.pop_back()) {
                total -= model.back().size;
            }
        } else {
            const auto found = best(size);
            const bool serves = found != model.end() && found->size == size && found->align.offset == align.offset &&
                                found->align.alignment % align.alignment == 0;
            ASSERT_EQ(serves ? found->data : nullptr, cache.GetAllocation(size, align.alignment, align.offset));
            if (serves) {
                kz::FreeHandleData(found->data);
                model.erase(found);
                total -= size;
            }
        }
        for (const unsigned long each : kSizes) {
            BufferCache::iterator found;
            ASSERT_EQ(best(each) != model.end(), cache.FindBuffer(each, found)) << round << " " << each;
            ASSERT_TRUE(best(each) == model.end() || best(each)->data == found->data) << round << " " << each;
        }
        ASSERT_STREQ(nullptr, cache.Fault());
    }
}

TEST_F(BufferCacheTest, LimitsAreThoseOfTheTokensOrStandard)
{
    constexpr unsigned long kMost = 0x1E00000;
    const struct {
        std::map<std::string, int32> tokens;
        unsigned long smallest, behind, entries;
    } cases[] = {
        {{}, 16384, kMost, 5},
        {{{"MinBufferSize", 100}}, 100, kMost, 5},
        {{{"MaxSize", 2}, {"ResizeFactor", 0}}, 16384, kMost, 2},
        {{{"MinBufferSize", -5}, {"MaxSize", -1}, {"CleanUpThreshold", 50000}}, 0, 50000, 0},
        {{{"CleanUpThreshold", -1}}, 16384, 0, 0},
    };
    for (const auto& c : cases) {
        kz::DestroyBufferCache();
        kz::CreateBufferCache();
        BufferCache& cache = *s_bufferCachePtr.load();
        ReadTokens(cache, c.tokens);
        for (const unsigned long size : {0ul, 99ul, 100ul, 16383ul, 16384ul, 49999ul, 50000ul, kMost - 1, kMost}) {
            EXPECT_EQ(size >= c.smallest && size < c.behind, cache.CanCacheAllocation(size)) << size;
        }
        for (unsigned long i = 0; i < 8; ++i) {
            DSDisposeHandleCache(DSNewHandle(20000 + i));
        }
        for (unsigned long i = 0; i < 8; ++i) {
            BufferCache::iterator found;
            const bool isThere = cache.FindBuffer(20000 + i, found) && found->size == 20000 + i;
            EXPECT_EQ(i + c.entries >= 8, isThere) << i;
        }
    }
    const std::string prefix = "SelectiveDeallocation.BufferCache.",
                      type = " " + std::to_string(kz::FourCharCode("I32 "));
    EXPECT_EQ(std::vector<std::string>({prefix + "MinBufferSize" + type, prefix + "MaxSize" + type,
                                        prefix + "CleanUpThreshold" + type, prefix + "ResizeFactor F32"}),
              gAsked);
}

TEST_F(BufferCacheTest, OutOfMemory)
{
    kztest::FaultLoop([](auto failed) {
        UHandle handle = DSNewHandleCache(20000);
        EXPECT_EQ(failed(), handle == nullptr);
        EXPECT_EQ(0, DSDisposeHandleCache(handle)) << "a block that can't be kept is freed";
        s_bufferCachePtr.load()->ClearCache();
    });
    // Without its lock nothing is kept, and without an instance there is nothing to read the tokens for.
    const kztest::FailAllocation fail(1, kztest::FailAllocation::kOnce, kztest::FailAllocation::kBlocksAndNew);
    BufferCache cache(0, 5, 1000, 1);
    ReadTokens(cache, {{"MinBufferSize", 0}});
    EXPECT_FALSE(cache.CanCacheAllocation(100));
    EXPECT_TRUE(gAsked.empty());
    kz::DestroyBufferCache();
    EXPECT_EQ(nullptr, kz::BufferCacheFault());
    ReadConfigTokensForBufferCache();
}

}  // namespace
