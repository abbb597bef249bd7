// The interface through which the library asks its host what kind of program it runs in. Usable from C11 and C++20.
//
// A host in C++ derives from KZDefaultApp and overrides what it cares for, or from KZApp and answers everything; one in
// C fills a KZAppFunctions.
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

// A host that answers as a plain top-level process of a release does, under one name: true for IsTopLevel, false for
// the other kinds of process, version 1.0, no default resource file.
class KZ_EXPORT KZDefaultApp : public KZApp {
public:
    // `name` is the preference section in each kind of process. It is kept as a pointer.
    constexpr explicit KZDefaultApp(const char* name = "KZDefaultApp") : mName(name) {}

    const char* GetAppSectionName() override { return mName; }
    const char* GetAppBaseName() override { return mName; }
    uInt32 GetAppAPIVersion() override { return kVersion; }
    uInt32 GetAppEditorVersion() override { return kVersion; }
    const char* GetAppVersionText() override { return "1.0"; }
    const char* GetBoundAppName() override { return mName; }
    KzBool IsTopLevel() override { return 1; }
    KzBool IsBoundApp() override { return 0; }
    KzBool IsRunTime() override { return 0; }
    KzBool IsFullFeatureRunTime() override { return 0; }
    KzBool IsRealTimeTarget() override { return 0; }
    void PrepareAppPath() override {}
    RsrcFile GetDefaultResourceFile() override { return 0; }

private:
    static constexpr uInt32 kVersion = 0x01008000;  // 1.0, a release

    const char* mName;
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

// The operations of KZApp as functions, in the same order, for hosts in C. Each gets `context`. A null member answers
// as KZDefaultApp does. Such a table is mostly a static constant:
//     static const KZAppFunctions app = {.size = sizeof app, .getAppSectionName = SectionName};
typedef struct KZAppFunctions {
    uInt32 size;  // of the structure that the host was built with; members behind it are taken as null
    void* context;
    const char* (*getAppSectionName)(void* context);
    const char* (*getAppBaseName)(void* context);
    uInt32 (*getAppAPIVersion)(void* context);
    uInt32 (*getAppEditorVersion)(void* context);
    const char* (*getAppVersionText)(void* context);
    const char* (*getBoundAppName)(void* context);
    KzBool (*isTopLevel)(void* context);
    KzBool (*isBoundApp)(void* context);
    KzBool (*isRunTime)(void* context);
    KzBool (*isFullFeatureRunTime)(void* context);
    KzBool (*isRealTimeTarget)(void* context);
    void (*prepareAppPath)(void* context);
    RsrcFile (*getDefaultResourceFile)(void* context);
} KZAppFunctions;

// Stores an interface of the library's own that calls these functions, in place of any other. The structure is
// borrowed, not copied: it stays valid, as its functions do, until another interface is set, or none; null clears the
// interface, as KZAppInterfaceSet(null) does. kzErrArgument, with nothing changed, for a size that does not reach
// behind `context`, as that of a structure of zeros; members behind those of this version are ignored. Call as
// KZAppInterfaceSet.
KZ_EXPORT KzErr KZAppInterfaceSetFunctions(const KZAppFunctions* functions);

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
