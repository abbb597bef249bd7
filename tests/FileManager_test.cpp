#include "FileManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>

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

// A lock on a whole file, held by another process for a scope.
class ForeignLock {
public:
    ForeignLock(const std::string& path, short type)
    {
        int ready[2];
        int done[2];
        if (pipe(ready) != 0 || pipe(done) != 0) {
            return;
        }
        mChild = fork();
        if (mChild == 0) {
            close(done[1]);
            HoldLock(path.c_str(), type, ready[1], done[0]);
        }
        close(ready[1]);
        close(done[0]);
        mRelease = done[1];
        char answer = 0;
        mHeld = read(ready[0], &answer, 1) == 1 && answer == 'y';
        close(ready[0]);
    }
    ~ForeignLock()
    {
        close(mRelease);
        waitpid(mChild, nullptr, 0);
    }
    ForeignLock(const ForeignLock&) = delete;
    ForeignLock& operator=(const ForeignLock&) = delete;

    bool IsHeld() const { return mHeld; }

private:
    // The child: ends when the other end of `done` closes.
    [[noreturn]] static void HoldLock(const char* path, short type, int ready, int done)
    {
        const int file = open(path, O_RDWR);
        struct flock range = {};
        range.l_type = type;
        range.l_whence = SEEK_SET;
        const char answer = fcntl(file, F_SETLK, &range) == 0 ? 'y' : 'n';
        char nothing = 0;
        if (write(ready, &answer, 1) == 1 && read(done, &nothing, 1) == 0) {
            _exit(0);
        }
        _exit(1);
    }

    pid_t mChild = -1;
    int mRelease = -1;
    bool mHeld = false;
};

class FileManagerTest : public testing::Test {
protected:
    static std::string Read(File_t file, int32 count, KzErr expected)
    {
        std::string bytes(static_cast<size_t>(count), '?');
        int32 got = -1;
        EXPECT_EQ(FMRead(file, count, &got, bytes.data()), expected);
        bytes.resize(static_cast<size_t>(got));
        return bytes;
    }

    static File_t Open(const std::string& path, int32 openMode = kFMReadOnly, int32 denyMode = kFMDenyAll)
    {
        File_t file = nullptr;
        const PathRef ref = PathOf(path);
        EXPECT_EQ(FMOpen(&file, &ref, openMode, denyMode), kzErrNone);
        return file;
    }

    static long Position(File_t file)
    {
        uInt64 position = 99999;
        uInt32 low = 0;
        EXPECT_EQ(FMTell64(file, &position), kzErrNone);
        EXPECT_EQ(FMTell(file, &low), kzErrNone);
        EXPECT_EQ(low, static_cast<uInt32>(position));
        return static_cast<long>(position);
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
    const std::string path = mFolder.Write("ten", "0123456789");
    const PathRef there = PathOf(path);
    const PathRef relative = PathOf("ten");
    const PathRef missing = PathOf(mFolder.File("missing"));
    const PathRef below = PathOf(path + "/below");
    const PathRef folder = PathOf(mFolder.File(""));
    PathRef slash = PathOf(mFolder.File(""));
    slash.Append(std::string("a/b"));
    PathRef nul = PathOf(mFolder.File(""));
    nul.Append(std::string("ten\0", 4));
    PathRef tooLong = PathOf(mFolder.File(""));
    for (int i = 0; i < 6; ++i) {
        tooLong.Append(std::string(200, 'x'));
    }
    const PathRef notAPath;
    const struct {
        const char* what;
        const PathRef* path;
        int32 openMode;
        int32 denyMode;
        KzErr result;
    } cases[] = {
        {"mode above", &there, 8, kFMDenyAll, kzErrArgument},
        {"mode 9", &there, 9, kFMDenyAll, kzErrArgument},
        {"mode below", &there, -1, kFMDenyAll, kzErrArgument},
        {"deny above", &there, kFMReadOnly, 3, kzErrArgument},
        {"deny below", &there, kFMReadOnly, -1, kzErrArgument},
        {"null path", nullptr, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"not a path", &notAPath, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"relative", &relative, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"missing", &missing, kFMReadOnly, kFMDenyAll, kzErrNotFound},
        {"missing, to write", &missing, kFMWriteTruncate, kFMDenyAll, kzErrNotFound},
        {"below a file", &below, kFMReadOnly, kFMDenyAll, UnixToKZErr(ENOTDIR)},
        {"folder, to write", &folder, kFMReadWrite, kFMDenyNone, UnixToKZErr(EISDIR)},
        {"slash in a name", &slash, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"NUL in a name", &nul, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {"too long", &tooLong, kFMReadOnly, kFMDenyAll, kzErrArgument},
    };
    int unset = 0;
    for (const auto& each : cases) {
        File_t file = reinterpret_cast<File_t>(&unset);
        EXPECT_EQ(FMOpen(&file, each.path, each.openMode, each.denyMode), each.result) << each.what;
        EXPECT_EQ(file, nullptr) << each.what;
    }
    EXPECT_EQ(FMOpen(nullptr, &there, kFMReadOnly, kFMDenyAll), kzErrArgument);
    EXPECT_EQ(kztest::ReadWholeFile(path), "0123456789");
}

TEST_F(FileManagerTest, OpenModes)
{
    // What the descriptor allows, and whether the file is emptied.
    const struct {
        int32 openMode;
        int flags;
        bool truncates;
    } cases[] = {
        {kFMReadWrite, O_RDWR, false},
        {kFMReadOnly, O_RDONLY, false},
        {kFMWriteOnly, O_WRONLY, false},
        {kFMWriteTruncate, O_WRONLY, true},
        {kFMReadWrite + kFMSynchronous, O_RDWR | O_SYNC, false},
        {kFMReadOnly + kFMSynchronous, O_RDONLY | O_SYNC, false},
        {kFMWriteOnly + kFMSynchronous, O_WRONLY | O_SYNC, false},
        {kFMWriteTruncate + kFMSynchronous, O_WRONLY | O_SYNC, true},
    };
    for (const auto& each : cases) {
        const std::string path = mFolder.Write("file", "abc");
        const File_t file = Open(path, each.openMode, kFMDenyNone);
        ASSERT_NE(file, nullptr);
        const int descriptor = fileno(reinterpret_cast<FILE*>(file));
        EXPECT_EQ(fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_SYNC), each.flags) << each.openMode;
        uInt64 size = 0;
        EXPECT_EQ(FGetEOF64(file, &size), kzErrNone);
        EXPECT_EQ(size, each.truncates ? 0U : 3U) << each.openMode;
        if ((each.flags & O_ACCMODE) == O_WRONLY) {
            EXPECT_EQ(Read(file, 1, kzErrIO), "");
        } else {
            EXPECT_EQ(Read(file, 3, kzErrNone), "abc");
        }
        EXPECT_EQ(FMClose(file), kzErrNone);
    }
}

TEST_F(FileManagerTest, ReadsUpToTheEnd)
{
    const File_t file = Open(mFolder.Write("ten", "0123456789"));
    EXPECT_EQ(Read(file, 4, kzErrNone), "0123");
    EXPECT_EQ(Read(file, 0, kzErrNone), "");
    EXPECT_EQ(Read(file, 6, kzErrNone), "456789");
    EXPECT_EQ(Read(file, 1, kzErrEndOfFile), "");
    EXPECT_EQ(FMSeek(file, 0, kFMFromStart), kzErrNone);
    EXPECT_EQ(Read(file, 100, kzErrEndOfFile), "0123456789");
    EXPECT_EQ(FMSeek(file, -1, kFMFromEnd), kzErrNone);
    char last = 0;
    EXPECT_EQ(FMRead(file, 1, nullptr, &last), kzErrNone);
    EXPECT_EQ(last, '9');

    EXPECT_EQ(FMClose(file), kzErrNone);
}

TEST_F(FileManagerTest, NullAndNegativeArguments)
{
    const File_t file = Open(mFolder.Write("ten", "0123456789"));
    char byte = 0;
    int32 got = 5;
    uInt32 low = 0;
    uInt64 wide = 0;
    EXPECT_EQ(FMRead(file, -1, &got, &byte), kzErrArgument);
    EXPECT_EQ(got, 0);
    EXPECT_EQ(FMRead(file, 1, &got, nullptr), kzErrArgument);
    EXPECT_EQ(FMRead(nullptr, 1, &got, &byte), kzErrArgument);
    EXPECT_EQ(FMSeek64(nullptr, 0, kFMFromCurrent), kzErrArgument);
    for (const File_t each : {file, File_t{nullptr}}) {
        EXPECT_EQ(FMTell(each, each != nullptr ? nullptr : &low), kzErrArgument);
        EXPECT_EQ(FMTell64(each, each != nullptr ? nullptr : &wide), kzErrArgument);
        EXPECT_EQ(FGetEOF(each, each != nullptr ? nullptr : &low), kzErrArgument);
        EXPECT_EQ(FGetEOF64(each, each != nullptr ? nullptr : &wide), kzErrArgument);
    }
    EXPECT_EQ(FMClose(file), kzErrNone);
    EXPECT_EQ(FMClose(nullptr), kzErrArgument);
}

TEST_F(FileManagerTest, AFolderOpensButCannotBeRead)
{
    const File_t file = Open(mFolder.File(""), kFMReadOnly, kFMDenyNone);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Read(file, 1, kzErrIO), "");
    EXPECT_EQ(FMClose(file), kzErrNone);
}

TEST_F(FileManagerTest, SeeksInsideTheFileOnly)
{
    constexpr int64 kMost = std::numeric_limits<int64>::max();
    constexpr int64 kLeast = std::numeric_limits<int64>::min();
    const File_t file = Open(mFolder.Write("ten", "0123456789"));
    const struct {
        int64 offset;
        int32 seekMode;
        KzErr result;
        long position;  // from 4 before each
    } cases[] = {
        {0, kFMFromCurrent, kzErrNone, 4},
        {3, kFMFromCurrent, kzErrNone, 7},
        {-4, kFMFromCurrent, kzErrNone, 0},
        {6, kFMFromCurrent, kzErrNone, 10},
        {7, kFMFromCurrent, kzErrEndOfFile, 10},
        {-5, kFMFromCurrent, kzErrEndOfFile, 0},
        {0, kFMFromStart, kzErrNone, 0},
        {10, kFMFromStart, kzErrNone, 10},
        {11, kFMFromStart, kzErrEndOfFile, 10},
        {-1, kFMFromStart, kzErrEndOfFile, 0},
        {0, kFMFromEnd, kzErrNone, 10},
        {-10, kFMFromEnd, kzErrNone, 0},
        {-11, kFMFromEnd, kzErrEndOfFile, 0},
        {1, kFMFromEnd, kzErrEndOfFile, 10},
        {kMost, kFMFromStart, kzErrEndOfFile, 10},
        {kMost, kFMFromCurrent, kzErrEndOfFile, 10},
        {kMost, kFMFromEnd, kzErrEndOfFile, 10},
        {kLeast, kFMFromCurrent, kzErrEndOfFile, 0},
        {kLeast, kFMFromEnd, kzErrEndOfFile, 0},
        {0, 0, kzErrArgument, 4},
        {0, 4, kzErrArgument, 4},
        {0, -1, kzErrArgument, 4},
    };
    for (const auto& each : cases) {
        ASSERT_EQ(FMSeek64(file, 4, kFMFromStart), kzErrNone);
        EXPECT_EQ(FMSeek64(file, each.offset, each.seekMode), each.result) << each.offset << " by " << each.seekMode;
        EXPECT_EQ(Position(file), each.position) << each.offset << " by " << each.seekMode;
    }

    // The position is the reader's, not that of the buffer behind it.
    EXPECT_EQ(FMSeek(file, 2, kFMFromStart), kzErrNone);
    EXPECT_EQ(Read(file, 2, kzErrNone), "23");
    EXPECT_EQ(Position(file), 4);
    EXPECT_EQ(FMSeek(file, 1, kFMFromCurrent), kzErrNone);
    EXPECT_EQ(Read(file, 1, kzErrNone), "5");
    EXPECT_EQ(FMClose(file), kzErrNone);
}

TEST_F(FileManagerTest, TellsSizeWithoutMoving)
{
    const std::string path = mFolder.Write("ten", "0123456789");
    File_t file = Open(path);
    EXPECT_EQ(Read(file, 3, kzErrNone), "012");
    uInt64 wide = 0;
    uInt32 low = 0;
    EXPECT_EQ(FGetEOF64(file, &wide), kzErrNone);
    EXPECT_EQ(wide, 10U);
    EXPECT_EQ(FGetEOF(file, &low), kzErrNone);
    EXPECT_EQ(low, 10U);
    EXPECT_EQ(Position(file), 3);
    EXPECT_EQ(Read(file, 2, kzErrNone), "34");
    EXPECT_EQ(FMClose(file), kzErrNone);

    // A sparse file of more than 4 GB.
    constexpr int64 kBig = (int64{5} << 30) + 17;
    std::filesystem::resize_file(path, static_cast<uintmax_t>(kBig));
    file = Open(path);
    EXPECT_EQ(FGetEOF64(file, &wide), kzErrNone);
    EXPECT_EQ(wide, static_cast<uInt64>(kBig));
    EXPECT_EQ(FGetEOF(file, &low), kzErrNone);
    EXPECT_EQ(low, static_cast<uInt32>(kBig));
    EXPECT_EQ(FMSeek64(file, kBig - 1, kFMFromStart), kzErrNone);
    EXPECT_EQ(Position(file), kBig - 1);
    EXPECT_EQ(FMClose(file), kzErrNone);
}

// Output that waits in the stream counts for the size, and a read may follow it at once.
TEST_F(FileManagerTest, ReadsWhatAWriterLeftInTheStream)
{
    const std::string path = mFolder.Write("ten", "0123456789");
    const File_t file = Open(path, kFMReadWrite);
    FILE* const stream = reinterpret_cast<FILE*>(file);
    ASSERT_EQ(fwrite("ab", 1, 2, stream), 2U);
    EXPECT_EQ(Read(file, 2, kzErrNone), "23");
    EXPECT_EQ(FMSeek(file, 0, kFMFromEnd), kzErrNone);
    ASSERT_EQ(fwrite("xyz", 1, 3, stream), 3U);
    uInt64 size = 0;
    EXPECT_EQ(FGetEOF64(file, &size), kzErrNone);
    EXPECT_EQ(size, 13U);
    EXPECT_EQ(FMClose(file), kzErrNone);
    EXPECT_EQ(kztest::ReadWholeFile(path), "ab23456789xyz");
}

TEST_F(FileManagerTest, LocksAgainstOtherProcesses)
{
    const std::string path = mFolder.Write("locked", "abc");
    const PathRef ref = PathOf(path);
    const struct {
        short foreign;
        int32 openMode;
        int32 denyMode;
        KzErr result;
    } cases[] = {
        {F_WRLCK, kFMReadOnly, kFMDenyAll, kzErrNoPermission},
        {F_WRLCK, kFMReadOnly, kFMDenyWrite, kzErrNoPermission},
        {F_WRLCK, kFMReadWrite, kFMDenyAll, kzErrNoPermission},
        {F_WRLCK, kFMReadOnly, kFMDenyNone, kzErrNone},
        {F_RDLCK, kFMReadOnly, kFMDenyAll, kzErrNone},
        {F_RDLCK, kFMReadOnly, kFMDenyWrite, kzErrNone},
        {F_RDLCK, kFMReadWrite, kFMDenyWrite, kzErrNoPermission},
        {F_RDLCK, kFMWriteOnly, kFMDenyAll, kzErrNoPermission},
    };
    for (const auto& each : cases) {
        ForeignLock lock(path, each.foreign);
        ASSERT_TRUE(lock.IsHeld());
        const int nextDescriptor = NextDescriptor();
        File_t file = nullptr;
        EXPECT_EQ(FMOpen(&file, &ref, each.openMode, each.denyMode), each.result)
            << each.foreign << ", mode " << each.openMode << ", deny " << each.denyMode;
        EXPECT_EQ(file != nullptr, each.result == kzErrNone);
        if (file != nullptr) {
            EXPECT_EQ(FMClose(file), kzErrNone);
        }
        EXPECT_EQ(NextDescriptor(), nextDescriptor);
    }

    // Our own locks, as another process meets them: shared for a reader, exclusive for a writer, gone after the close.
    const struct {
        int32 openMode;
        int32 denyMode;
        bool readerMay;
        bool writerMay;
    } own[] = {
        {kFMReadOnly, kFMDenyAll, true, false},
        {kFMReadWrite, kFMDenyWrite, false, false},
        {kFMReadWrite, kFMDenyNone, true, true},
    };
    for (const auto& each : own) {
        const File_t file = Open(path, each.openMode, each.denyMode);
        EXPECT_EQ(ForeignLock(path, F_RDLCK).IsHeld(), each.readerMay) << each.openMode;
        EXPECT_EQ(ForeignLock(path, F_WRLCK).IsHeld(), each.writerMay) << each.openMode;
        EXPECT_EQ(FMClose(file), kzErrNone);
        EXPECT_TRUE(ForeignLock(path, F_WRLCK).IsHeld()) << each.openMode;
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
        {PathOf(mFolder.File("nothing/below")), kFMAbsent},
        {PathOf(mFolder.File("to file")), kFMIsFile},
        {PathOf(mFolder.File("to folder")), kFMIsDirectory},
        {PathOf(mFolder.File("to nothing")), kFMIsFile},
        {PathOf(mFolder.File("to below a file")), kFMIsFile},
        {PathOf(mFolder.File("pipe")), kFMIsFile},
        {slash, kFMAbsent},
        {PathRef(PathRef::kAbsolute), kFMIsDirectory},
        {PathRef(PathRef::kRelative), kFMAbsent},
        {PathOf("tmp"), kFMAbsent},
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
