// What the library and its tests ask of events and locks and no host can call. It names their records and includes
// neither header, because both modules that answer it stand above it.
#ifndef KZCORE_THINTERNALS_H
#define KZCORE_THINTERNALS_H

#include "KZTypes.h"

struct ThEventRec;
struct ThMutexRec;
class PlatformEvent;

namespace kz {

// An event on `platform`, which it owns from then on; null, with `platform` destroyed, when out of memory. Any thread.
ThEventRec* ThEventAdopt(PlatformEvent* platform);

// The lock's count at this moment: -1 free, 0 held, n held with n waiters. The count may have changed by the time it is
// returned, so it tells only what no other thread can change meanwhile. Not for null. Any thread.
int32 ThMutexCount(ThMutexRec* mutex);

}  // namespace kz

#endif
