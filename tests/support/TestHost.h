// The library as a test runs it: what it keeps is looked over before it stops.
#ifndef KZCORE_TESTS_TESTHOST_H
#define KZCORE_TESTS_TESTHOST_H

#include <gtest/gtest.h>

#include "LockOrder.h"
#include "MemoryChecks.h"
#include "PathItemStorage.h"
#include "ResourceChecks.h"
#include "StartedLibrary.h"

namespace kztest {

class RunningLibrary : public StartedLibrary {
public:
    RunningLibrary() = default;
    // All that the library keeps is whole at the end.
    ~RunningLibrary()
    {
        for (const char* const fault :
             {kz::MemoryFault(), kz::PathBlocksFault(), kz::ResourceFault(), kz::LockGraphFault()}) {
            EXPECT_STREQ(fault, nullptr);
        }
    }
    RunningLibrary(const RunningLibrary&) = delete;
    RunningLibrary& operator=(const RunningLibrary&) = delete;
};

}  // namespace kztest

#endif
