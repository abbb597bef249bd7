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

// Whether another processor could bring what a spin waits for.
bool HasSeveralProcessors();

// How long it pays to spin for one thing, learned from how long its spins took: a try that was in vain shortens the
// next one, a success lengthens it. Relaxed: an estimate that orders nothing.
class AdaptiveSpin {
public:
    // Whether `isThere()` came true.
    template <typename Condition>
    bool Until(Condition isThere)
    {
        if (!HasSeveralProcessors()) {
            return false;
        }
        const int32 limit = mLimit.load(std::memory_order_relaxed);
        for (int32 i = 0; i < limit; ++i) {
            if (isThere()) {
                const int32 wanted = i * 2 + kFewest;
                Learn(limit, wanted < kMost ? wanted : kMost);
                return true;
            }
            SpinPause();
        }
        Learn(limit, kFewest);
        return false;
    }

private:
    static constexpr int32 kMost = 2000;
    static constexpr int32 kFewest = 50;

    void Learn(int32 limit, int32 wanted)
    {
        const int32 learned = limit + (wanted - limit) / 4;
        if (learned != limit) {
            mLimit.store(learned, std::memory_order_relaxed);
        }
    }

    std::atomic<int32> mLimit{kMost / 2};
};

}  // namespace kz

#endif
