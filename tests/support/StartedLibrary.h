// A host, and the library started in it, for every program of ours that runs the library: tests, benchmarks, harnesses.
#ifndef KZCORE_TESTS_STARTEDLIBRARY_H
#define KZCORE_TESTS_STARTEDLIBRARY_H

#include "KZApp.h"
#include "KZModule.h"
#include "KzErr.h"

namespace kztest {

// An editor process of a release build, unless a test changes a field.
class TestHost : public KZDefaultApp {
public:
    TestHost() : KZDefaultApp("KZCoreTests") {}

    uInt32 GetAppAPIVersion() override { return apiVersion; }
    uInt32 GetAppEditorVersion() override { return editorVersion; }
    KzBool IsTopLevel() override { return isTopLevel; }
    KzBool IsBoundApp() override { return isBoundApp; }
    KzBool IsRunTime() override { return isRunTime; }
    KzBool IsFullFeatureRunTime() override { return isFullFeatureRunTime; }
    KzBool IsRealTimeTarget() override { return isRealTimeTarget; }

    uInt32 apiVersion = KZDefaultApp::GetAppAPIVersion();
    uInt32 editorVersion = KZDefaultApp::GetAppEditorVersion();  // stage 8: a release
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
