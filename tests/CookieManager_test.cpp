#include "CookieManager.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "CookieWalk.h"
#include "LiveCount.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "ResidentPages.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;

uInt32 IndexOf(uInt32 cookie)
{
    return cookie & 0xFFFFF;
}

uInt32 SaltOf(uInt32 cookie)
{
    return cookie >> 20;
}

class CookieManager : public testing::Test {
protected:
    ~CookieManager() override
    {
        EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
        MCDisposeJar(jar);
        EXPECT_EQ(0, kz::LiveCount(kz::Live::kCookies));
    }

    uInt32 New(uInt64 info) { return MCNewCookie(jar, &info); }

    uInt64 InfoOf(uInt32 cookie)
    {
        uInt64 info = ~uInt64{0};
        EXPECT_EQ(0, MCGetCookieInfo(jar, cookie, &info)) << std::hex << cookie;
        return info;
    }

    std::vector<uInt32> List()
    {
        MagicCookieList list = nullptr;
        EXPECT_EQ(0, MCGetCookieList(jar, &list));
        const std::vector<uInt32> cookies((*list)->cookies, (*list)->cookies + (*list)->count);
        EXPECT_EQ(std::max<std::size_t>(cookies.size(), 1) * 4 + 4, DSGetHandleSize(list));
        DSDisposeHandle(list);
        return cookies;
    }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
    MagicCookieJar jar = MCNewJar();
};

// Each query refuses the number, and leaves nothing behind.
void ExpectNoCookie(MagicCookieJar jar, uInt32 cookie)
{
    uInt64 info = 42;
    void* ptr = &info;
    EXPECT_FALSE(MCIsACookie(jar, cookie)) << std::hex << cookie;
    EXPECT_EQ(1, MCGetCookieInfo(jar, cookie, &info));
    EXPECT_EQ(1, MCSetCookieInfo(jar, cookie, &info));
    EXPECT_EQ(1, MCDisposeCookie(jar, cookie, &info));
    EXPECT_EQ(42u, info);
    EXPECT_EQ(1, MCGetCookieInfoPtr(jar, cookie, &ptr));
    EXPECT_EQ(nullptr, ptr);
    EXPECT_EQ(1, MCGetCookieInfoPtr(jar, cookie, nullptr));
}

TEST_F(CookieManager, LifeOfACookie)
{
    const uInt32 first = New(11);
    const uInt32 second = New(22);
    EXPECT_TRUE(MCIsACookie(jar, first));
    uInt64 info = 33;
    EXPECT_EQ(0, MCSetCookieInfo(jar, first, &info));
    EXPECT_EQ(33u, InfoOf(first));
    void* ptr = nullptr;
    EXPECT_EQ(0, MCGetCookieInfoPtr(jar, second, &ptr));
    EXPECT_EQ(22u, *static_cast<uInt64*>(ptr));
    int32 size = 0;
    EXPECT_EQ(0, MCJarSize(jar, &size));
    EXPECT_EQ(2, size);
    EXPECT_EQ(2, kz::LiveCount(kz::Live::kCookies));
    EXPECT_EQ(0, MCDisposeCookie(jar, first, &info));
    EXPECT_EQ(33u, info);
    EXPECT_EQ(0, MCDisposeCookie(jar, second, nullptr));
    EXPECT_EQ(0u, *static_cast<uInt64*>(ptr)) << "the record stays and is cleared";

    MagicCookieJar other = MCNewJar();
    MCNewCookie(other, &info);
    EXPECT_EQ(0, MCDisposeJar(other));
    EXPECT_TRUE(reports.Take(0, "Disposing jar with 1 cookies remaining"));
}

TEST_F(CookieManager, NumbersThatAreNoCookies)
{
    std::vector<uInt32> cookies;
    for (uInt64 i = 0; i < 70; ++i) {
        cookies.push_back(New(i));
    }
    const uInt32 stale = cookies[5];
    EXPECT_EQ(0, MCDisposeCookie(jar, stale, nullptr));
    const uInt32 reused = New(99);
    EXPECT_EQ(IndexOf(stale), IndexOf(reused)) << "the last slot freed is the first one reused";
    EXPECT_NE(SaltOf(stale), SaltOf(reused));
    MCDisposeCookie(jar, cookies[7], nullptr);
    const uInt32 wrongSalt = SaltOf(reused) % 4095 + 1;
    for (const uInt32 bad : {0u, 5u, 0xFFFFFu, stale, cookies[7], IndexOf(cookies[7]),
                             IndexOf(reused) | wrongSalt << 20, 0x100000u | 5000u, 0xFFFFFFFFu}) {
        ExpectNoCookie(jar, bad);
    }
    EXPECT_EQ(99u, InfoOf(reused));
    ExpectNoCookie(nullptr, reused);
    EXPECT_EQ(0u, MCNewCookie(nullptr, nullptr));
    EXPECT_EQ(1, MCJarSize(nullptr, nullptr));
    EXPECT_EQ(1, MCGetCookieList(nullptr, nullptr));
    EXPECT_EQ(0u, MCGetCookieForInfo(nullptr, nullptr));
    EXPECT_EQ(0, MCDisposeJar(nullptr));
}

// Across the borders of leaves and of each level of the tree, to the last index.
TEST_F(CookieManager, ManySlots)
{
    std::vector<uInt32> cookies(1u << 20);
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        cookies[i] = New(uInt64{i} << 32 | i);
        ASSERT_EQ(i, IndexOf(cookies[i]));
    }
    EXPECT_EQ(0u, New(1)) << "the jar is full";
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        ASSERT_EQ(uInt64{i} << 32 | i, InfoOf(cookies[i]));
    }
    EXPECT_EQ(cookies, List());
    for (const uInt64 i : {0u, 62u, 63u, 64u, 2047u, 2048u, 65535u, 65536u, 0xFFFFFu}) {
        const uInt64 info = i << 32 | i;
        EXPECT_EQ(cookies[i], MCGetCookieForInfo(jar, &info));
        void *before = nullptr, *after = nullptr;
        MCGetCookieInfoPtr(jar, cookies[i], &before);
        EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(before) % 8);
        EXPECT_EQ(0, MCDisposeCookie(jar, cookies[i], nullptr));
        MCGetCookieInfoPtr(jar, New(i), &after);
        EXPECT_EQ(before, after);
    }
}

TEST_F(CookieManager, SaltsWrapPastZero)
{
    uInt32 salt = SaltOf(New(1));
    for (int i = 0; i < 4095 + 10; ++i) {
        const uInt32 cookie = New(1);
        ASSERT_EQ(1u, IndexOf(cookie));
        ASSERT_EQ(salt % 4095 + 1, SaltOf(cookie));
        salt = SaltOf(cookie);
        ASSERT_EQ(0, MCDisposeCookie(jar, cookie, nullptr));
    }
}

TEST_F(CookieManager, Lists)
{
    EXPECT_EQ(std::vector<uInt32>(), List());
    const std::vector<uInt32> cookies = {New(1), New(2), New(3)};
    MCDisposeCookie(jar, cookies[1], nullptr);
    EXPECT_EQ((std::vector<uInt32>{cookies[0], cookies[2]}), List());

    // An old list is resized; without memory it stays.
    auto list = reinterpret_cast<MagicCookieList>(DSNewHClr(400));
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, MCGetCookieList(jar, &list));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(400u, DSGetHandleSize(list));
    EXPECT_EQ(0, MCGetCookieList(jar, &list));
    EXPECT_EQ(2, (*list)->count);
    EXPECT_EQ(12u, DSGetHandleSize(list));

    // With a damaged count, the word at 36 of the jar, nothing outside the list is reached; missing cookies are told.
    uInt32 count;
    unsigned char* const at = reinterpret_cast<unsigned char*>(*jar) + 36;
    std::memcpy(&count, at, sizeof count);
    ASSERT_EQ(2u, count);
    for (const uInt32 wrong : {1u, 5u}) {
        std::memcpy(at, &wrong, sizeof wrong);
        EXPECT_NE(nullptr, kz::CookieJarFault(jar));
        EXPECT_EQ(0, MCGetCookieList(jar, &list));
        EXPECT_EQ(cookies[0], (*list)->cookies[0]);
        EXPECT_EQ(wrong == 5, reports.Take(3, "PouchTree::CollectMagicCookies: cookie count discrepancy"));
    }
    std::memcpy(at, &count, sizeof count);
    DSDisposeHandle(list);
}

TEST_F(CookieManager, AWalkMeetsEachLiveCookieWhileTheJarIsEmptied)
{
    std::vector<uInt32> cookies;
    for (uInt32 i = 0; i < 200; ++i) {
        cookies.push_back(New(i));
    }
    for (const uInt32 i : {0u, 63u, 64u, 126u, 127u, 128u, 199u}) {
        MCDisposeCookie(jar, cookies[i], nullptr);
    }
    const std::vector<uInt32> live = List();
    std::vector<uInt32> met;
    for (uInt32 cookie = kz::NextCookie(jar, 0); cookie != 0; cookie = kz::NextCookie(jar, cookie)) {
        met.push_back(cookie);
        EXPECT_EQ(0, MCDisposeCookie(jar, cookie, nullptr));
    }
    EXPECT_EQ(live, met);
    EXPECT_EQ(0u, kz::NextCookie(nullptr, 0));
}

TEST_F(CookieManager, InfoOfAnySize)
{
    // By index, since equal infos are found so; the cookies themselves do not rise where the salt begins anew.
    const auto byIndex = [](uInt32 a, uInt32 b) { return (a & 0xFFFFF) < (b & 0xFFFFF); };
    for (const uInt32 infoSize : {0u, 1u, 5u, 8u, 12u, 5000u}) {
        MagicCookieJar big = MCNewBigJar(infoSize);
        ASSERT_NE(nullptr, big);
        std::map<uInt32, std::string, decltype(byIndex)> model(byIndex);
        model[MCNewCookie(big, nullptr)] = std::string(infoSize, '\0');
        for (int i = 1; i < 130; ++i) {
            const std::string info(infoSize, static_cast<char>(i));
            model[MCNewCookie(big, info.data())] = info;
        }
        EXPECT_EQ(130u, model.size());
        for (const auto& [cookie, info] : model) {
            std::string read(infoSize + 1, '.'), last = read;
            EXPECT_EQ(0, MCGetCookieInfo(big, cookie, read.data()));
            EXPECT_EQ(info + ".", read);
            EXPECT_EQ(cookie, MCGetCookieForInfo(big, info.data()));
            EXPECT_EQ(0, MCDisposeCookie(big, cookie, last.data()));
            EXPECT_EQ(info + ".", last);
        }
        EXPECT_EQ(nullptr, kz::CookieJarFault(big));
        EXPECT_EQ(0, MCDisposeJar(big));
    }
    EXPECT_EQ(nullptr, MCNewBigJar(0xFFFFFFFF)) << "a record would be too large";
    // Of the 64 records that the first cookie brings only its own is touched, and the ends of the others.
    constexpr uInt32 kInfoSize = 4 << 20;
    void* info = nullptr;
    MagicCookieJar big = MCNewBigJar(kInfoSize);
    EXPECT_EQ(0, MCGetCookieInfoPtr(big, MCNewCookie(big, nullptr), &info));
    EXPECT_TRUE(kztest::IsUntouched(info, 64ul * kInfoSize));
    MCDisposeJar(big);
}

TEST_F(CookieManager, OutOfMemory)
{
    for (const auto make : {&MCNewJar, &MCNewRCJar}) {
        kztest::FaultLoop([make](auto failed) {
            const MagicCookieJar made = make();
            EXPECT_EQ(failed(), made == nullptr);
            MCDisposeJar(made);
        });
    }
    // The memory-full procedure may use the jar that the allocation was for.
    static MagicCookieJar sJar;
    static int32 sSize;
    sJar = jar;
    sSize = -1;
    SetMemFullProc([](unsigned long) { EXPECT_EQ(0, MCJarSize(sJar, &sSize)); });
    for (int n = 1; n <= 4; ++n) {
        // The root, two inner nodes, the leaf; each failure leaves those that there are, so the next is always first.
        FailAllocation fail(n > 1 ? 2 : 1);
        EXPECT_EQ(0u, New(1)) << n;
        EXPECT_EQ(0, std::exchange(sSize, -1));
        EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
    }
    EXPECT_EQ(0u, IndexOf(New(1)));
}

// A jar with many slots is not walked by each call, however few cookies it holds: damage far off is left to a walk.
TEST_F(CookieManager, FewCookiesInAJarOfManySlotsCostNoWalk)
{
    std::vector<uInt32> cookies(200);
    for (uInt32& cookie : cookies) {
        cookie = New(1);
    }
    void* record = nullptr;
    ASSERT_EQ(0, MCGetCookieInfoPtr(jar, cookies[190], &record));
    for (const uInt32 cookie : cookies) {
        MCDisposeCookie(jar, cookie, nullptr);
    }
    uInt32* const salt = static_cast<uInt32*>(record) + 3;
    *salt = 1;
    EXPECT_EQ(0, MCDisposeCookie(jar, New(1), nullptr));
    EXPECT_STREQ("a slot is neither free nor in use", kz::CookieJarFault(jar));
    *salt = 0;
}

// Whether this is told of as a bad handle and left alone.
bool IsNoJar(kztest::ReportCatcher& reports, void* handle)
{
    EXPECT_EQ(0, MCDisposeJar(static_cast<MagicCookieJar>(handle)));
    return reports.Take(kDbgFatal, "") && reports.Take(kDbgWarning, "Memory error 3 in MCDisposeJar") &&
           reports.TakeAll().empty();
}

TEST_F(CookieManager, OnlyLivingJarsAreDisposed)
{
    UHandle copy = reinterpret_cast<UHandle>(jar);
    ASSERT_EQ(0, DSHandToHand(&copy));
    EXPECT_TRUE(IsNoJar(reports, copy)) << "the bytes of a jar in another handle";
    EXPECT_TRUE(IsNoJar(reports, &copy)) << "no handle";
    EXPECT_EQ(0, DSDisposeHandle(copy));
    const MagicCookieJar stale = MCNewRCJar();
    EXPECT_EQ(0, MCDisposeJar(stale));
    EXPECT_TRUE(IsNoJar(reports, stale));
    UHandle const heir = DSNewHandle(112);
    EXPECT_EQ(static_cast<void*>(stale), heir) << "the last master freed is the first one reused";
    EXPECT_TRUE(IsNoJar(reports, stale)) << "somebody else's handle";
    EXPECT_EQ(0, DSDisposeHandle(heir));
}

// A jar that nobody disposes ends whole with the memory service, as a handle that was left.
TEST(CookieJarLife, AForgottenJarEndsWithTheService)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const auto scenario = [&](auto failed) {
        const bool isUp = MemoryManagerService()->Init() == 0;
        const MagicCookieJar jars[] = {MCNewJar(), MCNewRCJar()};
        int left = 0;
        for (const MagicCookieJar jar : jars) {
            MCNewCookie(jar, nullptr);
            MCNewCookie(jar, nullptr);
            left += jar != nullptr;
        }
        EXPECT_TRUE(failed() || left == 2);
        MemoryManagerService()->Uninit();
        for (int i = 0; i < left; ++i) {
            EXPECT_TRUE(reports.Take(kDbgLog, ", size 112 still allocated."));
        }
        EXPECT_EQ(isUp, reports.Take(kDbgLog, "Recovered " + std::to_string(left) + " Handles for "));
        EXPECT_TRUE(reports.TakeAll().empty());
        for (const bool restarts : {false, true}) {
            if (restarts) {
                MemoryManagerService()->Init();
            }
            for (const MagicCookieJar jar : jars) {
                EXPECT_TRUE(jar == nullptr || IsNoJar(reports, jar));
            }
        }
        MemoryManagerService()->Uninit();
        reports.TakeAll();
    };
    kztest::FaultLoop(scenario, FailAllocation::kBlocks);
    KZAppInterfaceSet(nullptr);
}

// As a static one does, its destructor running at exit, in front of a restart or behind it.
TEST(CookieJarLife, AnOwnerMayOutliveTheService)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    for (const int restarts : {0, 1}) {
        for (const bool uninits : {false, true}) {
            ASSERT_EQ(0, MemoryManagerService()->Init());
            {
                CookieJar<long> owner;
                ASSERT_EQ(0, owner.Init(1));
                EXPECT_NE(0u, owner.NewCookie(1));
                MemoryManagerService()->Uninit();
                EXPECT_EQ(0, restarts != 0 ? MemoryManagerService()->Init() : 0);
                reports.TakeAll();
                EXPECT_EQ(0, uninits ? owner.Uninit() : 0);
                EXPECT_EQ(uninits, reports.Take(kDbgFatal, "") && reports.Take(kDbgWarning, "in MCDisposeJar"));
            }
            EXPECT_TRUE(reports.TakeAll().empty());
            if (restarts != 0) {
                MemoryManagerService()->Uninit();
            }
        }
    }
    KZAppInterfaceSet(nullptr);
}

TEST_F(CookieManager, JarClasses)
{
    CookieJar<const char*> typed;
    EXPECT_EQ(0u, typed.NewCookie("no jar yet"));
    EXPECT_FALSE(typed.IsAValidJar());
    EXPECT_EQ(0, typed.Init());
    const unsigned cookies[] = {typed.NewCookie("text"), typed.NewCookie(nullptr)};
    CookieList list;
    EXPECT_EQ(0, typed.GetCookieList(&list));
    ASSERT_EQ(2, list.GetCount());
    EXPECT_EQ(cookies[0], list.GetCookie(0));
    EXPECT_EQ(cookies[1], list.GetCookie(1));
    FailAllocation fail(1);
    EXPECT_EQ(2, BaseCookieJar().Init(8, 0));
}

TEST_F(CookieManager, CookieLists)
{
    CookieList list;
    EXPECT_EQ(1, list.SetCount(-1));
    EXPECT_EQ(0, list.SetCount(3));
    EXPECT_EQ(0, list.SetCookie(1, 11));
    EXPECT_EQ(0, list.SetCookie(2, 12));
    for (const int index : {-1, 3}) {
        EXPECT_EQ(1, list.SetCookie(index, 1));
        EXPECT_EQ(0u, list.GetCookie(index));
    }
    EXPECT_EQ(0, list.SetCount(2));
    EXPECT_EQ(0, list.SetCount(4));
    EXPECT_EQ(11u, list.GetCookie(1));
    EXPECT_EQ(0u, list.GetCookie(0) | list.GetCookie(2) | list.GetCookie(3));
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, list.SetCount(100));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(0, list.GetCount());
    EXPECT_EQ(0, list.SetCount(2));
    EXPECT_EQ(0u, list.GetCookie(1)) << "what was there before the failure is gone";
    EXPECT_EQ(0, list.SetCount(0));
}

struct CookieModel {
    uInt64 info;
    int rights;
};

// One step of a random sequence on a jar and its model; all cookies that ever ended are in `stale`.
void RandomStep(std::mt19937& random, bool counts, BaseCookieJar& jar, std::map<uInt32, CookieModel>& model,
                std::vector<uInt32>& stale)
{
    long info = static_cast<long>(random());
    if (model.empty() || random() % 3 == 0) {
        const uInt32 cookie = jar.NewCookie(&info);
        ASSERT_TRUE(model.emplace(cookie, CookieModel{static_cast<uInt64>(info), counts ? 1 : 0}).second);
        return;
    }
    const auto entry = std::next(model.begin(), static_cast<long>(random() % model.size()));
    auto& [known, rights] = entry->second;
    const uInt32 cookie = entry->first;
    bool ends = false;
    switch (random() % 5) {
        case 0:
            ASSERT_EQ(0, jar.SetCookieInfo(cookie, &info));
            known = static_cast<uInt64>(info);
            break;
        case 1:
            ASSERT_EQ(0, jar.DisposeCookie(cookie, &info));
            ASSERT_EQ(known, static_cast<uInt64>(info));
            ends = true;
            break;
        case 2:
            ASSERT_EQ(counts, jar.AcquireCookieRights(cookie, &info));
            ASSERT_EQ(counts ? known : 0, static_cast<uInt64>(info));
            rights += counts;
            break;
        case 3:
            ASSERT_EQ(rights, jar.ReleaseCookieRights(cookie));
            ends = rights == 1;
            rights -= counts;
            break;
        default:
            ASSERT_TRUE(jar.IsACookie(cookie));
            ASSERT_EQ(0, jar.GetCookieInfo(cookie, &info));
            ASSERT_EQ(known, static_cast<uInt64>(info));
    }
    if (ends) {
        stale.push_back(cookie);
        model.erase(entry);
    }
}

TEST_F(CookieManager, RandomSequencesAgreeWithAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences(); ++seed) {
        const bool counts = seed % 2 != 0;
        std::mt19937 random(seed);
        BaseCookieJar tested;
        ASSERT_EQ(0, tested.Init(8, counts));
        std::map<uInt32, CookieModel> model;
        std::vector<uInt32> stale;
        for (unsigned step = 0; step < 20 + seed % 150; ++step) {
            RandomStep(random, counts, tested, model, stale);
            ASSERT_EQ(nullptr, kz::CookieJarFault(tested.GetJar())) << "seed " << seed << " step " << step;
        }
        for (const uInt32 cookie : stale) {
            ExpectNoCookie(tested.GetJar(), cookie);
            ASSERT_EQ(0, tested.ReleaseCookieRights(cookie));
        }
        CookieList list;
        ASSERT_EQ(0, tested.GetCookieList(&list));
        ASSERT_EQ(model.size(), static_cast<unsigned>(list.GetCount()));
        for (int i = 0; i < list.GetCount(); ++i) {
            ASSERT_EQ(1u, model.count(list.GetCookie(i)));
            ASSERT_EQ(0, tested.DisposeCookie(list.GetCookie(i), nullptr));
        }
    }
}

TEST_F(CookieManager, ReferenceCounts)
{
    BaseCookieJar counting;
    long info = 5;
    EXPECT_FALSE(counting.AcquireCookieRights(1, &info));
    EXPECT_EQ(0, info);
    EXPECT_EQ(0, counting.ReleaseCookieRights(1));
    ASSERT_EQ(0, counting.Init(8, 1));
    info = 77;
    const uInt32 cookie = counting.NewCookie(&info);
    info = 0;
    EXPECT_TRUE(counting.AcquireCookieRights(cookie, &info));
    EXPECT_EQ(77, info);
    EXPECT_TRUE(counting.AcquireCookieRights(cookie, nullptr));
    EXPECT_EQ(3, counting.ReleaseCookieRights(cookie));
    EXPECT_EQ(2, counting.ReleaseCookieRights(cookie));
    EXPECT_TRUE(counting.IsACookie(cookie));
    EXPECT_EQ(1, counting.ReleaseCookieRights(cookie));
    EXPECT_EQ(0, counting.ReleaseCookieRights(cookie));
    EXPECT_FALSE(counting.AcquireCookieRights(cookie, &info));
    EXPECT_EQ(0, info);
    ExpectNoCookie(counting.GetJar(), cookie);

    // Records that are smaller and larger than a word.
    struct Pair {
        uInt16 value;
        unsigned char guard;
    } pair = {7, 9};
    CookieJar<uInt16> typed;
    EXPECT_FALSE(typed.AcquireCookieRights(1, &pair.value));
    EXPECT_EQ(0, pair.value);
    ASSERT_EQ(0, typed.Init(1));
    EXPECT_TRUE(typed.AcquireCookieRights(typed.NewCookie(300), &pair.value));
    EXPECT_EQ(300, pair.value);
    EXPECT_FALSE(typed.AcquireCookieRights(1, &pair.value));
    EXPECT_EQ(0, pair.value);
    EXPECT_EQ(9, pair.guard) << "only a record's bytes are written";
    CookieJar<std::array<long, 3>> large;
    ASSERT_EQ(0, large.Init(1));
    std::array<long, 3> three{};
    EXPECT_TRUE(large.AcquireCookieRights(large.NewCookie({1, 2, 3}), &three));
    EXPECT_EQ(3, three[2]);
    const MagicCookieJar plain = MCNewRCJar();
    EXPECT_NE(nullptr, plain);
    MCDisposeJar(plain);

    // Larger than a stack.
    using Huge = std::array<unsigned char, 9 << 20>;
    const auto out = std::make_unique<Huge>();
    CookieJar<Huge> huge;
    for (const bool isHeld : {false, true}) {
        const uInt32 ofHuge = isHeld && huge.Init(1) == 0 ? huge.NewCookie(*out) : 1;
        for (const uInt32 asked : {1u, ofHuge}) {
            out->back() = 7;
            EXPECT_EQ(isHeld && asked == ofHuge, huge.AcquireCookieRights(asked, out.get()));
            EXPECT_EQ(0, out->back());
            EXPECT_EQ(isHeld && asked == ofHuge, huge.AcquireCookieRights(asked));
        }
    }
}

// Threads share one reference-counting jar: a cookie ends once, with the last of its rights, and nobody reads it after.
TEST_F(CookieManager, RightsAcrossThreads)
{
    BaseCookieJar counting;
    ASSERT_EQ(0, counting.Init(8, 1));
    std::array<std::atomic<uInt32>, 16> shared{};
    std::atomic<int> faults{0};
    std::atomic<int> made{0};
    std::atomic<int> ended{0};
    const auto work = [&](uInt32 seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < 20000; ++i) {
            auto& place = shared[random() % shared.size()];
            if (random() % 4 == 0) {
                long info = 1234;
                const uInt32 cookie = counting.NewCookie(&info);
                ++made;
                if (const uInt32 old = place.exchange(cookie)) {
                    ended += counting.ReleaseCookieRights(old) == 1;
                }
                continue;
            }
            const uInt32 cookie = place;
            long info = 0;
            if (cookie != 0 && counting.AcquireCookieRights(cookie, &info)) {
                faults += info != 1234 || !counting.IsACookie(cookie);
                ended += counting.ReleaseCookieRights(cookie) == 1;
            }
        }
    };
    {
        std::vector<std::jthread> threads;
        for (uInt32 i = 0; i < 8; ++i) {
            threads.emplace_back(work, i);
        }
    }
    EXPECT_EQ(0, faults);
    int live = 0;
    EXPECT_EQ(0, counting.GetNumCookies(&live));
    EXPECT_EQ(made - ended, live);
    EXPECT_LE(live, 16);
    EXPECT_EQ(nullptr, kz::CookieJarFault(counting.GetJar()));
    for (const auto& cookie : shared) {
        counting.ReleaseCookieRights(cookie);
    }
}

// Readers look up cookies while others make and dispose them and the jar grows: what a reader gets for a cookie is that
// cookie's info, or nothing.
TEST_F(CookieManager, LookupsDuringGrowthAndDisposal)
{
    std::array<std::atomic<uInt64>, 512> published{};  // cookie and the low half of its info
    std::atomic<bool> stop{false};
    std::atomic<int> faults{0};
    std::atomic<long> hits{0};
    const auto write = [&](uInt32 seed) {
        std::mt19937 random(seed);
        for (uInt32 i = 0; i < 30000; ++i) {
            const auto low = static_cast<uInt32>(random());
            const uInt32 cookie = New(uInt64{low} << 32 | low);
            const uInt64 old = published[random() % published.size()].exchange(uInt64{cookie} << 32 | low);
            if (old != 0 && i % 4 != 0) {
                faults += MCDisposeCookie(jar, static_cast<uInt32>(old >> 32), nullptr) != 0;
            }
        }
    };
    const auto read = [&] {
        while (!stop) {
            for (const auto& entry : published) {
                const uInt64 value = entry;
                const auto low = static_cast<uInt32>(value);
                uInt64 info = 0;
                if (value != 0 && MCGetCookieInfo(jar, static_cast<uInt32>(value >> 32), &info) == 0) {
                    faults += info != (uInt64{low} << 32 | low);
                    hits.fetch_add(1, std::memory_order_relaxed);
                }
            }
            MagicCookieList list = nullptr;
            faults += MCGetCookieList(jar, &list) != 0;
            DSDisposeHandle(list);
        }
    };
    std::vector<std::jthread> readers;
    {
        std::vector<std::jthread> writers;
        for (uInt32 i = 0; i < 3; ++i) {
            writers.emplace_back(write, i);
            readers.emplace_back(read);
        }
    }
    stop = true;
    readers.clear();
    EXPECT_EQ(0, faults);
    EXPECT_GT(hits, 0);
    EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
}

}  // namespace
