// Integers as text in bases 2, 8, 10 and 16, and text as integers in any base up to 36, held to the range of a numeric
// type. Nothing here follows the locale, and nothing allocates. The first calls are usable from C11 too. Any thread.
#ifndef KZCORE_NUMBERTEXT_H
#define KZCORE_NUMBERTEXT_H

#include "KZTypes.h"
#include "NumericSupport.h"

KZ_EXTERN_C_BEGIN

// Reads an integer of at most `length` bytes at *cursor and moves *cursor behind its last digit: blanks (0x20 alone),
// then, unless `noSign` is set, one "-" or "+", then digits, whose letters may have either case. Without a digit the
// result is 0 and *cursor stays. No digit is left standing for being too many.
//
// The result has the value's bits, in its low part where the type is smaller. `type` is an integer code of NumType.
// In base 10 a value beyond the type is its greatest or least value. In other bases signed types take the bits of
// their unsigned partner ("FF" is -1 for kNumI8), and what has more bits is the greatest value of the type; a "-"
// negates what came out.
//
// StringToNum32 works in 32 bits, and so does StringToNum64, but for kNumI64 and kNumU64 in 64: types as wide as that
// or wider are held to the work's width. In bases other than 10 what has more bits is all ones for them, signed or not.
KZ_EXPORT uInt32 StringToNum32(const unsigned char** cursor, int32 length, int32 type, int32 base, KzBool noSign);
KZ_EXPORT uInt64 StringToNum64(const unsigned char** cursor, int32 length, int32 type, int32 base, KzBool noSign);

// Writes the integer at `value`, which needs no alignment: 64 bits for kNumI64 and kNumU64, else 32, as signed or not.
// Else as NumToStr without `ok`, below: the length, and a report for what does not fit.
KZ_EXPORT int32 NumToIntString(const void* value, char* buffer, int32 bufferSize, int32 base, KzBool isSigned,
                               int32 type);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The greatest number of digits of a T in base 2, 8, 10 or 16; 0 for any other base. A sign comes on top.
template <typename T>
constexpr int32 MaxBuffSizeForBase(int32 base, T /*unused*/ = T())
{
    static_assert(sizeof(T) == 4 || sizeof(T) == 8);
    constexpr bool isWide = sizeof(T) == 8;
    switch (base) {
        case 2:
            return isWide ? 64 : 32;
        case 8:
            return isWide ? 24 : 12;
        case 10:
            return isWide ? 20 : 12;
        case 16:
            return isWide ? 16 : 8;
        default:
            return 0;
    }
}

// Writes `value` in base 2, 8, 10 or 16 with upper-case digits and a NUL into `buffer` of `bufferSize` bytes, and
// returns the length without the NUL. Negative values have a "-" in base 10 and are two's complement of T's width in
// the other bases. In too small a buffer the low digits stand, without a sign; a buffer of 1 byte gets the NUL alone,
// none nothing, and so does any other base. `ok`, unless it is null, tells whether all was written; without it a report
// of level 2 does.
template <typename T>
int32 NumToStr(T value, char* buffer, int32 bufferSize, int32 base, bool* ok);

extern template KZ_EXPORT int32 NumToStr<int>(int, char*, int32, int32, bool*);
extern template KZ_EXPORT int32 NumToStr<unsigned int>(unsigned int, char*, int32, int32, bool*);
extern template KZ_EXPORT int32 NumToStr<long long>(long long, char*, int32, int32, bool*);
extern template KZ_EXPORT int32 NumToStr<unsigned long long>(unsigned long long, char*, int32, int32, bool*);

// Bytes that a number is read from one by one. The operations stand in this order in its table.
class NumberTextReader {
public:
    // The byte at the reader's place. It is asked for within the length that the call was given only.
    virtual unsigned char Peek() = 0;
    virtual void Advance() = 0;
    virtual void Reserved() {}  // not called for numbers
    virtual void Seek(int32 by) = 0;

protected:
    ~NumberTextReader() = default;
};

// As StringToNum32 and StringToNum64, from a reader, which is left behind the last digit or where it was.
KZ_EXPORT uInt32 StringToNumL(NumberTextReader* reader, int32 length, int32 type, int32 base, KzBool noSign);
KZ_EXPORT uInt64 StringToNumQ(NumberTextReader* reader, int32 length, int32 type, int32 base, KzBool noSign);

#endif

#endif
