// The way down the tree of names, one component after the other, making what is not there.
#ifndef KZCORE_PATHTREEWALK_H
#define KZCORE_PATHTREEWALK_H

#include <string_view>

#include "KzErr.h"
#include "PathItemElement.h"
#include "ThreadAnnotations.h"

namespace kz {

// Walks down the tree under one hold of its lock, which is what makes a path of many names cheap: elements on the way
// need no references, since none can be freed before the walk ends. The start must be referenced for the walk's whole
// life, and no path may be made or dropped by the walking thread during it.
class KZ_SCOPED_CAPABILITY PathTreeWalk {
public:
    // A walk from null answers every step with kzErrArgument.
    explicit PathTreeWalk(PathItemElement* start) KZ_ACQUIRE(PathItemElement::mMutex) KZ_NO_THREAD_CHECK;
    ~PathTreeWalk() KZ_RELEASE() KZ_NO_THREAD_CHECK;
    PathTreeWalk(const PathTreeWalk&) = delete;
    PathTreeWalk& operator=(const PathTreeWalk&) = delete;

    // True if the walk stands on `base` or below it.
    bool IsBelow(const PathItemElement* base) const;
    // Goes to the child of exactly this name. kzErrArgument without an element, kzErrMemoryFull.
    KzErr Child(std::string_view name) KZ_REQUIRES(PathItemElement::mMutex);
    // Goes on by PathRef::Append's rules for ".", ".." and the empty name. Errors as Child.
    // May reach an ancestor of the start, which the start's reference keeps alive as well.
    KzErr Append(std::string_view name) KZ_REQUIRES(PathItemElement::mMutex);
    // The element reached, with one reference for the caller. Ends the walk's use; the lock stays until destruction.
    PathItemElement* Take();

private:
    // The lock as it was taken. A walk while paths are not up has none, and then nothing to walk on either.
    ThMutex const mMutex;
    PathItemElement* mCurrent;
    bool mOwned = false;  // mCurrent carries a reference of the walk's own
};

}  // namespace kz

#endif
