#include "UnixUserUtil.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "KzErr.h"
#include "LiveCount.h"
#include "ReportCatcher.h"
#include "TestHost.h"
#include "TestStrings.h"

namespace {

using ToName = KzErr (*)(uInt32, unsigned char*);
using ToId = KzErr (*)(const unsigned char*, uInt32*);

// Ids high above those that systems give out.
constexpr uInt32 kNobodysId = 3456789012;

class UnixUserUtilTest : public testing::Test {
protected:
    kztest::ReportCatcher mReports;
    kztest::RunningLibrary mLibrary;
};

TEST_F(UnixUserUtilTest, NamesAndNumbers)
{
    const std::string rootGroup = getgrgid(0)->gr_name;
    const struct {
        ToName toName;
        ToId toId;
        std::string nameOfZero;
    } kinds[] = {{&UIDToName, &NameToUID, "root"}, {&GIDToName, &NameToGID, rootGroup}};
    for (const auto& kind : kinds) {
        kztest::PStrBuffer name;
        EXPECT_EQ(kind.toName(0, name), kzErrNone);
        EXPECT_EQ(name.Text(), kind.nameOfZero);
        EXPECT_EQ(kind.toName(kNobodysId, name), kzErrNone);
        EXPECT_EQ(name.Text(), std::to_string(kNobodysId));
        EXPECT_EQ(kind.toName(0, nullptr), kzErrArgument);

        const struct {
            std::string text;
            KzErr result;
            uInt32 id;
        } cases[] = {
            {kind.nameOfZero, kzErrNone, 0},
            {"501", kzErrNone, 501},
            {"4294967295", kzErrNone, 4294967295U},
            {"4294967296", kzErrArgument, 77},
            {"50x", kzErrArgument, 77},
            {"-1", kzErrArgument, 77},
            {" 1", kzErrArgument, 77},
            {"", kzErrArgument, 77},
            {"no such name, ever", kzErrArgument, 77},
            {kind.nameOfZero + std::string(1, '\0'), kzErrArgument, 77},
            {std::string(255, '9'), kzErrArgument, 77},
        };
        for (const auto& each : cases) {
            uInt32 id = 77;
            EXPECT_EQ(kind.toId(kztest::PStrValue(each.text), &id), each.result) << each.text;
            EXPECT_EQ(id, each.id) << each.text;
        }
        uInt32 id = 0;
        EXPECT_EQ(kind.toId(nullptr, &id), kzErrArgument);
        EXPECT_EQ(kind.toId(kztest::PStrValue("1"), nullptr), kzErrArgument);
    }
}

TEST_F(UnixUserUtilTest, HomeDirectories)
{
    std::string home = "old";
    EXPECT_EQ(GetHomeDir(&home, "root"), kzErrNone);
    EXPECT_EQ(home, getpwnam("root")->pw_dir);
    for (const std::string& nobody : {std::string("no such name, ever"), std::string("root\0", 5)}) {
        home = "old";
        EXPECT_EQ(GetHomeDir(&home, nobody), kzErrNotFound);
        EXPECT_EQ(home, "");
    }
    EXPECT_EQ(GetHomeDir(nullptr, "root"), kzErrArgument);

    // The environment's word counts, not the user's entry.
    const char* const set = std::getenv("HOME");
    const std::string before = set != nullptr ? set : "";
    setenv("HOME", "/some/where", 1);
    EXPECT_EQ(GetHomeDir(&home, ""), kzErrNone);
    EXPECT_EQ(home, "/some/where");
    unsetenv("HOME");
    EXPECT_EQ(GetHomeDir(&home, ""), kzErrNotFound);
    EXPECT_EQ(home, "");
    if (set != nullptr) {
        setenv("HOME", before.c_str(), 1);
    }
}

// The look-ups share the system's static storage: unguarded they would mix up names, and race.
TEST_F(UnixUserUtilTest, LookUpsFromManyThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                kztest::PStrBuffer name;
                UIDToName(0, name);
                EXPECT_EQ(name.Text(), "root");
                uInt32 id = 1;
                EXPECT_EQ(NameToUID(kztest::PStrValue("root"), &id), kzErrNone);
                EXPECT_EQ(id, 0U);
                std::string home;
                EXPECT_EQ(GetHomeDir(&home, "root"), kzErrNone);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(UnixUserUtilLock, IsThereWhileTheServiceRuns)
{
    kztest::ReportCatcher reports;
    kztest::TestHost host;
    KZAppInterfaceSet(&host);
    const int64 before = kz::LiveCount(kz::Live::kLocks);
    EXPECT_EQ(UnixUserUtilService()->Init(), kzErrNone);
    EXPECT_EQ(kz::LiveCount(kz::Live::kLocks), before + 1);
    EXPECT_EQ(UnixUserUtilService()->Uninit(), kzErrNone);
    EXPECT_EQ(kz::LiveCount(kz::Live::kLocks), before);
    kztest::PStrBuffer name;
    EXPECT_EQ(UIDToName(0, name), kzErrNone);
    KZAppInterfaceSet(nullptr);
}

}  // namespace
