// The table holds the C library's own functions, and each call through it but close is made again after a signal,
// because an interrupted save would look like a full disk.
#include "IniSystem.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace qkini {

// Functions of our own stand where a header may declare the call as variadic or inline.
SystemCalls g_system = {
    [](const char* path, int flags, mode_t mode) { return open(path, flags, mode); },
    [](char* name) { return mkostemp(name, O_CLOEXEC); },
    &write,
    &fsync,
    &close,
    [](const char* path, struct stat* out) { return stat(path, out); },
    [](int file, struct stat* out) { return fstat(file, out); },
    &fchmod,
    &fchown,
    &getxattr,
    &fsetxattr,
    &fremovexattr,
    &rename,
    &unlink,
    &readlink,
    &flock,
    &read,
    &pwrite,
    &ftruncate,
};

int Remove(const char* path)
{
    return Retry([&] { return g_system.unlink(path); });
}

bool StatusOf(int file, struct stat* status)
{
    return Retry([&] { return g_system.fstat(file, status); }) == 0;
}

bool StatusOf(const char* path, struct stat* status)
{
    return Retry([&] { return g_system.stat(path, status); }) == 0;
}

}  // namespace qkini
