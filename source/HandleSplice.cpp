// A splice is one resize, which can fail, and behind it one turn, which can't: so a failure has changed nothing.
#include "HandleSplice.h"

#include <algorithm>
#include <cstring>

namespace kz {

namespace {

// Any short counted string with its count, and nearly any long one; more would burden small stacks.
constexpr std::size_t kMostAside = 4096;

}  // namespace

KzErr ResizeForSplice(void* variable, std::size_t end, const void* from, std::size_t at, std::size_t size)
{
    KZ_ASSERT(at <= end && size <= end - at);
    return ResizeOrNewHandle("DSSetHandleSize", variable, BySize(end), {from, at, size});
}

// A part that is short is kept aside, so that the other one moves in one piece: std::rotate would touch each byte more
// than once, which costs a multiple in front of a long list.
void TurnBytes(unsigned char* begin, unsigned char* middle, unsigned char* end)
{
    KZ_ASSERT(begin <= middle && middle <= end);
    const std::size_t front = static_cast<std::size_t>(middle - begin);
    const std::size_t back = static_cast<std::size_t>(end - middle);
    if (front == 0 || back == 0) {
        return;
    }
    unsigned char aside[kMostAside];
    if (back <= kMostAside) {
        std::memcpy(aside, middle, back);
        std::memmove(begin + back, begin, front);
        std::memcpy(begin, aside, back);
    } else if (front <= kMostAside) {
        std::memcpy(aside, begin, front);
        std::memmove(begin, middle, back);
        std::memcpy(begin + back, aside, front);
    } else {
        std::rotate(begin, middle, end);
    }
}

}  // namespace kz
