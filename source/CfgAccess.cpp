#include "CfgAccess.h"

#include <atomic>

#include "CfgSlot.h"
#include "KzErr.h"

namespace {

constinit std::atomic<const kz::CfgAccess*> gMainCfgAccess{nullptr};

}  // namespace

void kz::SetMainCfgAccess(const CfgAccess* access)
{
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
