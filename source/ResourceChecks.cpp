// Each structure tells its own faults (ResFileMap, LoadedMap). Here is what lies between them: a pair of the handle
// cache must be a resource that a file with a refnum has loaded, because the cache gets only what a refnum's call has
// recorded, and forgets it with the resource.
#include "ResourceChecks.h"

#include "CookieWalk.h"
#include "ResFileMap.h"
#include "ResHandleCache.h"
#include "ScopedLock.h"
#include "zvresfile.h"

namespace kz {

namespace {

// Shows `visit` each file with a refnum, under the lock, until it returns true. Returns whether it did.
template <typename Visit>
bool VisitFiles(const ResFileMap& map, const Visit& visit)
{
    for (RsrcFile refnum = NextCookie(map.GetJar(), 0); refnum != 0; refnum = NextCookie(map.GetJar(), refnum)) {
        // A chain, or another kind of file, keeps nothing that could be looked at.
        const ZVResFile* file = dynamic_cast<const ZVResFile*>(map.GetResFilePtr(refnum));
        ScopedLock lock(gResourceRights);
        if (file != nullptr && visit(*file)) {
            return true;
        }
    }
    return false;
}

}  // namespace

const char* ResourceFault()
{
    if (gResFileMap == nullptr) {
        return nullptr;
    }
    const char* fault = gResFileMap->Fault();
    if (fault != nullptr || VisitFiles(*gResFileMap, [&](const ZVResFile& file) KZ_REQUIRES(gResourceRights) {
            fault = file.FaultLocked();
            return fault != nullptr;
        })) {
        return fault;
    }
    // Whether the resource lives is asked first, because only a living one can be asked for its handle.
    const bool isStale = gResHandleCache.VisitPairs([](UHandle handle, Resource* resource) {
        return !VisitFiles(*gResFileMap, [=](const ZVResFile& file) KZ_REQUIRES(gResourceRights) {
            return file.OwnsLocked(resource);
        }) || !resource->ContainsHandle(handle);
    });
    return isStale ? "the cache of handles has one that is no resource's" : nullptr;
}

}  // namespace kz
