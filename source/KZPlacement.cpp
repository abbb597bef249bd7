#include "KZPlacement.h"

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
    KZPlacementDeletor* record = gNewestRecord.exchange(nullptr, std::memory_order_acquire);
    while (record != nullptr) {
        KZPlacementDeletor* const older = record->next;
        delete record;
        record = older;
    }
}
