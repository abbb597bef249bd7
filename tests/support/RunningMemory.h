// The memory service alone, and the fixture of its tests.
#ifndef KZCORE_TESTS_RUNNINGMEMORY_H
#define KZCORE_TESTS_RUNNINGMEMORY_H

#include <gtest/gtest.h>

#include "FaultLoop.h"
#include "HandleLayout.h"
#include "KZApp.h"
#include "LiveCount.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
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
        EXPECT_EQ(mPointers, kz::LiveCount(kz::Live::kPointers));
        EXPECT_STREQ(nullptr, kz::MemoryFault());
        MemoryManagerService()->Uninit();
        KZAppInterfaceSet(nullptr);
    }
    RunningMemory(const RunningMemory&) = delete;
    RunningMemory& operator=(const RunningMemory&) = delete;

private:
    TestHost mHost;
    const int64 mPointers = kz::LiveCount(kz::Live::kPointers);
};

// A master pointer in no block, whose data is laid out as a handle's.
class ForeignHandle {
public:
    operator void*() { return &mMaster; }

private:
    alignas(8) unsigned char mBlock[64];
    unsigned char* mMaster = kz::LayOutHandle(mBlock, 24, {8, 8}, 0);
};

class MemoryTest : public testing::Test {
protected:
    ReportCatcher reports;
    RunningMemory memory;
};

}  // namespace kztest

#endif
