#include "MemoryManager.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <bit>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "HandleLayout.h"
#include "MemoryZone.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;
using Bytes = std::vector<unsigned char>;

class MemoryManager : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

Bytes ContentOf(UHandle handle)
{
    return Bytes(*handle, *handle + DSGetHandleSize(handle));
}

bool IsAligned(UHandle handle, unsigned long alignment, unsigned long offset)
{
    return (reinterpret_cast<uintptr_t>(*handle) + offset) % alignment == 0;
}

// Handles made, pointers made, resizes, moves.
using Counters = std::array<uInt32, 4>;

Counters ReadCounters()
{
    uInt64 words[2];
    DSReadCounters(words);
    return std::bit_cast<Counters>(words);
}

// A master pointer in no block, whose data is laid out as a handle's.
class ForeignHandle {
public:
    operator void*() { return &mMaster; }

private:
    alignas(8) unsigned char mBlock[64];
    unsigned char* mMaster = kz::LayOutHandle(mBlock, 24, {8, 8}, 0);
};

TEST_F(MemoryManager, MakesAlignBySizeOrAsGiven)
{
    const struct {
        UHandle handle;
        unsigned long size, alignment, offset;
    } made[] = {
        {DSNewHandle(0), 0, 8, 8},
        {DSNewHClr(12), 12, 8, 4},
        {DSNewHandle(2000), 2000, 16, 8},
        {DSNewHClr(1048577), 1048577, 4096, 0},
        {DSNewAlignedHandle(100, 24, 3), 100, 32, 4},
        {DSNewAlignedHClr(100, 100000, 70000), 100, 32768, 4464},
    };
    for (const auto& c : made) {
        ASSERT_NE(nullptr, c.handle);
        EXPECT_EQ(c.size, DSGetHandleSize(c.handle));
        EXPECT_TRUE(IsAligned(c.handle, c.alignment, c.offset)) << c.size;
        // The stored numbers are those that a later call gives, so nothing moves.
        unsigned char* const data = *c.handle;
        EXPECT_EQ(0, DSSetAlignedHandleSize(c.handle, c.size, c.alignment, c.offset));
        EXPECT_EQ(data, *c.handle);
        EXPECT_EQ(0, DSDisposeHandle(c.handle));
    }
}

TEST_F(MemoryManager, ResizesMoveAndCount)
{
    const uInt64 words[2] = {0x0000000200000001, 0x00000004FFFFFFFF};
    DSSetCounters(words);
    UHandle handle = DSNewHandle(1000);
    DSDisposePtr(DSNewPtr(1));
    Counters expected = {2, 3, 0xFFFFFFFF, 4};
    for (const unsigned long size : {1001ul, 999ul, 2000ul, 1048576ul, 12ul, 0ul, 5000ul}) {
        unsigned char* const before = *handle;
        ASSERT_EQ(0, DSSetHandleSize(handle, size));
        EXPECT_NE(before, *handle);
        EXPECT_EQ(size, DSGetHandleSize(handle));
        ++expected[2];
        ++expected[3];
    }
    unsigned char* const data = *handle;
    EXPECT_EQ(0, DSSetHandleSize(handle, 5000));
    EXPECT_EQ(data, *handle);
    EXPECT_EQ(expected, ReadCounters()) << "the same size is no resize";
    EXPECT_EQ(0, DSSetAlignedHandleSize(handle, 5000, 64, 4));
    EXPECT_NE(data, *handle);
    EXPECT_TRUE(IsAligned(handle, 64, 4));
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, ResizeOrNew)
{
    for (KzErr (*call)(void*, unsigned long) : {&DSSetHandleSizeOrNewHandle, &DSSetHSzOrNewHClr}) {
        UHandle handle = nullptr;
        EXPECT_EQ(0, call(&handle, 0));
        UHandle const made = handle;
        EXPECT_EQ(0, call(&handle, 40));
        EXPECT_EQ(made, handle);
        EXPECT_EQ(40u, DSGetHandleSize(handle));
        EXPECT_EQ(0, DSDisposeHandleAndNull(&handle));
        FailAllocation fail(1);
        EXPECT_EQ(2, call(&handle, 40));
        EXPECT_EQ(nullptr, handle);
    }
    UHandle handle = DSNewHandle(0);
    EXPECT_EQ(0, DSSetHSzOrNewHClr(&handle, 40));
    EXPECT_EQ(Bytes(40, 0), ContentOf(handle));
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, Copy)
{
    UHandle src = DSNewHClr(1200);
    UHandle dest = nullptr;
    EXPECT_EQ(0, DSCopyHandle(&dest, src));
    ASSERT_NE(nullptr, dest);
    EXPECT_NE(src, dest);
    EXPECT_EQ(ContentOf(src), ContentOf(dest));
    EXPECT_EQ(0, DSCopyHandle(&src, src));
    EXPECT_TRUE(reports.Take(2, "Should call DSHandToHand. This is a no-op"));
    ForeignHandle foreign;
    EXPECT_EQ(3, DSCopyHandle(&dest, foreign));
    EXPECT_TRUE(reports.Take(4, ""));
    EXPECT_EQ(1200u, DSGetHandleSize(dest));
    EXPECT_EQ(0, DSCopyHandle(&dest, nullptr));
    EXPECT_EQ(nullptr, dest);
    EXPECT_EQ(1, DSCopyHandle(nullptr, src));
    EXPECT_EQ(0, DSDisposeHandle(src));
}

TEST_F(MemoryManager, PointersAndNull)
{
    void* const empty = DSNewPtr(0);
    EXPECT_EQ(0, DSCheckPtr(empty));
    EXPECT_EQ(3, DSCheckPtr(nullptr));
    EXPECT_EQ(0, DSDisposePtr(empty));
    EXPECT_EQ(1, DSDisposePtr(nullptr));
    auto* const zeros = static_cast<unsigned char*>(DSNewPClr(300));
    EXPECT_EQ(Bytes(300, 0), Bytes(zeros, zeros + 300));
    MoveBlock("abcdef", zeros, 6);
    MoveBlock(zeros, zeros + 2, 6);
    EXPECT_EQ(0, BlockCmp(zeros, "ababcdef", 8));
    EXPECT_LT(BlockCmp("a", "b", 1), 0);
    EXPECT_EQ(0, DSDisposePtr(zeros));
    MoveBlock(nullptr, nullptr, 0);
    ClearMem(nullptr, 0);
    EXPECT_EQ(0, BlockCmp(nullptr, nullptr, 0));

    UHandle none = nullptr;
    EXPECT_EQ(0, DSDisposeHandle(nullptr));
    EXPECT_EQ(0, DSDisposeHandleAndNull(nullptr));
    EXPECT_EQ(0, DSDisposeHandleAndNull(&none));
    EXPECT_EQ(1, DSSetHandleSizeOrNewHandle(nullptr, 1));
    EXPECT_EQ(3, DSCheckHandle(nullptr));
    EXPECT_EQ(3, AZCheckHandle(nullptr));
    EXPECT_FALSE(IsDSHandle(nullptr));
    DSReadCounters(nullptr);
    DSSetCounters(nullptr);
}

TEST_F(MemoryManager, BadHandlesAreReportedByEachCall)
{
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    ForeignHandle foreign;
    UHandle variable = nullptr;
    const struct {
        const char* name;
        KzErr (*call)(UHandle* variable);
    } calls[] = {
        {"DSSetHandleSize", [](UHandle* h) { return DSSetHandleSize(*h, 9); }},
        {"DSSetHSzClr", [](UHandle* h) { return DSSetHSzClr(*h, 9); }},
        {"DSSetAlignedHandleSize", [](UHandle* h) { return DSSetAlignedHandleSize(*h, 9, 8, 0); }},
        {"DSSetAlignedHSzClr", [](UHandle* h) { return DSSetAlignedHSzClr(*h, 9, 8, 0); }},
        {"DSSetHandleSizeOrNewHandle", [](UHandle* h) { return DSSetHandleSizeOrNewHandle(h, 9); }},
        {"DSSetHSzOrNewHClr", [](UHandle* h) { return DSSetHSzOrNewHClr(h, 9); }},
        {"DSDisposeHandle", [](UHandle* h) { return DSDisposeHandle(*h); }},
        {"DSDisposeHandleAndNull", [](UHandle* h) { return DSDisposeHandleAndNull(h); }},
    };
    for (const auto& c : calls) {
        for (void* bad : {static_cast<void*>(stale), static_cast<void*>(foreign)}) {
            variable = static_cast<UHandle>(bad);
            EXPECT_EQ(3, c.call(&variable)) << c.name;
            const auto all = reports.TakeAll();
            ASSERT_EQ(2u, all.size()) << c.name;
            EXPECT_EQ(4, all[0].level);
            EXPECT_EQ("", all[0].text);
            EXPECT_EQ("source/MemoryManager", all[0].file);
            EXPECT_EQ(2, all[1].level);
            EXPECT_EQ(std::string("Memory error 3 in ") + c.name, all[1].text);
        }
    }
    EXPECT_EQ(nullptr, variable) << "the variable is nulled though the disposal failed";
    EXPECT_EQ(0u, DSGetHandleSize(stale));
    EXPECT_EQ(0u, DSGetHandleSize(nullptr));
    EXPECT_EQ(2u, reports.TakeAll().size());
}

TEST_F(MemoryManager, CheckLevels)
{
    UHandle const good = DSNewHandle(8);
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    ForeignHandle foreign;
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

TEST_F(MemoryManager, OnlyMastersInUseAreHandles)
{
    std::vector<UHandle> handles(25000);
    for (UHandle& handle : handles) {
        handle = DSNewHandle(4);
    }
    const kz::MasterBlockIndex* const index = kz::MemZone()->index;
    for (uInt32 i = 0; i < index->count; ++i) {
        kz::masterBlock* const block = index->blocks[i];
        EXPECT_FALSE(IsDSHandle(block)) << "the link before the masters";
        EXPECT_FALSE(IsDSHandle(reinterpret_cast<char*>(block) - 8));
        EXPECT_FALSE(IsDSHandle(&block->masters[kz::kMastersPerBlock]));
    }
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(uintptr_t{8})));
    EXPECT_FALSE(IsDSHandle(reinterpret_cast<void*>(UINTPTR_MAX - 7)));
    std::shuffle(handles.begin(), handles.end(), std::mt19937(1));
    for (UHandle handle : handles) {
        ASSERT_TRUE(IsDSHandle(handle));
        ASSERT_FALSE(IsDSHandle(*handle));
        DSDisposeHandle(handle);
        ASSERT_FALSE(IsDSHandle(handle));
    }
}

TEST_F(MemoryManager, TheSixthBlockComesOnDemand)
{
    const kz::MemZoneRec* const zone = kz::MemZone();
    std::vector<UHandle> handles(50000);
    for (UHandle& handle : handles) {
        handle = DSNewHandle(0);
    }
    EXPECT_EQ(5u, zone->blockCount);
    for (int n : {1, 2, 3}) {  // the block, the index, the data
        FailAllocation fail(n);
        EXPECT_EQ(nullptr, DSNewHandle(0));
    }
    EXPECT_EQ(50000u, kz::LiveHandleCount());
    handles.push_back(DSNewHandle(0));
    EXPECT_EQ(6u, zone->blockCount);
    EXPECT_EQ(50001u, std::set<UHandle>(handles.begin(), handles.end()).size());
    EXPECT_EQ(nullptr, kz::MemoryFault());
    for (UHandle handle : handles) {
        EXPECT_EQ(0, DSDisposeHandle(handle));
    }
    UHandle const again = DSNewHandle(0);
    EXPECT_EQ(handles.back(), again) << "the last master freed is the first one reused";
    EXPECT_EQ(0, DSDisposeHandle(again));
}

std::vector<unsigned long> gMemFullSizes;

TEST_F(MemoryManager, TooLargeSizes)
{
    SetMemFullProc([](unsigned long size) { gMemFullSizes.push_back(size); });
    UHandle handle = DSNewHClr(64);
    unsigned char* const data = *handle;
    for (const unsigned long size : {ULONG_MAX, ULONG_MAX - 15, ULONG_MAX - 100000, ULONG_MAX / 2}) {
        gMemFullSizes.clear();
        EXPECT_EQ(nullptr, DSNewHClr(size));
        EXPECT_EQ(nullptr, DSNewAlignedHClr(size, 32768, 65532));
        EXPECT_EQ(nullptr, DSNewPClr(size));
        EXPECT_EQ(std::vector<unsigned long>(3, size), gMemFullSizes);
        EXPECT_EQ(2, DSSetHSzClr(handle, size));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in DSSetHSzClr"));
        EXPECT_EQ(data, *handle);
        EXPECT_EQ(Bytes(64, 0), ContentOf(handle));
    }
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, MemoryFullProcedure)
{
    // A host may use the library in the procedure; a lock held by the caller would never be released.
    const MemFullProc proc = [](unsigned long size) {
        gMemFullSizes.push_back(size);
        DSDisposeHandle(DSNewHandle(16));
    };
    const MemFullProc standard = SetMemFullProc(proc);
    ASSERT_NE(nullptr, standard);
    UHandle handle = DSNewHandle(1000);
    const Counters before = ReadCounters();
    const auto sizesOf = [&](auto&& body) {
        gMemFullSizes.clear();
        FailAllocation fail(1);
        body();
        return gMemFullSizes;
    };
    using Sizes = std::vector<unsigned long>;
    EXPECT_EQ(Sizes({33}), sizesOf([] { EXPECT_EQ(nullptr, DSNewPtr(33)); }));
    EXPECT_EQ(Sizes({34}), sizesOf([] { EXPECT_EQ(nullptr, DSNewHandle(34)); }));
    EXPECT_EQ(Sizes({2016}), sizesOf([&] { EXPECT_EQ(2, DSSetAlignedHandleSize(handle, 2000, 8, 8)); }));
    EXPECT_TRUE(reports.Take(2, "Memory error 2 in DSSetAlignedHandleSize"));
    EXPECT_EQ(1000u, DSGetHandleSize(handle));
    EXPECT_EQ(before[2] + 1, ReadCounters()[2]);
    EXPECT_EQ(before[3], ReadCounters()[3]);

    std::vector<UHandle> handles = {handle};
    while (kz::MemZone()->freeMasterCount > 0) {
        handles.push_back(DSNewHandle(0));
    }
    EXPECT_EQ(Sizes({80008, 35}), sizesOf([] { EXPECT_EQ(nullptr, DSNewHandle(35)); }));
    for (UHandle h : handles) {
        DSDisposeHandle(h);
    }
    EXPECT_EQ(proc, SetMemFullProc(nullptr));
    CallSetMemFullProc(1);
    EXPECT_EQ(standard, SetMemFullProc(nullptr));
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
        EXPECT_EQ(0u, ReadCounters()[1]);
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
    EXPECT_EQ(1u, kz::MemZone()->blockCount);
    DSDisposeHandle(handle);
    EXPECT_EQ(nullptr, kz::MemoryFault());
    MemoryManagerService()->Uninit();
}

// What a process started with this ZVHandleCheck works with.
int LevelOfChild(const char* setting)
{
    const pid_t child = fork();
    if (child == 0) {
        setting == nullptr ? unsetenv("ZVHandleCheck") : setenv("ZVHandleCheck", setting, 1);
        execl("/proc/self/exe", "kz_memory_tests", "--gtest_filter=HandleCheckChild.DISABLED_ExitsWithItsLevel",
              "--gtest_also_run_disabled_tests", "--gtest_brief=1", nullptr);
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) - 10 : -1;
}

TEST(HandleCheckChild, DISABLED_ExitsWithItsLevel)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    ForeignHandle foreign;
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
        EXPECT_EQ(c.level, LevelOfChild(c.setting)) << (c.setting ? c.setting : "(not set)");
    }
}

// One random change of `handles`, done to the model too.
void RandomStep(std::mt19937& random, std::map<UHandle, Bytes>& handles)
{
    const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
    const unsigned long size = below(80) == 0 ? 1000000 + below(100000) : below(3000);
    const unsigned long alignment = 1ul << below(14);
    const unsigned long offset = below(300);
    if (handles.size() < 3 || below(4) == 0) {
        UHandle made = below(2) ? DSNewHClr(size) : DSNewAlignedHClr(size, alignment, offset);
        ASSERT_TRUE(handles.emplace(made, Bytes(size, 0)).second);
        return;
    }
    const auto entry = std::next(handles.begin(), below(static_cast<unsigned>(handles.size())));
    auto& [handle, model] = *entry;
    ASSERT_EQ(model, ContentOf(handle));
    switch (below(4)) {
        case 0:
            ASSERT_EQ(0, DSDisposeHandle(handle));
            handles.erase(entry);
            break;
        case 1:
            model.assign(model.size(), static_cast<unsigned char>(random()));
            MoveBlock(model.data(), *handle, model.size());
            break;
        default:
            ASSERT_EQ(0, below(2) ? DSSetHSzClr(handle, size) : DSSetAlignedHSzClr(handle, size, alignment, offset));
            model.resize(size);
    }
}

TEST_F(MemoryManager, RandomSequencesAgreeWithAModel)
{
    for (unsigned seed = 0; seed < 40; ++seed) {
        std::mt19937 random(seed);
        std::map<UHandle, Bytes> handles;
        for (int step = 0; step < 150; ++step) {
            RandomStep(random, handles);
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << " step " << step;
        }
        ASSERT_EQ(handles.size(), kz::LiveHandleCount());
        ASSERT_EQ(nullptr, kz::MemoryFault());
        for (const auto& [handle, model] : handles) {
            ASSERT_EQ(model, ContentOf(handle));
            DSDisposeHandle(handle);
        }
    }
}

// Handles are made, resized and dropped while others ask about them and the zone grows.
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
    std::vector<std::jthread> checkers(2);
    for (std::jthread& checker : checkers) {
        checker = std::jthread([&] {
            while (!stop) {
                for (auto& handle : published) {
                    IsDSHandle(handle);  // in use or freed meanwhile
                }
                faults += IsDSHandle(&stop);
            }
        });
    }
    const auto work = [&](unsigned w) {
        std::vector<UHandle> mine;
        const std::string mark(8, static_cast<char>(w));
        const auto make = [&] {
            UHandle handle = DSNewHandle(8);
            MoveBlock(mark.data(), *handle, 8);
            return handle;
        };
        for (unsigned i = 0; i < 12000; ++i) {
            mine.push_back(make());
            published[(i * kWorkers + w) % published.size()] = mine[i];
            faults += i % 8 == 0 && DSSetHSzClr(mine[i], 64 + i % 64) != 0;
            if (i % 16 == 0) {
                DSDisposeHandle(mine[i / 2]);
                mine[i / 2] = make();
            }
        }
        for (UHandle handle : mine) {
            faults += BlockCmp(*handle, mark.data(), 8) != 0;
            faults += DSDisposeHandle(handle) != 0;
        }
    };
    {
        std::vector<std::jthread> workers;
        for (unsigned w = 0; w < kWorkers; ++w) {
            workers.emplace_back(work, w);
        }
    }
    stop = true;
    checkers.clear();
    EXPECT_EQ(0, faults);
    EXPECT_GT(kz::MemZone()->blockCount, 5u);
    for (UHandle handle : held) {
        DSDisposeHandle(handle);
    }
}

}  // namespace
