// A user's host in its smallest form: starts the library, starts a service by itself twice, makes a handle, stops.

#include <kzcore/KZCore.h>

#include <cstdio>

namespace {

class Host : public KZApp {
public:
    const char* GetAppSectionName() override { return "Consumer"; }
    const char* GetAppBaseName() override { return "Consumer"; }
    uInt32 GetAppAPIVersion() override { return 0x01008000; }
    uInt32 GetAppEditorVersion() override { return 0x01008000; }
    const char* GetAppVersionText() override { return "1.0"; }
    const char* GetBoundAppName() override { return "Consumer"; }
    KzBool IsTopLevel() override { return 1; }
    KzBool IsBoundApp() override { return 0; }
    KzBool IsRunTime() override { return 0; }
    KzBool IsFullFeatureRunTime() override { return 0; }
    KzBool IsRealTimeTarget() override { return 0; }
    void PrepareAppPath() override {}
    RsrcFile GetDefaultResourceFile() override { return 0; }
};

}  // namespace

int main()
{
    Host host;
    KZAppInterfaceSet(&host);
    const KzErr err = InitKZCoreBase();
    // The second start is of a new object: the first stop has destroyed the first one, in the library's own eyes too.
    KzErr serviceErr = ResourceManagerService()->Init();
    ResourceManagerService()->Uninit();
    InitKZCoreAppSupport();
    serviceErr |= ResourceManagerService()->Init();
    serviceErr |= ResourceManagerService()->Uninit();
    UHandle handle = DSNewHandle(12);
    const long size = DSGetHandleSize(handle);
    DSDisposeHandle(handle);
    UninitKZCoreAppSupport();
    UninitKZCoreBase();
    std::printf("start gave %d, the handle has %ld bytes\n", static_cast<int>(err), size);
    return err == 0 && serviceErr == 0 && size == 12 ? 0 : 1;
}
