// All calls on handles in one table, with what each does, against a plain model of the handles: in random sequences
// with extreme arguments and allocations that fail, with the cache, and with arguments that it refuses.
#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <list>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "BufferCache.h"
#include "ChildTest.h"
#include "HandleAllocationInterface.h"
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
    const char* name;  // as reports tell it
    KzErr (*call)(UHandle* h, A a);
    Effect effect;
    unsigned traits;
    bool isForVariables;  // whether just those arguments compile that may be the address of a variable
};

template <typename F, typename... T>
constexpr int CountTaken()
{
    return (0 + ... + std::is_invocable_v<F, T, A>);
}

template <typename F>
constexpr Call Row(const char* name, F call, Effect effect, unsigned traits)
{
    return {name, call, effect, traits,
            CountTaken<F, UHandle*, LStr***, void*, std::nullptr_t>() == 4 &&
                CountTaken<F, UHandle, LStr**, std::string*, const UHandle*>() == 0};
}

template <typename Result>
KzErr ErrOf(Result result)
{
    if constexpr (std::is_pointer_v<Result>) {
        return result == nullptr ? 2 : 0;
    } else {
        return result;
    }
}

const NormalHandleAllocationInterface gNormal;
const CachedHandleAllocationInterface gCached;

// Rows of a call on the handle `*h` or the variable `h`: alone; as the DS and the AZ call of a name; and as the members
// of both interfaces, which reach the call of a name and the one of that name with "Cache". `result` is `*h =` before a
// call that returns a handle.
#define KZ_DO(call) [](auto h, [[maybe_unused]] A a) -> decltype(ErrOf(call)) { return ErrOf(call); }
#define KZ_ROW(result, name, args, ...) Row(#name, KZ_DO(result name args), __VA_ARGS__)
#define KZ_BOTH(result, name, args, ...) \
    KZ_ROW(result, DS##name, args, __VA_ARGS__), KZ_ROW(result, AZ##name, args, __VA_ARGS__)
#define KZ_MEMBERS(reached, call, effect, traits)      \
    Row(reached, KZ_DO(gNormal.call), effect, traits), \
        Row(reached "Cache", KZ_DO(gCached.call), effect, kCached | (traits))
constexpr Call kCalls[] = {
    KZ_BOTH(*h =, NewHandle, (a.n), kSize, kFresh),
    KZ_BOTH(*h =, NewHClr, (a.n), kSize, kFresh | kZeros),
    KZ_ROW(*h =, DSNewHandleCache, (a.n), kSize, kFresh | kCached),
    KZ_ROW(*h =, DSNewHClrCache, (a.n), kSize, kFresh | kZeros | kCached),
    KZ_ROW(*h =, DSNewAlignedHandle, (a.n, a.alignment, a.offset), kSize, kFresh | kGiven),
    KZ_ROW(*h =, DSNewAlignedHClr, (a.n, a.alignment, a.offset), kSize, kFresh | kZeros | kGiven),
    Row("", KZ_DO(*h = gNormal.AllocateHandle(a.n)), kSize, kFresh),
    Row("", KZ_DO(*h = gNormal.AllocateHandleClr(a.n)), kSize, kFresh | kZeros),
    Row("", KZ_DO(*h = gCached.AllocateHandle(a.n)), kSize, kFresh | kCached),
    Row("", KZ_DO(*h = gCached.AllocateHandleClr(a.n)), kSize, kFresh | kZeros | kCached),
    KZ_BOTH(, PtrToHand, (a.bytes, h, a.n), kReplace, kFresh | kVariable),
    KZ_BOTH(, SetHandleSize, (*h, a.n), kSize, 0),
    KZ_BOTH(, SetHSzClr, (*h, a.n), kSize, kZeros),
    KZ_ROW(, DSSetHandleSizeCache, (*h, a.n), kSize, kCached),
    KZ_ROW(, DSSetHSzClrCache, (*h, a.n), kSize, kZeros | kCached),
    KZ_ROW(, DSSetAlignedHandleSize, (*h, a.n, a.alignment, a.offset), kSize, kGiven),
    KZ_ROW(, DSSetAlignedHSzClr, (*h, a.n, a.alignment, a.offset), kSize, kZeros | kGiven),
    KZ_ROW(, DSSetHandleSizeOrNewHandle, (h, a.n), kSize, kOrNew),
    KZ_ROW(, DSSetHSzOrNewHClr, (h, a.n), kSize, kOrNew | kZeros),
    KZ_ROW(, DSSetHandleSizeOrNewHandleCache, (h, a.n), kSize, kOrNew | kCached),
    KZ_ROW(, DSSetHSzOrNewHClrCache, (h, a.n), kSize, kOrNew | kZeros | kCached),
    KZ_MEMBERS("DSSetHandleSize", ResizeHandle(*h, a.n), kSize, 0),
    KZ_MEMBERS("DSSetHSzClr", ResizeHandleClr(*h, a.n), kSize, kZeros),
    KZ_MEMBERS("DSSetHandleSizeOrNewHandle", ResizeHandleOrAllocateHandle(h, a.n), kSize, kOrNew),
    KZ_MEMBERS("DSSetHSzOrNewHClr", ResizeHandleOrAllocateHandleClr(h, a.n), kSize, kOrNew | kZeros),
    KZ_ROW(, DataSetHandleSizeOrNewHandle, (h, a.n), kSize, kOrNew | kNotEmpty),
    KZ_ROW(, DataSetHSzOrNewHClr, (h, a.n), kSize, kOrNew | kNotEmpty | kZeros),
    KZ_BOTH(, SetHandleFromPtr, (h, a.bytes, a.n), kReplace, kOrNew),
    KZ_ROW(, DSSetHandleFromPtrNULLMeansEmpty, (h, a.bytes, a.n), kReplace, kOrNew | kNotEmpty),
    KZ_BOTH(, PtrToXHand, (a.bytes, *h, a.n), kReplace, 0),
    KZ_BOTH(, PtrAndHand, (a.bytes, *h, a.n), kAppend, 0),
    KZ_BOTH(, HandAndHand, (a.other, *h), kAppendOther, 0),
    KZ_BOTH(, CopyHandle, (h, a.other), kCopy, kOrNew),
    KZ_BOTH(, HandToHand, (h), kDuplicate, kVariable | kUnnamed),
    KZ_ROW(, DSSwapHandles, (*h, a.other), kSwap, kUnnamed),
    KZ_BOTH(, DisposeHandle, (*h), kDispose, 0),
    KZ_ROW(, DSDisposeHandleCache, (*h), kDispose, kCached),
    KZ_ROW(, DSDisposeHandleAndNull, (h), kDispose, kVariable),
    KZ_MEMBERS("DSDisposeHandle", DeallocateHandle(*h), kDispose, 0),
    KZ_ROW(, AZHLock, (*h), kLook, 0),
    KZ_ROW(, AZHUnlock, (*h), kLook, 0),
    Row("AZHPurge", KZ_DO((AZHPurge(*h), AZCheckHandle(*h))), kLook, 0),
    Row("AZHNoPurge", KZ_DO((AZHNoPurge(*h), AZCheckHandle(*h))), kLook, 0),
    Row("AZHSetState", KZ_DO((AZHSetState(*h, 1), AZCheckHandle(*h))), kLook, 0),
    Row("AZHGetState", KZ_DO(AZHGetState(*h) == 0 ? AZCheckHandle(*h) : -1), kLook, 0),
};
static_assert(std::all_of(std::begin(kCalls), std::end(kCalls),
                          [](const Call& call) { return call.isForVariables == ((call.traits & kVariable) != 0); }));

// What a host sees of a call, in order: sizes that could not be had, the trace, and then the reports.
Lines gSeen;

template <typename... Number>
std::string Line(std::string line, Number... numbers)
{
    ((line += " " + std::to_string(numbers)), ...);
    return line;
}

std::string Event(int32 kind, KzErr err, const void* handle, unsigned long newSize, unsigned long oldSize)
{
    return Line("event", kind, err, reinterpret_cast<uintptr_t>(handle), newSize, oldSize);
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

class MemoryModel : public kztest::MemoryTest {
protected:
    struct Content {
        Bytes bytes;
        HandleAlignment align;
        unsigned long size;  // of the bytes, or of so many that there is no memory for them
    };
    static constexpr unsigned long kLeastKept = 100, kMostKept = 3000;

    MemoryModel()
    {
        kz::DestroyBufferCache();
        s_bufferCachePtr = new BufferCache(kLeastKept, 3, kMostKept, 1);
        SetMemFullProc([](unsigned long size) { gSeen.push_back(Line("full", size)); });
        SetMemEventTraceProc([](int32 kind, KzErr err, UHandle h, unsigned long newSize, unsigned long oldSize) {
            gSeen.push_back(Event(kind, err, h, newSize, oldSize));
        });
        const auto words = std::bit_cast<std::array<uInt64, 2>>(counters);
        DSSetCounters(words.data());
    }
    ~MemoryModel() override
    {
        End();
        SetMemEventTraceProc(nullptr);
        SetMemFullProc(nullptr);
        SetStressHandles(0);
    }

    void End()
    {
        ExpectContents();
        for (const auto& [handle, content] : handles) {
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

    UHandle Make(unsigned long size)
    {
        UHandle const made = DSNewHandle(size);
        std::fill_n(*made, size, static_cast<unsigned char>(7));
        handles[made] = {Bytes(size, 7), kz::AlignmentForSize(size), size};
        ++counters[0];
        gSeen.clear();
        return made;
    }

    std::mt19937 random;
    std::map<UHandle, Content> handles;
    std::list<std::pair<unsigned char*, kz::HandlePlace>> kept;  // by the cache, the newest first
    Counters counters = {1, 0x7FFFFFFF, 0xFFFFFFF0, 4};

    unsigned Below(unsigned n) { return static_cast<unsigned>(random() % n); }
    auto Pick() { return std::next(handles.begin(), Below(static_cast<unsigned>(handles.size()))); }
    unsigned long Size();
    // Runs a call on a handle of the model, or on a null variable; with `failing` that allocation of it fails.
    void Run(const Call& call, UHandle old, const Arguments& given, int failing = 0);
    void ExpectContents();
    void Step();
    void Keep(unsigned char* data, const kz::HandlePlace& place);
    auto BestKept(unsigned long size);
    Content Target(const Call& call, UHandle old, const Arguments& given) const;
    Lines Resized(const Call& call, UHandle old, UHandle now, const Content& target, bool failed);
    Lines Changed(const Call& call, UHandle old, UHandle now, const Arguments& given);
};

// No block can have as many bytes.
constexpr unsigned long kTooLarge = 1ul << 47;

MemoryModel::Content MemoryModel::Target(const Call& call, UHandle old, const Arguments& given) const
{
    Bytes bytes = old == nullptr || call.effect == kReplace || call.effect == kCopy || call.effect == kDuplicate
                      ? Bytes()
                      : handles.at(old).bytes;
    Bytes added;
    unsigned long size = given.n;
    if (call.effect == kCopy || call.effect == kAppendOther || call.effect == kDuplicate) {
        added = handles.at(call.effect == kDuplicate ? old : given.other).bytes;
        size = added.size();
    } else if (call.effect != kSize && size < kTooLarge) {
        const auto* const from = static_cast<const unsigned char*>(given.bytes);
        added.assign(from, from + size);
    }
    if (call.effect == kSize) {
        bytes.resize(std::min(bytes.size(), size));
    } else {
        size += std::min(bytes.size(), ULONG_MAX - size);
    }
    bytes.insert(bytes.end(), added.begin(), added.end());
    return {
        bytes,
        (call.traits & kGiven) != 0 ? kz::NormalAlignment(given.alignment, given.offset) : kz::AlignmentForSize(size),
        size};
}

// What is to be seen of a make or a resize, which the model gets.
Lines MemoryModel::Resized(const Call& call, UHandle old, UHandle now, const Content& target, bool failed)
{
    const bool makes = old == nullptr || call.effect == kDuplicate;
    const unsigned long oldSize = makes ? 0 : handles[old].size;
    Lines seen;
    if (makes || oldSize != target.size || handles[old].align != target.align) {
        const unsigned long block =
            makes ? target.size : kz::HandleBlockSize(target.size, target.align, kz::HandleGuardSize());
        if (failed && (makes || block != 0)) {
            seen.push_back(Line("full", block));
        }
        seen.push_back(Event(!makes, failed ? 2 : 0, failed && makes ? nullptr : now, target.size, oldSize));
        counters[0] += makes && !failed;
        counters[2] += !makes;
        counters[3] += !makes && !failed && GetStressHandles() == 0;
    }
    if (failed) {
        EXPECT_EQ(old, now);
        if (!makes) {
            seen.push_back(Named(2, call));
        }
        return seen;
    }
    EXPECT_EQ(makes, now != old && !handles.contains(now));
    if ((call.traits & kZeros) == 0) {
        std::fill(*now + target.bytes.size(), *now + target.size, static_cast<unsigned char>(0));  // may be anything
    }
    handles[now] = target;
    handles[now].bytes.resize(target.size);
    return seen;
}

// The same of every other call.
Lines MemoryModel::Changed(const Call& call, UHandle old, UHandle now, const Arguments& given)
{
    if (call.effect == kLook) {
        return {};
    }
    if (call.effect == kSwap) {
        std::swap(handles[old], handles[given.other]);
        return old == given.other ? Lines{Report(kDbgFatal)} : Lines{};
    }
    if (call.effect == kCopy && given.other != nullptr) {
        return {Report(kDbgWarning, "Should call DSHandToHand. This is a no-op")};
    }
    EXPECT_EQ((call.traits & kVariable) != 0 ? nullptr : old, now);
    const auto gone = handles.extract(old);
    return gone.empty() ? Lines{} : Lines{Event(2, 0, old, gone.mapped().size, 0)};
}

// Each handle's header and content, and the counters, are as the model says.
void MemoryModel::ExpectContents()
{
    for (const auto& [handle, content] : handles) {
        ASSERT_EQ(0, DSCheckHandle(handle));
        ASSERT_EQ(content.size, DSGetHandleSize(handle));
        ASSERT_TRUE(std::equal(content.bytes.begin(), content.bytes.end(), *handle));
        ASSERT_TRUE(content.align == kz::HandleDataPlace(*handle).align);
        ASSERT_EQ(0u, (reinterpret_cast<uintptr_t>(*handle) + content.align.offset) % content.align.alignment);
    }
    EXPECT_EQ(handles.size(), kz::LiveHandleCount());
    uInt64 words[2];
    DSReadCounters(words);
    EXPECT_EQ(counters, std::bit_cast<Counters>(words));
}

// What the cache keeps of a disposed handle's data.
void MemoryModel::Keep(unsigned char* data, const kz::HandlePlace& place)
{
    if (place.size >= kLeastKept && place.size < kMostKept) {
        kept.emplace_front(data, place);
    }
    const auto sizes = [](unsigned long sum, const auto& each) { return sum + each.second.size; };
    while (kept.size() > 3 || std::accumulate(kept.begin(), kept.end(), 0ul, sizes) > kMostKept) {
        kept.pop_back();
    }
}

// The newest of the smallest kept blocks that are large enough.
auto MemoryModel::BestKept(unsigned long size)
{
    auto best = kept.end();
    for (auto it = kept.begin(); it != kept.end(); ++it) {
        best = it->second.size >= size && (best == kept.end() || it->second.size < best->second.size) ? it : best;
    }
    BufferCache::iterator found;
    EXPECT_EQ(best != kept.end(), s_bufferCachePtr.load()->FindBuffer(size, found));
    EXPECT_TRUE(best == kept.end() || best->first == found->data);
    return best;
}

void MemoryModel::Run(const Call& call, UHandle old, const Arguments& given, int failing)
{
    const bool isResize = call.effect < kSwap && !((call.traits & kNotEmpty) != 0 && given.n == 0) &&
                          !(call.effect == kCopy && (given.other == nullptr || given.other == old));
    const Content target = isResize ? Target(call, old, given) : Content{};
    const kz::HandlePlace place = old == nullptr ? kz::HandlePlace{} : kz::HandleDataPlace(*old);
    const auto best = BestKept(target.size);
    unsigned char* data = old == nullptr ? nullptr : *old;
    UHandle variable = (call.traits & kFresh) != 0 ? &data : old;
    KzErr err = 0;
    bool failed = isResize && target.size >= kTooLarge;
    {
        const FailAllocation fail(failing);
        err = call.call(&variable, given);
        failed |= failing != 0 && FailAllocation::Happened();
    }
    EXPECT_EQ(failed ? 2 : 0, err);
    EXPECT_TRUE(!failed || old == nullptr || *old == data);
    const Lines expected =
        isResize ? Resized(call, old, variable, target, failed) : Changed(call, old, variable, given);
    EXPECT_EQ(expected, Seen());
    const bool isCached = (call.traits & kCached) != 0;
    if (call.effect == kDispose && isCached && old != nullptr) {
        Keep(data, place);
    } else if (isResize && !failed && (variable != old || *old != data) && best != kept.end()) {
        const kz::HandlePlace& found = best->second;
        const bool serves = isCached && found.size == target.size && found.align.offset == target.align.offset &&
                            found.align.alignment % target.align.alignment == 0;
        EXPECT_EQ(serves, *variable == best->first) << "a kept block of just the size goes to the calls of the cache";
        handles[variable].align = serves ? found.align : target.align;
        kept.erase(best, serves ? std::next(best) : best);
    }
    ExpectContents();
}

unsigned long MemoryModel::Size()
{
    constexpr unsigned long kRare[] = {
        0, ULONG_MAX, ULONG_MAX - 15, ULONG_MAX - 16, ULONG_MAX - 100000, ULONG_MAX / 2, kTooLarge, 1048575, 1048576};
    constexpr unsigned long kFew[] = {99, 100, 101, 500, 500, 1000, 1000, 1100, 2000, 2999, 3000};  // for the cache
    return Below(8) == 0   ? kRare[Below(std::size(kRare))]
           : Below(2) == 0 ? kFew[Below(std::size(kFew))]
                           : Below(Below(2) == 0 ? 64 : 3000);
}

void MemoryModel::Step()
{
    while (handles.size() < 3) {
        Make(Below(3000));
    }
    const auto [handle, content] = *Pick();
    const auto& [other, source] = *Pick();
    const bool isTooMuch = handles.size() > 9 || (content.size > 100000 && Below(2) == 0);
    const Call* call = nullptr;
    do {
        call = &kCalls[Below(std::size(kCalls))];
    } while (isTooMuch ? call->effect != kDispose : (call->traits & kCached) == 0 && Below(2) == 0);
    const bool usual = Below(2) == 0;
    Arguments given = {Size(), usual ? 8ul << Below(3) : random() >> Below(32), usual ? 4 * Below(3) : Below(70000),
                       *other, other};
    if (call->effect == kReplace || call->effect == kAppend) {
        const unsigned at = Below(static_cast<unsigned>(source.size + 1));
        given.bytes = *other + at;
        given.n = given.n < kTooLarge ? std::min(given.n, source.size - at) : given.n;
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

TEST_F(MemoryModel, NoHandlesAndNullArgumentsAreRefused)
{
    const UHandle good = Make(3);
    const UHandle stale = Make(8);
    Run(KZ_ROW(, DSDisposeHandle, (*h), kDispose, 0), stale, {});
    kztest::ForeignHandle foreign;
    for (const Call& call : kCalls) {
        SCOPED_TRACE(call.name);
        const bool disposes = call.effect == kDispose, takesVariable = (call.traits & kVariable) != 0;
        UHandle variable = good;
        if (takesVariable) {
            EXPECT_EQ(disposes ? 0 : 1, call.call(nullptr, {1, 16, 8, "a", good}));
            EXPECT_EQ(disposes ? 0 : 1, call.call(nullptr, {0, 16, 8, nullptr, nullptr}));
        }
        EXPECT_EQ(1, call.effect == kReplace || call.effect == kAppend ? call.call(&variable, {1}) : 1);
        EXPECT_EQ(good, variable);
        variable = nullptr;
        EXPECT_EQ(0, disposes ? call.call(&variable, {}) : 0);
        EXPECT_EQ(Lines(), Seen());
        for (void* bad : {static_cast<void*>(stale), static_cast<void*>(foreign), static_cast<void*>(nullptr)}) {
            if ((call.traits & kFresh) != 0 || (bad == nullptr && (disposes || (call.traits & kOrNew) == kOrNew))) {
                continue;
            }
            Lines expected((call.traits & kZeros) != 0 ? 2 : 1, Report(kDbgFatal));
            if ((call.traits & kUnnamed) == 0) {
                expected.push_back(Named(3, call));
            }
            variable = static_cast<UHandle>(bad);
            EXPECT_EQ(3, call.call(&variable, {2, 16, 8, "ab", good}));
            EXPECT_EQ(expected, Seen());
            EXPECT_EQ(disposes && takesVariable ? nullptr : bad, variable);
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
}

}  // namespace
