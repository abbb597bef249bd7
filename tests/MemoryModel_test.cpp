// Handles against a plain model: random sequences of all that makes, changes and ends them, and every allocation of it
// failing in turn.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "BufferCache.h"
#include "ChildTest.h"
#include "FaultLoop.h"
#include "HandleLayout.h"
#include "MemoryChecks.h"
#include "MemoryManager.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

using Bytes = std::vector<unsigned char>;

class MemoryModel : public testing::Test {
protected:
    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// A sequence: the handles, and what each must hold.
class Sequence {
public:
    explicit Sequence(unsigned seed) : mRandom(seed) {}
    ~Sequence()
    {
        for (const auto& [handle, model] : mHandles) {
            EXPECT_EQ(model, Content(handle));
            DSDisposeHandle(handle);
        }
    }

    void Step()
    {
        if (mHandles.size() < 3 || Below(4) == 0) {
            Make();
            return;
        }
        const auto entry = Pick();
        ASSERT_EQ(entry->second, Content(entry->first));
        switch (Below(8)) {
            case 0:
                ASSERT_EQ(0, Below(2) ? DSDisposeHandle(entry->first) : DSDisposeHandleCache(entry->first));
                mHandles.erase(entry);
                break;
            case 1:
                entry->second.assign(entry->second.size(), static_cast<unsigned char>(mRandom()));
                MoveBlock(entry->second.data(), *entry->first, entry->second.size());
                break;
            case 2:
            case 3:
                Append(entry->first, entry->second);
                break;
            case 4:
                Copy(entry->first, entry->second);
                break;
            default:
                Resize(entry->first, entry->second);
        }
    }

private:
    using Handles = std::map<UHandle, Bytes>;

    unsigned Below(unsigned n) { return static_cast<unsigned>(mRandom() % n); }
    Handles::iterator Pick() { return std::next(mHandles.begin(), Below(static_cast<unsigned>(mHandles.size()))); }
    unsigned long Size()
    {
        switch (Below(60)) {
            case 0:
                return 1048570 + Below(12);
            case 1:
            case 2:
                return 16380 + Below(3) * 4;
            default:
                return Below(2) ? Below(64) : Below(3000);
        }
    }

    static Bytes Content(UHandle handle) { return Bytes(*handle, *handle + DSGetHandleSize(handle)); }

    static void ExpectAligned(UHandle handle, kz::HandleAlignment align)
    {
        ASSERT_EQ(0u, (reinterpret_cast<uintptr_t>(*handle) + align.offset) % align.alignment);
    }

    void Make()
    {
        const unsigned long size = Size();
        const unsigned long alignment = 1ul << Below(17);
        const unsigned long offset = Below(300);
        const unsigned kind = Below(4);
        UHandle const made = kind == 0   ? DSNewHClr(size)
                             : kind == 1 ? DSNewHClrCache(size)
                             : kind == 2 ? AZNewHClr(size)
                                         : DSNewAlignedHClr(size, alignment, offset);
        ExpectAligned(made, kind == 3 ? kz::NormalAlignment(alignment, offset) : kz::AlignmentForSize(size));
        ASSERT_TRUE(mHandles.emplace(made, Bytes(size, 0)).second);
    }

    void Resize(UHandle handle, Bytes& model)
    {
        const unsigned long size = Size();
        const unsigned kind = Below(4);
        if (kind == 0) {
            // Without clearing only what stays is known.
            ASSERT_EQ(0, Below(2) ? DSSetHandleSizeCache(handle, size) : AZSetHandleSize(handle, size));
            const unsigned long kept = std::min<unsigned long>(size, model.size());
            ClearMem(*handle + kept, size - kept);
        } else if (kind == 1) {
            ASSERT_EQ(0, DSSetAlignedHSzClr(handle, size, 64, 4));
            ExpectAligned(handle, {64, 4});
        } else {
            ASSERT_EQ(0, kind == 2 ? DSSetHSzClrCache(handle, size) : DSSetHSzClr(handle, size));
            ExpectAligned(handle, kz::AlignmentForSize(size));
        }
        model.resize(size);
    }

    void Append(UHandle handle, Bytes& model)
    {
        const auto other = Pick();
        const Bytes added = other->second;  // may be the same
        if (Below(2)) {
            ASSERT_EQ(0, DSHandAndHand(other->first, handle));
        } else {
            ASSERT_EQ(0, AZPtrAndHand(*other->first, handle, added.size()));
        }
        model.insert(model.end(), added.begin(), added.end());
        if (model.size() > 2000000) {
            model.resize(1);
            ASSERT_EQ(0, DSSetHandleSize(handle, 1));
        }
    }

    void Copy(UHandle handle, const Bytes& model)
    {
        const auto other = Pick();
        UHandle variable = other->first;
        switch (Below(3)) {
            case 0:
                if (variable != handle) {
                    ASSERT_EQ(0, DSCopyHandle(&variable, handle));
                    other->second = model;
                }
                break;
            case 1:
                ASSERT_EQ(0, DSHandToHand(&variable));
                ASSERT_TRUE(mHandles.emplace(variable, Bytes(other->second)).second);
                break;
            default:
                ASSERT_EQ(variable == handle, DSRecoverHandle(*variable) == handle);
                if (variable != handle) {
                    ASSERT_EQ(0, DSSwapHandles(variable, handle));
                    std::swap(other->second, mHandles[handle]);
                }
        }
    }

    std::mt19937 mRandom;
    Handles mHandles;
};

// The walk over 50,000 masters takes most of the time: each step of some sequences, the end of all.
TEST_F(MemoryModel, RandomSequences)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences(); ++seed) {
        Sequence sequence(seed);
        for (unsigned step = 0; step < 20 + seed % 50; ++step) {
            kz::WalkMemoryAtEachCall(seed % 20 == 0);
            sequence.Step();
            ASSERT_FALSE(HasFatalFailure()) << "seed " << seed << " step " << step;
        }
        kz::WalkMemoryAtEachCall(false);
        ASSERT_STREQ(nullptr, kz::MemoryFault()) << "seed " << seed;
    }
}

TEST(MemoryModelWithGuards, RandomSequences)
{
    EXPECT_EQ(0, kztest::RunChildTests("MemoryModel.RandomSequences",
                                       {{"ZVGuardBytes", "check"}, {"KZ_MODEL_SEQUENCES", "300"}}));
}

// Each call that can lack memory: its result, and what it leaves in a handle that held "0123456789".
TEST_F(MemoryModel, FailingAllocations)
{
    static UHandle sOther;
    sOther = nullptr;
    ASSERT_EQ(0, DSPtrToHand("abc", &sOther, 3));
    const struct {
        const char* name;
        KzErr (*call)(UHandle* handle);
        const char* content;
    } calls[] = {
        {"DSSetHandleSize", [](UHandle* h) { return DSSetHandleSize(*h, 4); }, "0123"},
        {"AZSetHSzClr", [](UHandle* h) { return AZSetHSzClr(*h, 5); }, "01234"},
        {"DSSetHandleSizeCache", [](UHandle* h) { return DSSetHandleSizeCache(*h, 6); }, "012345"},
        {"DSSetAlignedHandleSize", [](UHandle* h) { return DSSetAlignedHandleSize(*h, 3, 4096, 0); }, "012"},
        {"DSSetHSzOrNewHClr", [](UHandle* h) { return DSSetHSzOrNewHClr(h, 2); }, "01"},
        {"DataSetHandleSizeOrNewHandle", [](UHandle* h) { return DataSetHandleSizeOrNewHandle(h, 2); }, "01"},
        {"DSCopyHandle", [](UHandle* h) { return DSCopyHandle(h, sOther); }, "abc"},
        {"AZSetHandleFromPtr", [](UHandle* h) { return AZSetHandleFromPtr(h, "xy", 2); }, "xy"},
        {"DSPtrToXHand", [](UHandle* h) { return DSPtrToXHand("xyz", *h, 3); }, "xyz"},
        {"DSPtrAndHand", [](UHandle* h) { return DSPtrAndHand(**h, *h, 2); }, "012345678901"},
        {"AZHandAndHand", [](UHandle* h) { return AZHandAndHand(sOther, *h); }, "0123456789abc"},
        {nullptr,
         [](UHandle* h) {
             UHandle const old = *h;
             const KzErr err = DSHandToHand(h);
             return old != *h ? DSDisposeHandle(old) : err;
         },
         "0123456789"},
    };
    for (const auto& c : calls) {
        SCOPED_TRACE(c.name == nullptr ? "DSHandToHand" : c.name);
        UHandle handle = nullptr;
        const auto restore = [&] {
            DSDisposeHandleAndNull(&handle);
            DSPtrToHand("0123456789", &handle, 10);
        };
        for (int n = 1;; ++n) {
            restore();
            unsigned char* const data = *handle;
            KzErr err = 0;
            bool failed = false;
            {
                kztest::FailAllocation fail(n);
                err = c.call(&handle);
                failed = kztest::FailAllocation::Happened();
            }
            const std::string content(*handle, *handle + DSGetHandleSize(handle));
            ASSERT_STREQ(nullptr, kz::MemoryFault());
            ASSERT_EQ(2u, kz::LiveHandleCount());
            if (!failed) {
                EXPECT_EQ(0, err);
                EXPECT_EQ(c.content, content);
                break;
            }
            EXPECT_EQ(2, err);
            EXPECT_EQ("0123456789", content);
            EXPECT_EQ(data, *handle);
            EXPECT_EQ(c.name != nullptr,
                      reports.Take(kDbgWarning, std::string("Memory error 2 in ") + (c.name ? c.name : "")));
        }
        DSDisposeHandle(handle);
    }
    DSDisposeHandle(sOther);
}

TEST_F(MemoryModel, FailingMakes)
{
    const std::pair<UHandle (*)(unsigned long), unsigned long> makes[] = {
        {&DSNewHandle, 10},
        {&AZNewHClr, 2000},
        {&DSNewHandleCache, 20000},
        {&DSNewHClrCache, 20001},
        {[](unsigned long size) { return DSNewAlignedHandle(size, 512, 4); }, 100},
        {[](unsigned long size) {
             UHandle h = nullptr;
             DSSetHandleSizeOrNewHandleCache(&h, size);
             return h;
         },
         100},
        {[](unsigned long size) {
             UHandle h = nullptr;
             DSSetHandleFromPtr(&h, "abcdef", size);
             return h;
         },
         6},
    };
    for (const auto& [make, size] : makes) {
        kztest::FaultLoop([make = make, size = size](auto failed) {
            UHandle const made = make(size);
            ASSERT_EQ(failed(), made == nullptr);
            if (made != nullptr) {
                EXPECT_EQ(size, DSGetHandleSize(made));
                DSDisposeHandle(made);
            }
        });
    }
}

}  // namespace
