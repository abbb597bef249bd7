// The handle checking level has a fourth value while nobody has read the environment. Load-time code of the host may
// run before that of the library, so a level that it has set is left alone; any level above the highest acts as the
// highest, so a handle that is made that early is looked at fully.
#include "MemorySettings.h"

#include <cstdlib>

#include "Literals.h"

constinit std::atomic<MemEventTraceProc> gMemEventTraceProc{nullptr};
constinit std::atomic<MemoryCheckCallback> gMemoryCheckCallback{nullptr};
constinit std::atomic<KzBool> gMemoryDebugger{0};
constinit std::atomic<KzBool> gStressHandles{0};
constinit std::atomic<KzBool> gMemoryInited{0};

namespace {

constexpr uInt32 kHandleCheckingUnread = kz::kHighestHandleChecking + 1;

void IgnoreMemFull(unsigned long /*size*/) {}

uInt32 HandleCheckingOf(const char* setting)
{
    // A text that is none of these is taken for a mistake, and the handles are looked at fully.
    const auto is = [setting](const char* text) { return kz::SameText(setting, text); };
    if (setting == nullptr) {
        return kz::kHighestHandleChecking;
    }
    if (is("resize") || is("1")) {
        return 1;
    }
    return is("") || is("off") || is("none") || is("0") ? 0 : kz::kHighestHandleChecking;
}

}  // namespace

constinit std::atomic<MemFullProc> gMemFullProc{&IgnoreMemFull};

namespace kz {

constinit std::atomic<uInt32> gHandleChecking{kHandleCheckingUnread};

MemFullProc ExchangeMemFullProc(MemFullProc proc)
{
    return gMemFullProc.exchange(proc == nullptr ? &IgnoreMemFull : proc);
}

}  // namespace kz

namespace {

bool ReadHandleChecking()
{
    // Exchanged only if nobody has set a level, and in one step, because a thread of the host may be setting one.
    uInt32 unread = kHandleCheckingUnread;
    return kz::gHandleChecking.compare_exchange_strong(unread, HandleCheckingOf(std::getenv("ZVHandleCheck")));
}
[[maybe_unused]] const bool gHandleCheckingRead = ReadHandleChecking();

}  // namespace
