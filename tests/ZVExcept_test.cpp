#include "zvexcept.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "support/ReportCatcher.h"

namespace {

using kztest::ReportCatcher;
using kztest::ReportRows;

TEST(ZVExcept, KeepsItsPartsWithinTheirFields)
{
    const std::string longFile = "0123456789abcdefghijklmnopqrstuvwxyzABCD";
    const struct {
        const char* detail;
        const char* file;
        std::string diag;
        std::string keptFile;
    } kRows[] = {
        {"why", "source/x", "why", "source/x"},
        {nullptr, nullptr, "", ""},
        {"%s%n", longFile.c_str() + 9, "%s%n", longFile.substr(9)},  // 31 characters
        {"", longFile.c_str() + 8, "", longFile.substr(9)},          // 32
        {"", longFile.c_str(), "", longFile.substr(9)},
    };
    for (const auto& row : kRows) {
        const ZVExcept except(-7, row.detail, row.file, 12);
        EXPECT_EQ(except.err(), -7);
        EXPECT_EQ(except.line(), 12);
        EXPECT_EQ(except.diag(), row.diag);
        EXPECT_EQ(except.file(), row.keptFile);
        EXPECT_EQ(except.what(), "ZVExcept. Err=-7, File=" + row.keptFile + ", Line=12, Detail='" + row.diag + "'");
        EXPECT_GT(except.stack().GetCount(), 0);
    }
    const ZVExcept longest(-2147483647 - 1, std::string(200, 'd').c_str(), longFile.c_str(), -2147483647 - 1);
    EXPECT_EQ(longest.diag(), std::string(127, 'd'));
    EXPECT_LE(std::string(longest.what()).size(), 254u);
}

// What a boundary makes of each exception, and the code that it gives for it.
TEST(ZVExcept, BoundariesConvertByType)
{
    const std::string here = "File=source/here, Line=9, Detail='converted from std::";
    const ZVExcept thrown(15, "own", "source/there", 3);
    const struct {
        std::function<void()> thrower;
        KzErr err;
        std::string text;
    } kRows[] = {
        {[] { throw std::bad_alloc(); }, 2, "ZVExcept. Err=2, " + here + "bad_alloc'"},
        {[] { throw std::bad_array_new_length(); }, 2, "ZVExcept. Err=2, " + here + "bad_alloc'"},
        {[] { throw std::bad_cast(); }, 42, "ZVExcept. Err=42, " + here + "bad_cast'"},
        {[] { throw std::runtime_error("other"); }, 42, "ZVExcept. Err=42, " + here + "exception'"},
        {[&] { throw ZVExcept(thrown); }, 15, thrown.what()},
        {[] {}, 8, ""},
    };
    for (const auto& row : kRows) {
        try {
            row.thrower();
        } catch (...) {
            const ZVExcept got = GetExceptionInCatch_FileAndLine("source/here", 9);
            EXPECT_EQ(got.what(), row.text);
            EXPECT_EQ(got.err(), row.err);
            EXPECT_TRUE(row.err != 15 || got.stack().GetCount() == thrown.stack().GetCount());
        }
        const auto body = [&]() -> KzErr {
            row.thrower();
            return 8;
        };
        EXPECT_EQ(kz::ErrOf("source/here", 1, body), row.err);
    }
}

TEST(ZVExcept, WhatNoBoundaryKnowsIsReported)
{
    ReportCatcher reports;
    const auto rethrow = [] {
        try {
            throw 5;
        } catch (...) {
            GetExceptionInCatch_FileAndLine("source/here", 9);
        }
    };
    EXPECT_THROW(rethrow(), int);
    const std::string longFile(300, 'f');
    EXPECT_EQ(kz::ErrOf(longFile.c_str(), 1, []() -> KzErr { throw 7; }), 42);
    const std::string text = "GetExceptionInCatch() called from inside catch(...) -- ";
    EXPECT_EQ(reports.TakeRows(),
              (ReportRows{{kDbgError, text + "source/here Line 9"}, {kDbgError, (text + longFile).substr(0, 255)}}));
}

TEST(ZVExcept, BoundariesLetTheCancellationOfAThreadPass)
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
