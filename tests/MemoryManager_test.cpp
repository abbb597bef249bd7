#include "MemoryManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "BufferCache.h"
#include "ChildTest.h"
#include "HandleAllocationInterface.h"
#include "HandleLayout.h"
#include "MemoryChecks.h"
#include "MemoryZone.h"
#include "ResidentPages.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;

class MemoryManager : public kztest::MemoryTest {};

// Counts of the zone, touched without its lock while no other thread makes a handle.
uInt32& BlockCount() KZ_NO_THREAD_CHECK
{
    return kz::MemZone()->blockCount;
}

uInt32& FreeMasterCount() KZ_NO_THREAD_CHECK
{
    return kz::MemZone()->freeMasterCount;
}

uInt32 PointersMade()
{
    uInt64 words[2];
    DSReadCounters(words);
    return static_cast<uInt32>(words[0] >> 32);
}

// The calls on the address of a variable `v`. How many of them take an argument of type T is a matter of compilation.
#define KZ_CALL(call) [](auto v) -> decltype(call) { return {}; }
constexpr std::tuple kCallsOnVariables{
    KZ_CALL(DSSetHandleSizeOrNewHandle(v, 1)),
    KZ_CALL(DSSetHSzOrNewHClr(v, 1)),
    KZ_CALL(DSSetHandleSizeOrNewHandleCache(v, 1)),
    KZ_CALL(DSSetHSzOrNewHClrCache(v, 1)),
    KZ_CALL(DataSetHandleSizeOrNewHandle(v, 1)),
    KZ_CALL(DataSetHSzOrNewHClr(v, 1)),
    KZ_CALL(DSDisposeHandleAndNull(v)),
    KZ_CALL(DSCopyHandle(v, nullptr)),
    KZ_CALL(AZCopyHandle(v, nullptr)),
    KZ_CALL(DSHandToHand(v)),
    KZ_CALL(AZHandToHand(v)),
    KZ_CALL(DSSetHandleFromPtr(v, "", 1)),
    KZ_CALL(AZSetHandleFromPtr(v, "", 1)),
    KZ_CALL(DSSetHandleFromPtrNULLMeansEmpty(v, "", 1)),
    KZ_CALL(DSPtrToHand("", v, 1)),
    KZ_CALL(AZPtrToHand("", v, 1)),
    KZ_CALL(std::declval<NormalHandleAllocationInterface>().ResizeHandleOrAllocateHandle(v, 1)),
    KZ_CALL(std::declval<HandleAllocationInterface>().ResizeHandleOrAllocateHandleClr(v, 1)),
};
template <typename T, typename... Calls>
constexpr unsigned long CountTakers(const std::tuple<Calls...>& /*calls*/)
{
    return (0ul + ... + std::is_invocable_v<Calls, T>);
}
template <unsigned long count, typename... T>
constexpr bool kTakeEach = ((CountTakers<T>(kCallsOnVariables) == count) && ...);
static_assert(kTakeEach<std::tuple_size_v<decltype(kCallsOnVariables)>, UHandle*, LStr***, void*, std::nullptr_t>);
static_assert(kTakeEach<0, UHandle, LStr**, std::string*, const UHandle*>);

// Zeros that nobody has used yet take no memory.
TEST_F(MemoryManager, ClearedMemoryIsNotTouched)
{
    constexpr unsigned long kSize = 1ul << 30;
    UHandle handle = DSNewHClr(kSize);
    ASSERT_NE(nullptr, handle);
    EXPECT_TRUE(kztest::IsUntouched(*handle, kSize));
    EXPECT_EQ(0, (*handle)[kSize - 1]);
    EXPECT_EQ(0, DSSetHandleSize(handle, 5));
    std::memset(*handle, 7, 5);
    EXPECT_EQ(0, DSSetHSzClr(handle, kSize));
    EXPECT_TRUE(kztest::IsUntouched(*handle, kSize));
    EXPECT_EQ(0, BlockCmp(*handle, "\7\7\7\7\7\0\0\0", 8));
    EXPECT_EQ(0, DSDisposeHandle(handle));
    void* const ptr = DSNewPClr(kSize);
    EXPECT_TRUE(kztest::IsUntouched(ptr, kSize));
    EXPECT_EQ(0, DSDisposePtr(ptr));
}

std::vector<unsigned long> gMemFullSizes;
int gMoves = 0;

TEST_F(MemoryManager, PointersAndPlainBytes)
{
    SetMemFullProc([](unsigned long size) { gMemFullSizes.push_back(size); });
    SetMemoryCheckCallback([] { ++gMoves; });
    gMemFullSizes.clear();
    gMoves = 0;
    const uInt32 made = PointersMade();
    for (void* (*const make)(unsigned long) : {&DSNewPtr, &AZNewPtr, &DSNewPClr, &AZNewPClr}) {
        const bool clears = make == &DSNewPClr || make == &AZNewPClr;
        for (const unsigned long size : {0ul, 300ul, 4095ul, 4096ul, 5000ul}) {
            auto* const bytes = static_cast<unsigned char*>(make(size));
            EXPECT_EQ(0, DSCheckPtr(bytes) + AZCheckPtr(bytes));
            EXPECT_TRUE(!clears || std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; }));
            std::fill_n(bytes, size, static_cast<unsigned char>(7));  // for the next one of the size
            EXPECT_EQ(0, clears ? AZDisposePtr(bytes) : DSDisposePtr(bytes));
        }
        for (const unsigned long size : {~0ul, ~0ul - 15, ~0ul / 2}) {
            EXPECT_EQ(nullptr, make(size));
            EXPECT_EQ(std::vector<unsigned long>{size}, std::exchange(gMemFullSizes, {}));
        }
    }
    EXPECT_EQ(made + 20, PointersMade());
    EXPECT_EQ(3, DSCheckPtr(nullptr));
    EXPECT_EQ(1, DSDisposePtr(nullptr));
    SetMemFullProc(nullptr);

    char bytes[] = "abcdefgh";
    MoveBlock(bytes, bytes + 2, 6);
    EXPECT_STREQ("ababcdef", bytes);
    ClearMem(bytes + 1, 2);
    EXPECT_EQ(0, BlockCmp(bytes, "a\0\0bcdef", 8));
    EXPECT_EQ(2, gMoves);
    EXPECT_LT(BlockCmp("a", "b", 1), 0);
    SetMemoryCheckCallback(nullptr);
    MoveBlock(nullptr, nullptr, 0);
    ClearMem(nullptr, 0);
    EXPECT_EQ(0, BlockCmp(nullptr, nullptr, 0));
}

TEST_F(MemoryManager, NoHandleAndNoCounters)
{
    EXPECT_EQ(3, DSCheckHandle(nullptr));
    EXPECT_EQ(3, AZCheckHandle(nullptr));
    EXPECT_FALSE(IsDSHandle(nullptr));
    DSReadCounters(nullptr);
    DSSetCounters(nullptr);
    UHandle const handle = DSNewHandle(8);
    EXPECT_EQ(handle, DSRecoverHandle(*handle));
    EXPECT_EQ(handle, AZRecoverHandle(*handle));
    EXPECT_TRUE(reports.TakeAll().empty());
    EXPECT_EQ(0u, DSGetHandleSize(nullptr) + AZGetHandleSize(nullptr));
    EXPECT_EQ(nullptr, DSRecoverHandle(nullptr));
    EXPECT_EQ(3u, reports.TakeAll().size());
    for (void* none : {static_cast<void*>(handle), static_cast<void*>(*handle + 1)}) {
        EXPECT_EQ(nullptr, AZRecoverHandle(none));
        EXPECT_TRUE(reports.Take(kDbgFatal, "Pointer passed to BRecoverHandle not linked to master pointer!"));
    }
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, SwapsOfAnyAlignment)
{
    for (unsigned from = 0; from < 4; ++from) {
        for (unsigned to = 0; to < 4; ++to) {
            for (unsigned n = 0; n < 20; ++n) {
                alignas(4) unsigned char a[24];
                alignas(4) unsigned char b[24];
                std::fill(a, a + 24, static_cast<unsigned char>(1));
                std::fill(b, b + 24, static_cast<unsigned char>(2));
                SwapBlock(a + from, b + to, n);
                EXPECT_EQ(n, std::count(a + from, a + from + n, 2));
                EXPECT_EQ(n, std::count(b + to, b + to + n, 1));
                EXPECT_EQ(24 - n, std::count(a, a + 24, 1));
            }
        }
    }
}

// Writes over words, and puts back what stood there.
class Damage {
public:
    ~Damage()
    {
        for (auto it = mUndo.rbegin(); it != mUndo.rend(); ++it) {
            (*it)();
        }
    }
    template <typename Word>
    void Write(void* at, Word word)
    {
        Word old;
        std::memcpy(&old, at, sizeof old);
        mUndo.emplace_back([at, old] { std::memcpy(at, &old, sizeof old); });
        std::memcpy(at, &word, sizeof word);
    }

private:
    std::vector<std::function<void()>> mUndo;
};

// Each look of the walk over all memory sees its damage; heap checks, with the memory debugger, that of the chains.
TEST_F(MemoryManager, DamageIsSeen)
{
    UHandle const handle = DSNewAlignedHandle(100, 64, 4);
    unsigned char* const header = *handle - kz::kHandleHeaderSize;
    unsigned char* const tag = kz::HandleDataPlace(*handle).block;
    DSDisposeHandleCache(DSNewHandle(20000));
    BufferCache::iterator kept;
    ASSERT_TRUE(s_bufferCachePtr.load()->FindBuffer(1, kept));
    unsigned char* const keptHeader = kept->data - kz::kHandleHeaderSize;
    kz::MemZoneRec* const zone = kz::MemZone();
    auto* const index = const_cast<kz::MasterBlockIndex*>(zone->index.load());
    kz::MasterWord* const masters = kz::NewestBlock(zone)->masters;  // the first is the handle's
    ASSERT_TRUE(kz::FindMasterBlock(zone, handle)) << "which makes its block a recent one";
    const auto linkTo = [](void* to) { return static_cast<char*>(to) + 1; };
    const struct {
        const char* fault;
        const char* report;  // of a heap check, null where it does not look
        std::function<void(Damage&)> harm;
    } cases[] = {
        {"more blocks in the chain than counted", "MemCheck error, m.p. block chain error 1",
         [](Damage& d) { d.Write(&BlockCount(), BlockCount() - 1); }},
        {"fewer blocks in the chain than counted", "MemCheck error, m.p. block chain error 2",
         [](Damage& d) { d.Write(&BlockCount(), BlockCount() + 1); }},
        {"more or fewer blocks in the index", "bad freemaster count",
         [&](Damage& d) { d.Write(&index->count, index->count - 1); }},
        {"a block is not in the index", "bad freemaster count",
         [&](Damage& d) { d.Write(&index->blocks[2], index->blocks[1]); }},
        {"a recent block is no block", nullptr, [&](Damage& d) { d.Write(&zone->recent[0], masters); }},
        {"a recent block is no block", nullptr, [&](Damage& d) { d.Write(&zone->recent[1], masters); }},
        {"a slot of the granules holds no block", nullptr,
         [&](Damage& d) { d.Write(&zone->granules.load()->slots[63].blocks[1], masters); }},
        {"the free chain is shorter", "bad freemaster count", [](Damage& d) { d.Write(&FreeMasterCount(), 1u << 31); }},
        {"the free chain is shorter", "bad freemaster count",
         [](Damage& d) { d.Write(&FreeMasterCount(), FreeMasterCount() + 1); }},
        {"the free chain is longer", "freemaster chain isn't NULL terminated!",
         [](Damage& d) { d.Write(&FreeMasterCount(), FreeMasterCount() - 1); }},
        {"leaves the free masters", "bad freemaster count", [&](Damage& d) { d.Write(masters + 1, zone); }},
        {"leaves the free masters", "bad freemaster count", [&](Damage& d) { d.Write(masters + 1, linkTo(zone)); }},
        {"leaves the free masters", "bad freemaster count", [&](Damage& d) { d.Write(masters + 1, linkTo(handle)); }},
        {"leaves the free masters", "bad freemaster count",
         [&](Damage& d) { d.Write(masters + 1, linkTo(reinterpret_cast<char*>(masters + 2) + 4)); }},
        {"free masters outside the free chain", nullptr,
         [&](Damage& d) {
             d.Write(masters + 1, masters[2]);
             d.Write(&FreeMasterCount(), FreeMasterCount() - 1);
         }},
        {"a handle's alignment or offset is damaged", nullptr, [&](Damage& d) { d.Write(tag, uInt16{63}); }},
        {"a handle's data is not aligned", nullptr, [&](Damage& d) { d.Write(tag + 2, uInt16{8}); }},
        {"a handle's size is damaged", nullptr, [&](Damage& d) { d.Write(header, ~0ul); }},
        {"a kept block's header does not", nullptr, [&](Damage& d) { d.Write(keptHeader, 20001ul); }},
        {"the kept blocks' sizes do not add up", nullptr,
         [&](Damage& d) {
             d.Write(keptHeader, 20001ul);
             d.Write(&kept->size, 20001ul);
         }},
    };
    SetMemoryDebugger(1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        ASSERT_STREQ(nullptr, kz::MemoryFault());
        Damage damage;
        c.harm(damage);
        const char* const fault = kz::MemoryFault();
        EXPECT_NE(nullptr, std::strstr(fault == nullptr ? "" : fault, c.fault)) << fault;
        EXPECT_EQ(c.report != nullptr ? 74 : 0, AZHeapCheck(0));
        EXPECT_TRUE(c.report == nullptr || reports.Take(kDbgFatal, c.report));
        if (c.report != nullptr && std::strstr(c.report, "freemaster") != nullptr) {
            EXPECT_EQ(nullptr, DSNewHandle(1)) << "no master is taken off a damaged chain";
            EXPECT_TRUE(reports.Take(kDbgFatal, c.report));
        }
        EXPECT_TRUE(reports.TakeAll().empty());
    }
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, HeapChecksAndStatistics)
{
    const auto logs = [this] {
        const auto all = reports.TakeAll();
        EXPECT_TRUE(all.size() != 3 || (all[0].text == "Free: totFreeSize 0, maxFreeSize 0" &&
                                        all[1].text.starts_with("Allocated to ZV: totAllocSize ") &&
                                        all[2].text == "Total: totPhysSize 0"));
        return all.size();
    };
    EXPECT_EQ(0, DSHeapCheck(1));
    EXPECT_EQ(3u, logs());
    EXPECT_EQ(0, DSCompact());
    EXPECT_EQ(0u, logs());
    SetMemoryDebugger(1);
    DSDisposePtr(DSNewPClr(3));
    EXPECT_EQ(0u, logs());
    EXPECT_EQ(0, DSCompact());
    EXPECT_EQ(3u, logs());
    EXPECT_FALSE(ToggleMemoryDebugging());
    EXPECT_TRUE(reports.Take(kDbgLog, "turning memory checking off"));
    EXPECT_FALSE(MemCheckHeaps());
    EXPECT_TRUE(reports.Take(kDbgLog, "turning memory checking on"));
    EXPECT_TRUE(reports.Take(kDbgLog, "turning memory checking off"));
    EXPECT_EQ(3u, logs());

    // The data segment, which the C library moves for no size of ours.
    MemStatRec stats;
    EXPECT_EQ(0, AZMemStats(&stats));
    const uInt64 before = stats.totAllocSize;
    ASSERT_NE(reinterpret_cast<void*>(-1), sbrk(4096));
    uInt64 growth = 1;
    uInt32 last = 1;
    EXPECT_EQ(0, DSMemStats2(nullptr, nullptr, nullptr, &growth, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, &last));
    EXPECT_EQ(before + 4096, growth);
    EXPECT_EQ(0, AZHeapCheck(1));
    EXPECT_TRUE(reports.Take(kDbgLog, "Allocated to ZV: totAllocSize " + std::to_string(growth)));
    EXPECT_EQ(0u, last);
    EXPECT_EQ(80u, sizeof stats);
}

TEST_F(MemoryManager, CheckLevels)
{
    UHandle const good = DSNewHandle(8);
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    kztest::ForeignHandle foreign;
    unsigned char* zeroMaster = nullptr;
    const struct {
        uInt32 level;
        KzErr azCheck;
        unsigned long size;
        KzErr resize;
        std::size_t reports;
    } cases[] = {{0, 0, 24, 0, 0}, {1, 3, 24, 3, 2}, {2, 3, 0, 3, 3}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.level, DSSetHandleChecking(c.level));
        EXPECT_EQ(c.azCheck, AZCheckHandle(foreign));
        EXPECT_EQ(c.size, DSGetHandleSize(foreign));
        // The same size and alignment: a call that passes validation changes nothing.
        EXPECT_EQ(c.resize, DSSetHandleSize(foreign, 24));
        EXPECT_EQ(c.reports, reports.TakeAll().size());
        EXPECT_EQ(3, DSCheckHandle(foreign));
        for (const void* bad : {static_cast<const void*>(stale), static_cast<const void*>(&zeroMaster),
                                static_cast<const void*>(reinterpret_cast<char*>(good) + 1)}) {
            EXPECT_EQ(3, AZCheckHandle(bad));
            EXPECT_EQ(3, DSCheckHandle(bad));
        }
        EXPECT_EQ(0, AZCheckHandle(good));
        EXPECT_EQ(0, DSCheckHandle(good));
    }
    EXPECT_EQ(2u, DSSetHandleChecking(77));
    EXPECT_EQ(0, DSDisposeHandle(good));
}

TEST_F(MemoryManager, TheSixthBlockComesOnDemandAndOnlyMastersInUseAreHandles)
{
    // A host may use the library in the procedure; a lock held by the caller would never be released.
    const MemFullProc proc = [](unsigned long size) {
        gMemFullSizes.push_back(size);
        EXPECT_EQ(50000u, kz::LiveHandleCount());
    };
    const MemFullProc standard = SetMemFullProc(proc);
    std::set<UHandle> handles;
    while (handles.size() < 50000) {
        ASSERT_TRUE(handles.insert(DSNewHandle(4)).second);
    }
    EXPECT_EQ(5u, BlockCount());
    for (const auto& [n, sizes] : {std::pair(1, std::vector{80008ul, 35ul}), {2, {80008, 35}}, {3, {35}}}) {
        gMemFullSizes.clear();
        FailAllocation fail(n);  // the block, the index, the data
        EXPECT_EQ(nullptr, DSNewHandle(35));
        EXPECT_EQ(sizes, gMemFullSizes);
    }
    EXPECT_EQ(proc, SetMemFullProc(nullptr));
    CallSetMemFullProc(1);
    EXPECT_EQ(standard, SetMemFullProc(nullptr));
    handles.insert(DSNewHandle(0));
    EXPECT_EQ(6u, BlockCount());
    EXPECT_EQ(50001u, kz::LiveHandleCount());
    EXPECT_STREQ(nullptr, kz::MemoryFault());

    const kz::MasterBlockIndex* const index = kz::MemZone()->index;
    for (uInt32 i = 0; i < index->count; ++i) {
        kz::masterBlock* const block = index->blocks[i];
        EXPECT_FALSE(IsDSHandle(block)) << "the link before the masters";
        EXPECT_FALSE(IsDSHandle(reinterpret_cast<char*>(block) - 8));
        EXPECT_FALSE(IsDSHandle(&block->masters[kz::kMastersPerBlock]));
    }
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(uintptr_t{8})));
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(UINTPTR_MAX - 7)));
    const auto inGranule = [](UHandle handle) { return kz::IsInGranule(kz::MemZone()->granules.load(), handle); };
    EXPECT_LT(25000, std::count_if(handles.begin(), handles.end(), inGranule)) << "most are found by the first look";
    for (UHandle handle : handles) {
        ASSERT_TRUE(IsDSHandle(handle));
        ASSERT_FALSE(IsDSHandle(*handle));
        ASSERT_EQ(0, DSDisposeHandle(handle));
        ASSERT_FALSE(IsDSHandle(handle));
    }
    UHandle const again = DSNewHandle(0);
    EXPECT_EQ(*handles.rbegin(), again) << "the last master freed is the first one reused";
    EXPECT_EQ(0, DSDisposeHandle(again));
}

// The service is started and stopped by the test.
class MemoryService : public testing::Test {
protected:
    MemoryService() { KZAppInterfaceSet(&host); }
    ~MemoryService() override { KZAppInterfaceSet(nullptr); }

    kztest::ReportCatcher reports;
    kztest::TestHost host;
};

TEST_F(MemoryService, StopRecoversWhatIsLeft)
{
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, MemoryManagerService()->Init());
        EXPECT_TRUE(GetMemoryManagerInitialized());
        DSDisposeHandle(DSNewHandle(5));
        UHandle const a = DSNewHandle(100);
        UHandle const b = DSNewAlignedHandle(12, 4096, 4);
        MemoryManagerService()->Uninit();
        for (const auto& [handle, size] : {std::pair(a, 100), std::pair(b, 12)}) {
            char text[80];
            std::snprintf(text, sizeof text, "handle 0x%016lx, size %d still allocated.",
                          reinterpret_cast<unsigned long>(handle), size);
            EXPECT_TRUE(reports.Take(0, text));
        }
        const auto all = reports.TakeAll();
        ASSERT_EQ(1u, all.size());
        EXPECT_EQ("Recovered 2 Handles for 112 bytes.", all[0].text);
        EXPECT_FALSE(GetMemoryManagerInitialized());
        EXPECT_EQ(nullptr, DSNewHandle(1));
        EXPECT_FALSE(IsDSHandle(a));
        EXPECT_EQ(3, DSDisposeHandle(a));
        EXPECT_EQ(2u, reports.TakeAll().size());
        EXPECT_EQ(0, DSDisposePtr(DSNewPtr(0)));
        EXPECT_EQ(0u, PointersMade());
    }
}

TEST_F(MemoryService, StartWithoutMemory)
{
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, MemoryManagerService()->Init());
    }
    EXPECT_EQ(nullptr, DSNewHandle(1));
    MemoryManagerService()->Uninit();
    {
        // Only the zone: the blocks are made when a handle needs one.
        FailAllocation fail(2, FailAllocation::kForGood);
        EXPECT_EQ(0, MemoryManagerService()->Init());
        EXPECT_EQ(nullptr, DSNewHandle(1));
    }
    UHandle const handle = DSNewHandle(1);
    EXPECT_NE(nullptr, handle);
    EXPECT_EQ(1u, BlockCount());
    DSDisposeHandle(handle);
    EXPECT_EQ(nullptr, kz::MemoryFault());
    MemoryManagerService()->Uninit();
}

TEST(HandleCheckChild, DISABLED_ExitsWithItsLevel)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    kztest::ForeignHandle foreign;
    setenv("ZVHandleCheck", "0", 1);  // too late to count
    const int level = AZCheckHandle(foreign) == 0 ? 0 : DSGetHandleSize(foreign) != 0 ? 1 : 2;
    _exit(10 + level);
}

TEST(HandleCheckChild, EnvironmentSetsTheCheckLevel)
{
    const struct {
        const char* setting;
        int level;
    } cases[] = {{nullptr, 2}, {"all", 2}, {"2", 2},    {"resize", 1}, {"1", 1},
                 {"", 0},      {"off", 0}, {"none", 0}, {"0", 0},      {"what", 2}};
    for (const auto& c : cases) {
        const int exitCode =
            kztest::RunChildTests("HandleCheckChild.DISABLED_ExitsWithItsLevel", {{"ZVHandleCheck", c.setting}});
        EXPECT_EQ(c.level, exitCode - 10) << (c.setting ? c.setting : "(not set)");
    }
}

// Handles are made, resized and dropped, by the cache too, while others ask about them and the zone grows.
TEST_F(MemoryManager, ThreadsShareTheZone)
{
    constexpr unsigned kWorkers = 6;
    std::vector<UHandle> held(45000);  // so that any one worker needs more than the blocks at start hold
    for (UHandle& handle : held) {
        handle = DSNewHandle(0);
    }
    std::array<std::atomic<UHandle>, 256> published{};
    std::atomic<bool> stop{false};
    std::atomic<int> faults{0};
    const auto check = [&] {
        while (!stop) {
            for (auto& handle : published) {
                IsDSHandle(handle);  // in use or freed meanwhile
            }
            faults += IsDSHandle(&stop);
        }
    };
    const auto work = [&](unsigned w) {
        std::vector<UHandle> mine(12000);
        for (unsigned i = 0; i < mine.size(); ++i) {
            mine[i] = DSNewHandle(8);
            std::fill_n(*mine[i], 8, static_cast<unsigned char>(w));
            published[(i * kWorkers + w) % published.size()] = mine[i];
            faults += i % 8 == 0 && DSSetHSzClr(mine[i], 64 + i % 64) != 0;
            if (i % 4 == 0) {
                const unsigned long size = 20000 + i % 32;
                UHandle const kept = DSNewHandleCache(size);
                published[(i + w) % published.size()] = kept;
                std::memset(*kept, static_cast<int>(w), size);
                faults += (*kept)[0] != w || (*kept)[size - 1] != w || DSDisposeHandleCache(kept) != 0;
            }
        }
        for (UHandle handle : mine) {
            faults += std::count(*handle, *handle + 8, w) != 8 || DSDisposeHandle(handle) != 0;
        }
    };
    {
        const std::jthread checkers[] = {std::jthread(check), std::jthread(check)};
        std::vector<std::jthread> workers;
        for (unsigned w = 0; w < kWorkers; ++w) {
            workers.emplace_back(work, w);
        }
        workers.clear();
        stop = true;
    }
    EXPECT_EQ(0, faults);
    EXPECT_GT(BlockCount(), 5u);
    for (UHandle handle : held) {
        DSDisposeHandle(handle);
    }
}

}  // namespace
