// The shared tree of path names.
//
//     [absolute]      [relative]      [unc]  [NULL]      bases, held by PathItemStorage's table
//      |     |            |
//     usr   data         ""   (an up dir)
//      |
//     lib  <- PathRef, PathRef, ...                      every child holds one reference on its parent
//
// Two paths of the same components hold the same element: a child of a given name exists once. Counts grow without a
// lock, and shrink without one as long as they stay above 0. The last reference is dropped under mMutex only, which is
// what lets a look-up under mMutex hand out any child that it finds: the child can't be on its way out.
//
// What an element is changes in three places only. A claim by its block and Init make it a child, ReleaseCore ends it
// when the last reference goes, and PurgeCore ends it by force at the stop. In between its name, parent, root and count
// are constant, so every holder of a reference reads them, and all ancestors, without a lock. The root is kept although
// the parents lead to it, because a path asks for its base far more often than it is made.
//
// Nothing recurses from parent to child or back, apart from the sanity check with its limit: a chain may have more
// names than a thread's stack has room for calls.
#include "PathItemElement.h"

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "KzAssert.h"
#include "PathItemCache.h"
#include "PathItemStorage.h"
#include "Report.h"
#include "ScopedLock.h"
#include "StringHash.h"
#include "zvexcept.h"

static_assert(std::is_standard_layout_v<PathItemElement>, "kz::HeadOf takes an element for its first member");

constinit ThMutex PathItemElement::mMutex = nullptr;

namespace {

constexpr char kModule[] = "source/PathItemElement";

// How far IsSane follows parents before it takes the linkage for a ring.
constexpr int32 kDeepestSanityCheck = 512;
// A new element's name and its first children find room.
constexpr size_t kFreshNameLength = 12;
constexpr size_t kFirstChildren = 2;

// Up to so many children their names are compared before the sought one is hashed, which costs more.
constexpr size_t kFewChildren = 4;

// What an empty cache and its map count for.
constexpr uInt64 kMapBytes = 48;

int32 HashOf(std::string_view name)
{
    return static_cast<int32>(kz::HashOfText(name.data(), name.size()));
}

// Finds the entry of this hash for which `matches` is true. Without one gives null, and the position behind the
// entries of that hash, where a new one keeps the order.
template <typename Matches>
PathItemElement* FindByHash(const std::vector<PathItemElement::ChildItem>& children, int32 hash, size_t* index,
                            Matches&& matches)
{
    auto it = std::lower_bound(children.begin(), children.end(), hash,
                               [](const PathItemElement::ChildItem& item, int32 sought) { return item.hash < sought; });
    for (; it != children.end() && it->hash == hash; ++it) {
        if (matches(*it->child)) {
            break;
        }
    }
    *index = static_cast<size_t>(it - children.begin());
    return it != children.end() && it->hash == hash ? it->child : nullptr;
}

}  // namespace

PathItemElement::PathItemElement() : mName(kFreshNameLength, '0') {}

PathItemElement::~PathItemElement()
{
    FlushOwnItems(kFlushAll);
}

// The element's end with its block, while the block can still be found: reports what is held and unlinks the element.
void PathItemElement::RetireUnsafe()
{
    // A number below 0 is reported too, because somebody has then released the element once too often.
    const int32 references = ReferenceCount();
    if (references != 0) {
        KZ_LOG(kDbgInternal) << "name= " << mName.c_str();
        KZ_LOG(kDbgInternal) << "parent= " << DbgFmtPtr(mParent);
        KZ_REPORT(kDbgWarning, 0x3D0C7A51) << "Deleting PathItemElement with outstanding references = " << references;
        mHead.mReferenceCount.store(0, std::memory_order_relaxed);
    }
    mInUse.store(0, std::memory_order_relaxed);
    // Blocks go one after the other, so a parent that leaked with its child may be gone already.
    if (mParent != nullptr && !ValidElement(mParent)) {
        KZ_LOG(kDbgInternal) << "element= " << DbgFmtPtr(this);
        KZ_LOG(kDbgInternal) << "name= " << mName.c_str();
        KZ_LOG(kDbgInternal) << "parent= " << DbgFmtPtr(mParent);
        KZ_REPORT(kDbgWarning, 0x94E6F20B) << "Invalid parent";
        DetachUnsafe();
    }
    RemoveParent();
}

// ---- Children ----

PathItemElement* PathItemElement::FindChild(std::string_view name, int32 hash, size_t* index) const
{
    if (index == nullptr) {
        return nullptr;
    }
    return FindByHash(mChildren, hash, index, [name](const PathItemElement& child) { return child.mName == name; });
}

PathItemElement* PathItemElement::FindChild(const PathItemElement* child, size_t* index) const
{
    if (index == nullptr || child == nullptr) {
        return nullptr;
    }
    return FindByHash(mChildren, HashOf(child->mName), index,
                      [child](const PathItemElement& candidate) { return &candidate == child; });
}

PathItemElement* PathItemElement::FindOrCreateUnsafe(std::string_view name, bool* made)
{
    KZ_ASSERT(made != nullptr && InUse());
    *made = false;
    // Comparing a few names takes less time than hashing one.
    if (mChildren.size() <= kFewChildren) {
        for (const ChildItem& item : mChildren) {
            if (item.child->mName == name) {
                return item.child;
            }
        }
    }
    const int32 hash = HashOf(name);
    size_t index = 0;
    if (PathItemElement* const child = FindChild(name, hash, &index)) {
        return child;
    }
    *made = true;
    return PathItemStorage::Create(name, hash, this, index);
}

PathItemElement* PathItemElement::CreateChild(std::string_view name)
{
    const kz::ScopedLock lock(mMutex);
    bool made = false;
    PathItemElement* const child = FindOrCreateUnsafe(name, &made);
    if (child != nullptr && !made) {
        child->AddReference();
    }
    return child;
}

void PathItemElement::RemoveChild(const PathItemElement* child, size_t* index)
{
    size_t position = 0;
    if (FindChild(child, &position) == nullptr) {
        return;
    }
    mChildren.erase(mChildren.begin() + static_cast<std::ptrdiff_t>(position));
    mChildrenChecked = 0;
    if (index != nullptr) {
        *index = position;
    }
}

bool PathItemElement::RemoveParent()
{
    if (InUse() || mParent == nullptr) {
        return false;
    }
    PathItemElement* const parent = mParent;
    DetachUnsafe();
    parent->RemoveChild(this, nullptr);
    parent->ReleaseUnsafe();
    return true;
}

// The walk through all below an element: children before their parent, siblings from the last to the first, and the
// element itself at the end. The tree alone tells the way, so no memory is needed; it must not lose what is still to
// come, and gain nothing.
PathItemElement* PathItemElement::FirstOfWalk()
{
    PathItemElement* at = this;
    while (!at->mChildren.empty()) {
        at = at->mChildren.back().child;
    }
    return at;
}

PathItemElement* PathItemElement::NextOfWalk()
{
    KZ_ASSERT(mParent != nullptr);
    size_t index = 0;
    const bool isChild = mParent->FindChild(this, &index) == this;
    return isChild && index > 0 ? mParent->mChildren[index - 1].child->FirstOfWalk() : mParent;
}

// ---- Life ----

// Makes a claimed element this child of `parent`, with one reference. False without memory: no child was added.
bool PathItemElement::Init(std::string_view name, int32 hash, PathItemElement* parent, size_t index)
{
    // A released element has no parent. One that has was left so by a fault elsewhere, and is taken out of that
    // parent's children first, which may move the place that was found for it.
    if (mParent != nullptr) {
        PathItemElement* const old = mParent;
        DetachUnsafe();
        size_t position = old->mChildren.size();
        old->RemoveChild(this, &position);
        if (old == parent && position < index) {
            --index;
        }
        old->ReleaseUnsafe();
    }
    // All that can fail comes before the first change that others could see.
    try {
        mName = name;
        if (parent != nullptr && parent->mChildren.size() == parent->mChildren.capacity()) {
            parent->mChildren.reserve(std::max(kFirstChildren, parent->mChildren.size() * 2));
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    FlushCore(kFlushAll);
    // Relaxed, since only the maker knows the element until the lock is given back.
    mHead.mReferenceCount.store(1, std::memory_order_relaxed);
    mHead.mCount = 0;
    if (parent != nullptr) {
        AdoptUnsafe(parent, hash, index);
    }
    return true;
}

// Makes this element a child of `parent`, whose children have room.
void PathItemElement::AdoptUnsafe(PathItemElement* parent, int32 hash, size_t index)
{
    auto& siblings = parent->mChildren;
    KZ_ASSERT(mParent == nullptr && parent != this && parent->InUse());
    KZ_ASSERT(siblings.size() < siblings.capacity());
    siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(std::min(index, siblings.size())),
                    ChildItem{hash, this});
    parent->mChildrenChecked = 0;
    parent->AddReference();
    mParent = parent;
    mRoot = parent->mRoot;
    mHead.mCount = parent->Count() + 1;
}

// Forgets the parent, whose children the caller has to change.
void PathItemElement::DetachUnsafe()
{
    mParent = nullptr;
    mRoot = this;
}

// Drops one reference; true if it was the last: the element is then out of its parent's children, and still has it.
bool PathItemElement::ReleaseStartUnsafe()
{
    if (ReferenceCount() < 1) {
        KZ_LOG(kDbgInternal) << "name= " << mName.c_str();
        KZ_LOG(kDbgInternal) << "element= " << DbgFmtPtr(this);
        KZ_LOG(kDbgInternal) << "count= " << ReferenceCount();
        KZ_REPORT(kDbgWarning, 0xC81F4E96) << "Release of PathItemElement, but we did not have enough retains";
    }
    // Acquire: sees all that earlier holders did with the element before they let go of it.
    if (mHead.mReferenceCount.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return false;
    }
    if (mParent != nullptr) {
        mParent->RemoveChild(this, nullptr);
    }
    return true;
}

// Gives the element back to its block; the in-use word goes last, since an allocation may claim it at once.
void PathItemElement::ReleaseFinishIfStartedUnsafe()
{
    KZ_ASSERT(ReferenceCount() == 0);
    DetachUnsafe();
    FlushCore(kFlushAll);
    mInUse.store(0, std::memory_order_release);
}

void PathItemElement::ReleaseCore(bool alreadyLocked)
{
    if (mHead.DropIfShared()) {
        return;
    }
    const kz::ScopedLock lock(alreadyLocked ? nullptr : mMutex);
    ReleaseUnsafe();
}

void PathItemElement::ReleaseUnsafe()
{
    // A loop, since a chain may be longer than the stack is deep. An element whose release has started needs its parent
    // link no more; turned round, the links lead through the started ones from the root's end.
    PathItemElement* started = nullptr;
    PathItemElement* at = this;
    while (at != nullptr && at->ReleaseStartUnsafe()) {
        PathItemElement* const parent = std::exchange(at->mParent, started);
        started = std::exchange(at, parent);
    }
    while (started != nullptr) {
        PathItemElement* const next = started->mParent;
        started->ReleaseFinishIfStartedUnsafe();
        started = next;
    }
}

bool PathItemElement::GetReferencedInfo(int32* count) const
{
    const int32 outside = ReferenceCount() - static_cast<int32>(mChildren.size());
    if (outside < 1) {
        return false;
    }
    *count = outside;
    return true;
}

// One step of PurgeCore, for an element without children: does by force what the last release does. An element that was
// released already needs no force, which is what is called clean.
bool PathItemElement::PurgeSelf()
{
    KZ_ASSERT(mChildren.empty());
    FlushCore(kFlushAll);
    bool clean = mCache == nullptr;
    delete std::exchange(mCache, nullptr);
    clean = mHead.mReferenceCount.exchange(0, std::memory_order_relaxed) == 0 && clean;
    mInUse.store(0, std::memory_order_relaxed);
    RemoveParent();
    mName.clear();
    DetachUnsafe();
    mHead.mCount = 0;
    return clean;
}

bool PathItemElement::PurgeCore()
{
    // From the leaves up, without recursion: what leaked may be a chain of any length.
    bool clean = true;
    PathItemElement* at = this;
    while (at != this || !mChildren.empty()) {
        if (!at->mChildren.empty()) {
            PathItemElement* const child = at->mChildren.back().child;
            child->mParent = at;  // the way back, also from a child that did not know its parent
            at = child;
            continue;
        }
        // Held, so that the parent stays linked to its own when its last child goes.
        PathItemElement* const parent = at->mParent;
        parent->AddReference();
        clean = at->PurgeSelf() && clean;
        parent->mHead.mReferenceCount.fetch_sub(1, std::memory_order_relaxed);
        if (!parent->mChildren.empty() && parent->mChildren.back().child == at) {
            parent->mChildren.pop_back();  // a child that the search by its name did not find
        }
        at = parent;
    }
    return PurgeSelf() && clean;
}

// ---- The cache ----

PathCachedItem* PathItemElement::FindOwnItem(const char* key) const
{
    return mCache != nullptr ? mCache->Find(key) : nullptr;
}

KzErr PathItemElement::Cache(const char* key, PathCachedItem* item)
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        const kz::ScopedLock lock(mMutex);
        if (mCache == nullptr) {
            mCache = new PathItemCache;
        }
        mCache->Put(key, item);
        return kzErrNone;
    });
}

PathCachedItem* PathItemElement::GetCachedChildren(const char* key, PathItemElement** element)
{
    // Depth first, children in order; an explicit stack, since a tree may be deeper than the thread's stack allows.
    std::vector<PathItemElement*> open{this};
    while (!open.empty()) {
        PathItemElement* const at = open.back();
        open.pop_back();
        PathCachedItem* const item = at != this ? at->FindOwnItem(key) : nullptr;
        if (item != nullptr) {
            *element = at;
            return item;
        }
        for (auto it = at->mChildren.rbegin(); it != at->mChildren.rend(); ++it) {
            open.push_back(it->child);
        }
    }
    return nullptr;
}

PathCachedItem* PathItemElement::GetCachedInformation(const char* key, PathSearchDirection direction,
                                                      PathItemElement** element)
{
    KZ_ASSERT(element != nullptr && InUse());
    *element = nullptr;
    // The element itself counts in every direction; only from there on they differ.
    for (PathItemElement* at = this; at != nullptr; at = at->mParent) {
        if (PathCachedItem* const item = at->FindOwnItem(key)) {
            *element = at;
            return item;
        }
        if (direction != kSearchAncestors) {
            break;
        }
    }
    return direction == kSearchDescendants ? GetCachedChildren(key, element) : nullptr;
}

PathCachedItem* PathItemElement::GetCached(const char* key, const char* className, PathSearchDirection direction,
                                           PathItemElement** element)
{
    // The nearest item decides, even where it has expired or is of another class: the search never goes on behind it.
    PathCachedItem* const item = GetCachedInformation(key, direction, element);
    if (item == nullptr || item->Expired() || !item->IsA(className)) {
        *element = nullptr;
        return nullptr;
    }
    return item;
}

uInt64 PathItemElement::FlushOwnItems(int32 method)
{
    if (mCache == nullptr) {
        return 0;
    }
    // Nobody can ask a free element for an item, so nothing of it is worth keeping.
    uInt64 bytes = mCache->Flush(ReferenceCount() == 0 ? static_cast<int32>(kFlushAll) : method);
    if (mCache->IsEmpty()) {
        delete std::exchange(mCache, nullptr);
        bytes += kMapBytes;
    }
    return bytes;
}

uInt64 PathItemElement::FlushSubtree()
{
    // The references keep all elements in place while items die and let go of others.
    for (PathItemElement* at = FirstOfWalk(); at != this; at = at->NextOfWalk()) {
        at->AddReference();
    }
    uInt64 bytes = 0;
    for (PathItemElement* at = FirstOfWalk(); at != this;) {
        PathItemElement* const next = at->NextOfWalk();
        bytes += at->FlushCore(kFlushAll);
        at->ReleaseUnsafe();
        at = next;
    }
    return bytes;
}

uInt64 PathItemElement::FlushCore(int32 method)
{
    KZ_ASSERT(method >= kFlushAll && method <= kFlushSubtree);
    // What is below goes first: an item there may hold this element, and the end of one here frees no element that the
    // walk has still to reach.
    uInt64 bytes = 0;
    if (method == kFlushSubtree) {
        bytes += FlushSubtree();
    }
    bytes += FlushOwnItems(method);
    if (mChildren.empty()) {
        std::vector<ChildItem>().swap(mChildren);
    }
    return bytes;
}

// ---- Checks ----

bool PathItemElement::IsValid() const
{
    if (!InUse()) {
        return false;
    }
    const int32 base = PathItemStorage::BaseOf(*this);
    if (base < 0) {
        KZ_REPORT(kDbgWarning, 0x83E41F5A) << "Need to add sanity checking for other types";
    }
    return base == kz::PathTypes::kAbsolute || base == kz::PathTypes::kRelative;
}

bool PathItemElement::ValidElement(const void* pointer)
{
    return PathItemStorage::Contains(pointer);
}

// The children are looked at once after each change of them, because a path of many names would otherwise look at all
// siblings on its way each time that it is asked.
bool PathItemElement::ChildrenAreSane()
{
    // Fewer references than children: the next release would free the element under a child that still points to it.
    if (ReferenceCount() < static_cast<int32>(mChildren.size())) {
        return false;
    }
    if (mChildrenChecked != 0) {
        return true;
    }
    for (size_t i = 0; i < mChildren.size(); ++i) {
        // A child that names another parent would be released from that one, and stay here as a dangling entry; one out
        // of order is never found again, so its name would be made a second time.
        const PathItemElement& child = *mChildren[i].child;
        if (child.mParent != this || child.mRoot != mRoot || (i > 0 && mChildren[i].hash < mChildren[i - 1].hash)) {
            return false;
        }
    }
    mChildrenChecked = 1;
    return true;
}

bool PathItemElement::IsSane(bool alreadyLocked, int32 depth)
{
    KZ_ASSERT(depth >= 0 && depth <= kDeepestSanityCheck);
    // The parents come first: a broken chain is told by the element nearest to the base, and once. The lock is taken
    // for the children alone, so that the reports are sent without it.
    if (mParent == this) {
        KZ_REPORT(kDbgWarning, 0x27B95E6C) << "PathItemElement insane because parent is self";
        return false;
    }
    if (mParent != nullptr) {
        if (depth >= kDeepestSanityCheck) {
            KZ_REPORT(kDbgWarning, 0xE0436D18) << "Stopped sanity check because of very deep path. This could "
                                                  "represent a recursive linkage of the elements.";
        } else if (!mParent->IsSane(alreadyLocked, depth + 1)) {
            return false;
        }
        if (Count() != mParent->Count() + 1) {
            KZ_REPORT(kDbgWarning, 0x7FA2C305) << "PathItemElement insane because its parent has count of "
                                               << mParent->Count() << " but this is " << Count();
            return false;
        }
    } else if (Count() != 0) {
        KZ_REPORT(kDbgWarning, 0x1C68E7DB) << "PathItemElement insane because it is a base and has a non-zero count";
        return false;
    }
    const kz::ScopedLock lock(alreadyLocked ? nullptr : mMutex);
    return ChildrenAreSane();
}

bool PathItemElement::IsSaneDeep(bool alreadyLocked)
{
    // Each element asks its parents again, which costs the depth at every one; a check has the time.
    const kz::ScopedLock lock(alreadyLocked ? nullptr : mMutex);
    std::vector<PathItemElement*> open{this};
    while (!open.empty()) {
        PathItemElement* const at = open.back();
        open.pop_back();
        if (!at->IsSane(true, 0)) {
            return false;
        }
        for (const ChildItem& item : at->mChildren) {
            open.push_back(item.child);
        }
    }
    return true;
}

double PathItemElement::MemorySize() const
{
    constexpr double kOwnBytes =
        sizeof(PathItemElement) + (sizeof(PathItemStorage) - PathItemStorage::kElements * sizeof(PathItemElement)) /
                                      static_cast<double>(PathItemStorage::kElements);
    constexpr double kNameFactor = 4;
    constexpr double kCacheBytes = 48;

    // An element's bytes are shared out among its references, which are its paths, its children and the tables.
    const kz::ScopedLock lock(mMutex);
    double bytes = 0;
    for (const PathItemElement* at = this; at != nullptr; at = at->mParent) {
        double own = kNameFactor * static_cast<double>(at->mName.size()) + kOwnBytes;
        if (at->mCache != nullptr) {
            own += kCacheBytes + at->mCache->ItemSizes();
        }
        const int32 references = at->ReferenceCount();
        bytes += references >= 1 ? own / references : own;
    }
    return bytes;
}
