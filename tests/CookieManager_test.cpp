#include "CookieManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;

constexpr uInt32 kIndexMask = 0xFFFFF;

uInt32 IndexOf(uInt32 cookie)
{
    return cookie & kIndexMask;
}

uInt32 SaltOf(uInt32 cookie)
{
    return cookie >> 20;
}

class CookieManager : public testing::Test {
protected:
    ~CookieManager() override
    {
        if (jar != nullptr) {
            EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
        }
        MCDisposeJar(jar);
        EXPECT_EQ(0u, kz::LiveCookieCount());
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
    EXPECT_EQ(0u, IndexOf(first));
    EXPECT_EQ(1u, IndexOf(second));
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
    EXPECT_EQ(2u, kz::LiveCookieCount());
    EXPECT_EQ(0, MCDisposeCookie(jar, first, &info));
    EXPECT_EQ(33u, info);
    EXPECT_EQ(0, MCDisposeCookie(jar, second, nullptr));
    EXPECT_EQ(0u, *static_cast<uInt64*>(ptr)) << "the record stays and is cleared";
    const uInt32 zeroed = MCNewCookie(jar, nullptr);
    EXPECT_EQ(0u, InfoOf(zeroed));
    EXPECT_EQ(0, MCDisposeCookie(jar, zeroed, nullptr));
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
    for (const uInt32 bad : {0u, 5u, 0xFFFFFu, stale, cookies[7], cookies[7] & kIndexMask,
                             IndexOf(reused) | wrongSalt << 20, 0x100000u | 5000u, 0xFFFFFFFFu}) {
        ExpectNoCookie(jar, bad);
    }
    ExpectNoCookie(nullptr, reused);
    EXPECT_EQ(99u, InfoOf(reused));
}

TEST_F(CookieManager, NullArguments)
{
    int32 size = 7;
    uInt64 info = 1;
    MagicCookieList list = nullptr;
    EXPECT_EQ(0, MCDisposeJar(nullptr));
    EXPECT_EQ(0u, MCNewCookie(nullptr, &info));
    EXPECT_EQ(1, MCJarSize(nullptr, &size));
    EXPECT_EQ(1, MCJarSize(jar, nullptr));
    EXPECT_EQ(1, MCGetCookieList(nullptr, &list));
    EXPECT_EQ(1, MCGetCookieList(jar, nullptr));
    EXPECT_EQ(0u, MCGetCookieForInfo(nullptr, &info));
    EXPECT_EQ(0u, MCGetCookieForInfo(jar, nullptr));
    const uInt32 cookie = New(1);
    EXPECT_EQ(1, MCGetCookieInfo(jar, cookie, nullptr));
    EXPECT_EQ(1, MCSetCookieInfo(jar, cookie, nullptr));
}

// Across the borders of leaves and of each level of the tree.
TEST_F(CookieManager, ManySlots)
{
    constexpr uInt32 kCount = 65536 + 200;
    std::vector<uInt32> cookies;
    for (uInt32 i = 0; i < kCount; ++i) {
        cookies.push_back(New(uInt64{i} << 32 | i));
        ASSERT_EQ(i, IndexOf(cookies[i]));
    }
    for (uInt32 i = 0; i < kCount; ++i) {
        ASSERT_EQ(uInt64{i} << 32 | i, InfoOf(cookies[i]));
    }
    EXPECT_EQ(cookies, List());
    for (const uInt64 i : std::initializer_list<uInt64>{0, 62, 63, 64, 65, 127, 128, 2047, 2048, 65535, 65536}) {
        const uInt64 info = i << 32 | i;
        EXPECT_EQ(cookies[i], MCGetCookieForInfo(jar, &info));
        void* before = nullptr;
        void* after = nullptr;
        MCGetCookieInfoPtr(jar, cookies[i], &before);
        EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(before) % 8);
        EXPECT_EQ(0, MCDisposeCookie(jar, cookies[i], nullptr));
        cookies[i] = New(i);
        MCGetCookieInfoPtr(jar, cookies[i], &after);
        EXPECT_EQ(before, after);
        EXPECT_EQ(i, InfoOf(cookies[i]));
    }
}

TEST_F(CookieManager, AFullJar)
{
    std::vector<uInt32> cookies(1u << 20);
    for (uInt32& cookie : cookies) {
        cookie = New(1);
    }
    EXPECT_EQ(0xFFFFFu, IndexOf(cookies.back()));
    EXPECT_EQ(0u, New(1));
    EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
    EXPECT_EQ(0, MCDisposeCookie(jar, cookies[1000], nullptr));
    EXPECT_EQ(1000u, IndexOf(New(2)));
    EXPECT_EQ(0u, New(1));
}

TEST_F(CookieManager, SaltsWrapPastZero)
{
    uInt32 salt = 0;
    std::set<uInt32> salts;
    for (int i = 0; i < 4095 + 10; ++i) {
        const uInt32 cookie = New(1);
        EXPECT_EQ(0u, IndexOf(cookie));
        if (salt != 0) {
            ASSERT_EQ(salt % 4095 + 1, SaltOf(cookie));
        }
        salt = SaltOf(cookie);
        salts.insert(salt);
        ASSERT_EQ(0, MCDisposeCookie(jar, cookie, nullptr));
    }
    EXPECT_EQ(4095u, salts.size());
    EXPECT_EQ(0u, salts.count(0));
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

    // A damaged count is told, and reaches nothing outside the list. It is the word at 36 of the jar.
    uInt32 count;
    unsigned char* const at = reinterpret_cast<unsigned char*>(*jar) + 36;
    std::memcpy(&count, at, sizeof count);
    ASSERT_EQ(2u, count);
    for (const uInt32 wrong : {1u, 5u}) {
        std::memcpy(at, &wrong, sizeof wrong);
        EXPECT_NE(nullptr, kz::CookieJarFault(jar));
        EXPECT_EQ(0, MCGetCookieList(jar, &list));
        EXPECT_EQ(cookies[0], (*list)->cookies[0]);
        EXPECT_TRUE(reports.Take(3, "PouchTree::CollectMagicCookies: cookie count discrepancy"));
    }
    std::memcpy(at, &count, sizeof count);
    DSDisposeHandle(list);
}

TEST_F(CookieManager, InfoOfAnySize)
{
    for (const uInt32 infoSize : {0u, 1u, 4u, 5u, 7u, 12u, 100u, 5000u}) {
        MagicCookieJar big = MCNewBigJar(infoSize);
        ASSERT_NE(nullptr, big);
        std::map<uInt32, std::string> model;
        for (int i = 0; i < 130; ++i) {
            const std::string info(infoSize, static_cast<char>(i + 1));
            model[MCNewCookie(big, info.data())] = info;
        }
        EXPECT_EQ(130u, model.size());
        for (const auto& [cookie, info] : model) {
            std::string read(infoSize + 1, '.');
            EXPECT_EQ(0, MCGetCookieInfo(big, cookie, read.data()));
            EXPECT_EQ(info + ".", read);
            if (infoSize > 0) {
                EXPECT_EQ(cookie, MCGetCookieForInfo(big, info.data()));
            }
        }
        EXPECT_EQ(nullptr, kz::CookieJarFault(big));
        for (const auto& [cookie, info] : model) {
            std::string read(infoSize + 1, '.');
            EXPECT_EQ(0, MCDisposeCookie(big, cookie, read.data()));
            EXPECT_EQ(info + ".", read);
        }
        const uInt32 zeroed = MCNewCookie(big, nullptr);
        std::string read(infoSize + 1, '.');
        EXPECT_EQ(0, MCGetCookieInfo(big, zeroed, read.data()));
        EXPECT_EQ(std::string(infoSize, '\0') + ".", read);
        MCDisposeCookie(big, zeroed, nullptr);
        EXPECT_EQ(0, MCDisposeJar(big));
    }
    EXPECT_EQ(nullptr, MCNewBigJar(0xFFFFFFFF)) << "a record would be too large";
    EXPECT_TRUE(reports.TakeAll().empty());
}

TEST_F(CookieManager, DisposingWithCookiesIsLogged)
{
    MagicCookieJar other = MCNewJar();
    const uInt64 info = 1;
    MCNewCookie(other, &info);
    MCNewCookie(other, &info);
    EXPECT_EQ(0, MCDisposeJar(other));
    EXPECT_TRUE(reports.Take(0, "Disposing jar with 2 cookies remaining"));
}

TEST_F(CookieManager, OutOfMemory)
{
    const uInt32 handles = kz::LiveHandleCount();
    const int64 pointers = kz::LivePointerCount();
    for (int n = 1;; ++n) {
        MagicCookieJar other;
        {
            FailAllocation fail(n);
            other = MCNewJar();
            if (!FailAllocation::Happened()) {
                EXPECT_EQ(3, n) << "a handle and a tree";
                MCDisposeJar(other);
                break;
            }
        }
        EXPECT_EQ(nullptr, other);
        EXPECT_EQ(handles, kz::LiveHandleCount());
        EXPECT_EQ(pointers, kz::LivePointerCount());
    }
    // The memory-full procedure may use the jar that the allocation was for.
    static MagicCookieJar sJar;
    static int sCalls;
    sJar = jar;
    sCalls = 0;
    SetMemFullProc([](unsigned long) {
        ++sCalls;
        EXPECT_FALSE(MCIsACookie(sJar, 0x100000));
        int32 size;
        EXPECT_EQ(0, MCJarSize(sJar, &size));
    });
    for (int n = 1; n <= 4; ++n) {
        // The root, two inner nodes, the leaf; each failure leaves those that there are, so the next is always first.
        FailAllocation fail(n > 1 ? 2 : 1);
        EXPECT_EQ(0u, New(1)) << n;
        EXPECT_EQ(n, sCalls);
        EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
    }
    EXPECT_EQ(0u, IndexOf(New(1)));
}

TEST_F(CookieManager, JarClasses)
{
    CookieJar<const char*> typed;
    EXPECT_FALSE(typed.IsAValidJar());
    EXPECT_EQ(0u, typed.NewCookie("none"));
    EXPECT_EQ(53, typed.Init(1));
    EXPECT_EQ(0, typed.Init());
    EXPECT_TRUE(typed.IsAValidJar());
    const char* const text = "text";
    const unsigned cookie = typed.NewCookie(text);
    const unsigned other = typed.NewCookie(nullptr);
    EXPECT_TRUE(typed.IsACookie(cookie));
    EXPECT_EQ(cookie, typed.GetCookieForInfo(text));
    CookieList list;
    EXPECT_EQ(0, typed.GetCookieList(&list));
    ASSERT_EQ(2, list.GetCount());
    EXPECT_EQ(cookie, list.GetCookie(0));
    EXPECT_EQ(other, list.GetCookie(1));
    const char* read = nullptr;
    EXPECT_EQ(0, typed.DisposeCookie(cookie, &read));
    EXPECT_EQ(text, read);
    int count = 0;
    EXPECT_EQ(0, typed.GetNumCookies(&count));
    EXPECT_EQ(1, count);

    BaseCookieJar base;
    EXPECT_EQ(0, base.Init(sizeof(long), 0));
    long info = 5;
    const unsigned third = base.NewCookie(&info);
    info = 6;
    EXPECT_EQ(0, base.SetCookieInfo(third, &info));
    info = 0;
    EXPECT_EQ(0, base.DisposeCookie(third, &info));
    EXPECT_EQ(6, info);
    EXPECT_EQ(0, base.Uninit());
    EXPECT_FALSE(base.IsAValidJar());
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, base.Init(8, 0));
    }
}

TEST_F(CookieManager, CookieLists)
{
    CookieList list;
    EXPECT_EQ(0u, list.GetCookie(0));
    EXPECT_EQ(1, list.SetCookie(0, 1));
    EXPECT_EQ(1, list.SetCount(-1));
    EXPECT_EQ(0, list.SetCount(3));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0u, list.GetCookie(i));
        EXPECT_EQ(0, list.SetCookie(i, 10u + static_cast<unsigned>(i)));
    }
    EXPECT_EQ(1, list.SetCookie(3, 1));
    EXPECT_EQ(1, list.SetCookie(-1, 1));
    EXPECT_EQ(0u, list.GetCookie(3));
    EXPECT_EQ(0, list.SetCount(2));
    EXPECT_EQ(0, list.SetCount(4));
    EXPECT_EQ(11u, list.GetCookie(1));
    EXPECT_EQ(0u, list.GetCookie(2));
    {
        FailAllocation fail(1);
        EXPECT_EQ(2, list.SetCount(100));
        EXPECT_TRUE(reports.Take(2, "Memory error 2 in"));
    }
    EXPECT_EQ(0, list.GetCount());
    EXPECT_EQ(0, list.SetCount(2));
    EXPECT_EQ(0u, list.GetCookie(0)) << "what was there before the failure is gone";
    EXPECT_EQ(0, list.SetCount(0));
    EXPECT_EQ(0, list.GetCount());
}

TEST_F(CookieManager, RandomSequencesAgreeWithAModel)
{
    for (unsigned seed = 0; seed < 100; ++seed) {
        std::mt19937 random(seed);
        std::map<uInt32, uInt64> model;
        std::vector<uInt32> stale;
        const unsigned target = seed % 10 == 0 ? 3000 : 100;
        for (int step = 0; step < 400; ++step) {
            const uInt64 info = random();
            if (model.empty() || (random() % 3 != 0 && model.size() < target)) {
                ASSERT_TRUE(model.emplace(New(info), info).second);
                continue;
            }
            const auto entry = std::next(model.begin(), static_cast<long>(random() % model.size()));
            ASSERT_EQ(entry->second, InfoOf(entry->first));
            if (random() % 4 == 0) {
                entry->second = info;
                ASSERT_EQ(0, MCSetCookieInfo(jar, entry->first, &info));
            } else {
                ASSERT_EQ(0, MCDisposeCookie(jar, entry->first, nullptr));
                stale.push_back(entry->first);
                model.erase(entry);
            }
        }
        ASSERT_EQ(nullptr, kz::CookieJarFault(jar));
        for (const uInt32 cookie : stale) {
            ASSERT_FALSE(MCIsACookie(jar, cookie));
        }
        std::set<uInt32> live;
        for (const auto& [cookie, info] : model) {
            live.insert(cookie);
        }
        const std::vector<uInt32> list = List();
        ASSERT_EQ(live, std::set<uInt32>(list.begin(), list.end()));
        for (const uInt32 cookie : live) {
            ASSERT_EQ(0, MCDisposeCookie(jar, cookie, nullptr));
        }
    }
}

// Readers look up cookies while others make and dispose them and the jar grows: what a reader gets for a cookie is that
// cookie's info, or nothing.
TEST_F(CookieManager, LookupsDuringGrowthAndDisposal)
{
    constexpr unsigned kPublished = 512;
    std::vector<std::atomic<uInt64>> published(kPublished);  // cookie and the low half of its info
    std::atomic<bool> stop{false};
    std::atomic<int> faults{0};
    std::atomic<long> hits{0};
    std::vector<std::thread> writers;
    std::vector<std::thread> readers;
    for (uInt32 w = 0; w < 3; ++w) {
        writers.emplace_back([&, w] {
            std::mt19937 random(w);

            for (uInt32 i = 0; i < 30000; ++i) {
                const auto low = static_cast<uInt32>(random());
                const uInt32 cookie = New(uInt64{low} << 32 | low);
                const auto at = random() % kPublished;
                const uInt64 old = published[at].exchange(uInt64{cookie} << 32 | low);
                if (old != 0 && i % 4 != 0) {
                    faults += MCDisposeCookie(jar, static_cast<uInt32>(old >> 32), nullptr) != 0;
                }
            }
        });
    }
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&] {
            while (!stop) {
                for (auto& entry : published) {
                    const uInt64 value = entry;
                    const auto low = static_cast<uInt32>(value);
                    uInt64 info = 0;
                    if (value != 0 && MCGetCookieInfo(jar, static_cast<uInt32>(value >> 32), &info) == 0) {
                        faults += info != (uInt64{low} << 32 | low);
                        hits.fetch_add(1, std::memory_order_relaxed);
                    }
                    MCIsACookie(jar, static_cast<uInt32>(value >> 32));
                }
                MagicCookieList list = nullptr;
                faults += MCGetCookieList(jar, &list) != 0;
                DSDisposeHandle(list);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(0, faults);
    EXPECT_GT(hits, 0);
    EXPECT_EQ(nullptr, kz::CookieJarFault(jar));
}

}  // namespace
