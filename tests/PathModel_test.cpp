// Paths, named places and cached items that hold paths, under random edits, against a naive account of names and
// references: each path is asked for its names, and the tree is compared with all that is held, element by element.
// Then such worlds share the tree, one a thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "FaultLoop.h"
#include "PathCache.h"
#include "PathClassic.h"
#include "PathTesting.h"
#include "Racing.h"
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

bool AreAtOrBelow(const Names& names, const Names& above)
{
    return names.size() >= above.size() && std::equal(above.begin(), above.end(), names.begin());
}

// The names of a path behind which those of `tail`, but for its base, are appended.
Names Appended(Names names, const Names& tail)
{
    for (size_t i = 1; i < tail.size(); ++i) {
        const bool isUp = tail[i].empty() || tail[i] == "..";
        if (isUp && names.size() > 1 && !names.back().empty()) {
            names.pop_back();
        } else {
            names.push_back(isUp ? "" : tail[i]);
        }
    }
    return names[0] == "3" || names[0] == "4" ? kNoPath : names;
}

Names Replaced(Names names, int index, const std::string& name)
{
    const int count = static_cast<int>(names.size()) - 1;
    const int place = index < 0 ? index + count : index;
    if (place < 0 || place >= count) {
        return kNoPath;
    }
    names[static_cast<size_t>(place) + 1] = name;
    return names;
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
            Edit(Any(), Any());
            Store(Any(), Any());
            if (mIsAlone) {
                ChangeWhatIsShared(Any());
                LookUp(Any());
                CheckTree();
            }
            for (const Held& held : mHeld) {
                EXPECT_EQ(NamesOf(held.path), held.names);
            }
        }
    }

private:
    struct Held {
        PathRef path;
        Names names = kNoPath;
    };
    struct Item {
        Names value;
        bool isLive;
        bool isMeta;
    };

    unsigned Below(size_t limit) { return static_cast<unsigned>(mRandom() % limit); }
    Held& Any() { return mHeld[Below(mHeld.size())]; }

    void Convert(PathRef& path, const PathRef& from)
    {
        PathRef* made = Below(2) == 0 ? nullptr : new PathRef(1);
        EXPECT_EQ(from.ConvertToPath(&made), kzErrNone);
        path = made;
        EXPECT_EQ(FDestroyPath(&made), kzErrNone);
        EXPECT_EQ(made, nullptr);
    }

    // What can't be edited is then no path.
    void Edit(Held& at, Held& other)
    {
        const std::string& name = kSomeNames[Below(kSomeNames.size())];
        const int number = static_cast<int>(Below(7)) - 1;
        const Names& theirs = other.names;
        const bool isBase = number >= 0 && number < 5 && number != 3;
        const bool hasText = other.path.IsValid();
        const bool isRelative = theirs[0] == "1";
        const Names parent = theirs.size() > 1 ? Names(theirs.begin(), theirs.end() - 1) : kNoPath;
        const auto text = [&other] { return PathRef(other.path.ToString("pathref_unix"), "pathref_unix"); };
        const std::pair<std::function<void()>, Names> edits[] = {
            {[&] { at.path = PathRef(number); }, isBase ? Names{std::to_string(number)} : kNoPath},
            {[&] { at.path = std::move(other.path), other.names = at.names; }, theirs},
            {[&] { Convert(at.path, other.path); }, theirs},
            {[&] { at.path = hasText ? text() : other.path; }, hasText ? Appended({theirs[0]}, theirs) : theirs},
            {[&] { at.path = other.path.GetParentDirectory(); }, parent},
            {[&] { at.path = number < 0 ? nullptr : &other.path; }, number < 0 ? kNoPath : theirs},
            {[&] { at.path = other.path; }, theirs},
            {[&] { at.path.Append(other.path); }, isRelative ? Appended(at.names, theirs) : kNoPath},
            {[&] { at.path.Replace(number - 2, name); }, Replaced(at.names, number - 2, name)},
            {[&] { at.path.Append(name); }, Appended(at.names, {"1", name})}};
        const size_t way = at.names.size() > 40 ? 0 : std::min<size_t>(Below(12), std::size(edits) - 1);
        Thrown(edits[way].first);
        at.names = edits[way].second;
    }

    // Items hold paths, also their own or one above them.
    void Store(const Held& at, const Held& value)
    {
        const unsigned way = Below(4);
        if (way == 0) {
            at.path.FlushCache();
            std::erase_if(mItems, [&at](const auto& item) {
                return item.first == at.names && (!item.second.isLive || item.second.isMeta);
            });
        } else if (way == 1) {
            static_cast<void>(at.path.Cache("key", nullptr));
            mItems.erase(at.names);
        } else if (at.names != kNoPath) {
            const Item item = {value.names, Below(4) != 0, Below(2) != 0};
            const auto relation = item.isMeta ? CachedPath::kDependsOnMetaData : CachedPath::kIndependentOfMetaData;
            EXPECT_EQ(at.path.Cache("key", new CachedPath(value.path, item.isLive ? kHour : 0, relation)), kzErrNone);
            mItems[at.names] = item;
        }
    }

    // The named places, the blocks, whole branches, and the debug mode, which makes no difference.
    void ChangeWhatIsShared(Held& at)
    {
        const std::string name = "place" + std::to_string(Below(3));
        const bool isKnown = mPlaces.count(name) != 0;
        const unsigned way = Below(24);
        if (way == 0 && at.names != kNoPath) {
            FlushAllBelow(at.path.Element());
            std::erase_if(mItems, [&at](const auto& item) { return AreAtOrBelow(item.first, at.names); });
        } else if (way < 6) {
            EXPECT_EQ(at.path.AssignToName(name.c_str()), isKnown ? kzErrArgument : kzErrNone);
            if (at.names != kNoPath) {
                mPlaces.emplace(name, at.names);
            }
        } else if (way < 9) {
            PathItemStorage::SetNamed(name, nullptr);
            mPlaces.erase(name);
        } else if (way < 15) {
            EXPECT_EQ(Thrown([&] { at.path = PathRef(name.c_str()); }).first, isKnown ? kzErrNone : kzErrArgument);
            at.names = isKnown ? mPlaces[name] : at.names;
        } else if (way < 20) {
            PathRef::GarbageCollect(static_cast<int32>(way % 2));
        } else {
            PathRef::Setting(way % 2 == 0 ? "debug" : "nodebug");
        }
    }

    // The nearest item answers, or hides what is behind it. Of those below, any may come first.
    void LookUp(const Held& from)
    {
        const auto direction = static_cast<PathSearchDirection>(Below(3));
        bool isFound = false;
        PathRef holder = from.path;  // the path that asks may be the one that gets the answer
        const auto value = holder.GetCached<PathRef, CachedPath>("key", &isFound, direction, &holder);
        Names at = from.names;
        while (direction == kSearchAncestors && at.size() > 1 && mItems.count(at) == 0) {
            at.pop_back();
        }
        if (direction == kSearchDescendants && mItems.count(at) == 0 && isFound) {
            at = NamesOf(holder);
            EXPECT_TRUE(at.size() > from.names.size() && AreAtOrBelow(at, from.names));
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
            std::for_each(mHeld.begin(), mHeld.end(), [&](const Held& held) { count(held.names); });
            std::for_each(mPlaces.begin(), mPlaces.end(), [&](const auto& place) { count(place.second); });
            std::for_each(mItems.begin(), mItems.end(), [&](const auto& item) { count(item.second.value); });
        } while (std::erase_if(mItems, [&](const auto& item) { return references.count(item.first) == 0; }) != 0);

        EXPECT_EQ(kz::LivePathElementCount(), static_cast<int64>(references.size()));
        for (const Held& held : mHeld) {
            const PathItemElement* const element = held.path.Element();
            EXPECT_EQ(element != nullptr ? element->ReferenceCount() : 0, references[held.names]);
            EXPECT_EQ(element == mHeld[0].path.Element(), held.names == mHeld[0].names);
        }
        EXPECT_TRUE(kz::PathTreeIsSane());
        EXPECT_STREQ(kz::PathBlocksFault(), nullptr);
    }

    std::mt19937 mRandom;
    const bool mIsAlone;
    std::array<Held, 6> mHeld;
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
    constexpr int kThreads = 8;
    std::atomic<int> running{kThreads};
    kztest::Race(kThreads + 1, [&](int thread) {
        for (unsigned i = 0; thread < kThreads && i < kztest::ModelSequences() / 200; ++i) {
            World(i * kThreads + static_cast<unsigned>(thread), false).Run(100);
        }
        running -= thread < kThreads;
        for (int32 method = 1; thread == kThreads && running > 0; method = 3 - method) {
            PathRef::GarbageCollect(method);
            mReports.TakeAll();
            std::this_thread::yield();
        }
    });
}

}  // namespace
