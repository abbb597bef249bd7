// Verifiers: four characters in a record that crosses the boundary as a handle, by which a call knows its own.
#ifndef KZCORE_VERIFIER_H
#define KZCORE_VERIFIER_H

#include <atomic>

#include "KZTypes.h"
#include "KzAssert.h"

namespace kz {

// Spoils the verifier of a record that is about to be freed, so that a second destroy is told for as long as nobody
// uses the memory again: false if the verifier was not the expected one, and the record is not to be touched.
//
// The look before the write is needed because the memory of what is no such record may be read-only, and to the
// processor a compare-exchange that fails is a write. The write is one atomic step because of two threads that destroy
// one record only one may go on, and because the compiler would leave out a plain store into memory that is freed next.
inline bool SpoilVerifier(uInt32* verifier, uInt32 expected)
{
    constexpr uInt32 kSpoiled = 0;
    KZ_ASSERT(expected != kSpoiled);
    const std::atomic_ref<uInt32> word(*verifier);
    return word.load(std::memory_order_relaxed) == expected && word.compare_exchange_strong(expected, kSpoiled);
}

}  // namespace kz

#endif
