// A resource ends in one of three ways: RRelease destroys the object, DetachResource makes it its caller's, and the
// closing file destroys it. RRelease takes it out of the map under the lock and destroys it afterwards, because freeing
// may report, and a report's handler may ask for resources.
//
// A changed resource is refused by the first two, because the file would lose the only copy of its new bytes.
//
// `mMap` changes once, in DetachResource, whose caller is the only user of the object by then. It is read without the
// lock by the calls that give bytes, and under it by the others.
#include "ZVResource.h"

#include "Report.h"
#include "ResHandleCache.h"
#include "ResourceMap.h"
#include "ResourceTypes.h"
#include "ScopedLock.h"

namespace {

constexpr char kModule[] = "source/ZVResource";

}  // namespace

ZVResource::~ZVResource()
{
    kz::gResHandleCache.Forget(this);
}

KzErr ZVResource::FindEntryLocked(_ResourceType* type, RsrcList** entry) const
{
    return mMap != nullptr ? mMap->FindRsrcListLocked(this, type, entry) : kzErrResNotFound;
}

KzErr ZVResource::RRelease()
{
    KzErr err;
    bool changed = false;
    {
        kz::ScopedLock lock(kz::gResourceRights);
        RsrcList* entry = nullptr;
        _ResourceType type = 0;
        err = FindEntryLocked(&type, &entry);
        changed = err == kzErrNone && (entry->attrs & kRsrcChanged) != 0;
        if (err == kzErrNone && !changed) {
            mMap->UnlinkLocked(entry);
        }
    }
    // The reports wait for the lock to be free, because their handler may ask for resources.
    if (changed) {
        KZ_REPORT(kDbgWarning, 0x50E7912B) << "!!! Tried to release a changed resource";
        return kzErrArgument;
    }
    if (err != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0xCF24D086) << "Releasing a non-resource";
        return err;
    }
    delete this;
    return kzErrNone;
}

KzErr ZVResource::DetachResource()
{
    bool changed = false;
    {
        kz::ScopedLock lock(kz::gResourceRights);
        RsrcList* entry = nullptr;
        _ResourceType type = 0;
        if (const KzErr err = FindEntryLocked(&type, &entry)) {
            return err;
        }
        changed = (entry->attrs & kRsrcChanged) != 0;
        if (!changed) {
            mMap->UnlinkLocked(entry);
            mData->ReleaseData();
            mMap = nullptr;
        }
    }
    if (changed) {
        KZ_REPORT(kDbgWarning, 0x1983BE7D) << "!!! Tried to detach a changed resource";
        return kzErrResNotFound;
    }
    // The handle is the caller's, who may free it, and another resource may then get one at the same address.
    kz::gResHandleCache.Forget(this);
    return kzErrNone;
}

KzErr ZVResource::RChanged()
{
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    const KzErr err = FindEntryLocked(&type, &entry);
    return err != kzErrNone ? err : mMap->MarkLocked(entry, entry->attrs | kRsrcChanged);
}

KzErr ZVResource::RSetAttrs(int32 attrs)
{
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    const KzErr err = FindEntryLocked(&type, &entry);
    return err != kzErrNone ? err : mMap->MarkLocked(entry, static_cast<uInt32>(attrs));
}

KzErr ZVResource::RSize(int32* size) const
{
    if (size == nullptr) {
        return kzErrArgument;
    }
    *size = -1;
    // The size is asked for under the lock too, because DetachHandle may be giving the bytes away.
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    if (const KzErr err = FindEntryLocked(&type, &entry)) {
        return err;
    }
    *size = GetSize();
    return kzErrNone;
}

KzErr ZVResource::RGetInfo(int32* id, _ResourceType* type, unsigned char* name) const
{
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType entryType = 0;
    if (const KzErr err = FindEntryLocked(&entryType, &entry)) {
        return err;
    }
    if (id != nullptr) {
        *id = entry->id;
    }
    if (type != nullptr) {
        *type = entryType;
    }
    kz::CopyEntryName(mMap->MapLocked(), *entry, name);
    return kzErrNone;
}

KzErr ZVResource::RGetAttrs(int32* attrs) const
{
    if (attrs == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    if (const KzErr err = FindEntryLocked(&type, &entry)) {
        return err;
    }
    *attrs = static_cast<int32>(entry->attrs);
    return kzErrNone;
}

KzErr ZVResource::DetachHandle()
{
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    if (const KzErr err = FindEntryLocked(&type, &entry)) {
        return err;
    }
    // The entry goes on holding this resource, so that the file knows it, but no handle leads to it.
    mData->ReleaseData();
    mMap->ForgetLocked();
    kz::gResHandleCache.Forget(this);
    return kzErrNone;
}

UHandle ZVResource::GetSharedDSHandle() const
{
    return mMap != nullptr ? mData->GetSharedDSHandle() : nullptr;
}

int32 ZVResource::GetSize() const
{
    return mMap != nullptr ? mData->GetSize() : 0;
}

const unsigned char* ZVResource::GetData() const
{
    return mMap != nullptr ? mData->GetDataPtr() : nullptr;
}

bool ZVResource::ContainsHandle(UHandle handle) const
{
    return mData->ContainsHandle(handle);
}
