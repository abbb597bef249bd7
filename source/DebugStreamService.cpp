// The service holds nothing but the pool's being open. It stands below the streams, because each stream makes sure of
// the service, and so it writes its own report by hand.
#include "DebugStreamService.h"

#include "BareReport.h"
#include "BoundedText.h"
#include "DebugStreamPool.h"

namespace {

constexpr char kModule[] = "source/DebugStreamService";

}  // namespace

DebugStream_Service::DebugStream_Service() : PlainService_T("DebugStream_Service") {}

KzErr DebugStream_Service::_Init()
{
    kz::OpenDebugStreamPool();
    return kzErrNone;
}

KzErr DebugStream_Service::_Uninit()
{
    // Before the pool closes, because a handler may report in its turn, and then still finds a buffer.
    if (const int32 failed = kz::FailedDebugStreamCheckouts(); failed != 0) {
        char text[256];
        kz::BoundedText rest(text, sizeof text);
        rest.AppendInteger(failed);
        rest.Append(
            " failed checkouts in CheckOutDebugStreamBuffer, which forced us to malloc the debugstream buffer. "
            "Talk to Dorin Vask.");
        KZ_REPORT_TEXT(kDbgWarning, 0x2C7A914E, text);
    }
    kz::CloseDebugStreamPool();
    return kzErrNone;
}

DebugStream_Service* DebugStreamService()
{
    return KZSingleton_T<DebugStream_Service>::Instance();
}
