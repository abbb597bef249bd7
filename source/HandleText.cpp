#include "HandleText.h"

#include <limits>

#include "HandleCalls.h"

namespace kz {

HandleText QuietTextOf(const LStr* const* handle)
{
    const LStr* const string = handle == nullptr ? nullptr : *handle;
    if (string == nullptr) {
        return {};
    }
    // A disposed handle's word leads to the next free one, at an odd address.
    std::size_t size = 0;
    if (IsDSHandle(handle) != 0) {
        size = IsGoodHandle(handle, kRangeForQueries) ? SizeOf(handle) : 0;
    } else if (!IsFreeLink(reinterpret_cast<MasterWord>(const_cast<LStr*>(string)))) {
        size = std::numeric_limits<std::size_t>::max();
    }
    constexpr std::size_t kStart = offsetof(LStr, str);
    return size < kStart ? HandleText{} : HandleText{string->str, HeldCount(string, size, kStart, 1)};
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
