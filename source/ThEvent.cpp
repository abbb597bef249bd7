// An event is a record with a verifier around a PlatformEvent, which does all the work. The record is what crosses the
// boundary: it knows a block that is no event, or was destroyed, by the verifier, and turns the platform's answers into
// codes. The platform's object never crosses, so a platform may choose any class.
//
// Every wait goes through without a noexcept function on its way, because a cancelled thread leaves a wait by
// unwinding.
#include "ThEvent.h"

#include <memory>
#include <new>

#include "KzAssert.h"
#include "KzErr.h"
#include "LiveCount.h"
#include "PlatformEvent.h"
#include "Report.h"
#include "ThInternals.h"
#include "Verifier.h"

namespace {

constexpr char kModule[] = "source/ThEvent";

constexpr uInt32 kEventVerifier = kz::FourCharCode("Evnt");

}  // namespace

struct ThEventRec {
    uInt32 verifier = kEventVerifier;
    PlatformEvent* platform = nullptr;  // owned; set before the record is handed out, and never changed
};

namespace {

bool IsEvent(ThEvent event)
{
    return event->verifier == kEventVerifier;
}

// The report of the calls that get a block which is no event. A signal and a failed tear-down have their own, because
// their readers look for another cause. Reports are made out of line, since the stack protector would guard each signal
// and wait for the sake of the builder.
[[gnu::cold, gnu::noinline]] bool ReportForeign()
{
    KZ_REPORT(kDbgFatal, 0x71D4C8A3);
    return false;
}

[[gnu::cold, gnu::noinline]] int32 ReportForeignSignal()
{
    KZ_REPORT(kDbgFatal, 0x1C8E72BD) << "Bad verifier in event.";
    return 0;
}

[[gnu::cold, gnu::noinline]] KzErr ReportWait(int answer)
{
    if (answer == kWaitFailed) {
        KZ_REPORT(kDbgFatal, 0xD29F14E6) << "Wait on event failed";
    } else {
        KZ_REPORT(kDbgWarning, 0x85B6307C) << "We were not supposed to retry here";
    }
    return kzErrArgument;
}

bool CheckEvent(ThEvent event)
{
    return IsEvent(event) || ReportForeign();
}

// Logs how long the event's woken threads took to run, where the platform keeps such figures. One that keeps none
// counts nothing, and nothing is logged.
void LogLatency(const PlatformEvent& platform)
{
    unsigned int count = 0;
    unsigned long long total = 0;
    unsigned long long min = 0;
    unsigned long long max = 0;
    platform.GetLatencyStats(&count, &total, &min, &max, nullptr);
    if (count == 0) {
        return;
    }
    constexpr double kMillisecondsPerNanosecond = 1e-6;
    const auto milliseconds = [](double nanoseconds) {
        return DbgFmtNum("%.5f", nanoseconds * kMillisecondsPerNanosecond);
    };
    KZ_LOG(kDbgLog) << "ThEventDestroy:"
                    << ": (ms) avg latency=" << milliseconds(static_cast<double>(total) / count) << " nEvents=" << count
                    << " min=" << milliseconds(static_cast<double>(min))
                    << " max=" << milliseconds(static_cast<double>(max));
}

}  // namespace

namespace kz {

ThEvent ThEventAdopt(PlatformEvent* platform)
{
    KZ_ASSERT(platform != nullptr);
    std::unique_ptr<ThEventRec> event(new (std::nothrow) ThEventRec);
    if (event == nullptr) {
        DestroyPlatformEvent(platform);
        return nullptr;
    }
    event->platform = platform;
    kz::CountLive(kz::Live::kEvents, 1);
    return event.release();
}

}  // namespace kz

KzErr ThEventCreate(ThEvent* out, void* /*reserved*/, int32 initialState)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    PlatformEvent* const platform = CreatePlatformEvent(initialState);
    if (platform == nullptr) {
        return kzErrMemoryFull;
    }
    *out = kz::ThEventAdopt(platform);
    return *out != nullptr ? kzErrNone : kzErrMemoryFull;
}

KzErr ThEventCreateWithCustomSignal(ThEvent* out, void* reserved, int32 initialState)
{
    return ThEventCreate(out, reserved, initialState);
}

void ThEventDestroy(ThEvent event)
{
    if (event == nullptr) {
        KZ_REPORT(kDbgError, 0xE7035B19) << "Bad ThEvent in ThEventDestroy()";
        return;
    }
    // The verifier goes first: of two threads that destroy one event only one comes past this line.
    if (!kz::SpoilVerifier(&event->verifier, kEventVerifier)) {
        ReportForeign();
        return;
    }
    KZ_ASSERT(event->platform != nullptr);
    LogLatency(*event->platform);
    const KzErr result = DestroyPlatformEvent(event->platform);
    if (result != kzErrNone) {
        KZ_REPORT(kDbgError, 0x48AF6D20) << "DestroyPlatformEvent failed with KzErr " << result;
    }
    delete event;
    kz::CountLive(kz::Live::kEvents, -1);
}

int32 ThEventSignal(ThEvent event)
{
    if (event == nullptr) {
        return 0;
    }
    if (!IsEvent(event)) {
        return ReportForeignSignal();
    }
    return event->platform->Signal();  // after which the event may be gone
}

int32 ThEventReset(ThEvent event)
{
    if (event == nullptr || !CheckEvent(event)) {
        return 0;
    }
    return event->platform->Reset();
}

KzErr ThEventWait(ThEvent event)
{
    return ThEventWaitWithTimeout(event, -1);
}

KzErr ThEventWaitWithTimeout(ThEvent event, int32 milliseconds)
{
    if (event == nullptr || !CheckEvent(event)) {
        return kzErrArgument;
    }
    // A platform may give values of its own, which ask for another try. None of ours does, so one that comes all the
    // same ends the wait: to try again could go on for ever.
    const int answer = event->platform->Wait(milliseconds);
    switch (answer) {
        case kWaitSignalled:
            return kzErrNone;
        case kWaitTimedOut:
            return kzErrTimeout;
        default:
            return ReportWait(answer);
    }
}

KzErr ThEventWaitAndPump(ThEvent event, ThEventPumpProc pump, int32 milliseconds, int32 arg)
{
    if (pump != nullptr) {
        pump(arg);
    }
    if (event == nullptr || !CheckEvent(event)) {
        return kzErrArgument;
    }
    return event->platform->WaitAndPump(pump, arg, milliseconds);
}

int32 ThEventMsgWaitMultiple(ThEvent event, ThEvent other, int32 milliseconds, int32 flags)
{
    if (event == nullptr || !CheckEvent(event) || (other != nullptr && !CheckEvent(other))) {
        return 1;
    }
    int which = 0;
    int detail = 0;
    PlatformEvent* const second = other != nullptr ? other->platform : nullptr;
    const int result = event->platform->MsgWaitMultiple(second, milliseconds, flags, &which, &detail);
    return result == kWaitSignalled ? which : 0;
}

ThEvent_Service::ThEvent_Service() : PlainService_T("ThEvent") {}

ThEvent_Service* ThEventService()
{
    return KZSingleton_T<ThEvent_Service>::Instance();
}
