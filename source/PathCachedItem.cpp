// An item's class is known by its name rather than by its type, because hosts derive classes of their own and RTTI does
// not compare equal across every boundary of shared objects. Each class answers to its own name and to that of the
// base, so a look-up for "CachedItem" finds any item.
//
// Expiry is a moment on a 32-bit clock that wraps every 49 days, which is why it is compared by the sign of the
// difference and a time to live may be at most half the clock's range.
#include "PathCachedItem.h"

#include "HiResClock.h"
#include "Literals.h"

using kz::SameText;

namespace {

// The sum wraps as the clock does.
uInt32 ExpiryAfter(int32 ttl)
{
    return MilliSecs() + static_cast<uInt32>(ttl);
}

}  // namespace

PathCachedItem::PathCachedItem(int32 ttl, RelationToMetaData relation)
    : mExpiry(ExpiryAfter(ttl)), mInvalidate(relation == kDependsOnMetaData)
{}

bool PathCachedItem::IsA(const char* className) const
{
    return SameText(className, ClassName());
}

bool PathCachedItem::Expired() const
{
    return MillisecCmp(MilliSecs(), mExpiry) >= 0;
}

bool PathCachedItem::Invalidate() const
{
    return mInvalidate;
}

void PathCachedItem::Reset(int32 ttl)
{
    mExpiry = ExpiryAfter(ttl);
}

int32 PathCachedItem::Size() const
{
    return 16;
}

int32 PathCachedItem::Rotten() const
{
    const int32 past = MillisecCmp(MilliSecs(), mExpiry);
    return past > 0 ? past : 0;
}

bool CachedBool::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

void CachedBool::ResetBool(bool value, int32 ttl)
{
    mValue = value;
    Reset(ttl);
}

bool CachedInt32::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

bool CachedPathString::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

void CachedPathString::ResetString(const std::string& value, int32 ttl)
{
    mValue = value;
    Reset(ttl);
}

bool PathRefPrivate::CachedPathFlavor::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}
