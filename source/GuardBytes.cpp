// A block with guards, of pointers and of TrackedMalloc:   size  guard  data  guard
// and of a handle, whose header stores the size:           header (size, address)  guard  data  guard
//
// The size that is stored before the data is the only way to the guard behind it. So the first guard is looked at
// before the size is believed: a write that ran down into the size has run over that guard as well.
//
// A family's word changes in two ways only. The environment sets it once, before the first block is made, because a
// block that was made without room for guards has none to look for; ConfigGuardBytes changes the bit of checking, which
// no block's layout depends on.
//
// Guards are poisoned, so nothing but this file touches them: it lifts the poison to write and reads past it.
#include "GuardBytes.h"

#include <cstdlib>
#include <cstring>

#include "GuardChecks.h"
#include "KzAssert.h"
#include "Literals.h"
#include "MemoryPoison.h"
#include "Report.h"

namespace kz {

constinit std::atomic<uInt32> gGuardBytes_Handle{0};
constinit std::atomic<uInt32> gGuardBytes_Ptr{0};
constinit std::atomic<uInt32> gGuardBytes_NewDelete{0};
constinit std::atomic<bool> gGuardBytes_Initialized{false};
constinit std::atomic<bool> gGuardBytes_InitializedAndDisabled{false};

}  // namespace kz

namespace {

constexpr char kModule[] = "source/GuardBytes";

// The bits of a family's word.
constexpr uInt32 kRoom = 1;
constexpr uInt32 kWrite = 2;
constexpr uInt32 kCheck = 4;

// "ZOR" and "MEM" tell a whole guard from one that was written over, the characters between them the version whose
// library made the block.
constexpr char kGuard[] = "ZOR14MEM";
constexpr unsigned long kGuardSize = sizeof kGuard - 1;
constexpr unsigned long kSentinelSize = 3;
constexpr unsigned long kVersionAt = 3;
constexpr unsigned long kVersionSize = 2;
constexpr unsigned long kSecondSentinelAt = 5;
static_assert(kGuardSize == 8);

// From a pointer block's start to its data: the size and a guard.
constexpr unsigned long kPtrPrefix = sizeof(unsigned long) + kGuardSize;
constexpr unsigned long kAllPtrGuards = kPtrPrefix + kGuardSize;

constinit std::atomic<GuardByteCheckFailedProc> gCheckFailedProc{&StandardGuardByteCheckFailedProc};

// An absent variable, like a text that is none of the three, leaves the family off.
void ReadSetting(const char* variable, const char* general, std::atomic<uInt32>& word)
{
    const char* own = std::getenv(variable);
    const char* const text = own != nullptr ? own : general;
    if (text == nullptr) {
        return;
    }
    if (kz::SameText(text, "off")) {
        word = 0;
    } else if (kz::SameText(text, "alloc")) {
        word = kRoom | kWrite;
    } else if (kz::SameText(text, "check")) {
        word = kRoom | kWrite | kCheck;
    }
}

bool ReadSettings()
{
    const char* const general = std::getenv("ZVGuardBytes");
    ReadSetting("ZVGuardBytes_Handle", general, kz::gGuardBytes_Handle);
    ReadSetting("ZVGuardBytes_Ptr", general, kz::gGuardBytes_Ptr);
    ReadSetting("ZVGuardBytes_NewDelete", general, kz::gGuardBytes_NewDelete);
    // TrackedMalloc asks this too, so its blocks have guards only where they are checked or another family has room.
    const bool playNoPart = (kz::gGuardBytes_NewDelete & kCheck) == 0 && (kz::gGuardBytes_Ptr & kRoom) == 0 &&
                            (kz::gGuardBytes_Handle & kRoom) == 0;
    kz::gGuardBytes_InitializedAndDisabled = playNoPart;
    kz::gGuardBytes_Initialized = true;  // the last, because whoever sees it goes by all of them
    return true;
}

// Load-time code of a host may make blocks before this line runs, which is why each look at a word reads the settings
// where they are unread.
[[maybe_unused]] const bool gReadAtLoad = (InitializeGuardByteSettingsCore(), true);

uInt32 Word(const std::atomic<uInt32>& family)
{
    InitializeGuardByteSettingsCore();
    return family.load(std::memory_order_relaxed);
}

bool Has(const std::atomic<uInt32>& family, uInt32 bits)
{
    return (Word(family) & bits) == bits;
}

// Copies bytes that may be poisoned, one by one, because a library call that touched them would stop the process.
KZ_TOUCHES_POISON void ReadPoisoned(const unsigned char* from, unsigned char* to, unsigned long n)
{
    kz::RevealMemory(from, n);
    for (unsigned long i = 0; i < n; ++i) {
        to[i] = static_cast<const volatile unsigned char*>(from)[i];
    }
}

// A copy of a guard. Reading it lifts the poison that Valgrind knows, so a real guard is poisoned again; other bytes
// are left as they are, because they may be a neighbour's data.
struct Guard {
    unsigned char bytes[kGuardSize];

    explicit Guard(const unsigned char* at)
    {
        ReadPoisoned(at, bytes, kGuardSize);
        if (HasSentinels()) {
            kz::PoisonMemory(at, kGuardSize);
        }
    }
    bool HasSentinels() const
    {
        return std::memcmp(bytes, kGuard, kSentinelSize) == 0 &&
               std::memcmp(bytes + kSecondSentinelAt, kGuard + kSecondSentinelAt, kSentinelSize) == 0;
    }
    const unsigned char* Version() const { return bytes + kVersionAt; }
};

// The fault means nothing for a sound block, the version nothing where a guard is broken.
struct Finding {
    bool isSound;
    GuardByteFailureTypes fault;
    char version[kVersionSize + 1];
};

// The size that stands before a guarded block's data: in the header of a handle, else just before the first guard.
unsigned long SizeBefore(const unsigned char* data, bool isHandle)
{
    unsigned long size;
    std::memcpy(&size, data - (isHandle ? kz::kHandleHeaderSize + kGuardSize : kPtrPrefix), sizeof size);
    return size;
}

// What is wrong with a block first. Past a broken first guard the size would be a guess and the second guard any bytes;
// a size that is wrong behind a whole guard leads to bytes that are no guard, and counts as an overrun.
Finding Inspect(const void* ptr, bool isHandle)
{
    KZ_ASSERT(ptr != nullptr);
    const auto* const data = static_cast<const unsigned char*>(ptr);
    const Guard before(data - kGuardSize);
    if (!before.HasSentinels()) {
        return {false, kGuardUnderrun, ""};
    }
    const Guard behind(data + SizeBefore(data, isHandle));
    if (!behind.HasSentinels()) {
        return {false, kGuardOverrun, ""};
    }
    // No library writes two versions into a block, so one of them was written over, between sentinels that are whole.
    if (std::memcmp(before.Version(), behind.Version(), kVersionSize) != 0) {
        return {false, kGuardUnderrun, ""};
    }
    Finding finding = {true, kGuardVersionMismatch, ""};
    std::memcpy(finding.version, before.Version(), kVersionSize);
    finding.isSound = std::memcmp(finding.version, kGuard + kVersionAt, kVersionSize) == 0;
    return finding;
}

}  // namespace

extern "C" {

void InitializeGuardByteSettingsCore(void)
{
    if (!kz::gGuardBytes_Initialized.load(std::memory_order_acquire)) {
        [[maybe_unused]] static const bool read = ReadSettings();
    }
}

KzBool ConfigGuardBytes(int32 on)
{
    // A family that does not write guards keeps its word, because checks would take its blocks' neighbours for guards.
    bool all = true;
    for (std::atomic<uInt32>* family : {&kz::gGuardBytes_Handle, &kz::gGuardBytes_Ptr, &kz::gGuardBytes_NewDelete}) {
        if (!Has(*family, kRoom | kWrite)) {
            all = false;
        } else if (on != 0) {
            family->fetch_or(kCheck, std::memory_order_relaxed);
        } else {
            family->fetch_and(~kCheck, std::memory_order_relaxed);
        }
    }
    return all;
}

KzBool ShouldCheckHandleGuardBytes(void)
{
    return Has(kz::gGuardBytes_Handle, kCheck);
}

GuardByteCheckFailedProc SetGuardByteCheckFailedProc(GuardByteCheckFailedProc proc)
{
    return gCheckFailedProc.exchange(proc);
}

void StandardGuardByteCheckFailedProc(const void* ptr, int32 type, const char* version)
{
    switch (type) {
        case kGuardUnderrun:
            KZ_REPORT(kDbgError, 0x41D7B3E9)
                << "Memory corruption detected:  buffer underrun at pointer " << DbgFmtPtr(ptr);
            break;
        case kGuardOverrun:
            KZ_REPORT(kDbgError, 0x96C20F5A)
                << "Memory corruption detected:  buffer overrun at pointer " << DbgFmtPtr(ptr);
            break;
        case kGuardVersionMismatch:
            KZ_REPORT(kDbgError, 0x2A8E71C4) << "Memory misuse detected:  buffer at " << DbgFmtPtr(ptr)
                                             << " was passed from Zorvane version " << (version ? version : "");
            break;
        default:
            KZ_REPORT(kDbgError, 0xD35F048B) << "Unknown guard byte violation";
            break;
    }
}

void ReportGuardByteCheckFailed(const void* ptr, int32 type, const char* version)
{
    if (const GuardByteCheckFailedProc proc = gCheckFailedProc.load()) {
        proc(ptr, type, version);
    } else {
        KZ_REPORT(kDbgError, 0x7E196DA2) << "No guard byte check failed reporting proc installed!";
    }
}

KzBool CheckGuards(const void* ptr, KzBool isHandle)
{
    // A null block passes no check, because a caller that lost its block has no guards to vouch for.
    if (ptr == nullptr) {
        KZ_REPORT(kDbgError, 0xB80C53F6) << "NULL ptr passed to CheckGuards";
        return false;
    }
    const Finding finding = Inspect(ptr, isHandle != 0);
    if (!finding.isSound) {
        // A version is told only where it is another library's: in a damaged block it is part of the damage.
        const bool isForeign = finding.fault == kGuardVersionMismatch;
        ReportGuardByteCheckFailed(ptr, finding.fault, isForeign ? finding.version : nullptr);
    }
    return finding.isSound;
}

void InitGuards(void* data, unsigned long size)
{
    // The block may come from the cache of freed ones, where its guards are poisoned already.
    auto* const bytes = static_cast<unsigned char*>(data);
    for (unsigned char* const guard : {bytes - kGuardSize, bytes + size}) {
        kz::UnpoisonMemory(guard, kGuardSize);
        std::memcpy(guard, kGuard, kGuardSize);
    }
    kz::PoisonMemory(bytes - kGuardSize, kGuardSize);
    kz::PoisonMemory(bytes + size, kGuardSize);
}

void* InitGuardsAndSize(void* block, unsigned long size)
{
    std::memcpy(block, &size, sizeof size);
    unsigned char* const data = static_cast<unsigned char*>(block) + kPtrPrefix;
    InitGuards(data, size);
    return data;
}

unsigned long GetOneHandleGuardSize(void)
{
    return kz::HandleGuardSize();
}

unsigned long GetAllPtrGuardsSize(void)
{
    return kz::PtrGuardsSize();
}

unsigned long GetAllNewDeleteGuardsSize(void)
{
    return Has(kz::gGuardBytes_NewDelete, kRoom) ? kAllPtrGuards : 0;
}

}  // extern "C"

namespace {

// A word may ask for room and no writing. Such a block is laid out as a guarded one, so that the way from the data back
// to the block goes by the bit of room alone.
void* GuardedData(uInt32 word, void* block, unsigned long size)
{
    if (block == nullptr) {
        return nullptr;
    }
    if ((word & kWrite) != 0) {
        return InitGuardsAndSize(block, size);
    }
    return (word & kRoom) != 0 ? static_cast<unsigned char*>(block) + kPtrPrefix : block;
}

void* BlockOf(uInt32 word, void* ptr)
{
    return (word & kRoom) != 0 ? static_cast<unsigned char*>(ptr) - kPtrPrefix : ptr;
}

}  // namespace

extern "C" {

void* InitPtrGuards(void* block, unsigned long size)
{
    return GuardedData(Word(kz::gGuardBytes_Ptr), block, size);
}

void* InitNewDeleteGuards(void* block, unsigned long size)
{
    return GuardedData(Word(kz::gGuardBytes_NewDelete), block, size);
}

void* GetOrigPtrFromGuardedPtr(void* ptr)
{
    return BlockOf(Word(kz::gGuardBytes_Ptr), ptr);
}

void* GetOrigNewDeletePtrFromGuardedPtr(void* ptr)
{
    return BlockOf(Word(kz::gGuardBytes_NewDelete), ptr);
}

void InitHandleGuards(void* data)
{
    if (Has(kz::gGuardBytes_Handle, kWrite)) {
        InitGuards(data, SizeBefore(static_cast<unsigned char*>(data), true));
    }
}

KzBool DSCheckHandleGuardBytes(const void* handle)
{
    if (handle == nullptr) {
        KZ_REPORT(kDbgError, 0x05FA9C38) << "NULL handle passed to DSCheckHandleGuardBytes";
        return false;
    }
    return !Has(kz::gGuardBytes_Handle, kWrite) || CheckGuards(*static_cast<void* const*>(handle), true) != 0;
}

KzBool DSCheckPtrGuardBytes(const void* ptr)
{
    return !Has(kz::gGuardBytes_Ptr, kWrite) || CheckGuards(ptr, false) != 0;
}

KzBool CheckHandleGuards(const void* handle)
{
    return !Has(kz::gGuardBytes_Handle, kCheck) || DSCheckHandleGuardBytes(handle) != 0;
}

KzBool CheckPtrGuards(const void* ptr)
{
    return kz::CheckPtrDataGuards(ptr);
}

KzBool CheckNewDeleteGuards(const void* ptr)
{
    return !Has(kz::gGuardBytes_NewDelete, kCheck) || CheckGuards(ptr, false) != 0;
}

}  // extern "C"

namespace kz {

// The word is read first, because that reads the environment, which decides whether guards are disabled.
unsigned long HandleGuardSizeSet()
{
    const uInt32 word = Word(gGuardBytes_Handle);
    return GuardsDisabled() || (word & kRoom) == 0 ? 0 : kGuardSize;
}

unsigned long PtrGuardsSizeSet()
{
    const uInt32 word = Word(gGuardBytes_Ptr);
    return GuardsDisabled() || (word & kRoom) == 0 ? 0 : kAllPtrGuards;
}

bool CheckPtrDataGuards(const void* ptr)
{
    return !Has(gGuardBytes_Ptr, kCheck) || DSCheckPtrGuardBytes(ptr) != 0;
}

bool CheckHandleDataGuards(const void* data)
{
    return !Has(gGuardBytes_Handle, kCheck | kWrite) || CheckGuards(data, true) != 0;
}

bool GuardsAreSound(const void* ptr, bool isHandle)
{
    return Inspect(ptr, isHandle).isSound;
}

}  // namespace kz
