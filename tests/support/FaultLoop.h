// Allocations that fail on demand, one after the other, and random sequences against models.
#ifndef KZCORE_TESTS_FAULTLOOP_H
#define KZCORE_TESTS_FAULTLOOP_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>

#include "LiveCounts.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"

namespace kztest {

// Not for several threads at once, but any thread may allocate.
class FailAllocation {
public:
    enum Span { kOnce, kForGood };
    enum Reach {
        kBlocks,        // the library's own allocations
        kBlocksAndNew,  // those and operator new, the test's too
    };

    // The n-th allocation from now on fails, counted from 1, and with kForGood all after it.
    explicit FailAllocation(int n, Span span = kOnce, Reach reach = kBlocks);
    ~FailAllocation();
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;

    // Whether the n-th allocation was reached.
    static bool Happened();
};

// The blocks of operator new that live.
long LiveNewCount();

// The next time that operator delete gets `memory`, its first `size` bytes go to `copy` before they are freed. One at a
// time, which CopiedAtDelete tells of.
void CopyAtDelete(const void* memory, void* copy, std::size_t size);
bool CopiedAtDelete();

// Runs the scenario with its first allocation failing, then the second, and so on until it gets by without one more:
// first each alone, then each with all that follow. The scenario is told whether an allocation has failed when it calls
// its argument, and checks what it is promised for that; it gives back all that it takes, and takes nothing for itself.
// With kBlocks it may use operator new as it likes. Behind each failure it runs once more without one.
template <typename Scenario>
void FaultLoop(Scenario scenario, FailAllocation::Reach reach = FailAllocation::kBlocksAndNew)
{
    const auto happened = [] { return FailAllocation::Happened(); };
    scenario(happened);  // whatever is made once and kept
    for (const FailAllocation::Span span : {FailAllocation::kOnce, FailAllocation::kForGood}) {
        for (int n = 1;; ++n) {
            ASSERT_LT(n, 10000);
            const LiveCounts before = CountLive();
            const long news = LiveNewCount();
            bool failed = false;
            {
                FailAllocation fail(n, span, reach);
                scenario(happened);
                failed = FailAllocation::Happened();
            }
            scenario(happened);
            if (reach == FailAllocation::kBlocksAndNew) {
                ASSERT_EQ(news, LiveNewCount()) << "allocation " << n << " failed";
            }
            ASSERT_EQ(before, CountLive()) << "allocation " << n << " failed";
            ASSERT_STREQ(nullptr, kz::MemoryFault()) << "allocation " << n << " failed";
            if (!failed) {
                break;
            }
        }
    }
}

// How many random sequences a model test runs: 2,000, or what the environment variable KZ_MODEL_SEQUENCES says.
inline unsigned ModelSequences()
{
    const char* const text = std::getenv("KZ_MODEL_SEQUENCES");
    return text == nullptr ? 2000 : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

}  // namespace kztest

#endif
