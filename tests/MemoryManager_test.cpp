#include "MemoryManager.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
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

void FillWith(UHandle handle, unsigned char value)
{
    std::memset(*handle, value, DSGetHandleSize(handle));
}

bool IsAligned(UHandle handle, unsigned long alignment, unsigned long offset)
{
    return (reinterpret_cast<uintptr_t>(*handle) + offset) % alignment == 0;
}

struct Counters {
    uInt32 handles, pointers, resizes, moves;
};

Counters ReadCounters()
{
    uInt64 words[2];
    DSReadCounters(words);
    Counters counters;
    std::memcpy(&counters, words, sizeof counters);
    return counters;
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
        unsigned long size, alignment, offset;
    } bySize[] = {{0, 8, 8},     {1, 8, 8},     {8, 8, 0},          {12, 8, 4},         {1024, 16, 8},
                  {1028, 16, 4}, {2000, 16, 8}, {1048576, 4096, 8}, {1048580, 4096, 4}, {1048577, 4096, 0}};
    for (const auto& c : bySize) {
        for (UHandle (*make)(unsigned long) : {&DSNewHandle, &DSNewHClr}) {
            UHandle handle = make(c.size);
            ASSERT_NE(nullptr, handle);
            EXPECT_EQ(c.size, DSGetHandleSize(handle));
            EXPECT_TRUE(IsAligned(handle, c.alignment, c.offset)) << c.size;
            if (make == &DSNewHClr) {
                EXPECT_EQ(Bytes(c.size, 0), ContentOf(handle));
            }
            EXPECT_EQ(0, DSDisposeHandle(handle));
        }
    }
    const struct {
        unsigned long alignment, offset, expectAlignment, expectOffset;
    } given[] = {{24, 3, 32, 4}, {8, 16, 8, 8}, {100000, 8, 32768, 8}, {4096, 0, 4096, 0}, {64, 70000, 64, 70000}};
    for (const auto& c : given) {
        for (UHandle (*make)(unsigned long, unsigned long, unsigned long) : {&DSNewAlignedHandle, &DSNewAlignedHClr}) {
            UHandle handle = make(100, c.alignment, c.offset);
            ASSERT_NE(nullptr, handle);
            EXPECT_TRUE(IsAligned(handle, c.expectAlignment, c.expectOffset)) << c.alignment << "/" << c.offset;
            // The stored numbers are those that a later call gives, so nothing moves.
            unsigned char* const data = *handle;
            EXPECT_EQ(0, DSSetAlignedHandleSize(handle, 100, c.alignment, c.offset));
            EXPECT_EQ(data, *handle);
            EXPECT_EQ(0, DSDisposeHandle(handle));
        }
    }
}

TEST_F(MemoryManager, ResizeKeepsDataAndMovesOnAnyChange)
{
    UHandle handle = DSNewHandle(1000);
    FillWith(handle, 0xA5);
    Bytes model(1000, 0xA5);
    for (const unsigned long size : {1001ul, 999ul, 2000ul, 1048576ul, 12ul, 0ul, 5000ul}) {
        unsigned char* const before = *handle;
        const Counters counters = ReadCounters();
        const unsigned long kept = std::min<unsigned long>(size, model.size());
        ASSERT_EQ(0, DSSetHSzClr(handle, size));
        EXPECT_NE(before, *handle);
        model.resize(size);
        EXPECT_EQ(model, ContentOf(handle)) << size << " of which kept " << kept;
        EXPECT_EQ(counters.resizes + 1, ReadCounters().resizes);
        EXPECT_EQ(counters.moves + 1, ReadCounters().moves);
        FillWith(handle, 0x5A);
        std::fill(model.begin(), model.end(), static_cast<unsigned char>(0x5A));
    }
    unsigned char* const data = *handle;
    const Counters counters = ReadCounters();
    EXPECT_EQ(0, DSSetHandleSize(handle, 5000));
    EXPECT_EQ(data, *handle);
    EXPECT_EQ(counters.resizes, ReadCounters().resizes);

    EXPECT_EQ(0, DSSetAlignedHandleSize(handle, 5000, 64, 4));
    EXPECT_NE(data, *handle);
    EXPECT_TRUE(IsAligned(handle, 64, 4));
    EXPECT_EQ(0, DSSetAlignedHSzClr(handle, 5100, 64, 4));
    model.resize(5100);
    EXPECT_EQ(model, ContentOf(handle));
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, ResizeOrNew)
{
    for (KzErr (*call)(void*, unsigned long) : {&DSSetHandleSizeOrNewHandle, &DSSetHSzOrNewHClr}) {
        UHandle handle = nullptr;
        EXPECT_EQ(0, call(&handle, 0));
        ASSERT_NE(nullptr, handle);
        UHandle const made = handle;
        EXPECT_EQ(0, call(&handle, 40));
        EXPECT_EQ(made, handle);
        EXPECT_EQ(40u, DSGetHandleSize(handle));
        if (call == &DSSetHSzOrNewHClr) {
            EXPECT_EQ(Bytes(40, 0), ContentOf(handle));
        }
        EXPECT_EQ(0, DSDisposeHandleAndNull(&handle));
        EXPECT_EQ(nullptr, handle);
        EXPECT_EQ(1, call(nullptr, 1));
        {
            FailAllocation fail(1);
            EXPECT_EQ(2, call(&handle, 40));
        }
        EXPECT_EQ(nullptr, handle);
    }
}

TEST_F(MemoryManager, Copy)
{
    UHandle src = DSNewHandle(37);
    FillWith(src, 7);
    UHandle dest = nullptr;
    EXPECT_EQ(0, DSCopyHandle(&dest, src));
    ASSERT_NE(nullptr, dest);
    EXPECT_NE(src, dest);
    EXPECT_EQ(Bytes(37, 7), ContentOf(dest));

    EXPECT_EQ(0, DSSetHSzClr(src, 1200));
    UHandle const same = dest;
    EXPECT_EQ(0, DSCopyHandle(&dest, src));
    EXPECT_EQ(same, dest);
    EXPECT_EQ(ContentOf(src), ContentOf(dest));

    EXPECT_EQ(0, DSCopyHandle(&src, src));
    EXPECT_TRUE(reports.Take(2, "Should call DSHandToHand. This is a no-op"));
    EXPECT_EQ(1200u, DSGetHandleSize(src));

    ForeignHandle foreign;
    EXPECT_EQ(3, DSCopyHandle(&dest, foreign));
    EXPECT_TRUE(reports.Take(4, ""));
    EXPECT_EQ(1200u, DSGetHandleSize(dest));

    EXPECT_EQ(0, DSCopyHandle(&dest, nullptr));
    EXPECT_EQ(nullptr, dest);
    EXPECT_EQ(0, DSCopyHandle(&dest, nullptr));
    EXPECT_EQ(1, DSCopyHandle(nullptr, src));
    EXPECT_EQ(0, DSDisposeHandle(src));
}

TEST_F(MemoryManager, NullArguments)
{
    UHandle none = nullptr;
    EXPECT_EQ(0, DSDisposeHandle(nullptr));
    EXPECT_EQ(0, DSDisposeHandleAndNull(nullptr));
    EXPECT_EQ(0, DSDisposeHandleAndNull(&none));
    EXPECT_EQ(1, DSDisposePtr(nullptr));
    EXPECT_EQ(3, DSCheckHandle(nullptr));
    EXPECT_EQ(3, AZCheckHandle(nullptr));
    EXPECT_EQ(3, DSCheckPtr(nullptr));
    EXPECT_FALSE(IsDSHandle(nullptr));
    MoveBlock(nullptr, nullptr, 0);
    ClearMem(nullptr, 0);
    EXPECT_EQ(0, BlockCmp(nullptr, nullptr, 0));
    DSReadCounters(nullptr);
    DSSetCounters(nullptr);
}

TEST_F(MemoryManager, Pointers)
{
    void* const empty = DSNewPtr(0);
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0, DSCheckPtr(empty));
    auto* const zeros = static_cast<unsigned char*>(DSNewPClr(300));
    EXPECT_EQ(Bytes(300, 0), Bytes(zeros, zeros + 300));
    MoveBlock("abcdef", zeros, 6);
    MoveBlock(zeros, zeros + 2, 6);
    EXPECT_EQ(0, BlockCmp(zeros, "ababcdef", 8));
    EXPECT_LT(BlockCmp("a", "b", 1), 0);
    EXPECT_EQ(0, DSDisposePtr(zeros));
    EXPECT_EQ(0, DSDisposePtr(empty));
}

TEST_F(MemoryManager, BadHandlesAreReportedByEachCall)
{
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    ForeignHandle foreign;
    UHandle variable = nullptr;
    const struct {
        const char* name;
        KzErr (*call)(void* handle, UHandle* variable);
    } calls[] = {
        {"DSSetHandleSize", [](void* h, UHandle*) { return DSSetHandleSize(h, 9); }},
        {"DSSetHSzClr", [](void* h, UHandle*) { return DSSetHSzClr(h, 9); }},
        {"DSSetAlignedHandleSize", [](void* h, UHandle*) { return DSSetAlignedHandleSize(h, 9, 8, 0); }},
        {"DSSetAlignedHSzClr", [](void* h, UHandle*) { return DSSetAlignedHSzClr(h, 9, 8, 0); }},
        {"DSSetHandleSizeOrNewHandle", [](void*, UHandle* v) { return DSSetHandleSizeOrNewHandle(v, 9); }},
        {"DSSetHSzOrNewHClr", [](void*, UHandle* v) { return DSSetHSzOrNewHClr(v, 9); }},
        {"DSDisposeHandle", [](void* h, UHandle*) { return DSDisposeHandle(h); }},
        {"DSDisposeHandleAndNull", [](void*, UHandle* v) { return DSDisposeHandleAndNull(v); }},
    };
    std::set<unsigned> hashes;
    for (const auto& c : calls) {
        for (void* bad : {static_cast<void*>(stale), static_cast<void*>(foreign)}) {
            variable = static_cast<UHandle>(bad);
            EXPECT_EQ(3, c.call(bad, &variable)) << c.name;
            const auto all = reports.TakeAll();
            ASSERT_EQ(2u, all.size()) << c.name;
            EXPECT_EQ(4, all[0].level);
            EXPECT_EQ("", all[0].text);
            EXPECT_EQ(2, all[1].level);
            EXPECT_EQ(std::string("Memory error 3 in ") + c.name, all[1].text);
            EXPECT_EQ("source/MemoryManager", all[0].file);
            hashes.insert({all[0].hash, all[1].hash});
        }
    }
    EXPECT_EQ(nullptr, variable) << "the variable is nulled though the disposal failed";
    EXPECT_EQ(2 * std::size(calls), hashes.size());
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
        EXPECT_FALSE(IsDSHandle(foreign));
        for (const void* bad : {static_cast<const void*>(stale), static_cast<const void*>(&zeroMaster),
                                static_cast<const void*>(reinterpret_cast<char*>(good) + 1)}) {
            EXPECT_EQ(3, AZCheckHandle(bad));
            EXPECT_EQ(3, DSCheckHandle(bad));
        }
        EXPECT_EQ(0, AZCheckHandle(good));
        EXPECT_EQ(0, DSCheckHandle(good));
        EXPECT_TRUE(IsDSHandle(good));
    }
    EXPECT_EQ(2u, DSSetHandleChecking(77));
    EXPECT_EQ(0, DSDisposeHandle(good));
}

TEST_F(MemoryManager, OnlyMastersInUseAreHandles)
{
    std::vector<UHandle> handles;
    for (int i = 0; i < 25000; ++i) {
        handles.push_back(DSNewHandle(4));
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
    for (std::size_t i = 0; i < handles.size(); ++i) {
        ASSERT_TRUE(IsDSHandle(handles[i]));
        ASSERT_FALSE(IsDSHandle(*handles[i]));
        DSDisposeHandle(handles[i]);
        ASSERT_FALSE(IsDSHandle(handles[i]));
    }
}

TEST_F(MemoryManager, TheSixthBlockComesOnDemand)
{
    const kz::MemZoneRec* const zone = kz::MemZone();
    std::vector<UHandle> handles;
    for (int i = 0; i < 50000; ++i) {
        handles.push_back(DSNewHandle(0));
    }
    EXPECT_EQ(5u, zone->blockCount);
    for (int n : {1, 2, 3}) {  // the block, the index, the data
        FailAllocation fail(n);
        EXPECT_EQ(nullptr, DSNewHandle(0));
    }
    EXPECT_EQ(nullptr, kz::MemoryFault());
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
    gMemFullSizes.clear();
    SetMemFullProc([](unsigned long size) { gMemFullSizes.push_back(size); });
    UHandle handle = DSNewHandle(64);
    FillWith(handle, 9);
    unsigned char* const data = *handle;
    for (const unsigned long size : {ULONG_MAX, ULONG_MAX - 15, ULONG_MAX - 100000, ULONG_MAX / 2}) {
        EXPECT_EQ(nullptr, DSNewHandle(size));
        EXPECT_EQ(nullptr, DSNewHClr(size));
        EXPECT_EQ(nullptr, DSNewAlignedHandle(size, 4096, 8));
        EXPECT_EQ(nullptr, DSNewAlignedHClr(size, 32768, 65532));
        EXPECT_EQ(std::vector<unsigned long>(4, size), gMemFullSizes);
        for (KzErr (*resize)(void*, unsigned long) : {&DSSetHandleSize, &DSSetHSzClr}) {
            EXPECT_EQ(2, resize(handle, size));
            EXPECT_TRUE(reports.Take(2, "Memory error 2 in DSSetH"));
        }
        EXPECT_EQ(data, *handle);
        EXPECT_EQ(Bytes(64, 9), ContentOf(handle));
        gMemFullSizes.clear();
    }
    EXPECT_EQ(nullptr, DSNewPtr(ULONG_MAX));
    EXPECT_EQ(nullptr, DSNewPClr(ULONG_MAX));
    EXPECT_EQ(std::vector<unsigned long>(2, ULONG_MAX), gMemFullSizes);
    EXPECT_EQ(0, DSDisposeHandle(handle));
}

TEST_F(MemoryManager, MemoryFullProcedure)
{
    gMemFullSizes.clear();
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
    EXPECT_EQ(before.resizes + 1, ReadCounters().resizes);
    EXPECT_EQ(before.moves, ReadCounters().moves);

    std::vector<UHandle> handles;
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
    DSDisposeHandle(handle);
}

TEST_F(MemoryManager, Counters)
{
    const uInt64 words[2] = {0x0000000200000001, 0x00000004FFFFFFFF};
    DSSetCounters(words);
    UHandle handle = DSNewHandle(1);
    DSDisposePtr(DSNewPtr(1));
    DSSetHandleSize(handle, 2);
    const Counters counters = ReadCounters();
    EXPECT_EQ(2u, counters.handles);
    EXPECT_EQ(3u, counters.pointers);
    EXPECT_EQ(0u, counters.resizes);
    EXPECT_EQ(5u, counters.moves);
    DSDisposeHandle(handle);
}

TEST(MemoryManagerService, WithoutTheService)
{
    kztest::ReportCatcher reports;
    UHandle stale;
    {
        kztest::RunningMemory memory;
        EXPECT_TRUE(GetMemoryManagerInitialized());
        stale = DSNewHandle(1);
        DSDisposeHandle(stale);
    }
    reports.TakeAll();
    EXPECT_FALSE(GetMemoryManagerInitialized());
    EXPECT_EQ(nullptr, DSNewHandle(1));
    EXPECT_FALSE(IsDSHandle(stale));
    EXPECT_EQ(3, DSCheckHandle(stale));
    EXPECT_EQ(3, DSDisposeHandle(stale));
    EXPECT_EQ(2u, reports.TakeAll().size());
    void* const ptr = DSNewPtr(0);
    EXPECT_NE(nullptr, ptr);
    EXPECT_EQ(0, DSDisposePtr(ptr));
    uInt64 words[2] = {1, 1};
    DSReadCounters(words);
    EXPECT_EQ(0u, words[0] | words[1]);
}

TEST(MemoryManagerService, StopRecoversWhatIsLeft)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(0, MemoryManagerService()->Init());
        EXPECT_STREQ("MemoryManager", MemoryManagerService()->GetName());
        DSDisposeHandle(DSNewHandle(5));
        UHandle const a = DSNewHandle(100);
        UHandle const b = DSNewAlignedHandle(12, 4096, 4);
        MemoryManagerService()->Uninit();
        const auto all = reports.TakeAll();
        ASSERT_EQ(3u, all.size());
        char text[2][80];
        std::snprintf(text[0], sizeof text[0], "handle 0x%016lx, size 100 still allocated.",
                      reinterpret_cast<unsigned long>(a));
        std::snprintf(text[1], sizeof text[1], "handle 0x%016lx, size 12 still allocated.",
                      reinterpret_cast<unsigned long>(b));
        const std::set<std::string> expected = {text[0], text[1]};
        EXPECT_EQ(expected, (std::set<std::string>{all[0].text, all[1].text}));
        EXPECT_EQ("Recovered 2 Handles for 112 bytes.", all[2].text);
        EXPECT_EQ(0, all[0].level + all[1].level + all[2].level);
    }
    KZAppInterfaceSet(nullptr);
}

TEST(MemoryManagerService, StartWithoutMemory)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
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
    KZAppInterfaceSet(nullptr);
}

// What a process started with this ZVHandleCheck works with.
int LevelOfChild(const char* setting)
{
    const pid_t child = fork();
    if (child == 0) {
        if (setting == nullptr) {
            unsetenv("ZVHandleCheck");
        } else {
            setenv("ZVHandleCheck", setting, 1);
        }
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

TEST(MemoryManagerService, EnvironmentSetsTheCheckLevel)
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
    const auto fill = static_cast<unsigned char>(random());
    if (handles.size() < 3 || below(4) == 0) {
        UHandle made = below(2) ? DSNewHClr(size) : DSNewAlignedHClr(size, alignment, offset);
        ASSERT_TRUE(handles.emplace(made, Bytes(size, 0)).second);
        return;
    }
    auto entry = std::next(handles.begin(), below(static_cast<unsigned>(handles.size())));
    UHandle handle = entry->first;
    Bytes& model = entry->second;
    ASSERT_EQ(model, ContentOf(handle));
    switch (below(5)) {
        case 0:
            ASSERT_EQ(0, DSDisposeHandle(handle));
            handles.erase(entry);
            return;
        case 1:
            ASSERT_EQ(0, DSSetHSzClr(handle, size));
            model.resize(size);
            return;
        case 2:
            ASSERT_EQ(0, DSSetAlignedHSzClr(handle, size, alignment, offset));
            model.resize(size);
            return;
        case 3: {
            auto other = std::next(handles.begin(), below(static_cast<unsigned>(handles.size())));
            if (other != entry) {
                UHandle dest = other->first;
                ASSERT_EQ(0, DSCopyHandle(&dest, handle));
                ASSERT_EQ(other->first, dest);
                other->second = model;
            }
            return;
        }
        default:
            FillWith(handle, fill);
            std::fill(model.begin(), model.end(), fill);
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
    constexpr int kWorkers = 6;
    constexpr int kHandlesEach = 12000;
    std::vector<UHandle> held(45000);  // so that any one worker needs more than the blocks at start hold
    for (UHandle& handle : held) {
        handle = DSNewHandle(0);
    }
    std::array<std::atomic<UHandle>, 256> published{};
    std::atomic<bool> stop{false};
    std::atomic<int> faults{0};
    std::vector<std::thread> workers;
    std::vector<std::thread> checkers;
    for (unsigned w = 0; w < kWorkers; ++w) {
        workers.emplace_back([&, w] {
            std::vector<UHandle> mine;
            for (unsigned i = 0; i < kHandlesEach; ++i) {
                UHandle handle = DSNewHandle(8);
                std::memset(*handle, static_cast<int>(w), 8);
                mine.push_back(handle);
                published[(i * kWorkers + w) % published.size()] = handle;
                if (i % 8 == 0) {
                    faults += DSSetHSzClr(handle, 64 + i % 64) != 0;
                }
                if (i % 16 == 0) {
                    DSDisposeHandle(mine[i / 2]);
                    mine[i / 2] = DSNewHClr(8);
                    std::memset(*mine[i / 2], static_cast<int>(w), 8);
                }
            }
            for (UHandle handle : mine) {
                const std::string expected(8, static_cast<char>(w));
                faults += std::memcmp(*handle, expected.data(), 8) != 0;
                faults += DSDisposeHandle(handle) != 0;
            }
        });
    }
    for (int c = 0; c < 2; ++c) {
        checkers.emplace_back([&] {
            while (!stop) {
                for (auto& handle : published) {
                    IsDSHandle(handle);  // in use or freed meanwhile
                }
                faults += IsDSHandle(&stop);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    stop = true;
    for (std::thread& checker : checkers) {
        checker.join();
    }
    EXPECT_EQ(0, faults);
    EXPECT_GT(kz::MemZone()->blockCount, 5u);
    for (UHandle handle : held) {
        DSDisposeHandle(handle);
    }
}

}  // namespace
