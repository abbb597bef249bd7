// The host's interface is one pointer, which code may ask for before the host has set it, while the library loads. The
// library never owns it and never checks that it still lives, because only the host can know.
#include "KZApp.h"

#include <atomic>

namespace {

// Release and acquire, because a thread that finds the pointer calls through the table that its setter has written.
constinit std::atomic<IKZApp*> gApp{nullptr};

// All queries go through here, so that each answers 0 and not a fault when there is no host.
template <typename Result>
Result Ask(IKZApp* app, Result (IKZApp::*query)())
{
    if (app == nullptr) {
        app = KZApp();
    }
    return app == nullptr ? Result{0} : (app->*query)();
}

}  // namespace

void KZAppInterfaceSet(IKZApp* app)
{
    gApp.store(app, std::memory_order_release);
}

IKZApp* KZApp()
{
    return gApp.load(std::memory_order_acquire);
}

uInt32 KZGetAppAPIVersion(IKZApp* app)
{
    return Ask(app, &IKZApp::GetAppAPIVersion);
}

uInt32 KZGetAppEditorVersion(IKZApp* app)
{
    return Ask(app, &IKZApp::GetAppEditorVersion);
}

KzBool KZGetIsTopLevel(IKZApp* app)
{
    return Ask(app, &IKZApp::IsTopLevel);
}

KzBool KZGetIsBoundApp(IKZApp* app)
{
    return Ask(app, &IKZApp::IsBoundApp);
}

KzBool KZGetIsRunTime(IKZApp* app)
{
    return Ask(app, &IKZApp::IsRunTime);
}

KzBool KZGetIsFullFeatureRunTime(IKZApp* app)
{
    return Ask(app, &IKZApp::IsFullFeatureRunTime);
}
