// A file that is being written and does not stay unless it is whole. C library only.
#ifndef KZCORE_INIOUTPUT_H
#define KZCORE_INIOUTPUT_H

#include <stddef.h>
#include <string.h>
#include <sys/types.h>

#include "KzAssert.h"

namespace qkini {

// Makes a file of that name anew, to be written: what has the name, a file that a crash has left or a link that
// somebody has put there, is removed first. A descriptor, or -1. `access` is O_WRONLY or O_RDWR.
int MakeAnew(const char* path, int access, mode_t mode);

// Owns a descriptor, and removes the file unless it is kept in the end. The path is the caller's. Results are 1 or
// kIniErrWrite.
class OutputFile {
public:
    OutputFile(int file, const char* path) : m_file(file), m_path(path) {}
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    int file() const { return m_file; }

    // An IniOutputFunction, whose context is the file.
    static int PutLine(void* context, const char* line);

    int Put(const char* bytes, size_t size)
    {
        // A full buffer is written at once, so that there is room for a byte whenever this begins.
        KZ_ASSERT(m_used < sizeof m_buffer);
        while (size > 0) {
            const size_t room = sizeof m_buffer - m_used;
            const size_t part = size < room ? size : room;
            memcpy(m_buffer + m_used, bytes, part);
            m_used += part;
            bytes += part;
            size -= part;
            if (m_used == sizeof m_buffer) {
                const int result = Flush();
                if (result < 0) {
                    return result;
                }
            }
        }
        return 1;
    }

    int Flush();
    int Sync() const;

    // Whether it is a file, and not a device or a pipe.
    bool IsRegular() const;

    int Close();

    // Gives the descriptor away instead.
    int Release()
    {
        const int file = m_file;
        m_file = -1;
        return file;
    }

    void Keep() { m_isKept = true; }

private:
    int m_file;
    const char* const m_path;
    bool m_isKept = false;
    size_t m_used = 0;
    char m_buffer[8192];
};

// The data of a descriptor is on the disk then. Pipes and the like, and some file systems' folders, have nothing to
// sync.
int SyncFile(int file);

}  // namespace qkini

#endif
