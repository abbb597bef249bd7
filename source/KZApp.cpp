#include "KZApp.h"

#include <atomic>

namespace {

constinit std::atomic<IKZApp*> gApp{nullptr};

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
