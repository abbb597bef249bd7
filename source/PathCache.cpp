#include "PathCache.h"

#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "HiResClock.h"
#include "NoDebugTexts.h"
#include "ScopedLock.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/PathCache";

bool SameText(const char* a, const char* b)
{
    return a != nullptr && std::strcmp(a, b) == 0;
}

// Wraps as the clock does; a time to live is at most half its range ahead.
uInt32 ExpiryAfter(int32 ttl)
{
    return MilliSecs() + static_cast<uInt32>(ttl);
}

PathCachedItem* FindInCache(const PathItemCache* cache, const char* key)
{
    if (cache == nullptr) {
        return nullptr;
    }
    const auto it = cache->items.find(std::string_view(key));
    return it == cache->items.end() ? nullptr : it->second;
}

// ---- Flushing. Requires PathItemElement::mMutex. ----

bool IsFlushed(const PathCachedItem& item, int32 method)
{
    if (method != kFlushMetaDataAndOld && method != kFlushOld) {
        return true;
    }
    return item.Expired() || (method == kFlushMetaDataAndOld && item.Invalidate());
}

}  // namespace

// ---- Items ----

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

CachedPath::~CachedPath()
{
    mValue.AssignElement(nullptr, PathRef::kTakeReference, mAccepted);
}

bool CachedPath::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

void CachedPath::ResetPath(const PathRef& value, int32 ttl)
{
    mValue.AssignElement(value.Element(), PathRef::kAddReference, mAccepted);
    Reset(ttl);
}

bool PathRefPrivate::CachedPathFlavor::IsA(const char* className) const
{
    return SameText(className, ClassName()) || PathCachedItem::IsA(className);
}

// ---- The element's side ----

KzErr PathItemElement::Cache(const char* key, PathCachedItem* item)
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        const kz::ScopedLock lock(mMutex);
        if (mCache == nullptr) {
            mCache = new PathItemCache;
        }
        const auto it = mCache->items.find(std::string_view(key));
        if (it == mCache->items.end()) {
            if (item == nullptr) {
                return kzErrNone;
            }
            mCache->items.emplace(key, item);
        } else if (item == it->second) {
            return kzErrNone;
        } else {
            const std::unique_ptr<PathCachedItem> old(it->second);
            if (item == nullptr) {
                mCache->items.erase(it);
                return kzErrNone;
            }
            it->second = item;
        }
        item->Accepted();
        return kzErrNone;
    });
}

PathCachedItem* PathItemElement::GetCachedChildren(const char* key, PathItemElement** element)
{
    // Depth first, children in order; an explicit stack, since a tree may be deeper than the thread's stack allows.
    std::vector<PathItemElement*> open;
    const auto pushChildren = [&open](const PathItemElement& of) {
        for (auto it = of.mChildren.rbegin(); it != of.mChildren.rend(); ++it) {
            open.push_back(it->child);
        }
    };
    pushChildren(*this);
    while (!open.empty()) {
        PathItemElement* const at = open.back();
        open.pop_back();
        if (PathCachedItem* const item = FindInCache(at->mCache, key)) {
            *element = at;
            return item;
        }
        pushChildren(*at);
    }
    return nullptr;
}

PathCachedItem* PathItemElement::GetCachedInformation(const char* key, PathSearchDirection direction,
                                                      PathItemElement** element)
{
    *element = nullptr;
    for (PathItemElement* at = this; at != nullptr; at = at->mParent) {
        if (PathCachedItem* const item = FindInCache(at->mCache, key)) {
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
    PathCachedItem* const item = GetCachedInformation(key, direction, element);
    if (item == nullptr || item->Expired() || !item->IsA(className)) {
        *element = nullptr;
        return nullptr;
    }
    return item;
}

uInt64 PathItemElement::FlushOwnItems(int32 method)
{
    constexpr uInt64 kEntryBytes = 16;
    constexpr uInt64 kMapBytes = 48;

    uInt64 bytes = 0;
    if (mCache == nullptr) {
        return bytes;
    }
    if (ReferenceCount() == 0) {
        method = kFlushAll;
    }
    auto& items = mCache->items;
    for (auto it = items.begin(); it != items.end();) {
        if (!IsFlushed(*it->second, method)) {
            ++it;
            continue;
        }
        // Out of the map before it is destroyed: a path that it holds may free this very element's neighbours.
        const std::unique_ptr<PathCachedItem> item(it->second);
        bytes += static_cast<uInt64>(item->Size()) + kEntryBytes;
        it = items.erase(it);
    }
    if (items.empty()) {
        delete mCache;
        mCache = nullptr;
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
        at->ReleaseCore(true);
        at = next;
    }
    return bytes;
}

uInt64 PathItemElement::FlushCore(int32 method)
{
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

// ---- The path's side ----

KzErr PathRef::Cache(const char* key, CachedItem* item) const
{
    if (mPathElement == nullptr || key == nullptr) {
        return kzErrArgument;
    }
    return mPathElement->Cache(key, item);
}

bool PathRef::VisitCached(const char* key, const char* className, SearchDirection direction, PathRef* holder,
                          CacheVisitor visit, void* context) const
{
    // `holder` may be this very path, whose element must outlive the search.
    PathItemElement* const start = mPathElement;
    PathItemElement* element = nullptr;
    bool found = false;
    if (start != nullptr && key != nullptr) {
        const kz::ScopedLock lock(GetCacheMutex());
        const kz::NoDebugTexts plain;
        if (CachedItem* const item = start->GetCached(key, className, direction, &element)) {
            visit(item, context);
            found = true;
            element->AddReference();
        }
    }
    if (holder != nullptr) {
        holder->AssignElement(element, kTakeReference, false);
    } else if (element != nullptr) {
        ReleaseElement(element, false);
    }
    return found;
}

uInt64 PathRef::FlushCache() const
{
    if (mPathElement == nullptr) {
        return 0;
    }
    const kz::ScopedLock lock(GetCacheMutex());
    return mPathElement->FlushCore(kFlushMetaDataAndOld);
}
