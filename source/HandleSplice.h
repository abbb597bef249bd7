// Bytes that are put into a handle's block, for counted strings and lists. They go behind what the block holds, where
// one resize copies them while the old block still stands, so that their source may lie in that block and nothing has
// changed when memory is full. What belongs further in front is then turned into place, which can't fail.
#ifndef KZCORE_HANDLESPLICE_H
#define KZCORE_HANDLESPLICE_H

#include <cstddef>
#include <limits>

#include "HandleCalls.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"

namespace kz {

// What becomes of room in the block that nothing needs.
enum class Fit { kKeepSpareRoom, kExactBlock };

// What stands in a block and what comes behind it, in bytes.
struct Splice {
    std::size_t block = 0;  // the block's size; 0 for no handle, and for a bad one, which the resize reports
    std::size_t used = 0;   // of the block, which stay; more than the block has are left undefined
    const void* from = nullptr;
    std::size_t size = 0;    // of `from`, which may lie in the block
    std::size_t before = 0;  // left free in front of them, for a count that the caller writes
    std::size_t behind = 0;  // left free behind them, for padding

    std::size_t End() const { return used + before + size + behind; }
};

// The part of SpliceBehind that resizes, to a block of `end` bytes. Its arguments are single ones and the call stands
// out of line because the requests that it makes of them would burden each append that needs no resize.
KzErr ResizeForSplice(void* variable, std::size_t end, const void* from, std::size_t at, std::size_t size);

// Puts the bytes behind the used ones. The handle in the variable, of whatever type, gets a block that ends there,
// unless they fit and the fit keeps spare room; a null one is replaced by a new handle. The error of DSSetHandleSize,
// which reports it: the block is as it was then. Requires the sum of the sizes to be no more than a size can hold.
//
// Inlined, because appending a single byte to a block with room is a hot call.
template <typename Handle>
KzErr SpliceBehind(Handle* variable, const Splice& splice, Fit fit)
{
    KZ_ASSERT(variable != nullptr);
    KZ_ASSERT(splice.from != nullptr || splice.size == 0);
    KZ_ASSERT(splice.size <= std::numeric_limits<std::size_t>::max() - (splice.End() - splice.size));
    const std::size_t at = splice.used + splice.before;
    if (fit == Fit::kKeepSpareRoom && splice.block >= splice.End()) {
        MoveBlock(splice.from, DataOf(*variable) + at, splice.size);
        return kzErrNone;
    }
    return ResizeForSplice(variable, splice.End(), splice.from, at, splice.size);
}

// Exchanges the bytes before `middle` with those from there to `end`, which brings what was spliced behind into place,
// and sends what is to go to the end, from where the same call brings it back if the block can't shrink.
void TurnBytes(unsigned char* begin, unsigned char* middle, unsigned char* end);

}  // namespace kz

#endif
