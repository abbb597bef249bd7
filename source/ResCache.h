// The last resource found in a file, so that the calls on it find its map entry without a search.
#ifndef KZCORE_RESCACHE_H
#define KZCORE_RESCACHE_H

#include "KZTypes.h"
#include "ResFile.h"
#include "ResourceFormat.h"

// Remembers an entry by its offset: the map's block may move.
class ResCache {
public:
    void Record(const Resource* resource, _ResourceType type, UHandle map, const RsrcList* entry)
    {
        mResource = resource;
        mType = type;
        mMap = map;
        mEntryOffset = static_cast<uInt32>(reinterpret_cast<const unsigned char*>(entry) - *map);
    }
    void Invalidate() { mResource = nullptr; }

    // Each gives the entry when the resource that is asked for is the one remembered. The second asks it through
    // ContainsHandle, and misses for null.
    bool FindRL(const Resource* resource, _ResourceType* type, RsrcList** entry) const;
    bool FindRL(UHandle handle, _ResourceType* type, RsrcList** entry) const;

private:
    bool Hit(_ResourceType* type, RsrcList** entry) const;

    const Resource* mResource = nullptr;  // null: nothing is remembered
    _ResourceType mType = 0;
    UHandle mMap = nullptr;
    uInt32 mEntryOffset = 0;
};

#endif
