// The lock is on the file and not on its name, and a save gives the name to another file. So whoever gets the lock
// looks whether the path still names the file that he has locked, and starts over where it doesn't; and a save locks
// the new file before the rename, so that there is no moment at which the path names a file that nobody has locked.
// Together that lets one object at a time read, change and save.
//
// The lock also guards the temporary file, whose name follows from the target's: only who holds the lock makes or
// removes it. What a killed process left there is removed by the next save.

#include "IniEditFile.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>

#include <algorithm>
#include <memory>

#include "IniLine.h"
#include "IniModel.h"
#include "IniOutput.h"
#include "IniRights.h"
#include "IniSystem.h"
#include "IniTypes.h"
#include "KzAssert.h"

namespace qkini {

namespace {

constexpr int kStartOver = 2;  // beside the codes
constexpr int kMostStarts = 100'000;
constexpr int kMostLinks = 40;  // as Linux has it

// The folder of a path, with its slash; empty for the current one.
std::string FolderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

// Follows the links that a path names, also to a file that isn't there. 1 or a code.
int FollowLinks(std::string* path)
{
    std::string target(PATH_MAX, 0);
    for (int links = 0; links <= kMostLinks; ++links) {
        const ssize_t size = Retry([&] { return g_system.readlink(path->c_str(), target.data(), target.size()); });
        if (size < 0) {
            // What is no link, or is missing, is the target. The open behind this tells what else is wrong.
            return 1;
        }
        const std::string link = target.substr(0, static_cast<size_t>(size));
        *path = !link.empty() && link[0] == '/' ? link : FolderOf(*path) + link;
    }
    return kIniErrOpen;
}

// All of a file from where it stands.
int ReadAll(int file, std::string* text)
{
    constexpr size_t kPart = 65536;
    constexpr size_t kMost = size_t{kIniReadLimit} + kMarkSize;
    for (;;) {
        const size_t before = text->size();
        text->resize(before + std::max(kPart, before / 2));
        const ssize_t got = Retry([&] { return g_system.read(file, text->data() + before, text->size() - before); });
        text->resize(before + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got <= 0) {
            return got < 0 ? kIniErrRead : 1;
        }
        if (text->size() > kMost) {
            return kIniErrMemory;
        }
    }
}

// Why an open for writing, or a look at a path, failed.
int CodeOfError(int error)
{
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return kIniErrFile;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
        case ETXTBSY:
        case ENXIO:
            return kIniErrPermission;
        default:
            return kIniErrOpen;
    }
}

int OpenToRead(const char* path, bool mustExist, std::string* text)
{
    const int file = Retry([&] { return g_system.open(path, O_RDONLY | O_CLOEXEC, 0); });
    if (file < 0) {
        const bool isMissing = errno == ENOENT;
        return isMissing && !mustExist ? 1 : CodeOfError(errno) == kIniErrFile ? kIniErrFile : kIniErrOpen;
    }
    const int result = ReadAll(file, text);
    g_system.close(file);
    return result;
}

// Writes all bytes to the start of a file, and cuts off what it has behind them.
int WriteOver(int file, const std::string& text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = Retry(
            [&] { return g_system.pwrite(file, text.data() + done, text.size() - done, static_cast<off_t>(done)); });
        if (written <= 0) {
            return kIniErrWrite;
        }
        done += static_cast<size_t>(written);
    }
    if (Retry([&] { return g_system.ftruncate(file, static_cast<off_t>(text.size())); }) != 0) {
        return kIniErrWrite;
    }
    return SyncFile(file);
}

// A folder's names are on the disk then, as far as it can be opened for that.
int SyncFolder(const std::string& folder)
{
    const char* const path = folder.empty() ? "." : folder.c_str();
    const int file = Retry([&] { return g_system.open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); });
    if (file < 0) {
        return 1;
    }
    const int result = SyncFile(file);
    g_system.close(file);
    return result;
}

}  // namespace

EditFile::~EditFile()
{
    if (m_file < 0) {
        return;
    }
    // A file that was made to be locked goes again, unless somebody has written to it. Only with the lock, behind which
    // the others start over and make one of their own.
    struct stat status;
    if (m_isMade && StatusOf(m_file, &status) && status.st_size == 0 && IsNamedBy(m_target)) {
        Remove(m_target.c_str());
    }
    g_system.close(m_file);
}

int EditFile::Open(const char* path, int options, std::string* text)
{
    KZ_ASSERT(m_file < 0 && text->empty());
    m_options = options;
    if (path == nullptr || *path == 0) {
        return kIniErrFile;
    }
    if ((options & kIniEditReadOnly) != 0) {
        return OpenToRead(path, (options & kIniEditMustExist) != 0, text);
    }
    return OpenForEdit(path, text);
}

int EditFile::OpenForEdit(const std::string& path, std::string* text)
{
    int result = kStartOver;
    // Each start but the first follows from another's save, but a file system may tell a file's number wrong each time.
    for (int starts = 0; result == kStartOver && starts < kMostStarts; ++starts) {
        result = TryToLock(path);
    }
    if (result == kStartOver) {
        return kIniErrLock;
    }
    return result == 1 ? ReadAll(m_file, text) : result;
}

// Opens and locks what the path names: 1, a code, or kStartOver when it names another file by then.
int EditFile::TryToLock(const std::string& path)
{
    m_target = path;
    int result = FollowLinks(&m_target);
    if (result == 1) {
        result = OpenTarget();
    }
    if (result == 1 && Retry([&] { return g_system.flock(m_file, LOCK_EX); }) != 0) {
        result = kIniErrLock;
    } else if (result == 1 && !IsNamedBy(path)) {
        result = kStartOver;
    }
    if (result != 1 && m_file >= 0) {
        // A file that was made stays here: without the lock it is not known who else has it.
        g_system.close(m_file);
        m_file = -1;
        m_isMade = false;
    }
    return result;
}

// Opens the target or makes it: 1, a code, or kStartOver.
int EditFile::OpenTarget()
{
    KZ_ASSERT(m_file < 0 && !m_isMade);
    struct stat status;
    const char* const path = m_target.c_str();
    const bool exists = StatusOf(path, &status);
    // Asked before it is opened, because to open a device or a pipe may do something.
    if (exists && !S_ISREG(status.st_mode)) {
        return kIniErrPermission;
    }
    if (!exists && (errno != ENOENT || (m_options & kIniEditMustExist) != 0)) {
        return CodeOfError(errno);
    }
    const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | (exists ? 0 : O_CREAT | O_EXCL);
    m_file = Retry([&] { return g_system.open(path, flags, 0666); });
    if (m_file >= 0) {
        m_isMade = !exists;
        // A read of a pipe that took its place in between would have no end.
        const bool isRegular = !exists || (StatusOf(m_file, &status) && S_ISREG(status.st_mode));
        return isRegular ? 1 : kStartOver;
    }
    // It came or went in between, or a link took its place.
    const bool isRaced = exists ? errno == ENOENT || errno == ELOOP : errno == EEXIST;
    return isRaced ? kStartOver : CodeOfError(errno);
}

bool EditFile::IsNamedBy(const std::string& path) const
{
    struct stat named;
    struct stat mine;
    return StatusOf(path.c_str(), &named) && StatusOf(m_file, &mine) && named.st_dev == mine.st_dev &&
           named.st_ino == mine.st_ino;
}

int EditFile::Save(const std::string& text, const std::string& saved)
{
    m_lostRights = 0;
    if ((m_options & kIniEditReadOnly) != 0) {
        return kIniErrReadOnly;
    }
    if (m_file < 0) {
        return kIniErrNoFileName;
    }
    // Somebody who takes no part in the lock has put another file there, which another object may have locked by now.
    if (!IsNamedBy(m_target)) {
        return kIniErrLock;
    }
    int result = 1;
    if (text != saved) {
        result = (m_options & kIniEditInPlace) != 0 ? SaveInPlace(text, saved) : SaveByRename(text);
    }
    if (result == 1 && m_isMade) {
        result = SyncFolder(FolderOf(m_target));  // which has the name since it was made
    }
    m_isMade = m_isMade && result != 1;
    return result;
}

int EditFile::SaveByRename(const std::string& text)
{
    // Not on the stack, because a list of rights is long.
    const auto old = std::make_unique<OldFile>();
    const std::string folder = FolderOf(m_target);
    const std::string name = folder + "." + m_target.substr(folder.size()) + ".ini-edit";
    if (!StatusOf(m_file, &old->status)) {
        return kIniErrPermission;
    }
    if (old->status.st_nlink > 1) {
        return kIniErrLinks;
    }
    old->exists = true;
    old->ReadAcl(m_target.c_str());
    const int file = MakeAnew(name.c_str(), O_RDWR, 0600);
    if (file < 0) {
        return kIniErrTemporary;
    }
    OutputFile output(file, name.c_str());
    if (Retry([&] { return g_system.flock(file, LOCK_EX | LOCK_NB); }) != 0) {
        return kIniErrLock;
    }
    int result = output.Put(text.data(), text.size());
    if (result == 1) {
        result = output.Flush();
    }
    const int lostRights = result == 1 ? TakeRights(file, *old) : 0;
    // Behind the rights, so that they are on the disk too.
    if (result == 1) {
        result = output.Sync();
    }
    if (result == 1 && Retry([&] { return g_system.rename(name.c_str(), m_target.c_str()); }) != 0) {
        result = kIniErrPermission;
    }
    if (result != 1) {
        return result;
    }
    output.Keep();
    g_system.close(m_file);
    m_file = output.Release();
    m_isMade = false;
    m_lostRights = lostRights;
    return SyncFolder(folder);
}

int EditFile::SaveInPlace(const std::string& text, const std::string& saved) const
{
    const int result = WriteOver(m_file, text);
    // The disk may be full, but it had room for the old text.
    if (result != 1) {
        WriteOver(m_file, saved);
    }
    return result;
}

}  // namespace qkini
