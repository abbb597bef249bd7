// Handle allocation as an object, for code that is written once and runs with or without the buffer cache. Arguments,
// results and threads are those of the calls in MemoryManager.h.
#ifndef KZCORE_HANDLEALLOCATIONINTERFACE_H
#define KZCORE_HANDLEALLOCATIONINTERFACE_H

#include "KZTypes.h"

// The slots stand in this order; the destructor pair stands first.
class KZ_EXPORT HandleAllocationInterface {
public:
    virtual ~HandleAllocationInterface();
    virtual UHandle AllocateHandle(unsigned long size) const = 0;
    virtual UHandle AllocateHandleClr(unsigned long size) const = 0;
    virtual KzErr ResizeHandle(void* handle, unsigned long size) const = 0;
    virtual KzErr ResizeHandleClr(void* handle, unsigned long size) const = 0;
    virtual KzErr ResizeHandleOrAllocateHandle(void* variable, unsigned long size) const = 0;
    virtual KzErr ResizeHandleOrAllocateHandleClr(void* variable, unsigned long size) const = 0;
    virtual KzErr DeallocateHandle(void* handle) const = 0;

    // What does not compile, as in MemoryManager.h.
    template <kz::NotAHandleType T>
    KzErr ResizeHandleOrAllocateHandle(T* variable, unsigned long size) const = delete;
    template <kz::NotAHandleType T>
    KzErr ResizeHandleOrAllocateHandleClr(T* variable, unsigned long size) const = delete;
};

// By DSNewHandle, DSNewHClr, DSSetHandleSize, DSSetHSzClr, DSSetHandleSizeOrNewHandle, DSSetHSzOrNewHClr and
// DSDisposeHandle.
class KZ_EXPORT NormalHandleAllocationInterface : public HandleAllocationInterface {
public:
    using HandleAllocationInterface::ResizeHandleOrAllocateHandle;
    using HandleAllocationInterface::ResizeHandleOrAllocateHandleClr;
    UHandle AllocateHandle(unsigned long size) const override;
    UHandle AllocateHandleClr(unsigned long size) const override;
    KzErr ResizeHandle(void* handle, unsigned long size) const override;
    KzErr ResizeHandleClr(void* handle, unsigned long size) const override;
    KzErr ResizeHandleOrAllocateHandle(void* variable, unsigned long size) const override;
    KzErr ResizeHandleOrAllocateHandleClr(void* variable, unsigned long size) const override;
    KzErr DeallocateHandle(void* handle) const override;
};

// By the "Cache" variants of the same.
class KZ_EXPORT CachedHandleAllocationInterface : public HandleAllocationInterface {
public:
    using HandleAllocationInterface::ResizeHandleOrAllocateHandle;
    using HandleAllocationInterface::ResizeHandleOrAllocateHandleClr;
    UHandle AllocateHandle(unsigned long size) const override;
    UHandle AllocateHandleClr(unsigned long size) const override;
    KzErr ResizeHandle(void* handle, unsigned long size) const override;
    KzErr ResizeHandleClr(void* handle, unsigned long size) const override;
    KzErr ResizeHandleOrAllocateHandle(void* variable, unsigned long size) const override;
    KzErr ResizeHandleOrAllocateHandleClr(void* variable, unsigned long size) const override;
    KzErr DeallocateHandle(void* handle) const override;
};

#endif
