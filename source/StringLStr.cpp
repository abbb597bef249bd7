// All text that is put into a handle goes through PutBehind, and from there through kz::SpliceBehind: a source may lie
// in the handle's own block, and nothing has changed when memory is full.
//
// Calls that take a pointer rely on its count; calls that take a handle go by HandleText, so that a count that the
// block does not hold leads nowhere outside it.
#include "StringLStr.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "ByteCompare.h"
#include "DebugStream.h"
#include "HandleCalls.h"
#include "HandleSplice.h"
#include "HandleText.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "MemoryManager.h"
#include "Report.h"
#include "StringPStr.h"

namespace {

constexpr char kModule[] = "source/StringLStr";
constexpr std::size_t kCountSize = sizeof(int32);  // the text stands behind it
constexpr int32 kMaxCount = std::numeric_limits<int32>::max();

using kz::CountOf;
using kz::Fit;

kz::HandleText TextAt(const LStr* s)
{
    return s == nullptr ? kz::HandleText{} : kz::HandleText{s->str, CountOf(s)};
}

struct Block {
    std::size_t size = 0;  // 0 where there is no block
    int32 count = 0;       // what the block holds of the text
};

// The handle's block; nothing for null and for a handle that is not good, which the resize reports. DSGetHandleSize
// is not asked, because it would report a bad handle for a second time, and cost the append of a byte a call.
Block BlockOf(LStr* const* handle)
{
    const unsigned char* const data = kz::GoodData(handle, kz::kRangeForQueries);
    if (data == nullptr) {
        return {};
    }
    const std::size_t size = kz::HandleDataSize(data);
    return {size, kz::HeldCount(data, size, kCountSize, 1)};
}

// Puts n bytes behind the block's text, which ends there afterwards. Makes the handle where there is none.
KzErr PutBehind(LStr*** handle, Block block, const void* bytes, std::size_t n, Fit fit)
{
    KZ_ASSERT(handle != nullptr && block.count >= 0);
    KZ_ASSERT(block.count == 0 || kCountSize + static_cast<std::size_t>(block.count) <= block.size);
    if (n > static_cast<std::size_t>(kMaxCount - block.count)) {
        return kzErrMemoryFull;
    }
    const kz::Splice splice{block.size, kCountSize + static_cast<std::size_t>(block.count), bytes, n};
    if (const KzErr err = kz::SpliceBehind(handle, splice, fit)) {
        return err;
    }
    (**handle)->cnt = block.count + static_cast<int32>(n);
    return kzErrNone;
}

// LStrFromPtr, for lengths above those that its argument can hold too: these end as a full memory in PutBehind.
KzErr Replace(LStr*** handle, const void* bytes, std::size_t n)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    if (bytes != nullptr && n != 0) {
        // As if behind a block without text: the bytes may be part of the old text, which stands until they are copied.
        return PutBehind(handle, Block(), bytes, n, Fit::kExactBlock);
    }
    DSDisposeHandleAndNull(handle);
    return kzErrNone;
}

KzErr Append(LStr*** handle, const void* bytes, std::size_t n, Fit fit)
{
    KZ_ASSERT(handle != nullptr && (bytes != nullptr || n == 0));
    return PutBehind(handle, BlockOf(*handle), bytes, n, fit);
}

// The source may be the handle's own string. Its count is then held to the block like that of the handle itself: it is
// the one `LStr*` here of which more is known than it says.
KzErr AppendString(LStr** handle, const LStr* src, Fit fit)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const int32 count = src != nullptr && src == *handle ? BlockOf(handle).count : CountOf(src);
    return Append(&handle, src == nullptr ? nullptr : src->str, static_cast<std::size_t>(count), fit);
}

// Null is empty.
std::size_t LengthOf(const char* c)
{
    return c == nullptr ? 0 : std::strlen(c);
}

// Copies into a caller's block, whose count is set last: the source may be the block itself.
int32 FillLStr(LStr* dst, const void* bytes, std::size_t n)
{
    const std::size_t count = std::min<std::size_t>(n, kMaxCount);
    MoveBlock(bytes, dst->str, count);
    dst->cnt = static_cast<int32>(count);
    return dst->cnt;
}

// Copies at most `limit` bytes and terminates, which takes one more.
int32 FillCStr(const LStr* s, char* dst, int32 limit)
{
    KZ_ASSERT(limit >= 0);
    const int32 n = std::min(CountOf(s), limit);
    MoveBlock(n == 0 ? nullptr : s->str, dst, static_cast<unsigned long>(n));
    dst[n] = 0;
    return n;
}

// Null is below text only, and equal to an empty one: what is null has no text, and neither has what is empty. Inlined,
// so that the forms on pointers pass nothing through memory.
[[gnu::always_inline]] inline int32 Compare(const kz::HandleText& a, const kz::HandleText& b)
{
    // The same address is the same string, since both counts come from it.
    if (a.bytes == b.bytes) {
        return 0;
    }
    if (a.bytes == nullptr || b.bytes == nullptr) {
        return (a.count != 0 ? 1 : 0) - (b.count != 0 ? 1 : 0);
    }
    const int32 order = kz::OrderOfBytes(a.bytes, b.bytes, static_cast<std::size_t>(std::min(a.count, b.count)));
    return order != 0 ? order : a.count - b.count;
}

[[gnu::always_inline]] inline bool AreEqual(const kz::HandleText& a, const kz::HandleText& b)
{
    return a.count == b.count && (a.count == 0 || kz::EqualBytes(a.bytes, b.bytes, static_cast<std::size_t>(a.count)));
}

// The rule of null for text by pointer and length: true when it decides, with the result. The same address decides too,
// whatever the lengths.
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
    if (bytes != nullptr && len < 0) {
        return kzErrArgument;
    }
    return Replace(handle, bytes, static_cast<std::size_t>(len));
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
    const std::size_t length = LengthOf(c);
    const KzErr err = Replace(handle, c, length);
    if (err != kzErrNone) {
        // The report shows as much as a short string holds, and the length tells how much there was.
        unsigned char shown[kz::kMostInPStr + 1];
        CToPStr(c == nullptr ? "" : c, shown);
        KZ_REPORT(kDbgWarning, 0xA27F16C8)
            << "CToLHStr FAILED:" << DbgFmtPStr(shown) << ", size " << static_cast<unsigned long long>(length) << ", "
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
    return FillCStr(s, dst, kMaxCount);
}

int32 LToCStrN(const LStr* s, char* dst, int32 dstSize)
{
    return dstSize <= 0 ? 0 : FillCStr(s, dst, dstSize - 1);
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
    constexpr int32 kMost = kz::kMostInPStr;
    int32 n = CountOf(s);
    if (n > kMost) {
        KZ_REPORT(kDbgWarning, 0x0C63D95A) << "LStr truncated when converting to PStr. Original LStr length=" << n;
        n = kMost;
    }
    MoveBlock(n == 0 ? nullptr : s->str, p + 1, static_cast<unsigned long>(n));
    p[0] = static_cast<unsigned char>(n);
    return n;
}

KzErr LStrAppendChar(LStr** handle, int32 c)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const unsigned char byte = static_cast<unsigned char>(c);
    return Append(&handle, &byte, 1, Fit::kKeepSpareRoom);
}

KzErr LStrCatEfficient(LStr** handle, const LStr* src)
{
    return AppendString(handle, src, Fit::kKeepSpareRoom);
}

KzErr LStrCat(LStr** handle, const LStr* src)
{
    return AppendString(handle, src, Fit::kExactBlock);
}

KzErr LStrAppendCStr(LStr*** handle, const char* c)
{
    if (c == nullptr) {
        return kzErrNone;
    }
    return handle == nullptr ? kzErrArgument : Append(handle, c, std::strlen(c), Fit::kExactBlock);
}

KzErr LStrAppendPStr(LStr*** handle, const unsigned char* p)
{
    if (p == nullptr) {
        return kzErrNone;
    }
    return handle == nullptr ? kzErrArgument : Append(handle, p + 1, p[0], Fit::kExactBlock);
}

KzErr LStrPrependCStr(LStr*** handle, const char* c)
{
    if (handle == nullptr || *handle == nullptr || c == nullptr) {
        return kzErrNone;
    }
    // The bytes go behind the text and are turned to its front, so that c may be part of the text.
    const int32 oldCount = BlockOf(*handle).count;
    if (const KzErr err = Append(handle, c, std::strlen(c), Fit::kExactBlock)) {
        return err;
    }
    LStr* const string = **handle;
    KZ_ASSERT(string->cnt >= oldCount);
    kz::TurnBytes(string->str, string->str + oldCount, string->str + string->cnt);
    return kzErrNone;
}

KzErr LStrHNullTerminate(LStr** handle)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const Block block = BlockOf(handle);
    if (block.count == kMaxCount) {
        return kzErrMemoryFull;
    }
    // The block grows by a byte also where it has room, because callers go by its size. A block without a count, or
    // none that is good, counts as an empty string, and the resize tells what is wrong with it.
    if (const KzErr err = DSSetHandleSize(handle, std::max(block.size, kCountSize) + 1)) {
        return err;
    }
    (*handle)->str[block.count] = 0;
    (*handle)->cnt = block.count + 1;
    return kzErrNone;
}

KzErr LStrToUpper(LStr** handle)
{
    const kz::HandleText text = kz::TextOf(handle);
    return text.count == 0 ? kzErrNone : StrToUpper(const_cast<unsigned char*>(text.bytes), text.count);
}

KzErr LStrToLower(LStr** handle)
{
    const kz::HandleText text = kz::TextOf(handle);
    return text.count == 0 ? kzErrNone : StrToLower(const_cast<unsigned char*>(text.bytes), text.count);
}

int32 LStrCmp(const LStr* a, const LStr* b)
{
    return Compare(TextAt(a), TextAt(b));
}

int32 LHStrCmp(LStr* const* a, LStr* const* b)
{
    return Compare(kz::TextOf(a), kz::TextOf(b));
}

int32 LStrCaseCmp(const LStr* a, const LStr* b)
{
    if (a == b) {
        return 0;
    }
    if (a == nullptr || b == nullptr) {
        return Compare(TextAt(a), TextAt(b));
    }
    return kz::CompareFolded(a->str, CountOf(a), b->str, CountOf(b));
}

int32 LHStrCaseCmp(LStr* const* a, LStr* const* b)
{
    const kz::HandleText aText = kz::TextOf(a);
    const kz::HandleText bText = kz::TextOf(b);
    const bool bothHaveText = aText.count != 0 && bText.count != 0;
    return bothHaveText ? kz::CompareFolded(aText.bytes, aText.count, bText.bytes, bText.count)
                        : aText.count - bText.count;
}

KzBool LStrEqual(const LStr* a, const LStr* b)
{
    return AreEqual(TextAt(a), TextAt(b));
}

KzBool LHStrEqual(LStr* const* a, LStr* const* b)
{
    return AreEqual(kz::TextOf(a), kz::TextOf(b));
}

KzBool LStrCaseEqual(const LStr* a, const LStr* b)
{
    return CountOf(a) == CountOf(b) && LStrCaseCmp(a, b) == 0;
}

int32 PLStrCmp(const unsigned char* p, const LStr* s)
{
    const int32 count = CountOf(s);
    return count == 0 ? p[0] : kz::CompareBytes(p + 1, p[0], s->str, count);
}

int32 PLStrCaseCmp(const unsigned char* p, const LStr* s)
{
    const int32 count = CountOf(s);
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

void ToDebugStream(DebugStream& stream, const LStr* const* text)
{
    const kz::HandleText held = kz::QuietTextOf(text);
    const char* const bytes = kz::AsChars(held.bytes);
    stream.Append(bytes, bytes + held.count);
}
