// Adds up how long signalled threads took to run, for platform events that keep such figures.
#ifndef KZCORE_PLATFORMEVENTTIMER_H
#define KZCORE_PLATFORMEVENTTIMER_H

#include <algorithm>

#include "HiResClock.h"

// Figures are in ticks. One thread at a time.
class PlatformEventTimer {
public:
    // A latency begins.
    void Start() { HRWallClockTime(&mStart); }

    // It ends. A clock that reads less than at the start is ignored.
    void RecordLatency()
    {
        const HRTime now = HRWallClockTime(nullptr);
        if (HRTimeCompare(now, mStart) < 0) {
            return;
        }
        HRTime latency;
        HRTimeSubtract(&now, &mStart, &latency);
        HRTimeAdd(&mTotal, &latency, &mTotal);
        mMaximum = std::max(mMaximum, latency);
        mMinimum = mCount == 0 ? latency : std::min(mMinimum, latency);
        ++mCount;
    }

    // Outputs may be null.
    void GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                         unsigned long long* max) const
    {
        const auto give = [](auto* out, auto value) {
            if (out != nullptr) {
                *out = value;
            }
        };
        give(count, mCount);
        give(total, mTotal);
        give(min, mMinimum);
        give(max, mMaximum);
    }

private:
    HRTime mStart = 0;
    HRTime mTotal = 0;
    HRTime mMaximum = 0;
    HRTime mMinimum = 0;
    uInt32 mCount = 0;
};

#endif
