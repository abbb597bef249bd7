// A host, and the library started in it, for every program of ours that runs the library: tests, benchmarks, harnesses.
#ifndef KZCORE_TESTS_STARTEDLIBRARY_H
#define KZCORE_TESTS_STARTEDLIBRARY_H

#include "KZApp.h"
#include "KZModule.h"
#include "KzErr.h"

namespace kztest {

// An editor process of a release build, unless a test changes a field.
class TestHost : public KZApp {
public:
    const char* GetAppSectionName() override { return "KZCoreTests"; }
    const char* GetAppBaseName() override { return "KZCoreTests"; }
    uInt32 GetAppAPIVersion() override { return apiVersion; }
    uInt32 GetAppEditorVersion() override { return editorVersion; }
    const char* GetAppVersionText() override { return "1.0"; }
    const char* GetBoundAppName() override { return "KZCoreTestsApp"; }
    KzBool IsTopLevel() override { return isTopLevel; }
    KzBool IsBoundApp() override { return isBoundApp; }
    KzBool IsRunTime() override { return isRunTime; }
    KzBool IsFullFeatureRunTime() override { return isFullFeatureRunTime; }
    KzBool IsRealTimeTarget() override { return isRealTimeTarget; }
    void PrepareAppPath() override {}
    RsrcFile GetDefaultResourceFile() override { return 0; }

    uInt32 apiVersion = 0x01008000;
    uInt32 editorVersion = 0x01008000;  // stage 8: a release
    KzBool isTopLevel = 1;
    KzBool isBoundApp = 0;
    KzBool isRunTime = 0;
    KzBool isFullFeatureRunTime = 0;
    KzBool isRealTimeTarget = 0;
};

// The host is set, and the library is up, for as long as this lives.
class StartedLibrary {
public:
    StartedLibrary()
    {
        KZAppInterfaceSet(&host);
        baseResult = InitKZCoreBase();
        InitKZCoreAppSupport();
    }
    ~StartedLibrary()
    {
        UninitKZCoreAppSupport();
        UninitKZCoreBase();
        KZAppInterfaceSet(nullptr);
    }
    StartedLibrary(const StartedLibrary&) = delete;
    StartedLibrary& operator=(const StartedLibrary&) = delete;

    TestHost host;
    KzErr baseResult = kzErrGeneric;
};

}  // namespace kztest

#endif
