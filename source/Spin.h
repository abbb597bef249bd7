// A bounded spin before a thread goes to sleep: what it waits for often comes sooner than sleeping and waking take.
#ifndef KZCORE_SPIN_H
#define KZCORE_SPIN_H

#include <atomic>

#include "KZTypes.h"

namespace kz {

// Tells the processor that a loop waits.
inline void SpinPause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ __volatile__("yield");
#endif
}

// Whether another processor could bring what a spin waits for, and spins are not turned off.
bool SpinsPay();

// Turns spins off, so that every wait sleeps, and on again; for tests of sleeping and waking.
void AllowSpins(bool allow);

// How long it pays to spin for one thing, learned from how long its spins took: a try that was in vain shortens the
// next one, a success lengthens it. Two threads that answer each other spin in vain once both have gone to sleep,
// because each wakes later than the other spins; so while tries are in vain every sixteenth one is long. Relaxed is
// enough, because an estimate orders nothing and a lost update only delays the learning. Any thread.
class AdaptiveSpin {
public:
    // Whether `isThere()` came true.
    template <typename Condition>
    bool Until(Condition isThere)
    {
        if (!SpinsPay()) {
            return false;
        }
        const uInt32 failures = mFailures.load(std::memory_order_relaxed);
        const int32 learned = mLimit.load(std::memory_order_relaxed);
        const int32 limit = failures % kLongTurn == kLongTurn - 1 ? kMost : learned;
        for (int32 i = 0; i < limit; ++i) {
            if (isThere()) {
                // Twice as long as it took, so that the next spin still succeeds when it takes somewhat longer.
                const int32 wanted = i * 2 + kFewest;
                Learn(learned, wanted < kMost ? wanted : kMost);
                if (failures != 0) {
                    mFailures.store(0, std::memory_order_relaxed);
                }
                return true;
            }
            SpinPause();
        }
        Learn(learned, kFewest);
        mFailures.store(failures + 1, std::memory_order_relaxed);
        return false;
    }

private:
    static constexpr int32 kMost = 2000;  // pauses
    static constexpr int32 kFewest = 50;
    static constexpr uInt32 kLongTurn = 16;

    // Moves the limit a quarter of the way to what was wanted, so that one odd spin changes little.
    void Learn(int32 learned, int32 wanted)
    {
        const int32 next = learned + (wanted - learned) / 4;
        if (next != learned) {
            mLimit.store(next, std::memory_order_relaxed);
        }
    }

    std::atomic<int32> mLimit{kMost / 2};
    std::atomic<uInt32> mFailures{0};  // in a row
};

}  // namespace kz

#endif
