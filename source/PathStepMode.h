// How path text is stepped through.
#ifndef KZCORE_PATHSTEPMODE_H
#define KZCORE_PATHSTEPMODE_H

#include <atomic>

namespace kz {

// True: PathNextChar and PathPrevChar step by whole characters; false: by bytes. Only the path service changes it, at
// its start and stop. Relaxed accesses suffice because it orders nothing else.
inline constinit std::atomic<bool> gPathsStepByCharacter{false};

}  // namespace kz

#endif
