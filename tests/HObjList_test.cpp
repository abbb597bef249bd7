#include "HObjList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "KzErr.h"
#include "ListTesting.h"
#include "ReportCatcher.h"
#include "RunningMemory.h"

namespace {

using kztest::FailAllocation;
using kztest::FaultLoop;

char gObjects[8];
void* const a = &gObjects[0];
void* const b = &gObjects[1];
void* const c = &gObjects[2];
void* const d = &gObjects[3];

using Objects = std::vector<void*>;

class ListHandle {
public:
    // A list of these objects in a block of this size, whose spare room is zero. The handle is null if there is no
    // memory.
    explicit ListHandle(const Objects& objects, size_t block = 0)
        : handle(reinterpret_cast<HObjList>(DSNewHClr(std::max(block, 8 + objects.size() * 8))))
    {
        if (handle != nullptr) {
            (*handle)->cnt = static_cast<int32>(objects.size());
            std::copy(objects.begin(), objects.end(), (*handle)->obj);
        }
    }
    ~ListHandle() { DSDisposeHandle(handle); }
    ListHandle(const ListHandle&) = delete;
    ListHandle& operator=(const ListHandle&) = delete;

    size_t Block() const { return DSGetHandleSize(handle); }
    Objects List() const
    {
        // What is behind the list is zero.
        const std::string bytes = kztest::BytesOf(handle);
        EXPECT_EQ(bytes.find_first_not_of('\0', 8 + static_cast<size_t>((*handle)->cnt) * 8), std::string::npos);
        return Objects((*handle)->obj, (*handle)->obj + (*handle)->cnt);
    }

    const HObjList handle;
};

class HObjListTest : public ::testing::Test {
protected:
    bool TakeFatal() { return reports.Take(kDbgFatal, ""); }

    kztest::ReportCatcher reports;
    kztest::RunningMemory memory;
};

// The block's size after each of many insertions, and after each of the deletions that follow.
TEST_F(HObjListTest, StepsOf16Bytes)
{
    const HObjList list = reinterpret_cast<HObjList>(DSNewHClr(4));
    const size_t growing[] = {16, 32, 32, 48, 48, 64, 64, 80};
    for (size_t i = 0; i < std::size(growing); ++i) {
        EXPECT_EQ(HObjListInsert(list, &gObjects[i], kObjListEnd), 0);
        EXPECT_EQ(DSGetHandleSize(list), growing[i]) << i;
    }
    const size_t shrinking[] = {64, 64, 48, 48, 32, 32, 16, 16};
    for (size_t i = 0; i < std::size(shrinking); ++i) {
        EXPECT_EQ(HObjListDelete(list, kObjListEnd), &gObjects[7 - i]);
        EXPECT_EQ(DSGetHandleSize(list), shrinking[i]) << i;
    }
    EXPECT_EQ(HObjListDelete(list, 0), nullptr);
    EXPECT_EQ(DSGetHandleSize(list), 16u);
    DSDisposeHandle(list);
}

// Blocks of other sizes: before, with so many entries, and after an insertion or a deletion.
TEST_F(HObjListTest, BlocksOfAnySize)
{
    const struct {
        size_t count, block, inserted, deleted;
    } cases[] = {
        {0, 8, 16, 8},   {0, 15, 16, 15},   {0, 17, 17, 17}, {1, 16, 32, 16}, {1, 20, 32, 20}, {1, 21, 32, 16},
        {1, 24, 24, 16}, {2, 24, 32, 24},   {2, 29, 32, 16}, {2, 32, 32, 16}, {3, 36, 48, 36}, {3, 37, 48, 32},
        {3, 48, 48, 32}, {1, 100, 100, 96}, {1, 96, 96, 80}, {4, 41, 48, 41},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.block);
        // Entries behind a block of an odd size are not aligned: only bytes are looked at here.
        std::string bytes(row.block, '\0');
        kz::StoreNative(bytes.data(), static_cast<int32>(row.count));
        const HObjList grown = reinterpret_cast<HObjList>(kztest::HandleOf(bytes));
        const HObjList shrunk = reinterpret_cast<HObjList>(kztest::HandleOf(bytes));
        EXPECT_EQ(HObjListInsert(grown, a, 0), 0);
        EXPECT_EQ(DSGetHandleSize(grown), row.inserted);
        HObjListDelete(shrunk, 0);
        EXPECT_EQ(DSGetHandleSize(shrunk), row.deleted);
        DSDisposeHandle(grown);
        DSDisposeHandle(shrunk);
    }
}

TEST_F(HObjListTest, IndicesArePinned)
{
    for (const auto& [index, list] : std::vector<std::pair<int32, Objects>>{{0, {d, a, b, c}},
                                                                            {-1, {d, a, b, c}},
                                                                            {1, {a, d, b, c}},
                                                                            {3, {a, b, c, d}},
                                                                            {99, {a, b, c, d}},
                                                                            {0x7FFFFFFF, {a, b, c, d}}}) {
        ListHandle objects({a, b, c});
        EXPECT_EQ(HObjListInsert(objects.handle, d, index), 0);
        EXPECT_EQ(objects.List(), list) << index;
    }
    for (const auto& [index, object] :
         std::vector<std::pair<int32, void*>>{{0, a}, {-1, a}, {1, b}, {2, c}, {3, c}, {0x7FFFFFFF, c}}) {
        ListHandle objects({a, b, c});
        EXPECT_EQ(HObjListDelete(objects.handle, index), object) << index;
        Objects rest = {a, b, c};
        rest.erase(std::find(rest.begin(), rest.end(), object));
        EXPECT_EQ(objects.List(), rest);
    }
}

TEST_F(HObjListTest, SearchAndMove)
{
    ListHandle list({a, b, c, b});
    EXPECT_EQ(HObjListSearch(list.handle, b), 3);
    EXPECT_EQ(HObjListSearch(list.handle, a), 0);
    EXPECT_EQ(HObjListSearch(list.handle, d), -1);
    EXPECT_EQ(HObjListBringToFront(list.handle, c), 1);
    EXPECT_EQ(list.List(), (Objects{c, a, b, b}));
    EXPECT_EQ(HObjListBringToFront(list.handle, c), 0);
    EXPECT_EQ(HObjListBringToFront(list.handle, d), 0);
    EXPECT_TRUE(reports.Take(kDbgWarning, "HObjListBringToFront: object not found!!!"));
    EXPECT_EQ(HObjListSwap(list.handle, 0, 2), 0);
    EXPECT_EQ(HObjListSwap(list.handle, 3, 3), 0);
    EXPECT_EQ(list.List(), (Objects{b, a, c, b}));
    EXPECT_EQ(HObjListSearchDelete(list.handle, b), 1);
    EXPECT_EQ(HObjListSearchDelete(list.handle, d), 0);
    EXPECT_EQ(list.List(), (Objects{b, a, c}));
    for (const auto& [x, y] : std::vector<std::pair<int32, int32>>{{0, 3}, {3, 0}, {-1, 0}, {0, -1}, {0, 0x7FFFFFFF}}) {
        EXPECT_EQ(HObjListSwap(list.handle, x, y), kzErrArgument);
        EXPECT_TRUE(reports.Take(kDbgWarning, "HObjListSwap: pos out of range"));
    }
    EXPECT_EQ(list.List(), (Objects{b, a, c}));
}

TEST_F(HObjListTest, Compacting)
{
    const struct {
        Objects before;
        size_t block;
        Objects after;
        size_t compact;
    } cases[] = {
        {{a, nullptr, b}, 32, {a, b}, 32},
        {{a, b}, 24, {a, b}, 24},
        {{a, b}, 40, {a, b}, 32},
        {{nullptr, a}, 24, {a}, 16},
        {{nullptr}, 16, {}, 16},
        {{nullptr, nullptr, nullptr}, 64, {}, 16},
        {{}, 8, {}, 8},
        {{}, 48, {}, 16},
        {{nullptr, a, nullptr, b, c}, 48, {a, b, c}, 32},
        {{a, b, c, d}, 48, {a, b, c, d}, 48},
    };
    for (const auto& row : cases) {
        ListHandle list(row.before, row.block);
        EXPECT_EQ(HCompactObjList(list.handle), 0);
        EXPECT_EQ(list.List(), row.after);
        EXPECT_EQ(list.Block(), row.compact);
    }
}

TEST_F(HObjListTest, NullHandles)
{
    EXPECT_EQ(HObjListInsert(nullptr, a, 0), kzErrArgument);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HObjListDelete(nullptr, 0), nullptr);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HObjListSearch(nullptr, a), -1);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HObjListSearchDelete(nullptr, a), 0);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HObjListBringToFront(nullptr, a), 0);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HObjListSwap(nullptr, 0, 0), kzErrArgument);
    EXPECT_TRUE(TakeFatal());
    EXPECT_EQ(HCompactObjList(nullptr), kzErrArgument);
    EXPECT_TRUE(TakeFatal());
}

TEST_F(HObjListTest, CountsThatTheBlockDoesNotHold)
{
    for (const int32 count : {3, 0x7FFFFFFF, -1}) {
        ListHandle list({a, b}, 24);
        (*list.handle)->cnt = count;
        EXPECT_EQ(HObjListSearch(list.handle, d), -1);
        EXPECT_EQ(HObjListInsert(list.handle, c, kObjListEnd), 0);
        const Objects mended = count < 0 ? Objects{c} : Objects{a, b, c};
        EXPECT_EQ((*list.handle)->cnt, static_cast<int32>(mended.size()));
        EXPECT_EQ(Objects((*list.handle)->obj, (*list.handle)->obj + mended.size()), mended);
    }
}

// Random changes against a vector; some find memory full.
TEST_F(HObjListTest, RandomChangesMatchAVector)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 10; ++seed) {
        std::mt19937_64 draw(seed);
        ListHandle list({});
        Objects model;
        for (int step = 0; step < 80; ++step) {
            const int32 count = static_cast<int32>(model.size());
            const int32 i = draw() % 6 == 0 ? kObjListEnd : static_cast<int32>(draw() % (model.size() + 4)) - 2;
            const int32 pinned = std::clamp(i, 0, std::max(count - 1, 0));
            void* const object = draw() % 4 == 0 ? nullptr : &gObjects[draw() % 8];
            const auto last = std::find(model.rbegin(), model.rend(), object);
            const bool isFull = draw() % 5 == 0;
            FailAllocation fail(isFull ? static_cast<int>(1 + draw() % 2) : 1000);
            switch (draw() % 8) {
                case 0:
                    if (HCompactObjList(list.handle) == 0) {
                        std::erase(model, nullptr);
                    } else {
                        EXPECT_TRUE(isFull);
                    }
                    break;
                case 1:
                case 2:
                    EXPECT_EQ(HObjListDelete(list.handle, i),
                              count == 0 ? nullptr : model[static_cast<size_t>(pinned)]);
                    if (count != 0) {
                        model.erase(model.begin() + pinned);
                    }
                    break;
                case 3:
                    EXPECT_EQ(HObjListSearchDelete(list.handle, object) != 0, last != model.rend());
                    if (last != model.rend()) {
                        model.erase(last.base() - 1);
                    }
                    break;
                case 4:
                    if (last != model.rend()) {
                        EXPECT_EQ(HObjListBringToFront(list.handle, object) != 0, last.base() - 1 != model.begin());
                        std::rotate(model.begin(), last.base() - 1, last.base());
                    }
                    break;
                default:
                    if (HObjListInsert(list.handle, object, i) == 0) {
                        model.insert(model.begin() + std::clamp(i, 0, count), object);
                    } else {
                        EXPECT_TRUE(isFull);
                    }
                    break;
            }
            ASSERT_EQ(list.List(), model) << "seed " << seed << ", step " << step;
            reports.TakeAll();
        }
    }
}

TEST_F(HObjListTest, AFullMemoryChangesNothing)
{
    FaultLoop(
        [&](const auto& failed) {
            ListHandle list({}, 16);
            if (list.handle == nullptr) {
                return;
            }
            const auto step = [&](KzErr err, const Objects& before, const Objects& after) {
                EXPECT_TRUE(err == 0 || (err == kzErrMemoryFull && failed()));
                EXPECT_EQ(list.List(), err == 0 ? after : before);
                return err == 0;
            };
            step(HObjListInsert(list.handle, a, 0), {}, {a}) &&
                step(HObjListInsert(list.handle, nullptr, 0), {a}, {nullptr, a}) &&
                step(HObjListInsert(list.handle, b, 0), {nullptr, a}, {b, nullptr, a}) &&
                step(HObjListInsert(list.handle, nullptr, 0), {b, nullptr, a}, {nullptr, b, nullptr, a}) &&
                step(HCompactObjList(list.handle), {nullptr, b, nullptr, a}, {b, a});
            if (list.List() == Objects{b, a}) {
                EXPECT_EQ(HObjListDelete(list.handle, 0), b) << "also when the block can't shrink";
                EXPECT_EQ(list.List(), Objects{a});
            }
        },
        FailAllocation::kBlocks);
    reports.TakeAll();
}

}  // namespace
