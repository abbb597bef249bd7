// As with the lists of short strings, a call that is given a handle answers for the strings that the block really
// holds, and a call that is given a pointer relies on the counts. All that puts strings into a list or takes them out
// goes through kz::ChangeRecord, which leaves the list as it was when memory is full.
//
// A string's record starts at a multiple of 4, so that hosts can read its count as a number. That is why each record is
// filled up; the bytes that fill it are zeros, because lists are stored and compared as they stand.
#include "StringCLStr.h"

#include <algorithm>
#include <cstddef>

#include "ByteOrder.h"
#include "HandleText.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "Report.h"
#include "StringLStr.h"

using kz::Fit;
using kz::kListCountSize;
using kz::kMaxListSize;

using Rule = kz::LongStringRule;
using Walk = kz::LongStringWalk;

namespace {

constexpr char kModule[] = "source/StringCLStr";

unsigned char* BytesOf(CLStr* list)
{
    return reinterpret_cast<unsigned char*>(list);
}

// The change of a list over which `whole` has gone to its end: the bytes from `at` to `end` go.
kz::RecordChange ChangeOf(const Walk& whole, std::size_t at, std::size_t end, int32 count)
{
    return {.block = whole.Block(), .used = whole.End(), .at = at, .end = end, .count = count};
}

KzErr Apply(CLStr** handle, const kz::RecordChange& change, Fit fit)
{
    const KzErr err = kz::ChangeRecord(handle, change, fit);
    KZ_ASSERT_SLOW(err != kzErrNone || kz::PackedFault<Rule>(handle) == nullptr);
    return err;
}

// Inserts s at an offset of a list over which `whole` has gone to its end.
KzErr InsertAt(CLStr** handle, const Walk& whole, std::size_t at, const LStr* s, KzBool exactFit)
{
    KZ_ASSERT(handle != nullptr && s != nullptr);
    // A negative count stands for no text; in a list it would end every walk, so a 0 goes in for it.
    static constexpr int32 kNoText = 0;
    const int32 count = kz::CountOf(s);
    kz::RecordChange change = ChangeOf(whole, at, at, whole.Count() + 1);
    change.bytes = count == 0 ? static_cast<const void*>(&kNoText) : s;
    change.size = sizeof(int32) + static_cast<std::size_t>(count);
    change.padding = Rule::Size(count) - change.size;
    return Apply(handle, change, exactFit ? Fit::kExactBlock : Fit::kKeepSpareRoom);
}

}  // namespace

int32 CLStrSize(const CLStr* p)
{
    // The result can't tell a size beyond its type.
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
    // Behind string i - 1, or where the first one starts, or would start, if i is not above 0.
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
    return Apply(handle, ChangeOf(walk, old.At(), old.End(), walk.Count() - 1), Fit::kExactBlock);
}

KzErr CLStrInsertSort(CLStr** handle, const LStr* s, KzBool allowDuplicates, int32* outIndex, KzBool* outInserted,
                      KzBool exactFit)
{
    if (handle == nullptr || s == nullptr) {
        KZ_REPORT(kDbgFatal, 0x9B31F84D) << "Invalid dest buffer or insert buffer passed to CLStrInsertSort";
        return kzErrArgument;
    }
    // `below` stays behind the last string that is below s, where s belongs, and counts the strings up to there. The
    // walk itself has to know the end of the list. A list that isn't sorted is not harmed: s goes somewhere in it.
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
    KZ_ASSERT(below.End() <= walk.End());
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

// Each string's count is turned where it stands, and the walk ends at the first one that leads out of the block. A liar
// could otherwise have counts turned, and later calls led, anywhere behind it. The strings before that one are whole
// and in native order, and become the list.
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
            size = Rule::WholeSize(length, block - at);
            if (size == 0) {
                break;
            }
            kz::StoreNative(bytes + at, length);
        }
        (*handle)->cnt = whole;
        KZ_ASSERT_SLOW(kz::PackedFault<Rule>(handle) == nullptr);
    }
    // Bytes behind the last string are a fault too, because a stored list has exactly the size of its strings.
    if (whole != count || at != block) {
        KZ_REPORT(kDbgFatal, 0x84C7216E);
        return kzErrCorrupt;
    }
    return kzErrNone;
}
