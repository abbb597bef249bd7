// Sizes filled up to a boundary, as binary streams have them.
#ifndef KZCORE_PADDING_H
#define KZCORE_PADDING_H

#include "KZTypes.h"

namespace kz {

// The bytes between `size` and the next multiple of `boundary`; a boundary of 0 is 1.
constexpr unsigned long PaddingOf(unsigned long size, uInt32 boundary)
{
    const unsigned long beyond = boundary == 0 ? 0 : size % boundary;
    return beyond == 0 ? 0 : boundary - beyond;
}

}  // namespace kz

#endif
