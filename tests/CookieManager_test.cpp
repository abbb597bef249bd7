#include "CookieManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "CookieWalk.h"
#include "Racing.h"
#include "ResidentPages.h"

namespace {

using kztest::FailAllocation;

uInt32 IndexOf(uInt32 cookie)
{
    return cookie & 0xFFFFF;
}

uInt32 NextSalt(uInt32 cookie)
{
    return (cookie >> 20) % 4095 + 1;
}

long* Longs(std::string& info)
{
    return reinterpret_cast<long*>(info.data());
}

std::vector<uInt32> ListOf(const BaseCookieJar& jar)
{
    CookieList list;
    EXPECT_EQ(0, jar.GetCookieList(&list));
    std::vector<uInt32> cookies;
    for (int i = 0; i < list.GetCount(); ++i) {
        cookies.push_back(list.GetCookie(i));
    }
    return cookies;
}

class CookieManager : public kztest::ThreadTest {
protected:
    CookieManager() { EXPECT_EQ(0, jar.Init()); }
    ~CookieManager() override
    {
        EXPECT_STREQ(nullptr, jar.IsAValidJar() ? kz::CookieJarFault(jar.GetJar()) : nullptr);
        jar.Uninit();
        EXPECT_EQ(0, kz::LiveCount(kz::Live::kCookies));
    }

    CookieJar<uInt64> jar;
};

// A jar beside a plain picture of it, for infos of one size that are one byte again and again. Each step is about a
// number that is alive, was or never was; after it the two agree in all that can be asked.
class JarModel {
    struct Cookie {
        uInt32 number;
        char fill;
        int rights;
    };
    static constexpr unsigned kSizes[] = {0, 1, 5, 8, 12, 500};
    static inline BaseCookieJar* sJar;
    static inline int sTold;
    std::mt19937 mRandom;
    const unsigned mSize;
    const bool mCounts;
    BaseCookieJar mJar;
    std::map<uInt32, Cookie> mLive;      // by index
    std::vector<uInt32> mFree;           // indices, the next one last
    std::vector<void*> mRecords;         // of each index that there is
    std::vector<uInt32> mNumbers = {0};  // of all cookies there were

    unsigned Roll(std::size_t sides) { return static_cast<unsigned>(mRandom() % sides); }
    std::string Filled(char fill) const { return std::string(mSize, fill) + '.'; }
    uInt32 RollNumber()
    {
        const auto live = std::next(mLive.begin(), static_cast<long>(Roll(mLive.size() + 1)));
        const uInt32 number = live == mLive.end() ? mNumbers[Roll(mNumbers.size())] : live->second.number;
        const uInt32 kOthers[] = {IndexOf(number), IndexOf(number) | NextSalt(number) << 20, number ^ 1u << Roll(32)};
        return Roll(4) != 0 ? number : kOthers[Roll(3)];
    }

    void Make()
    {
        sTold = 0;
        SetMemFullProc([](unsigned long) {
            int size = -1;  // the procedure may use the jar
            sTold += sJar->GetNumCookies(&size) == 0;
        });
        const char fill = static_cast<char>(Roll(20));  // few, so that cookies share them
        std::string info = Filled(fill);
        const FailAllocation fail(static_cast<int>(Roll(20)) + 1);
        const uInt32 number = mJar.NewCookie(fill == 0 ? nullptr : Longs(info));
        SetMemFullProc(nullptr);
        ASSERT_TRUE(number != 0 || FailAllocation::Happened());
        ASSERT_EQ(number == 0 ? 1 : 0, sTold);
        if (number == 0) {
            return;
        }
        if (mFree.empty()) {
            mFree.push_back(static_cast<uInt32>(mRecords.size()));
            MCGetCookieInfoPtr(mJar.GetJar(), number, &mRecords.emplace_back());
            ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(mRecords.back()) % 8);
        }
        ASSERT_EQ(mFree.back(), IndexOf(number)) << "the last slot freed is the first one reused";
        ASSERT_TRUE(mNumbers.back() == 0 || NextSalt(mNumbers.back()) == number >> 20);
        mFree.pop_back();
        mNumbers.push_back(number);
        mLive[IndexOf(number)] = {number, fill, mCounts};
    }

public:
    explicit JarModel(unsigned seed) : mRandom(seed), mSize(kSizes[seed % 6]), mCounts(seed / 6 % 2 != 0)
    {
        sJar = &mJar;
        EXPECT_EQ(0, mJar.Init(mSize, mCounts));
    }

    void Step()
    {
        const uInt32 number = RollNumber();
        const uInt32 index = IndexOf(number);
        const auto found = mLive.find(index);
        const bool lives = found != mLive.end() && found->second.number == number;
        Cookie gone = {number, '.', 0};
        Cookie& cookie = lives ? found->second : gone;
        const KzErr err = lives ? kzErrNone : kzErrArgument;
        const std::string dots = Filled('.');
        std::string out = dots;
        std::string expected = dots;
        std::string info = Filled(static_cast<char>(Roll(20)));
        void* record = this;
        ASSERT_EQ(lives, mJar.IsACookie(number));
        ASSERT_EQ(err, MCGetCookieInfoPtr(mJar.GetJar(), number, nullptr));
        ASSERT_EQ(err, MCGetCookieInfoPtr(mJar.GetJar(), number, &record));
        ASSERT_EQ(lives ? mRecords[index] : nullptr, record) << "slots never move";
        ASSERT_EQ(kzErrArgument, mJar.GetCookieInfo(number, nullptr));
        ASSERT_EQ(err, mJar.GetCookieInfo(number, Longs(out)));
        ASSERT_EQ(Filled(cookie.fill), out);
        out = dots;
        long* const to = Roll(3) == 0 ? nullptr : Longs(out);
        const unsigned call = Roll(8);
        const bool ends = (call == 1 && lives) || (call == 2 && cookie.rights == 1);
        if (call == 0) {
            ASSERT_EQ(kzErrArgument, mJar.SetCookieInfo(number, nullptr));
            ASSERT_EQ(err, mJar.SetCookieInfo(number, Longs(info)));
            cookie.fill = mSize == 0 ? '\0' : info[0];
        } else if (call == 1) {
            ASSERT_EQ(err, mJar.DisposeCookie(number, to));
            expected = Filled(cookie.fill);
        } else if (call == 2) {
            ASSERT_EQ(cookie.rights, mJar.ReleaseCookieRights(number));
            cookie.rights -= cookie.rights != 0;
        } else if (call < 5) {
            ASSERT_EQ(cookie.rights != 0, mJar.AcquireCookieRights(number, to));
            expected = Filled(cookie.rights == 0 ? '\0' : cookie.fill);
            cookie.rights += cookie.rights != 0;
        } else {
            Make();
        }
        ASSERT_EQ(to == nullptr ? dots : expected, out);
        if (ends) {
            ASSERT_EQ(0, std::memcmp(mRecords[index], Filled('\0').data(), mSize)) << "records are cleared";
            mLive.erase(index);
            mFree.push_back(index);
        }
    }

    void Agree()
    {
        ASSERT_STREQ(nullptr, kz::CookieJarFault(mJar.GetJar()));
        std::string wanted = Filled(static_cast<char>(Roll(20)));
        std::vector<uInt32> numbers;
        uInt32 found = 0;
        for (const auto& [index, cookie] : mLive) {
            numbers.push_back(cookie.number);
            found = found == 0 && Filled(cookie.fill) == wanted ? cookie.number : found;
        }
        ASSERT_EQ(found, mJar.GetCookieForInfo(Longs(wanted)));
        ASSERT_EQ(numbers, ListOf(mJar));
        int size = -1;
        ASSERT_EQ(0, mJar.GetNumCookies(&size));
        ASSERT_EQ(numbers.size(), static_cast<std::size_t>(size));
        ASSERT_EQ(size, kz::LiveCount(kz::Live::kCookies));
    }

    // Ends some cookies on the way, and the jar with the others.
    void EndOnAWalk(kztest::ReportCatcher& reports)
    {
        uInt32 cookie = 0;
        int left = 0;
        for (const auto& each : mLive) {
            cookie = kz::NextCookie(mJar.GetJar(), cookie);
            ASSERT_EQ(each.second.number, cookie);
            left += Roll(4) == 0 || mJar.DisposeCookie(cookie, nullptr) != 0;
        }
        ASSERT_EQ(0u, kz::NextCookie(mJar.GetJar(), cookie));
        ASSERT_EQ(0, mJar.Uninit());
        ASSERT_EQ(left != 0, reports.Take(0, "Disposing jar with " + std::to_string(left) + " cookies remaining"));
    }
};

TEST_F(CookieManager, RandomSequencesAgreeWithAModel)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 5 && !HasFatalFailure(); ++seed) {
        SCOPED_TRACE(seed);
        JarModel model(seed);
        for (unsigned step = 0; step < 20 + seed * 7 % 400 && !HasFatalFailure(); ++step) {
            model.Step();
            model.Agree();
        }
        model.EndOnAWalk(reports);
    }
}

TEST_F(CookieManager, NoJarOrNoOutput)
{
    BaseCookieJar none;
    long info[] = {7, 8};
    int size = 5;
    MagicCookieList list = nullptr;
    CookieList copy;
    const std::vector<KzErr> answers = {none.DisposeCookie(1, info),     none.GetCookieInfo(1, info),
                                        none.SetCookieInfo(1, info),     none.GetNumCookies(&size),
                                        MCGetCookieList(nullptr, &list), none.GetCookieList(&copy),
                                        jar.GetNumCookies(nullptr),      MCGetCookieList(jar.GetJar(), nullptr),
                                        jar.GetCookieList(nullptr),      MCGetCookieInfoPtr(nullptr, 1, nullptr)};
    EXPECT_EQ(std::vector<KzErr>(10, kzErrArgument), answers);
    EXPECT_TRUE(size == 5 && list == nullptr && info[0] == 7);
    EXPECT_FALSE(none.AcquireCookieRights(1, info) || info[0] != 0 || info[1] != 8);
    EXPECT_FALSE(none.NewCookie(info) || none.IsACookie(1) || none.ReleaseCookieRights(1) || none.Uninit());
    EXPECT_FALSE(none.GetCookieForInfo(info) || MCGetCookieForInfo(jar.GetJar(), nullptr) ||
                 kz::NextCookie(nullptr, 0));
}

// Across the borders of leaves and of each level of the tree, to the last index, and many times through all salts.
TEST_F(CookieManager, ManySlots)
{
    std::vector<uInt32> cookies(1u << 20);
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        cookies[i] = jar.NewCookie(uInt64{i} << 32 | i);
        ASSERT_EQ(i, IndexOf(cookies[i]));
        ASSERT_TRUE(i == 0 || cookies[i] >> 20 == NextSalt(cookies[i - 1]));
    }
    EXPECT_EQ(0u, jar.NewCookie(1)) << "the jar is full";
    for (uInt32 i = 0; i < cookies.size(); ++i) {
        uInt64 info = 0;
        ASSERT_EQ(0, jar.GetCookieInfo(cookies[i], &info));
        ASSERT_EQ(uInt64{i} << 32 | i, info);
    }
    EXPECT_EQ(cookies, ListOf(jar));
    EXPECT_EQ(0u, kz::NextCookie(jar.GetJar(), cookies.back()));
    for (const uInt64 i : {0u, 62u, 63u, 64u, 2047u, 2048u, 65535u, 65536u, 0xFFFFFu}) {
        EXPECT_EQ(cookies[i], jar.GetCookieForInfo(i << 32 | i));
        EXPECT_EQ(0, jar.DisposeCookie(cookies[i]));
        EXPECT_EQ(i, IndexOf(jar.NewCookie(1)));
    }
}

// The walker sees damage, lists reach nothing outside of them, and a jar of many slots, however few cookies it holds,
// is not walked by each call: what is wrong far off is left to a walk.
TEST_F(CookieManager, DamagedJars)
{
    std::vector<uInt32> cookies(200);
    std::generate(cookies.begin(), cookies.end(), [this] { return jar.NewCookie(1); });
    void* record = nullptr;
    ASSERT_EQ(0, MCGetCookieInfoPtr(jar.GetJar(), cookies[190], &record));
    std::for_each(cookies.begin() + 2, cookies.end(), [this](uInt32 cookie) { jar.DisposeCookie(cookie); });
    void* live = nullptr;
    ASSERT_EQ(0, MCGetCookieInfoPtr(jar.GetJar(), cookies[1], &live));
    uInt32* const count = reinterpret_cast<uInt32*>(*jar.GetJar()) + 9;
    uInt32* const salt = static_cast<uInt32*>(record) + 3;  // in front of the link and the reference count
    const struct {
        uInt32* word;
        uInt32 wrong;
        const char* fault;
    } kRows[] = {
        {count, 1, "the count of cookies is wrong"},
        {count, 5, "the count of cookies is wrong"},
        {salt, 1, "a slot is neither free nor in use"},
        {salt + 1, 0xFFFFFFFF, "a slot is neither free nor in use"},
        {salt + 1, 0xFFFFFFFE, "a slot is neither free nor in use"},
        {salt + 1, 0, "the free chain holds a slot in use"},
        {salt + 1, 190, "the free chain does not hold just the free slots"},
        {salt + 2, 1, "a slot's reference count is wrong"},
        {static_cast<uInt32*>(live) + 5, 1, "a slot's reference count is wrong"},
        {count, 2, nullptr},
    };
    // The list is an old one that is resized; without memory it stays.
    auto list = reinterpret_cast<MagicCookieList>(DSNewHClr(400));
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, MCGetCookieList(jar.GetJar(), &list));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(400u, DSGetHandleSize(list));
    for (const auto& row : kRows) {
        const uInt32 right = std::exchange(*row.word, row.wrong);
        EXPECT_STREQ(row.fault, kz::CookieJarFault(jar.GetJar()));
        EXPECT_EQ(0, jar.DisposeCookie(jar.NewCookie(1)));
        EXPECT_EQ(0, MCGetCookieList(jar.GetJar(), &list));
        EXPECT_EQ(*count * 4 + 4, DSGetHandleSize(list));
        EXPECT_EQ(cookies[0], (*list)->cookies[0]);
        EXPECT_EQ(*count == 5, reports.Take(3, "PouchTree::CollectMagicCookies: cookie count discrepancy"));
        *row.word = right;
    }
    DSDisposeHandle(list);
}

TEST_F(CookieManager, LargeRecordsAndNoMemory)
{
    for (const int counts : {0, 1}) {
        kztest::FaultLoop([counts](auto failed) {
            BaseCookieJar made;
            const KzErr err = made.Init(8, counts);
            EXPECT_EQ(failed() ? kzErrMemoryFull : kzErrNone, err);
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

// Whether this is told of as a bad handle and left alone.
bool IsNoJar(kztest::ReportCatcher& reports, void* handle)
{
    EXPECT_EQ(0, MCDisposeJar(static_cast<MagicCookieJar>(handle)));
    return reports.Take(kDbgFatal, "") && reports.Take(kDbgWarning, "Memory error 3 in MCDisposeJar") &&
           reports.TakeAll().empty();
}

TEST_F(CookieManager, OnlyLivingJarsAreDisposed)
{
    UHandle copy = reinterpret_cast<UHandle>(jar.GetJar());
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

// A jar that nobody disposes ends whole with the memory service, as a handle that was left. Its owner may live on, as a
// static one does whose destructor runs at exit, in front of a restart or behind it.
TEST_F(CookieManager, AForgottenJarEndsWithTheService)
{
    jar.Uninit();
    MemoryManagerService()->Uninit();
    const auto scenario = [&](auto failed) {
        reports.TakeAll();
        const bool isUp = MemoryManagerService()->Init() == 0;
        std::optional<BaseCookieJar> owners[2];
        std::vector<MagicCookieJar> jars;
        for (const int counts : {0, 1}) {
            const KzErr err = owners[counts].emplace().Init(8, counts);
            EXPECT_EQ(!isUp, err == kzErrGeneric && reports.Take(kDbgWarning, "kzcore is not started"));
            if (err == kzErrNone) {
                jars.push_back(owners[counts]->GetJar());
                owners[counts]->NewCookie(nullptr);
                owners[counts]->NewCookie(nullptr);
            }
        }
        EXPECT_TRUE(failed() || jars.size() == 2);
        MemoryManagerService()->Uninit();
        for (std::size_t i = 0; i < jars.size(); ++i) {
            EXPECT_TRUE(reports.Take(kDbgLog, ", size 112 still allocated."));
        }
        EXPECT_EQ(isUp, reports.Take(kDbgLog, "Recovered " + std::to_string(jars.size()) + " Handles for "));
        EXPECT_TRUE(reports.TakeAll().empty());
        for (auto& owner : owners) {
            for (const MagicCookieJar each : jars) {
                EXPECT_TRUE(IsNoJar(reports, each));
            }
            owner.reset();
            EXPECT_TRUE(reports.TakeAll().empty());
            &owner == owners ? MemoryManagerService()->Init() : MemoryManagerService()->Uninit();
        }
    };
    kztest::FaultLoop(scenario, FailAllocation::kBlocks);
    MemoryManagerService()->Init();
}

// Lists of random lengths beside plain ones, with and without memory.
TEST_F(CookieManager, CookieLists)
{
    std::mt19937 random(1);
    CookieList list;
    std::vector<uInt32> model;
    for (uInt32 step = 1; step < 2000; ++step) {
        const int n = static_cast<int>(random() % 40) - 1;
        const auto at = static_cast<std::size_t>(n);
        if (random() % 4 == 0) {
            const FailAllocation fail(static_cast<int>(random() % 2) + 1);
            const KzErr err = list.SetCount(n);
            EXPECT_TRUE(!reports.Take(2, "Memory error 2 in") || err == 2);
            EXPECT_EQ(n < 0 ? 1 : FailAllocation::Happened() ? 2 : 0, err);
            err == 2 ? model.clear() : model.resize(err == 1 ? model.size() : at);
        } else {
            EXPECT_EQ(at < model.size() ? 0 : 1, list.SetCookie(n, step));
            if (at < model.size()) {
                model[at] = step;
            }
        }
        ASSERT_EQ(model.size(), static_cast<std::size_t>(list.GetCount()));
        EXPECT_EQ(at < model.size() ? model[at] : 0, list.GetCookie(n));
    }
}

// A typed jar that was never made clears a record of any size; and one larger than a stack is given whole.
TEST_F(CookieManager, RightsToRecordsOfAnyType)
{
    uInt16 pair[] = {7, 9};
    EXPECT_FALSE(CookieJar<uInt16>().AcquireCookieRights(1, pair));
    EXPECT_TRUE(pair[0] == 0 && pair[1] == 9);
    using Huge = std::array<unsigned char, 9 << 20>;
    const auto out = std::make_unique<Huge>();
    CookieJar<Huge> huge;
    for (const bool isHeld : {false, true}) {
        out->back() = 3;
        const uInt32 cookie = isHeld && huge.Init(1) == 0 ? huge.NewCookie(*out) : 1;
        out->back() = 7;
        EXPECT_EQ(isHeld, huge.AcquireCookieRights(cookie, out.get()) && huge.AcquireCookieRights(cookie));
        EXPECT_EQ(isHeld ? 3 : 0, out->back());
    }
}

// Three threads make and end cookies, while the jar grows, and three look at them. What a reader gets for a cookie is
// that cookie's info, or nothing; with rights a cookie ends once, with the last of them, and nobody reads it after.
TEST_F(CookieManager, WritersAndReaders)
{
    for (const bool counts : {false, true}) {
        CookieJar<uInt64> shared;
        ASSERT_EQ(0, shared.Init(counts));
        std::array<std::atomic<uInt64>, 64> published{};  // cookie and half of its info, which is twice the same
        std::atomic<int> writers{3}, faults{0}, live{0}, hits{0};
        const auto write = [&](std::mt19937& random) {
            for (int i = 0; i < 30000; ++i) {
                const uInt64 low = random();
                const uInt32 cookie = shared.NewCookie(low << 32 | low);
                ++live;
                const uInt64 old = published[random() % published.size()].exchange(uInt64{cookie} << 32 | low);
                const auto ended = static_cast<uInt32>(old >> 32);
                if (old != 0 && i % 4 != 0) {
                    live -= counts ? shared.ReleaseCookieRights(ended) == 1 : shared.DisposeCookie(ended) == 0;
                }
            }
            --writers;
        };
        const auto read = [&](uInt64 value) {
            const auto cookie = static_cast<uInt32>(value >> 32);
            const uInt64 expected = value << 32 | (value & 0xFFFFFFFF);
            uInt64 info = 0;
            const bool lives = shared.GetCookieInfo(cookie, &info) == 0;
            hits += lives;
            faults += lives && info != expected;
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
                std::for_each(published.begin(), published.end(), read);
                ListOf(shared);
            } while (writers > 0);
        });
        EXPECT_EQ(0, faults);
        EXPECT_GT(hits, 0);
        EXPECT_EQ(live, kz::LiveCount(kz::Live::kCookies));
        EXPECT_STREQ(nullptr, kz::CookieJarFault(shared.GetJar()));
    }
}

}  // namespace
