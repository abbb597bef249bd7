// All calls on handles in one table, with what each does, against a plain model of the handles: in random sequences
// with extreme arguments and allocations that fail, each alone, and with arguments that it refuses.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "BufferCache.h"
#include "ChildTest.h"
#include "FaultLoop.h"
#include "HandleAllocationInterface.h"
#include "HandleLayout.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
#include "RunningMemory.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;
using kz::HandleAlignment;
using kztest::FailAllocation;

struct Arguments {
    unsigned long n = 0;  // a size, or the number of bytes
    unsigned long alignment = 16;
    unsigned long offset = 8;
    const void* bytes = nullptr;
    UHandle other = nullptr;
};
using V = UHandle*;
using A = const Arguments&;

enum Effect { kSize, kReplace, kAppend, kCopy, kAppendOther, kDuplicate, kSwap, kDispose, kLook };
enum Trait : unsigned {
    kFresh = 1,      // makes a handle, whatever the variable holds
    kVariable = 2,   // takes the variable's address, which may not be null
    kOrNew = 6,      // the same, and makes a handle when the variable is null
    kZeros = 8,      // new bytes are 0; a bad handle is told of twice, because the size is asked for first
    kCached = 16,    // goes by the cache of freed blocks
    kGiven = 32,     // aligned as the arguments say, else by size
    kNotEmpty = 64,  // no bytes stand for no handle
    kUnnamed = 128,  // a failure does not tell the call's name
};

struct Call {
    const char* name;
    KzErr (*call)(V, A);
    Effect effect;
    unsigned traits = 0;
};

KzErr Made(UHandle handle)
{
    return handle == nullptr ? 2 : 0;
}

const NormalHandleAllocationInterface gNormal;
const CachedHandleAllocationInterface gCached;

// The names are those of reports, which tell what an interface has reached.
#define KZ_DO(call) [](V h, [[maybe_unused]] A a) -> KzErr { return call; }
const Call kCalls[] = {
    {"DSNewHandle", KZ_DO(Made(*h = DSNewHandle(a.n))), kSize, kFresh},
    {"AZNewHandle", KZ_DO(Made(*h = AZNewHandle(a.n))), kSize, kFresh},
    {"DSNewHClr", KZ_DO(Made(*h = DSNewHClr(a.n))), kSize, kFresh | kZeros},
    {"AZNewHClr", KZ_DO(Made(*h = AZNewHClr(a.n))), kSize, kFresh | kZeros},
    {"DSNewHandleCache", KZ_DO(Made(*h = DSNewHandleCache(a.n))), kSize, kFresh | kCached},
    {"DSNewHClrCache", KZ_DO(Made(*h = DSNewHClrCache(a.n))), kSize, kFresh | kZeros | kCached},
    {"DSNewAlignedHandle", KZ_DO(Made(*h = DSNewAlignedHandle(a.n, a.alignment, a.offset))), kSize, kFresh | kGiven},
    {"DSNewAlignedHClr", KZ_DO(Made(*h = DSNewAlignedHClr(a.n, a.alignment, a.offset))), kSize,
     kFresh | kZeros | kGiven},
    {"AllocateHandle", KZ_DO(Made(*h = gNormal.AllocateHandle(a.n))), kSize, kFresh},
    {"AllocateHandleClr", KZ_DO(Made(*h = gNormal.AllocateHandleClr(a.n))), kSize, kFresh | kZeros},
    {"AllocateHandle", KZ_DO(Made(*h = gCached.AllocateHandle(a.n))), kSize, kFresh | kCached},
    {"AllocateHandleClr", KZ_DO(Made(*h = gCached.AllocateHandleClr(a.n))), kSize, kFresh | kZeros | kCached},
    {"DSPtrToHand", KZ_DO(DSPtrToHand(a.bytes, h, a.n)), kReplace, kFresh | kVariable},
    {"AZPtrToHand", KZ_DO(AZPtrToHand(a.bytes, h, a.n)), kReplace, kFresh | kVariable},

    {"DSSetHandleSize", KZ_DO(DSSetHandleSize(*h, a.n)), kSize},
    {"AZSetHandleSize", KZ_DO(AZSetHandleSize(*h, a.n)), kSize},
    {"DSSetHandleSize", KZ_DO(gNormal.ResizeHandle(*h, a.n)), kSize},
    {"DSSetHSzClr", KZ_DO(DSSetHSzClr(*h, a.n)), kSize, kZeros},
    {"AZSetHSzClr", KZ_DO(AZSetHSzClr(*h, a.n)), kSize, kZeros},
    {"DSSetHSzClr", KZ_DO(gNormal.ResizeHandleClr(*h, a.n)), kSize, kZeros},
    {"DSSetHandleSizeCache", KZ_DO(DSSetHandleSizeCache(*h, a.n)), kSize, kCached},
    {"DSSetHandleSizeCache", KZ_DO(gCached.ResizeHandle(*h, a.n)), kSize, kCached},
    {"DSSetHSzClrCache", KZ_DO(DSSetHSzClrCache(*h, a.n)), kSize, kZeros | kCached},
    {"DSSetHSzClrCache", KZ_DO(gCached.ResizeHandleClr(*h, a.n)), kSize, kZeros | kCached},
    {"DSSetAlignedHandleSize", KZ_DO(DSSetAlignedHandleSize(*h, a.n, a.alignment, a.offset)), kSize, kGiven},
    {"DSSetAlignedHSzClr", KZ_DO(DSSetAlignedHSzClr(*h, a.n, a.alignment, a.offset)), kSize, kZeros | kGiven},

    {"DSSetHandleSizeOrNewHandle", KZ_DO(DSSetHandleSizeOrNewHandle(h, a.n)), kSize, kOrNew},
    {"DSSetHandleSizeOrNewHandle", KZ_DO(gNormal.ResizeHandleOrAllocateHandle(h, a.n)), kSize, kOrNew},
    {"DSSetHSzOrNewHClr", KZ_DO(DSSetHSzOrNewHClr(h, a.n)), kSize, kOrNew | kZeros},
    {"DSSetHSzOrNewHClr", KZ_DO(gNormal.ResizeHandleOrAllocateHandleClr(h, a.n)), kSize, kOrNew | kZeros},
    {"DSSetHandleSizeOrNewHandleCache", KZ_DO(DSSetHandleSizeOrNewHandleCache(h, a.n)), kSize, kOrNew | kCached},
    {"DSSetHandleSizeOrNewHandleCache", KZ_DO(gCached.ResizeHandleOrAllocateHandle(h, a.n)), kSize, kOrNew | kCached},
    {"DSSetHSzOrNewHClrCache", KZ_DO(DSSetHSzOrNewHClrCache(h, a.n)), kSize, kOrNew | kZeros | kCached},
    {"DSSetHSzOrNewHClrCache", KZ_DO(gCached.ResizeHandleOrAllocateHandleClr(h, a.n)), kSize,
     kOrNew | kZeros | kCached},
    {"DataSetHandleSizeOrNewHandle", KZ_DO(DataSetHandleSizeOrNewHandle(h, a.n)), kSize, kOrNew | kNotEmpty},
    {"DataSetHSzOrNewHClr", KZ_DO(DataSetHSzOrNewHClr(h, a.n)), kSize, kOrNew | kNotEmpty | kZeros},

    {"DSSetHandleFromPtr", KZ_DO(DSSetHandleFromPtr(h, a.bytes, a.n)), kReplace, kOrNew},
    {"AZSetHandleFromPtr", KZ_DO(AZSetHandleFromPtr(h, a.bytes, a.n)), kReplace, kOrNew},
    {"DSSetHandleFromPtrNULLMeansEmpty", KZ_DO(DSSetHandleFromPtrNULLMeansEmpty(h, a.bytes, a.n)), kReplace,
     kOrNew | kNotEmpty},
    {"DSPtrToXHand", KZ_DO(DSPtrToXHand(a.bytes, *h, a.n)), kReplace},
    {"AZPtrToXHand", KZ_DO(AZPtrToXHand(a.bytes, *h, a.n)), kReplace},
    {"DSPtrAndHand", KZ_DO(DSPtrAndHand(a.bytes, *h, a.n)), kAppend},
    {"AZPtrAndHand", KZ_DO(AZPtrAndHand(a.bytes, *h, a.n)), kAppend},
    {"DSHandAndHand", KZ_DO(DSHandAndHand(a.other, *h)), kAppendOther},
    {"AZHandAndHand", KZ_DO(AZHandAndHand(a.other, *h)), kAppendOther},
    {"DSCopyHandle", KZ_DO(DSCopyHandle(h, a.other)), kCopy, kOrNew},
    {"AZCopyHandle", KZ_DO(AZCopyHandle(h, a.other)), kCopy, kOrNew},
    {"DSHandToHand", KZ_DO(DSHandToHand(h)), kDuplicate, kVariable | kUnnamed},
    {"AZHandToHand", KZ_DO(AZHandToHand(h)), kDuplicate, kVariable | kUnnamed},
    {"DSSwapHandles", KZ_DO(DSSwapHandles(*h, a.other)), kSwap, kUnnamed},

    {"DSDisposeHandle", KZ_DO(DSDisposeHandle(*h)), kDispose},
    {"AZDisposeHandle", KZ_DO(AZDisposeHandle(*h)), kDispose},
    {"DSDisposeHandle", KZ_DO(gNormal.DeallocateHandle(*h)), kDispose},
    {"DSDisposeHandleCache", KZ_DO(DSDisposeHandleCache(*h)), kDispose, kCached},
    {"DSDisposeHandleCache", KZ_DO(gCached.DeallocateHandle(*h)), kDispose, kCached},
    {"DSDisposeHandleAndNull", KZ_DO(DSDisposeHandleAndNull(h)), kDispose, kVariable},
    {"AZHLock", KZ_DO(AZHLock(*h)), kLook},
    {"AZHUnlock", KZ_DO(AZHUnlock(*h)), kLook},
    {"AZHPurge", KZ_DO((AZHPurge(*h), AZCheckHandle(*h))), kLook},
    {"AZHNoPurge", KZ_DO((AZHNoPurge(*h), AZCheckHandle(*h))), kLook},
    {"AZHSetState", KZ_DO((AZHSetState(*h, 1), AZCheckHandle(*h))), kLook},
    {"AZHGetState", KZ_DO(AZHGetState(*h) == 0 ? AZCheckHandle(*h) : -1), kLook},
};

// What a host sees of a call, in order: sizes that could not be had, the trace, and then the reports.
Lines gSeen;

std::string Full(unsigned long size)
{
    return "full " + std::to_string(size);
}

std::string Event(int32 kind, KzErr err, const void* handle, unsigned long newSize, unsigned long oldSize)
{
    std::string line = "event";
    for (const unsigned long number : {static_cast<unsigned long>(kind), static_cast<unsigned long>(err),
                                       reinterpret_cast<uintptr_t>(handle), newSize, oldSize}) {
        line += " " + std::to_string(number);
    }
    return line;
}

std::string Report(int level, const std::string& text = "")
{
    return "report " + std::to_string(level) + " " + text;
}

std::string Named(KzErr err, const Call& call)
{
    return Report(kDbgWarning, "Memory error " + std::to_string(err) + " in " + call.name);
}

using Counters = std::array<uInt32, 4>;  // handles made, pointers made, resizes, moves

Counters ReadCounters()
{
    uInt64 words[2];
    DSReadCounters(words);
    return std::bit_cast<Counters>(words);
}

class MemoryModel : public kztest::MemoryTest {
protected:
    using Handles = std::map<UHandle, std::pair<Bytes, HandleAlignment>>;

    MemoryModel()
    {
        SetMemFullProc([](unsigned long size) { gSeen.push_back(Full(size)); });
        SetMemEventTraceProc([](int32 kind, KzErr err, UHandle h, unsigned long newSize, unsigned long oldSize) {
            gSeen.push_back(Event(kind, err, h, newSize, oldSize));
        });
        const auto words = std::bit_cast<std::array<uInt64, 2>>(counters);
        DSSetCounters(words.data());
    }
    ~MemoryModel() override
    {
        SetMemEventTraceProc(nullptr);
        SetMemFullProc(nullptr);
        SetStressHandles(0);
        End();
    }

    void End()
    {
        for (const auto& [handle, model] : handles) {
            EXPECT_EQ(0, DSDisposeHandle(handle));
        }
        handles.clear();
        gSeen.clear();
    }

    Lines Seen()
    {
        for (const auto& report : reports.TakeAll()) {
            gSeen.push_back(Report(report.level, report.text));
        }
        return std::exchange(gSeen, {});
    }

    UHandle Make(unsigned long size, unsigned char byte = 0)
    {
        UHandle const made = DSNewHandle(size);
        std::fill_n(*made, size, byte);
        handles[made] = {Bytes(size, byte), kz::AlignmentForSize(size)};
        ++counters[0];
        gSeen.clear();
        return made;
    }

    void Run(const Call& call, UHandle old, const Arguments& given, int failing = 0);
    void ExpectContents();
    void Step();

    unsigned Below(unsigned n) { return static_cast<unsigned>(random() % n); }
    Handles::iterator Pick() { return std::next(handles.begin(), Below(static_cast<unsigned>(handles.size()))); }
    unsigned long Size();

    std::mt19937 random;
    Handles handles;
    Counters counters = {1, 0x7FFFFFFF, 0xFFFFFFF0, 4};

private:
    struct Target {
        bool makes;
        unsigned long size;
        HandleAlignment align;
        Bytes bytes;  // the source's, then the whole content
    };
    Target TargetOf(const Call& call, UHandle old, const Arguments& given) const;
    void ExpectSized(const Call& call, UHandle old, UHandle now, KzErr err, const Target& target, bool failed);

    Lines mExpected;
};

// No block can have as many bytes.
constexpr unsigned long kTooLarge = 1ul << 47;

MemoryModel::Target MemoryModel::TargetOf(const Call& call, UHandle old, const Arguments& given) const
{
    Target target = {old == nullptr || call.effect == kDuplicate, given.n, {}, {}};
    const Bytes before = old == nullptr ? Bytes() : handles.at(old).first;
    if (call.effect == kCopy || call.effect == kAppendOther) {
        target.bytes = handles.at(given.other).first;
        target.size = target.bytes.size();
    } else if (call.effect == kDuplicate) {
        target.bytes = before;
        target.size = before.size();
    } else if (call.effect != kSize && given.n < kTooLarge) {
        const auto* const from = static_cast<const unsigned char*>(given.bytes);
        target.bytes.assign(from, from + given.n);
    }
    if (call.effect == kAppend || call.effect == kAppendOther) {
        target.size += std::min<unsigned long>(before.size(), ULONG_MAX - target.size);
        target.bytes.insert(target.bytes.begin(), before.begin(), before.end());
    } else if (call.effect == kSize) {
        target.bytes.assign(before.begin(), before.begin() + static_cast<long>(std::min(given.n, before.size())));
    }
    target.align = (call.traits & kGiven) != 0 ? kz::NormalAlignment(given.alignment, given.offset)
                                               : kz::AlignmentForSize(target.size);
    return target;
}

void MemoryModel::ExpectSized(const Call& call, UHandle old, UHandle now, KzErr err, const Target& target, bool failed)
{
    EXPECT_EQ(failed ? 2 : 0, err);
    const unsigned long oldSize = target.makes ? 0 : handles[old].first.size();
    const bool isSame = !target.makes && oldSize == target.size && handles[old].second == target.align;
    if (!isSame) {
        const unsigned long block =
            target.makes ? target.size : kz::HandleBlockSize(target.size, target.align, kz::HandleGuardSize());
        if (failed && (target.makes || block != 0)) {
            mExpected.push_back(Full(block));
        }
        mExpected.push_back(
            Event(target.makes ? 0 : 1, err, failed && target.makes ? nullptr : now, target.size, oldSize));
        counters[0] += target.makes && !failed;
        counters[2] += !target.makes;
        counters[3] += !target.makes && !failed && GetStressHandles() == 0;
    }
    if (failed) {
        EXPECT_EQ(call.effect == kDuplicate ? old : target.makes ? nullptr : old, now);
        if (!target.makes) {
            mExpected.push_back(Named(2, call));
        }
        return;
    }
    EXPECT_EQ(target.makes, now != old && !handles.contains(now));
    Bytes content = target.bytes;
    if (call.effect == kSize && (call.traits & kZeros) == 0) {
        std::fill(*now + content.size(), *now + target.size, static_cast<unsigned char>(0));  // may be anything
    }
    content.resize(target.size);
    handles[now] = {content, target.align};
}

// Each handle's header and content, and the counters, are as the model says.
void MemoryModel::ExpectContents()
{
    for (const auto& [handle, model] : handles) {
        ASSERT_EQ(0, DSCheckHandle(handle));
        ASSERT_EQ(model.first.size(), DSGetHandleSize(handle));
        ASSERT_TRUE(std::equal(model.first.begin(), model.first.end(), *handle));
        ASSERT_TRUE(model.second == kz::HandleDataPlace(*handle).align);
        ASSERT_EQ(0u, (reinterpret_cast<uintptr_t>(*handle) + model.second.offset) % model.second.alignment);
    }
    EXPECT_EQ(handles.size(), kz::LiveHandleCount());
    EXPECT_EQ(counters, ReadCounters());
}

// Runs a call on a handle of the model, or on a null variable; with `failing` that allocation of it fails.
void MemoryModel::Run(const Call& call, UHandle old, const Arguments& given, int failing)
{
    const bool isDispose = call.effect == kDispose || ((call.traits & kNotEmpty) != 0 && given.n == 0) ||
                           (call.effect == kCopy && given.other == nullptr);
    const bool isSized =
        !isDispose && call.effect != kSwap && call.effect != kLook && !(call.effect == kCopy && given.other == old);
    const Target target = isSized ? TargetOf(call, old, given) : Target{};
    unsigned char* data = old == nullptr ? nullptr : *old;
    UHandle variable = (call.traits & kFresh) != 0 ? &data : old;
    KzErr err = 0;
    bool failed = isSized && target.size >= kTooLarge;
    {
        const FailAllocation fail(failing);
        err = call.call(&variable, given);
        failed |= failing != 0 && FailAllocation::Happened();
    }
    mExpected.clear();
    if (isSized) {
        ExpectSized(call, old, variable, err, target, failed);
        EXPECT_TRUE(!failed || old == nullptr || *old == data);
    } else {
        EXPECT_EQ(0, err);
    }
    if (isDispose) {
        EXPECT_EQ((call.traits & kVariable) != 0 ? nullptr : old, variable);
        if (old != nullptr) {
            mExpected.push_back(Event(2, 0, old, handles[old].first.size(), 0));
            handles.erase(old);
        }
    } else if (call.effect == kSwap) {
        std::swap(handles[old], handles[given.other]);
        if (old == given.other) {
            mExpected.push_back(Report(kDbgFatal));
        }
    } else if (call.effect == kCopy && given.other == old) {
        mExpected.push_back(Report(kDbgWarning, "Should call DSHandToHand. This is a no-op"));
    }
    EXPECT_EQ(mExpected, Seen());
    ExpectContents();
}

unsigned long MemoryModel::Size()
{
    constexpr unsigned long kRare[] = {ULONG_MAX,     ULONG_MAX - 15, ULONG_MAX - 16, ULONG_MAX - 100000,
                                       ULONG_MAX / 2, kTooLarge,      16380,          16384,
                                       20000,         20000,          1048575,        1048576};
    return Below(8) == 0 ? kRare[Below(std::size(kRare))] : Below(2) ? Below(64) : Below(3000);
}

void MemoryModel::Step()
{
    while (handles.size() < 3) {
        Make(Below(3000), 7);
    }
    const auto [handle, model] = *Pick();
    const auto& [other, source] = *Pick();
    const bool isTooMuch = handles.size() > 9 || (model.first.size() > 100000 && Below(2) == 0);
    const Call* call = nullptr;
    do {
        call = &kCalls[Below(std::size(kCalls))];
    } while (isTooMuch && call->effect != kDispose);
    Arguments given = {Size(), Below(2) == 0 ? 1ul << Below(17) : random(), Below(Below(2) == 0 ? 300 : 70000), *other,
                       other};
    if (call->effect == kReplace || call->effect == kAppend) {
        const unsigned at = Below(static_cast<unsigned>(source.first.size() + 1));
        given.bytes = *other + at;
        if (given.n < kTooLarge) {
            given.n = std::min(given.n, source.first.size() - at);
        }
    } else if (call->effect == kCopy && Below(16) == 0) {
        given.other = nullptr;
    }
    const bool none = (call->traits & kFresh) != 0 || ((call->traits & kOrNew) == kOrNew && Below(4) == 0);
    SCOPED_TRACE(call->name + (" " + std::to_string(given.n)));
    Run(*call, none ? nullptr : handle, given, Below(8) == 0 ? 1 : 0);
}

// Walks over all masters take most of the time: each step of some sequences, the end of all.
TEST_F(MemoryModel, RandomSequences)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 5; ++seed) {
        random.seed(seed);
        SetStressHandles(seed % 2);
        kz::WalkMemoryAtEachCall(seed % 20 == 0);
        for (unsigned step = 0; step < 100; ++step) {
            Step();
            ASSERT_FALSE(HasFailure()) << "seed " << seed << " step " << step;
        }
        kz::WalkMemoryAtEachCall(false);
        ASSERT_STREQ(nullptr, kz::MemoryFault()) << "seed " << seed;
        End();
    }
}

TEST(MemoryModelWithGuards, RandomSequences)
{
    EXPECT_EQ(0, kztest::RunChildTests("MemoryModel.RandomSequences",
                                       {{"ZVGuardBytes", "check"}, {"KZ_MODEL_SEQUENCES", "300"}}));
}

TEST_F(MemoryModel, EachCallWithAndWithoutMemory)
{
    static const unsigned char kText[20000] = "0123456789";
    for (const Call& call : kCalls) {
        for (unsigned way = 0; way < 12; ++way) {
            SCOPED_TRACE(call.name + (" " + std::to_string(way)));
            const bool none = (call.traits & kFresh) != 0 || (way % 2 == 0 && (call.traits & kOrNew) == kOrNew);
            const UHandle old = none ? nullptr : Make(10, 'x');
            constexpr unsigned long kSizes[] = {0, 4, sizeof kText};
            Run(call, old, {kSizes[way / 4], 4096, 4, kText, Make(3, 'o')}, way / 2 % 2);
            End();
        }
    }
}

// A kept block of just the size goes to the calls of the cache alone, and only theirs is kept.
TEST_F(MemoryModel, OnlyTheCallsOfTheCacheUseIt)
{
    constexpr unsigned long kBig = 20000;
    BufferCache* const cache = s_bufferCachePtr.load();
    for (const Call& call : kCalls) {
        SCOPED_TRACE(call.name);
        const bool byCache = (call.traits & kCached) != 0;
        UHandle handle = DSNewHandle(kBig);
        unsigned char* const data = *handle;
        if (call.effect == kDispose) {
            EXPECT_EQ(0, call.call(&handle, {}));
            BufferCache::iterator found;
            EXPECT_EQ(byCache, cache->FindBuffer(kBig, found));
        } else if (call.effect == kSize) {
            EXPECT_EQ(0, DSDisposeHandleCache(handle));
            handle = (call.traits & kFresh) != 0 ? nullptr : DSNewHandle(1);
            EXPECT_EQ(0, call.call(&handle, {kBig}));
            EXPECT_EQ(byCache, *handle == data);
        }
        cache->ClearCache();
        DSDisposeHandle(handle != nullptr && IsDSHandle(handle) != 0 ? handle : nullptr);
    }
}

TEST_F(MemoryModel, BadHandlesAreReportedByEachCall)
{
    const UHandle good = Make(3);
    const UHandle stale = DSNewHandle(8);
    DSDisposeHandle(stale);
    kztest::ForeignHandle foreign;
    gSeen.clear();
    for (const Call& call : kCalls) {
        const bool takesNull = (call.traits & kOrNew) == kOrNew || call.effect == kDispose;
        for (void* bad : {static_cast<void*>(stale), static_cast<void*>(foreign), static_cast<void*>(nullptr)}) {
            if ((call.traits & kFresh) != 0 || (bad == nullptr && takesNull)) {
                continue;
            }
            SCOPED_TRACE(call.name);
            Lines expected((call.traits & kZeros) != 0 ? 2 : 1, Report(kDbgFatal));
            if ((call.traits & kUnnamed) == 0) {
                expected.push_back(Named(3, call));
            }
            auto variable = static_cast<UHandle>(bad);
            EXPECT_EQ(3, call.call(&variable, {2, 16, 8, "ab", good}));
            EXPECT_EQ(expected, Seen());
            EXPECT_EQ(call.effect == kDispose && (call.traits & kVariable) != 0 ? nullptr : bad, variable);
            if ((call.traits & kNotEmpty) != 0) {
                EXPECT_EQ(call.effect == kSize ? 3 : 0, call.call(&variable, {}));
                EXPECT_EQ(nullptr, variable) << "nulled though the disposal fails";
                EXPECT_EQ(Lines({Report(kDbgFatal), Named(3, call)}), Seen());
            }
            if (bad != nullptr && (call.effect == kCopy || call.effect == kAppendOther || call.effect == kSwap)) {
                variable = good;
                EXPECT_EQ(3, call.call(&variable, {0, 16, 8, nullptr, static_cast<UHandle>(bad)}));
                EXPECT_EQ(Lines({Report(kDbgFatal)}), Seen());
            }
        }
    }
    ++counters[0];
    ExpectContents();
}

TEST_F(MemoryModel, NullArgumentsAreRefused)
{
    const UHandle handle = Make(3);
    for (const Call& call : kCalls) {
        SCOPED_TRACE(call.name);
        UHandle variable = handle;
        if ((call.traits & kVariable) != 0) {
            EXPECT_EQ(call.effect == kDispose ? 0 : 1, call.call(nullptr, {1, 16, 8, "a", handle}));
            EXPECT_EQ(call.effect == kDispose ? 0 : 1, call.call(nullptr, {0, 16, 8, nullptr, nullptr}));
        }
        if (call.effect == kDispose) {
            variable = nullptr;
            EXPECT_EQ(0, call.call(&variable, {}));
        } else if (call.effect == kReplace || call.effect == kAppend) {
            EXPECT_EQ(1, call.call(&variable, {1}));
            EXPECT_EQ(handle, variable);
        }
    }
    EXPECT_EQ(Lines(), Seen());
    ExpectContents();
}

}  // namespace
