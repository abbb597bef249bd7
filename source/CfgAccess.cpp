// Modules below the configuration read its tokens through a slot that the configuration fills, because they can't
// include it. The slot holds one pointer to both the manager and its reader, so that a reader never sees a half-filled
// slot.
#include "CfgAccess.h"

#include <atomic>

#include "CfgSlot.h"
#include "KzAssert.h"
#include "KzErr.h"

namespace {

constinit std::atomic<const kz::CfgAccess*> gMainCfgAccess{nullptr};

}  // namespace

void kz::SetMainCfgAccess(const CfgAccess* access)
{
    KZ_ASSERT(access == nullptr || access->read != nullptr);
    gMainCfgAccess.store(access, std::memory_order_release);
}

ConfigManager* GetMainCfgAccess()
{
    const kz::CfgAccess* const access = gMainCfgAccess.load(std::memory_order_acquire);
    return access == nullptr ? nullptr : access->manager;
}

KzErr CfgGetDefault(uInt32 type, const unsigned char* token, void* out)
{
    if (token == nullptr || token[0] == 0) {
        return kzErrArgument;
    }
    const kz::CfgAccess* const access = gMainCfgAccess.load(std::memory_order_acquire);
    return access == nullptr ? kzErrGeneric : access->read(access->manager, type, token, out);
}
