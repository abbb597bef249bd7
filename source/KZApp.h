// The interface through which the library asks its host what kind of program it runs in.
#ifndef KZCORE_KZAPP_H
#define KZCORE_KZAPP_H

#include "KZTypes.h"

#ifdef __cplusplus
// What a host implements. The library calls these operations from any thread once the interface is set.
// Texts are NUL-terminated and stay owned by the host. Version words: see GetAppEditorVersion.
class KZ_EXPORT KZApp {
public:
    virtual ~KZApp() = default;

    // The preference section of a plain editor process.
    virtual const char* GetAppSectionName() = 0;
    // The base of a run-time process's preference section, before "RT" or "FFRT".
    virtual const char* GetAppBaseName() = 0;
    // What KZGetAppAPIVersion returns.
    virtual uInt32 GetAppAPIVersion() = 0;
    // What KZGetAppEditorVersion returns; bits 12 to 15 are the stage, 8 for a release.
    virtual uInt32 GetAppEditorVersion() = 0;
    // The version text in the preference directory's name.
    virtual const char* GetAppVersionText() = 0;
    // The preference section of a bound application.
    virtual const char* GetBoundAppName() = 0;
    virtual KzBool IsTopLevel() = 0;
    virtual KzBool IsBoundApp() = 0;
    // True in a run-time process; ids of resource files are then taken to be sorted.
    virtual KzBool IsRunTime() = 0;
    virtual KzBool IsFullFeatureRunTime() = 0;
    // True on a real-time target; mutexes then inherit priorities.
    virtual KzBool IsRealTimeTarget() = 0;
    // Called before the process's path is read, on a real-time target only.
    virtual void PrepareAppPath() = 0;
    // The resource file used when a configuration enum string list names none.
    virtual RsrcFile GetDefaultResourceFile() = 0;
};

// The class's name outside a base clause, where the function KZApp hides it.
using IKZApp = KZApp;
#else
typedef struct IKZApp IKZApp;
#endif

KZ_EXTERN_C_BEGIN

// Stores the host's interface, which must stay valid until it is replaced; null clears it. Call before
// InitKZCoreBase, from one thread.
KZ_EXPORT void KZAppInterfaceSet(IKZApp* app);

// What was stored, or null. Any thread.
#ifdef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"  // the function is meant to hide the class
KZ_EXPORT class KZApp* KZApp(void);
#pragma GCC diagnostic pop
#else
KZ_EXPORT IKZApp* KZApp(void);
#endif

// Each asks `app`, or the stored interface when `app` is null; 0 when there is none. Any thread.
KZ_EXPORT uInt32 KZGetAppAPIVersion(IKZApp* app);
KZ_EXPORT uInt32 KZGetAppEditorVersion(IKZApp* app);
KZ_EXPORT KzBool KZGetIsTopLevel(IKZApp* app);
KZ_EXPORT KzBool KZGetIsBoundApp(IKZApp* app);
KZ_EXPORT KzBool KZGetIsRunTime(IKZApp* app);
KZ_EXPORT KzBool KZGetIsFullFeatureRunTime(IKZApp* app);

KZ_EXTERN_C_END

#endif
