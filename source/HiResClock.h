// Elapsed time: the coarse millisecond counter. Usable from C11 and C++20.
#ifndef KZCORE_HIRESCLOCK_H
#define KZCORE_HIRESCLOCK_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Milliseconds on a monotonic clock, from an unspecified start, wrapping at 32 bits. Any thread.
KZ_EXPORT uInt32 MilliSecs(void);

// a - b in milliseconds across the wrap: positive when `a` is the later time. Right for times less than 2^31 ms, some
// 24 days, apart. Any thread.
KZ_EXPORT int32 MillisecCmp(uInt32 a, uInt32 b);

KZ_EXTERN_C_END

#endif
