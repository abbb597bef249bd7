#include "CookieManager.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "CookieWalk.h"
#include "Racing.h"
#include "ResidentPages.h"

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

uInt32 NextSalt(uInt32 salt)
{
    return salt % 4095 + 1;
}

std::vector<uInt32> ListOf(MagicCookieJar jar)
{
    MagicCookieList list = nullptr;
    EXPECT_EQ(0, MCGetCookieList(jar, &list));
    const std::vector<uInt32> cookies((*list)->cookies, (*list)->cookies + (*list)->count);
    EXPECT_EQ(std::max<std::size_t>(cookies.size(), 1) * 4 + 4, DSGetHandleSize(list));
    DSDisposeHandle(list);
    return cookies;
}

class CookieManager : public kztest::ThreadTest {
protected:
    ~CookieManager() override
    {
        EXPECT_STREQ(nullptr, kz::CookieJarFault(jar));
        MCDisposeJar(jar);
        EXPECT_EQ(0, kz::LiveCount(kz::Live::kCookies));
    }

    uInt32 New(uInt64 info) { return MCNewCookie(jar, &info); }

    MagicCookieJar jar = MCNewJar();
};

// A jar beside a plain picture of it, for infos of one size. After each step the two agree in all that can be asked.
class JarModel {
public:
    explicit JarModel(unsigned seed) : mRandom(seed), mSize(kSizes[seed % 6]), mCounts(seed / 6 % 2 != 0)
    {
        EXPECT_EQ(0, mJar.Init(mSize, mCounts));
    }

    void Step();
    void Agree();
    void EmptyOnAWalk();

private:
    struct Cookie {
        uInt32 number;
        std::string info;
        int rights;
    };
    static constexpr unsigned kSizes[] = {0, 1, 5, 8, 12, 500};

    MagicCookieJar Jar() const { return mJar.GetJar(); }
    unsigned Roll(unsigned sides) { return static_cast<unsigned>(mRandom() % sides); }
    void Make(const std::string& info);
    void End(uInt32 index);
    void ExpectNoCookie(uInt32 number);

    std::mt19937 mRandom;
    const unsigned mSize;
    const bool mCounts;
    BaseCookieJar mJar;
    std::map<uInt32, Cookie> mLive;    // by index
    std::vector<uInt32> mFree;         // indices, the next one last
    std::vector<void*> mRecords;       // of each index that there is
    std::vector<uInt32> mStale = {0};  // numbers that are no cookies any more
    uInt32 mSalt = 0;
};

void JarModel::Make(const std::string& info)
{
    static int sTold;
    static MagicCookieJar sJar;
    sTold = 0;
    sJar = Jar();
    SetMemFullProc([](unsigned long) {
        int32 size = -1;  // the procedure may use the jar
        sTold += MCJarSize(sJar, &size) == 0;
    });
    uInt32 cookie = 0;
    {
        FailAllocation fail(static_cast<int>(Roll(20)) + 1);
        cookie = MCNewCookie(Jar(), info == std::string(mSize, '\0') ? nullptr : info.data());
        ASSERT_TRUE(cookie != 0 || FailAllocation::Happened());
    }
    ASSERT_EQ(cookie == 0 ? 1 : 0, sTold);
    SetMemFullProc(nullptr);
    if (cookie == 0) {
        return;
    }
    const uInt32 index = mFree.empty() ? static_cast<uInt32>(mRecords.size()) : mFree.back();
    ASSERT_EQ(index, IndexOf(cookie)) << "the last slot freed is the first one reused";
    ASSERT_EQ(mSalt == 0 ? SaltOf(cookie) : NextSalt(mSalt), SaltOf(cookie));
    mSalt = SaltOf(cookie);
    void* record = nullptr;
    ASSERT_EQ(0, MCGetCookieInfoPtr(Jar(), cookie, &record));
    ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(record) % 8);
    if (mFree.empty()) {
        mRecords.push_back(record);
    } else {
        mFree.pop_back();
    }
    ASSERT_EQ(mRecords[index], record) << "slots never move";
    mLive[index] = {cookie, info, mCounts ? 1 : 0};
}

void JarModel::End(uInt32 index)
{
    ASSERT_EQ(std::string(mSize, '\0'), std::string(static_cast<char*>(mRecords[index]), mSize))
        << "records are cleared";
    mStale.push_back(mLive[index].number);
    mLive.erase(index);
    mFree.push_back(index);
}

void JarModel::Step()
{
    const std::string info(mSize, static_cast<char>(Roll(20)));  // few, so that cookies share them
    if (mLive.empty() || Roll(5) < 2) {
        return Make(info);
    }
    auto& [index, cookie] = *std::next(mLive.begin(), static_cast<long>(Roll(static_cast<unsigned>(mLive.size()))));
    std::string out(mSize + 1, '.');
    switch (Roll(5)) {
        case 0:
            ASSERT_EQ(0, MCSetCookieInfo(Jar(), cookie.number, info.data()));
            cookie.info = info;
            break;
        case 1:
            ASSERT_EQ(0, MCDisposeCookie(Jar(), cookie.number, Roll(2) != 0 ? nullptr : out.data()));
            ASSERT_TRUE(out[0] == '.' || out == cookie.info + '.');
            return End(index);
        case 2:
            ASSERT_EQ(mCounts, mJar.AcquireCookieRights(cookie.number, reinterpret_cast<long*>(out.data())));
            ASSERT_EQ((mCounts ? cookie.info : std::string(mSize, '\0')) + '.', out);
            cookie.rights += mCounts;
            break;
        case 3:
            ASSERT_EQ(mCounts, mJar.AcquireCookieRights(cookie.number, nullptr));
            cookie.rights += mCounts;
            break;
        default:
            for (int times = mCounts ? 2 : 1; times > 0; --times) {
                ASSERT_EQ(cookie.rights, mJar.ReleaseCookieRights(cookie.number));
                if (cookie.rights == 1) {
                    return End(index);
                }
                cookie.rights -= mCounts;
            }
    }
}

// Each query refuses the number, and leaves nothing behind.
void JarModel::ExpectNoCookie(uInt32 number)
{
    std::string info(mSize + 1, '.');
    const std::string before = info;
    void* record = &info;
    ASSERT_FALSE(MCIsACookie(Jar(), number)) << std::hex << number;
    ASSERT_EQ(1, MCGetCookieInfo(Jar(), number, info.data()));
    ASSERT_EQ(1, MCSetCookieInfo(Jar(), number, info.data()));
    ASSERT_EQ(1, MCDisposeCookie(Jar(), number, info.data()));
    ASSERT_EQ(before, info);
    ASSERT_EQ(1, MCGetCookieInfoPtr(Jar(), number, &record));
    ASSERT_EQ(nullptr, record);
    ASSERT_EQ(1, MCGetCookieInfoPtr(Jar(), number, nullptr));
    ASSERT_FALSE(mJar.AcquireCookieRights(number, reinterpret_cast<long*>(info.data())));
    ASSERT_EQ(std::string(mSize, '\0') + '.', info);
    ASSERT_EQ(0, mJar.ReleaseCookieRights(number));
}

void JarModel::Agree()
{
    ASSERT_STREQ(nullptr, kz::CookieJarFault(Jar()));
    std::vector<uInt32> numbers;
    const std::string wanted(mSize, static_cast<char>(Roll(20)));
    uInt32 found = 0;
    for (const auto& [index, cookie] : mLive) {
        numbers.push_back(cookie.number);
        found = found == 0 && cookie.info == wanted ? cookie.number : found;
    }
    ASSERT_EQ(numbers, ListOf(Jar()));
    ASSERT_EQ(found, MCGetCookieForInfo(Jar(), wanted.data()));
    int size = -1;
    ASSERT_EQ(0, mJar.GetNumCookies(&size));
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(size));
    ASSERT_EQ(size, kz::LiveCount(kz::Live::kCookies));
    std::vector<uInt32> bad = {mStale[Roll(static_cast<unsigned>(mStale.size()))], 5000u | 1u << 20, 0xFFFFFFFFu};
    if (!mLive.empty()) {
        const auto& [index, cookie] = *std::next(mLive.begin(), Roll(static_cast<unsigned>(mLive.size())));
        std::string out(mSize + 1, '.');
        ASSERT_TRUE(MCIsACookie(Jar(), cookie.number));
        ASSERT_EQ(0, MCGetCookieInfo(Jar(), cookie.number, out.data()));
        ASSERT_EQ(cookie.info + '.', out);
        bad.push_back(index);
        bad.push_back(index | NextSalt(SaltOf(cookie.number)) << 20);
    }
    if (!mFree.empty()) {
        bad.push_back(mFree.back());  // a salt of 0, which is that of a free slot
    }
    for (const uInt32 number : bad) {
        ExpectNoCookie(number);
    }
}

void JarModel::EmptyOnAWalk()
{
    uInt32 cookie = 0;
    for (const uInt32 expected : ListOf(Jar())) {
        cookie = kz::NextCookie(Jar(), cookie);
        ASSERT_EQ(expected, cookie);
        ASSERT_EQ(0, MCDisposeCookie(Jar(), cookie, nullptr));
    }
    ASSERT_EQ(0u, kz::NextCookie(Jar(), cookie));
    ASSERT_STREQ(nullptr, kz::CookieJarFault(Jar()));
}

TEST_F(CookieManager, RandomSequencesAgreeWithAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 5; ++seed) {
        SCOPED_TRACE(seed);
        JarModel model(seed);
        for (unsigned step = 0; step < 20 + seed * 7 % 400 && !HasFatalFailure(); ++step) {
            model.Step();
            model.Agree();
        }
        model.EmptyOnAWalk();
        ASSERT_FALSE(HasFatalFailure());
    }
}

TEST_F(CookieManager, NoJarOrNoOutput)
{
    uInt64 info = 7;
    const uInt32 cookie = New(info);
    BaseCookieJar none;
    long out = 5;
    CookieList list;
    const struct {
        const char* name;
        uInt64 answer;
        uInt64 expected;
    } kRows[] = {
        {"new", MCNewCookie(nullptr, &info), 0},
        {"is", static_cast<uInt64>(MCIsACookie(nullptr, cookie)), 0},
        {"get", static_cast<uInt64>(MCGetCookieInfo(nullptr, cookie, &info)), 1},
        {"get nowhere", static_cast<uInt64>(MCGetCookieInfo(jar, cookie, nullptr)), 1},
        {"set", static_cast<uInt64>(MCSetCookieInfo(nullptr, cookie, &info)), 1},
        {"set nothing", static_cast<uInt64>(MCSetCookieInfo(jar, cookie, nullptr)), 1},
        {"pointer", static_cast<uInt64>(MCGetCookieInfoPtr(nullptr, cookie, nullptr)), 1},
        {"dispose", static_cast<uInt64>(MCDisposeCookie(nullptr, cookie, &info)), 1},
        {"size", static_cast<uInt64>(MCJarSize(nullptr, nullptr)), 1},
        {"size nowhere", static_cast<uInt64>(MCJarSize(jar, nullptr)), 1},
        {"list", static_cast<uInt64>(MCGetCookieList(nullptr, nullptr)), 1},
        {"list nowhere", static_cast<uInt64>(MCGetCookieList(jar, nullptr)), 1},
        {"class list nowhere", static_cast<uInt64>(none.GetCookieList(nullptr)), 1},
        {"class list", static_cast<uInt64>(none.GetCookieList(&list)), 1},
        {"find", MCGetCookieForInfo(nullptr, &info), 0},
        {"find nothing", MCGetCookieForInfo(jar, nullptr), 0},
        {"dispose none", static_cast<uInt64>(MCDisposeJar(nullptr)), 0},
        {"next", kz::NextCookie(nullptr, 0), 0},
        {"acquire", none.AcquireCookieRights(1, &out), 0},
        {"release", static_cast<uInt64>(none.ReleaseCookieRights(1)), 0},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.expected, row.answer) << row.name;
    }
    EXPECT_EQ(7u, info);
    EXPECT_EQ(0, out);
    MagicCookieJar other = MCNewJar();
    MCNewCookie(other, &info);
    EXPECT_EQ(0, MCDisposeJar(other));
    EXPECT_TRUE(reports.Take(0, "Disposing jar with 1 cookies remaining"));
}

// Across the borders of leaves and of each level of the tree, to the last index, and many times through all salts.
TEST_F(CookieManager, ManySlots)
{
    std::vector<uInt32> cookies(1u << 20);
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        cookies[i] = New(uInt64{i} << 32 | i);
        ASSERT_EQ(i, IndexOf(cookies[i]));
        ASSERT_TRUE(i == 0 || SaltOf(cookies[i]) == NextSalt(SaltOf(cookies[i - 1])));
    }
    EXPECT_EQ(0u, New(1)) << "the jar is full";
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        uInt64 info = 0;
        ASSERT_EQ(0, MCGetCookieInfo(jar, cookies[i], &info));
        ASSERT_EQ(uInt64{i} << 32 | i, info);
    }
    EXPECT_EQ(cookies, ListOf(jar));
    EXPECT_EQ(0u, kz::NextCookie(jar, cookies.back()));
    for (const uInt64 i : {0u, 62u, 63u, 64u, 2047u, 2048u, 65535u, 65536u, 0xFFFFFu}) {
        const uInt64 info = i << 32 | i;
        EXPECT_EQ(cookies[i], MCGetCookieForInfo(jar, &info));
        EXPECT_EQ(0, MCDisposeCookie(jar, cookies[i], nullptr));
        EXPECT_EQ(i, IndexOf(New(1)));
    }
}

TEST_F(CookieManager, OldListsAndDamagedCounts)
{
    const std::vector<uInt32> cookies = {New(1), New(2)};
    // An old list is resized; without memory it stays.
    auto list = reinterpret_cast<MagicCookieList>(DSNewHClr(400));
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, MCGetCookieList(jar, &list));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(400u, DSGetHandleSize(list));
    EXPECT_EQ(0, MCGetCookieList(jar, &list));
    EXPECT_EQ(12u, DSGetHandleSize(list));

    // With a damaged count, the word at 36 of the jar, nothing outside the list is reached; missing cookies are told.
    unsigned char* const at = reinterpret_cast<unsigned char*>(*jar) + 36;
    for (const uInt32 wrong : {1u, 5u, 2u}) {
        std::memcpy(at, &wrong, sizeof wrong);
        EXPECT_STREQ(wrong == 2 ? nullptr : "the count of cookies is wrong", kz::CookieJarFault(jar));
        EXPECT_EQ(0, MCGetCookieList(jar, &list));
        EXPECT_EQ(cookies[0], (*list)->cookies[0]);
        EXPECT_EQ(wrong == 5, reports.Take(3, "PouchTree::CollectMagicCookies: cookie count discrepancy"));
    }
    DSDisposeHandle(list);
}

TEST_F(CookieManager, LargeRecordsAndNoMemory)
{
    for (const auto make : {&MCNewJar, &MCNewRCJar}) {
        kztest::FaultLoop([make](auto failed) {
            const MagicCookieJar made = make();
            EXPECT_EQ(failed(), made == nullptr);
            MCDisposeJar(made);
        });
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
    EXPECT_EQ(0, list.GetCount());
}

// Typed jars give rights to records that are smaller and larger than a word, one larger than a stack.
TEST_F(CookieManager, RightsToRecordsOfAnyType)
{
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
    using Huge = std::array<unsigned char, 9 << 20>;
    const auto out = std::make_unique<Huge>();
    CookieJar<Huge> huge;
    for (const bool isHeld : {false, true}) {
        out->back() = 3;
        const uInt32 ofHuge = isHeld && huge.Init(1) == 0 ? huge.NewCookie(*out) : 1;
        for (const uInt32 asked : {1u, ofHuge}) {
            out->back() = 7;
            EXPECT_EQ(isHeld && asked == ofHuge, huge.AcquireCookieRights(asked, out.get()));
            EXPECT_EQ(isHeld && asked == ofHuge ? 3 : 0, out->back());
            EXPECT_EQ(isHeld && asked == ofHuge, huge.AcquireCookieRights(asked));
        }
    }
}

// Three threads make and end cookies, while the jar grows, and three look at them. What a reader gets for a cookie is
// that cookie's info, or nothing; with rights a cookie ends once, with the last of them, and nobody reads it after.
TEST_F(CookieManager, WritersAndReaders)
{
    for (const bool counts : {false, true}) {
        BaseCookieJar shared;
        ASSERT_EQ(0, shared.Init(8, counts));
        std::array<std::atomic<uInt64>, 64> published{};  // cookie and the low half of its info
        std::atomic<int> writers{3};
        std::atomic<int> faults{0};
        std::atomic<int> live{0};
        std::atomic<int> hits{0};
        const auto write = [&](std::mt19937& random) {
            for (int i = 0; i < 30000; ++i) {
                const auto low = static_cast<uInt32>(random());
                const auto info = static_cast<long>(uInt64{low} << 32 | low);
                const uInt32 cookie = shared.NewCookie(&info);
                ++live;
                const uInt64 old = published[random() % published.size()].exchange(uInt64{cookie} << 32 | low);
                const auto ended = static_cast<uInt32>(old >> 32);
                if (old != 0 && i % 4 != 0) {
                    live -= counts ? shared.ReleaseCookieRights(ended) == 1 : shared.DisposeCookie(ended, nullptr) == 0;
                }
            }
            --writers;
        };
        const auto read = [&](uInt64 value) {
            const auto cookie = static_cast<uInt32>(value >> 32);
            const auto low = static_cast<uInt32>(value);
            const auto expected = static_cast<long>(uInt64{low} << 32 | low);
            long info = 0;
            if (shared.GetCookieInfo(cookie, &info) == 0) {
                faults += info != expected;
                ++hits;
            }
            if (counts && shared.AcquireCookieRights(cookie, &info)) {
                faults += info != expected || !shared.IsACookie(cookie);
                live -= shared.ReleaseCookieRights(cookie) == 1;
            }
        };
        kztest::Race(6, [&](int thread) {
            std::mt19937 random(static_cast<unsigned>(thread));
            if (thread < 3) {
                return write(random);
            }
            do {  // once more when all that is left lives
                for (const auto& value : published) {
                    read(value);
                }
                MagicCookieList list = nullptr;
                faults += MCGetCookieList(shared.GetJar(), &list) != 0;
                DSDisposeHandle(list);
            } while (writers > 0);
        });
        EXPECT_EQ(0, faults);
        EXPECT_GT(hits, 0);
        EXPECT_EQ(live, kz::LiveCount(kz::Live::kCookies));
        EXPECT_STREQ(nullptr, kz::CookieJarFault(shared.GetJar()));
    }
}

}  // namespace
