#include "zvexcept.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "support/ReportCatcher.h"

namespace {

using kztest::ReportCatcher;

TEST(ZVExcept, KeepsItsPartsWithinTheirFields)
{
    const std::string longFile = "0123456789abcdefghijklmnopqrstuvwxyzABCD";
    const struct {
        const char* detail;
        const char* file;
        std::string diag;
        std::string keptFile;
    } cases[] = {
        {"why", "source/x", "why", "source/x"},
        {nullptr, nullptr, "", ""},
        {"%s%n", longFile.c_str() + 9, "%s%n", longFile.substr(9)},  // 31 characters
        {"", longFile.c_str() + 8, "", longFile.substr(9)},          // 32
        {"", longFile.c_str(), "", longFile.substr(9)},
    };
    for (const auto& test : cases) {
        const ZVExcept except(-7, test.detail, test.file, 12);
        EXPECT_EQ(except.err(), -7);
        EXPECT_EQ(except.line(), 12);
        EXPECT_EQ(except.diag(), test.diag);
        EXPECT_EQ(except.file(), test.keptFile);
        EXPECT_EQ(except.what(), "ZVExcept. Err=-7, File=" + test.keptFile + ", Line=12, Detail='" + test.diag + "'");
        EXPECT_GT(except.stack().GetCount(), 0);
    }

    const ZVExcept longest(-2147483647 - 1, std::string(200, 'd').c_str(), longFile.c_str(), -2147483647 - 1);
    EXPECT_EQ(longest.diag(), std::string(127, 'd'));
    EXPECT_LE(std::string(longest.what()).size(), 254u);
}

// Throws by `thrower` and returns what the boundary makes of it.
template <typename Thrower>
ZVExcept Converted(Thrower thrower)
{
    try {
        thrower();
    } catch (...) {
        return GetExceptionInCatch_FileAndLine("source/here", 9);
    }
    return ZVExcept(0, "nothing thrown", nullptr, 0);
}

TEST(GetExceptionInCatch, ConvertsByType)
{
    const ZVExcept memory = Converted([] { throw std::bad_alloc(); });
    EXPECT_STREQ(memory.what(), "ZVExcept. Err=2, File=source/here, Line=9, Detail='converted from std::bad_alloc'");
    const ZVExcept length = Converted([] { throw std::bad_array_new_length(); });
    EXPECT_EQ(length.err(), 2);
    const ZVExcept cast = Converted([] { throw std::bad_cast(); });
    EXPECT_STREQ(cast.what(), "ZVExcept. Err=42, File=source/here, Line=9, Detail='converted from std::bad_cast'");
    const ZVExcept other = Converted([] { throw std::runtime_error("other"); });
    EXPECT_STREQ(other.what(), "ZVExcept. Err=42, File=source/here, Line=9, Detail='converted from std::exception'");

    const ZVExcept thrown(15, "own", "source/there", 3);
    const ZVExcept own = Converted([&] { throw ZVExcept(thrown); });
    EXPECT_STREQ(own.what(), thrown.what());
    EXPECT_EQ(own.err(), 15);
    EXPECT_EQ(own.stack().GetCount(), thrown.stack().GetCount());
}

TEST(GetExceptionInCatch, ReportsAndRethrowsWhatItDoesNotKnow)
{
    ReportCatcher reports;
    EXPECT_THROW(Converted([] { throw 5; }), int);
    EXPECT_TRUE(reports.Take(kDbgError, "GetExceptionInCatch() called from inside catch(...) -- source/here Line 9"));
}

TEST(ErrOf, GivesTheResultOrTheCodeOfTheException)
{
    EXPECT_EQ(kz::ErrOf("source/here", 1, [] { return KzErr{8}; }), 8);
    EXPECT_EQ(kz::ErrOf("source/here", 1, []() -> KzErr { throw ZVExcept(7, nullptr, nullptr, 0); }), 7);
    EXPECT_EQ(kz::ErrOf("source/here", 1, []() -> KzErr { throw std::logic_error(""); }), 42);
    ReportCatcher reports;
    EXPECT_EQ(kz::ErrOf("source/here", 1, []() -> KzErr { throw 7; }), 42);
    EXPECT_TRUE(reports.Take(kDbgError, "GetExceptionInCatch() called from inside catch(...) -- source/here Line 1"));
}

TEST(ErrOf, LetsTheCancellationOfAThreadPass)
{
    ReportCatcher reports;
    const auto run = [](void*) -> void* {
        pthread_cancel(pthread_self());
        kz::ErrOf("source/here", 1, []() -> KzErr {
            pthread_testcancel();
            return 0;
        });
        return nullptr;
    };
    pthread_t thread = 0;  // a std::thread that is cancelled leaks
    ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}

}  // namespace
