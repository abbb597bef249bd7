#include "StringLStrArray.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

#include "HandleText.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "Report.h"
#include "StringLStr.h"

namespace {

constexpr char kModule[] = "source/StringLStrArray";
constexpr std::size_t kEntries = offsetof(_LStrArray, str);
constexpr std::size_t kEntry = sizeof(LStr**);
constexpr int32 kMaxPStr = 255;

std::size_t BlockSize(int32 n)
{
    return kEntries + static_cast<std::size_t>(n) * kEntry;
}

// The entries that the count tells and the block holds.
int32 CountOf(_LStrArray** array)
{
    return kz::HeldCount(array, kEntries, kEntry);
}

// Disposes strings from the last down.
void DisposeStrings(LStr*** strings, int32 n)
{
    while (n > 0) {
        DSDisposeHandle(strings[--n]);
    }
}

// Fewer entries. The strings that go are kept aside until the block is resized, so that they survive its failure.
KzErr CutArray(_LStrArray*** array, int32 count, int32 n)
{
    const std::size_t cut = static_cast<std::size_t>(count - n) * kEntry;
    auto* const aside = static_cast<LStr***>(DSNewPtr(cut));
    if (aside == nullptr) {
        return kzErrMemoryFull;
    }
    std::memcpy(aside, (**array)->str + n, cut);
    const KzErr err = DSSetHSzOrNewHClr(array, BlockSize(n));
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
    return static_cast<std::size_t>(std::min(text.count, kMaxPStr));
}

}  // namespace

KzErr ReallocLStrArrayHandle(_LStrArray*** array, int32 n)
{
    if (array == nullptr || n < 0) {
        return kzErrArgument;
    }
    const int32 count = CountOf(*array);
    if (n == 0) {
        if (count != 0) {
            DisposeStrings((**array)->str, count);
        }
        return DSDisposeHandleAndNull(array);
    }
    if (n < count) {
        return CutArray(array, count, n);
    }
    if (const KzErr err = DSSetHSzOrNewHClr(array, BlockSize(n))) {
        return err;
    }
    // Entries above the old count may have been in the block without being part of the array.
    std::memset((**array)->str + count, 0, static_cast<std::size_t>(n - count) * kEntry);
    (**array)->cnt = n;
    return kzErrNone;
}

KzErr LStrArrayToCPStrHandle(_LStrArray** array, int32 n, CPStr*** list)
{
    if (list == nullptr || n < 0) {
        return kzErrArgument;
    }
    if (array == nullptr || n == 0) {
        return DSDisposeHandleAndNull(list);
    }
    if (n > CountOf(array)) {
        return kzErrArgument;
    }
    LStr** const* const strings = (*array)->str;
    // The handle of a disposed string may have become the list's own, also when that is made between the two passes.
    const auto isList = [list](LStr** string) { return static_cast<void*>(string) == *list; };
    std::size_t size = sizeof(int32);
    for (int32 i = 0; i < n; ++i) {
        size += 1 + (isList(strings[i]) ? 0u : ShortCount(kz::TextOf(strings[i])));
    }
    if (size > static_cast<std::size_t>(std::numeric_limits<int32>::max())) {
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
    return kzErrNone;
}

KzErr LStrArrayToCPStrHandle(_LStrArray** array, CPStr*** list)
{
    return LStrArrayToCPStrHandle(array, CountOf(array), list);
}

KzErr CPStrPtrToLStrArray(const CPStr* list, int32 n, _LStrArray*** array)
{
    if (array == nullptr) {
        KZ_REPORT(kDbgWarning, 0x1F83A5EC) << "Null not allowed";
        return kzErrGeneric;
    }
    if (n < 0 || n > (list == nullptr ? 0 : std::max(list->cnt, 0))) {
        return kzErrArgument;
    }
    _LStrArray** made = nullptr;
    KzErr err = ReallocLStrArrayHandle(&made, n);
    const unsigned char* string = n == 0 ? nullptr : list->str;
    for (int32 i = 0; i < n && err == kzErrNone; ++i) {
        err = LStrFromPtr(&(*made)->str[i], string[0], string + 1);
        string += 1u + string[0];
    }
    ReallocLStrArrayHandle(err == kzErrNone ? array : &made, 0);
    if (err == kzErrNone) {
        *array = made;
    }
    return err;
}

KzErr CPStrPtrToLStrArray(const CPStr* list, _LStrArray*** array)
{
    return CPStrPtrToLStrArray(list, list == nullptr ? 0 : std::max(list->cnt, 0), array);
}
