// The system's source of unique identifiers.
#ifndef KZCORE_PLATFORMUUID_H
#define KZCORE_PLATFORMUUID_H

#include "KZTypes.h"

namespace kz {

// Fills `bytes` with a random UUID (RFC 4122, version 4), in the order of its text. False, with `bytes` unchanged,
// when the system gives no random bytes. Any thread.
bool PlatformUuid(uInt8 (&bytes)[16]);

// Puts a source in place of the system's, null the system's back; for tests of what happens without one.
using UuidSource = bool (*)(uInt8 (&bytes)[16]);
void SetUuidSource(UuidSource source);

}  // namespace kz

#endif
