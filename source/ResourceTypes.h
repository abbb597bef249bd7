// The words that all calls on resource files share: attribute bits, opening modes, and the resource types that the
// library reads itself. Usable from C11 and C++20.
#ifndef KZCORE_RESOURCETYPES_H
#define KZCORE_RESOURCETYPES_H

#include "KZTypes.h"

// Bits of a file's attributes.
enum {
    kRsrcMapChanged = 0x20,  // the map in memory differs from the stored one
    kRsrcMapReadOnly = 0x80  // the file is open read-only
};

// Bits of a resource's attributes. The bits 0x04, 0x10 and 0x20 are kept as found.
enum {
    kRsrcChanged = 0x02,   // the stored block is out of date
    kRsrcProtected = 0x08  // the resource cannot be removed
};

// Opening modes.
enum { kRsrcReadWrite = 0, kRsrcReadOnly = 1 };

#ifdef __cplusplus
namespace kz {

inline constexpr _ResourceType kStringType = FourCharCode("STR ");      // one string
inline constexpr _ResourceType kStringListType = FourCharCode("STR#");  // a 16-bit count, then counted strings

}  // namespace kz
#endif

#endif
