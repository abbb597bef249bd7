#include "GuardBytes.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "BufferCache.h"
#include "ChildTest.h"
#include "CookieManager.h"
#include "GuardChecks.h"
#include "MemoryPoison.h"
#include "MemoryZone.h"
#include "Racing.h"
#include "ThTmoEvent.h"
#include "TrackedMalloc.h"

namespace {

// What was told since it was last taken: the type's digit and the version, for each time.
std::string gTold;
const void* gToldOf = nullptr;

std::string Told()
{
    return std::exchange(gTold, {});
}

// Guards are poisoned where a checker watches them; a stray write is what they are tested with.
KZ_TOUCHES_POISON void Poke(void* at, const char* bytes)
{
    for (volatile char* to = static_cast<char*>(at); *bytes != 0; ++bytes, ++to) {
        *to = *bytes;
    }
}

KZ_TOUCHES_POISON bool HasGuard(const void* at)
{
    bool has = true;
    for (int i = 0; i < 8; ++i) {
        has &= static_cast<const volatile char*>(at)[i] == "ZOR14MEM"[i];
    }
    return has;
}

// Damages the guards of `size` bytes at `data` in each way there is, and hands what a check must tell to `check`, with
// the data whole again behind it.
template <typename Check>
void WithEachDamage(unsigned char* data, unsigned long size, Check check)
{
    constexpr struct {
        long at;            // in each guard
        const char* front;  // what is written into the guard before the data
        const char* back;   // and behind it
        const char* told;
    } kDamages[] = {
        {7, "x", "", "0"}, {0, "x", "", "0"},  {3, "13", "", "0"}, {0, "", "x", "1"},
        {5, "", "x", "1"}, {0, "x", "x", "0"}, {3, "", "15", "0"}, {3, "13", "13", "213"},
    };
    for (const auto& damage : kDamages) {
        SCOPED_TRACE(damage.told + std::string(damage.front) + damage.back);
        EXPECT_TRUE(HasGuard(data - 8) && HasGuard(data + size));
        Poke(data - 8 + damage.at, damage.front);
        Poke(data + size + damage.at, damage.back);
        check(std::string(damage.told));
        Poke(data - 8, "ZOR14MEM");
        Poke(data + size, "ZOR14MEM");
    }
}

void SetWords(uInt32 handle, uInt32 ptr, uInt32 newDelete)
{
    kz::gGuardBytes_Handle = handle;
    kz::gGuardBytes_Ptr = ptr;
    kz::gGuardBytes_NewDelete = newDelete;
    kz::gGuardBytes_InitializedAndDisabled = handle == 0 && ptr == 0 && newDelete != 7;
}

std::string Words()
{
    return std::to_string(kz::gGuardBytes_Handle) + std::to_string(kz::gGuardBytes_Ptr) +
           std::to_string(kz::gGuardBytes_NewDelete);
}

// The memory service with the words of handles, pointers and TrackedMalloc that are given, 0 before and afterwards.
class Guarded {
public:
    Guarded(uInt32 handle, uInt32 ptr, uInt32 newDelete)
    {
        SetWords(handle, ptr, newDelete);
        SetGuardByteCheckFailedProc([](const void* at, int32 type, const char* version) {
            gTold += std::to_string(type) + (version == nullptr ? "" : version);
            gToldOf = at;
        });
        memory.emplace();
    }
    ~Guarded()
    {
        memory.reset();
        SetGuardByteCheckFailedProc(&StandardGuardByteCheckFailedProc);
        SetWords(0, 0, 0);
    }

    kztest::ReportCatcher reports;
    std::optional<kztest::RunningMemory> memory;
};

// The words that the environment has set, whether all are off; with checks turned off, and on, which are those words
// that write guards; whether all do.
TEST(GuardBytesChild, DISABLED_WordsAsExpected)
{
    std::string words = Words() + (kz::gGuardBytes_InitializedAndDisabled ? " off " : " on ");
    const bool all = ConfigGuardBytes(0) != 0;
    words += Words();
    EXPECT_FALSE(ShouldCheckHandleGuardBytes());
    EXPECT_EQ(all, ConfigGuardBytes(1) != 0);
    EXPECT_EQ(std::getenv("KZ_EXPECTED"), words + " " + Words() + (all ? " all" : ""));
    EXPECT_EQ(kz::gGuardBytes_NewDelete.load() != 0 ? 24u : 0u, GetAllNewDeleteGuardsSize());
    void* const tracked = TrackedMalloc(3);
    EXPECT_NE(nullptr, tracked);
    TrackedFree(tracked);
}

TEST(GuardBytes, EnvironmentSettings)
{
    // The general variable, those of handles, pointers and TrackedMalloc, and what they lead to.
    const char* const cases[][5] = {
        {nullptr, nullptr, nullptr, nullptr, "000 off 000 000"},
        {"off", nullptr, nullptr, nullptr, "000 off 000 000"},
        {"alloc", nullptr, nullptr, nullptr, "333 on 333 777 all"},
        {"check", nullptr, nullptr, nullptr, "777 on 333 777 all"},
        {"what", nullptr, nullptr, nullptr, "000 off 000 000"},
        {"check", nullptr, "off", nullptr, "707 on 303 707"},
        {"check", "what", nullptr, "alloc", "073 on 033 077"},
        {nullptr, nullptr, nullptr, "alloc", "003 off 003 007"},
        {nullptr, nullptr, nullptr, "check", "007 on 003 007"},
        {"off", "alloc", nullptr, nullptr, "300 on 300 700"},
        {"", "off", "check", "", "070 on 030 070"},
    };
    for (const auto& c : cases) {
        const kztest::Environment environment = {{"ZVGuardBytes", c[0]},
                                                 {"ZVGuardBytes_Handle", c[1]},
                                                 {"ZVGuardBytes_Ptr", c[2]},
                                                 {"ZVGuardBytes_NewDelete", c[3]},
                                                 {"KZ_EXPECTED", c[4]}};
        EXPECT_EQ(0, kztest::RunChildTests("GuardBytesChild.DISABLED_WordsAsExpected", environment)) << c[4];
    }
}

// Where each use is checked, and where guards are only written.
TEST(GuardBytes, DamageIsFound)
{
    for (const bool checks : {true, false}) {
        const uInt32 word = checks ? 7 : 3;
        Guarded guarded(word, word, word);
        const KzErr failure = checks ? 3 : 0;
        // 12: data at 4 modulo 8; 2000 and 5000000: aligned blocks.
        for (const unsigned long size : {0ul, 12ul, 13ul, 2000ul, 5000000ul}) {
            UHandle handle = DSNewHClr(size);
            DSSetHandleSize(handle, size + 40);
            DSSetHandleSize(handle, size);
            unsigned char* const data = *handle;
            WithEachDamage(data, size, [&](const std::string& told) {
                EXPECT_FALSE(DSCheckHandleGuardBytes(handle));
                EXPECT_EQ(data, gToldOf);
                EXPECT_EQ(told, Told());
                EXPECT_STREQ("a handle's guards are damaged", kz::MemoryFault());
                EXPECT_TRUE(IsDSHandle(handle));
                EXPECT_EQ(2 * failure, DSCheckHandle(handle) + AZCheckHandle(handle));
                EXPECT_EQ(checks ? 0 : size, DSGetHandleSize(handle));
                EXPECT_EQ(checks ? nullptr : handle, DSRecoverHandle(data));
                EXPECT_EQ(failure, checks ? DSDisposeHandle(handle) : 0);
                EXPECT_EQ(failure, DSSetHandleSize(handle, checks ? 1 : size));
                EXPECT_EQ(data, *handle) << "a block that fails is left alone";
                EXPECT_EQ(checks ? told + told + told + told + told + told : "", Told());
                guarded.reports.TakeAll();
            });
            EXPECT_EQ(0, DSDisposeHandle(handle));
        }
        auto* const ptr = static_cast<unsigned char*>(DSNewPClr(10));
        WithEachDamage(ptr, 10, [&](const std::string& told) {
            EXPECT_FALSE(DSCheckPtrGuardBytes(ptr));
            EXPECT_EQ(told, Told());
            EXPECT_EQ(2 * failure, DSCheckPtr(ptr) + (checks ? AZDisposePtr(ptr) : 0));
            EXPECT_EQ(checks ? told + told : "", Told());
            EXPECT_EQ(checks, guarded.reports.Take(kDbgWarning, "Memory error 3 in AZDisposePtr"));
        });
        EXPECT_EQ(0, DSDisposePtr(ptr));
        auto* const tracked = static_cast<unsigned char*>(TrackedMalloc(3));
        EXPECT_EQ(tracked - 16, GetOrigNewDeletePtrFromGuardedPtr(tracked));
        Poke(tracked + 3, "x");
        TrackedFree(tracked);  // told, and freed all the same
        EXPECT_EQ(checks ? "1" : "", Told());
        EXPECT_EQ(nullptr, TrackedMalloc(~size_t{0} - 10));
        char* const masters = reinterpret_cast<char*>(kz::NewestBlock(kz::MemZone()));
        Poke(masters - 1, "x");
        EXPECT_STREQ("the guards of a block of masters are damaged", kz::MemoryFault());
        Poke(masters - 1, "M");
    }
}

// A write in front of a cookie's record is told of when the jar goes, and the block is left alone. A damaged guard
// keeps the block of a destroyed timed event readable, so that the second destroy can be seen.
TEST(GuardBytes, DamagedBlocksOfOthersAreLeftAlone)
{
    Guarded guarded(7, 7, 7);
    MagicCookieJar jar = MCNewBigJar(8);
    void* info = nullptr;
    ASSERT_EQ(0, MCGetCookieInfoPtr(jar, MCNewCookie(jar, "8 bytes"), &info));
    Poke(static_cast<char*>(info) - 8, "x");
    EXPECT_EQ(0, MCDisposeJar(jar));
    EXPECT_EQ("0", Told());

    ThTmoEvent event = nullptr;
    ASSERT_EQ(0, ThTmoEventCreate(&event));
    Poke(reinterpret_cast<char*>(event) - 8, "x");
    ThTmoEventDestroy(event);
    EXPECT_EQ("0", Told());
    EXPECT_TRUE(guarded.reports.Take(kDbgWarning, "Memory error 3 in DSDisposePtr"));
    ThTmoEventDestroy(event);
    EXPECT_TRUE(guarded.reports.Take(kDbgFatal, ""));
    EXPECT_EQ("", Told()) << "the block is left alone";
    for (void* const left : {info, static_cast<void*>(event)}) {
        Poke(static_cast<char*>(left) - 8, "Z");
        EXPECT_EQ(0, DSDisposePtr(left));
    }
}

#if !defined(KZ_ASAN) && !defined(__SANITIZE_THREAD__)
// Asked about a handle that another thread disposes and makes again, whose block stays readable in the cache: the check
// looks at the block that the handle was found good by, not at what has become of its master since. The threads race
// for a guard's bytes.
TEST(GuardBytes, ChecksOfADyingHandleReadItsBlock)
{
    Guarded guarded(7, 7, 7);
    UHandle const handle = DSNewHandleCache(20000);
    std::atomic<int> checks{0};
    kztest::Race(2, [&](int thread) {
        for (; checks < 3000000; checks += thread) {
            if (thread == 1) {
                DSCheckHandle(handle);
            } else {
                DSDisposeHandleCache(handle);
                ASSERT_EQ(handle, DSNewHandleCache(20000));
            }
        }
    });
    EXPECT_EQ("", Told());
    EXPECT_EQ(0, DSDisposeHandle(handle));
}
#endif

// In each setting of the three words a block that was damaged by its owner or while it was kept is whole for the next
// one, who gets it by a make or a resize and may have the checks turned on meanwhile.
TEST(GuardBytes, DamageIsNotTheNextOwners)
{
    constexpr unsigned long kSize = 20000;
    constexpr uInt32 kWords[] = {0, 3, 7};
    for (int setting = 0; setting < 27 * 8; ++setting) {
        SCOPED_TRACE(setting);
        const bool inCache = (setting / 27 & 1) != 0, atFront = (setting / 27 & 2) != 0, byResize = setting / 27 > 3;
        Guarded guarded(kWords[setting % 3], kWords[setting / 3 % 3], kWords[setting / 9 % 3]);
        UHandle handle = DSNewHClrCache(kSize);
        unsigned char* const data = *handle;
        const bool hasGuards = GetOneHandleGuardSize() != 0, checks = ShouldCheckHandleGuardBytes() != 0;
        const auto damage = [&](bool now) {
            if (now && hasGuards) {
                Poke(atFront ? data - 1 : data + kSize, "x");
            }
        };
        damage(!inCache);
        if (checks && !inCache) {
            EXPECT_EQ(3, DSDisposeHandleCache(handle));
            EXPECT_EQ(2u, guarded.reports.TakeAll().size()) << "the owner is told";
            ConfigGuardBytes(0);
        }
        EXPECT_EQ(0, DSDisposeHandleCache(handle));
        damage(inCache);
        EXPECT_STREQ(checks && inCache ? "a kept block's guards are damaged" : nullptr, kz::BufferCacheFault());
        handle = byResize ? DSNewHandle(1) : DSNewHandleCache(kSize);
        EXPECT_EQ(0, byResize ? DSSetHandleSizeCache(handle, kSize) : 0);
        EXPECT_EQ(data, *handle);
        ConfigGuardBytes(1);
        EXPECT_TRUE(DSCheckHandleGuardBytes(handle));
        EXPECT_EQ(kSize, DSGetHandleSize(handle));
        EXPECT_EQ(0, DSDisposeHandle(handle));
        EXPECT_EQ(checks && !inCache ? atFront ? "0" : "1" : "", Told());
    }
}

TEST(GuardBytes, OffByDefault)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    EXPECT_EQ(0u, GetOneHandleGuardSize() + GetAllPtrGuardsSize() + GetAllNewDeleteGuardsSize());
    EXPECT_FALSE(ConfigGuardBytes(1) || ShouldCheckHandleGuardBytes());
    char block[4];
    EXPECT_EQ(block, InitPtrGuards(block, 4));
    EXPECT_EQ(nullptr, InitPtrGuards(nullptr, 4));
    EXPECT_EQ(block, GetOrigPtrFromGuardedPtr(InitNewDeleteGuards(block, 4)));
    EXPECT_TRUE(CheckHandleGuards(nullptr) && CheckPtrGuards(nullptr) && CheckNewDeleteGuards(nullptr) &&
                DSCheckPtrGuardBytes(nullptr));
    EXPECT_TRUE(reports.TakeAll().empty());
    EXPECT_FALSE(DSCheckHandleGuardBytes(nullptr) || CheckGuards(nullptr, 0));
    TrackedFree(nullptr);
    TrackedFree(TrackedMalloc(0));

    const void* const ptr = reinterpret_cast<const void*>(0x1234);
    for (const int32 type : {0, 1, 2, 3}) {
        ReportGuardByteCheckFailed(ptr, type, "13");
    }
    const GuardByteCheckFailedProc standard = SetGuardByteCheckFailedProc(nullptr);
    EXPECT_EQ(&StandardGuardByteCheckFailedProc, standard);
    ReportGuardByteCheckFailed(ptr, 0, nullptr);
    SetGuardByteCheckFailedProc(standard);
    const kztest::ReportRows expected = {
        {kDbgError, "NULL handle passed to DSCheckHandleGuardBytes"},
        {kDbgError, "NULL ptr passed to CheckGuards"},
        {kDbgError, "Memory corruption detected:  buffer underrun at pointer 0x0000000000001234"},
        {kDbgError, "Memory corruption detected:  buffer overrun at pointer 0x0000000000001234"},
        {kDbgError, "Memory misuse detected:  buffer at 0x0000000000001234 was passed from Zorvane version 13"},
        {kDbgError, "Unknown guard byte violation"},
        {kDbgError, "No guard byte check failed reporting proc installed!"},
    };
    EXPECT_EQ(expected, reports.TakeRows());
}

#if defined(KZ_ASAN)
TEST(GuardBytesDeathTest, TheSanitizerCatchesStrayWritesIntoTheCache)
{
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    UHandle const handle = DSNewHandleCache(20001);
    unsigned char* const data = *handle;
    DSDisposeHandleCache(handle);
    EXPECT_DEATH(data[0] = 1, "use-after-poison");
    EXPECT_DEATH(data[19999] = 1, "use-after-poison");
}
#endif

}  // namespace
