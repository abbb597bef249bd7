// A stream has one position and one buffer for both directions, and C asks for a positioning between writing and
// reading. SeekStream is the only way in which the library positions a stream, so it is also the only place where
// output that waits meets its failure outside a close.
#include "FileStream.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>

#include "KzAssert.h"

namespace kz {

// The error flag is cleared because the failure is told here: left set, it would be taken by a later read for its own.
KzErr SeekStream(FILE* stream, int64 offset, int whence)
{
    KZ_ASSERT(stream != nullptr);
    if (fseeko(stream, static_cast<off_t>(offset), whence) == 0) {
        return kzErrNone;
    }
    const int reason = errno;
    clearerr(stream);
    return UnixToKZErr(reason);
}

KzErr TellStream(FILE* stream, int64* position)
{
    KZ_ASSERT(stream != nullptr && position != nullptr);
    const off_t at = ftello(stream);
    if (at < 0) {
        return UnixToKZErr(errno);
    }
    *position = at;
    return kzErrNone;
}

// A seek to where the stream already is writes what waits and moves nothing. A stream that was not written to is left
// alone, because the seek would drop its input buffer.
KzErr FinishWriting(FILE* stream)
{
    KZ_ASSERT(stream != nullptr);
    return __fwriting(stream) != 0 ? SeekStream(stream, 0, SEEK_CUR) : kzErrNone;
}

KzErr FMReadAt(File_t file, int64 offset, int32 count, int32* got, void* buffer)
{
    int32 done = 0;
    if (got != nullptr) {
        *got = 0;
    }
    if (file == nullptr || offset < 0 || count < 0 || (buffer == nullptr && count > 0)) {
        return kzErrArgument;
    }
    FILE* const stream = StreamOf(file);
    if (FinishWriting(stream) != kzErrNone) {
        return kzErrIO;
    }
    // A call may read less than it was asked for, at the end of the file or because a signal came in between. Only one
    // that reads nothing says that the file has ended.
    while (done < count) {
        const ssize_t now =
            pread(fileno(stream), static_cast<char*>(buffer) + done, static_cast<size_t>(count - done), offset + done);
        if (now < 0 && errno == EINTR) {
            continue;
        }
        if (now <= 0) {
            return now < 0 ? kzErrIO : kzErrEndOfFile;
        }
        done += static_cast<int32>(now);
        if (got != nullptr) {
            *got = done;
        }
    }
    return kzErrNone;
}

}  // namespace kz
