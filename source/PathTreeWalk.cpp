// A walk holds a reference of its own only on an element that it has made itself. Each other element on the way is held
// by the caller or by a child, and no holder can let go before the walk gives the lock back, so the walk touches no
// count where it finds what it looks for.
#include "PathTreeWalk.h"

#include "KzAssert.h"

namespace kz {

PathTreeWalk::PathTreeWalk(PathItemElement* start) : mMutex(PathItemElement::mMutex), mCurrent(start)
{
    ThMutexAcquire(mMutex);
    KZ_ASSERT(mCurrent == nullptr || mCurrent->ReferenceCount() > 0);
}

PathTreeWalk::~PathTreeWalk()
{
    if (mOwned) {
        mCurrent->ReleaseUnsafe();
    }
    ThMutexRelease(mMutex);
}

bool PathTreeWalk::IsBelow(const PathItemElement* base) const
{
    if (mCurrent == nullptr || base == nullptr) {
        return false;
    }
    // The first comparison is for a base that was put into the table late: it may have a parent, and another root.
    return mCurrent == base || mCurrent->Root() == base;
}

KzErr PathTreeWalk::Child(std::string_view name)
{
    if (mCurrent == nullptr) {
        return kzErrArgument;
    }
    bool made = false;
    PathItemElement* const next = mCurrent->FindOrCreateUnsafe(name, &made);
    if (next == nullptr) {
        return kzErrMemoryFull;
    }
    KZ_ASSERT(next->Parent() == mCurrent);
    if (mOwned) {
        mCurrent->ReleaseUnsafe();  // never the last: the child holds one
    }
    mCurrent = next;
    mOwned = made;
    return kzErrNone;
}

KzErr PathTreeWalk::Append(std::string_view name)
{
    if (name == ".") {
        return kzErrNone;
    }
    if (!name.empty() && name != "..") {
        return Child(name);
    }
    // An up dir behind an up dir or at the base takes nothing away, because there is no name before it; it becomes a
    // component without a name.
    PathItemElement* const parent = mCurrent != nullptr ? mCurrent->Parent() : nullptr;
    if (parent == nullptr || mCurrent->Name().empty()) {
        return Child({});
    }
    if (mOwned) {
        // The element was made by this walk and may die here, so its parent is held first.
        parent->AddReference();
        mCurrent->ReleaseUnsafe();
    }
    mCurrent = parent;
    return kzErrNone;
}

PathItemElement* PathTreeWalk::Take()
{
    if (mCurrent != nullptr && !mOwned) {
        mCurrent->AddReference();
    }
    mOwned = false;
    return mCurrent;
}

}  // namespace kz
