// The memory service alone, and allocations that fail on demand.
#ifndef KZCORE_TESTS_RUNNINGMEMORY_H
#define KZCORE_TESTS_RUNNINGMEMORY_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>

#include "KZApp.h"
#include "MemoryManager.h"
#include "MemoryZone.h"
#include "ReportCatcher.h"
#include "TestHost.h"

namespace kztest {

// The memory service runs for as long as this lives, and nothing may be left in it at the end.
class RunningMemory {
public:
    RunningMemory()
    {
        KZAppInterfaceSet(&mHost);
        EXPECT_EQ(0, MemoryManagerService()->Init());
    }
    ~RunningMemory()
    {
        EXPECT_EQ(0u, kz::LiveHandleCount());
        EXPECT_EQ(mPointers, kz::LivePointerCount());
        EXPECT_EQ(nullptr, kz::MemoryFault());
        MemoryManagerService()->Uninit();
        KZAppInterfaceSet(nullptr);
    }
    RunningMemory(const RunningMemory&) = delete;
    RunningMemory& operator=(const RunningMemory&) = delete;

private:
    TestHost mHost;
    const int64 mPointers = kz::LivePointerCount();
};

// The n-th allocation of the library from now on fails, counted from 1, and with kForGood all after it.
class FailAllocation {
public:
    enum Span { kOnce, kForGood };

    explicit FailAllocation(int n, Span span = kOnce)
    {
        sLeft = n;
        sSpan = span;
        kz::gAllocateProc = &Allocate;
    }
    ~FailAllocation() { kz::gAllocateProc = &std::malloc; }
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;

    // Whether the n-th allocation was reached.
    static bool Happened() { return sLeft <= 0; }

private:
    static void* Allocate(std::size_t size)
    {
        const int left = --sLeft;
        return left == 0 || (left < 0 && sSpan == kForGood) ? nullptr : std::malloc(size);
    }

    static inline std::atomic<int> sLeft{0};
    static inline std::atomic<Span> sSpan{kOnce};
};

}  // namespace kztest

#endif
