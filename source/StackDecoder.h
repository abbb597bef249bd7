// Names for the addresses of a StackChain: the slow half, which reads the symbol tables of the images on disk.
// A decoder is used by one thread at a time.
#ifndef KZCORE_STACKDECODER_H
#define KZCORE_STACKDECODER_H

#include <memory>

#include "KZTypes.h"

// One decoded return address.
struct StackFrame {
    const void* address;
    char name[256];  // the linker's name up to its first ':', or "<unknown>"
    long offset;     // bytes from the start of the function
};
static_assert(sizeof(StackFrame) == 272);

// The decoded frames, innermost first.
class KZ_EXPORT StackCrawl {
public:
    // With room for `capacity` frames; throws std::bad_alloc.
    explicit StackCrawl(long capacity);

    long GetCount() const { return mCount; }
    long GetCapacity() const { return mCapacity; }

    // `index` is from 0 and below GetCount().
    const StackFrame& GetFrame(long index) const { return mFrames[static_cast<size_t>(index)]; }

    // A full crawl drops the frame.
    void Add(const StackFrame& frame);

private:
    long mCount = 0;  // from 0 to mCapacity
    long mCapacity;
    std::unique_ptr<StackFrame[]> mFrames;
};

// The virtual operations stand in this order.
class KZ_EXPORT StackDecoder {
public:
    // How much is asked for: nothing but the addresses, or names and offsets too.
    enum StackInfo : int32 { kAddressOnly = 0, kName = 1, kNameAndOffset = 2 };

    virtual ~StackDecoder();

    virtual void SetDecodeLevel(StackInfo level) = 0;

    // Names all addresses; throws std::bad_alloc.
    virtual std::unique_ptr<StackCrawl> GetStackCrawl() = 0;

    // Writes the name, cut to size - 1 bytes and NUL-terminated, and the offset from the start of what it names.
    // "<unknown>" and 0 for an address that has no name, and for all at level kAddressOnly. False leaves a frame out;
    // so does a size of 0, which has no room for a name.
    virtual bool GetNameForAddress(const void* address, char* name, unsigned long size, long* offset) = 0;
};

// Keeps a copy of the addresses and asks the platform's decoder for each.
class KZ_EXPORT StackDecoderImp : public StackDecoder {
public:
    // Copies `count` addresses; throws std::bad_alloc, for a negative count too.
    StackDecoderImp(const void* const* addresses, long count);
    ~StackDecoderImp() override;
    StackDecoderImp(const StackDecoderImp&) = delete;
    StackDecoderImp& operator=(const StackDecoderImp&) = delete;

    void SetDecodeLevel(StackInfo level) override { mLevel = level; }
    std::unique_ptr<StackCrawl> GetStackCrawl() override;

protected:
    StackInfo DecodeLevel() const { return mLevel; }

private:
    long mCount;
    long mCapacity;
    std::unique_ptr<const void*[]> mAddresses;
    StackInfo mLevel = kNameAndOffset;
};

// Names addresses by the symbol table of the loaded image that holds them. Never fails: what can't be named is
// "<unknown>". Allocates nothing.
class KZ_EXPORT MacStackDecoder final : public StackDecoderImp {
public:
    using StackDecoderImp::StackDecoderImp;
    ~MacStackDecoder() override;

    bool GetNameForAddress(const void* address, char* name, unsigned long size, long* offset) override;
};

#endif
