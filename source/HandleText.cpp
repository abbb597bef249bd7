// An `LStr**` that comes from a caller is one of three things, which are told apart before its master pointer is
// followed: a live handle; a dead one, whose place in a master block is still readable but leads to no string; or the
// address of some pointer of the host's, which has no size that anyone knows.
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
    // Without a block of ours there is no size to hold the count to, so that it is relied on.
    std::size_t size = std::numeric_limits<std::size_t>::max();
    if (string != nullptr) {
        size = HandleDataSize(string);
    } else if (MemZoneRec* const zone = MemZone(); zone == nullptr || !IsInMasterBlock(zone, handle)) {
        // What lies in a master block is not followed when its handle is dead or damaged, because a free place holds a
        // link instead of an address. Anything else is a pointer of the host's.
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
        // The size is not wanted: the call reports a handle that is bad, and nothing for a block that is too small.
        DSGetHandleSize(handle);
    }
    return text;
}

}  // namespace kz
