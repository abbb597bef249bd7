// Chains of return addresses, recorded cheaply on the calling thread's own stack. Recording allocates nothing, takes
// no lock and does no symbol work; names come later, from a StackDecoder (StackDecoder.h). Any thread.
#ifndef KZCORE_STACKCHAIN_H
#define KZCORE_STACKCHAIN_H

#include <memory>

#include "KZTypes.h"

class StackDecoder;

// The recording. The virtual operations stand in this order.
class KZ_EXPORT StackChain {
public:
    virtual ~StackChain();

    // Records the callers, innermost first: entry 0 lies in the function that called Record, or `skip` calls further
    // out. A skip beyond the depth gives no entries; a chain that is broken by code without frame pointers is short.
    virtual void Record(long skip);

    // The same from a given frame of this thread's stack, for example a signal context's. `pc`, where it is not null,
    // counts as the first call: skip 0 leaves it out, -1 stores it as entry 0. A null frame stands for the caller's.
    virtual void RecordFrom(void* frame, void* pc, long skip);

    // Makes a decoder that holds a copy of the addresses; throws std::bad_alloc.
    virtual std::unique_ptr<StackDecoder> FrameDecoder() const;

    // The addresses, and how many have room there.
    virtual void** GetBuffer() = 0;
    virtual long GetBufferEntries() const = 0;

    // How many addresses the last recording stored.
    long GetCount() const { return mCount; }

protected:
    StackChain() = default;
    StackChain(const StackChain&) = default;
    StackChain& operator=(const StackChain&) = default;

private:
    long mCount = 0;  // at most GetBufferEntries()
};

// A chain of at most N addresses, kept in place; copied by value.
template <int N>
class KZ_EXPORT StackChainFS : public StackChain {
public:
    void** GetBuffer() override { return mAddresses; }
    long GetBufferEntries() const override { return N; }

private:
    void* mAddresses[static_cast<unsigned long>(N)] =
        {};  // innermost first; what is past GetCount() is left from before
};

#endif
