// Copies into handles, and moves of plain bytes. A source may be the very handle that is written to, or stand in its
// data. So every copy into a handle that exists goes through the Insertion of a resize, which reads the source while
// the old block is still there; nothing is read after a resize has moved or freed it.
//
// A handle that is the source is read once, by SourceData, and its size and data are used from there on.
#include <climits>
#include <cstring>

#include "HandleCalls.h"
#include "HandleLayout.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "MemorySettings.h"
#include "Report.h"

using kz::BySize;
using kz::DataOf;
using kz::HandleDataSize;
using kz::Insertion;

namespace {

constexpr char kModule[] = "source/MemoryCopies";

// The data of a source after a size query's look at it; null after the report of a bad one.
const unsigned char* SourceData(const void* handle)
{
    // The look is that of a size query, and so is the report.
    const unsigned char* const data = kz::GoodData(handle, kz::kRangeForQueries);
    if (data == nullptr) {
        KZ_REPORT(kDbgFatal, 0xA0C94E67);
    }
    return data;
}

// Whether bytes are asked for at a null address. A null address of no bytes is sound.
bool LacksBytes(const void* ptr, unsigned long n)
{
    return ptr == nullptr && n != 0;
}

KzErr CopyHandle(const char* call, void* dest, const void* src)
{
    if (dest == nullptr) {
        return kzErrArgument;
    }
    if (src == nullptr) {
        return kz::DisposeAndNull(call, dest);
    }
    // A copy of a handle over itself would be a resize to its own size; it is told of because the caller most likely
    // wants a second handle.
    if (kz::LoadVariable(dest) == src) {
        KZ_REPORT(kDbgWarning, 0x58D3F12A) << "Should call DSHandToHand. This is a no-op";
        return kzErrNone;
    }
    const unsigned char* const data = SourceData(src);
    if (data == nullptr) {
        return kzErrBadZone;
    }
    const unsigned long size = HandleDataSize(data);
    return kz::ResizeOrNewHandle(call, dest, BySize(size), {data, 0, size});
}

KzErr DuplicateHandle(void* variable)
{
    if (variable == nullptr) {
        return kzErrArgument;
    }
    const unsigned char* const data = SourceData(kz::LoadVariable(variable));
    if (data == nullptr) {
        return kzErrBadZone;
    }
    const unsigned long size = HandleDataSize(data);
    const UHandle copy = kz::NewHandle(BySize(size));
    if (copy == nullptr) {
        return kz::FailedMake();
    }
    // The old handle is not disposed, because it may have other owners than the variable.
    kz::MoveBytes(data, DataOf(copy), size);
    kz::StoreVariable(variable, copy);
    return kzErrNone;
}

KzErr SetFromPtr(const char* call, void* variable, const void* ptr, unsigned long n)
{
    return LacksBytes(ptr, n) ? kzErrArgument : kz::ResizeOrNewHandle(call, variable, BySize(n), {ptr, 0, n});
}

// What the variable holds is not looked at, and nulled even where the make then fails.
KzErr NewFromPtr(const char* call, const void* ptr, void* variable, unsigned long n)
{
    if (variable == nullptr || LacksBytes(ptr, n)) {
        return kzErrArgument;
    }
    kz::StoreVariable(variable, nullptr);
    return SetFromPtr(call, variable, ptr, n);
}

KzErr ReplaceFromPtr(const char* call, const void* ptr, void* handle, unsigned long n)
{
    return LacksBytes(ptr, n) ? kzErrArgument : kz::ResizeHandle(call, handle, BySize(n), {ptr, 0, n});
}

KzErr AppendBytes(const char* call, const void* ptr, void* handle, unsigned long n)
{
    if (LacksBytes(ptr, n)) {
        return kzErrArgument;
    }
    unsigned char* const data = kz::GoodData(handle, kz::kRangeForChanges);
    if (data == nullptr) {
        return kz::BadHandle(call);
    }
    const unsigned long size = HandleDataSize(data);
    // A size that wraps is asked for as the largest there is, which fails as a lack of memory does, trace and report
    // included.
    if (size + n < size) {
        return kz::ResizeGoodHandle(call, handle, data, BySize(ULONG_MAX));
    }
    return kz::ResizeGoodHandle(call, handle, data, BySize(size + n), {ptr, size, n});
}

// The source may be the handle that is appended to: its size is read before the resize changes it.
KzErr AppendHandle(const char* call, const void* from, void* to)
{
    const unsigned char* const data = SourceData(from);
    return data == nullptr ? kzErrBadZone : AppendBytes(call, data, to, HandleDataSize(data));
}

// Swaps `n` bytes by words of type Word, which both areas are aligned to or which are single bytes.
template <typename Word>
void SwapWords(unsigned char* a, unsigned char* b, unsigned long n)
{
    KZ_ASSERT(reinterpret_cast<uintptr_t>(a) % sizeof(Word) == 0 && reinterpret_cast<uintptr_t>(b) % sizeof(Word) == 0);
    KZ_ASSERT(n % sizeof(Word) == 0);
    for (unsigned long i = 0; i + sizeof(Word) <= n; i += sizeof(Word)) {
        Word x;
        Word y;
        std::memcpy(&x, a + i, sizeof x);
        std::memcpy(&y, b + i, sizeof y);
        std::memcpy(a + i, &y, sizeof y);
        std::memcpy(b + i, &x, sizeof x);
    }
}

}  // namespace

extern "C" {

KzErr DSCopyHandle(void* variable, const void* src)
{
    return CopyHandle("DSCopyHandle", variable, src);
}

KzErr AZCopyHandle(void* variable, const void* src)
{
    return CopyHandle("AZCopyHandle", variable, src);
}

KzErr DSHandToHand(void* variable)
{
    return DuplicateHandle(variable);
}

KzErr AZHandToHand(void* variable)
{
    return DuplicateHandle(variable);
}

KzErr DSSetHandleFromPtr(void* variable, const void* ptr, unsigned long n)
{
    return SetFromPtr("DSSetHandleFromPtr", variable, ptr, n);
}

KzErr AZSetHandleFromPtr(void* variable, const void* ptr, unsigned long n)
{
    return SetFromPtr("AZSetHandleFromPtr", variable, ptr, n);
}

KzErr DSSetHandleFromPtrNULLMeansEmpty(void* variable, const void* ptr, unsigned long n)
{
    constexpr char kCall[] = "DSSetHandleFromPtrNULLMeansEmpty";
    if (n != 0) {
        return SetFromPtr(kCall, variable, ptr, n);
    }
    // A disposal that fails has been reported, and the variable is null all the same, as asked.
    kz::DisposeAndNull(kCall, variable);
    return variable == nullptr ? kzErrArgument : kzErrNone;
}

KzErr DSPtrToHand(const void* ptr, void* variable, unsigned long n)
{
    return NewFromPtr("DSPtrToHand", ptr, variable, n);
}

KzErr AZPtrToHand(const void* ptr, void* variable, unsigned long n)
{
    return NewFromPtr("AZPtrToHand", ptr, variable, n);
}

KzErr DSPtrToXHand(const void* ptr, void* handle, unsigned long n)
{
    return ReplaceFromPtr("DSPtrToXHand", ptr, handle, n);
}

KzErr AZPtrToXHand(const void* ptr, void* handle, unsigned long n)
{
    return ReplaceFromPtr("AZPtrToXHand", ptr, handle, n);
}

KzErr DSPtrAndHand(const void* ptr, void* handle, unsigned long n)
{
    return AppendBytes("DSPtrAndHand", ptr, handle, n);
}

KzErr AZPtrAndHand(const void* ptr, void* handle, unsigned long n)
{
    return AppendBytes("AZPtrAndHand", ptr, handle, n);
}

KzErr DSHandAndHand(const void* from, void* to)
{
    return AppendHandle("DSHandAndHand", from, to);
}

KzErr AZHandAndHand(const void* from, void* to)
{
    return AppendHandle("AZHandAndHand", from, to);
}

int32 BlockCmp(const void* a, const void* b, unsigned long n)
{
    return n == 0 ? 0 : std::memcmp(a, b, n);
}

void MoveBlock(const void* src, void* dest, unsigned long n)
{
    kz::MoveBytes(src, dest, n);
}

void ClearMem(void* p, unsigned long n)
{
    if (n != 0) {
        std::memset(p, 0, n);
    }
    kz::CallMemoryCheck();
}

void SwapBlock(void* a, void* b, unsigned long n)
{
    // Words are possible where both areas reach a word's boundary after the same number of bytes.
    auto* first = static_cast<unsigned char*>(a);
    auto* second = static_cast<unsigned char*>(b);
    const uintptr_t address = reinterpret_cast<uintptr_t>(a);
    if (address % sizeof(uInt32) == reinterpret_cast<uintptr_t>(b) % sizeof(uInt32)) {
        // Bytes up to the first word, words, and the bytes behind the last.
        const unsigned long head = (0 - address) % sizeof(uInt32);
        if (n >= head + sizeof(uInt32)) {
            SwapWords<unsigned char>(first, second, head);
            const unsigned long words = (n - head) & ~(sizeof(uInt32) - 1);
            SwapWords<uInt32>(first + head, second + head, words);
            first += head + words;
            second += head + words;
            n -= head + words;
        }
    }
    SwapWords<unsigned char>(first, second, n);
}

MemoryCheckCallback SetMemoryCheckCallback(MemoryCheckCallback proc)
{
    return gMemoryCheckCallback.exchange(proc);
}

}  // extern "C"
