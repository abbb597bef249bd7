// Each operation is one call of MemoryManager.h, because a module that is given the interface chooses at run time which
// calls it makes.
#include "HandleAllocationInterface.h"

#include "MemoryManager.h"

HandleAllocationInterface::~HandleAllocationInterface() = default;

UHandle NormalHandleAllocationInterface::AllocateHandle(unsigned long size) const
{
    return DSNewHandle(size);
}

UHandle NormalHandleAllocationInterface::AllocateHandleClr(unsigned long size) const
{
    return DSNewHClr(size);
}

KzErr NormalHandleAllocationInterface::ResizeHandle(void* handle, unsigned long size) const
{
    return DSSetHandleSize(handle, size);
}

KzErr NormalHandleAllocationInterface::ResizeHandleClr(void* handle, unsigned long size) const
{
    return DSSetHSzClr(handle, size);
}

KzErr NormalHandleAllocationInterface::ResizeHandleOrAllocateHandle(void* variable, unsigned long size) const
{
    return DSSetHandleSizeOrNewHandle(variable, size);
}

KzErr NormalHandleAllocationInterface::ResizeHandleOrAllocateHandleClr(void* variable, unsigned long size) const
{
    return DSSetHSzOrNewHClr(variable, size);
}

KzErr NormalHandleAllocationInterface::DeallocateHandle(void* handle) const
{
    return DSDisposeHandle(handle);
}

UHandle CachedHandleAllocationInterface::AllocateHandle(unsigned long size) const
{
    return DSNewHandleCache(size);
}

UHandle CachedHandleAllocationInterface::AllocateHandleClr(unsigned long size) const
{
    return DSNewHClrCache(size);
}

KzErr CachedHandleAllocationInterface::ResizeHandle(void* handle, unsigned long size) const
{
    return DSSetHandleSizeCache(handle, size);
}

KzErr CachedHandleAllocationInterface::ResizeHandleClr(void* handle, unsigned long size) const
{
    return DSSetHSzClrCache(handle, size);
}

KzErr CachedHandleAllocationInterface::ResizeHandleOrAllocateHandle(void* variable, unsigned long size) const
{
    return DSSetHandleSizeOrNewHandleCache(variable, size);
}

KzErr CachedHandleAllocationInterface::ResizeHandleOrAllocateHandleClr(void* variable, unsigned long size) const
{
    return DSSetHSzOrNewHClrCache(variable, size);
}

KzErr CachedHandleAllocationInterface::DeallocateHandle(void* handle) const
{
    return DSDisposeHandleCache(handle);
}
