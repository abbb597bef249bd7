#include "BufferCache.h"

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "CfgAccess.h"
#include "CfgSlot.h"
#include "KzErr.h"
#include "RunningMemory.h"

namespace {

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

TEST_F(BufferCacheTest, AlignedMoreServesAlignedLessDoesNot)
{
    DSDisposeHandleCache(DSNewAlignedHandle(20000, 32, 8));
    EXPECT_EQ(nullptr, s_bufferCachePtr.load()->GetAllocation(20000, 64, 8));
    unsigned char* const data = s_bufferCachePtr.load()->GetAllocation(20000, 16, 8);
    ASSERT_NE(nullptr, data);
    kz::FreeHandleData(data);
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
