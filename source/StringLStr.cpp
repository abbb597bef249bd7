// Every change of a handle's text goes through Splice, which keeps a source inside the same block valid while the
// resize moves the block.
#include "StringLStr.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "ByteCompare.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/StringLStr";
constexpr std::size_t kCountSize = sizeof(int32);

enum Fit { kKeepSpareRoom, kExactBlock };

int32 Count(const LStr* s)
{
    return s == nullptr ? 0 : std::max(s->cnt, 0);
}

const LStr* Target(LStr* const* handle)
{
    return handle == nullptr ? nullptr : *handle;
}

// The block of `handle` holds exactly `text` bytes of text after this.
KzErr MakeExact(LStr** handle, int64 text)
{
    const std::size_t size = static_cast<std::size_t>(text) + kCountSize;
    return DSGetHandleSize(handle) == size ? kzErrNone : DSSetHandleSize(handle, size);
}

// Puts n bytes behind the first `at` bytes of the text, where the text then ends. Makes the handle where there is
// none. The source may lie in the block. A block that can't grow leaves the string as it was.
KzErr Splice(LStr*** handle, int32 at, const void* bytes, int32 n, Fit fit)
{
    const int64 text = int64{at} + n;
    if (text > std::numeric_limits<int32>::max()) {
        return kzErrMemoryFull;
    }
    const std::size_t needed = static_cast<std::size_t>(text) + kCountSize;
    const LStr* const old = Target(*handle);
    const std::size_t block = old == nullptr ? 0 : DSGetHandleSize(*handle);
    const unsigned char* source = static_cast<const unsigned char*>(bytes);
    if (block < needed) {
        const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(bytes) - reinterpret_cast<std::uintptr_t>(old);
        if (const KzErr err = DSSetHandleSizeOrNewHandle(handle, needed)) {
            return err;
        }
        if (offset < block) {
            source = reinterpret_cast<const unsigned char*>(**handle) + offset;
        }
    }
    LStr* const string = **handle;
    if (n != 0) {
        std::memmove(string->str + at, source, static_cast<std::size_t>(n));
    }
    string->cnt = static_cast<int32>(text);
    return fit == kExactBlock && block > needed ? MakeExact(*handle, text) : kzErrNone;
}

int32 LengthOf(const char* c)
{
    return c == nullptr ? 0 : static_cast<int32>(std::strlen(c));
}

// Copies into a caller's block, whose count is set last: the source may be the block itself.
int32 FillLStr(LStr* dst, const void* bytes, int32 n)
{
    if (n != 0) {
        std::memmove(dst->str, bytes, static_cast<std::size_t>(n));
    }
    dst->cnt = n;
    return n;
}

// The rule of null strings: true when it decides, with the result.
bool NullDecides(const LStr* a, const LStr* b, int32& result)
{
    if (a != b && a != nullptr && b != nullptr) {
        return false;
    }
    result = a == b ? 0 : (Count(b) != 0 ? -1 : 0) + (Count(a) != 0 ? 1 : 0);
    return true;
}

// The same for text by pointer and length.
bool NullDecides(const void* a, int32 aLen, const void* b, int32 bLen, int32& result)
{
    if (a != b && a != nullptr && b != nullptr) {
        return false;
    }
    const bool equal = a == b || (a == nullptr ? bLen : aLen) == 0;
    result = equal ? 0 : (a == nullptr ? -1 : 1);
    return true;
}

}  // namespace

KzErr LStrFromPtr(LStr*** handle, int32 len, const void* bytes)
{
    if (handle == nullptr || (bytes != nullptr && len < 0)) {
        return kzErrArgument;
    }
    if (bytes != nullptr && len != 0) {
        return Splice(handle, 0, bytes, len, kExactBlock);
    }
    if (*handle != nullptr) {
        DSDisposeHandle(*handle);
        *handle = nullptr;
    }
    return kzErrNone;
}

KzErr PToLHStr(const unsigned char* p, LStr*** handle)
{
    const int32 length = p == nullptr ? 0 : p[0];
    const KzErr err = LStrFromPtr(handle, length, p == nullptr ? nullptr : p + 1);
    if (err != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x5E80B3D4) << "PToLHStr FAILED:" << DbgFmtPStr(p) << ", size " << length << ", "
                                           << DbgFmtPtr(handle == nullptr ? nullptr : *handle);
    }
    return err;
}

KzErr PStrToDSLStr(const unsigned char* p, LStr*** handle)
{
    return PToLHStr(p, handle);
}

KzErr CToLHStr(const char* c, LStr*** handle)
{
    const int32 length = LengthOf(c);
    const KzErr err = LStrFromPtr(handle, length, c);
    if (err != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0xA27F16C8) << "CToLHStr FAILED:" << c << ", size " << length << ", "
                                           << DbgFmtPtr(handle == nullptr ? nullptr : *handle);
    }
    return err;
}

int32 CToLStr(const char* c, LStr* dst)
{
    return FillLStr(dst, c, LengthOf(c));
}

int32 PToLStr(const unsigned char* p, LStr* dst)
{
    return p == nullptr ? FillLStr(dst, nullptr, 0) : FillLStr(dst, p + 1, p[0]);
}

int32 LToCStr(const LStr* s, char* dst)
{
    const int32 n = Count(s);
    if (n != 0) {
        std::memmove(dst, s->str, static_cast<std::size_t>(n));
    }
    dst[n] = 0;
    return n;
}

int32 LToCStrN(const LStr* s, char* dst, int32 dstSize)
{
    if (dstSize <= 0) {
        return 0;
    }
    const int32 n = std::min(Count(s), dstSize - 1);
    if (n != 0) {
        std::memmove(dst, s->str, static_cast<std::size_t>(n));
    }
    dst[n] = 0;
    return n;
}

int32 LToCStrNUnchecked(const LStr* s, char* dst, int32 dstSize)
{
    return LToCStrN(s, dst, dstSize);
}

KzErr LToCStrNChecked(const LStr* s, char* dst, int32 dstSize, int32* outLen)
{
    if (dstSize <= 0) {
        return kzErrNone;
    }
    const int32 n = LToCStrN(s, dst, dstSize);
    if (outLen != nullptr) {
        *outLen = n;
    }
    return std::memchr(dst, 0, static_cast<std::size_t>(n)) == nullptr ? kzErrNone : kzErrEmbeddedNul;
}

int32 LToPStr(const LStr* s, unsigned char* p)
{
    int32 n = Count(s);
    if (n > 255) {
        KZ_REPORT(kDbgWarning, 0x0C63D95A) << "LStr truncated when converting to PStr. Original LStr length=" << n;
        n = 255;
    }
    if (n != 0) {
        std::memmove(p + 1, s->str, static_cast<std::size_t>(n));
    }
    p[0] = static_cast<unsigned char>(n);
    return n;
}

KzErr LStrAppendChar(LStr** handle, int32 c)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const unsigned char byte = static_cast<unsigned char>(c);
    return Splice(&handle, Count(*handle), &byte, 1, kKeepSpareRoom);
}

KzErr LStrCatEfficient(LStr** handle, const LStr* src)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    return Splice(&handle, Count(*handle), src == nullptr ? nullptr : src->str, Count(src), kKeepSpareRoom);
}

KzErr LStrCat(LStr** handle, const LStr* src)
{
    const KzErr err = LStrCatEfficient(handle, src);
    return err != kzErrNone ? err : MakeExact(handle, Count(*handle));
}

KzErr LStrAppendCStr(LStr*** handle, const char* c)
{
    if (c == nullptr) {
        return kzErrNone;
    }
    if (handle == nullptr) {
        return kzErrArgument;
    }
    return Splice(handle, Count(Target(*handle)), c, LengthOf(c), kExactBlock);
}

KzErr LStrAppendPStr(LStr*** handle, const unsigned char* p)
{
    if (p == nullptr) {
        return kzErrNone;
    }
    if (handle == nullptr) {
        return kzErrArgument;
    }
    return Splice(handle, Count(Target(*handle)), p + 1, p[0], kExactBlock);
}

KzErr LStrPrependCStr(LStr*** handle, const char* c)
{
    if (handle == nullptr || *handle == nullptr || c == nullptr) {
        return kzErrNone;
    }
    const int32 oldCount = Count(**handle);
    if (const KzErr err = Splice(handle, oldCount, c, LengthOf(c), kKeepSpareRoom)) {
        return err;
    }
    LStr* const string = **handle;
    std::rotate(string->str, string->str + oldCount, string->str + string->cnt);
    return MakeExact(*handle, string->cnt);
}

KzErr LStrHNullTerminate(LStr** handle)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const int32 oldCount = Count(*handle);
    if (oldCount == std::numeric_limits<int32>::max()) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = DSSetHandleSize(handle, DSGetHandleSize(handle) + 1)) {
        return err;
    }
    (*handle)->str[oldCount] = 0;
    (*handle)->cnt = oldCount + 1;
    return kzErrNone;
}

int32 LStrCmp(const LStr* a, const LStr* b)
{
    int32 result = 0;
    if (NullDecides(a, b, result)) {
        return result;
    }
    const int32 aCount = Count(a);
    const int32 bCount = Count(b);
    const int order = std::memcmp(a->str, b->str, static_cast<std::size_t>(std::min(aCount, bCount)));
    return order != 0 ? order : aCount - bCount;
}

int32 LHStrCmp(LStr* const* a, LStr* const* b)
{
    return LStrCmp(Target(a), Target(b));
}

int32 LStrCaseCmp(const LStr* a, const LStr* b)
{
    int32 result = 0;
    if (NullDecides(a, b, result)) {
        return result;
    }
    return kz::CompareFolded(a->str, Count(a), b->str, Count(b));
}

int32 LHStrCaseCmp(LStr* const* a, LStr* const* b)
{
    const int32 aCount = Count(Target(a));
    const int32 bCount = Count(Target(b));
    return aCount != 0 && bCount != 0 ? LStrCaseCmp(*a, *b) : aCount - bCount;
}

KzBool LStrEqual(const LStr* a, const LStr* b)
{
    return Count(a) == Count(b) && LStrCmp(a, b) == 0;
}

KzBool LHStrEqual(LStr* const* a, LStr* const* b)
{
    return LStrEqual(Target(a), Target(b));
}

KzBool LStrCaseEqual(const LStr* a, const LStr* b)
{
    return Count(a) == Count(b) && LStrCaseCmp(a, b) == 0;
}

int32 PLStrCmp(const unsigned char* p, const LStr* s)
{
    const int32 count = Count(s);
    return count == 0 ? p[0] : kz::CompareBytes(p + 1, p[0], s->str, count);
}

int32 PLStrCaseCmp(const unsigned char* p, const LStr* s)
{
    const int32 count = Count(s);
    return count == 0 ? p[0] : kz::CompareFolded(p + 1, p[0], s->str, count);
}

int32 PtrLenStrCmp(const void* a, int32 aLen, const void* b, int32 bLen)
{
    int32 result = 0;
    if (NullDecides(a, aLen, b, bLen, result)) {
        return result;
    }
    return kz::CompareBytes(static_cast<const unsigned char*>(a), std::max(aLen, 0),
                            static_cast<const unsigned char*>(b), std::max(bLen, 0));
}

int32 PtrLenStrCaseCmp(const void* a, int32 aLen, const void* b, int32 bLen)
{
    int32 result = 0;
    if (NullDecides(a, aLen, b, bLen, result)) {
        return result;
    }
    return kz::CompareFolded(static_cast<const unsigned char*>(a), std::max(aLen, 0),
                             static_cast<const unsigned char*>(b), std::max(bLen, 0));
}
