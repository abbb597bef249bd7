// The buffers of the streams: sixteen in static storage, so that a report needs no allocator, and a log of the moments
// at which sixteen were too few.
#ifndef KZCORE_DEBUGSTREAMPOOL_H
#define KZCORE_DEBUGSTREAMPOOL_H

#include "KZTypes.h"

// One pooled buffer, which a stream claims by swapping `inUse` from 0 to 1.
struct DebugStreamBufferPoolRecord {
    uInt32 inUse;
    char text[256];
};

namespace kz {

// Claims a buffer; null while the pool is closed, or when all are taken. The latter counts as a failed checkout and,
// unless the host is a release, appends the stack from the caller's caller on to "DebugStreamClash.txt" in the current
// directory, a file that the first such failure after an opening empties. What is reported on this thread meanwhile, by
// the host's GetAppEditorVersion for one, is not logged so. Takes no lock and no memory while a buffer is free. Any
// thread.
DebugStreamBufferPoolRecord* CheckOutDebugStreamBuffer();

// Gives a claimed buffer back, also after the pool was closed. Any thread.
void CheckInDebugStreamBuffer(DebugStreamBufferPoolRecord* record);

// Open the pool, which sets the count of failed checkouts to 0, and close it. One thread at a time; others may claim
// and give back meanwhile.
void OpenDebugStreamPool();
void CloseDebugStreamPool();

// Whether the pool is open at this moment. Any thread.
bool IsDebugStreamPoolOpen();

// The failed checkouts since the pool was last opened. Any thread.
int32 FailedDebugStreamCheckouts();

}  // namespace kz

#endif
