// Files by path: what is refused, a model under random calls, how a file opens, locks, and what exists.
#include "FileManager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "FaultLoop.h"
#include "FileStream.h"
#include "KzErr.h"
#include "PathCachedItem.h"
#include "PathTesting.h"
#include "RowFiles.h"
#include "TempFolder.h"

extern "C" ssize_t __real_pread(int descriptor, void* buffer, size_t count, off_t offset);

// Linked in place of pread, which may read less than it was asked for, and be interrupted before it reads anything.
extern "C" ssize_t __wrap_pread(int descriptor, void* buffer, size_t count, off_t offset)
{
    static bool isSignalled = false;
    isSignalled = !isSignalled;
    errno = EINTR;
    return isSignalled ? -1 : __real_pread(descriptor, buffer, (count + 1) / 2, offset);
}

namespace {

using kztest::PathOf;

// What opening a file returns, or -1 when it is open after a failure or not open after success.
KzErr Opening(const PathRef* path, int32 openMode, int32 denyMode)
{
    File_t file = reinterpret_cast<File_t>(&openMode);
    const KzErr err = FMOpen(&file, path, openMode, denyMode);
    return file == nullptr ? (err != kzErrNone ? err : -1) : err == kzErrNone ? FMClose(file) : -1;
}

File_t Open(const std::string& text, int32 openMode = kFMReadOnly, int32 denyMode = kFMDenyAll)
{
    const PathRef path = PathOf(text);
    File_t file = nullptr;
    EXPECT_EQ(FMOpen(&file, &path, openMode, denyMode), kzErrNone);
    return file;
}

// What a call and its form of 32 bits give, which is the low ones. Neither takes null.
int64 Both(File_t file, KzErr (*call64)(File_t, uInt64*), KzErr (*call)(File_t, uInt32*))
{
    uInt64 wide = 99;
    uInt32 low = 99;
    EXPECT_TRUE(call64(nullptr, &wide) == kzErrArgument && call(nullptr, &low) == kzErrArgument);
    EXPECT_TRUE(call64(file, nullptr) == kzErrArgument && call(file, nullptr) == kzErrArgument);
    EXPECT_TRUE(call64(file, &wide) == kzErrNone && call(file, &low) == kzErrNone);
    EXPECT_EQ(low, static_cast<uInt32>(wide));
    return static_cast<int64>(wide);
}

class FileManagerTest : public testing::Test {
protected:
    kztest::ReportCatcher mReports;
    kztest::RunningLibrary mLibrary;
    kztest::TempFolder mFolder;
};

TEST_F(FileManagerTest, Refusals)
{
    const std::string ten = mFolder.Write("ten", "0123456789");
    const PathRef there = PathOf(ten);
    PathRef nul = PathOf(mFolder.File(""));
    nul.Append(std::string("ten\0", 4));
    const std::tuple<PathRef, int32, int32, KzErr> rows[] = {
        {there, 8, kFMDenyAll, kzErrArgument},
        {there, -1, kFMDenyAll, kzErrArgument},
        {there, kFMReadOnly, 3, kzErrArgument},
        {there, kFMReadOnly, -1, kzErrArgument},
        {PathRef(), kFMReadOnly, kFMDenyAll, kzErrArgument},
        {PathOf("ten"), kFMReadOnly, kFMDenyAll, kzErrArgument},
        {nul, kFMReadOnly, kFMDenyAll, kzErrArgument},
        {PathOf(ten + std::string(1200, 'x')), kFMReadOnly, kFMDenyAll, kzErrArgument},
        {PathOf(ten + "0"), kFMWriteTruncate, kFMDenyAll, kzErrNotFound},
        {PathOf(ten + "/0"), kFMReadOnly, kFMDenyAll, UnixToKZErr(ENOTDIR)},
        {PathOf(mFolder.File("")), kFMReadWrite, kFMDenyNone, UnixToKZErr(EISDIR)},
    };
    for (const auto& [path, openMode, denyMode, code] : rows) {
        EXPECT_EQ(Opening(&path, openMode, denyMode), code) << path.Name() << ", " << openMode << ", " << denyMode;
    }

    const File_t file = Open(ten);
    char byte = 0;
    int32 got = 5;
    int32 gotAt = 5;
    const KzErr results[] = {Opening(nullptr, kFMReadOnly, kFMDenyAll),
                             FMOpen(nullptr, &there, kFMReadOnly, kFMDenyAll),
                             FMRead(file, -1, &got, &byte),
                             FMRead(file, 1, &got, nullptr),
                             FMRead(nullptr, 1, &got, &byte),
                             kz::FMReadAt(file, 0, -1, &gotAt, &byte),
                             kz::FMReadAt(file, 0, 1, &gotAt, nullptr),
                             kz::FMReadAt(file, -1, 1, &gotAt, &byte),
                             kz::FMReadAt(nullptr, 0, 1, &gotAt, &byte),
                             FMClose(nullptr),
                             FMSeek64(file, 0, 0),
                             FMSeek64(file, 0, 4),
                             FMSeek64(nullptr, 0, kFMFromCurrent)};
    for (const KzErr& result : results) {
        EXPECT_EQ(result, kzErrArgument) << "call " << &result - results;
    }
    EXPECT_TRUE(got == 0 && gotAt == 0);
    EXPECT_EQ(FMRead(file, 0, nullptr, nullptr), kzErrNone);
    EXPECT_EQ(kz::FMReadAt(file, 0, 0, nullptr, nullptr), kzErrNone);
    EXPECT_EQ(FMClose(file), kzErrNone);
    EXPECT_EQ(kztest::ReadWholeFile(ten), "0123456789");
}

// A failed write of what waits in the stream is told once, and not taken for a failure of the next call.
TEST_F(FileManagerTest, WhatTheSystemRefuses)
{
    const File_t folder = Open(mFolder.File(""));
    const File_t full = Open("/dev/full", kFMReadWrite, kFMDenyNone);
    uInt64 size = 0;
    char byte = 0;
    const auto waiting = [full, &byte] {
        FILE* const stream = reinterpret_cast<FILE*>(full);
        EXPECT_EQ(FMRead(full, 1, nullptr, &byte), kzErrNone);
        EXPECT_TRUE(fseeko(stream, 0, SEEK_CUR) == 0 && fputc('a', stream) == 'a');
        return full;
    };
    EXPECT_EQ(FMSeek(waiting(), -1, kFMFromEnd), kzErrDiskFull);
    EXPECT_EQ(FGetEOF64(waiting(), &size), kzErrDiskFull);
    EXPECT_EQ(FMRead(waiting(), 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(kz::FMReadAt(waiting(), 0, 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(FMClose(waiting()), kzErrIO);
    EXPECT_EQ(FMRead(folder, 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(kz::FMReadAt(folder, 0, 1, nullptr, &byte), kzErrIO);
    EXPECT_EQ(FMClose(folder), kzErrNone);
}

// What the descriptor allows, and what is left of the file.
TEST_F(FileManagerTest, OpenModes)
{
    const std::tuple<int32, int, std::string> rows[] = {{kFMReadWrite, O_RDWR, "abc"},
                                                        {kFMReadOnly, O_RDONLY, "abc"},
                                                        {kFMWriteOnly, O_WRONLY, "abc"},
                                                        {kFMWriteTruncate, O_WRONLY, ""}};
    for (const auto& [openMode, flags, left] : rows) {
        for (const int32 synchronous : {0, int32{kFMSynchronous}}) {
            SCOPED_TRACE(openMode + synchronous);
            const std::string path = mFolder.Write("file", "abc");
            const File_t file = Open(path, openMode + synchronous, kFMDenyNone);
            EXPECT_EQ(fcntl(fileno(reinterpret_cast<FILE*>(file)), F_GETFL) & (O_ACCMODE | O_SYNC),
                      flags | (synchronous != 0 ? O_SYNC : 0));
            EXPECT_EQ(kztest::ReadWholeFile(path), left);
            char byte = 0;
            EXPECT_EQ(FMRead(file, 1, nullptr, &byte), flags == O_WRONLY ? kzErrIO : kzErrNone);
            EXPECT_EQ(kz::FMReadAt(file, 0, 1, nullptr, &byte), flags == O_WRONLY ? kzErrIO : kzErrNone);
            EXPECT_EQ(FMClose(file), kzErrNone);
        }
    }
}

// Reads, writes and seeks at random against a string and a place in it. A writer that is no call of ours leaves its
// output in the stream; every call after it finds it written.
TEST_F(FileManagerTest, AFileAgreesWithAModel)
{
    constexpr int64 kOffsets[] = {0, 0, 1, -1, 4, -4, 11, INT64_MAX, INT64_MIN};
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
            if (random() % 3 == 0) {
                int32 got = -1;
                const std::string rest = from < bytes.size() ? bytes.substr(from, count) : "";
                EXPECT_EQ(atPlace ? kz::FMReadAt(file, static_cast<int64>(from), static_cast<int32>(count), &got,
                                                 buffer.data())
                                  : FMRead(file, static_cast<int32>(count), &got, buffer.data()),
                          rest.size() == count ? kzErrNone : kzErrEndOfFile);
                EXPECT_EQ(got, static_cast<int32>(rest.size()));
                EXPECT_EQ(buffer.substr(0, rest.size()), rest);
                at += atPlace ? 0 : rest.size();
            } else if (random() % 2 == 0) {
                FILE* const stream = reinterpret_cast<FILE*>(file);
                ASSERT_EQ(fseeko(stream, 0, SEEK_CUR), 0);  // what C asks for between reading and writing
                ASSERT_EQ(fwrite(buffer.data(), 1, count, stream), count);
                bytes.replace(at, std::min(count, bytes.size() - at), buffer);
                at += count;
            } else {
                const int64 offset = kOffsets[random() % std::size(kOffsets)];
                const int32 mode = 1 + static_cast<int32>(random() % 3);
                const int64 size = static_cast<int64>(bytes.size());
                const int64 origin = mode == kFMFromStart ? 0 : mode == kFMFromEnd ? size : static_cast<int64>(at);
                // Outside the file the seek ends at the end that is nearer.
                const bool above = offset > size - origin;
                const bool below = offset < -origin;
                EXPECT_EQ(FMSeek64(file, offset, mode), above || below ? kzErrEndOfFile : kzErrNone);
                at = static_cast<size_t>(above ? size : below ? 0 : origin + offset);
            }
            EXPECT_EQ(Both(file, FMTell64, FMTell), static_cast<int64>(at));
            if (random() % 2 == 0) {
                EXPECT_EQ(Both(file, FGetEOF64, FGetEOF), static_cast<int64>(bytes.size()));
            }
        }
        EXPECT_EQ(FMClose(file), kzErrNone);
        EXPECT_EQ(kztest::ReadWholeFile(path), bytes);
    }
}

TEST_F(FileManagerTest, BeyondFourGigabytes)
{
    constexpr int64 kBig = (int64{5} << 30) + 17;
    const std::string path = mFolder.Write("sparse", "");
    std::filesystem::resize_file(path, static_cast<uintmax_t>(kBig));
    const File_t file = Open(path);
    char byte = 'x';
    EXPECT_EQ(Both(file, FGetEOF64, FGetEOF), kBig);
    EXPECT_EQ(FMSeek64(file, kBig, kFMFromStart), kzErrNone);
    EXPECT_EQ(FMSeek(file, -2, kFMFromCurrent), kzErrNone);
    EXPECT_EQ(Both(file, FMTell64, FMTell), kBig - 2);
    EXPECT_EQ(kz::FMReadAt(file, kBig - 1, 1, nullptr, &byte), kzErrNone);
    EXPECT_EQ(byte, 0);
    EXPECT_EQ(FMClose(file), kzErrNone);
}

TEST_F(FileManagerTest, LocksAgainstOtherProcesses)
{
    const std::string text = mFolder.Write("locked", "abc");
    const PathRef path = PathOf(text);
    // A refused open leaves no descriptor behind.
    const auto otherOpening = [&path](int32 openMode, int32 denyMode) {
        const pid_t child = fork();
        if (child == 0) {
            const kztest::LiveCounts before = kztest::CountLive();
            const KzErr err = Opening(&path, openMode, denyMode);
            _exit(before == kztest::CountLive() ? err : 255);
        }
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    // Readers share a file, writers do not, and who denies nothing does not ask.
    const std::array<int32, 5> rows[] = {
        {kFMReadOnly, kFMDenyAll, kFMReadOnly, kFMDenyWrite, kzErrNone},
        {kFMReadOnly, kFMDenyWrite, kFMReadWrite, kFMDenyAll, kzErrNoPermission},
        {kFMWriteOnly, kFMDenyAll, kFMReadOnly, kFMDenyWrite, kzErrNoPermission},
        {kFMReadWrite, kFMDenyWrite, kFMWriteOnly, kFMDenyNone, kzErrNone},
        {kFMReadWrite, kFMDenyNone, kFMReadWrite, kFMDenyAll, kzErrNone},
    };
    for (const auto& [openMode, denyMode, otherMode, otherDeny, otherResult] : rows) {
        const File_t file = Open(text, openMode, denyMode);
        EXPECT_EQ(otherOpening(otherMode, otherDeny), otherResult) << otherMode << " against " << openMode;
        EXPECT_EQ(FMClose(file), kzErrNone);
        EXPECT_EQ(otherOpening(kFMReadWrite, kFMDenyAll), kzErrNone) << "after the close";
    }
}

TEST_F(FileManagerTest, WhatExists)
{
    kztest::MakeFiles(kztest::Json::Parse(R"({"file": "x", "folder": null, "to file": ["file"], "to folder": ["folder"],
        "to nothing": ["nothing"], "to below a file": ["file/below"], "loop": ["loop"]})"),
                      mFolder);
    ASSERT_EQ(mkfifo(mFolder.File("pipe").c_str(), 0600), 0);
    const auto in = [this](const std::string& name) { return PathOf(mFolder.File(name)); };
    const PathRef pipe = in("pipe");
    PathRef slash = in("");
    slash.Append(std::string("folder/../file"));
    const std::vector<PathRef> ofKind[] = {
        {in("nothing"), in("file/below"), slash, PathOf("file"), PathOf(""), PathRef(), PathRef(PathRef::kNullPath)},
        {in("file"), in("to file"), in("to nothing"), in("to below a file"), pipe},
        {in("folder"), in("to folder"), PathOf("/")},
    };
    const KzErr validity[] = {kzErrNotFound, kzErrArgument, kzErrNone};
    for (const int32 kind : {kFMAbsent, kFMIsFile, kFMIsDirectory}) {
        for (const PathRef& path : ofKind[kind]) {
            EXPECT_EQ(FExists(&path), kind) << path.Name();
            EXPECT_TRUE(path.Exists() == (kind != kFMAbsent) && path.IsAFile() == (kind == kFMIsFile)) << path.Name();
            EXPECT_EQ(path.IsADirectory(), kind == kFMIsDirectory) << path.Name();
            EXPECT_EQ(path.IsSpecial(), path == pipe) << path.Name();
            EXPECT_EQ(CheckPathValidity(&path), validity[kind]) << path.Name();
        }
    }
    EXPECT_TRUE(mReports.TakeAll().empty());
    EXPECT_EQ(FExists(nullptr), kFMAbsent);
    // A folder that is known to be absent answers for all below it.
    using PathRefPrivate::CachedPathFlavor;
    pipe.FlushCache();
    auto* const flavor = new CachedPathFlavor(CachedPathFlavor::kAbsent, 60000, CachedPathFlavor::kDependsOnMetaData);
    ASSERT_EQ(pipe.GetParentDirectory().Cache("FExists", flavor), kzErrNone);
    EXPECT_FALSE(pipe.IsSpecial());

    // Any failure of the system but that nothing is there is told.
    const PathRef loop = in("loop");
    EXPECT_EQ(FExists(&loop), kFMAbsent);
    EXPECT_TRUE(mReports.Take(
        2, "FExists: we got an unexpected error looking at the file (osErr=" + std::to_string(ELOOP) + ")"));
}

}  // namespace
