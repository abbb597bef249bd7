// The library's start and stop. A host calls KZAppInterfaceSet, InitKZCoreBase, InitKZCoreAppSupport, then works,
// then calls UninitKZCoreAppSupport and UninitKZCoreBase. All four run on one thread, one at a time.
#ifndef KZCORE_KZMODULE_H
#define KZCORE_KZMODULE_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Starts the base services in the order of their needs. kzErrMemoryFull when the registry can't be made, else the
// result of the first service that failed; what did start then stays up until UninitKZCoreBase. kzErrArgument, with
// nothing changed, when called again without UninitKZCoreBase.
KZ_EXPORT KzErr InitKZCoreBase(void);

// Stops the base services in reverse; harmless when nothing runs. Always 0.
KZ_EXPORT KzErr UninitKZCoreBase(void);

// Starts the application services; a second call does nothing. Always 0: a service whose start failed answers its
// own calls with failures.
KZ_EXPORT KzErr InitKZCoreAppSupport(void);

// Stops the application services in reverse; does nothing unless they were started. Always 0.
KZ_EXPORT KzErr UninitKZCoreAppSupport(void);

KZ_EXTERN_C_END

#endif
