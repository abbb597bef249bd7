// Each frame of the stack begins with the saved frame pointer of its caller, the link, and the return address beside
// it:
//
//      higher   | return address |
//      frame -> | link           |  -> the caller's frame
//      lower    | locals         |
//
// Code that was built without frame pointers keeps any value in that register, so a link is followed only where it
// leads further up. From a frame on the thread's own stack it must also end below the stack's top: whatever lies there
// can be read. A fibre's or a signal's stack has ends that nobody tells, and there the kernel reads the words, which
// knows what can be read.
#include "StackChain.h"

#include <climits>
#include <cstdint>
#include <cstring>

#include "KzAssert.h"
#include "PlatformStack.h"
#include "StackDecoder.h"

namespace {

// The link and the return address.
struct Frame {
    uintptr_t link;
    uintptr_t returnAddress;
};

// A word of a frame, at any alignment and of any declared type.
typedef uintptr_t FrameWord __attribute__((aligned(1), may_alias));

constexpr uintptr_t kAlignmentBits = 3;

// The sanitizers' checks are off where a frame is read: a link that is not one may lead into their red zones, or to
// words that other threads write.
#define KZ_READS_FRAMES __attribute__((no_sanitize("address", "thread", "undefined")))

// Frames of the thread's own stack, read in place.
class OwnFrames {
public:
    explicit OwnFrames(uintptr_t top) : mLast(top - sizeof(Frame)) {}
    KZ_READS_FRAMES bool Read(uintptr_t address, Frame* frame)
    {
        if (address > mLast) {
            return false;
        }
        const auto* words = reinterpret_cast<const FrameWord*>(address);
        *frame = {words[0], words[1]};
        return true;
    }

private:
    uintptr_t mLast;
};

// Frames of any other stack, read through a window that holds several of one. It is small because a signal's stack is.
class ForeignFrames {
public:
    bool Read(uintptr_t address, Frame* frame)
    {
        if (mSize < sizeof *frame || address - mBegin > mSize - sizeof *frame) {
            mBegin = address;
            mSize = kz::CopyReadable(address, mBytes, sizeof mBytes);
            if (mSize < sizeof *frame) {
                return false;
            }
        }
        std::memcpy(frame, mBytes + (address - mBegin), sizeof *frame);
        return true;
    }

private:
    uintptr_t mBegin = 0;
    size_t mSize = 0;
    unsigned char mBytes[512];
};

// Stores the return addresses from the frame at `address` on, without the first `skip`, and returns how many.
template <typename Frames>
KZ_READS_FRAMES inline long Walk(Frames frames, uintptr_t address, long skip, void** buffer, long entries)
{
    KZ_ASSERT(entries <= 0 || buffer != nullptr);
    Frame frame;
    if (entries <= 0 || !frames.Read(address, &frame)) {
        return 0;
    }
    const auto isFollowed = [&]() KZ_READS_FRAMES {
        if (frame.link <= address || (frame.link & kAlignmentBits) != 0) {
            return false;
        }
        address = frame.link;
        return frames.Read(address, &frame);
    };
    for (; skip > 0; --skip) {
        if (!isFollowed()) {
            return 0;
        }
    }
    long count = 0;
    do {
        buffer[count++] = reinterpret_cast<void*>(frame.returnAddress);
    } while (count < entries && isFollowed());
    return count;
}

// Out of line, because the window would enlarge every recording's frame.
__attribute__((noinline)) long WalkForeign(uintptr_t address, long skip, void** buffer, long entries)
{
    return Walk(ForeignFrames(), address, skip, buffer, entries);
}

// Stores up to `entries` return addresses and returns how many.
__attribute__((noinline)) KZ_READS_FRAMES long RecordToBuf(void** buffer, long entries, void* givenFrame, void* pc,
                                                           long skip)
{
    long count = 0;
    if (pc != nullptr) {
        if (skip <= 0 && entries > 0) {
            buffer[count++] = pc;
        } else {
            --skip;
        }
    }
    const auto first = reinterpret_cast<uintptr_t>(givenFrame != nullptr ? givenFrame : __builtin_frame_address(0));
    if ((first & kAlignmentBits) != 0) {
        return count;
    }
    const uintptr_t top = kz::OwnStackTop(first);
    return count + (top != 0 ? Walk(OwnFrames(top), first, skip, buffer + count, entries - count)
                             : WalkForeign(first, skip, buffer + count, entries - count));
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
