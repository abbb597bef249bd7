// Elements come from blocks of 512, linked in a ring; a search goes on where the last one ended, so an allocation looks
// at few elements. An element is claimed by compare-and-swap of its in-use word and given back by storing 0 there. Both
// happen under the tree's lock; a path asks for the word without one.
//
// Every block stands twice: in the ring, where the allocation turns, and in a vector by address, where a pointer's
// block is found. Both are changed by AddBlock and Unlink alone, under mMutex, so they always hold the same blocks. The
// vector has a lock of its own because it is asked about pointers by threads that hold neither of the other two.
//
// A block goes only when it is empty, in a collection, or at the stop; so an element's address is good for as long as
// somebody holds a reference.
#include "PathItemStorage.h"

#include <algorithm>
#include <functional>
#include <new>
#include <utility>

#include "KzAssert.h"
#include "Report.h"
#include "ScopedLock.h"

constinit ThMutex PathItemStorage::mMutex = nullptr;
constinit ThMutex PathItemStorage::mBaseMutex = nullptr;
constinit PathItemStorage* PathItemStorage::mSearchPoint = nullptr;
constinit std::vector<PathItemStorage*>* PathItemStorage::mBases = nullptr;
constinit std::atomic<PathItemElement*> PathItemStorage::mStandard[kBaseCount]{};
constinit std::map<std::string, PathItemElement*>* PathItemStorage::mNames = nullptr;
constinit std::atomic<bool> PathItemStorage::mOkToSetStandardLocations{true};

namespace {

constexpr char kModule[] = "source/PathItemStorage";

bool IsABase(int32 base)
{
    return base >= 0 && base < PathItemStorage::kBaseCount;
}

}  // namespace

// ---- Blocks ----

PathItemStorage::PathItemStorage() = default;

PathItemStorage::~PathItemStorage()
{
    // The elements end while the block can still be found, because an element asks whether its parent lies in a block.
    const int32 live = ReportLive();
    if (live > 0) {
        KZ_REPORT(kDbgWarning, 0xA2F6310D) << "Killing a storage buffer with " << live << " live object(s)";
    }
    for (PathItemElement& element : mElements) {
        element.RetireUnsafe();
    }
    Unlink();
}

// Names each element that goes with its block while somebody holds it: only a stop does that, after a leak.
int32 PathItemStorage::ReportLive()
{
    int32 live = 0;
    for (const PathItemElement& element : mElements) {
        if (element.InUse()) {
            KZ_LOG(kDbgInternal) << "element= 0x" << DbgFmtPtr(&element);
            KZ_LOG(kDbgInternal) << "name= " << element.Name().c_str();
            KZ_LOG(kDbgInternal) << "parent= " << DbgFmtPtr(element.Parent());
            ++live;
        }
    }
    return live;
}

PathItemStorage* PathItemStorage::Before()
{
    KZ_ASSERT(mNext != nullptr);
    PathItemStorage* before = this;
    while (before->mNext != this) {
        before = before->mNext;
    }
    return before;
}

void PathItemStorage::Unlink()
{
    // A block that no memory was left to list was never in the ring.
    if (mNext != nullptr) {
        Before()->mNext = mNext;
        if (mSearchPoint == this) {
            mSearchPoint = mNext == this ? nullptr : mNext;
        }
        mNext = nullptr;
    }
    KZ_ASSERT(mSearchPoint != this);
    const kz::ScopedLock lock(mBaseMutex);
    if (mBases != nullptr) {
        mBases->erase(std::remove(mBases->begin(), mBases->end(), this), mBases->end());
    }
}

PathItemStorage* PathItemStorage::AddBlock(PathItemStorage* after)
{
    PathItemStorage* const block = new (std::nothrow) PathItemStorage;
    if (block == nullptr) {
        return nullptr;
    }
    // The list comes first because only it can fail; a block that is in the ring is always listed.
    try {
        const kz::ScopedLock lock(mBaseMutex);
        if (mBases != nullptr) {
            mBases->insert(std::lower_bound(mBases->begin(), mBases->end(), block, std::less<>()), block);
        }
    } catch (const std::bad_alloc&) {
        delete block;
        return nullptr;
    }
    if (after == nullptr) {
        block->mNext = block;
    } else {
        block->mNext = std::exchange(after->mNext, block);
    }
    mSearchPoint = block;
    return block;
}

bool PathItemStorage::IsEmpty() const
{
    return std::none_of(std::begin(mElements), std::end(mElements),
                        [](const PathItemElement& element) { return element.InUse(); });
}

std::vector<PathItemStorage*>::iterator PathItemStorage::BlockAt(const void* pointer)
{
    return std::upper_bound(mBases->begin(), mBases->end(), pointer,
                            [](const void* sought, const PathItemStorage* block) {
                                return std::less<>()(sought, static_cast<const void*>(block->mElements + kElements));
                            });
}

bool PathItemStorage::Contains(const void* pointer)
{
    const kz::ScopedLock lock(mBaseMutex);
    if (mBases == nullptr) {
        return false;
    }
    const auto it = BlockAt(pointer);
    return it != mBases->end() && !std::less<>()(pointer, static_cast<const void*>((*it)->mElements));
}

// ---- Allocation ----

PathItemElement* PathItemStorage::Claim()
{
    KZ_ASSERT(mSearchIndex >= 0 && mSearchIndex < kElements);
    for (int32 tries = 0; tries < kElements; ++tries) {
        PathItemElement& element = mElements[mSearchIndex];
        mSearchIndex = mSearchIndex == 0 ? kElements - 1 : mSearchIndex - 1;
        uInt32 expected = 0;
        // Acquire pairs with the release of whoever gave the element back.
        if (!element.InUse() && element.mInUse.compare_exchange_strong(expected, 1, std::memory_order_acq_rel)) {
            return &element;
        }
    }
    return nullptr;
}

PathItemElement* PathItemStorage::AllocateElement()
{
    // The search starts where the last one found something, because elements are made in runs: the blocks before that
    // place were full a moment ago.
    if (mSearchPoint != nullptr) {
        PathItemStorage* block = mSearchPoint;
        do {
            if (PathItemElement* const element = block->Claim()) {
                mSearchPoint = block;
                return element;
            }
            block = block->mNext;
        } while (block != mSearchPoint);
    }
    PathItemStorage* const block = AddBlock(mSearchPoint);
    if (block == nullptr) {
        KZ_REPORT(kDbgWarning, 0x68D3B1F9) << "Out of memory!";
        return nullptr;
    }
    return block->Claim();
}

PathItemElement* PathItemStorage::Create(std::string_view name, int32 hash, PathItemElement* parent, size_t index)
{
    KZ_ASSERT(parent == nullptr || parent->InUse());
    const kz::ScopedLock lock(mMutex);
    PathItemElement* const element = AllocateElement();
    KZ_ASSERT(element == nullptr || element->ReferenceCount() <= 0);
    if (element != nullptr && !element->Init(name, hash, parent, index)) {
        element->mInUse.store(0, std::memory_order_release);
        return nullptr;
    }
    return element;
}

// ---- Bases and names. The old element is released after the lock: its release needs the outer one. ----

int32 PathItemStorage::BaseOf(const PathItemElement& element)
{
    const PathItemElement* const root = element.Root();
    for (int32 base = 0; base < kBaseCount; ++base) {
        if (root == Standard(base)) {
            return base;
        }
    }
    // By name too: a base that was replaced in the table still roots the paths made before.
    for (int32 base = 0; base < kBaseCount; ++base) {
        const PathItemElement* const standard = Standard(base);
        if (standard != nullptr && standard->Name() == root->Name()) {
            return base;
        }
    }
    return -1;
}

void PathItemStorage::SetStandard(int32 base, PathItemElement* element)
{
    if (!IsABase(base)) {
        return;
    }
    // Readers take the element out of the table without a lock and add their reference after that. Between the two
    // steps of one that is under way the old base could go, so the table is filled before others look into it.
    if (!mOkToSetStandardLocations.load(std::memory_order_relaxed)) {
        KZ_REPORT(kDbgWarning, 0x0FE5A47C)
            << "Possible threading issue, see documentation note for PathItemStorage::SetStandard!";
    }
    if (element != nullptr) {
        element->AddReference();
    }
    PathItemElement* const old = mStandard[base].exchange(element, std::memory_order_acq_rel);
    if (old != nullptr) {
        old->ReleaseCore(false);
    }
}

// An entry stays in the map when its element goes, because names are few and come back, and because the stop clears the
// entries while it goes through the map. False if `onlyIfFree` and the name is taken.
bool PathItemStorage::PutNamed(const std::string& name, PathItemElement* element, bool onlyIfFree)
{
    KZ_ASSERT(element == nullptr || element->ReferenceCount() > 0);
    PathItemElement* old = nullptr;
    {
        const kz::ScopedLock lock(mMutex);
        if (mNames == nullptr) {
            return true;
        }
        auto it = mNames->find(name);
        if (it == mNames->end()) {
            if (element == nullptr) {
                return true;
            }
            it = mNames->emplace(name, nullptr).first;
        } else if (onlyIfFree && it->second != nullptr) {
            return false;
        }
        if (element != nullptr) {
            element->AddReference();
        }
        old = std::exchange(it->second, element);
    }
    if (old != nullptr) {
        old->ReleaseCore(false);
    }
    return true;
}

void PathItemStorage::SetNamed(const std::string& name, PathItemElement* element)
{
    PutNamed(name, element, false);
}

bool PathItemStorage::SetNamedIfFree(const std::string& name, PathItemElement* element)
{
    return PutNamed(name, element, true);
}

PathItemElement* PathItemStorage::FindNamed(const std::string& name)
{
    const kz::ScopedLock lock(mMutex);
    if (mNames == nullptr) {
        return nullptr;
    }
    const auto it = mNames->find(name);
    if (it == mNames->end() || it->second == nullptr) {
        return nullptr;
    }
    // Added under the lock, because the table's own reference, which keeps the element alive until then, may go with
    // the next change of the name.
    it->second->AddReference();
    return it->second;
}

// ---- Collection ----

// Needs no memory, because a stop runs it.
uInt64 PathItemStorage::GarbageCollect(int32 method)
{
    uInt64 reclaimed = 0;
    {
        // Both locks once, in their order, for the whole run: a creation that runs meanwhile waits at the first.
        const kz::ScopedLock treeLock(PathItemElement::mMutex);
        const kz::ScopedLock lock(mMutex);
        PathItemStorage* const last = mSearchPoint == nullptr ? nullptr : mSearchPoint->Before();
        for (PathItemStorage* block = mSearchPoint; block != nullptr;) {
            PathItemStorage* const next = block == last ? nullptr : block->mNext;
            if (method == 2) {
                block->FlushFree();
            }
            if (method != 0 && block->IsEmpty()) {
                delete block;
                reclaimed += sizeof(PathItemStorage);
            }
            block = next;
        }
        KZ_ASSERT_SLOW(RingFault() == nullptr);
    }
    if (method == 2) {
        ReportHeld();
    }
    KZ_LOG(kDbgInternal) << "Path Garbage Collect: " << static_cast<unsigned long long>(reclaimed)
                         << " bytes reclaimed";
    return reclaimed;
}

// Lets free elements drop the items and the room for children that they still have. A release leaves neither, so this
// finds only what a fault has left.
void PathItemStorage::FlushFree()
{
    for (PathItemElement& element : mElements) {
        if (!element.InUse()) {
            element.FlushCore(kFlushAll);
        }
    }
}

// Reports each element that is held from outside. No lock is held meanwhile, since the handler of a report may use
// paths; a reference keeps the element in place that is reported, and with it the place where the search goes on. The
// handler may also keep paths, so there are at most as many reports as elements were in use at the start.
void PathItemStorage::ReportHeld()
{
    PathItemElement* element = nullptr;
    for (int64 left = LiveCount(); left > 0; --left) {
        int32 references = 0;
        element = NextHeld(element, &references);
        if (element == nullptr) {
            return;
        }
        KZ_LOG(kDbgInternal) << "Leaked Path Element: " << references << " refs to " << element->Name().c_str();
    }
    if (element != nullptr) {
        element->ReleaseCore(false);
    }
}

// The next element behind `after` (null: of all) that is held from outside, with one reference more for the caller, or
// null; `*references` is the number of those it had. Takes over the caller's reference on `after`.
PathItemElement* PathItemStorage::NextHeld(PathItemElement* after, int32* references)
{
    const kz::ScopedLock treeLock(PathItemElement::mMutex);
    PathItemElement* held = nullptr;
    {
        const kz::ScopedLock lock(mBaseMutex);
        PathItemElement* const from = after == nullptr ? nullptr : after + 1;
        for (auto it = BlockAt(from); it != mBases->end() && held == nullptr; ++it) {
            PathItemElement* at = std::max<PathItemElement*>(from, (*it)->mElements, std::less<>());
            for (PathItemElement* const end = (*it)->mElements + kElements; at != end && held == nullptr; ++at) {
                held = at->InUse() && at->GetReferencedInfo(references) ? at : nullptr;
            }
        }
    }
    if (held != nullptr) {
        held->AddReference();
    }
    if (after != nullptr) {
        after->ReleaseUnsafe();
    }
    return held;
}

int64 PathItemStorage::LiveCount()
{
    // The tree's lock too, so that no release is half-way: it frees a chain one element at a time.
    const kz::ScopedLock treeLock(PathItemElement::mMutex);
    const kz::ScopedLock lock(mMutex);
    int64 live = 0;
    const PathItemStorage* block = mSearchPoint;
    if (block != nullptr) {
        do {
            live += std::count_if(std::begin(block->mElements), std::end(block->mElements),
                                  [](const PathItemElement& element) { return element.InUse(); });
            block = block->mNext;
        } while (block != mSearchPoint);
    }
    return live;
}

void PathItemStorage::DestroyAllBlocks()
{
    const kz::ScopedLock treeLock(PathItemElement::mMutex);
    const kz::ScopedLock lock(mMutex);
    while (mSearchPoint != nullptr) {
        delete mSearchPoint;
    }
}

// ---- Start and stop ----

KzErr PathItemStorage::Init()
{
    // A failure leaves what was made until then to UnInit, which the caller runs.
    KZ_ASSERT(mSearchPoint == nullptr && mBases == nullptr && mNames == nullptr);
    KzErr err = ThMutexCreate(&mMutex, "PathItemStorage::mMutex");
    if (err == kzErrNone) {
        err = ThMutexCreate(&mBaseMutex, "PathItemStorage::mBaseMutex");
    }
    if (err != kzErrNone) {
        return err;
    }
    mNames = new (std::nothrow) std::map<std::string, PathItemElement*>;
    mBases = new (std::nothrow) std::vector<PathItemStorage*>;
    mOkToSetStandardLocations.store(true, std::memory_order_relaxed);
    return mNames != nullptr && mBases != nullptr ? kzErrNone : kzErrMemoryFull;
}

KzErr PathItemStorage::UnInit()
{
    if (mNames != nullptr) {
        for (auto& entry : *mNames) {
            SetNamed(entry.first, nullptr);
        }
    }
    mOkToSetStandardLocations.store(false, std::memory_order_relaxed);
    // Caches go before leaks are looked for, because an item may hold a path: what is then held is held by a host.
    for (int32 base = 0; base < kBaseCount; ++base) {
        if (PathItemElement* const element = mStandard[base].load(std::memory_order_acquire)) {
            const kz::ScopedLock lock(PathItemElement::mMutex);
            element->FlushCore(kFlushSubtree);
        }
    }
    GarbageCollect(2);
    // A base is purged after the table has let go of it. It is free then, and has nothing below it, unless something
    // was leaked; a free element stays readable, since its block goes at the end.
    for (int32 base = 0; base < kBaseCount; ++base) {
        mOkToSetStandardLocations.store(true, std::memory_order_relaxed);
        PathItemElement* const element = mStandard[base].load(std::memory_order_acquire);
        SetStandard(base, nullptr);
        bool clean = true;
        if (element != nullptr) {
            const kz::ScopedLock lock(PathItemElement::mMutex);
            clean = element->PurgeCore();
        }
        if (!clean) {
            KZ_REPORT(kDbgWarning, 0xB9174D2E) << "Possible path leak, unable to purge elements of base #" << base;
        }
    }
    DestroyAllBlocks();
    delete std::exchange(mBases, nullptr);
    delete std::exchange(mNames, nullptr);
    ThMutexDestroy(std::exchange(mBaseMutex, nullptr));
    ThMutexDestroy(std::exchange(mMutex, nullptr));
    return kzErrNone;
}

// ---- Checks ----

// What is wrong with one element, apart from what IsSane looks at; null for nothing.
const char* PathItemStorage::ElementFault(const PathItemElement& element)
{
    if (!element.InUse()) {
        return element.mParent != nullptr || element.mRoot != &element ? "a free element has a parent"
               : element.ReferenceCount() > 0                          ? "a free element is referenced"
               : !element.mChildren.empty()                            ? "a free element has children"
               : element.mCache != nullptr                             ? "a free element caches items"
                                                                       : nullptr;
    }
    if (element.ReferenceCount() < 1) {
        return "an element in use has no references";
    }
    if (element.mParent == nullptr) {
        return element.mRoot != &element ? "a base has another root" : nullptr;
    }
    if (!Contains(element.mParent) || !element.mParent->InUse()) {
        return "a parent is no element in use";
    }
    size_t index = 0;
    return element.mParent->FindChild(&element, &index) == nullptr ? "a parent does not know its child" : nullptr;
}

const char* PathItemStorage::RingFault()
{
    size_t listed = 0;
    {
        const kz::ScopedLock lock(mBaseMutex);
        if (mBases == nullptr) {
            return mSearchPoint != nullptr ? "there are blocks while paths are not up" : nullptr;
        }
        if (!std::is_sorted(mBases->begin(), mBases->end(), std::less<>())) {
            return "the list of blocks is out of order";
        }
        listed = mBases->size();
    }
    // No more steps than there are listed blocks: a ring that misses its start would never end.
    size_t found = 0;
    for (const PathItemStorage* block = mSearchPoint; block != nullptr && found <= listed;) {
        ++found;
        if (!Contains(block->mElements) || block->mSearchIndex < 0 || block->mSearchIndex >= kElements) {
            return "a block of the ring is not listed, or searches outside itself";
        }
        for (const PathItemElement& element : block->mElements) {
            if (const char* const fault = ElementFault(element)) {
                return fault;
            }
        }
        block = block->mNext == mSearchPoint ? nullptr : block->mNext;
    }
    return found != listed ? "the ring and the list hold different blocks" : nullptr;
}

const char* PathItemStorage::Fault()
{
    const kz::ScopedLock treeLock(PathItemElement::mMutex);
    const kz::ScopedLock lock(mMutex);
    return RingFault();
}

namespace kz {

int64 LivePathElementCount()
{
    return PathItemStorage::LiveCount();
}

bool PathTreeIsSane()
{
    for (int32 base = 0; base < PathItemStorage::kBaseCount; ++base) {
        PathItemElement* const element = PathItemStorage::Standard(base);
        if (element != nullptr && !element->IsSaneDeep(false)) {
            return false;
        }
    }
    return true;
}

const char* PathBlocksFault()
{
    return PathItemStorage::Fault();
}

}  // namespace kz
