// The extended float and its stored form, and the numeric types by their codes. Usable from C11 and C++20.
#ifndef KZCORE_NUMERICSUPPORT_H
#define KZCORE_NUMERICSUPPORT_H

#include "KZTypes.h"

// An extended float as the x87 unit keeps it: a 64-bit mantissa with its leading bit explicit, then a 16-bit word of
// sign and 15-bit biased exponent, both little-endian. Elements of arrays are 10 bytes apart and not aligned.
typedef struct floatExt {
    uInt8 bytes[10];
} floatExt;

KZ_EXTERN_C_BEGIN

// The extended 0.
KZ_EXPORT extern const floatExt EZero;

// Converts to and from the 16 bytes of stored files, which have the layout of a big-endian IEEE 754 binary128:
// sign and exponent, 64 bits of mantissa, six bytes of 0 (which StdToX ignores). Unless the 15 bits of exponent are 0,
// the stored mantissa lacks the leading bit: XToStd shifts it out and the lowest bit becomes 0, StdToX shifts back and
// sets the leading bit. A normal extended float survives the way there and back; a stored mantissa loses its lowest
// bit. `stored` needs no alignment and may be the same memory, of 16 bytes. Any thread.
KZ_EXPORT void XToStd(const floatExt* x, void* stored);
KZ_EXPORT void StdToX(const void* stored, floatExt* x);

// The codes of the numeric types: integers and unsigned integers of 8, 16, 32 and 64 bits, floats of 32, 64 and 80
// bits, and complex numbers of two such floats.
enum NumType {
    kNumI8 = 1,
    kNumI16,
    kNumI32,
    kNumI64,
    kNumU8,
    kNumU16,
    kNumU32,
    kNumU64,
    kNumF32,
    kNumF64,
    kNumFX,
    kNumC32,
    kNumC64,
    kNumCX
};

// What kind of number a type holds, whatever its size.
enum NumTypeClass { kNumClassSigned = 0, kNumClassUnsigned = 1, kNumClassFloat = 2, kNumClassComplex = 3 };

// The bytes of a value of the type; 0 for any other code. Any thread.
KZ_EXPORT int32 NumSize(int32 type);

// The type's NumTypeClass; 64 for any other code. Any thread.
KZ_EXPORT int32 NumClass(int32 type);

KZ_EXTERN_C_END

#endif
