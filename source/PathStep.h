// Stepping through path text. Usable from C11 and C++20. Any thread.
#ifndef KZCORE_PATHSTEP_H
#define KZCORE_PATHSTEP_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// The index of the character behind the one at `index`: by whole UTF-8 characters once the path service runs, before
// that by bytes. The end of the text is the caller's to watch.
KZ_EXPORT int32 PathNextChar(const char* text, int32 index);

// The index of the character before `index`; 0 stays. A negative index is reported and gives 0.
KZ_EXPORT int32 PathPrevChar(const char* text, int32 index);

KZ_EXTERN_C_END

#endif
