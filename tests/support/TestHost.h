// The host that tests run the library in.
#ifndef KZCORE_TESTS_TESTHOST_H
#define KZCORE_TESTS_TESTHOST_H

#include <gtest/gtest.h>

#include "KZApp.h"
#include "KZModule.h"
#include "KzErr.h"
#include "LockOrder.h"
#include "MemoryChecks.h"
#include "PathItemStorage.h"
#include "ResourceChecks.h"

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
class RunningLibrary {
public:
    RunningLibrary()
    {
        KZAppInterfaceSet(&host);
        baseResult = InitKZCoreBase();
        InitKZCoreAppSupport();
    }
    // All that it keeps is whole at the end.
    ~RunningLibrary()
    {
        for (const char* const fault :
             {kz::MemoryFault(), kz::PathBlocksFault(), kz::ResourceFault(), kz::LockGraphFault()}) {
            EXPECT_STREQ(fault, nullptr);
        }
        UninitKZCoreAppSupport();
        UninitKZCoreBase();
        KZAppInterfaceSet(nullptr);
    }
    RunningLibrary(const RunningLibrary&) = delete;
    RunningLibrary& operator=(const RunningLibrary&) = delete;

    TestHost host;
    KzErr baseResult = kzErrGeneric;
};

}  // namespace kztest

#endif
