// Calls of INI files to the system of which one fails, is interrupted, writes less than it should, or is the last one
// of its process.
#ifndef KZCORE_TESTS_SYSTEMFAULTS_H
#define KZCORE_TESTS_SYSTEMFAULTS_H

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "IniSystem.h"

namespace kztest {

using Calls = qkini::SystemCalls;
inline const Calls kReal = qkini::g_system;

// What becomes of the call whose turn it is.
struct Fault {
    int error;            // 0 for none
    std::size_t written;  // bytes of a write before it fails, is short or the process dies; 0 for a whole write
    bool kills;
    int at = 0;  // counted from 1
};
inline Fault gFault;
inline int gCalls;

// True when the call shall fail.
inline bool Fails()
{
    if (++gCalls != gFault.at) {
        return false;
    }
    if (gFault.kills) {
        kill(getpid(), SIGKILL);
    }
    errno = gFault.error;
    return gFault.error != 0;
}

// The call of the table, but for the one that shall fail.
template <auto call>
struct Faulty;
template <typename Result, typename... T, Result (*Calls::*call)(T...)>
struct Faulty<call> {
    static Result Call(T... arguments) { return Fails() ? -1 : (kReal.*call)(arguments...); }
};

template <auto... calls>
void MakeFaulty()
{
    ((qkini::g_system.*calls = &Faulty<calls>::Call), ...);
}

inline ssize_t FaultyWrite(int file, const void* bytes, std::size_t size)
{
    const bool isPart = gCalls + 1 == gFault.at && gFault.written > 0;
    const ssize_t written = isPart ? kReal.write(file, bytes, std::min(size, gFault.written)) : 0;
    return Fails() ? -1 : isPart ? written : kReal.write(file, bytes, size);
}

inline ssize_t FaultyWriteAt(int file, const void* bytes, std::size_t size, off_t at)
{
    const bool isPart = gCalls + 1 == gFault.at && gFault.written > 0;
    const ssize_t written = isPart ? kReal.pwrite(file, bytes, std::min(size, gFault.written), at) : 0;
    return Fails() ? -1 : isPart ? written : kReal.pwrite(file, bytes, size, at);
}

inline int FaultyClose(int file)
{
    const int error = Fails() ? gFault.error : 0;
    const int result = kReal.close(file);
    errno = error;
    return error == 0 ? result : -1;
}

inline int FaultyMkstemp(char* name)
{
    if (Fails()) {
        *std::strrchr(name, 'X') = 'a';  // as a real one does
        return -1;
    }
    return kReal.mkstemp(name);
}

inline void PlaceFault(const Fault& fault)
{
    gFault = fault;
    gCalls = 0;
    MakeFaulty<&Calls::open, &Calls::stat, &Calls::fstat, &Calls::fchmod, &Calls::fchown, &Calls::getxattr,
               &Calls::fsetxattr, &Calls::fremovexattr, &Calls::rename, &Calls::unlink, &Calls::readlink, &Calls::flock,
               &Calls::read, &Calls::ftruncate>();
    qkini::g_system.fsync = [](int) { return Fails() ? -1 : 0; };  // for speed
    qkini::g_system.write = &FaultyWrite;
    qkini::g_system.pwrite = &FaultyWriteAt;
    qkini::g_system.close = &FaultyClose;
    qkini::g_system.mkstemp = &FaultyMkstemp;
}

}  // namespace kztest

#endif
