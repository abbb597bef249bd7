// One resource is enough, because callers ask for a resource and then work on it. What the cache spares is the way back
// from a Resource to its entry, which the object does not know: a walk over the whole map.
//
// An entry that holds nothing is reported and given all the same, because the map shows what went wrong: it was taken
// out without a call of Invalidate.
#include "ResCache.h"

#include "KzAssert.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/ResCache";

}  // namespace

// Gives the entry of the remembered resource.
void ResCache::GiveEntry(_ResourceType* type, RsrcList** entry) const
{
    KZ_ASSERT(mResource != nullptr);
    *type = mType;
    *entry = reinterpret_cast<RsrcList*>(*mMap + mEntryOffset);
    if ((*entry)->dataHolder == 0) {
        KZ_REPORT(kDbgWarning, 0xE16A5C38) << "ResCache::FindRL, Error in cache logic. Hit on stale entry.";
    }
}

bool ResCache::FindRL(const Resource* resource, _ResourceType* type, RsrcList** entry) const
{
    if (type == nullptr || entry == nullptr) {
        KZ_REPORT(kDbgWarning, 0x3D92F7B5) << "ResCache::FindRL, outType or outRLEntry are NULL";
        return false;
    }
    const bool isHit = resource != nullptr && resource == mResource;
    if (isHit) {
        GiveEntry(type, entry);
    }
    return isHit;
}

bool ResCache::FindRL(UHandle handle, _ResourceType* type, RsrcList** entry) const
{
    if (type == nullptr || entry == nullptr) {
        KZ_REPORT(kDbgWarning, 0xA80B64CE) << "ResCache::FindRL, outType or outRLEntry are NULL";
        return false;
    }
    const bool isHit = handle != nullptr && mResource != nullptr && mResource->ContainsHandle(handle);
    if (isHit) {
        GiveEntry(type, entry);
    }
    return isHit;
}
