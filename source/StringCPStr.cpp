// A call that is given a handle walks the strings that the block really holds, and answers for those; a call that is
// given a pointer has no block to ask, and relies on the count. All that puts strings into a list or takes them out
// goes through kz::ChangeRecord, which leaves the list as it was when memory is full.
//
// Each call walks from the front of the list, because its block, whose layout files share, has no place for an index.
#include "StringCPStr.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ByteOrder.h"
#include "HandleText.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "Report.h"
#include "SortSearch.h"
#include "StringPStr.h"

using kz::CountOf;
using kz::Fit;
using kz::kListCountSize;
using kz::kMaxListSize;
using Walk = kz::ShortStringWalk;

namespace {

constexpr char kModule[] = "source/StringCPStr";

unsigned char* BytesOf(CPStr* list)
{
    return reinterpret_cast<unsigned char*>(list);
}

// Whether there is no handle, which is reported.
bool IsMissing(CPStr** handle)
{
    if (handle != nullptr) {
        return false;
    }
    KZ_REPORT(kDbgFatal, 0xB7E10C35);
    return true;
}

// Puts p in the place of the bytes from `at` to `end` of a list over which `whole` has gone to its end, or nothing if p
// is null. The list has `count` strings then.
KzErr Put(CPStr** handle, const Walk& whole, std::size_t at, std::size_t end, const unsigned char* p, int32 count,
          Fit fit)
{
    const kz::RecordChange change{.block = whole.Block(),
                                  .used = whole.End(),
                                  .at = at,
                                  .end = end,
                                  .bytes = p,
                                  .size = p == nullptr ? 0 : 1u + p[0],
                                  .count = count};
    const KzErr err = kz::ChangeRecord(handle, change, fit);
    KZ_ASSERT_SLOW(err != kzErrNone || kz::CPStrFault(handle) == nullptr);
    return err;
}

// ---- Sorting ----

// The memory that a sort needs, in one piece, so that it is there as a whole or not at all: the strings' pointers,
// copies of the parallel entries, the order of the indices, and a copy of the list. The pointers are into the copy,
// because the sorted strings are written over the list itself. The list is one over which `end` has gone to its end.
class SortRoom {
public:
    SortRoom(const CPStr* list, const Walk& end) : mCount(static_cast<std::size_t>(end.Count()))
    {
        KZ_ASSERT(list != nullptr && mCount >= 2);
        const std::size_t entries = mCount * sizeof(void*);
        auto* const block = static_cast<unsigned char*>(DSNewPtr(2 * entries + mCount * sizeof(int32) + end.End()));
        if (block == nullptr) {
            return;
        }
        strings = reinterpret_cast<const unsigned char**>(block);
        // Whatever needs most alignment comes first, so that no part needs padding in front.
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

// Sorts indices in place of strings, because where an entry came from has to be known when the strings are in order.
// The entries are copied as bytes: a handle's block need not be aligned for pointers.
void SortWithParallel(SortRoom& room, int32 count, UHandle parallel)
{
    constexpr std::size_t kEntry = sizeof(void*);
    KZ_ASSERT(DSGetHandleSize(parallel) / kEntry >= static_cast<std::size_t>(count));
    QSortEx(room.order, count, sizeof(int32), &CompareByIndex, room.strings);
    std::memcpy(room.parallel, *parallel, static_cast<std::size_t>(count) * kEntry);
    for (int32 i = 0; i < count; ++i) {
        KZ_ASSERT(room.order[i] >= 0 && room.order[i] < count);
        const auto from = static_cast<std::size_t>(room.order[i]);
        std::memcpy(*parallel + static_cast<std::size_t>(i) * kEntry, room.parallel + from * kEntry, kEntry);
    }
}

}  // namespace

int32 CPStrSize(const CPStr* p)
{
    // The result can't tell a size beyond its type.
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
    // Behind string i - 1, or where the first one starts, or would start, if i is not above 0.
    const std::size_t place = walk.Finish().End();
    return Put(handle, walk, place, place, p, walk.Count() + 1, exactFit ? Fit::kExactBlock : Fit::kKeepSpareRoom);
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
    return Put(handle, walk, old.At(), old.End(), nullptr, walk.Count() - 1, Fit::kExactBlock);
}

KzErr CPStrReplace(CPStr** handle, const unsigned char* p, int32 i)
{
    if (IsMissing(handle) || p == nullptr) {
        return kzErrArgument;
    }
    // A copy, because the old string moves before the new one is read, and both may be of this list.
    unsigned char string[256];
    std::memcpy(string, p, 1u + p[0]);
    Walk walk = Walk::OfHandle(handle);
    walk.Seek(i);
    const Walk old = walk.Finish();
    return Put(handle, walk, old.At(), old.End(), string, walk.Count(), Fit::kExactBlock);
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
    // An empty string is its count byte of 0.
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
    // Neither walk goes past the shorter list, so that a null one, which has no strings, is never read.
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
    // Strings that have no entry could not take one along; entries that have no string stay where they are.
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
    // The same strings in another order take the same room, so the block need not be asked for.
    unsigned char* out = (*handle)->str;
    for (int32 i = 0; i < count; ++i) {
        PStrCpy(out, room.strings[parallel == nullptr ? i : room.order[i]]);
        out += 1u + out[0];
    }
    KZ_ASSERT(out == BytesOf(*handle) + walk.End());
    return kzErrNone;
}

KzErr StrPoundToCPStr(UHandle handle, CPStr* p)
{
    if (handle == nullptr || p == nullptr) {
        return kzErrArgument;
    }
    // Without a whole count there is no list, whatever byte is there.
    const std::size_t size = DSGetHandleSize(handle);
    if (size < sizeof(int16)) {
        p->cnt = 0;
        return kzErrNone;
    }
    const std::size_t strings = size - sizeof(int16);
    const int16 count = kz::LoadBig<int16>(*handle);
    std::memmove(p->str, *handle + sizeof(int16), strings);
    p->cnt = count;
    // Callers rely on the count of a list in their own block, where nothing tells its end, so a liar's count ends here.
    Walk walk(p, kListCountSize + strings);
    walk.Finish();
    KZ_ASSERT(walk.End() <= kListCountSize + strings);
    p->cnt = walk.Count();
    return kzErrNone;
}
