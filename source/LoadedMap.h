// The map of one open resource file with the resources that are loaded from it, and the lock of all of them.
//
// An entry and its Resource are linked by the entry's `dataHolder` alone: a cookie in the jar, or 0 while the resource
// is not loaded. The Resource doesn't know its entry. An entry is found again through the cache, or by a walk over all
// entries.
//
//     dataHolder      by
//     0 -> cookie     AddLocked
//     cookie -> 0     UnlinkLocked: the Resource is its caller's
//     ends            DropLocked: every Resource in the jar is destroyed
#ifndef KZCORE_LOADEDMAP_H
#define KZCORE_LOADEDMAP_H

#include "CookieManager.h"
#include "KZTypes.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "ResCache.h"
#include "ResFile.h"
#include "ResourceFormat.h"
#include "ThMutex.h"
#include "ThreadAnnotations.h"

namespace kz {

// Guards the maps, jars and caches of all resource files; made and destroyed with the resource manager, null without
// it: files run unlocked then. A public operation takes it and calls ...Locked functions, which only call each other.
inline constinit ThMutex gResourceRights = nullptr;

// Make and destroy that lock. One thread, while no file is open.
KzErr CreateResourceLock();
void DestroyResourceLock();

class LoadedMap {
public:
    LoadedMap();
    // Requires: dropped, or never adopted.
    ~LoadedMap();
    LoadedMap(const LoadedMap&) = delete;
    LoadedMap& operator=(const LoadedMap&) = delete;

    // False when there was no memory for the jar, so that nothing could be loaded. Any thread.
    bool HasJar() const { return mJar.IsAValidJar(); }

    // Takes over a block with a map of ReadOpenMap's. Requires: not open, and a jar.
    void AdoptLocked(UHandle block) KZ_REQUIRES(gResourceRights);
    // Destroys all that is loaded, whoever still points to it, and the map. Requires: open.
    void DropLocked() KZ_REQUIRES(gResourceRights);

    bool IsOpenLocked() const KZ_REQUIRES(gResourceRights) { return mBlock != nullptr; }
    // The map, in host byte order; null when not open.
    RsrcMap* MapLocked() const KZ_REQUIRES(gResourceRights)
    {
        return mBlock != nullptr ? reinterpret_cast<RsrcMap*>(*mBlock) : nullptr;
    }

    // The entry of a loaded resource, and of the loaded resource that a handle belongs to. kzErrResNotFound: none, or
    // not open.
    KzErr FindRsrcListLocked(const Resource* resource, _ResourceType* type, RsrcList** entry) const
        KZ_REQUIRES(gResourceRights);
    KzErr FindRsrcListLocked(UHandle handle, _ResourceType* type, RsrcList** entry) const KZ_REQUIRES(gResourceRights);

    // Gives the resource of an entry that is loaded, and remembers the two for the calls on it. kzErrArgument: the
    // entry holds no cookie of the jar, which overlapping lists can do to it.
    KzErr HeldLocked(_ResourceType type, RsrcList* entry, Resource** out) KZ_REQUIRES(gResourceRights)
    {
        const uInt32 cookie = entry->dataHolder;
        const KzErr err = mJar.GetCookieInfo(cookie, out);
        if (err == kzErrNone) {
            mCache.Record(*out, type, mBlock, entry);
        }
        return err;
    }

    // Makes an entry hold a resource, which is this map's from then on. kzErrMemoryFull: it stays the caller's.
    // Requires: the entry holds none.
    KzErr AddLocked(RsrcList* entry, Resource* resource) KZ_REQUIRES(gResourceRights);
    // Takes an entry's resource out of the jar and the entry; it is the caller's from then on.
    void UnlinkLocked(RsrcList* entry) KZ_REQUIRES(gResourceRights);
    // Sets an entry's attributes and marks the map as changed; kzErrNoPermission in a read-only file.
    KzErr MarkLocked(RsrcList* entry, uInt32 attrs) KZ_REQUIRES(gResourceRights);
    // Forgets what the cache remembers: a handle is no longer that of its resource.
    void ForgetLocked() KZ_REQUIRES(gResourceRights) { mCache.Invalidate(); }

    // Whether the resource is in the jar: for walkers, because it looks at every slot.
    bool OwnsLocked(Resource* resource) const KZ_REQUIRES(gResourceRights)
    {
        return mJar.GetCookieForInfo(resource) != 0;
    }
    // What is wrong with the map, the jar, the links between the two or the cache; null when all is sound. Takes time
    // with the product of entries and loaded resources.
    const char* FaultLocked() const KZ_REQUIRES(gResourceRights);

private:
    template <typename Match>
    KzErr WalkLoadedLocked(const Match& match, _ResourceType* type, RsrcList** out) const KZ_REQUIRES(gResourceRights);
    Resource* ResourceIn(const RsrcList& entry) const;
    const char* LinkFaultLocked() const KZ_REQUIRES(gResourceRights);
    const char* CacheFaultLocked() const KZ_REQUIRES(gResourceRights);

    UHandle mBlock KZ_GUARDED_BY(gResourceRights) = nullptr;  // owned; holds a RsrcMap; null when not open
    ResCache mCache KZ_GUARDED_BY(gResourceRights);
    CookieJar<Resource*> mJar;  // constant but for its records, which change with the entries under the lock
};

}  // namespace kz

#endif
