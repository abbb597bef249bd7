// A decoder copies the addresses, because the chain that it comes from lies on a stack that may be gone when the names
// are asked for. A linker's name ends at its first ':'.
#include "StackDecoder.h"

#include <algorithm>
#include <cstring>

#include "BoundedText.h"
#include "PlatformSymbols.h"

StackCrawl::StackCrawl(long capacity)
    : mCapacity(capacity), mFrames(std::make_unique<StackFrame[]>(static_cast<size_t>(capacity)))
{}

void StackCrawl::Add(const StackFrame& frame)
{
    if (mCount == mCapacity) {
        return;
    }
    mFrames[static_cast<size_t>(mCount++)] = frame;
}

StackDecoder::~StackDecoder() = default;

StackDecoderImp::StackDecoderImp(const void* const* addresses, long count)
    : mCount(count), mCapacity(count), mAddresses(std::make_unique<const void*[]>(static_cast<size_t>(count)))
{
    std::copy_n(addresses, count, mAddresses.get());
}

StackDecoderImp::~StackDecoderImp() = default;

std::unique_ptr<StackCrawl> StackDecoderImp::GetStackCrawl()
{
    auto crawl = std::make_unique<StackCrawl>(mCapacity);
    for (long i = 0; i < mCount; ++i) {
        StackFrame frame;
        frame.address = mAddresses[static_cast<size_t>(i)];
        if (GetNameForAddress(frame.address, frame.name, sizeof frame.name, &frame.offset)) {
            crawl->Add(frame);
        }
    }
    return crawl;
}

MacStackDecoder::~MacStackDecoder() = default;

bool MacStackDecoder::GetNameForAddress(const void* address, char* name, unsigned long size, long* offset)
{
    if (size == 0) {
        return false;
    }
    if (DecodeLevel() != kAddressOnly && kz::SymbolAt(address, name, size, offset)) {
        name[std::strcspn(name, ":")] = '\0';
        return true;
    }
    kz::BoundedText(name, size).Append("<unknown>");
    *offset = 0;
    return true;
}
