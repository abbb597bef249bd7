// One random model for every kind of list, whose entries are texts here, and the blocks of short strings.
//
// A kind is a class with one list of its own:
//   Library                  what has to run while lists live
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

#include "ByteOrder.h"
#include "FaultLoop.h"
#include "JsonLines.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "StringCPStr.h"
#include "TestStrings.h"

namespace kztest {

using Texts = std::vector<std::string>;
using Draw = std::mt19937_64;

inline Texts TextsOf(const Json& row, const char* member)
{
    Texts texts;
    for (const Json& text : row[member].Items()) {
        texts.push_back(text.Str());
    }
    return texts;
}

// The stored rows of lists for one call.
inline std::vector<Json> ListRows(const std::string& call)
{
    std::vector<Json> rows = ReadJsonLines("vectors/lists.jsonl");
    std::erase_if(rows, [&](const Json& row) { return row["call"].Str() != call; });
    EXPECT_FALSE(rows.empty());
    return rows;
}

// The bytes of a CPStr.
inline std::string PackedBytes(const Texts& texts)
{
    std::string bytes(4, '\0');
    kz::StoreNative(bytes.data(), static_cast<int32>(texts.size()));
    for (const std::string& text : texts) {
        bytes += static_cast<char>(text.size());
        bytes += text;
    }
    return bytes;
}

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

// The handle of a list, disposed at the end; the variable is public for calls that take its address.
template <typename List>
struct ListHandle {
    ListHandle() = default;
    explicit ListHandle(const std::string& bytes) : handle(reinterpret_cast<List**>(HandleOf(bytes))) {}
    ~ListHandle() { DSDisposeHandle(handle); }
    ListHandle(const ListHandle&) = delete;
    ListHandle& operator=(const ListHandle&) = delete;

    bool IsMade() const { return handle != nullptr; }
    unsigned long Block() const { return DSGetHandleSize(handle); }
    std::string Bytes() const { return BytesOf(handle); }

    List** handle = nullptr;
};

struct CPStrHandle : ListHandle<CPStr> {
    CPStrHandle() = default;
    explicit CPStrHandle(const Texts& texts) : ListHandle(PackedBytes(texts)) {}
};

// A text of at most `longest` bytes; short and long ones are equally likely.
inline std::string DrawText(Draw& draw, unsigned longest)
{
    const unsigned limit = draw() % 2 == 0 ? longest : 3;
    return std::string(draw() % (limit + 1), static_cast<char>('a' + draw() % 6));
}

// An index into a list of so many entries or beside it, at times far away.
inline int32 DrawIndex(Draw& draw, size_t count)
{
    constexpr int32 kFar[] = {INT_MIN, INT_MAX};
    return draw() % 8 == 0 ? kFar[draw() % 2] : static_cast<int32>(draw() % (count + 4)) - 2;
}

// Where an index that is pinned leads to: between entries for an insertion, else to an entry.
inline long Between(int32 i, size_t count)
{
    return std::clamp<long>(i, 0, static_cast<long>(count));
}
inline long Pinned(int32 i, size_t count)
{
    return std::clamp<long>(i, 0, std::max(static_cast<long>(count) - 1, 0l));
}

// A change: the texts and the block's size, which are those before it until the change says what they are afterwards;
// what the call answers unless memory is full, and what it did answer.
struct ListStep {
    Texts texts;
    size_t block;
    KzErr code = kzErrNone;
    KzErr err = kzErrNone;
};

// The removal of an entry, by an index that is pinned; there is none in an empty list.
inline void RemovePinned(ListStep& step, int32 i)
{
    if (step.texts.empty()) {
        step.code = kzErrArgument;
    } else {
        step.texts.erase(step.texts.begin() + Pinned(i, step.texts.size()));
    }
}

template <typename Kind>
class ListModel : public testing::Test {
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

    ReportCatcher reports;
    typename Kind::Library library;
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
    FaultLoop(
        [this](const auto& failed) {
            Draw draw(1);
            TypeParam list(draw);
            EXPECT_TRUE(list.IsMade() || failed());
            if (list.IsMade()) {
                this->Change(list, draw, 40, failed);
            }
        },
        FailAllocation::kBlocks);
}

REGISTER_TYPED_TEST_SUITE_P(ListModel, RandomChangesMatchAVector, EachAllocationMayFail);

}  // namespace kztest

#endif
