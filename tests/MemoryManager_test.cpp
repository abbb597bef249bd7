#include "MemoryManager.h"

#include <gtest/gtest.h>

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
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "ChildTest.h"
#include "HandleAllocationInterface.h"
#include "HandleLayout.h"
#include "MemoryChecks.h"
#include "MemoryZone.h"
#include "ReportCatcher.h"
#include "ResidentPages.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;
using Bytes = std::vector<unsigned char>;

class MemoryManager : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// Counts of the zone, touched without its lock while no other thread makes a handle.
uInt32& BlockCount() KZ_NO_THREAD_CHECK
{
    return kz::MemZone()->blockCount;
}

uInt32& FreeMasterCount() KZ_NO_THREAD_CHECK
{
    return kz::MemZone()->freeMasterCount;
}

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
constexpr unsigned long kAllCalls = std::tuple_size_v<decltype(kCallsOnVariables)>;
static_assert(CountTakers<UHandle*>(kCallsOnVariables) == kAllCalls);
static_assert(CountTakers<LStr***>(kCallsOnVariables) == kAllCalls);
static_assert(CountTakers<void*>(kCallsOnVariables) == kAllCalls);
static_assert(CountTakers<std::nullptr_t>(kCallsOnVariables) == kAllCalls);
static_assert(CountTakers<UHandle>(kCallsOnVariables) == 0);
static_assert(CountTakers<LStr**>(kCallsOnVariables) == 0);
static_assert(CountTakers<std::string*>(kCallsOnVariables) == 0);
static_assert(CountTakers<const UHandle*>(kCallsOnVariables) == 0);

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

TEST_F(MemoryManager, ResizeOrNew)
{
    using Call = KzErr (*)(void*, unsigned long);
    for (const Call call : {Call{&DSSetHandleSizeOrNewHandle}, Call{&DSSetHSzOrNewHClr}}) {
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
    UHandle const good = DSNewHandle(3);
    UHandle const stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    ForeignHandle foreign;
    UHandle variable = nullptr;
    const struct {
        const char* name;
        KzErr (*call)(UHandle* variable);
        unsigned fatals = 1;  // clearing resizes ask for the size first
    } calls[] = {
        {"DSSetHandleSize", [](UHandle* h) { return DSSetHandleSize(*h, 9); }},
        {"DSSetHSzClr", [](UHandle* h) { return DSSetHSzClr(*h, 9); }, 2},
        {"DSPtrToXHand", [](UHandle* h) { return DSPtrToXHand("x", *h, 1); }},
        {"DSPtrAndHand", [](UHandle* h) { return DSPtrAndHand("x", *h, 1); }},
        {"DSSetHandleFromPtr", [](UHandle* h) { return DSSetHandleFromPtr(h, "x", 1); }},
        {"AZSetHandleSize", [](UHandle* h) { return AZSetHandleSize(*h, 9); }},
        {"AZSetHSzClr", [](UHandle* h) { return AZSetHSzClr(*h, 9); }, 2},
        {"AZPtrToXHand", [](UHandle* h) { return AZPtrToXHand("x", *h, 1); }},
        {"AZPtrAndHand", [](UHandle* h) { return AZPtrAndHand("x", *h, 1); }},
        {"AZSetHandleFromPtr", [](UHandle* h) { return AZSetHandleFromPtr(h, "x", 1); }},
        {"DSSetHandleSizeCache", [](UHandle* h) { return DSSetHandleSizeCache(*h, 9); }},
        {"DSSetHSzClrCache", [](UHandle* h) { return DSSetHSzClrCache(*h, 9); }, 2},
        {"DSSetAlignedHandleSize", [](UHandle* h) { return DSSetAlignedHandleSize(*h, 9, 8, 0); }},
        {"DSSetAlignedHSzClr", [](UHandle* h) { return DSSetAlignedHSzClr(*h, 9, 8, 0); }, 2},
        {"DSSetHandleSizeOrNewHandle", [](UHandle* h) { return DSSetHandleSizeOrNewHandle(h, 9); }},
        {"DSSetHSzOrNewHClr", [](UHandle* h) { return DSSetHSzOrNewHClr(h, 9); }, 2},
        {"DSSetHandleSizeOrNewHandleCache", [](UHandle* h) { return DSSetHandleSizeOrNewHandleCache(h, 9); }},
        {"DSSetHSzOrNewHClrCache", [](UHandle* h) { return DSSetHSzOrNewHClrCache(h, 9); }, 2},
        {"DataSetHandleSizeOrNewHandle", [](UHandle* h) { return DataSetHandleSizeOrNewHandle(h, 9); }},
        {"DataSetHSzOrNewHClr", [](UHandle* h) { return DataSetHSzOrNewHClr(h, 9); }, 2},
        {"AZHLock", [](UHandle* h) { return AZHLock(*h); }},
        {"AZHUnlock", [](UHandle* h) { return AZHUnlock(*h); }},
        {"AZHPurge", [](UHandle* h) { return (AZHPurge(*h), KzErr{3}); }},
        {"AZHNoPurge", [](UHandle* h) { return (AZHNoPurge(*h), KzErr{3}); }},
        {"AZHSetState", [](UHandle* h) { return (AZHSetState(*h, 1), KzErr{3}); }},
        {"AZHGetState", [](UHandle* h) { return AZHGetState(*h) == 0 ? KzErr{3} : KzErr{0}; }},
        {"DSDisposeHandle", [](UHandle* h) { return DSDisposeHandle(*h); }},
        {"AZDisposeHandle", [](UHandle* h) { return AZDisposeHandle(*h); }},
        {"DSDisposeHandleCache", [](UHandle* h) { return DSDisposeHandleCache(*h); }},
        {"DSDisposeHandleAndNull", [](UHandle* h) { return DSDisposeHandleAndNull(h); }},
    };
    for (const auto& c : calls) {
        for (void* bad : {static_cast<void*>(stale), static_cast<void*>(foreign)}) {
            variable = static_cast<UHandle>(bad);
            EXPECT_EQ(3, c.call(&variable)) << c.name;
            const auto all = reports.TakeAll();
            ASSERT_EQ(c.fatals + 1, all.size()) << c.name;
            for (unsigned i = 0; i < c.fatals; ++i) {
                EXPECT_EQ(4, all[i].level);
                EXPECT_EQ("", all[i].text);
            }
            EXPECT_EQ(2, all.back().level);
            EXPECT_EQ(std::string("Memory error 3 in ") + c.name, all.back().text);
        }
    }
    EXPECT_EQ(nullptr, variable) << "the variable is nulled though the disposal failed";
    EXPECT_EQ(0u, DSGetHandleSize(stale));
    EXPECT_EQ(0u, AZGetHandleSize(nullptr));
    // Calls that only look, and fail without naming themselves.
    variable = stale;
    EXPECT_EQ(3, DSCopyHandle(&variable, foreign));
    EXPECT_EQ(3, DSHandToHand(&variable));
    EXPECT_EQ(3, DSHandAndHand(stale, good));
    EXPECT_EQ(3, DSSwapHandles(good, stale));
    EXPECT_EQ(3, DSSwapHandles(foreign, good));
    EXPECT_EQ(nullptr, DSRecoverHandle(nullptr));
    EXPECT_EQ(nullptr, AZRecoverHandle(&variable));
    const auto all = reports.TakeAll();
    ASSERT_EQ(9u, all.size());
    for (const auto& report : all) {
        EXPECT_EQ(4, report.level);
    }
    EXPECT_EQ("Pointer passed to BRecoverHandle not linked to master pointer!", all.back().text);
    EXPECT_EQ(3u, DSGetHandleSize(good));
    DSDisposeHandle(good);
}

TEST_F(MemoryManager, CopiesAndAppends)
{
    UHandle h = nullptr;
    const auto text = [&h] { return h == nullptr ? "null" : std::string(*h, *h + DSGetHandleSize(h)); };
    EXPECT_EQ(0, DSPtrToHand("abc", &h, 3));
    EXPECT_EQ(0, DSPtrAndHand("defg", h, 4));
    EXPECT_EQ("abcdefg", text());
    // Sources inside the handle itself, though every resize moves it.
    EXPECT_EQ(0, DSPtrAndHand(*h + 2, h, 4));
    EXPECT_EQ("abcdefgcdef", text());
    EXPECT_EQ(0, AZHandAndHand(h, h));
    EXPECT_EQ("abcdefgcdefabcdefgcdef", text());
    EXPECT_EQ(0, DSSetHandleFromPtr(&h, *h + 3, 5));
    EXPECT_EQ("defgc", text());
    EXPECT_EQ(0, AZPtrToXHand(*h + 1, h, 4));
    EXPECT_EQ("efgc", text());
    EXPECT_EQ(0, DSPtrToXHand("wxyz", h, 4)) << "of the same size, in place";
    EXPECT_EQ("wxyz", text());
    EXPECT_EQ(0, DSPtrAndHand(nullptr, h, 0));
    UHandle const old = h;
    EXPECT_EQ(0, DSHandToHand(&h));
    EXPECT_NE(old, h);
    EXPECT_EQ("wxyz", text());
    EXPECT_EQ(h, DSRecoverHandle(*h));
    EXPECT_EQ(0, AZSetHandleFromPtr(&h, "1", 1));
    EXPECT_EQ(0, DSSwapHandles(h, old));
    EXPECT_EQ("wxyz", text());
    EXPECT_EQ(0, DSSwapHandles(h, h));
    EXPECT_TRUE(reports.Take(kDbgFatal, ""));
    EXPECT_EQ(0, DSSetHandleFromPtrNULLMeansEmpty(&h, "12", 2));
    EXPECT_EQ("12", text());
    EXPECT_EQ(0, DSSetHandleFromPtrNULLMeansEmpty(&h, nullptr, 0));
    EXPECT_EQ(nullptr, h);
    for (const KzErr err : {DSPtrToHand("x", nullptr, 1), DSPtrToHand(nullptr, &h, 1), DSPtrAndHand(nullptr, old, 1),
                            DSPtrToXHand(nullptr, old, 1), DSHandToHand(nullptr),
                            DSSetHandleFromPtrNULLMeansEmpty(nullptr, nullptr, 0)}) {
        EXPECT_EQ(1, err);
    }
    EXPECT_EQ(2, DSPtrAndHand("x", old, ~0ul));
    EXPECT_TRUE(reports.Take(kDbgWarning, "Memory error 2 in DSPtrAndHand"));
    EXPECT_EQ(1u, DSGetHandleSize(old));

    EXPECT_EQ(0, DataSetHandleSizeOrNewHandle(&h, 0));
    EXPECT_EQ(nullptr, h);
    EXPECT_EQ(0, DataSetHSzOrNewHClr(&h, 2));
    EXPECT_EQ(std::string(2, 0), text());
    EXPECT_EQ(0, DataSetHSzOrNewHClr(&h, 0));
    EXPECT_EQ(nullptr, h);
    EXPECT_EQ(0, DSDisposeHandle(old));
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

struct MemEvent {
    int32 kind;
    KzErr err;
    bool hasHandle;
    unsigned long newSize;
    unsigned long oldSize;
    bool operator==(const MemEvent&) const = default;
};
std::vector<MemEvent> gEvents;
int gMoveBlocks = 0;

TEST_F(MemoryManager, TraceCountersAndCallback)
{
    gEvents.clear();
    SetMemEventTraceProc([](int32 kind, KzErr err, UHandle h, unsigned long newSize, unsigned long oldSize) {
        gEvents.push_back({kind, err, h != nullptr, newSize, oldSize});
    });
    const uInt64 zeros[2] = {0, 0};
    DSSetCounters(zeros);
    UHandle const h = AZNewHClr(100);
    AZSetHandleSize(h, 100);
    AZSetHSzClr(h, 2000);
    SetStressHandles(1);
    EXPECT_TRUE(GetStressHandles());
    DSSetHandleSize(h, 10);
    SetStressHandles(0);
    DSSetHandleSize(h, ~0ul - 8);
    DSNewHandle(~0ul);
    AZDisposeHandle(h);
    SetMemEventTraceProc(nullptr);
    const std::vector<MemEvent> expected = {{0, 0, true, 100, 0},       {1, 0, true, 2000, 100}, {1, 0, true, 10, 2000},
                                            {1, 2, true, ~0ul - 8, 10}, {0, 2, false, ~0ul, 0},  {2, 0, true, 10, 0}};
    EXPECT_EQ(expected, gEvents);
    uInt32 counters[4];
    uInt64 words[2];
    DSReadCounters(words);
    std::memcpy(counters, words, sizeof words);
    EXPECT_EQ(1u, counters[0]);
    EXPECT_EQ(3u, counters[2]) << "the resize that had nothing to do does not count, the failed one does";
    EXPECT_EQ(1u, counters[3]) << "with stress handles moves are not counted";
    EXPECT_TRUE(reports.Take(kDbgWarning, "Memory error 2 in DSSetHandleSize"));

    gMoveBlocks = 0;
    SetMemoryCheckCallback([] { ++gMoveBlocks; });
    char bytes[2] = {1, 2};
    MoveBlock(bytes, bytes + 1, 1);
    ClearMem(bytes, 2);
    SetMemoryCheckCallback(nullptr);
    EXPECT_EQ(2, gMoveBlocks);
}

TEST_F(MemoryManager, HeapChecksFindDamageOfTheTables)
{
    EXPECT_EQ(0, DSHeapCheck(1));
    EXPECT_TRUE(reports.Take(kDbgLog, "Free: totFreeSize 0, maxFreeSize 0"));
    EXPECT_TRUE(reports.Take(kDbgLog, "Allocated to ZV: totAllocSize "));
    EXPECT_TRUE(reports.Take(kDbgLog, "Total: totPhysSize 0"));
    const auto fails = [this](const char* text) {
        const bool failed = AZHeapCheck(0) == 74 && reports.Take(kDbgFatal, text);
        reports.TakeAll();
        return failed;
    };
    ++BlockCount();
    EXPECT_TRUE(fails("MemCheck error, m.p. block chain error 2"));
    BlockCount() -= 2;
    EXPECT_TRUE(fails("MemCheck error, m.p. block chain error 1"));
    ++BlockCount();

    SetMemoryDebugger(1);
    const uInt32 count = FreeMasterCount();
    const struct {
        uInt32 count;
        const char* text;
    } counts[] = {{0x80000000u, "bad freemaster count"},
                  {count + 1, "bad freemaster count"},
                  {count - 1, "freemaster chain isn't NULL terminated!"}};
    for (const auto& c : counts) {
        FreeMasterCount() = c.count;
        EXPECT_TRUE(fails(c.text)) << c.count;
        EXPECT_EQ(nullptr, DSNewHandle(1));
        EXPECT_TRUE(reports.Take(kDbgFatal, c.text));
        EXPECT_NE(nullptr, kz::MemoryFault());
        FreeMasterCount() = count;
    }
    // A stray write over a free master.
    kz::MasterWord* const second = &kz::NewestBlock(kz::MemZone())->masters[1];
    kz::MasterWord const link = *second;
    *second = reinterpret_cast<kz::MasterWord>(kz::MemZone());
    EXPECT_TRUE(fails("bad freemaster count"));
    *second = link;
    DSDisposePtr(DSNewPClr(3));
    EXPECT_EQ(0, DSCompact());
    EXPECT_EQ(3u, reports.TakeAll().size());
    EXPECT_FALSE(ToggleMemoryDebugging());
    EXPECT_TRUE(reports.Take(kDbgLog, "turning memory checking off"));
    EXPECT_EQ(0, DSCompact());
    EXPECT_FALSE(MemCheckHeaps());
    EXPECT_EQ(5u, reports.TakeAll().size());

    MemStatRec stats;
    uInt64 growth = 1;
    uInt32 last = 1;
    EXPECT_EQ(0, AZMemStats(&stats));
    EXPECT_EQ(0, DSMemStats2(nullptr, nullptr, nullptr, &growth, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                             nullptr, &last));
    EXPECT_EQ(stats.totAllocSize, growth);
    EXPECT_EQ(0u, last);
    EXPECT_EQ(80u, sizeof stats);
}

TEST_F(MemoryManager, InterfacesReachTheirCalls)
{
    const NormalHandleAllocationInterface normal;
    const CachedHandleAllocationInterface cached;
    constexpr unsigned long kBig = 20000;
    for (const HandleAllocationInterface* calls : {static_cast<const HandleAllocationInterface*>(&normal),
                                                   static_cast<const HandleAllocationInterface*>(&cached)}) {
        UHandle h = calls->AllocateHandle(kBig);
        unsigned char* const data = *h;
        EXPECT_EQ(0, calls->DeallocateHandle(h));
        h = calls->AllocateHandleClr(kBig);
        EXPECT_TRUE(calls == &normal || *h == data);
        EXPECT_EQ(0, (*h)[kBig - 1]);
        EXPECT_EQ(0, calls->ResizeHandle(h, 1));
        (*h)[0] = 7;
        EXPECT_EQ(0, calls->ResizeHandleClr(h, 3));
        EXPECT_EQ(0, BlockCmp(*h, "\7\0\0", 3));
        UHandle variable = nullptr;
        EXPECT_EQ(0, calls->ResizeHandleOrAllocateHandleClr(&variable, 2));
        EXPECT_EQ(0, calls->ResizeHandleOrAllocateHandle(&variable, 4));
        EXPECT_EQ(4u, DSGetHandleSize(variable));
        calls->DeallocateHandle(variable);
        calls->DeallocateHandle(h);
    }
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
    std::vector<UHandle> handles(50000);
    for (UHandle& handle : handles) {
        handle = DSNewHandle(0);
    }
    EXPECT_EQ(5u, BlockCount());
    for (int n : {1, 2, 3}) {  // the block, the index, the data
        FailAllocation fail(n);
        EXPECT_EQ(nullptr, DSNewHandle(0));
    }
    EXPECT_EQ(50000u, kz::LiveHandleCount());
    handles.push_back(DSNewHandle(0));
    EXPECT_EQ(6u, BlockCount());
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
    while (FreeMasterCount() > 0) {
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
    EXPECT_EQ(1u, BlockCount());
    DSDisposeHandle(handle);
    EXPECT_EQ(nullptr, kz::MemoryFault());
    MemoryManagerService()->Uninit();
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
        const int exitCode =
            kztest::RunChildTests("HandleCheckChild.DISABLED_ExitsWithItsLevel", {{"ZVHandleCheck", c.setting}});
        EXPECT_EQ(c.level, exitCode - 10) << (c.setting ? c.setting : "(not set)");
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
    EXPECT_GT(BlockCount(), 5u);
    for (UHandle handle : held) {
        DSDisposeHandle(handle);
    }
}

}  // namespace
