#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "BufferCache.h"
#include "ChildTest.h"
#include "MemoryZone.h"
#include "Racing.h"
#include "ResidentPages.h"

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

// Zeros that nobody has used yet take no memory.
TEST_F(MemoryManager, ClearedMemoryIsNotTouched)
{
    constexpr unsigned long kSize = 1ul << 30;
    UHandle handle = DSNewHandle(5);
    std::memset(*handle, 7, 5);
    EXPECT_EQ(0, DSSetHSzClr(handle, kSize));
    EXPECT_TRUE(kztest::IsUntouched(*handle, kSize));
    EXPECT_EQ(0, BlockCmp(*handle, "\7\7\7\7\7\0\0\0", 8) + (*handle)[kSize - 1]);
    EXPECT_EQ(0, DSDisposeHandle(handle));
    handle = DSNewHClr(kSize);
    EXPECT_TRUE(kztest::IsUntouched(*handle, kSize));
    EXPECT_EQ(0, DSDisposeHandle(handle));
    void* const ptr = DSNewPClr(kSize);
    EXPECT_TRUE(kztest::IsUntouched(ptr, kSize));
    EXPECT_EQ(0, DSDisposePtr(ptr));
}

std::vector<unsigned long> gMemFullSizes;
int gMoves = 0;

TEST_F(MemoryManager, Pointers)
{
    SetMemFullProc([](unsigned long size) { gMemFullSizes.push_back(size); });
    gMemFullSizes.clear();
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
}

// Areas of any size and alignment, against the C library's.
TEST_F(MemoryManager, PlainBytes)
{
    SetMemoryCheckCallback([] { ++gMoves; });
    const auto sign = [](int number) { return (number > 0) - (number < 0); };
    for (unsigned round = 0; round < 4 * 4 * 20; ++round) {
        const unsigned from = round % 4, to = round / 4 % 4, n = round / 16;
        alignas(8) char ours[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
        std::string model = ours;
        gMoves = 0;
        SwapBlock(ours + from, ours + 24 + to, n);
        std::swap_ranges(&model[from], &model[from + n], &model[24 + to]);
        MoveBlock(ours + from, ours + to, n);
        std::memmove(&model[to], &model[from], n);
        ClearMem(ours + to + 8, n);
        std::memset(&model[to + 8], 0, n);
        EXPECT_EQ(model, std::string(ours, model.size())) << round;
        EXPECT_EQ(sign(std::memcmp(&model[from], &model[to], n)), sign(BlockCmp(ours + from, ours + to, n))) << round;
        EXPECT_TRUE(n == 0 || gMoves == 2) << round;
    }
    SetMemoryCheckCallback(nullptr);
    MoveBlock(nullptr, nullptr, 0);
    ClearMem(nullptr, 0);
    EXPECT_EQ(0, BlockCmp(nullptr, nullptr, 0));
}

// A word to write over memory, which then holds what stood there.
struct Word {
    template <typename T>
    Word(void* to, T value) : at(to), size(sizeof value)
    {
        std::memcpy(bytes, &value, size);
    }
    void* at;
    std::size_t size;
    char bytes[8];
};

void Exchange(Word& word)
{
    std::swap_ranges(word.bytes, word.bytes + word.size, static_cast<char*>(word.at));
}

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
    uInt32* const blocks = &BlockCount();
    uInt32* const frees = &FreeMasterCount();
    constexpr char kBadCount[] = "bad freemaster count";
    constexpr char kNoEnd[] = "freemaster chain isn't NULL terminated!";
    struct {
        const char* fault;
        const char* report;  // of a heap check, null where it does not look
        std::vector<Word> words;
    } cases[] = {
        {"more blocks in the chain than counted", "MemCheck error, m.p. block chain error 1", {{blocks, *blocks - 1}}},
        {"fewer blocks in the chain than counted", "MemCheck error, m.p. block chain error 2", {{blocks, *blocks + 1}}},
        {"more or fewer blocks in the index", kBadCount, {{&index->count, index->count - 1}}},
        {"a block is not in the index", kBadCount, {{&index->blocks[2], index->blocks[1]}}},
        {"a recent block is no block", nullptr, {{&zone->recent[0], masters}}},
        {"a recent block is no block", nullptr, {{&zone->recent[1], masters}}},
        {"a slot of the granules holds no block", nullptr, {{&zone->granules.load()->slots[63].blocks[1], masters}}},
        {"the free chain is shorter", kBadCount, {{frees, 1u << 31}}},
        {"the free chain is shorter", kBadCount, {{frees, *frees + 1}}},
        {"the free chain is longer", kNoEnd, {{frees, *frees - 1}}},
        {"leaves the free masters", kBadCount, {{masters + 1, zone}}},
        {"leaves the free masters", kBadCount, {{masters + 1, linkTo(zone)}}},
        {"leaves the free masters", kBadCount, {{masters + 1, linkTo(handle)}}},
        {"leaves the free masters", kBadCount, {{masters + 1, linkTo(reinterpret_cast<char*>(masters + 2) + 4)}}},
        {"free masters outside the free chain", nullptr, {{masters + 1, masters[2]}, {frees, *frees - 1}}},
        {"a handle's alignment or offset is damaged", nullptr, {{tag, uInt16{63}}}},
        {"a handle's data is not aligned", nullptr, {{tag + 2, uInt16{8}}}},
        {"a handle's size is damaged", nullptr, {{header, ~0ul}}},
        {"a kept block's header does not", nullptr, {{keptHeader, 20001ul}}},
        {"the kept blocks' sizes do not add up", nullptr, {{keptHeader, 20001ul}, {&kept->size, 20001ul}}},
    };
    SetMemoryDebugger(1);
    for (auto& c : cases) {
        SCOPED_TRACE(c.fault);
        ASSERT_STREQ(nullptr, kz::MemoryFault());
        std::for_each(c.words.begin(), c.words.end(), Exchange);
        const char* const fault = kz::MemoryFault();
        EXPECT_NE(nullptr, std::strstr(fault == nullptr ? "" : fault, c.fault)) << fault;
        EXPECT_EQ(c.report != nullptr ? 74 : 0, AZHeapCheck(0));
        DSDisposePtr(DSNewPtr(1));  // which checks the heap as well
        EXPECT_TRUE(c.report == nullptr || (reports.Take(kDbgFatal, c.report) && reports.Take(kDbgFatal, c.report)));
        if (c.report == kBadCount || c.report == kNoEnd) {
            EXPECT_EQ(nullptr, DSNewHandle(1)) << "no master is taken off a damaged chain";
            EXPECT_TRUE(reports.Take(kDbgFatal, c.report));
        }
        EXPECT_TRUE(reports.TakeAll().empty());
        std::for_each(c.words.begin(), c.words.end(), Exchange);
    }
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, HeapChecksAndStatistics)
{
    MemStatRec stats;
    EXPECT_EQ(0, AZMemStats(&stats));
    EXPECT_EQ(80u, sizeof stats);
    // The data segment, which the C library moves for no size of ours.
    ASSERT_NE(reinterpret_cast<void*>(-1), sbrk(4096));
    uInt64 growth = 1;
    uInt32 last = 1;
    EXPECT_EQ(0, DSMemStats2(nullptr, nullptr, nullptr, &growth, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, &last));
    EXPECT_EQ(stats.totAllocSize + 4096, growth);
    EXPECT_EQ(0u, last);

    EXPECT_EQ(0, DSHeapCheck(1) + AZHeapCheck(1) + DSCompact());
    SetMemoryDebugger(1);
    DSDisposePtr(DSNewPClr(3));
    EXPECT_EQ(0, DSCompact());
    EXPECT_FALSE(ToggleMemoryDebugging());
    EXPECT_FALSE(MemCheckHeaps());
    std::string told;
    for (const kztest::CaughtReport& report : reports.TakeAll()) {
        told += std::to_string(report.level) + " " + report.text + "\n";
    }
    const std::string all = "0 Free: totFreeSize 0, maxFreeSize 0\n0 Allocated to ZV: totAllocSize " +
                            std::to_string(growth) + "\n0 Total: totPhysSize 0\n";
    const std::string off = "0 turning memory checking off\n", on = "0 turning memory checking on\n";
    EXPECT_EQ(all + all + all + off + on + all + off, told);
}

// The level, told from the calls that take a foreign handle for a good one; the same size changes nothing.
uInt32 LevelSeen(kztest::ReportCatcher& reports)
{
    kztest::ForeignHandle foreign;
    const uInt32 level = AZCheckHandle(foreign) == 0 ? 0 : DSGetHandleSize(foreign) == 24 ? 1 : 2;
    reports.TakeAll();
    EXPECT_EQ(level == 0 ? 0 : 3, DSSetHandleSize(foreign, 24));
    EXPECT_EQ(level == 0 ? 0u : 2u, reports.TakeAll().size());
    EXPECT_EQ(3, DSCheckHandle(foreign));
    return level;
}

TEST_F(MemoryManager, WhatIsNoHandle)
{
    UHandle const good = DSNewHandle(8);
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    unsigned char* zeroMaster = nullptr;
    for (const uInt32 level : {0u, 1u, 2u, 77u}) {
        EXPECT_EQ(std::min(level, 2u), DSSetHandleChecking(level));
        EXPECT_EQ(std::min(level, 2u), LevelSeen(reports));
        void* const bad[] = {stale, &zeroMaster, reinterpret_cast<char*>(good) + 1, nullptr};
        for (const void* handle : bad) {
            EXPECT_EQ(6, AZCheckHandle(handle) + DSCheckHandle(handle));
        }
        EXPECT_EQ(0, AZCheckHandle(good) + DSCheckHandle(good));
    }
    DSReadCounters(nullptr);
    DSSetCounters(nullptr);
    EXPECT_TRUE(DSRecoverHandle(*good) == good && AZRecoverHandle(*good) == good);
    EXPECT_TRUE(reports.TakeAll().empty());
    EXPECT_EQ(0u, DSGetHandleSize(nullptr) + AZGetHandleSize(nullptr));
    EXPECT_EQ(nullptr, DSRecoverHandle(nullptr));
    EXPECT_EQ(3u, reports.TakeAll().size());
    for (void* none : {static_cast<void*>(good), static_cast<void*>(*good + 1)}) {
        EXPECT_EQ(nullptr, AZRecoverHandle(none));
        EXPECT_TRUE(reports.Take(kDbgFatal, "Pointer passed to BRecoverHandle not linked to master pointer!"));
    }
    EXPECT_EQ(0, DSDisposeHandle(good));
}

TEST_F(MemoryManager, DISABLED_ExitsWithItsLevel)
{
    setenv("ZVHandleCheck", "0", 1);  // too late to count
    _exit(static_cast<int>(10 + LevelSeen(reports)));
}

TEST(HandleCheckChild, EnvironmentSetsTheCheckLevel)
{
    const std::vector<const char*> kLevels[] = {
        {"", "off", "none", "0"}, {"resize", "1"}, {nullptr, "all", "2", "what"}};
    for (int level = 0; level < 3; ++level) {
        for (const char* setting : kLevels[level]) {
            EXPECT_EQ(10 + level,
                      kztest::RunChildTests("MemoryManager.DISABLED_ExitsWithItsLevel", {{"ZVHandleCheck", setting}}));
        }
    }
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
        auto* const block = reinterpret_cast<unsigned char*>(index->blocks[i]);
        for (const long at : {-8l, 0l, long{sizeof(kz::masterBlock)}}) {
            EXPECT_FALSE(IsDSHandle(block + at)) << "the link before the masters, and what is next to the block";
        }
    }
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(uintptr_t{8})));
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(UINTPTR_MAX - 7)));
    const auto inGranule = [](UHandle handle) { return kz::IsInGranule(kz::MemZone()->granules.load(), handle); };
    EXPECT_LT(25000, std::count_if(handles.begin(), handles.end(), inGranule)) << "most are found by the first look";
    for (UHandle handle : handles) {
        ASSERT_TRUE(IsDSHandle(handle) && !IsDSHandle(*handle));
        ASSERT_EQ(0, DSDisposeHandle(handle));
        ASSERT_FALSE(IsDSHandle(handle));
    }
    UHandle const again = DSNewHandle(0);
    EXPECT_EQ(*handles.rbegin(), again) << "the last master freed is the first one reused";
    EXPECT_EQ(0, DSDisposeHandle(again));
}

TEST(MemoryService, StartsWithLittleMemoryAndRecoversWhatIsLeft)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, MemoryManagerService()->Init());
    }
    MemoryManagerService()->Uninit();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(nullptr, DSNewHandle(1));
        EXPECT_TRUE(reports.Take(kDbgWarning, "A handle can't be made: kzcore is not started"));
        {
            // Only the zone: the blocks are made when a handle needs one.
            FailAllocation fail(2, FailAllocation::kForGood);
            EXPECT_EQ(0, MemoryManagerService()->Init());
            EXPECT_EQ(nullptr, DSNewHandle(1));
        }
        EXPECT_TRUE(GetMemoryManagerInitialized());
        DSDisposeHandle(DSNewHandle(5));
        EXPECT_EQ(1u, BlockCount());
        UHandle const a = DSNewHandle(100);
        UHandle const b = DSNewAlignedHandle(12, 4096, 4);
        EXPECT_EQ(nullptr, kz::MemoryFault());
        MemoryManagerService()->Uninit();
        for (const auto& [handle, size] : {std::pair(a, 100), std::pair(b, 12)}) {
            char text[80];
            std::snprintf(text, sizeof text, "handle 0x%016lx, size %d still allocated.",
                          reinterpret_cast<unsigned long>(handle), size);
            EXPECT_TRUE(reports.Take(0, text));
        }
        EXPECT_EQ(kztest::ReportRows({{0, "Recovered 2 Handles for 112 bytes."}}), reports.TakeRows());
        EXPECT_FALSE(GetMemoryManagerInitialized());
        EXPECT_FALSE(IsDSHandle(a));
        EXPECT_EQ(3, DSDisposeHandle(a));
        EXPECT_EQ(2u, reports.TakeAll().size());
        EXPECT_EQ(0, DSDisposePtr(DSNewPtr(0)));
        EXPECT_EQ(0u, PointersMade());
    }
    KZAppInterfaceSet(nullptr);
}

// Handles are made, resized and dropped, by the cache too, while others ask about them and the zone grows.
TEST_F(MemoryManager, ThreadsShareTheZone)
{
    constexpr int kWorkers = 6;
    std::vector<UHandle> held(45000);  // so that any one worker needs more than the blocks at start hold
    std::generate(held.begin(), held.end(), [] { return DSNewHandle(0); });
    std::array<std::atomic<UHandle>, 256> published{};
    std::atomic<int> working{kWorkers};
    std::atomic<int> faults{0};
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
        --working;
    };
    kztest::Race(kWorkers + 2, [&](int i) {
        if (i < kWorkers) {
            work(static_cast<unsigned>(i));
        }
        while (working != 0) {
            for (auto& handle : published) {
                IsDSHandle(handle);  // in use or freed meanwhile
            }
            faults += IsDSHandle(&working);
        }
    });
    EXPECT_EQ(0, faults);
    EXPECT_GT(BlockCount(), 5u);
    std::for_each(held.begin(), held.end(), &DSDisposeHandle);
}

}  // namespace
