// Each frame of the stack begins with the saved frame pointer of its caller, the link, and the return address beside
// it:
//
//      higher   | return address |
//      frame -> | link           |  -> the caller's frame
//      lower    | locals         |
//
// Code that was built without frame pointers keeps any value in that register, so a link is followed only where it
// leads further up this thread's stack and its two words end below the stack's top: whatever lies there is readable.
#include "StackChain.h"

#include <climits>
#include <cstdint>

#include "PlatformStack.h"
#include "StackDecoder.h"

namespace {

// A word of a frame, at any alignment and of any declared type.
typedef uintptr_t FrameWord __attribute__((aligned(1), may_alias));
constexpr uintptr_t kFrameSize = 2 * sizeof(FrameWord);

constexpr uintptr_t kAlignmentBits = 3;

constexpr bool IsFrame(uintptr_t frame, uintptr_t top)
{
    return frame != 0 && (frame & kAlignmentBits) == 0 && frame <= top && top - frame >= kFrameSize;
}

// Stores up to `entries` return addresses and returns how many. The sanitizers' checks are off here: a link that is not
// one may lead into their red zones, or to words that other threads write.
__attribute__((noinline, no_sanitize("address", "thread", "undefined"))) long RecordToBuf(void** buffer, long entries,
                                                                                          void* givenFrame, void* pc,
                                                                                          long skip)
{
    const auto present = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    auto frame = present;
    long count = 0;
    if (pc != nullptr) {
        if (skip <= 0 && entries > 0) {
            buffer[count++] = pc;
        } else {
            --skip;
        }
    }
    if (givenFrame != nullptr) {
        frame = reinterpret_cast<uintptr_t>(givenFrame);
    }
    const uintptr_t top = kz::StackTop(frame);
    if (frame != present && !IsFrame(frame, top)) {
        return count;
    }
    // A link is looked at once: it lies above its frame, so it is not null.
    const uintptr_t last = top - kFrameSize;
    const auto isNext = [&](uintptr_t link) { return link > frame && link <= last && (link & kAlignmentBits) == 0; };
    for (; skip > 0; --skip) {
        const uintptr_t link = *reinterpret_cast<const FrameWord*>(frame);
        if (!isNext(link)) {
            return count;
        }
        frame = link;
    }
    while (count < entries) {
        const auto* words = reinterpret_cast<const FrameWord*>(frame);
        buffer[count++] = reinterpret_cast<void*>(words[1]);
        const uintptr_t link = words[0];
        if (!isNext(link)) {
            break;
        }
        frame = link;
    }
    return count;
}

// The call of the recording operation itself is skipped too.
constexpr long WithOwnCall(long skip)
{
    return skip < LONG_MAX ? skip + 1 : skip;
}

}  // namespace

StackChain::~StackChain() = default;

// Never inlined: its own frame is what is skipped.
__attribute__((noinline)) void StackChain::Record(long skip)
{
    mCount = RecordToBuf(GetBuffer(), GetBufferEntries(), nullptr, nullptr, WithOwnCall(skip));
}

__attribute__((noinline)) void StackChain::RecordFrom(void* frame, void* pc, long skip)
{
    mCount = RecordToBuf(GetBuffer(), GetBufferEntries(), frame, pc, WithOwnCall(skip));
}

std::unique_ptr<StackDecoder> StackChain::FrameDecoder() const
{
    // GetBuffer is one operation for writers and readers; here it only reads.
    void* const* addresses = const_cast<StackChain*>(this)->GetBuffer();
    return std::make_unique<MacStackDecoder>(addresses, mCount);
}
