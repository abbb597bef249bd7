// 16-byte unique identifiers and their text form. Usable from C11 and C++20. Any thread.
#ifndef KZCORE_ZVGUID_H
#define KZCORE_ZVGUID_H

#include "KZTypes.h"

// Words in native byte order.
typedef struct ZVGuidType {
    uInt32 word;
    uInt16 half1;
    uInt16 half2;
    uInt8 bytes[8];
} ZVGuidType;

KZ_EXTERN_C_BEGIN

// A constant of 16 zero bytes.
KZ_EXPORT const ZVGuidType* NullZVGuid(void);

// Whether all 16 bytes agree.
KZ_EXPORT KzBool ZVGuidsEqual(const ZVGuidType* a, const ZVGuidType* b);

// Writes the text, 36 characters with dashes and lower-case digits, and a NUL, to `out`; null does nothing. Always 0.
KZ_EXPORT KzErr ZVGuidToCStr(const ZVGuidType* guid, char* out);

// Reads such a text. kzErrArgument for a null text; 0 for a null `out`; kzErrBadGuidText for a text that is not 36
// characters long, with `out` unchanged. The digits are not checked: what is no hexadecimal digit counts as 0.
KZ_EXPORT KzErr ZVGuidFromCStr(const char* text, ZVGuidType* out);

// A new random GUID: from the system's random bytes, or, should there be none, from the random generator of the
// library, which can be foretold. Null does nothing.
KZ_EXPORT void ZVGuidCreate(ZVGuidType* out);

// The text of a new GUID, as by ZVGuidToCStr.
KZ_EXPORT KzErr ZVGuidCreateStr(char* out);

KZ_EXTERN_C_END

#ifdef __cplusplus
class DebugStream;

// Appends the GUID's text.
KZ_EXPORT void ToDebugStream(DebugStream& stream, const ZVGuidType& guid);
#endif

#endif
