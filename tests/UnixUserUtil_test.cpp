#include "UnixUserUtil.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "KzErr.h"
#include "LiveCount.h"
#include "Racing.h"
#include "ReportCatcher.h"
#include "TestHost.h"
#include "TestStrings.h"

namespace {

using kztest::PStrValue;
using Texts = std::vector<std::string>;

// Ids high above those that systems give out.
constexpr uInt32 kNobodysId = 3456789012;
constexpr uInt32 kNone = 77;

class UnixUserUtilTest : public testing::Test {
protected:
    kztest::ReportCatcher mReports;
    kztest::RunningLibrary mLibrary;
};

TEST_F(UnixUserUtilTest, NamesAndNumbers)
{
    for (const bool isUser : {true, false}) {
        const auto toName = isUser ? &UIDToName : &GIDToName;
        const auto toId = isUser ? &NameToUID : &NameToGID;
        const std::string root = isUser ? "root" : getgrgid(0)->gr_name;
        for (const auto& [id, expected] : {std::pair{uInt32{0}, root}, {kNobodysId, std::to_string(kNobodysId)}}) {
            kztest::PStrBuffer name;
            EXPECT_EQ(toName(id, name), kzErrNone);
            EXPECT_EQ(name.Text(), expected);
        }
        const auto idOf = [toId](const std::string& text) {
            uInt32 id = kNone;
            const KzErr err = toId(PStrValue(text), &id);
            EXPECT_EQ(err, id == kNone ? kzErrArgument : kzErrNone) << text;
            EXPECT_TRUE(toId(nullptr, &id) == kzErrArgument && toId(PStrValue(text), nullptr) == kzErrArgument);
            return id;
        };
        EXPECT_TRUE(idOf(root) == 0 && idOf("501") == 501 && idOf("4294967295") == 4294967295U);
        const Texts nobody = {"4294967296", "50x", "-1", " 1", "", "no one, ever", root + '\0', std::string(255, '9')};
        for (const std::string& none : nobody) {
            EXPECT_EQ(idOf(none), kNone) << none;
        }
        EXPECT_EQ(toName(0, nullptr), kzErrArgument);
    }
}

TEST_F(UnixUserUtilTest, HomeDirectories)
{
    // The environment's word counts, not the user's entry.
    const char* const set = std::getenv("HOME");
    const std::string before = set != nullptr ? set : "";
    for (const char* environment : {"/some/where", static_cast<const char*>(nullptr)}) {
        environment != nullptr ? setenv("HOME", environment, 1) : unsetenv("HOME");
        const std::tuple<std::string, KzErr, std::string> rows[] = {
            {"root", kzErrNone, getpwnam("root")->pw_dir},
            {"no such name, ever", kzErrNotFound, ""},
            {std::string("root\0", 5), kzErrNotFound, ""},
            {"", environment != nullptr ? kzErrNone : kzErrNotFound, environment != nullptr ? environment : ""}};
        for (const auto& [user, code, expected] : rows) {
            std::string home = "old";
            EXPECT_EQ(GetHomeDir(&home, user), code) << user;
            EXPECT_EQ(home, expected) << user;
        }
    }
    EXPECT_EQ(GetHomeDir(nullptr, "root"), kzErrArgument);
    if (set != nullptr) {
        setenv("HOME", before.c_str(), 1);
    }
}

// The look-ups share the system's static storage: unguarded they would mix up names, and race.
TEST_F(UnixUserUtilTest, LookUpsFromManyThreads)
{
    kztest::Race(4, [](int) {
        for (int round = 0; round < 200; ++round) {
            kztest::PStrBuffer name;
            std::string home;
            uInt32 id = 1;
            EXPECT_TRUE(UIDToName(0, name) == kzErrNone && name.Text() == "root");
            EXPECT_TRUE(NameToUID(PStrValue("root"), &id) == kzErrNone && id == 0);
            EXPECT_EQ(GetHomeDir(&home, "root"), kzErrNone);
        }
    });
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
    kztest::PStrBuffer name;
    EXPECT_EQ(UIDToName(0, name), kzErrNone);
    KZAppInterfaceSet(nullptr);
}

}  // namespace
