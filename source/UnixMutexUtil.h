// The library's only ways of setting up a pthread mutex or condition variable. Usable from C11 and C++20.
#ifndef KZCORE_UNIXMUTEXUTIL_H
#define KZCORE_UNIXMUTEXUTIL_H

#include <pthread.h>

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Sets up a mutex that is not recursive and, on a real-time target, inherits priorities. Before the host's interface
// is set the target is not known: that is reported at level 2 and taken as real-time. 0 or the system's error number.
KZ_EXPORT int kzcore_pthread_mutex_init(pthread_mutex_t* mutex);

// Sets up a condition variable with the system's defaults. 0 or the system's error number.
KZ_EXPORT int kzcore_pthread_cond_init(pthread_cond_t* condition);

KZ_EXTERN_C_END

#endif
