// An array owns the handles in its entries, so an array that loses entries has to dispose strings, and a string that is
// disposed can't come back. Every call therefore gets all the memory that it needs before the first string goes.
//
// A string handle in an entry may be one that was disposed elsewhere. Its master may serve another handle by then, also
// one that the running call has made; LStrArrayToCPStrHandle tells how it keeps them apart.
#include "StringLStrArray.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "HandleText.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "MemoryManager.h"
#include "PackedList.h"
#include "PointerList.h"
#include "Report.h"
#include "StringLStr.h"

namespace {

constexpr char kModule[] = "source/StringLStrArray";

// Disposes n strings, the last first. Null ones, which are empty strings, are nothing to dispose.
void DisposeStrings(LStr*** strings, int32 n)
{
    while (n > 0) {
        DSDisposeHandle(strings[--n]);
    }
}

// Makes the array shorter. The entries that go are kept aside until the block is resized, because their strings must
// survive its failure. The room for them is a pointer block and not a handle: one of the strings may have been
// disposed, and its master may be the next one to be taken, so that disposing the string would dispose the room.
KzErr CutArray(_LStrArray*** array, int32 count, int32 n)
{
    KZ_ASSERT(0 < n && n < count && count <= kz::EntriesOf(*array));
    const std::size_t cut = kz::EntryBytes(count - n);
    auto* const aside = static_cast<LStr***>(DSNewPtr(cut));
    if (aside == nullptr) {
        return kzErrMemoryFull;
    }
    std::memcpy(aside, (**array)->str + n, cut);
    const KzErr err = DSSetHSzOrNewHClr(array, kz::PointerListSize(n));
    if (err == kzErrNone) {
        DisposeStrings(aside, count - n);
        (**array)->cnt = n;
    }
    DSDisposePtr(aside);
    return err;
}

// What a PStr can have of a text.
std::size_t ShortCount(const kz::HandleText& text)
{
    return std::min(static_cast<std::size_t>(text.count), kz::kMostInPStr);
}

}  // namespace

KzErr ReallocLStrArrayHandle(_LStrArray*** array, int32 n)
{
    if (array == nullptr || n < 0) {
        return kzErrArgument;
    }
    const int32 count = kz::EntriesOf(*array);
    if (n == 0) {
        if (count != 0) {
            DisposeStrings((**array)->str, count);
        }
        return DSDisposeHandleAndNull(array);
    }
    if (n < count) {
        return CutArray(array, count, n);
    }
    if (const KzErr err = DSSetHSzOrNewHClr(array, kz::PointerListSize(n))) {
        return err;
    }
    // Entries above the old count may have been in the block without being part of the array.
    std::memset((**array)->str + count, 0, kz::EntryBytes(n - count));
    (**array)->cnt = n;
    KZ_ASSERT_SLOW(kz::PointerListFault(*array) == nullptr);
    return kzErrNone;
}

// The strings are looked at twice: for the size of the list, and, when that is there, for their bytes. A bad string is
// told of by the first pass only, and is empty in both.
KzErr LStrArrayToCPStrHandle(_LStrArray** array, int32 n, CPStr*** list)
{
    if (list == nullptr || n < 0) {
        return kzErrArgument;
    }
    if (array == nullptr || n == 0) {
        return DSDisposeHandleAndNull(list);
    }
    if (n > kz::EntriesOf(array)) {
        return kzErrArgument;
    }
    LStr** const* const strings = (*array)->str;
    // The handle of a disposed string may have become the list's own, also when that is made between the two passes.
    // Its text would be that of the list while that is written, which no pass has made room for.
    const auto isList = [list](LStr** string) { return static_cast<void*>(string) == *list; };
    std::size_t size = kz::kListCountSize;
    for (int32 i = 0; i < n; ++i) {
        size += 1 + (isList(strings[i]) ? 0u : ShortCount(kz::TextOf(strings[i])));
    }
    if (size > kz::kMaxListSize) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = DSSetHandleSizeOrNewHandle(list, size)) {
        return err;
    }
    (**list)->cnt = n;
    unsigned char* out = (**list)->str;
    for (int32 i = 0; i < n; ++i) {
        const kz::HandleText text = isList(strings[i]) ? kz::HandleText{} : kz::QuietTextOf(strings[i]);
        const std::size_t count = ShortCount(text);
        *out++ = static_cast<unsigned char>(count);
        out = std::copy_n(text.bytes, count, out);
    }
    KZ_ASSERT(out == reinterpret_cast<unsigned char*>(**list) + size);
    return kzErrNone;
}

KzErr LStrArrayToCPStrHandle(_LStrArray** array, CPStr*** list)
{
    return LStrArrayToCPStrHandle(array, kz::EntriesOf(array), list);
}

KzErr CPStrPtrToLStrArray(const CPStr* list, int32 n, _LStrArray*** array)
{
    if (array == nullptr) {
        KZ_REPORT(kDbgWarning, 0x1F83A5EC) << "Null not allowed";
        return kzErrGeneric;
    }
    if (n < 0 || n > kz::CountOf(list)) {
        return kzErrArgument;
    }
    // A whole new array, which takes the place of the old one when it is complete. Null entries are its empty strings,
    // which LStrFromPtr makes of a count of 0.
    _LStrArray** made = nullptr;
    KzErr err = ReallocLStrArrayHandle(&made, n);
    const unsigned char* string = n == 0 ? nullptr : list->str;
    for (int32 i = 0; i < n && err == kzErrNone; ++i) {
        err = LStrFromPtr(&(*made)->str[i], string[0], string + 1);
        string += 1u + string[0];
    }
    // Whichever of the two is not wanted goes, with the strings in it.
    ReallocLStrArrayHandle(err == kzErrNone ? array : &made, 0);
    if (err == kzErrNone) {
        *array = made;
    }
    return err;
}

KzErr CPStrPtrToLStrArray(const CPStr* list, _LStrArray*** array)
{
    return CPStrPtrToLStrArray(list, kz::CountOf(list), array);
}
