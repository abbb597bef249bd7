// The extended float and its stored form. Usable from C11 and C++20.
#ifndef KZCORE_NUMERICSUPPORT_H
#define KZCORE_NUMERICSUPPORT_H

#include "KZTypes.h"

// An extended float as the x87 unit keeps it: a 64-bit mantissa with its leading bit explicit, then a 16-bit word of
// sign and 15-bit biased exponent, both little-endian. Elements of arrays are 10 bytes apart and not aligned.
typedef struct floatExt {
    uInt8 bytes[10];
} floatExt;

KZ_EXTERN_C_BEGIN

// Converts to and from the 16 bytes of stored files, which have the layout of a big-endian IEEE 754 binary128:
// sign and exponent, 64 bits of mantissa, six bytes of 0 (which StdToX ignores). Unless the exponent word is 0, the
// stored mantissa lacks the leading bit: XToStd shifts it out and the lowest bit becomes 0, StdToX shifts back and
// sets the leading bit (so a negative zero comes back with the mantissa of a number). `stored` needs no alignment
// and may be the same memory. Any thread.
KZ_EXPORT void XToStd(const floatExt* x, void* stored);
KZ_EXPORT void StdToX(const void* stored, floatExt* x);

KZ_EXTERN_C_END

#endif
