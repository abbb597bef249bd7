// Files by path: what can be opened and how, a model under random calls, locks, failures, and what exists.
#include "FileManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <string>

#include "FaultLoop.h"
#include "FileStream.h"
#include "KzErr.h"
#include "PathRef.h"
#include "ReportCatcher.h"
#include "TempFolder.h"
#include "TestHost.h"

namespace {

PathRef PathOf(const std::string& text)
{
    return PathRef(text, PathRef::StringUnix());
}

// What `body` returns, 0 to 255, in another process.
template <typename Body>
int InOtherProcess(Body&& body)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class FileManagerTest : public testing::Test {
protected:
    static File_t Open(const std::string& path, int32 openMode = kFMReadOnly, int32 denyMode = kFMDenyAll)
    {
        File_t file = nullptr;
        const PathRef ref = PathOf(path);
        EXPECT_EQ(FMOpen(&file, &ref, openMode, denyMode), kzErrNone);
        return file;
    }

    // The number that the next open file gets: higher when one was left open.
    static int NextDescriptor()
    {
        const int descriptor = dup(STDIN_FILENO);
        close(descriptor);
        return descriptor;
    }

    kztest::ReportCatcher mReports;
    kztest::RunningLibrary mLibrary;
    kztest::TempFolder mFolder;
};

TEST_F(FileManagerTest, RefusesWhatItCannotOpen)
{
    const std::string text = mFolder.Write("ten", "0123456789");
    const std::string folder = mFolder.File("");
    const PathRef there = PathOf(text);
    PathRef nul = PathOf(folder);
    nul.Append(std::string("ten\0", 4));
    PathRef tooLong = PathOf(folder);
    for (int i = 0; i < 6; ++i) {
        tooLong.Append(std::string(200, 'x'));
    }
    const struct {
        const char* what;
        PathRef path;
        int32 openMode;
        int32 denyMode;
        KzErr result;
    } cases[] = {
        {"mode above", there, 8, kFMDenyAll, kzErrArgument},
        {"mode below", there, -1, kFMDenyAll, kzErrArgument},
        {"deny above", there, kFMReadOnly, 3, kzErrArgument},
        {"deny below", there, kFMReadOnly, -1, kzErrArgument},
        {"not a path", PathRef(), kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"relative", PathOf("ten"), kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"missing, to write", PathOf(folder + "missing"), kFMWriteTruncate, kFMDenyAll, kzErrNotFound},
        {"below a file", PathOf(text + "/below"), kFMReadOnly, kFMDenyAll, UnixToKZErr(ENOTDIR)},
        {"folder, to write", PathOf(folder), kFMReadWrite, kFMDenyNone, UnixToKZErr(EISDIR)},
        {"NUL in a name", nul, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"too long", tooLong, kFMReadOnly, kFMDenyAll, kzErrArgument},
    };
    for (const auto& each : cases) {
        File_t file = reinterpret_cast<File_t>(this);
        EXPECT_EQ(FMOpen(&file, &each.path, each.openMode, each.denyMode), each.result) << each.what;
        EXPECT_EQ(file, nullptr) << each.what;
    }
    File_t file = reinterpret_cast<File_t>(this);
    EXPECT_EQ(FMOpen(&file, nullptr, kFMReadOnly, kFMDenyAll), kzErrArgument);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(FMOpen(nullptr, &there, kFMReadOnly, kFMDenyAll), kzErrArgument);
    EXPECT_EQ(kztest::ReadWholeFile(text), "0123456789");
}

TEST_F(FileManagerTest, OpenModes)
{
    // What the descriptor allows, and what is left of the file.
    const struct {
        int32 openMode;
        int flags;
        const char* left;
    } cases[] = {
        {kFMReadWrite, O_RDWR, "abc"},
        {kFMReadOnly, O_RDONLY, "abc"},
        {kFMWriteOnly, O_WRONLY, "abc"},
        {kFMWriteTruncate, O_WRONLY, ""},
    };
    for (const auto& each : cases) {
        for (const int32 synchronous : {0, 4}) {
            const std::string path = mFolder.Write("file", "abc");
            const File_t file = Open(path, each.openMode + synchronous, kFMDenyNone);
            ASSERT_NE(file, nullptr);
            const int descriptor = fileno(reinterpret_cast<FILE*>(file));
            EXPECT_EQ(fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_SYNC), each.flags | (synchronous ? O_SYNC : 0))
                << each.openMode;
            EXPECT_EQ(kztest::ReadWholeFile(path), each.left) << each.openMode;
            char byte = 0;
            EXPECT_EQ(FMRead(file, 1, nullptr, &byte), each.flags == O_WRONLY ? kzErrIO : kzErrNone);
            EXPECT_EQ(kz::FMReadAt(file, 0, 1, nullptr, &byte), each.flags == O_WRONLY ? kzErrIO : kzErrNone);
            EXPECT_EQ(FMClose(file), kzErrNone);
        }
    }
}

TEST_F(FileManagerTest, RefusesBadArguments)
{
    const File_t file = Open(mFolder.Write("ten", "0123456789"));
    const File_t folder = Open(mFolder.File(""));
    char byte = 0;
    int32 got = 5;
    int32 gotAt = 5;
    uInt32 low = 0;
    uInt64 wide = 0;
    const KzErr results[] = {
        FMRead(file, -1, &got, &byte),
        FMRead(file, 1, &got, nullptr),
        FMRead(nullptr, 1, &got, &byte),
        kz::FMReadAt(file, 0, -1, &gotAt, &byte),
        kz::FMReadAt(file, 0, 1, &gotAt, nullptr),
        kz::FMReadAt(file, -1, 1, &gotAt, &byte),
        kz::FMReadAt(nullptr, 0, 1, &gotAt, &byte),
        FMTell(file, nullptr),
        FMTell64(file, nullptr),
        FGetEOF(file, nullptr),
        FGetEOF64(file, nullptr),
        FMTell(nullptr, &low),
        FMTell64(nullptr, &wide),
        FGetEOF(nullptr, &low),
        FGetEOF64(nullptr, &wide),
        FMClose(nullptr),
        FMSeek64(file, 0, 0),
        FMSeek64(nullptr, 0, kFMFromCurrent),
        FMSeek64(file, 0, 4),
    };
    for (size_t i = 0; i < std::size(results); ++i) {
        EXPECT_EQ(results[i], kzErrArgument) << "call " << i;
    }
    EXPECT_TRUE(got == 0 && gotAt == 0);
    EXPECT_EQ(FMRead(folder, 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(kz::FMReadAt(folder, 0, 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(FMRead(file, 0, nullptr, nullptr), kzErrNone);
    EXPECT_EQ(kz::FMReadAt(file, 0, 0, nullptr, nullptr), kzErrNone);
    EXPECT_EQ(FMClose(folder), kzErrNone);
    EXPECT_EQ(FMClose(file), kzErrNone);
}

// Reads, writes and seeks at random against a string and a place in it. A writer that is no call of ours leaves its
// output in the stream; every call after it finds it written.
TEST_F(FileManagerTest, AFileAgreesWithAModel)
{
    constexpr int64 kOffsets[] = {
        0, 0, 1, -1, 4, -4, 11, std::numeric_limits<int64>::max(), std::numeric_limits<int64>::min()};
    std::mt19937 random(1);
    for (unsigned sequence = 0; sequence < kztest::ModelSequences() / 20; ++sequence) {
        std::string bytes = "0123456789";
        size_t at = 0;
        const std::string path = mFolder.Write("model", bytes);
        const File_t file = Open(path, kFMReadWrite);
        for (int step = 0; step < 20; ++step) {
            SCOPED_TRACE(std::to_string(sequence) + ", " + std::to_string(step));
            const size_t count = random() % 7;
            const bool atPlace = random() % 2 != 0;
            const size_t from = atPlace ? random() % (bytes.size() + 3) : at;
            std::string buffer(count, '?');
            int32 got = -1;
            const int64 offset = kOffsets[random() % std::size(kOffsets)];
            const int32 mode = 1 + static_cast<int32>(random() % 3);
            if (random() % 3 == 0) {
                const std::string rest = from < bytes.size() ? bytes.substr(from, count) : "";
                EXPECT_EQ(atPlace ? kz::FMReadAt(file, static_cast<int64>(from), static_cast<int32>(count), &got,
                                                 buffer.data())
                                  : FMRead(file, static_cast<int32>(count), &got, buffer.data()),
                          rest.size() == count ? kzErrNone : kzErrEndOfFile);
                EXPECT_EQ(buffer.substr(0, static_cast<size_t>(got)), rest);
                at += atPlace ? 0 : rest.size();
            } else if (random() % 2 == 0) {
                FILE* const stream = reinterpret_cast<FILE*>(file);
                ASSERT_EQ(fseeko(stream, 0, SEEK_CUR), 0);  // what C asks for between reading and writing
                ASSERT_EQ(fwrite(buffer.data(), 1, count, stream), count);
                bytes.replace(at, std::min(count, bytes.size() - at), buffer);
                at += count;
            } else {
                const int64 size = static_cast<int64>(bytes.size());
                const int64 origin = mode == kFMFromStart ? 0 : mode == kFMFromEnd ? size : static_cast<int64>(at);
                // Outside the file the seek ends at the end that is nearer.
                const bool above = offset > size - origin;
                const bool below = offset < -origin;
                EXPECT_EQ(FMSeek64(file, offset, mode), above || below ? kzErrEndOfFile : kzErrNone);
                at = static_cast<size_t>(above ? size : below ? 0 : origin + offset);
            }
            uInt64 wide = 99;
            EXPECT_EQ(FMTell64(file, &wide), kzErrNone);
            EXPECT_EQ(wide, at);
            if (random() % 2 == 0) {
                EXPECT_EQ(FGetEOF64(file, &wide), kzErrNone);
                EXPECT_EQ(wide, bytes.size());
            }
        }
        EXPECT_EQ(FMClose(file), kzErrNone);
        EXPECT_EQ(kztest::ReadWholeFile(path), bytes);
    }
}

// The calls with 32 bits give the low ones.
TEST_F(FileManagerTest, CountsBeyondFourGigabytes)
{
    constexpr int64 kBig = (int64{5} << 30) + 17;
    const std::string path = mFolder.Write("sparse", "");
    std::filesystem::resize_file(path, static_cast<uintmax_t>(kBig));
    const File_t file = Open(path);
    uInt64 wide = 0;
    uInt32 low = 0;
    char byte = 'x';
    EXPECT_EQ(FGetEOF64(file, &wide), kzErrNone);
    EXPECT_EQ(wide, static_cast<uInt64>(kBig));
    EXPECT_EQ(FGetEOF(file, &low), kzErrNone);
    EXPECT_EQ(low, static_cast<uInt32>(kBig));
    EXPECT_EQ(FMSeek64(file, kBig, kFMFromStart), kzErrNone);
    EXPECT_EQ(FMSeek(file, -2, kFMFromCurrent), kzErrNone);
    EXPECT_EQ(FMTell64(file, &wide), kzErrNone);
    EXPECT_EQ(wide, static_cast<uInt64>(kBig - 2));
    EXPECT_EQ(FMTell(file, &low), kzErrNone);
    EXPECT_EQ(low, static_cast<uInt32>(kBig - 2));
    EXPECT_EQ(kz::FMReadAt(file, kBig - 1, 1, nullptr, &byte), kzErrNone);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(FMClose(file), kzErrNone);
}

// A failed write of what waits in the stream is told once, and not taken for a failure of the next call.
TEST_F(FileManagerTest, TellsWhatCannotBeWritten)
{
    const File_t file = Open("/dev/full", kFMReadWrite, kFMDenyNone);
    ASSERT_NE(file, nullptr);
    FILE* const stream = reinterpret_cast<FILE*>(file);
    uInt64 size = 0;
    char byte = 0;
    const struct {
        std::function<KzErr()> call;
        KzErr result;
    } cases[] = {
        {[&] { return FMSeek(file, -1, kFMFromEnd); }, kzErrDiskFull},
        {[&] { return FGetEOF64(file, &size); }, kzErrDiskFull},
        {[&] { return FMRead(file, 1, nullptr, &byte); }, kzErrIO},
        {[&] { return kz::FMReadAt(file, 0, 1, nullptr, &byte); }, kzErrIO},
        {[&] { return FMClose(file); }, kzErrIO},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(FMRead(file, 1, nullptr, &byte), kzErrNone);
        ASSERT_EQ(fseeko(stream, 0, SEEK_CUR), 0);
        ASSERT_EQ(fputc('a', stream), 'a');
        EXPECT_EQ(each.call(), each.result);
    }
}

TEST_F(FileManagerTest, LocksAgainstOtherProcesses)
{
    const PathRef path = PathOf(mFolder.Write("locked", "abc"));
    // A refused open leaves no descriptor behind.
    const auto otherOpen = [&](int32 openMode, int32 denyMode) {
        return InOtherProcess([&]() -> KzErr {
            const int nextDescriptor = NextDescriptor();
            File_t file = nullptr;
            const KzErr err = FMOpen(&file, &path, openMode, denyMode);
            return err == kzErrNone || (file == nullptr && NextDescriptor() == nextDescriptor) ? err : 255;
        });
    };
    // Readers share a file, writers do not, and who denies nothing does not ask.
    const struct {
        int32 openMode;
        int32 denyMode;
        int32 otherMode;
        int32 otherDeny;
        KzErr otherResult;
    } cases[] = {
        {kFMReadOnly, kFMDenyAll, kFMReadOnly, kFMDenyWrite, kzErrNone},
        {kFMReadOnly, kFMDenyWrite, kFMReadWrite, kFMDenyAll, kzErrNoPermission},
        {kFMWriteOnly, kFMDenyAll, kFMReadOnly, kFMDenyWrite, kzErrNoPermission},
        {kFMReadWrite, kFMDenyWrite, kFMWriteOnly, kFMDenyNone, kzErrNone},
        {kFMReadWrite, kFMDenyNone, kFMReadWrite, kFMDenyAll, kzErrNone},
    };
    for (const auto& each : cases) {
        File_t file = nullptr;
        ASSERT_EQ(FMOpen(&file, &path, each.openMode, each.denyMode), kzErrNone);
        EXPECT_EQ(otherOpen(each.otherMode, each.otherDeny), each.otherResult)
            << each.otherMode << " against " << each.openMode;
        EXPECT_EQ(FMClose(file), kzErrNone);
        EXPECT_EQ(otherOpen(kFMReadWrite, kFMDenyAll), kzErrNone) << "after the close";
    }
}

TEST_F(FileManagerTest, TellsWhatExists)
{
    namespace fs = std::filesystem;
    const std::string file = mFolder.Write("file", "x");
    fs::create_directory(mFolder.File("folder"));
    fs::create_symlink(file, mFolder.File("to file"));
    fs::create_symlink(mFolder.File("folder"), mFolder.File("to folder"));
    fs::create_symlink(mFolder.File("nothing"), mFolder.File("to nothing"));
    fs::create_symlink(file + "/below", mFolder.File("to below a file"));
    fs::create_symlink(mFolder.File("loop"), mFolder.File("loop"));
    ASSERT_EQ(mkfifo(mFolder.File("pipe").c_str(), 0600), 0);
    PathRef slash = PathOf(mFolder.File(""));
    slash.Append(std::string("folder/../file"));
    const struct {
        PathRef path;
        int32 kind;
    } cases[] = {
        {PathOf(file), kFMIsFile},
        {PathOf(mFolder.File("folder")), kFMIsDirectory},
        {PathOf(mFolder.File("nothing")), kFMAbsent},
        {PathOf(file + "/below"), kFMAbsent},
        {PathOf(mFolder.File("to file")), kFMIsFile},
        {PathOf(mFolder.File("to folder")), kFMIsDirectory},
        {PathOf(mFolder.File("to nothing")), kFMIsFile},
        {PathOf(mFolder.File("to below a file")), kFMIsFile},
        {PathOf(mFolder.File("pipe")), kFMIsFile},
        {slash, kFMAbsent},
        {PathRef(PathRef::kAbsolute), kFMIsDirectory},
        {PathRef(PathRef::kRelative), kFMAbsent},
        {PathRef(), kFMAbsent},
        {PathRef(PathRef::kNullPath), kFMAbsent},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(FExists(&cases[i].path), cases[i].kind) << "case " << i;
        const KzErr validity[] = {kzErrNotFound, kzErrArgument, kzErrNone};
        EXPECT_EQ(CheckPathValidity(&cases[i].path), validity[cases[i].kind]) << "case " << i;
    }
    EXPECT_EQ(FExists(nullptr), kFMAbsent);
    EXPECT_TRUE(mReports.TakeAll().empty());

    // Any other failure of the system is told.
    const PathRef loop = PathOf(mFolder.File("loop"));
    EXPECT_EQ(FExists(&loop), kFMAbsent);
    EXPECT_TRUE(mReports.Take(
        kDbgWarning, "FExists: we got an unexpected error looking at the file (osErr=" + std::to_string(ELOOP) + ")"));
}

}  // namespace
