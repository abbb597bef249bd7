// The last resource found in a file, so that the calls on it find its map entry without a search.
#ifndef KZCORE_RESCACHE_H
#define KZCORE_RESCACHE_H

#include "KZTypes.h"
#include "KzAssert.h"
#include "MemoryManager.h"
#include "ResFile.h"
#include "ResourceFormat.h"

// Remembers an entry by its offset, because the map's block may move. What is remembered must end with the entry or
// the resource: whoever takes a resource out of its entry calls Invalidate. One thread at a time: the lock of the file.
class ResCache {
public:
    // Remembers that `entry`, of a list of `type` in `map`, holds `resource`. Requires: none of them null, and the
    // entry in the map's block.
    void Record(const Resource* resource, _ResourceType type, UHandle map, const RsrcList* entry)
    {
        KZ_ASSERT(resource != nullptr && map != nullptr);
        KZ_ASSERT(reinterpret_cast<const unsigned char*>(entry) > *map &&
                  reinterpret_cast<const unsigned char*>(entry + 1) <= *map + DSGetHandleSize(map));
        mResource = resource;
        mType = type;
        mMap = map;
        mEntryOffset = static_cast<uInt32>(reinterpret_cast<const unsigned char*>(entry) - *map);
    }
    void Invalidate() { mResource = nullptr; }

    // Each gives the entry when the resource that is asked for is the one remembered. The second asks it through
    // ContainsHandle, and misses for null. A null output is a defect, reported at level 2: it misses.
    bool FindRL(const Resource* resource, _ResourceType* type, RsrcList** entry) const;
    bool FindRL(UHandle handle, _ResourceType* type, RsrcList** entry) const;

    // What is remembered, or null.
    const Resource* Remembered() const { return mResource; }

private:
    void GiveEntry(_ResourceType* type, RsrcList** entry) const;

    const Resource* mResource = nullptr;  // null: nothing is remembered, and the rest has no meaning
    _ResourceType mType = 0;
    UHandle mMap = nullptr;
    uInt32 mEntryOffset = 0;  // bytes from the start of the map
};

#endif
