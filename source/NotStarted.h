// The answer of a call that has all it needs but a started library. Calls whose answer without a start is fixed
// otherwise, by what they are for (a refnum that is not open, a handle that is not known), don't ask here.
#ifndef KZCORE_NOTSTARTED_H
#define KZCORE_NOTSTARTED_H

#include "KZTypes.h"

namespace kz {

// Reports at level 2 that kzcore is not started, behind `what`, which names the call or what it can't do. Returns
// kzErrGeneric, which a service that was never started has as its result. Any thread.
KzErr NotStarted(const char* what);

}  // namespace kz

#endif
