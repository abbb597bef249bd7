// A list is its block: the count, and as many entries; what else the block holds is room. Room comes and goes in steps
// of 16 bytes, which are two entries, and a block's size is part of what hosts see. A block that a host made in another
// size keeps that until it first grows or shrinks, which brings it to whole steps.
//
// Objects are neither owned nor looked at. Null is an object like any other but for HCompactObjList.
#include "HObjList.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PointerList.h"
#include "Report.h"

using kz::kEntriesStart;
using kz::kEntrySize;

namespace {

constexpr char kModule[] = "source/HObjList";
constexpr std::size_t kStep = 16;

constexpr std::size_t WholeSteps(std::size_t size)
{
    return size & ~(kStep - 1);
}

// A list in its handle, with the block's size and the entries that it really holds, looked up once for each call.
// Entries are copied as bytes, because a block whose size isn't a multiple of 8 needn't be aligned for pointers.
class List {
public:
    explicit List(HObjList handle) : mHandle(handle)
    {
        // The calls go on with no entries, which is what they answer for an empty list.
        if (handle == nullptr) {
            KZ_REPORT(kDbgFatal, 0x73A9E12B);
            return;
        }
        mBlock = DSGetHandleSize(handle);
        mCount = mBlock < kEntriesStart ? 0 : kz::HeldCount(*handle, mBlock, kEntriesStart, kEntrySize);
    }

    bool IsMissing() const { return mHandle == nullptr; }
    std::size_t Block() const { return mBlock; }
    int32 Count() const { return mCount; }
    std::size_t Bytes() const { return kz::EntryBytes(mCount); }  // of the entries

    // Where entry i starts, also the first one behind the list.
    unsigned char* At(int32 i) const
    {
        KZ_ASSERT(i >= 0 && i <= mCount + 1 && mBlock >= kz::PointerListSize(i));
        return reinterpret_cast<unsigned char*>(*mHandle) + kz::PointerListSize(i);
    }

    void* Get(int32 i) const
    {
        void* object;
        std::memcpy(&object, At(i), kEntrySize);
        return object;
    }

    void Put(int32 i, const void* object) const { std::memcpy(At(i), &object, kEntrySize); }

    void SetCount(int32 count)
    {
        KZ_ASSERT(count >= 0 && kz::PointerListSize(count) <= mBlock);
        mCount = count;
        std::memcpy(*mHandle, &count, sizeof count);
        KZ_ASSERT_SLOW(kz::PointerListFault(mHandle) == nullptr);
    }

    // The n entries from `from` on also stand at `to`. None is nothing, because a list without entries may lack the
    // place where they would start.
    void Move(int32 from, int32 to, int32 n) const
    {
        if (n > 0) {
            std::memmove(At(to), At(from), kz::EntryBytes(n));
        }
    }

    // The last index of an object, which may stand there more than once, or -1.
    int32 Search(const void* object) const
    {
        int32 i = mCount;
        while (--i >= 0 && Get(i) != object) {
        }
        return i;
    }

    KzErr Resize(std::size_t size)
    {
        const KzErr err = DSSetHSzClr(mHandle, size);
        if (err == kzErrNone) {
            mBlock = size;
        }
        return err;
    }

private:
    HObjList mHandle;
    std::size_t mBlock = 0;
    int32 mCount = 0;
};

// Removes entry i, pinned to the list, and returns its object, or null for an empty list. When the block can't shrink
// it just stays, because an entry that was asked to go is gone whatever the memory does.
void* Delete(List& list, int32 i)
{
    const int32 count = list.Count();
    if (count == 0) {
        return nullptr;
    }
    const int32 index = std::clamp(i, 0, count - 1);
    void* const object = list.Get(index);
    list.Move(index + 1, index, count - index - 1);
    list.Put(count - 1, nullptr);
    // A block with more than 12 bytes behind the entries that stay loses the rest of its last step, or all of that if
    // the block is whole steps. What it keeps holds these entries in either case.
    const std::size_t roomBefore = list.Bytes() + 12;
    list.SetCount(count - 1);
    const std::size_t block = list.Block();
    if (block > roomBefore) {
        const std::size_t steps = WholeSteps(block);
        list.Resize(steps != block ? steps : block - kStep);
    }
    return object;
}

// Puts the objects of one list to the front of another, which may be the same, in their order, and clears what that one
// has behind them. Returns how many there are. Requires that `to` has as many entries.
int32 Pack(const List& from, const List& to)
{
    int32 kept = 0;
    for (int32 i = 0; i < from.Count(); ++i) {
        if (void* const object = from.Get(i)) {
            KZ_ASSERT(kept < to.Count());
            to.Put(kept++, object);
        }
    }
    std::memset(to.At(kept), 0, to.Bytes() - kz::EntryBytes(kept));
    return kept;
}

// The same into a block that is smaller than the list's. The objects go into a new block, and the two blocks change
// handles when nothing can fail any more. A resize would have made a new block too, and could not have given back the
// entries that lay between the objects.
KzErr PackSmaller(HObjList handle, const List& list, std::size_t block)
{
    KZ_ASSERT(block < list.Block());
    HObjList made = nullptr;
    if (const KzErr err = DSSetHandleFromPtr(&made, *handle, block)) {
        return err;
    }
    List smaller(made);
    smaller.SetCount(Pack(list, smaller));
    DSSwapHandles(made, handle);
    return DSDisposeHandle(made);
}

}  // namespace

KzErr HObjListInsert(HObjList handle, void* object, int32 i)
{
    List list(handle);
    if (list.IsMissing()) {
        return kzErrArgument;
    }
    // From a size that isn't whole steps the block grows by less than a step, which still holds the new entry.
    const int32 count = list.Count();
    if (list.Block() < kz::PointerListSize(count + 1)) {
        if (const KzErr err = list.Resize(WholeSteps(list.Block() + kStep))) {
            return err;
        }
    }
    const int32 index = std::clamp(i, 0, count);
    list.Move(index, index + 1, count - index);
    list.Put(index, object);
    list.SetCount(count + 1);
    return kzErrNone;
}

void* HObjListDelete(HObjList handle, int32 i)
{
    List list(handle);
    return Delete(list, i);
}

int32 HObjListSearch(HObjList handle, const void* object)
{
    return List(handle).Search(object);
}

KzBool HObjListSearchDelete(HObjList handle, const void* object)
{
    List list(handle);
    const int32 i = list.Search(object);
    if (i < 0) {
        return 0;
    }
    Delete(list, i);
    return 1;
}

KzBool HObjListBringToFront(HObjList handle, const void* object)
{
    const List list(handle);
    const int32 i = list.Search(object);
    if (i < 0 && !list.IsMissing()) {
        KZ_REPORT(kDbgWarning, 0xC2580F97) << "HObjListBringToFront: object not found!!!";
    }
    if (i <= 0) {
        return 0;  // not there, or in front already
    }
    list.Move(0, 1, i);
    list.Put(0, object);
    return 1;
}

KzErr HObjListSwap(HObjList handle, int32 a, int32 b)
{
    const List list(handle);
    if (list.IsMissing()) {
        return kzErrArgument;
    }
    // An index is not pinned here as elsewhere, because the wrong two would change places.
    if (std::min(a, b) < 0 || std::max(a, b) >= list.Count()) {
        KZ_REPORT(kDbgWarning, 0x5D0E47B3) << "HObjListSwap: pos out of range";
        return kzErrArgument;
    }
    void* const object = list.Get(a);
    list.Put(a, list.Get(b));
    list.Put(b, object);
    return kzErrNone;
}

KzErr HCompactObjList(HObjList handle)
{
    List list(handle);
    if (list.IsMissing()) {
        return kzErrArgument;
    }
    int32 kept = 0;
    for (int32 i = 0; i < list.Count(); ++i) {
        kept += list.Get(i) != nullptr;
    }
    // Count and entries, rounded up to whole steps: 11 bytes more do that, because these sizes are multiples of 8.
    const std::size_t block = WholeSteps(kz::EntryBytes(kept) + 19);
    if (list.Block() > block) {
        return PackSmaller(handle, list, block);
    }
    if (list.Count() != 0) {
        list.SetCount(Pack(list, list));
    }
    return kzErrNone;
}
