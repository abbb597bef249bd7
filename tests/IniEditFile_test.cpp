// INI files that are edited under their lock: what is refused, what becomes of file and object when a call or an
// allocation fails, and that nobody's change is lost.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "FaultLoop.h"
#include "IniEdit.h"
#include "Racing.h"
#include "RowFiles.h"
#include "SystemFaults.h"
#include "TempFolder.h"

namespace {

namespace fs = std::filesystem;
using kztest::Fault;
using kztest::kReal;
using kztest::TempFolder;

constexpr int kReads = kIniReadKeepEmpty | kIniReadStripDoubleQuotes;
constexpr char kOld[] = "[a]\nx=1 ; c\n";

struct Close {
    void operator()(IniEdit* edit) const { IniEditClose(edit); }
};
using Owner = std::unique_ptr<IniEdit, Close>;

Owner Open(const std::string& path, int options = 0, int expected = 1)
{
    IniEdit* edit = nullptr;
    EXPECT_EQ(expected, IniEditOpen(&edit, path.c_str(), kReads, options)) << path;
    EXPECT_EQ(expected == 1, edit != nullptr);
    return Owner(edit);
}

int SetX(const Owner& edit, const char* value)
{
    return IniEditSetItem(edit.get(), "a", "x", kIniEditOnly, value, 0);
}

// A call of the table that only tests with faults need is not made for real, for speed.
class IniEditFile : public testing::Test {
protected:
    IniEditFile() { UseQuickSystem(); }
    ~IniEditFile() override { qkini::g_system = kReal; }

    static void UseQuickSystem()
    {
        qkini::g_system = kReal;
        qkini::g_system.fsync = [](int) { return 0; };
    }

    const TempFolder folder;
    const std::string path = folder.File("file.ini");
};

TEST_F(IniEditFile, WhatCannotBeOpenedIsRefused)
{
    folder.Write("utf16", "\xFF\xFE[");
    fs::create_directory(folder.File("dir"));
    ASSERT_EQ(0, mkfifo(folder.File("pipe").c_str(), 0600));
    fs::create_symlink("circle", folder.File("circle"));
    folder.Write("locked", "");
    chmod(folder.File("locked").c_str(), 0400);
    const struct {
        int line;
        const char* name;
        int options;
        int result;
    } rows[] = {
        {__LINE__, "none", kIniEditMustExist, kIniErrFile},
        {__LINE__, "none", kIniEditMustExist | kIniEditReadOnly, kIniErrFile},
        {__LINE__, "none", kIniEditReadOnly, 1},
        {__LINE__, "none/none", 0, kIniErrFile},
        {__LINE__, "utf16/none", 0, kIniErrFile},
        {__LINE__, "dir", 0, kIniErrPermission},
        {__LINE__, "dir", kIniEditReadOnly, kIniErrRead},
        {__LINE__, "pipe", 0, kIniErrPermission},
        {__LINE__, "circle", 0, kIniErrOpen},
        {__LINE__, "circle", kIniEditReadOnly, kIniErrOpen},
        {__LINE__, "utf16", 0, kIniErrUnicodeMark},
        {__LINE__, "utf16", kIniEditReadOnly, kIniErrUnicodeMark},
        {__LINE__, "locked", 0, geteuid() == 0 ? 1 : kIniErrPermission},
        {__LINE__, "locked", kIniEditReadOnly, 1},
    };
    const kztest::Files before = [&] {
        fs::remove(folder.File("pipe"));  // which can't be read to be compared
        return kztest::FilesIn(folder);
    }();
    ASSERT_EQ(0, mkfifo(folder.File("pipe").c_str(), 0600));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Open(folder.File(row.name), row.options, row.result);
    }
    Open("", 0, kIniErrFile);
    Open(std::string(5000, 'n'), 0, kIniErrFile);
    EXPECT_EQ(kIniErrFile, IniEditOpen(nullptr, path.c_str(), 0, 0));
    fs::remove(folder.File("pipe"));
    EXPECT_EQ(before, kztest::FilesIn(folder));
}

TEST_F(IniEditFile, WhatCannotBeSavedIsRefused)
{
    IniEdit* text = nullptr;
    ASSERT_EQ(1, IniEditOpenText(&text, kOld, sizeof kOld - 1, kReads, 0));
    EXPECT_EQ(kIniErrNoFileName, IniEditSave(Owner(text).get()));
    folder.Write("file.ini", kOld);
    {
        const Owner reader = Open(path, kIniEditReadOnly);
        const Owner writer = Open(path);  // a reader holds no lock
        EXPECT_EQ(1, SetX(reader, "2"));
        EXPECT_EQ(kIniErrReadOnly, IniEditSave(reader.get()));
        EXPECT_EQ(1, SetX(writer, "3"));
        fs::remove(path);
        EXPECT_EQ(kIniErrLock, IniEditSave(writer.get()));
        folder.Write("file.ini", kOld);
        EXPECT_EQ(kIniErrLock, IniEditSave(writer.get()));
        EXPECT_EQ(1, IniEditIsChanged(writer.get()));
    }
    EXPECT_EQ(kOld, kztest::ReadWholeFile(path));
    EXPECT_EQ(kIniErrFile, IniEditSave(nullptr));
    EXPECT_EQ(kIniErrFile, IniEditLostRights(nullptr));
    EXPECT_EQ(kIniErrFile, IniEditSetItem(nullptr, "a", "x", 0, "", 0));
    EXPECT_EQ(kIniErrFile, IniEditIsChanged(nullptr));
}

TEST_F(IniEditFile, HardLinksAreKeptInPlaceOrRefused)
{
    folder.Write("file.ini", kOld);
    fs::create_hard_link(path, folder.File("other"));
    {
        const Owner edit = Open(path);
        EXPECT_EQ(1, SetX(edit, "2"));
        EXPECT_EQ(kIniErrLinks, IniEditSave(edit.get()));
    }
    const Owner edit = Open(path, kIniEditInPlace);
    for (const char* const value : {"longer", "2"}) {
        EXPECT_EQ(1, SetX(edit, value));
        EXPECT_EQ(1, IniEditSave(edit.get()));
        EXPECT_EQ(0, IniEditIsChanged(edit.get()));
        EXPECT_EQ("[a]\nx=" + std::string(value) + "\n", kztest::ReadWholeFile(folder.File("other")));
    }
}

TEST_F(IniEditFile, LinksAreFollowedWhereverTheyLead)
{
    fs::create_directory(folder.File("sub"));
    fs::create_symlink("sub/link", folder.File("first"));
    fs::create_symlink(folder.File("file.ini"), folder.File("sub/link"));
    folder.Write(".file.ini.ini-edit", "left by a killed one");
    const char* const values[] = {"1", "2"};
    for (const char* const value : values) {
        const Owner edit = Open(folder.File("first"));
        EXPECT_EQ(1, SetX(edit, value));
        EXPECT_EQ(1, IniEditSave(edit.get()));
        EXPECT_EQ("[a]\nx = " + std::string(value) + "\n", kztest::ReadWholeFile(path));
        EXPECT_EQ((kztest::Files{{"first", "link sub/link"},
                                 {"sub", "folder"},
                                 {"sub/link", "link " + path},
                                 {"file.ini", "file " + kztest::ReadWholeFile(path)}}),
                  kztest::FilesIn(folder));
    }
}

TEST_F(IniEditFile, WhatWasMadeForTheLockGoesUnlessItIsSaved)
{
    {
        const Owner edit = Open(path);
    }
    EXPECT_FALSE(fs::exists(path));
    {
        const Owner edit = Open(path);
        EXPECT_EQ(1, IniEditSave(edit.get()));  // an empty file is what was asked for
    }
    EXPECT_TRUE(fs::exists(path));
    fs::remove(path);
    {
        const Owner edit = Open(path);
        folder.Write("file.ini", kOld);  // somebody writes into it
    }
    EXPECT_EQ(kOld, kztest::ReadWholeFile(path));
    fs::remove(path);
    {
        const Owner edit = Open(path);
        fs::rename(path, folder.File("moved"));
        folder.Write("file.ini", "");
    }
    EXPECT_TRUE(fs::exists(path)) << "another file has the name";
}

TEST_F(IniEditFile, WhatTakesItsPlaceBeforeTheOpenIsSeen)
{
    folder.Write("file.ini", kOld);
    qkini::g_system.open = [](const char* name, int flags, mode_t mode) {
        fs::remove(name);
        EXPECT_EQ(0, mkfifo(name, 0600));
        return kReal.open(name, flags, mode);
    };
    Open(path, 0, kIniErrPermission);
}

TEST_F(IniEditFile, AsManyLinksAreFollowedAsByTheSystem)
{
    folder.Write("0", kOld);
    for (int i = 1; i <= 41; ++i) {
        fs::create_symlink(std::to_string(i - 1), folder.File(std::to_string(i)));
    }
    for (const int links : {40, 41}) {
        const std::string name = folder.File(std::to_string(links));
        Open(name, kIniEditReadOnly, links == 40 ? 1 : kIniErrOpen);
        Open(name, 0, links == 40 ? 1 : kIniErrOpen);
    }
}

std::string gSteps;

TEST_F(IniEditFile, TheTextIsOnTheDiskBeforeItsName)
{
    qkini::g_system.fsync = [](int) {
        gSteps += "sync ";
        return 0;
    };
    qkini::g_system.rename = [](const char* from, const char* to) {
        gSteps += "rename ";
        return kReal.rename(from, to);
    };
    const struct {
        const char* name;
        int options;
        const char* steps;
    } rows[] = {{"new", 0, "sync rename sync "},
                {"new", 0, "sync rename sync "},
                {"other", kIniEditInPlace, "sync sync "},
                {"other", kIniEditInPlace, "sync "}};
    for (const auto& [name, options, steps] : rows) {
        const Owner edit = Open(folder.File(name), options);
        EXPECT_EQ(1, SetX(edit, IniEditCountLines(edit.get()) == 0 ? "1" : "2"));
        gSteps.clear();
        EXPECT_EQ(1, IniEditSave(edit.get()));
        EXPECT_EQ(steps, gSteps);
        EXPECT_EQ(1, IniEditSave(edit.get()));
        EXPECT_EQ(steps, gSteps) << "nothing is new";
    }
}

// Opens, edits, saves and closes; the first result that is not 1.
int EditAndSave(const std::string& path, int options, const std::string& value)
{
    IniEdit* edit = nullptr;
    int result = IniEditOpen(&edit, path.c_str(), kReads, options);
    const Owner owner(edit);
    if (result == 1) {
        result = IniEditSetItem(edit, "a", "x", kIniEditOnly, value.c_str(), 0);
        EXPECT_EQ(1, result);
        result = IniEditSave(edit);
        EXPECT_EQ(result == 1 ? 0 : 1, IniEditIsChanged(edit));
        EXPECT_TRUE(result == 1 || IniEditLostRights(edit) >= 0);
    }
    return result;
}

// Returns whether the fault's turn came.
bool EditWith(const Fault& fault, int options, bool hasOld)
{
    const TempFolder folder;
    const std::string path = folder.File("file.ini");
    if (hasOld) {
        folder.Write("file.ini", kOld);
        EXPECT_EQ(0, chmod(path.c_str(), 0664));
    }
    const std::string value(20000, 'v');
    const std::string changed = hasOld ? "[a]\nx=" + value + "\n" : "[a]\nx = " + value + "\n";
    const std::string old = hasOld ? kOld : "";
    int result = 0;
    const pid_t child = fault.kills ? fork() : 0;
    if (child == 0) {
        kztest::PlaceFault(fault);
        result = EditAndSave(path, options, value);
        qkini::g_system = kReal;
        if (fault.kills) {
            _exit(0);
        }
    }
    int status = 0;
    EXPECT_TRUE(!fault.kills || waitpid(child, &status, 0) == child);
    const bool isReached = fault.kills ? WIFSIGNALED(status) : kztest::gCalls >= fault.at;
    const std::string content = kztest::ReadWholeFile(path);
    if (fault.kills) {
        EXPECT_TRUE(content == old || content == changed);
        EXPECT_EQ(1, EditAndSave(path, options, value)) << "what was left is in nobody's way";
        EXPECT_EQ(1u, kztest::FilesIn(folder).size());
        return isReached;
    }
    // The new text may be there, but for its name.
    const bool mayBeNew = result == 1 || result == kIniErrWrite;
    EXPECT_TRUE((result != 1 && content == old) || (mayBeNew && content == changed));
    EXPECT_LE(kztest::FilesIn(folder).size(), 1u) << "a file is left";
    EXPECT_TRUE(fs::exists(path) || (!hasOld && result != 1));
    EXPECT_TRUE((fault.error != 0 && fault.error != EINTR) || result == 1);
    struct stat now = {};
    EXPECT_TRUE(!hasOld || fault.error == EIO || (stat(path.c_str(), &now) == 0 && (now.st_mode & 07777) == 0664));
    return isReached;
}

TEST_F(IniEditFile, AFaultLeavesTheOldOrTheNewFile)
{
    const Fault faults[] = {{EIO, 0, false}, {EINTR, 0, false}, {0, 100, false}, {EIO, 100, false}, {0, 1, true}};
    for (const int options : {0, int{kIniEditInPlace}}) {
        for (const bool hasOld : {false, true}) {
            for (Fault fault : faults) {
                for (bool isReached = options == 0 || !fault.kills; isReached;) {
                    ++fault.at;
                    SCOPED_TRACE(testing::Message() << "options " << options << ", old file " << hasOld << ", error "
                                                    << fault.error << ", call " << fault.at);
                    isReached = EditWith(fault, options, hasOld);
                }
                EXPECT_TRUE(fault.at > 15 || options != 0) << "calls: " << fault.at;
            }
        }
    }
}

// Without an allocation of its own.
void WriteOld(const char* path)
{
    FILE* const file = std::fopen(path, "wb");
    ASSERT_NE(nullptr, file);
    std::fputs(kOld, file);
    std::fclose(file);
}

bool Holds(const char* path, const char* text)
{
    std::array<char, 256> content{};
    FILE* const file = std::fopen(path, "rb");
    const std::size_t size = file == nullptr ? 0 : std::fread(content.data(), 1, content.size() - 1, file);
    if (file != nullptr) {
        std::fclose(file);
    }
    return std::string_view(content.data(), size) == text;
}

TEST_F(IniEditFile, WithoutMemoryNothingChanges)
{
    const char* const name = path.c_str();
    kztest::FaultLoop([name](auto hasFailed) {
        WriteOld(name);
        IniEdit* edit = nullptr;
        int result = IniEditOpen(&edit, name, kReads, 0);
        const Owner owner(edit);
        const char* texts[] = {kOld, "[a]\nx=2\n", "[a]\nx=2\nz=3\n", "[a]\nx=2\n; c\nz=3\n", "[b]\nx=2\n; c\nz=3\n"};
        for (int step = 1; step < 5 && result == 1; ++step) {
            result = step == 1   ? IniEditSetItem(edit, "a", "x", 0, "2", 0)
                     : step == 2 ? IniEditAddItem(edit, "a", "z", "3", 0)
                     : step == 3 ? IniEditAddComment(edit, "a", "z", 0, "; c")
                                 : IniEditRenameSection(edit, "a", "b");
            const char* bytes = nullptr;
            std::size_t size = 0;
            EXPECT_EQ(1, IniEditGetText(edit, &bytes, &size));
            EXPECT_TRUE(std::string_view(bytes, size) == texts[result == 1 ? step : step - 1]);
        }
        result = result == 1 ? IniEditSave(edit) : result;
        EXPECT_EQ(hasFailed() ? kIniErrMemory : 1, result);
        EXPECT_TRUE(Holds(name, texts[result == 1 ? 4 : 0]));
    });
}

TEST_F(IniEditFile, NoChangeOfAnotherIsLost)
{
    constexpr int kThreads = 6;
    constexpr int kRounds = 40;
    kztest::Race(kThreads, [this](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            if (round % 8 == 7) {
                Open(path);  // which may make the file and remove it again
                continue;
            }
            const Owner edit = Open(path, thread % 3 == 0 ? int{kIniEditInPlace} : 0);
            IniEditLine line{};
            const bool isThere = IniEditGetItem(edit.get(), "a", "x", 1, &line) == 1;
            const int count = isThere ? std::stoi(std::string(line.value, line.valueSize)) : 0;
            ASSERT_EQ(1, SetX(edit, std::to_string(count + 1).c_str()));
            ASSERT_EQ(1, IniEditSave(edit.get()));
        }
    });
    EXPECT_EQ("[a]\nx = " + std::to_string(kThreads * kRounds * 7 / 8) + "\n", kztest::ReadWholeFile(path));
    EXPECT_EQ(1u, kztest::FilesIn(folder).size());
}

}  // namespace
