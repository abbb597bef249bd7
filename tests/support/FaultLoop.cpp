#include "FaultLoop.h"

#include <atomic>
#include <cstring>
#include <new>

#include "IniMemory.h"
#include "MemorySource.h"

namespace {

constexpr int kNever = -1;

std::atomic<int> gLeft{kNever};  // allocations until the one that fails; 0: it has failed
std::atomic<bool> gForGood{false};
std::atomic<bool> gReachesNew{false};
std::atomic<long> gLiveNews{0};

std::atomic<const void*> gWatched{nullptr};
void* gCopy = nullptr;
std::size_t gCopySize = 0;

bool NextFails()
{
    int left = gLeft.load();
    while (left > 0 && !gLeft.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1 || (left == 0 && gForGood);
}

void* Allocate(std::size_t size)
{
    return NextFails() ? nullptr : std::malloc(size);
}

void* AllocateZeros(std::size_t count, std::size_t size)
{
    return NextFails() ? nullptr : std::calloc(count, size);
}

void* Reallocate(void* old, std::size_t size)
{
    return NextFails() ? nullptr : std::realloc(old, size);
}

void* New(std::size_t size)
{
    void* const memory = gReachesNew && NextFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    gLiveNews += memory != nullptr;
    return memory;
}

void Delete(void* memory)
{
    gLiveNews -= memory != nullptr;
    const void* watched = memory;
    if (memory != nullptr && gWatched.compare_exchange_strong(watched, nullptr)) {
        std::memcpy(gCopy, memory, gCopySize);
    }
    std::free(memory);
}

}  // namespace

namespace kztest {

void CopyAtDelete(const void* memory, void* copy, std::size_t size)
{
    gCopy = copy;
    gCopySize = size;
    gWatched = memory;
}

bool CopiedAtDelete()
{
    return gWatched == nullptr;
}

FailAllocation::FailAllocation(int n, Span span, Reach reach)
{
    gReachesNew = reach == kBlocksAndNew;
    gForGood = span == kForGood;
    gLeft = n;
    kz::gAllocateProc = &Allocate;
    kz::gAllocateZerosProc = &AllocateZeros;
    qkini::SetAllocator(&Reallocate);
}

FailAllocation::~FailAllocation()
{
    kz::gAllocateProc = &std::malloc;
    kz::gAllocateZerosProc = &std::calloc;
    qkini::SetAllocator(nullptr);
    gLeft = kNever;
    gReachesNew = false;
}

bool FailAllocation::Happened()
{
    return gLeft == 0;
}

long LiveNewCount()
{
    return gLiveNews;
}

}  // namespace kztest

// The library's objects are linked into the test, so these are their operators too.
void* operator new(std::size_t size)
{
    void* const memory = New(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return New(size);
}

void operator delete(void* memory) noexcept
{
    Delete(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Delete(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    Delete(memory);
}
