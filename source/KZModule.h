// The library's start and stop. A host calls KZAppInterfaceSet, InitKZCoreBase, InitKZCoreAppSupport, then works,
// then calls UninitKZCoreAppSupport and UninitKZCoreBase; any number of times in one process. All four run on one
// thread, one at a time, while no other thread is inside the library. Any other order is harmless, and gives what each
// call says here; docs/host.md has the whole table.
#ifndef KZCORE_KZMODULE_H
#define KZCORE_KZMODULE_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Starts the base services in the order of their needs. kzErrMemoryFull when the registry can't be made, else the
// result of the first service that failed. What did start before a failure stays up until UninitKZCoreBase, after which
// a new start tries everything again. kzErrArgument, with nothing changed, while the base is up, or has failed to start
// and UninitKZCoreBase has not been called since.
KZ_EXPORT KzErr InitKZCoreBase(void);

// Stops application support, where it is still up, then the base services, newest first; harmless when nothing runs.
// Always 0: a service that fails to stop is destroyed all the same, and the others are stopped. Allocates nothing, but
// for the text of a report while all 16 report buffers are out.
// A service that the host has started itself stays up until the host's own Uninit. The host then holds by an Init each
// all that the service needs too, and what those need, or calls Uninit before this stop: what it doesn't hold stops.
KZ_EXPORT KzErr UninitKZCoreBase(void);

// Starts the application services; a second call does nothing. Always 0: a service whose start failed answers its
// own calls with failures, and is tried again by the start that follows a stop. While the base does not run no service
// is started, which is reported at level 2; a call after InitKZCoreBase then works as the first.
KZ_EXPORT KzErr InitKZCoreAppSupport(void);

// Stops the application services, newest first; does nothing unless they were started. Always 0. Allocates no more
// than UninitKZCoreBase.
KZ_EXPORT KzErr UninitKZCoreAppSupport(void);

KZ_EXTERN_C_END

#endif
