#include "StringCPStr.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ByteOrder.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "Report.h"
#include "SortSearch.h"
#include "StringPStr.h"

using kz::kListCountSize;
using kz::kMaxListSize;
using Walk = kz::ShortStringWalk;

namespace {

constexpr char kModule[] = "source/StringCPStr";

enum Fit { kKeepSpareRoom, kExactBlock };

unsigned char* BytesOf(CPStr* list)
{
    return reinterpret_cast<unsigned char*>(list);
}

int32 CountOf(const CPStr* list)
{
    return list == nullptr ? 0 : std::max(list->cnt, 0);
}

bool IsMissing(CPStr** handle)
{
    if (handle != nullptr) {
        return false;
    }
    KZ_REPORT(kDbgFatal, 0xB7E10C35);
    return true;
}

// The bytes from `at` to `end` of a list that ends at `used` give way to a string, or to none if it is null.
struct Change {
    std::size_t used;
    std::size_t at;
    std::size_t end;
    const unsigned char* string;
    int32 count;  // of the list afterwards
};

// Puts `size` bytes in the place of the change's old ones and moves what is behind them.
void PutBytes(CPStr* list, const Change& change, const unsigned char* bytes, std::size_t size)
{
    unsigned char* const base = BytesOf(list);
    std::memmove(base + change.at + size, base + change.end, change.used - change.end);
    if (size != 0) {
        std::memcpy(base + change.at, bytes, size);
    }
    list->cnt = change.count;
}

// The list gets smaller: the block is made so last, and when that fails the old bytes come back.
KzErr Shrink(CPStr** handle, const Change& change, const unsigned char* bytes, std::size_t size)
{
    unsigned char old[256];
    const std::size_t oldSize = change.end - change.at;
    const int32 oldCount = (*handle)->cnt;
    std::memcpy(old, BytesOf(*handle) + change.at, oldSize);
    PutBytes(*handle, change, bytes, size);
    const std::size_t used = change.used - oldSize + size;
    const KzErr err = DSSetHandleSize(handle, used);
    if (err != kzErrNone) {
        PutBytes(*handle, {used, change.at, change.at + size, nullptr, oldCount}, old, oldSize);
    }
    return err;
}

KzErr Apply(CPStr** handle, std::size_t block, const Change& change, Fit fit)
{
    unsigned char string[256];  // a copy, since the string may stand in the block
    const std::size_t size = change.string == nullptr ? 0 : 1u + change.string[0];
    if (size != 0) {
        std::memcpy(string, change.string, size);
    }
    const std::size_t oldSize = change.end - change.at;
    if (size < oldSize) {
        return Shrink(handle, change, string, size);
    }
    const std::size_t needed = change.used - oldSize + size;
    if (needed > kMaxListSize) {
        return kzErrMemoryFull;
    }
    if (size > oldSize && (fit == kExactBlock || block < needed)) {
        if (const KzErr err = DSSetHandleSize(handle, needed)) {
            return err;
        }
    }
    PutBytes(*handle, change, string, size);
    return kzErrNone;
}

// ---- Sorting ----

// The memory that a sort needs, in one piece: the strings' pointers, copies of the parallel entries, the order of the
// indices, and a copy of the list.
class SortRoom {
public:
    SortRoom(const CPStr* list, const Walk& end) : mCount(static_cast<std::size_t>(end.Count()))
    {
        const std::size_t entries = mCount * sizeof(void*);
        auto* const block = static_cast<unsigned char*>(DSNewPtr(2 * entries + mCount * sizeof(int32) + end.End()));
        if (block == nullptr) {
            return;
        }
        strings = reinterpret_cast<const unsigned char**>(block);
        parallel = block + entries;
        order = reinterpret_cast<int32*>(block + 2 * entries);
        unsigned char* const copy = reinterpret_cast<unsigned char*>(order + mCount);
        std::memcpy(copy, list, end.End());
        const unsigned char* string = copy + kListCountSize;
        for (std::size_t i = 0; i < mCount; ++i) {
            order[i] = static_cast<int32>(i);
            strings[i] = string;
            string += 1u + string[0];
        }
    }
    ~SortRoom()
    {
        if (strings != nullptr) {
            DSDisposePtr(strings);
        }
    }
    SortRoom(const SortRoom&) = delete;
    SortRoom& operator=(const SortRoom&) = delete;

    const unsigned char** strings = nullptr;  // null: no memory
    unsigned char* parallel = nullptr;
    int32* order = nullptr;

private:
    std::size_t mCount;
};

int32 CompareByIndex(const void* a, const void* b, void* context)
{
    const auto* const strings = static_cast<const unsigned char* const*>(context);
    return PStrCaseCmp(strings[*static_cast<const int32*>(a)], strings[*static_cast<const int32*>(b)]);
}

void SortWithParallel(SortRoom& room, int32 count, UHandle parallel)
{
    constexpr std::size_t kEntry = sizeof(void*);
    QSortEx(room.order, count, sizeof(int32), &CompareByIndex, room.strings);
    std::memcpy(room.parallel, *parallel, static_cast<std::size_t>(count) * kEntry);
    for (int32 i = 0; i < count; ++i) {
        const auto from = static_cast<std::size_t>(room.order[i]);
        std::memcpy(*parallel + static_cast<std::size_t>(i) * kEntry, room.parallel + from * kEntry, kEntry);
    }
}

}  // namespace

int32 CPStrSize(const CPStr* p)
{
    Walk walk(p);
    walk.Finish();
    return static_cast<int32>(std::min(walk.End(), kMaxListSize));
}

unsigned char* CPStrIndex(CPStr** handle, int32 i)
{
    if (IsMissing(handle)) {
        return nullptr;
    }
    Walk walk = Walk::OfHandle(handle);
    walk.Seek(i);
    return walk.Count() == 0 ? nullptr : BytesOf(*handle) + walk.At();
}

KzErr CPStrInsertEfficient(CPStr** handle, const unsigned char* p, int32 i, KzBool exactFit)
{
    if (handle == nullptr || p == nullptr) {
        KZ_REPORT(kDbgWarning, 0x49D6F0A2) << "Bad inputs to CPStrInsertEfficient";
        return kzErrGeneric;
    }
    Walk walk = Walk::OfHandle(handle);
    if (i > 0) {
        walk.Seek(i - 1);
    }
    const std::size_t place = walk.Finish().End();
    return Apply(handle, walk.Block(), {walk.End(), place, place, p, walk.Count() + 1},
                 exactFit ? kExactBlock : kKeepSpareRoom);
}

KzErr CPStrInsert(CPStr** handle, const unsigned char* p, int32 i)
{
    return CPStrInsertEfficient(handle, p, i, 1);
}

KzErr CPStrRemove(CPStr** handle, int32 i)
{
    if (IsMissing(handle)) {
        return kzErrArgument;
    }
    Walk walk = Walk::OfHandle(handle);
    walk.Seek(i);
    if (walk.Count() == 0) {
        return kzErrArgument;
    }
    const Walk old = walk.Finish();
    return Apply(handle, walk.Block(), {walk.End(), old.At(), old.End(), nullptr, walk.Count() - 1}, kExactBlock);
}

KzErr CPStrReplace(CPStr** handle, const unsigned char* p, int32 i)
{
    if (IsMissing(handle) || p == nullptr) {
        return kzErrArgument;
    }
    Walk walk = Walk::OfHandle(handle);
    walk.Seek(i);
    const Walk old = walk.Finish();
    return Apply(handle, walk.Block(), {walk.End(), old.At(), old.End(), p, walk.Count()}, kExactBlock);
}

KzErr CPStrClear(CPStr** handle)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    const KzErr err = DSSetHandleSize(handle, kListCountSize);
    if (err == kzErrNone) {
        (*handle)->cnt = 0;
    }
    return err;
}

KzErr CPStrSetToNEmptyStrings(CPStr*** handle, int32 n)
{
    if (handle == nullptr || n < 0) {
        return kzErrArgument;
    }
    const std::size_t strings = static_cast<std::size_t>(n);
    if (const KzErr err = DSSetHandleSizeOrNewHandle(handle, kListCountSize + strings)) {
        return err;
    }
    (**handle)->cnt = n;
    std::memset((**handle)->str, 0, strings);
    return kzErrNone;
}

int32 CPStrSearch(CPStr** handle, const unsigned char* p, PStrCompareProc compare)
{
    if (IsMissing(handle)) {
        return -1;
    }
    Walk walk = Walk::OfHandle(handle);
    while (walk.Next()) {
        if (compare(p, walk.Record()) == 0) {
            return walk.Count() - 1;
        }
    }
    return -1;
}

int32 CPStrCmp(const CPStr* a, const CPStr* b)
{
    Walk left(a);
    Walk right(b);
    while (left.Next() && right.Next()) {
        if (const int32 order = PStrCmp(left.Record(), right.Record())) {
            return order;
        }
    }
    return CountOf(a) - CountOf(b);
}

KzBool CPStrEqual(const CPStr* a, const CPStr* b)
{
    return CountOf(a) == CountOf(b) && CPStrCmp(a, b) == 0;
}

KzErr LSort(CPStr** handle, UHandle parallel)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    Walk walk = Walk::OfHandle(handle);
    walk.Finish();
    const int32 count = walk.Count();
    if (parallel != nullptr && DSGetHandleSize(parallel) / sizeof(void*) < static_cast<std::size_t>(count)) {
        return kzErrArgument;
    }
    if (count < 2) {
        return kzErrNone;
    }
    SortRoom room(*handle, walk);
    if (room.strings == nullptr) {
        return kzErrMemoryFull;
    }
    if (parallel == nullptr) {
        QSort(room.strings, count, sizeof(void*), &PPStrCaseCmp);
    } else {
        SortWithParallel(room, count, parallel);
    }
    unsigned char* out = (*handle)->str;
    for (int32 i = 0; i < count; ++i) {
        PStrCpy(out, room.strings[parallel == nullptr ? i : room.order[i]]);
        out += 1u + out[0];
    }
    return kzErrNone;
}

KzErr StrPoundToCPStr(UHandle handle, CPStr* p)
{
    if (handle == nullptr || p == nullptr) {
        return kzErrArgument;
    }
    const std::size_t size = DSGetHandleSize(handle);
    if (size < sizeof(int16)) {
        p->cnt = 0;
        return kzErrNone;
    }
    const std::size_t strings = size - sizeof(int16);
    const int16 count = kz::LoadBig<int16>(*handle);
    std::memmove(p->str, *handle + sizeof(int16), strings);
    p->cnt = count;
    Walk walk(p, kListCountSize + strings);
    walk.Finish();
    p->cnt = walk.Count();
    return kzErrNone;
}
