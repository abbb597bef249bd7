// The virtual operations of every interface stand in their documented slots, because hosts are built against them.
#include <gtest/gtest.h>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "KZApp.h"
#include "OutputBuf.h"
#include "PathCachedItem.h"
#include "PathFormatReader.h"
#include "PathTextFormat.h"
#include "PlatformEvent.h"
#include "PlatformMutex.h"
#include "ServiceRegistry.h"
#include "SlotOf.h"
#include "StackChain.h"
#include "StackDecoder.h"
#include "support/SlotOf.h"

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
    using Reader = WidePathFormat::PathFormatReader;
    ExpectSlots("PathFormatReader", 2, &Reader::PathBase, &Reader::FirstElement, &Reader::GetNext, &Reader::Reset,
                &Reader::Extract, &Reader::HasMore, &Reader::CharacterIsSeparator, &Reader::NextCharacterOffset,
                &Reader::CharacterPastPathType, &Reader::NextSeparatorCharacter, &Reader::GetActualElementName,
                &WidePathFormat::PathFormatReaderDotted::SkipToNextIfNeeded);
    using Writer = PathTextFormat;
    ExpectSlots("PathTextFormat", 2, &Writer::SetToAbsolutePath, &Writer::SetToRelativePath, &Writer::SetToUNCPath,
                &Writer::AppendElement, &Writer::AppendSeparator, &Writer::AppendAbbreviationMark, &Writer::AppendUpDir,
                &Writer::Finalize);
    using Item = PathCachedItem;
    ExpectSlots("PathCachedItem", 0, &Item::IsA);
    ExpectSlots("PathCachedItem", 3, &Item::Expired, &Item::Invalidate, &Item::Reset, &Item::Size, &Item::Rotten,
                &Item::Accepted);
    using Decoder = StackDecoder;
    ExpectSlots("StackDecoder", 2, &Decoder::SetDecodeLevel, &Decoder::GetStackCrawl, &Decoder::GetNameForAddress);
    using Event = PlatformEvent;
    ExpectSlots("PlatformEvent", 2, &Event::Signal, &Event::Reset, &Event::Wait, &Event::WaitAndPump,
                &Event::MsgWaitMultiple, &Event::GetLatencyStats, &Event::Init, &Event::Uninit);
    using Mutex = PlatformMutex;
    ExpectSlots("PlatformMutex", 2, &Mutex::Acquire, &Mutex::Release, &Mutex::Init, &Mutex::Uninit);
}

}  // namespace
