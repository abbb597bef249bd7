// A CPStrList is the owner of one CPStr handle, and no handle is the empty list. What a list does with its strings is
// that of the calls on the handle (StringCPStr.h). This module comes after the resource manager because a list can take
// the handle of a resource, and after the typed streams because it flattens into them.
//
// The handle of a resource holds what a file says, so nobody relies on its count: each call walks the strings that the
// block really holds.
#include "CPStrList.h"

#include <algorithm>
#include <cstring>

#include "BinDataReader.h"
#include "BinDataWriter.h"
#include "ByteOrder.h"
#include "HandleCalls.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "ResourceManager.h"
#include "StringPStr.h"

using kz::kListCountSize;
using Walk = kz::ShortStringWalk;

namespace {

// Whether the first n strings of both lists are there and equal. No more than n are looked at, so that a difference
// behind them counts for nothing.
bool AreEqual(Walk left, Walk right, int32 n, KzBool (*equal)(const unsigned char*, const unsigned char*))
{
    for (int32 i = 0; i < n; ++i) {
        if (!left.Next() || !right.Next() || !equal(left.Record(), right.Record())) {
            return false;
        }
    }
    return true;
}

// The counts are compared first, because strings need no comparison where those differ.
bool AreEqual(CPStr** left, CPStr** right, KzBool (*equal)(const unsigned char*, const unsigned char*))
{
    Walk leftEnd = Walk::OfHandle(left);
    Walk rightEnd = Walk::OfHandle(right);
    const Walk leftStart = leftEnd.Finish();
    const Walk rightStart = rightEnd.Finish();
    return leftEnd.Count() == rightEnd.Count() && AreEqual(leftStart, rightStart, leftEnd.Count(), equal);
}

int32 CompareLists(CPStr** left, CPStr** right, PStrCompareProc compare)
{
    Walk a = Walk::OfHandle(left);
    Walk b = Walk::OfHandle(right);
    while (a.Next() && b.Next()) {
        if (const int32 order = compare(a.Record(), b.Record())) {
            return order;
        }
    }
    // One of the walks is at its end; the other goes on for its count only.
    a.Finish();
    b.Finish();
    return a.Count() - b.Count();
}

}  // namespace

CPStrList::CPStrList(const CPStr* list)
{
    Copy(list);
}

CPStrList::CPStrList(unsigned char** resource)
{
    // Without a detachment the handle is still the file's, which would dispose it a second time.
    if (RDetach(resource) != kzErrNone) {
        return;
    }
    mHandle = reinterpret_cast<CPStr**>(resource);
    // A resource that lacks its count is an empty list; the count would be read behind the block.
    if (DSGetHandleSize(mHandle) < kListCountSize) {
        DSDisposeHandleAndNull(&mHandle);
        return;
    }
    (*mHandle)->cnt = RevBL((*mHandle)->cnt);
}

CPStrList::~CPStrList()
{
    DSDisposeHandleAndNull(&mHandle);
}

KzErr CPStrList::ForceAllocate()
{
    if (mHandle == nullptr) {
        mHandle = reinterpret_cast<CPStr**>(DSNewHClr(kListCountSize));
    }
    return mHandle == nullptr ? kz::FailedMake() : kzErrNone;
}

int32 CPStrList::Count() const
{
    Walk walk = Walk::OfHandle(mHandle);
    walk.Finish();
    return walk.Count();
}

KzErr CPStrList::Insert(const unsigned char* string, int32 i)
{
    if (string == nullptr) {
        return kzErrArgument;
    }
    if (const KzErr err = ForceAllocate()) {
        return err;
    }
    return CPStrInsert(mHandle, string, i < 0 ? Count() : i);
}

KzErr CPStrList::Delete(int32 i)
{
    return mHandle == nullptr ? kzErrArgument : CPStrRemove(mHandle, i);
}

KzErr CPStrList::Clear()
{
    return mHandle == nullptr ? kzErrNone : CPStrClear(mHandle);
}

unsigned char* CPStrList::operator[](int32 i) const
{
    return mHandle == nullptr ? nullptr : CPStrIndex(mHandle, i);
}

KzErr CPStrList::Copy(const CPStr* list)
{
    if (list == nullptr) {
        return Clear();
    }
    // A copy of the list's own block changes nothing, not even the room behind the strings.
    if (mHandle != nullptr && *mHandle == list) {
        return kzErrNone;
    }
    return DSSetHandleFromPtr(&mHandle, list, static_cast<unsigned long>(CPStrSize(list)));
}

KzErr CPStrList::Copy(const CPStrList& other)
{
    if (&other == this) {
        return kzErrNone;
    }
    Walk walk = Walk::OfHandle(other.mHandle);
    walk.Finish();
    if (walk.Count() == 0) {
        return Clear();
    }
    // What the other block has behind its strings stays there, and a count that told more becomes true.
    const KzErr err = DSSetHandleFromPtr(&mHandle, *other.mHandle, walk.End());
    if (err == kzErrNone) {
        (*mHandle)->cnt = walk.Count();
        KZ_ASSERT_SLOW(kz::CPStrFault(mHandle) == nullptr);
    }
    return err;
}

bool CPStrList::Equal(const CPStrList& other) const
{
    return AreEqual(mHandle, other.mHandle, &PStrEqual);
}

bool CPStrList::EqualNC(const CPStrList& other) const
{
    return AreEqual(mHandle, other.mHandle, &PStrCaseEqual);
}

bool CPStrList::EqualFS(const CPStrList& other) const
{
    return AreEqual(mHandle, other.mHandle, &FileNameEqual);
}

bool CPStrList::EqualNEltsFS(const CPStrList& other, int32 n) const
{
    return AreEqual(Walk::OfHandle(mHandle), Walk::OfHandle(other.mHandle), n, &FileNameEqual);
}

int32 CPStrList::Compare(const CPStrList& other) const
{
    return CompareLists(mHandle, other.mHandle, &PStrCmp);
}

int32 CPStrList::CompareNC(const CPStrList& other) const
{
    return CompareLists(mHandle, other.mHandle, &PStrCaseCmp);
}

int32 CPStrList::CompareFS(const CPStrList& other) const
{
    return CompareLists(mHandle, other.mHandle, &PStrCaseCmp);
}

KzErr CPStrList::Flatten(BinDataWriter* writer) const
{
    writer->WriteI32(Count());
    Walk walk = Walk::OfHandle(mHandle);
    while (walk.Next()) {
        writer->WritePStr(walk.Record(), 1);
    }
    return writer->GetError();
}

// Appends to a list of *used bytes, and brings that up to date. The block grows by doubling, so that a list of n
// strings is moved log n times; where there is no memory for that much, by what the string needs.
KzErr CPStrList::Append(const unsigned char* string, unsigned long* used)
{
    KZ_ASSERT(string != nullptr && used != nullptr && *used >= kListCountSize);
    const unsigned long size = 1ul + string[0];
    const unsigned long needed = *used + size;
    if (needed > kz::kMaxListSize) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = ForceAllocate()) {
        return err;
    }
    if (DSGetHandleSize(mHandle) < needed) {
        const unsigned long doubled = std::max(needed, 2 * *used);
        KzErr err = DSSetHandleSize(mHandle, doubled);
        if (err != kzErrNone && doubled != needed) {
            err = DSSetHandleSize(mHandle, needed);
        }
        if (err != kzErrNone) {
            return err;
        }
    }
    KZ_ASSERT(needed <= DSGetHandleSize(mHandle) && (*mHandle)->cnt >= 0);
    std::memcpy(reinterpret_cast<unsigned char*>(*mHandle) + *used, string, size);
    ++(*mHandle)->cnt;
    *used = needed;
    return kzErrNone;
}

KzErr CPStrList::UnFlatten(BinDataReader* reader)
{
    if (const KzErr err = Clear()) {
        return err;
    }
    const int32 count = reader->ReadI32();
    KzErr err = reader->GetError();
    // The count is only the limit of the loop, and nothing is allocated by it: a liar's count ends with the first
    // string that isn't there. A negative one is no string.
    unsigned long used = kListCountSize;
    for (int32 i = 0; i < count && err == kzErrNone; ++i) {
        unsigned char string[256];
        reader->ReadPStr(string, 1);
        err = reader->GetError();
        if (err == kzErrNone) {
            err = Append(string, &used);
        }
    }
    if (mHandle != nullptr && DSGetHandleSize(mHandle) != used) {
        DSSetHandleSize(mHandle, used);  // where this fails the list is whole, in a block with spare room
    }
    return err;
}
