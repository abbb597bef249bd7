#include "StringCLStr.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ByteOrder.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "Report.h"
#include "StringLStr.h"
#include "zvhandle.h"

using kz::kListCountSize;
using kz::kMaxListSize;

namespace {

constexpr char kModule[] = "source/StringCLStr";

// What a string of `count` bytes, not negative, takes with its padding.
constexpr std::size_t RecordSize(int32 count)
{
    return sizeof(int32) + ((static_cast<std::size_t>(count) + 3) & ~std::size_t{3});
}

// The size of a record with this count, or 0 if there is no such record in what is left.
constexpr std::size_t WholeSize(int32 count, std::size_t left)
{
    return count < 0 || RecordSize(count) > left ? 0 : RecordSize(count);
}

struct LongStringRule {
    static std::size_t Size(const unsigned char* record, std::size_t left)
    {
        return left < sizeof(int32) ? 0 : WholeSize(kz::LoadNative<int32>(record), left);
    }
};
using Walk = kz::PackedWalk<LongStringRule>;

unsigned char* BytesOf(CLStr* list)
{
    return reinterpret_cast<unsigned char*>(list);
}

bool IsInBlock(CLStr** handle, std::size_t block, const LStr* s)
{
    return block != 0 && reinterpret_cast<std::uintptr_t>(s) - reinterpret_cast<std::uintptr_t>(*handle) < block;
}

// Inserts s at an offset of a list over which `walk` has gone to its end.
KzErr InsertAt(CLStr** handle, const Walk& walk, std::size_t at, const LStr* s, KzBool exactFit)
{
    const int32 count = std::max(s->cnt, 0);
    const std::size_t text = static_cast<std::size_t>(count);
    const std::size_t size = RecordSize(count);
    const std::size_t used = walk.End();
    const std::size_t needed = used + size;
    if (needed > kMaxListSize) {
        return kzErrMemoryFull;
    }
    ZVHandle copy;
    const unsigned char* source = s->str;
    if (IsInBlock(handle, walk.Block(), s)) {
        if (const KzErr err = copy.Resize(std::max(text, std::size_t{1}))) {
            return err;
        }
        source = *copy.GetHandle();
        std::memcpy(*copy.GetHandle(), s->str, text);
    }
    if (exactFit || walk.Block() < needed) {
        if (const KzErr err = DSSetHandleSize(handle, needed)) {
            return err;
        }
    }
    unsigned char* const record = BytesOf(*handle) + at;
    std::memmove(record + size, record, used - at);
    kz::StoreNative(record, count);
    std::memcpy(record + sizeof(int32), source, text);
    std::memset(record + sizeof(int32) + text, 0, size - sizeof(int32) - text);
    (*handle)->cnt = walk.Count() + 1;
    return kzErrNone;
}

}  // namespace

int32 CLStrSize(const CLStr* p)
{
    Walk walk(p);
    walk.Finish();
    return static_cast<int32>(std::min(walk.End(), kMaxListSize));
}

LStr* CLStrIndex(CLStr* p, int32 i)
{
    if (p == nullptr) {
        KZ_REPORT(kDbgFatal, 0x2C94D7F1) << "invalid buffer passed to CLStrIndex";
        return nullptr;
    }
    Walk walk(p);
    walk.Seek(i);
    return walk.Count() == 0 ? nullptr : reinterpret_cast<LStr*>(BytesOf(p) + walk.At());
}

KzErr CLStrInsert(CLStr** handle, const LStr* s, int32 i, KzBool exactFit)
{
    if (handle == nullptr || s == nullptr) {
        KZ_REPORT(kDbgFatal, 0xE05A3B68) << "Invalid dest buffer or insert buffer passed to CLStrInsert";
        return kzErrArgument;
    }
    Walk walk = Walk::OfHandle(handle);
    if (i > 0) {
        walk.Seek(i - 1);
    }
    const std::size_t at = walk.Finish().End();
    return InsertAt(handle, walk, at, s, exactFit);
}

KzErr CLStrRemove(CLStr** handle, int32 i)
{
    Walk walk = Walk::OfHandle(handle);
    walk.Seek(i);
    if (walk.Count() == 0) {
        return kzErrArgument;
    }
    const Walk old = walk.Finish();
    const std::size_t behind = walk.End() - old.End();
    const std::size_t left = old.At() + behind;
    // The string goes behind the others, from where it can come back if the block can't shrink.
    unsigned char* const base = BytesOf(*handle);
    std::rotate(base + old.At(), base + old.End(), base + walk.End());
    const KzErr err = DSSetHandleSize(handle, left);
    if (err != kzErrNone) {
        std::rotate(base + old.At(), base + left, base + walk.End());
        return err;
    }
    (*handle)->cnt = walk.Count() - 1;
    return kzErrNone;
}

KzErr CLStrInsertSort(CLStr** handle, const LStr* s, KzBool allowDuplicates, int32* outIndex, KzBool* outInserted,
                      KzBool exactFit)
{
    if (handle == nullptr || s == nullptr) {
        KZ_REPORT(kDbgFatal, 0x9B31F84D) << "Invalid dest buffer or insert buffer passed to CLStrInsertSort";
        return kzErrArgument;
    }
    Walk walk = Walk::OfHandle(handle);
    Walk below = walk;
    int32 order = -1;
    while (walk.Next()) {
        order = LStrCmp(reinterpret_cast<const LStr*>(walk.Record()), s);
        if (order >= 0) {
            break;
        }
        below = walk;
    }
    walk.Finish();
    if (outIndex != nullptr) {
        *outIndex = below.Count();
    }
    const bool isKeptOut = order == 0 && !allowDuplicates;
    const KzErr err = isKeptOut ? kzErrNone : InsertAt(handle, walk, below.End(), s, exactFit);
    if (outInserted != nullptr) {
        *outInserted = !isKeptOut && err == kzErrNone;
    }
    return err;
}

KzErr StdToCLStr(CLStr** handle)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const std::size_t block = DSGetHandleSize(handle);
    std::size_t at = kListCountSize;
    int32 count = 0;
    int32 whole = 0;
    if (block >= kListCountSize) {
        unsigned char* const bytes = BytesOf(*handle);
        count = RevBL(kz::LoadNative<int32>(bytes));
        for (std::size_t size = 0; whole < count && block - at >= sizeof(int32); at += size, ++whole) {
            const int32 length = RevBL(kz::LoadNative<int32>(bytes + at));
            size = WholeSize(length, block - at);
            if (size == 0) {
                break;
            }
            kz::StoreNative(bytes + at, length);
        }
        (*handle)->cnt = whole;
    }
    if (whole != count || at != block) {
        KZ_REPORT(kDbgFatal, 0x84C7216E);
        return kzErrCorrupt;
    }
    return kzErrNone;
}
