// The virtual operations of every interface stand in their documented slots, because hosts are built against them.
#include <gtest/gtest.h>

#include "KZApp.h"
#include "ServiceRegistry.h"
#include "SlotOf.h"
#include "StackChain.h"
#include "StackDecoder.h"

namespace {

// The members stand one behind the other, from slot `first` on.
template <typename... Members>
void ExpectSlots(const char* interface, long first, Members... members)
{
    for (const long slot : {kztest::SlotOf(members)...}) {
        EXPECT_EQ(slot, first++) << interface;
    }
}

TEST(InterfaceSlots, Stand)
{
    using Service = IServiceObject;
    ExpectSlots("IServiceObject", 0, &Service::Init, &Service::Uninit, &Service::GetName, &Service::GetDependencies);
    ExpectSlots("IServiceDependencyList", 0, &IServiceDependencyList::Add);
    using Registry = IServiceRegistry;
    ExpectSlots("IServiceRegistry", 0, &Registry::RunInit, &Registry::RunUninit, &Registry::Release,
                &Registry::AddService, &Registry::RemoveService, &Registry::ContainsService);
    using App = IKZApp;
    ExpectSlots("IKZApp", 2, &App::GetAppSectionName, &App::GetAppBaseName, &App::GetAppAPIVersion,
                &App::GetAppEditorVersion, &App::GetAppVersionText, &App::GetBoundAppName, &App::IsTopLevel,
                &App::IsBoundApp, &App::IsRunTime, &App::IsFullFeatureRunTime, &App::IsRealTimeTarget,
                &App::PrepareAppPath, &App::GetDefaultResourceFile);
    using Chain = StackChain;
    ExpectSlots("StackChain", 2, &Chain::Record, &Chain::RecordFrom, &Chain::FrameDecoder, &Chain::GetBuffer,
                &Chain::GetBufferEntries);
    using Decoder = StackDecoder;
    ExpectSlots("StackDecoder", 2, &Decoder::SetDecodeLevel, &Decoder::GetStackCrawl, &Decoder::GetNameForAddress);
}

}  // namespace
