// The bytes behind a loaded resource: in a handle of their own, or in memory that the file's source owns.
#ifndef KZCORE_RESOURCEDATA_H
#define KZCORE_RESOURCEDATA_H

#include <atomic>

#include "KZTypes.h"
#include "KzAssert.h"

// The slots stand in this order, the destructor pair first. Any thread may read; ReleaseData and the destructor are
// the owner's, while no thread reads.
class ResourceData {
public:
    virtual ~ResourceData();

    // Forgets the bytes, and a handle given out, which the caller of GetSharedDSHandle then owns.
    virtual void ReleaseData() = 0;
    // Bytes; 0 once they are forgotten.
    virtual int32 GetSize() const = 0;
    // The bytes, valid until ReleaseData; null once they are forgotten.
    virtual const unsigned char* GetDataPtr() const = 0;
    // A handle with the bytes, owned here; the same each time. Null when there is none or memory is full.
    virtual UHandle GetSharedDSHandle() const = 0;
    // Whether the handle is the one that GetSharedDSHandle gives; false for null.
    virtual bool ContainsHandle(UHandle handle) const = 0;
};

// Owns a handle, which it shares as it is, and disposes it.
class DSHandleResource final : public ResourceData {
public:
    explicit DSHandleResource(UHandle handle) : mHandle(handle) {}
    ~DSHandleResource() override;

    void ReleaseData() override { mHandle = nullptr; }
    int32 GetSize() const override;
    const unsigned char* GetDataPtr() const override { return mHandle ? *mHandle : nullptr; }
    UHandle GetSharedDSHandle() const override { return mHandle; }
    bool ContainsHandle(UHandle handle) const override { return handle != nullptr && handle == mHandle; }

private:
    UHandle mHandle;  // null once forgotten
};

// Bytes that stay where they are and belong to somebody else; copied into a handle only when one is asked for.
class MappedResource final : public ResourceData {
public:
    // `data` must stay valid and unchanged as long as this object uses it. Requires: size >= 0.
    MappedResource(const unsigned char* data, int32 size) : mData(data), mSize(size) { KZ_ASSERT(size >= 0); }
    ~MappedResource() override;

    void ReleaseData() override;
    int32 GetSize() const override { return mSize; }
    const unsigned char* GetDataPtr() const override { return mData; }
    UHandle GetSharedDSHandle() const override;
    bool ContainsHandle(UHandle handle) const override;

private:
    const unsigned char* mData;
    int32 mSize;
    // The copy that was shared, owned; null before. It is atomic because two threads may ask for the first one at once:
    // the one that stores it wins, and acquire and release order its bytes.
    mutable std::atomic<UHandle> mShared{nullptr};
};

#endif
