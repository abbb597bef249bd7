// Who may do what with a file: read from the file that a save replaces, and given to the new one. C library only.
#ifndef KZCORE_INIRIGHTS_H
#define KZCORE_INIRIGHTS_H

#include <stddef.h>
#include <sys/stat.h>

namespace qkini {

// What a save finds in the place that it writes to.
struct OldFile {
    // The list counts as unknown where it can't be read, or is longer than any that people make.
    enum class Acl { kNone, kKnown, kUnknown };
    static constexpr size_t kMostEntries = 1000;

    bool exists = false;
    struct stat status = {};  // if it exists: its mode, owner and group
    Acl acl = Acl::kNone;
    size_t aclSize = 0;                   // bytes of a known list
    char aclBytes[4 + kMostEntries * 8];  // a version and the entries, as the system stores them

    // Requires a file that exists.
    void ReadAcl(const char* path);
};

// Gives the new file the rights and owner of the old one, as far as the process may; nobody gets a right that the old
// file did not give. Returns what was lost, of IniLostRight, which is found by looking at the file, because a call can
// do less than it says.
int TakeRights(int file, const OldFile& old);

}  // namespace qkini

#endif
