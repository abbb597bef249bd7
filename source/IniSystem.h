// What INI files ask of the system to be saved, and edited under a lock, in a table so that tests can make each call
// fail: a disk that is full, a right that is missing, a signal in between. C library only.
//
// The engine's reading goes through the C library's streams and is not in the table, but for the status of a file.
#ifndef KZCORE_INISYSTEM_H
#define KZCORE_INISYSTEM_H

#include <errno.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace qkini {

// Each as the call of its name, of POSIX or, for extended attributes, of Linux: -1 and errno for a failure.
struct SystemCalls {
    int (*open)(const char* path, int flags, mode_t mode);
    int (*mkstemp)(char* name);  // closed by exec, as are files from open with O_CLOEXEC
    ssize_t (*write)(int file, const void* bytes, size_t size);
    int (*fsync)(int file);
    int (*close)(int file);
    int (*stat)(const char* path, struct stat* out);
    int (*fstat)(int file, struct stat* out);
    int (*fchmod)(int file, mode_t mode);
    int (*fchown)(int file, uid_t owner, gid_t group);
    ssize_t (*getxattr)(const char* path, const char* name, void* value, size_t size);
    int (*fsetxattr)(int file, const char* name, const void* value, size_t size, int flags);
    int (*fremovexattr)(int file, const char* name);
    int (*rename)(const char* from, const char* to);
    int (*unlink)(const char* path);
    ssize_t (*readlink)(const char* path, char* target, size_t size);
    int (*flock)(int file, int operation);
    ssize_t (*read)(int file, void* bytes, size_t size);
    ssize_t (*pwrite)(int file, const void* bytes, size_t size, off_t at);
    int (*ftruncate)(int file, off_t size);
};

// Changed by tests only, while nothing saves.
extern SystemCalls g_system;

// The result of the call, which is made again as long as a signal interrupts it. Not for close, which ends the
// descriptor even then. Results below 0 are failures.
template <typename Call>
auto Retry(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// Through the table: 0 or -1 and errno; and whether a file's status is known.
int Remove(const char* path);
bool StatusOf(int file, struct stat* status);
bool StatusOf(const char* path, struct stat* status);

}  // namespace qkini

#endif
