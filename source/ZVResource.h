// The loaded resource of a resource file.
#ifndef KZCORE_ZVRESOURCE_H
#define KZCORE_ZVRESOURCE_H

#include <memory>

#include "KZTypes.h"
#include "LoadedMap.h"
#include "ResFile.h"
#include "ResourceData.h"

// See Resource. The three calls on the bytes take no lock; the others find the resource's entry under it.
class ZVResource final : public Resource {
public:
    // Owns `data`, of a resource that `map` is about to hold. Requires: neither is null.
    ZVResource(kz::LoadedMap* map, std::unique_ptr<ResourceData> data) : mMap(map), mData(std::move(data))
    {
        KZ_ASSERT(mMap != nullptr && mData != nullptr);
    }
    ~ZVResource() override;
    ZVResource(const ZVResource&) = delete;
    ZVResource& operator=(const ZVResource&) = delete;

    KzErr RRelease() override;
    KzErr RChanged() override;
    KzErr DetachResource() override;
    KzErr RSetAttrs(int32 attrs) override;
    KzErr RSize(int32* size) const override;
    KzErr RGetInfo(int32* id, _ResourceType* type, unsigned char* name) const override;
    KzErr RGetAttrs(int32* attrs) const override;
    UHandle GetSharedDSHandle() const override;
    KzErr DetachHandle() override;
    int32 GetSize() const override;
    const unsigned char* GetData() const override;
    bool ContainsHandle(UHandle handle) const override;

private:
    // The entry that holds this resource; kzErrResNotFound for one that is detached.
    KzErr FindEntryLocked(_ResourceType* type, RsrcList** entry) const KZ_REQUIRES(kz::gResourceRights);

    kz::LoadedMap* mMap;                        // null once detached, and then for good
    const std::unique_ptr<ResourceData> mData;  // never null; without its bytes once they are given away
};

#endif
