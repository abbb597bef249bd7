// What paths hold, against a naive account of it: paths, named places and cached items that hold paths, under random
// edits. Which names an edit gives is the stored vectors' matter; here each path is asked for its names, and the tree
// is compared with all that are held, element by element. Then such worlds share the tree, one a thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "FaultLoop.h"
#include "PathCache.h"
#include "PathTesting.h"
#include "ScopedLock.h"

namespace {

using kztest::Names;
using kztest::NamesOf;
using kztest::Thrown;

constexpr int32 kHour = 3600 * 1000;
const Names kNoPath = {"3"};
// Some differ by case alone, some have one hash, some mean something to Append.
const Names kSomeNames = {"a", "b", "A", "aaqq", "aara", "aau1", "abaq", "abba", "", "..", ".."};

void FlushAllBelow(PathItemElement* element)
{
    const kz::ScopedLock lock(PathItemElement::mMutex);
    element->FlushCore(kFlushSubtree);
}

class World {
public:
    // One that is alone in the tree knows all that is in it.
    World(unsigned seed, bool isAlone) : mRandom(seed), mIsAlone(isAlone) {}
    ~World()
    {
        for (const auto& place : mPlaces) {
            PathItemStorage::SetNamed(place.first, nullptr);
        }
        for (const int base : {0, 1, 2, 4}) {
            FlushAllBelow(PathItemStorage::Standard(base));
        }
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void Run(int steps)
    {
        for (int i = 0; i < steps && !::testing::Test::HasFailure(); ++i) {
            const PathRef& left = Any();  // a neighbour that nobody edits
            const Names names = NamesOf(left);
            PathRef& edited = Any();
            Edit(edited, Any());
            EXPECT_TRUE(&left == &edited || mExchanged == &left || NamesOf(left) == names);
            Store(Any(), Any());
            if (mIsAlone) {
                ChangeWhatIsShared(Any());
                LookUp(Any());
                CheckTree();
            }
        }
    }

private:
    struct Item {
        Names value;
        bool isLive;
        bool isMeta;
    };

    unsigned Below(size_t limit) { return static_cast<unsigned>(mRandom() % limit); }
    PathRef& Any() { return mHeld[Below(mHeld.size())]; }

    void Edit(PathRef& at, PathRef& other)
    {
        const std::string& name = kSomeNames[Below(kSomeNames.size())];
        mExchanged = nullptr;
        static_cast<void>(Thrown([&] {
            switch (at.ItemCount() > 40 ? 0 : Below(12)) {
                case 0:
                    at = PathRef(static_cast<int>(Below(7)) - 1);
                    break;
                case 1:
                    mExchanged = &other;
                    at = std::move(other);
                    break;
                case 2: {
                    PathRef* made = Below(2) == 0 ? nullptr : new PathRef(1);
                    EXPECT_EQ(other.ConvertToPath(&made), kzErrNone);
                    at = made;
                    PathRef::DisposePath(made);
                    EXPECT_EQ(made, nullptr);
                    break;
                }
                case 3:
                    at = other.IsValid() ? PathRef(other.ToString("pathref_unix"), "pathref_unix") : other;
                    break;
                case 4:
                    at = other.GetParentDirectory();
                    break;
                case 5:
                    at = other;
                    break;
                case 6:
                case 7:
                    at.Append(other);
                    break;
                case 8:
                    at.Replace(static_cast<int>(Below(4)) - 2, name);
                    break;
                default:
                    at.Append(name);
            }
        }));
    }

    // Items hold paths, also their own or one above them.
    void Store(const PathRef& at, const PathRef& value)
    {
        const Names names = NamesOf(at);
        const unsigned way = Below(4);
        if (way == 0) {
            at.FlushCache();
            const auto item = mItems.find(names);
            if (item != mItems.end() && (!item->second.isLive || item->second.isMeta)) {
                mItems.erase(item);
            }
        } else if (way == 1) {
            static_cast<void>(at.Cache("key", nullptr));
            mItems.erase(names);
        } else if (names != kNoPath) {
            const Item item = {NamesOf(value), Below(4) != 0, Below(2) != 0};
            const auto relation = item.isMeta ? CachedPath::kDependsOnMetaData : CachedPath::kIndependentOfMetaData;
            EXPECT_EQ(at.Cache("key", new CachedPath(value, item.isLive ? kHour : 0, relation)), kzErrNone);
            mItems[names] = item;
        }
    }

    // The named places, the blocks, whole branches, and the debug mode, which makes no difference.
    void ChangeWhatIsShared(PathRef& at)
    {
        const std::string name = "place" + std::to_string(Below(3));
        const bool isKnown = mPlaces.count(name) != 0;
        const Names names = NamesOf(at);
        const unsigned way = Below(24);
        if (way == 0 && names != kNoPath) {
            FlushAllBelow(at.Element());
            std::erase_if(mItems, [&](const auto& item) {
                return item.first.size() >= names.size() && std::equal(names.begin(), names.end(), item.first.begin());
            });
        } else if (way < 6) {
            EXPECT_EQ(at.AssignToName(name.c_str()), isKnown ? kzErrArgument : kzErrNone);
            if (!isKnown && names != kNoPath) {
                mPlaces[name] = names;
            }
        } else if (way < 9) {
            PathItemStorage::SetNamed(name, nullptr);
            mPlaces.erase(name);
        } else if (way < 15) {
            EXPECT_EQ(Thrown([&] { at = PathRef(name.c_str()); }), isKnown ? kzErrNone : kzErrArgument);
            EXPECT_EQ(NamesOf(at), isKnown ? mPlaces[name] : names);
        } else if (way < 20) {
            PathRef::GarbageCollect(static_cast<int32>(way % 2));
        } else {
            PathRef::Setting(way % 2 == 0 ? "debug" : "nodebug");
        }
    }

    // The nearest item answers, or hides what is behind it. Of those below, any may come first.
    void LookUp(const PathRef& from)
    {
        const auto direction = static_cast<PathSearchDirection>(Below(3));
        const Names names = NamesOf(from);
        bool isFound = false;
        PathRef holder = from;  // the path that asks may be the one that gets the answer
        const auto value = holder.GetCached<PathRef, CachedPath>("key", &isFound, direction, &holder);
        Names at = names;
        while (direction == kSearchAncestors && at.size() > 1 && mItems.count(at) == 0) {
            at.pop_back();
        }
        if (direction == kSearchDescendants && mItems.count(at) == 0 && isFound) {
            at = NamesOf(holder);
            EXPECT_TRUE(at.size() > names.size() && std::equal(names.begin(), names.end(), at.begin()));
        }
        const auto item = mItems.find(at);
        const bool isExpected = item != mItems.end() && item->second.isLive;
        EXPECT_EQ(isFound, isExpected) << direction;
        EXPECT_EQ(NamesOf(value), isExpected ? item->second.value : kNoPath);
        EXPECT_EQ(NamesOf(holder), isExpected ? at : kNoPath);
    }

    // An element for each path that is held and each on its way, none more, and all references counted.
    void CheckTree()
    {
        std::map<Names, int> references;
        const auto count = [&](Names names) {
            while (names != kNoPath && ++references[names] == 1) {
                names.pop_back();
            }
        };
        do {  // items go with their elements, and may have held others
            references = {{{"0"}, 1}, {{"1"}, 1}, {{"2"}, 1}, {{"4"}, 1}};  // the table's own
            std::for_each(mHeld.begin(), mHeld.end(), [&](const PathRef& held) { count(NamesOf(held)); });
            std::for_each(mPlaces.begin(), mPlaces.end(), [&](const auto& place) { count(place.second); });
            std::for_each(mItems.begin(), mItems.end(), [&](const auto& item) { count(item.second.value); });
        } while (std::erase_if(mItems, [&](const auto& item) { return references.count(item.first) == 0; }) != 0);

        EXPECT_EQ(kz::LivePathElementCount(), static_cast<int64>(references.size()));
        for (const PathRef& held : mHeld) {
            const PathItemElement* const element = held.Element();
            EXPECT_EQ(element != nullptr ? element->ReferenceCount() : 0, references[NamesOf(held)]);
            EXPECT_EQ(element == mHeld[0].Element(), NamesOf(held) == NamesOf(mHeld[0]));
        }
        EXPECT_TRUE(kz::PathTreeIsSane());
        EXPECT_STREQ(kz::PathBlocksFault(), nullptr);
    }

    std::mt19937 mRandom;
    const bool mIsAlone;
    std::array<PathRef, 6> mHeld;
    const PathRef* mExchanged = nullptr;  // by the last edit
    std::map<std::string, Names> mPlaces;
    std::map<Names, Item> mItems;
};

class PathModelTest : public kztest::PathTest {};

TEST_F(PathModelTest, Alone)
{
    for (unsigned seed = 0; seed < kztest::ModelSequences() / 20 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        World(seed, true).Run(100);
        mReports.TakeAll();
    }
    PathRef::Setting("nodebug");
}

// Made for the thread sanitizer: elements that threads meet on come and go while blocks are collected.
TEST_F(PathModelTest, SharedByThreads)
{
    constexpr unsigned kThreads = 8;
    const int64 before = kz::LivePathElementCount();
    std::atomic<unsigned> running{kThreads};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t) {
        threads.emplace_back([&running, t] {
            for (unsigned i = 0; i < kztest::ModelSequences() / 200; ++i) {
                World(t + i * kThreads, false).Run(100);
            }
            --running;
        });
    }
    for (int32 method = 1; running > 0; method = 3 - method) {
        PathRef::GarbageCollect(method);
        mReports.TakeAll();
        std::this_thread::yield();
    }
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
    EXPECT_EQ(kz::LivePathElementCount(), before);
}

}  // namespace
