#include "HObjList.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "HandleText.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/HObjList";
constexpr std::size_t kEntries = offsetof(ObjList, obj);
constexpr std::size_t kEntry = sizeof(void*);
constexpr std::size_t kStep = 16;

constexpr std::size_t WholeSteps(std::size_t size)
{
    return size & ~(kStep - 1);
}

// A list in its handle. Entries are copied as bytes: a block whose size isn't a multiple of 8 needn't be aligned.
class List {
public:
    explicit List(HObjList handle) : mHandle(handle)
    {
        if (handle == nullptr) {
            KZ_REPORT(kDbgFatal, 0x73A9E12B);
            return;
        }
        mBlock = DSGetHandleSize(handle);
        mCount = mBlock < kEntries ? 0 : kz::HeldCount(*handle, mBlock, kEntries, kEntry);
    }

    bool IsMissing() const { return mHandle == nullptr; }
    std::size_t Block() const { return mBlock; }
    int32 Count() const { return mCount; }
    std::size_t Bytes() const { return static_cast<std::size_t>(mCount) * kEntry; }  // of the entries

    unsigned char* At(int32 i) const
    {
        return reinterpret_cast<unsigned char*>(*mHandle) + kEntries + static_cast<std::size_t>(i) * kEntry;
    }

    void* Get(int32 i) const
    {
        void* object;
        std::memcpy(&object, At(i), kEntry);
        return object;
    }

    void Put(int32 i, const void* object) const { std::memcpy(At(i), &object, kEntry); }

    void SetCount(int32 count)
    {
        mCount = count;
        std::memcpy(*mHandle, &count, sizeof count);
    }

    // The n entries from `from` on also stand at `to`.
    void Move(int32 from, int32 to, int32 n) const
    {
        if (n > 0) {
            std::memmove(At(to), At(from), static_cast<std::size_t>(n) * kEntry);
        }
    }

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
    const std::size_t roomBefore = list.Bytes() + 12;
    list.SetCount(count - 1);
    const std::size_t block = list.Block();
    if (block > roomBefore) {
        const std::size_t steps = WholeSteps(block);
        list.Resize(steps != block ? steps : block - kStep);
    }
    return object;
}

// Moves the objects to the front of the list, in their order, and clears the entries behind them. Returns how many
// there are.
int32 Compact(const List& list)
{
    int32 kept = 0;
    for (int32 i = 0; i < list.Count(); ++i) {
        if (void* const object = list.Get(i)) {
            list.Put(kept++, object);
        }
    }
    std::memset(list.At(kept), 0, list.Bytes() - static_cast<std::size_t>(kept) * kEntry);
    return kept;
}

// The same in a block that gets smaller, with the entries kept aside until it is.
KzErr CompactAndShrink(List& list, int32 kept, std::size_t block)
{
    const std::size_t bytes = list.Bytes();
    void* const aside = DSNewPtr(bytes);
    if (aside == nullptr) {
        return kzErrMemoryFull;
    }
    std::memcpy(aside, list.At(0), bytes);
    Compact(list);
    const KzErr err = list.Resize(block);
    if (err == kzErrNone) {
        list.SetCount(kept);
    } else {
        std::memcpy(list.At(0), aside, bytes);
    }
    DSDisposePtr(aside);
    return err;
}

}  // namespace

KzErr HObjListInsert(HObjList handle, void* object, int32 i)
{
    List list(handle);
    if (list.IsMissing()) {
        return kzErrArgument;
    }
    const int32 count = list.Count();
    if (list.Block() < list.Bytes() + kEntries + kEntry) {
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
        return 0;
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
    const std::size_t block = WholeSteps(static_cast<std::size_t>(kept) * kEntry + 19);
    if (list.Block() > block) {
        return CompactAndShrink(list, kept, block);
    }
    if (list.Count() != 0) {
        list.SetCount(Compact(list));
    }
    return kzErrNone;
}
