// PlatformEvent on a pthread mutex and condition variable.
#ifndef KZCORE_PLATFORMEVENTPOSIX_H
#define KZCORE_PLATFORMEVENTPOSIX_H

#include <pthread.h>

#include <atomic>
#include <ctime>

#include "PlatformEvent.h"
#include "Spin.h"

class PlatformEventPosix final : public PlatformEvent {
public:
    int Signal() override;
    int Reset() override;
    int Wait(int milliseconds) override;
    int WaitAndPump(void (*pump)(int), int pumpArg, int milliseconds) override;
    int MsgWaitMultiple(PlatformEvent* other, int milliseconds, int flags, int* out1, int* out2) override;
    void GetLatencyStats(unsigned int* count, unsigned long long* total, unsigned long long* min,
                         unsigned long long* max, unsigned long long* last) const override;
    KzErr Init(int initialState) override;
    KzErr Uninit() override;

private:
    bool ConsumeSignal();
    bool SpinForSignal();
    int WaitStep(const timespec& deadline);

    std::atomic<int32> mWaiters{0};
    std::atomic<int32> mState{1};
    pthread_cond_t mCondition{};
    pthread_mutex_t mMutex{};
    kz::AdaptiveSpin mSpin;
};

#endif
