#include "ResCache.h"

#include "Report.h"

namespace {

constexpr char kModule[] = "source/ResCache";

}  // namespace

bool ResCache::Hit(_ResourceType* type, RsrcList** entry) const
{
    *type = mType;
    *entry = reinterpret_cast<RsrcList*>(*mMap + mEntryOffset);
    if ((*entry)->dataHolder == 0) {
        KZ_REPORT(kDbgWarning, 0xE16A5C38) << "ResCache::FindRL, Error in cache logic. Hit on stale entry.";
    }
    return true;
}

bool ResCache::FindRL(const Resource* resource, _ResourceType* type, RsrcList** entry) const
{
    if (type == nullptr || entry == nullptr) {
        KZ_REPORT(kDbgWarning, 0x3D92F7B5) << "ResCache::FindRL, outType or outRLEntry are NULL";
        return false;
    }
    return resource != nullptr && resource == mResource && Hit(type, entry);
}

bool ResCache::FindRL(UHandle handle, _ResourceType* type, RsrcList** entry) const
{
    if (type == nullptr || entry == nullptr) {
        KZ_REPORT(kDbgWarning, 0xA80B64CE) << "ResCache::FindRL, outType or outRLEntry are NULL";
        return false;
    }
    return handle != nullptr && mResource != nullptr && mResource->ContainsHandle(handle) && Hit(type, entry);
}
