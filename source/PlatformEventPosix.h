// PlatformEvent on a pthread mutex and condition variable.
#ifndef KZCORE_PLATFORMEVENTPOSIX_H
#define KZCORE_PLATFORMEVENTPOSIX_H

#include <pthread.h>

#include <atomic>

#include "PlatformClock.h"
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
    class Waiter;
    enum class Wakes { kGoOn, kEndIt };  // what a wake without a signal does to a wait

    bool ConsumeSignal();
    bool SeesSignal() const;
    bool SpinForSignal();
    bool AwaitSignal(int milliseconds);
    bool ConsumeBefore(const kz::Deadline& deadline, Wakes wakes);
    void WakeOne();
    void LetSignallersLeave();

    // Two words of 32 bits in one, so that one step changes both. The low one: how many threads wait. The high one: 0
    // signalled, 1 not, plus 2 for each signaller that is inside to wake a waiter.
    std::atomic<uInt64> mWord{kNotSignalled};
    pthread_cond_t mCondition{};
    pthread_mutex_t mMutex{};
    kz::AdaptiveSpin mSpin;

    static constexpr uInt64 kOneWaiter = 1;
    static constexpr uInt64 kNotSignalled = uInt64{1} << 32;
    static constexpr uInt64 kOneSignaller = uInt64{2} << 32;
};

#endif
