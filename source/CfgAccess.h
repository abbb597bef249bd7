// The one entry through which modules read configuration tokens, whether a configuration runs or not.
// Usable from C11 and C++20. Any thread.
#ifndef KZCORE_CFGACCESS_H
#define KZCORE_CFGACCESS_H

#include "KZTypes.h"

#ifdef __cplusplus
class ConfigManager;
#else
typedef struct ConfigManager ConfigManager;
#endif

KZ_EXTERN_C_BEGIN

// The running configuration, or null while none runs.
KZ_EXPORT ConfigManager* GetMainCfgAccess(void);

// Reads the token named by the counted string `token` as `type` ("Bool", "I32 ", ...; the four characters in memory
// order) into `out`. 0: read; kzErrTokenNotFound: not set; kzErrArgument: a null or empty token; kzErrGeneric: no
// configuration runs. `*out` is unchanged in all cases but the first, so a caller puts its default there.
KZ_EXPORT KzErr CfgGetDefault(uInt32 type, const unsigned char* token, void* out);

KZ_EXTERN_C_END

#endif
