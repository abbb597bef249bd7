// The host's interface, as a host in C fills it: what its functions answer, and what is answered for it.
#include "KZApp.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "KzErr.h"

namespace {

// What an interface answers, in the order of its operations; PrepareAppPath adds a letter to `*prepared`.
std::string Answers(IKZApp* app, const std::string* prepared)
{
    std::string all = std::string(app->GetAppSectionName()) + "," + app->GetAppBaseName();
    for (const uInt32 version : {app->GetAppAPIVersion(), app->GetAppEditorVersion()}) {
        all += "," + std::to_string(version);
    }
    all += std::string(",") + app->GetAppVersionText() + "," + app->GetBoundAppName() + ",";
    for (const KzBool flag : {app->IsTopLevel(), app->IsBoundApp(), app->IsRunTime(), app->IsFullFeatureRunTime(),
                              app->IsRealTimeTarget()}) {
        all += std::to_string(flag);
    }
    app->PrepareAppPath();
    return all + "," + *prepared + "," + std::to_string(app->GetDefaultResourceFile());
}

template <typename Result, int kValue>
Result Number(void* /*context*/)
{
    return kValue;
}

KZAppFunctions AllOf(std::string* context)
{
    KZAppFunctions app{};
    app.size = sizeof app;
    app.context = context;
    app.getAppSectionName = [](void*) { return "section"; };
    app.getAppBaseName = [](void*) { return "base"; };
    app.getAppAPIVersion = &Number<uInt32, 1>;
    app.getAppEditorVersion = &Number<uInt32, 2>;
    app.getAppVersionText = [](void*) { return "text"; };
    app.getBoundAppName = [](void*) { return "bound"; };
    app.isTopLevel = &Number<KzBool, 3>;
    app.isBoundApp = &Number<KzBool, 4>;
    app.isRunTime = &Number<KzBool, 5>;
    app.isFullFeatureRunTime = &Number<KzBool, 6>;
    app.isRealTimeTarget = &Number<KzBool, 7>;
    app.prepareAppPath = [](void* text) { *static_cast<std::string*>(text) += 'p'; };
    app.getDefaultResourceFile = &Number<RsrcFile, 8>;
    return app;
}

constexpr char kDefaults[] = "KZDefaultApp,KZDefaultApp,16809984,16809984,1.0,KZDefaultApp,10000,,0";

TEST(KZApp, FunctionsAnswer)
{
    std::string prepared;
    EXPECT_EQ(Answers(std::make_unique<KZDefaultApp>().get(), &prepared), kDefaults);

    const KZAppFunctions all = AllOf(&prepared);
    ASSERT_EQ(KZAppInterfaceSetFunctions(&all), kzErrNone);
    EXPECT_EQ(Answers(KZApp(), &prepared), "section,base,1,2,text,bound,34567,p,8");
    EXPECT_EQ(KZGetIsRunTime(nullptr), 5);

    KZAppFunctions none{};
    none.size = sizeof none;
    ASSERT_EQ(KZAppInterfaceSetFunctions(&none), kzErrNone);
    prepared.clear();
    EXPECT_EQ(Answers(KZApp(), &prepared), kDefaults);

    // The structures of other versions: what an older one lacks is not read, what a newer one adds is ignored.
    struct Newer {
        KZAppFunctions known;
        void (*added)();
    } newer{all, nullptr};
    newer.known.size = sizeof newer;
    KZAppFunctions older = all;
    for (const auto& [size, answers] : {
             std::pair<size_t, std::string>(sizeof newer, "section,base,1,2,text,bound,34567,p,8"),
             {offsetof(KZAppFunctions, getDefaultResourceFile), "section,base,1,2,text,bound,34567,p,0"},
             {offsetof(KZAppFunctions, getAppBaseName) + 7, "section,KZDefaultApp" + std::string(kDefaults + 25)},
             {offsetof(KZAppFunctions, getAppSectionName), kDefaults},
         }) {
        older.size = static_cast<uInt32>(size);
        prepared.clear();
        ASSERT_EQ(KZAppInterfaceSetFunctions(size == sizeof newer ? &newer.known : &older), kzErrNone) << size;
        EXPECT_EQ(Answers(KZApp(), &prepared), answers) << size;
    }

    IKZApp* const set = KZApp();
    none.size = offsetof(KZAppFunctions, getAppSectionName) - 1;
    EXPECT_EQ(KZAppInterfaceSetFunctions(&none), kzErrArgument);
    EXPECT_EQ(KZApp(), set);
    EXPECT_EQ(KZAppInterfaceSetFunctions(nullptr), kzErrNone);
    EXPECT_EQ(KZApp(), nullptr);
}

}  // namespace
