// One random model for every kind of list, whose entries are texts here.
//
// A kind is a class with one list of its own:
//   Kind(draw)               an empty list, in a block with or without spare room
//   IsMade()                 false where there was no memory for it
//   Change(draw, step)       a random change of the list, with what it should have come to
//   Look(draw, texts)        compares what the calls tell of the list, which changes nothing
//   Bytes(), ImageOf(texts)  what the list holds, and the front of that for these texts
//   Block()                  the size of its block
//   Fault()                  what its walker says
#ifndef KZCORE_TESTS_LISTTESTING_H
#define KZCORE_TESTS_LISTTESTING_H

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "KzErr.h"
#include "RunningMemory.h"

namespace kztest {

using Texts = std::vector<std::string>;
using Draw = std::mt19937_64;

// A handle with these bytes, whose owner disposes it; null if there is no memory.
inline UHandle HandleOf(const std::string& bytes)
{
    const UHandle handle = DSNewHandle(bytes.size());
    if (handle != nullptr) {
        std::memcpy(*handle, bytes.data(), bytes.size());
    }
    return handle;
}

inline std::string BytesOf(const void* handle)
{
    const auto master = static_cast<const char* const*>(handle);
    return {*master, DSGetHandleSize(handle)};
}

// A text of at most `longest` bytes, all equal; short and long ones are equally likely.
inline std::string DrawText(Draw& draw, unsigned longest)
{
    const unsigned limit = draw() % 2 == 0 ? longest : std::min(longest, 3u);
    return std::string(draw() % (limit + 1), "aAbBcC"[draw() % 6]);
}

// An index into a list of so many entries or beside it, at times far away.
inline int32 DrawIndex(Draw& draw, size_t count)
{
    constexpr int32 kFar[] = {INT_MIN, INT_MAX};
    return draw() % 8 == 0 ? kFar[draw() % 2] : static_cast<int32>(draw() % (count + 4)) - 2;
}

// A change: the texts and the block's size, which are those before it until the change says what they are afterwards;
// what the call answers unless memory is full, and what it did answer.
struct ListStep {
    Texts texts;
    size_t block;
    KzErr code = kzErrNone;
    KzErr err = kzErrNone;
};

template <typename Kind>
class ListModel : public MemoryTest {
protected:
    // Changes an empty list beside a vector. A call that finds memory full changes nothing.
    template <typename Failed>
    void Change(Kind& list, Draw& draw, int steps, const Failed& failed)
    {
        Texts texts;
        for (int i = 0; i < steps; ++i) {
            SCOPED_TRACE(i);
            const size_t block = list.Block();
            ListStep step{texts, block};
            list.Change(draw, step);
            const bool isShort = failed();
            ASSERT_TRUE(step.err == step.code || (step.err == kzErrMemoryFull && isShort)) << step.err;
            if (step.err == kzErrNone) {
                texts = step.texts;
            }
            const std::string image = Kind::ImageOf(texts);
            ASSERT_EQ(list.Bytes().substr(0, image.size()), image);
            ASSERT_TRUE(isShort || list.Block() == (step.err == kzErrNone ? step.block : block)) << list.Block();
            ASSERT_STREQ(list.Fault(), nullptr);
            ASSERT_NO_FATAL_FAILURE(list.Look(draw, texts));
        }
        for (const CaughtReport& report : reports.TakeAll()) {
            EXPECT_EQ(report.text.find("Memory error 2 in DSSetH"), 0u) << report.text;
        }
    }
};

TYPED_TEST_SUITE_P(ListModel);

TYPED_TEST_P(ListModel, RandomChangesMatchAVector)
{
    for (unsigned seed = 0; seed < ModelSequences() / 10; ++seed) {
        SCOPED_TRACE(seed);
        Draw draw(seed);
        TypeParam list(draw);
        const auto span = draw() % 2 == 0 ? FailAllocation::kOnce : FailAllocation::kForGood;
        const FailAllocation fail(static_cast<int>(draw() % 200 + 1), span);
        ASSERT_NO_FATAL_FAILURE(this->Change(list, draw, 80, &FailAllocation::Happened));
    }
}

TYPED_TEST_P(ListModel, EachAllocationMayFail)
{
    const auto scenario = [this](const auto& failed) {
        Draw draw(1);
        TypeParam list(draw);
        EXPECT_TRUE(list.IsMade() || failed());
        if (list.IsMade()) {
            this->Change(list, draw, 40, failed);
        }
    };
    FaultLoop(scenario, FailAllocation::kBlocks);
}

REGISTER_TYPED_TEST_SUITE_P(ListModel, RandomChangesMatchAVector, EachAllocationMayFail);

}  // namespace kztest

#endif
