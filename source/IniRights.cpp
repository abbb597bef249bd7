// A save writes a new file and renames it over the old one, so the old one's rights must be given to the new one by
// hand. The rule that may never break: nobody, neither a member of some group nor all others, may do more with the new
// file than with the old one, even where the process lacks the right to make the two alike. So what can't be kept is
// taken away, and told in the result.
//
// The new file was made for its owner alone, and each step below widens it only by what the old file's own rights give.

#include "IniRights.h"

#include <errno.h>
#include <unistd.h>

#include "IniSystem.h"
#include "IniTypes.h"
#include "KzAssert.h"

namespace qkini {

namespace {

constexpr char kAclName[] = "system.posix_acl_access";

// The call found no access control list, because the file has none or the file system knows of none.
bool HasNoAcl()
{
    return errno == ENODATA || errno == ENOTSUP;
}

constexpr mode_t kModeBits = 07777;

// The old file's mode, as far as it may be given to a file of this owner and group.
mode_t ModeToKeep(const struct stat& old, const struct stat& now, bool hasOldAcl)
{
    mode_t mode = old.st_mode & kModeBits;
    // Under a list the group's bits are the list's mask and no rights of the group, and those whom the list kept out
    // are among all others without it. So where the old list is lost, the owner alone keeps rights.
    if (!hasOldAcl) {
        mode &= ~static_cast<mode_t>(S_IRWXG | S_IRWXO);
    }
    if (now.st_uid != old.st_uid) {
        mode &= ~static_cast<mode_t>(S_ISUID);
    }
    // The old group's rights are not for another group, and the old group's members are among all others from here on.
    // Both get only what the old group and all others had alike.
    if (now.st_gid != old.st_gid) {
        const mode_t common = (mode >> 3) & mode & S_IRWXO;
        mode = (mode & (S_ISUID | S_ISVTX | S_IRWXU)) | (common << 3) | common;
    }
    KZ_ASSERT((mode & ~(old.st_mode & kModeBits)) == 0);
    return mode;
}

// Gives the new file the old one's access control list, or takes away one that the folder gave it. Returns whether both
// have the same list then. Another group gets none, because the list's entry for the group was meant for the old one.
bool TakeAcl(int file, const OldFile& old, bool hasOldGroup)
{
    KZ_ASSERT(old.exists);
    if (old.acl == OldFile::Acl::kKnown && hasOldGroup &&
        Retry([&] { return g_system.fsetxattr(file, kAclName, old.aclBytes, old.aclSize, 0); }) == 0) {
        return true;
    }
    const bool isRemoved = Retry([&] { return g_system.fremovexattr(file, kAclName); }) == 0 || HasNoAcl();
    return isRemoved && old.acl == OldFile::Acl::kNone;
}

// Tries to make the new file the old owner's and the old group's. Each alone, because many may give a file to a group
// who may not give it to another owner. What became of it is seen in the file's status.
void TakeOwners(int file, const struct stat& old, const struct stat& now)
{
    if (now.st_gid != old.st_gid) {
        Retry([&] { return g_system.fchown(file, static_cast<uid_t>(-1), old.st_gid); });
    }
    if (now.st_uid != old.st_uid) {
        Retry([&] { return g_system.fchown(file, old.st_uid, static_cast<gid_t>(-1)); });
    }
}

}  // namespace

void OldFile::ReadAcl(const char* path)
{
    KZ_ASSERT(exists);
    const ssize_t size = Retry([&] { return g_system.getxattr(path, kAclName, aclBytes, sizeof aclBytes); });
    acl = size >= 0 ? Acl::kKnown : HasNoAcl() ? Acl::kNone : Acl::kUnknown;
    aclSize = size >= 0 ? static_cast<size_t>(size) : 0;
}

int TakeRights(int file, const OldFile& old)
{
    constexpr int kAll = kIniLostOwner | kIniLostGroup | kIniLostMode;
    struct stat now;
    if (!old.exists) {
        return 0;
    }
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    TakeOwners(file, old.status, now);
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    const bool hasOldAcl = TakeAcl(file, old, now.st_gid == old.status.st_gid);
    // Last, because a change of the owner, group or list takes bits away. A system that refuses the set-ID bits refuses
    // the whole mode with them; the plain rights are then tried alone.
    const mode_t mode = ModeToKeep(old.status, now, hasOldAcl);
    if (Retry([&] { return g_system.fchmod(file, mode); }) != 0) {
        Retry([&] { return g_system.fchmod(file, mode & (S_IRWXU | S_IRWXG | S_IRWXO)); });
    }
    if (!StatusOf(file, &now)) {
        return kAll;
    }
    const bool hasOldMode = ((now.st_mode ^ old.status.st_mode) & kModeBits) == 0 && hasOldAcl;
    return (now.st_uid != old.status.st_uid ? kIniLostOwner : 0) |
           (now.st_gid != old.status.st_gid ? kIniLostGroup : 0) | (hasOldMode ? 0 : kIniLostMode);
}

}  // namespace qkini
