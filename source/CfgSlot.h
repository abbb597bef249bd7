// The slot behind CfgAccess.h, which a configuration fills while it runs. Any thread.
#ifndef KZCORE_CFGSLOT_H
#define KZCORE_CFGSLOT_H

#include "KZTypes.h"

class ConfigManager;

namespace kz {

// What stands in the slot behind these calls while a configuration runs.
struct CfgAccess {
    ConfigManager* manager;
    KzErr (*read)(ConfigManager* manager, uInt32 type, const unsigned char* token, void* out);
};

// Fills the slot, or empties it by null. `access` stays the caller's and outlives its time in the slot.
void SetMainCfgAccess(const CfgAccess* access);

}  // namespace kz

#endif
