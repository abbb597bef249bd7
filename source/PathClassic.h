// C functions over PathRef for callers outside the class. No exception leaves them; a null path is an answer of false
// or an error, never a crash. Usable from C11 and C++20.
#ifndef KZCORE_PATHCLASSIC_H
#define KZCORE_PATHCLASSIC_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// True for a valid path that is not relative; false for null.
KZ_EXPORT KzBool FIsAbsPath(const PathRef* path);

// Destroys the object, if any, and nulls `*path`. A null argument is reported and otherwise harmless. Always 0.
KZ_EXPORT KzErr FDestroyPath(PathRef** path);

KZ_EXTERN_C_END

#endif
