#include "HiResClock.h"

#include "PlatformClock.h"

uInt32 MilliSecs(void)
{
    constexpr uInt64 kMicrosecondsPerMilli = 1'000;
    return static_cast<uInt32>(kz::Microseconds() / kMicrosecondsPerMilli);
}

int32 MillisecCmp(uInt32 a, uInt32 b)
{
    return static_cast<int32>(a - b);
}
