// The stream behind a File_t, and the steps on it that change between reading, writing and positioning.
//
// A File_t is a FILE under another name: there is no record of our own around it, so an open file costs nothing beyond
// the stream. One thread at a time uses a stream.
#ifndef KZCORE_FILESTREAM_H
#define KZCORE_FILESTREAM_H

#include <cstdio>
#include <memory>

#include "KZTypes.h"
#include "KzErr.h"

namespace kz {

inline FILE* StreamOf(File_t file)
{
    return reinterpret_cast<FILE*>(file);
}

inline File_t FileOf(FILE* stream)
{
    return reinterpret_cast<File_t>(stream);
}

struct CloseStream {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using StreamOwner = std::unique_ptr<FILE, CloseStream>;

// Positions the stream, which writes what waits in it; `whence` is SEEK_SET, SEEK_CUR or SEEK_END. The error of either,
// with the stream's error flag cleared.
KzErr SeekStream(FILE* stream, int64 offset, int whence);

// The stream's position in bytes from the start, buffered output included.
KzErr TellStream(FILE* stream, int64* position);

// Makes a stream that was written to ready to be read, with what waited in it written.
KzErr FinishWriting(FILE* stream);

// Reads as FMRead does, but from `offset`, with the position left where it is, past the input buffer and in one system
// call as a rule: for reading here and there. What was written to the stream and waits in it is written first, so that
// the two ways of reading agree; a write that went past the stream would leave its input buffer stale. Codes as FMRead,
// kzErrArgument for a negative offset too.
KzErr FMReadAt(File_t file, int64 offset, int32 count, int32* got, void* buffer);

}  // namespace kz

#endif
