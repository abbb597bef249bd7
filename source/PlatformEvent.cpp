#include "PlatformEvent.h"

#include <memory>
#include <new>

#include "KzErr.h"
#include "PlatformEventPosix.h"

PlatformEvent* CreatePlatformEvent(int initialState)
{
    std::unique_ptr<PlatformEvent> event(new (std::nothrow) PlatformEventPosix);
    if (event == nullptr || event->Init(initialState) != kzErrNone) {
        return nullptr;
    }
    return event.release();
}

KzErr DestroyPlatformEvent(PlatformEvent* event)
{
    if (event == nullptr) {
        return kzErrNone;
    }
    const KzErr result = event->Uninit();
    delete event;
    return result;
}
