#include "IniOutput.h"

#include <errno.h>
#include <fcntl.h>

#include "IniSystem.h"
#include "IniTypes.h"

namespace qkini {

int MakeAnew(const char* path, int access, mode_t mode)
{
    KZ_ASSERT(access == O_WRONLY || access == O_RDWR);
    Remove(path);
    const int flags = access | O_CREAT | O_EXCL | O_CLOEXEC;  // which follows no link either
    return Retry([&] { return g_system.open(path, flags, mode); });
}

OutputFile::~OutputFile()
{
    if (m_file >= 0) {
        g_system.close(m_file);
    }
    if (!m_isKept) {
        Remove(m_path);
    }
}

int OutputFile::PutLine(void* context, const char* line)
{
    auto* const self = static_cast<OutputFile*>(context);
    const int result = self->Put(line, strlen(line));
    return result < 0 ? result : self->Put("\n", 1);
}

int OutputFile::Flush()
{
    for (size_t done = 0; done < m_used;) {
        const ssize_t written = Retry([&] { return g_system.write(m_file, m_buffer + done, m_used - done); });
        // A write of nothing is no progress, and trying again might have no end.
        if (written <= 0) {
            return kIniErrWrite;
        }
        done += static_cast<size_t>(written);
    }
    m_used = 0;
    return 1;
}

int OutputFile::Sync() const
{
    return SyncFile(m_file);
}

bool OutputFile::IsRegular() const
{
    struct stat status;
    return StatusOf(m_file, &status) && S_ISREG(status.st_mode);
}

int OutputFile::Close()
{
    return g_system.close(Release()) == 0 || errno == EINTR ? 1 : kIniErrWrite;
}

int SyncFile(int file)
{
    const bool isSynced = Retry([&] { return g_system.fsync(file); }) == 0 || errno == EINVAL;
    return isSynced ? 1 : kIniErrWrite;
}

}  // namespace qkini
