// Sizes filled up to a boundary, as binary streams have them: the reader skips what the writer fills in.
#ifndef KZCORE_PADDING_H
#define KZCORE_PADDING_H

#include "KZTypes.h"

namespace kz {

// The bytes between `size` and the next multiple of `boundary`, which need not be a power of two. A boundary of 0 is 1,
// because callers pass on what a file or a host told them.
constexpr unsigned long PaddingOf(unsigned long size, uInt32 boundary)
{
    const unsigned long beyond = boundary == 0 ? 0 : size % boundary;
    return beyond == 0 ? 0 : boundary - beyond;
}

}  // namespace kz

#endif
