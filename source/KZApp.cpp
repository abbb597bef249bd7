// The host's interface is one pointer, which code may ask for before the host has set it, while the library loads. The
// library never owns it and never checks that it still lives, because only the host can know.
#include "KZApp.h"

#include <atomic>
#include <cstddef>

#include "KzAssert.h"
#include "KzErr.h"
#include "NeverDestroyed.h"

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

// How far a structure of this size reaches, in members.
constexpr KZAppFunctions kLayout{};

template <typename Member>
bool Reaches(uInt32 size, Member KZAppFunctions::*member)
{
    const auto* const end = reinterpret_cast<const unsigned char*>(&(kLayout.*member) + 1);
    return static_cast<size_t>(end - reinterpret_cast<const unsigned char*>(&kLayout)) <= size;
}

// The interface of a host in C: asks the functions that were set last. There is one for the whole process, and only its
// pointer changes, so that a thread that asks meanwhile meets one structure or the other, each with its own context.
class FunctionsApp final : public KZApp {
public:
    void Set(const KZAppFunctions* functions) { mFunctions.store(functions, std::memory_order_release); }

    const char* GetAppSectionName() override
    {
        return Ask(&KZAppFunctions::getAppSectionName, &IKZApp::GetAppSectionName);
    }
    const char* GetAppBaseName() override { return Ask(&KZAppFunctions::getAppBaseName, &IKZApp::GetAppBaseName); }
    uInt32 GetAppAPIVersion() override { return Ask(&KZAppFunctions::getAppAPIVersion, &IKZApp::GetAppAPIVersion); }
    uInt32 GetAppEditorVersion() override
    {
        return Ask(&KZAppFunctions::getAppEditorVersion, &IKZApp::GetAppEditorVersion);
    }
    const char* GetAppVersionText() override
    {
        return Ask(&KZAppFunctions::getAppVersionText, &IKZApp::GetAppVersionText);
    }
    const char* GetBoundAppName() override { return Ask(&KZAppFunctions::getBoundAppName, &IKZApp::GetBoundAppName); }
    KzBool IsTopLevel() override { return Ask(&KZAppFunctions::isTopLevel, &IKZApp::IsTopLevel); }
    KzBool IsBoundApp() override { return Ask(&KZAppFunctions::isBoundApp, &IKZApp::IsBoundApp); }
    KzBool IsRunTime() override { return Ask(&KZAppFunctions::isRunTime, &IKZApp::IsRunTime); }
    KzBool IsFullFeatureRunTime() override
    {
        return Ask(&KZAppFunctions::isFullFeatureRunTime, &IKZApp::IsFullFeatureRunTime);
    }
    KzBool IsRealTimeTarget() override { return Ask(&KZAppFunctions::isRealTimeTarget, &IKZApp::IsRealTimeTarget); }
    void PrepareAppPath() override { return Ask(&KZAppFunctions::prepareAppPath, &IKZApp::PrepareAppPath); }
    RsrcFile GetDefaultResourceFile() override
    {
        return Ask(&KZAppFunctions::getDefaultResourceFile, &IKZApp::GetDefaultResourceFile);
    }

private:
    template <typename Result>
    Result Ask(Result (*KZAppFunctions::*member)(void*), Result (IKZApp::*query)())
    {
        const KZAppFunctions* const functions = mFunctions.load(std::memory_order_acquire);
        KZ_ASSERT(functions != nullptr);
        if (Reaches(functions->size, member) && functions->*member != nullptr) {
            return (functions->*member)(functions->context);
        }
        return (mDefaults.*query)();
    }

    KZDefaultApp mDefaults;
    std::atomic<const KZAppFunctions*> mFunctions{nullptr};  // borrowed of the host; null until it sets the first
};

FunctionsApp& TheFunctionsApp()
{
    static kz::NeverDestroyed<FunctionsApp> sApp;
    return *sApp;
}

}  // namespace

void KZAppInterfaceSet(IKZApp* app)
{
    gApp.store(app, std::memory_order_release);
}

KzErr KZAppInterfaceSetFunctions(const KZAppFunctions* functions)
{
    if (functions == nullptr) {
        KZAppInterfaceSet(nullptr);
        return kzErrNone;
    }
    if (functions->size < offsetof(KZAppFunctions, getAppSectionName)) {
        return kzErrArgument;
    }
    FunctionsApp& app = TheFunctionsApp();
    app.Set(functions);
    KZAppInterfaceSet(&app);
    return kzErrNone;
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
