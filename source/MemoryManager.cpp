#include "MemoryManager.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "HandleLayout.h"
#include "KZPlacement.h"
#include "MemoryZone.h"
#include "PlatformHeap.h"
#include "Report.h"
#include "ThAtomic.h"
#include "ThMutex.h"

using kz::HandleAlignment;
using kz::MasterWord;
using kz::MemZone;
using kz::MemZoneRec;

namespace {

constexpr char kModule[] = "source/MemoryManager";

enum class Fill { kNone, kZero };

// The levels of DSSetHandleChecking from which a call looks in the tables of all handles.
constexpr uInt32 kRangeForQueries = 2;  // size and disposal
constexpr uInt32 kRangeForChanges = 1;  // everything else
constexpr uInt32 kCheckAll = 2;
constexpr uInt32 kCheckSettingUnread = 3;  // until the environment is read; acts as kCheckAll

// Relaxed: settings, which order nothing.
constinit std::atomic<uInt32> gHandleChecking{kCheckSettingUnread};
constinit std::atomic<bool> gMemoryInited{false};
constinit std::atomic<uintptr_t> gBreakMark{0};

void IgnoreMemFull(unsigned long /*size*/) {}

constinit std::atomic<MemFullProc> gMemFullProc{&IgnoreMemFull};

uInt32 HandleCheckingOf(const char* setting)
{
    const auto is = [setting](const char* text) { return std::strcmp(setting, text) == 0; };
    if (setting == nullptr) {
        return kCheckAll;
    }
    if (is("resize") || is("1")) {
        return 1;
    }
    return is("") || is("off") || is("none") || is("0") ? 0 : kCheckAll;
}

// A level that load-time code of the host has set before stays.
bool ReadHandleChecking()
{
    uInt32 unread = kCheckSettingUnread;
    return gHandleChecking.compare_exchange_strong(unread, HandleCheckingOf(std::getenv("ZVHandleCheck")));
}
[[maybe_unused]] const bool gHandleCheckingRead = ReadHandleChecking();

// The room for the guard on each side of a handle's data.
constexpr unsigned long HandleGuardSize()
{
    return 0;
}

bool IsGoodHandle(const void* handle, uInt32 rangeLevel)
{
    return kz::CheckHandleInZone(MemZone(), handle, gHandleChecking.load(std::memory_order_relaxed) < rangeLevel);
}

unsigned char* DataOf(const void* handle)
{
    return kz::LoadMaster(static_cast<const MasterWord*>(handle));
}

unsigned long SizeOf(const void* handle)
{
    return kz::HandleDataSize(DataOf(handle), HandleGuardSize());
}

// A laid out block of uninitialised data, or null. `*blockSize` is what was asked of the allocator, 0 when that can't
// be said in an unsigned long.
unsigned char* AllocateData(unsigned long size, HandleAlignment align, unsigned long* blockSize)
{
    *blockSize = kz::HandleBlockSize(size, align, HandleGuardSize());
    auto* const block = *blockSize == 0 ? nullptr : static_cast<unsigned char*>(kz::AllocateBytes(*blockSize));
    return block == nullptr ? nullptr : kz::LayOutHandle(block, size, align, HandleGuardSize());
}

void FreeData(unsigned char* data)
{
    std::free(kz::HandleDataPlace(data, HandleGuardSize()).block);
}

UHandle TryNewHandle(MemZoneRec* zone, unsigned long size, HandleAlignment align, Fill fill)
{
    MasterWord* const master = kz::TakeMaster(zone);
    if (master == nullptr) {
        CallSetMemFullProc(kz::kMasterBlockSize);
        return nullptr;
    }
    unsigned long blockSize;
    unsigned char* const data = AllocateData(size, align, &blockSize);
    if (data == nullptr) {
        kz::ReturnMaster(zone, master);
        return nullptr;
    }
    if (fill == Fill::kZero) {
        std::memset(data, 0, size);
    }
    kz::StoreMaster(master, data);
    kz::RaiseCounter(zone, kz::kHandlesMade);
    return master;
}

UHandle NewHandle(unsigned long size, HandleAlignment align, Fill fill)
{
    MemZoneRec* const zone = MemZone();
    const UHandle handle = zone == nullptr ? nullptr : TryNewHandle(zone, size, align, fill);
    if (handle == nullptr) {
        CallSetMemFullProc(size);
    }
    return handle;
}

// The resize of a handle that has passed validation.
KzErr ResizeGoodHandle(MasterWord* master, unsigned long size, HandleAlignment align, Fill fill)
{
    unsigned char* const oldData = DataOf(master);
    const unsigned long oldSize = kz::HandleDataSize(oldData, HandleGuardSize());
    if (size == oldSize && align == kz::HandleDataPlace(oldData, HandleGuardSize()).align) {
        return kzErrNone;
    }
    MemZoneRec* const zone = MemZone();
    kz::RaiseCounter(zone, kz::kResizes);
    unsigned long blockSize;
    unsigned char* const data = AllocateData(size, align, &blockSize);
    if (data == nullptr) {
        if (blockSize != 0) {
            CallSetMemFullProc(blockSize);
        }
        return kzErrMemoryFull;
    }
    MoveBlock(oldData, data, std::min(oldSize, size));
    if (fill == Fill::kZero && size > oldSize) {
        std::memset(data + oldSize, 0, size - oldSize);
    }
    kz::StoreMaster(master, data);
    FreeData(oldData);
    kz::RaiseCounter(zone, kz::kMoves);
    return kzErrNone;
}

// `call` is the name of the exported function that fails, here and below.
KzErr Failed(const char* call, KzErr err)
{
    KZ_REPORT(kDbgWarning, 0x9F2B60A7) << "Memory error " << err << " in " << call;
    return err;
}

KzErr BadHandle(const char* call)
{
    KZ_REPORT(kDbgFatal, 0x3C81E5D4);
    return Failed(call, kzErrBadZone);
}

KzErr ResizeHandle(const char* call, void* handle, unsigned long size, HandleAlignment align, Fill fill)
{
    if (!IsGoodHandle(handle, kRangeForChanges)) {
        return BadHandle(call);
    }
    const KzErr err = ResizeGoodHandle(static_cast<MasterWord*>(handle), size, align, fill);
    return err == kzErrNone ? err : Failed(call, err);
}

// Handle variables come as void*, whatever type they point to, and are copied as bytes.
UHandle LoadVariable(const void* variable)
{
    UHandle handle;
    std::memcpy(&handle, variable, sizeof handle);
    return handle;
}

void StoreVariable(void* variable, UHandle handle)
{
    std::memcpy(variable, &handle, sizeof handle);
}

KzErr ResizeOrNewHandle(const char* call, void* variable, unsigned long size, Fill fill)
{
    if (variable == nullptr) {
        return kzErrArgument;
    }
    const HandleAlignment align = kz::AlignmentForSize(size);
    if (const UHandle old = LoadVariable(variable)) {
        return ResizeHandle(call, old, size, align, fill);
    }
    const UHandle made = NewHandle(size, align, fill);
    StoreVariable(variable, made);
    return made == nullptr ? kzErrMemoryFull : kzErrNone;
}

void DisposeGoodHandle(MemZoneRec* zone, MasterWord* master)
{
    unsigned char* const data = DataOf(master);
    kz::ReturnMaster(zone, master);
    FreeData(data);
}

KzErr DisposeHandle(const char* call, void* handle)
{
    if (handle == nullptr) {
        return kzErrNone;
    }
    if (!IsGoodHandle(handle, kRangeForQueries)) {
        return BadHandle(call);
    }
    DisposeGoodHandle(MemZone(), static_cast<MasterWord*>(handle));
    return kzErrNone;
}

}  // namespace

extern "C" {

UHandle DSNewHandle(unsigned long size)
{
    return NewHandle(size, kz::AlignmentForSize(size), Fill::kNone);
}

UHandle DSNewHClr(unsigned long size)
{
    return NewHandle(size, kz::AlignmentForSize(size), Fill::kZero);
}

UHandle DSNewAlignedHandle(unsigned long size, unsigned long alignment, unsigned long offset)
{
    return NewHandle(size, kz::NormalAlignment(alignment, offset), Fill::kNone);
}

UHandle DSNewAlignedHClr(unsigned long size, unsigned long alignment, unsigned long offset)
{
    return NewHandle(size, kz::NormalAlignment(alignment, offset), Fill::kZero);
}

void* DSNewPtr(unsigned long size)
{
    void* const ptr = kz::AllocatePtr(size);
    if (ptr == nullptr) {
        CallSetMemFullProc(size);
    }
    return ptr;
}

void* DSNewPClr(unsigned long size)
{
    void* const ptr = DSNewPtr(size);
    if (ptr != nullptr) {
        std::memset(ptr, 0, size);
    }
    return ptr;
}

KzErr DSSetHandleSize(void* handle, unsigned long size)
{
    return ResizeHandle("DSSetHandleSize", handle, size, kz::AlignmentForSize(size), Fill::kNone);
}

KzErr DSSetHSzClr(void* handle, unsigned long size)
{
    return ResizeHandle("DSSetHSzClr", handle, size, kz::AlignmentForSize(size), Fill::kZero);
}

KzErr DSSetAlignedHandleSize(void* handle, unsigned long size, unsigned long alignment, unsigned long offset)
{
    return ResizeHandle("DSSetAlignedHandleSize", handle, size, kz::NormalAlignment(alignment, offset), Fill::kNone);
}

KzErr DSSetAlignedHSzClr(void* handle, unsigned long size, unsigned long alignment, unsigned long offset)
{
    return ResizeHandle("DSSetAlignedHSzClr", handle, size, kz::NormalAlignment(alignment, offset), Fill::kZero);
}

KzErr DSSetHandleSizeOrNewHandle(void* handle, unsigned long size)
{
    return ResizeOrNewHandle("DSSetHandleSizeOrNewHandle", handle, size, Fill::kNone);
}

KzErr DSSetHSzOrNewHClr(void* handle, unsigned long size)
{
    return ResizeOrNewHandle("DSSetHSzOrNewHClr", handle, size, Fill::kZero);
}

KzErr DSDisposeHandle(void* handle)
{
    return DisposeHandle("DSDisposeHandle", handle);
}

KzErr DSDisposeHandleAndNull(void* handle)
{
    if (handle == nullptr) {
        return kzErrNone;
    }
    const UHandle old = LoadVariable(handle);
    StoreVariable(handle, nullptr);
    return DisposeHandle("DSDisposeHandleAndNull", old);
}

KzErr DSDisposePtr(void* ptr)
{
    if (ptr == nullptr) {
        return kzErrArgument;
    }
    kz::FreePtr(ptr);
    return kzErrNone;
}

unsigned long DSGetHandleSize(const void* handle)
{
    if (!IsGoodHandle(handle, kRangeForQueries)) {
        KZ_REPORT(kDbgFatal, 0x2E76B8C5);
        return 0;
    }
    return SizeOf(handle);
}

KzErr DSCheckHandle(const void* handle)
{
    return kz::CheckHandleInZone(MemZone(), handle, false) ? kzErrNone : kzErrBadZone;
}

KzErr AZCheckHandle(const void* handle)
{
    return IsGoodHandle(handle, kRangeForChanges) ? kzErrNone : kzErrBadZone;
}

KzBool IsDSHandle(const void* handle)
{
    return kz::CheckHandleInZone(MemZone(), handle, false);
}

KzErr DSCheckPtr(const void* ptr)
{
    return ptr == nullptr ? kzErrBadZone : kzErrNone;
}

KzErr DSCopyHandle(void* dest, const void* src)
{
    if (dest == nullptr) {
        return kzErrArgument;
    }
    if (src == nullptr) {
        return DSDisposeHandleAndNull(dest);
    }
    if (LoadVariable(dest) == src) {
        KZ_REPORT(kDbgWarning, 0x58D3F12A) << "Should call DSHandToHand. This is a no-op";
        return kzErrNone;
    }
    if (!IsGoodHandle(src, kRangeForQueries)) {
        KZ_REPORT(kDbgFatal, 0xA0C94E67);
        return kzErrBadZone;
    }
    const unsigned long size = SizeOf(src);
    const KzErr err = DSSetHandleSizeOrNewHandle(dest, size);
    if (err == kzErrNone) {
        MoveBlock(DataOf(src), DataOf(LoadVariable(dest)), size);
    }
    return err;
}

int32 BlockCmp(const void* a, const void* b, unsigned long n)
{
    return n == 0 ? 0 : std::memcmp(a, b, n);
}

void MoveBlock(const void* src, void* dest, unsigned long n)
{
    if (n != 0) {
        std::memmove(dest, src, n);
    }
}

void ClearMem(void* p, unsigned long n)
{
    if (n != 0) {
        std::memset(p, 0, n);
    }
}

MemFullProc SetMemFullProc(MemFullProc proc)
{
    return gMemFullProc.exchange(proc == nullptr ? &IgnoreMemFull : proc);
}

void CallSetMemFullProc(unsigned long size)
{
    gMemFullProc.load()(size);
}

uInt32 DSSetHandleChecking(uInt32 level)
{
    const uInt32 set = std::min(level, kCheckAll);
    gHandleChecking.store(set, std::memory_order_relaxed);
    return set;
}

KzBool GetMemoryManagerInitialized(void)
{
    return gMemoryInited.load(std::memory_order_relaxed);
}

void DSReadCounters(uInt64* counters)
{
    if (counters == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters] = {};
    if (const MemZoneRec* zone = MemZone()) {
        for (int i = 0; i < kz::kNumMemoryCounters; ++i) {
            values[i] = zone->counters[i].load(std::memory_order_relaxed);
        }
    }
    std::memcpy(counters, values, sizeof values);
}

void DSSetCounters(const uInt64* counters)
{
    MemZoneRec* const zone = MemZone();
    if (counters == nullptr || zone == nullptr) {
        return;
    }
    uInt32 values[kz::kNumMemoryCounters];
    std::memcpy(values, counters, sizeof values);
    for (int i = 0; i < kz::kNumMemoryCounters; ++i) {
        zone->counters[i].store(values[i], std::memory_order_relaxed);
    }
}

}  // extern "C"

namespace kz {

uInt64 HeapGrowth()
{
    const uintptr_t mark = gBreakMark.load(std::memory_order_relaxed);
    return mark == 0 ? 0 : ProgramBreakGrowth(mark);
}

const char* MemoryFault()
{
    const MemZoneRec* const zone = MemZone();
    return zone == nullptr ? nullptr : ZoneFault(zone, HandleGuardSize());
}

}  // namespace kz

MemoryManager_Service* MemoryManagerService()
{
    return KZSingleton_T<MemoryManager_Service>::Instance();
}

const char* MemoryManager_Service::GetName() const
{
    return "MemoryManager";
}

void MemoryManager_Service::GetDependencies(IServiceDependencyList* list) const
{
    list->Add(ThMutexService());
    list->Add(ProtectedAtomicOperationsService());
}

namespace {

void StopZone(MemZoneRec* zone)
{
    kz::gMemZone.store(nullptr, std::memory_order_release);
    kz::DestroyZone(zone);
}

// Logs and disposes what the callers have left.
void RecoverHandles(MemZoneRec* zone)
{
    unsigned long long count = 0;
    unsigned long long bytes = 0;
    for (kz::masterBlock* block = zone->blocks; block != nullptr; block = block->next) {
        for (MasterWord& master : block->masters) {
            if (!kz::IsHandleWord(kz::LoadMaster(&master))) {
                continue;
            }
            const unsigned long long size = SizeOf(&master);
            KZ_LOG(kDbgLog) << "handle " << DbgFmtPtr(&master) << ", size " << size << " still allocated.";
            DisposeGoodHandle(zone, &master);
            ++count;
            bytes += size;
        }
    }
    StopZone(zone);
    KZ_LOG(kDbgLog) << "Recovered " << count << " Handles for " << bytes << " bytes.";
}

}  // namespace

KzErr MemoryManager_Service::_Init()
{
    constexpr int kBlocksAtStart = 5;
    gBreakMark.store(kz::ProgramBreak(), std::memory_order_relaxed);
    MemZoneRec* const zone = kz::CreateZone();
    if (zone == nullptr) {
        return kzErrMemoryFull;
    }
    kz::gMemZone.store(zone, std::memory_order_release);
    // A block that can't be had now is tried again by the first make that lacks it.
    for (int i = 0; i < kBlocksAtStart; ++i) {
        if (!kz::AddMasterBlock(zone)) {
            CallSetMemFullProc(kz::kMasterBlockSize);
        }
    }
    gMemoryInited.store(true, std::memory_order_relaxed);
    const KzErr err = ThMutexCreate(&kz::gMemoryRights, "gMemoryRights");
    if (err != kzErrNone) {
        gMemoryInited.store(false, std::memory_order_relaxed);
        StopZone(zone);
    }
    return err;
}

KzErr MemoryManager_Service::_Uninit()
{
    gMemoryInited.store(false, std::memory_order_relaxed);
    if (MemZoneRec* const zone = MemZone()) {
        RecoverHandles(zone);
    }
    ThMutexDestroy(kz::gMemoryRights);
    kz::gMemoryRights = nullptr;
    SetMemFullProc(nullptr);
    gBreakMark.store(0, std::memory_order_relaxed);
    KZPlacementNewRunCleanup();
    return kzErrNone;
}
