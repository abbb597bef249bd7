#include "HandleText.h"

#include <limits>

#include "HandleCalls.h"

namespace kz {

HandleText QuietTextOf(const LStr* const* handle)
{
    constexpr std::size_t kStart = offsetof(LStr, str);
    if (handle == nullptr) {
        return {};
    }
    // The range is always looked at: an address that is no handle's has no header to ask for a size.
    const unsigned char* string = GoodData(handle, kRangeAlways);
    std::size_t size = std::numeric_limits<std::size_t>::max();
    if (string != nullptr) {
        size = HandleDataSize(string);
    } else if (MemZoneRec* const zone = MemZone(); zone == nullptr || !IsInMasterBlock(zone, handle)) {
        string = reinterpret_cast<const unsigned char*>(*handle);
    }
    if (string == nullptr || size < kStart) {
        return {};
    }
    return {string + kStart, HeldCount(string, size, kStart, 1)};
}

HandleText TextOf(const LStr* const* handle)
{
    const HandleText text = QuietTextOf(handle);
    if (text.bytes == nullptr && handle != nullptr && *handle != nullptr) {
        DSGetHandleSize(handle);  // reports what is wrong, if anything is
    }
    return text;
}

}  // namespace kz
