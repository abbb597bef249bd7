// The records form a chain, newest first, that threads push to without a lock. Only a cleanup takes records off, and it
// takes the whole chain with one exchange, so no push can meet a record that was freed and allocated again.
#include "KZPlacement.h"

#include <atomic>

namespace {

constinit std::atomic<KZPlacementDeletor*> gNewestRecord{nullptr};

}  // namespace

void KZPlacementNewRegisterDeletor(KZPlacementDeletor* record)
{
    if (record == nullptr) {
        return;
    }
    record->next = gNewestRecord.load(std::memory_order_relaxed);
    while (!gNewestRecord.compare_exchange_weak(record->next, record, std::memory_order_release,
                                                std::memory_order_relaxed)) {
    }
}

void KZPlacementNewRunCleanup()
{
    // Taken before the first delete, because a destructor may register anew; such a record waits for the next cleanup.
    KZPlacementDeletor* record = gNewestRecord.exchange(nullptr, std::memory_order_acquire);
    while (record != nullptr) {
        KZPlacementDeletor* const older = record->next;
        delete record;
        record = older;
    }
}
