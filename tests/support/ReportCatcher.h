// Catches what the library reports, and fails the test on a report of level 2 or more that was not asked for.
#ifndef KZCORE_TESTS_REPORTCATCHER_H
#define KZCORE_TESTS_REPORTCATCHER_H

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "DebugOutputCore.h"

namespace kztest {

struct CaughtReport {
    std::string file;
    int line;
    int level;
    unsigned hash;
    std::string text;

    bool operator==(const CaughtReport&) const = default;
};

// The level and the text of each.
using ReportRows = std::vector<std::pair<int, std::string>>;

// Installs a handler for its lifetime; one at a time. Reports of level 2 and up must be taken (Take, TakeRows, TakeAll)
// before the end.
class ReportCatcher {
public:
    ReportCatcher() : mOld(DebugOutputGetHandler())
    {
        sCatcher = this;
        DebugOutputSetHandler(&Handle);
    }
    ~ReportCatcher()
    {
        DebugOutputSetHandler(mOld);
        sCatcher = nullptr;
        for (const CaughtReport& report : mReports) {
            if (report.level >= kDbgWarning) {
                ADD_FAILURE() << "unexpected report from " << report.file << ", level " << report.level << ": "
                              << report.text;
            }
        }
    }
    ReportCatcher(const ReportCatcher&) = delete;
    ReportCatcher& operator=(const ReportCatcher&) = delete;

    // Removes the first report of this level whose text contains `part`; false if there is none.
    bool Take(int level, const std::string& part)
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (auto it = mReports.begin(); it != mReports.end(); ++it) {
            if (it->level == level && it->text.find(part) != std::string::npos) {
                mReports.erase(it);
                return true;
            }
        }
        return false;
    }

    // Removes and returns all reports so far.
    std::vector<CaughtReport> TakeAll()
    {
        std::lock_guard<std::mutex> lock(mLock);
        std::vector<CaughtReport> all;
        all.swap(mReports);
        return all;
    }

    ReportRows TakeRows()
    {
        ReportRows rows;
        for (const CaughtReport& report : TakeAll()) {
            rows.emplace_back(report.level, report.text);
        }
        return rows;
    }

private:
    static void Handle(const char* file, int32 line, const char* /*versionId*/, int32 level, uInt32 hash,
                       const char* text, uInt64 /*extra*/)
    {
        std::lock_guard<std::mutex> lock(sCatcher->mLock);
        sCatcher->mReports.push_back({file ? file : "", line, level, hash, text ? text : ""});
    }

    static inline ReportCatcher* sCatcher = nullptr;
    DebugOutputHandler mOld;
    std::mutex mLock;
    std::vector<CaughtReport> mReports;
};

}  // namespace kztest

#endif
