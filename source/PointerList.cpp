// The walkers ask for the handle's data without a report, because a test wants to be told what is wrong and an
// assertion tells it itself. They look in the tables of all handles, so that no address that isn't one is followed.
#include "PointerList.h"

#include "HandleCalls.h"
#include "KzAssert.h"

namespace kz {

const char* PointerListFault(const void* handle)
{
    const unsigned char* const data = handle == nullptr ? nullptr : GoodData(handle, kRangeAlways);
    if (data == nullptr) {
        return "the list has no handle in use";
    }
    const std::size_t block = HandleDataSize(data);
    if (block < sizeof(int32)) {
        return "the block of the list holds no count";
    }
    const int32 count = LoadNative<int32>(data);
    if (count < 0) {
        return "the count of the list is negative";
    }
    // An empty list may lack the padding, because it has no entry that would stand behind it.
    return count == 0 || PointerListSize(count) <= block
               ? nullptr
               : "the count of the list tells more entries than the block holds";
}

const char* LStrArrayFault(const void* handle)
{
    if (handle == nullptr) {
        return nullptr;
    }
    if (const char* const fault = PointerListFault(handle)) {
        return fault;
    }
    const unsigned char* const data = DataOf(handle);
    const int32 count = LoadNative<int32>(data);
    if (HandleDataSize(data) != PointerListSize(count)) {
        return "the block of the array does not end with its last entry";
    }
    for (int32 i = 0; i < count; ++i) {
        // An entry is read as bytes, as the block of a broken list need not be aligned.
        const void* const string = LoadVariable(data + PointerListSize(i));
        if (string != nullptr && !IsGoodHandle(string, kRangeAlways)) {
            return "an entry of the array is neither null nor a handle in use";
        }
    }
    return nullptr;
}

}  // namespace kz
