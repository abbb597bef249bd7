// Steps between UTF-8 and UTF-32, one character or many. Usable from C11 and C++20. Any thread; no call needs the
// library to be started.
#ifndef KZCORE_UTF8_H
#define KZCORE_UTF8_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Decodes the character at *cursor and moves *cursor behind it, never past `end`; an empty rest moves nothing. What the
// Unicode standard's table of well-formed UTF-8 (table 3-7) leaves out gives 0, as a NUL does, and moves on by:
// - the length that the first byte tells, up to 6, for a byte that starts no character (a stray continuation byte is
//   one byte long) and for a second byte that the first one excludes;
// - all that is left, when the sequence is longer than that;
// - one byte, when a byte that should continue the sequence does not.
KZ_EXPORT uInt32 ConvertUTF8toUTF32(const unsigned char** cursor, const unsigned char* end);

// Encodes the values from *source up to sourceEnd in 1 to 4 bytes each, and moves *source and *target behind what was
// read and written. A value above 0x10FFFF is written as U+FFFD; surrogates are written like any other value. 1 when
// all were written and none was replaced. A value that has no room left is neither read nor written in part: the result
// is 0 and *source stays at it.
KZ_EXPORT KzBool ConvertUTF32toUTF8(const uInt32** source, const uInt32* sourceEnd, unsigned char** target,
                                    unsigned char* targetEnd);

KZ_EXTERN_C_END

#ifdef __cplusplus
inline uInt32 ConvertUTF8toUTF32(const char** cursor, const char* end)
{
    const unsigned char* const start = reinterpret_cast<const unsigned char*>(*cursor);
    const unsigned char* at = start;
    const uInt32 value = ConvertUTF8toUTF32(&at, reinterpret_cast<const unsigned char*>(end));
    *cursor += at - start;
    return value;
}
#endif

#endif
