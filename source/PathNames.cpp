// The elements are written from the end, because their number is known and the way leads from the last to the first.
#include "PathNames.h"

namespace kz {

PathNames::PathNames(const PathItemElement* last, int32 count) : mCount(count), mAbove(last)
{
    KZ_ASSERT(count >= 0 && (last != nullptr || count == 0));
    if (count > kInPlace) {
        mMore = std::make_unique<const PathItemElement*[]>(static_cast<size_t>(count));
        mElements = mMore.get();
    }
    for (int32 i = count; i > 0 && mAbove != nullptr; mAbove = mAbove->Parent()) {
        mElements[--i] = mAbove;
    }
}

}  // namespace kz
