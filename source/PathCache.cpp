// The one item that a path's release can reach, and that can reach a path's release. While a cache has it, whoever
// destroys or changes it holds the tree's lock, so its path must be let go without taking the lock again; before that
// it is an object like any other.
#include "PathCache.h"

#include "Literals.h"

CachedPath::~CachedPath()
{
    mValue.AssignElement(nullptr, PathRef::kTakeReference, mAccepted);
}

bool CachedPath::IsA(const char* className) const
{
    return kz::SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

void CachedPath::ResetPath(const PathRef& value, int32 ttl)
{
    mValue.AssignElement(value.Element(), PathRef::kAddReference, mAccepted);
    Reset(ttl);
}
