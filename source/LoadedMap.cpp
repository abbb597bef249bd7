// What is loaded is destroyed along the jar and found along the map. In a map that was accepted weakly, two lists may
// share bytes: a cookie written into one entry is then part of another one's id or offset, and is lost when that one is
// written. The jar still has the resource, so that nothing leaks, but no entry leads to it. That is also why a
// dataHolder is looked up in the jar, which knows foreign numbers, and is never taken for a pointer.
#include "LoadedMap.h"

#include "CookieWalk.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "ResourceMap.h"
#include "ResourceTypes.h"

namespace kz {

KzErr CreateResourceLock()
{
    KZ_ASSERT(gResourceRights == nullptr);
    return ThMutexCreate(&gResourceRights, "ResourceRights");
}

void DestroyResourceLock()
{
    ThMutexDestroy(gResourceRights);
    gResourceRights = nullptr;
}

LoadedMap::LoadedMap()
{
    mJar.Init();
}

LoadedMap::~LoadedMap()
{
    KZ_ASSERT(mBlock == nullptr);
    // Not left to the jar's own destructor, because this call also tells of a jar that a stop of the memory manager
    // has ended.
    mJar.Uninit();
}

void LoadedMap::AdoptLocked(UHandle block)
{
    KZ_ASSERT(block != nullptr && mBlock == nullptr && HasJar());
    mBlock = block;
    KZ_ASSERT_SLOW(FaultLocked() == nullptr);
}

void LoadedMap::DropLocked()
{
    KZ_ASSERT(mBlock != nullptr);
    KZ_ASSERT_SLOW(FaultLocked() == nullptr);
    for (uInt32 cookie = NextCookie(mJar.GetJar(), 0); cookie != 0; cookie = NextCookie(mJar.GetJar(), cookie)) {
        Resource* resource = nullptr;
        if (mJar.DisposeCookie(cookie, &resource) == kzErrNone) {
            delete resource;
        }
    }
    mCache.Invalidate();
    DSDisposeHandle(mBlock);
    mBlock = nullptr;
}

// What an entry holds, or null.
Resource* LoadedMap::ResourceIn(const RsrcList& entry) const
{
    Resource* resource = nullptr;
    const uInt32 cookie = entry.dataHolder;
    return cookie != 0 && mJar.GetCookieInfo(cookie, &resource) == kzErrNone ? resource : nullptr;
}

// Finds the entry whose resource matches.
template <typename Match>
KzErr LoadedMap::WalkLoadedLocked(const Match& match, _ResourceType* type, RsrcList** out) const
{
    const bool found = IsOpenLocked() && VisitEntries(MapLocked(), [&](_ResourceType entryType, RsrcList* entry) {
                           const Resource* held = ResourceIn(*entry);
                           if (held == nullptr || !match(held)) {
                               return false;
                           }
                           *type = entryType;
                           *out = entry;
                           return true;
                       });
    return found ? kzErrNone : kzErrResNotFound;
}

KzErr LoadedMap::FindRsrcListLocked(const Resource* resource, _ResourceType* type, RsrcList** entry) const
{
    if (mCache.FindRL(resource, type, entry)) {
        return kzErrNone;
    }
    return WalkLoadedLocked([=](const Resource* held) { return held == resource; }, type, entry);
}

KzErr LoadedMap::FindRsrcListLocked(UHandle handle, _ResourceType* type, RsrcList** entry) const
{
    if (mCache.FindRL(handle, type, entry)) {
        return kzErrNone;
    }
    return WalkLoadedLocked([=](const Resource* held) { return held->ContainsHandle(handle); }, type, entry);
}

KzErr LoadedMap::AddLocked(RsrcList* entry, Resource* resource)
{
    KZ_ASSERT(entry->dataHolder == 0 && resource != nullptr);
    entry->dataHolder = mJar.NewCookie(resource);
    return entry->dataHolder != 0 ? kzErrNone : kzErrMemoryFull;
}

void LoadedMap::UnlinkLocked(RsrcList* entry)
{
    KZ_ASSERT(mBlock != nullptr);
    const uInt32 cookie = entry->dataHolder;
    mJar.DisposeCookie(cookie);
    entry->dataHolder = 0;
    mCache.Invalidate();
}

KzErr LoadedMap::MarkLocked(RsrcList* entry, uInt32 attrs)
{
    KZ_ASSERT(mBlock != nullptr);
    RsrcMap* map = MapLocked();
    if ((map->fileAttrs & kRsrcMapReadOnly) != 0) {
        return kzErrNoPermission;
    }
    entry->attrs = attrs;
    map->fileAttrs |= kRsrcMapChanged;
    return kzErrNone;
}

// Whether each cookie of the jar is held by one entry, and each entry that holds something holds one of them.
const char* LoadedMap::LinkFaultLocked() const
{
    RsrcMap* map = MapLocked();
    int32 holding = 0;
    const char* fault = nullptr;
    VisitEntries(map, [&](_ResourceType, const RsrcList* entry) {
        holding += entry->dataHolder != 0;
        if (entry->dataHolder != 0 && ResourceIn(*entry) == nullptr) {
            fault = "an entry holds no cookie of its file's jar";
        }
        return fault != nullptr;
    });
    int32 loaded = 0;
    if (fault == nullptr && (mJar.GetNumCookies(&loaded) != kzErrNone || loaded != holding)) {
        fault = "a jar has not as many resources as entries hold";
    }
    // As many entries as cookies: two that hold the same one leave another one that no entry holds.
    for (uInt32 cookie = NextCookie(mJar.GetJar(), 0); fault == nullptr && cookie != 0;
         cookie = NextCookie(mJar.GetJar(), cookie)) {
        if (!VisitEntries(map, [=](_ResourceType, const RsrcList* entry) { return entry->dataHolder == cookie; })) {
            fault = "no entry holds a loaded resource";
        }
    }
    return fault;
}

// Whether the resource that is remembered stands in the entry that is remembered with it.
const char* LoadedMap::CacheFaultLocked() const
{
    _ResourceType type = 0;
    RsrcList* entry = nullptr;
    if (!mCache.FindRL(mCache.Remembered(), &type, &entry)) {
        return nullptr;
    }
    const bool isThere = VisitEntries(MapLocked(), [=](_ResourceType entryType, const RsrcList* candidate) {
        return candidate == entry && entryType == type;
    });
    return isThere && ResourceIn(*entry) == mCache.Remembered() ? nullptr : "a cache remembers a wrong entry";
}

const char* LoadedMap::FaultLocked() const
{
    if (const char* fault = CookieJarFault(mJar.GetJar())) {
        return fault;
    }
    if (!IsOpenLocked()) {
        int32 loaded = 0;
        mJar.GetNumCookies(&loaded);
        return loaded == 0 && mCache.Remembered() == nullptr ? nullptr : "resources outlive their map";
    }
    if (const char* fault = RsrcMapFault(MapLocked(), static_cast<uInt32>(DSGetHandleSize(mBlock)))) {
        return fault;
    }
    // Entries that overlap lose cookies to one another, as told above.
    if (ListsOverlap(MapLocked())) {
        return nullptr;
    }
    const char* fault = LinkFaultLocked();
    return fault != nullptr ? fault : CacheFaultLocked();
}

}  // namespace kz
