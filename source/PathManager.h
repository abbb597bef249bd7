// The service that starts the path layer, and the comparison of file names.
// Usable from C11 and C++20. Any thread.
#ifndef KZCORE_PATHMANAGER_H
#define KZCORE_PATHMANAGER_H

#include "KZTypes.h"
#include "PathStep.h"
#include "StringPStr.h"

#ifdef __cplusplus
#include "ServiceObject.h"
#endif

KZ_EXTERN_C_BEGIN

// True if the file names are equal. File names compare without case: the first `n` bytes of C strings, whole C strings;
// FileNameEqual of StringPStr.h compares counted strings.
KZ_EXPORT KzBool FileNameNEqual(const char* a, const char* b, int32 n);
KZ_EXPORT KzBool FileNameCStrEqual(const char* a, const char* b);

KZ_EXTERN_C_END

#ifdef __cplusplus

// Starts the path layer: the locale, the stepping by character, and the tree of paths.
class PathManager_Service : public PlainService_T<PathManager_Service> {
    friend KZ_GammaPolicy<PathManager_Service>;

    PathManager_Service();
    // Sets the process's locale, and LANG where there is none, before the tree.
    KzErr _Init() override;
    KzErr _Uninit() override;
};

KZ_EXPORT PathManager_Service* PathManagerService();

#endif

#endif
