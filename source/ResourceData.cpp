// A resource's bytes are given away in two steps: the caller takes the shared handle, then ReleaseData forgets it here.
// A MappedResource has no handle before one is asked for, so a release without that question gives nothing away.
#include "ResourceData.h"

#include "MemoryManager.h"

ResourceData::~ResourceData() = default;

DSHandleResource::~DSHandleResource()
{
    if (mHandle != nullptr) {
        DSDisposeHandle(mHandle);
    }
}

int32 DSHandleResource::GetSize() const
{
    return mHandle != nullptr ? static_cast<int32>(DSGetHandleSize(mHandle)) : 0;
}

MappedResource::~MappedResource()
{
    if (const UHandle shared = mShared.load(std::memory_order_acquire)) {
        DSDisposeHandle(shared);
    }
}

void MappedResource::ReleaseData()
{
    mData = nullptr;
    mSize = 0;
    mShared.store(nullptr, std::memory_order_release);
}

UHandle MappedResource::GetSharedDSHandle() const
{
    UHandle shared = mShared.load(std::memory_order_acquire);
    if (shared != nullptr || mData == nullptr) {
        return shared;
    }
    // The bytes are copied before the handle can be seen, so that another thread never reads half a copy.
    const UHandle made = DSNewHandle(static_cast<unsigned long>(mSize));
    if (made == nullptr) {
        return nullptr;
    }
    MoveBlock(mData, *made, static_cast<unsigned long>(mSize));
    // Another thread may have made its copy meanwhile. Only one may be shared, because handles are compared by address.
    if (mShared.compare_exchange_strong(shared, made, std::memory_order_acq_rel)) {
        return made;
    }
    DSDisposeHandle(made);
    return shared;
}

bool MappedResource::ContainsHandle(UHandle handle) const
{
    return handle != nullptr && handle == mShared.load(std::memory_order_relaxed);
}
