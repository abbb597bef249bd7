// C strings: NUL-terminated bytes. Usable from C11 and C++20.
//
// The destination comes first, and the caller provides its room. Null is not accepted. Lengths are bytes in 32 bits.
// Characters are the low byte of an int32 argument.
//
// Comparisons look at bytes as unsigned; the caseless ones put two bytes that differ through ToLower, so they follow
// the calling thread's C locale and fold single bytes only: two UTF-8 texts that differ in the case of an accented
// letter are different. Results are distances and not just signs.
//
// Any thread; no call needs the library to be started. In C++ each call takes `unsigned char*` as well as `char*`.
#ifndef KZCORE_STRINGCSTR_H
#define KZCORE_STRINGCSTR_H

#include "KZTypes.h"
#ifdef __cplusplus
#include <type_traits>
#endif

KZ_EXTERN_C_BEGIN

// The bytes before the first NUL.
KZ_EXPORT uInt32 StrLen(const char* s);

// Copies with the NUL; the two may overlap. Returns dst.
KZ_EXPORT char* StrCpy(char* dst, const char* src);

// Writes exactly n bytes: at most n of src, then NULs. A source of n bytes or more leaves dst without a terminator, so
// that a buffer which is to hold a C string is given one byte less and terminated by the caller. The two may overlap.
// Returns dst.
KZ_EXPORT char* StrNCpy(char* dst, const char* src, uInt32 n);

// Appends src with its NUL. src may lie in dst, dst itself too, which doubles it. dst has room for both texts and one
// NUL. Returns the new length of dst.
KZ_EXPORT uInt32 StrCat(char* dst, const char* src);

// 0 when equal; the difference of the first two bytes that differ, a's minus b's; 1 when b is a shorter prefix of a;
// minus b's next byte when a is a shorter prefix of b: "ab" against "abc" is -99, "abc" against "ab" 1.
KZ_EXPORT int32 StrCmp(const char* a, const char* b);

// Whether the two are equal, byte for byte.
KZ_EXPORT KzBool StrEqual(const char* a, const char* b);

// StrCmp within n bytes; 0 for n = 0. What is behind a terminator, or behind n bytes, is not read.
KZ_EXPORT int32 StrNCmp(const char* a, const char* b, uInt32 n);

// Whether the two are equal within n bytes.
KZ_EXPORT KzBool StrNEqual(const char* a, const char* b, uInt32 n);

// The folded difference of the first two bytes that differ when folded, the NUL being an ordinary byte; 0 if none do.
KZ_EXPORT int32 StrCaseCmp(const char* a, const char* b);

// As StrNCmp, with the folded difference, and so with the result 1 for a longer text against its prefix.
KZ_EXPORT int32 StrNCaseCmp(const char* a, const char* b, uInt32 n);

// Whether the two are equal within n bytes when folded.
KZ_EXPORT KzBool StrNCaseEqual(const char* a, const char* b, uInt32 n);

// The first and the last byte of s equal to c, or null. The terminator is never found: c = 0 gives null. The result
// lies in s, and may be written through where s may.
KZ_EXPORT char* StrChr(const char* s, int32 c);
KZ_EXPORT char* StrRChr(const char* s, int32 c);

// Whether s without its spaces and tabs contains pattern, ignoring case. An empty s contains nothing; any other s
// contains the empty pattern. Blanks in the pattern match nothing, since s is read without its own.
KZ_EXPORT KzBool StrIStr(const char* s, const char* pattern);

// The digit 0-9, A-F for the low four bits of n.
KZ_EXPORT char HexChar(int32 n);

// ASCII classes of a byte, in every locale: letters, digits, and the rest of what prints but the space. Bytes from 0x80
// up are in none.
KZ_EXPORT KzBool IsAlpha(int32 c);
KZ_EXPORT KzBool IsDigit(int32 c);
KZ_EXPORT KzBool IsPunct(int32 c);

// The C library's mapping of a byte in the current locale, 0 to 255. A byte without a partner maps to itself.
KZ_EXPORT int32 ToUpper(int32 c);
KZ_EXPORT int32 ToLower(int32 c);

// Whether ToUpper, or ToLower, changes the byte, so that what has no case is neither.
KZ_EXPORT KzBool IsLower(int32 c);
KZ_EXPORT KzBool IsUpper(int32 c);

// The index of the UTF-8 character after the one at index, by its first byte alone, which is all that is read: the
// caller compares the result with its own end, since a character that is cut off leads behind it. A byte that starts no
// character is one step.
KZ_EXPORT int32 StrNextChar(const char* buffer, int32 index);

// The index of the UTF-8 character before index; index - 1 where no lead byte precedes. 0 for index 0; a negative
// index gives 0 with a report. Reads no byte before the buffer's first, nor the one at index.
KZ_EXPORT int32 StrPrevChar(const char* buffer, int32 index);

// Map the case of `length` bytes of UTF-8 text in place, by Unicode's full mappings in no locale: at most as many bytes
// and as many UTF-16 units as the text had, so that what grows loses its end and what shrinks leaves the last bytes as
// they were ("stra\u00DFe" becomes "STRASSe"). In text that is not valid UTF-8 each step of ConvertUTF8toUTF32
// that gives 0 becomes U+FFFD first. kzErrMemoryFull: nothing is changed; never for ASCII, nor for up to 255 bytes.
KZ_EXPORT KzErr StrToUpper(unsigned char* bytes, int32 length);
KZ_EXPORT KzErr StrToLower(unsigned char* bytes, int32 length);

// The decimal separator of number text, unless a call names its own: '.' at first. Setting keeps the low byte; set it
// before other threads write numbers.
KZ_EXPORT extern unsigned char gDecimalPoint;
KZ_EXPORT int32 StrGetDecimalPoint(void);
KZ_EXPORT void StrSetDecimalPoint(int32 c);

// Not 0 when stored paths are always written as UTF-8. Set at start (PathRef::Setting); no string call consults it.
KZ_EXPORT extern unsigned char gUseUTF8;

KZ_EXTERN_C_END

#ifdef __cplusplus
// The calls on `unsigned char*`: each is the one above it on the same bytes.
namespace kz {

// In the overloads of calls that take null: null constants keep to the call itself.
template <typename Given, typename Byte>
concept Spelled = std::is_same_v<Given, Byte>;

// The same bytes under the other type.
inline const char* AsChars(const unsigned char* s)
{
    return reinterpret_cast<const char*>(s);
}
inline char* AsChars(unsigned char* s)
{
    return reinterpret_cast<char*>(s);
}
inline unsigned char* AsBytes(char* s)
{
    return reinterpret_cast<unsigned char*>(s);
}
inline const unsigned char* AsBytes(const char* s)
{
    return reinterpret_cast<const unsigned char*>(s);
}

}  // namespace kz

inline uInt32 StrLen(const unsigned char* s)
{
    return StrLen(kz::AsChars(s));
}
inline unsigned char* StrCpy(unsigned char* dst, const unsigned char* src)
{
    return kz::AsBytes(StrCpy(kz::AsChars(dst), kz::AsChars(src)));
}
inline unsigned char* StrNCpy(unsigned char* dst, const unsigned char* src, uInt32 n)
{
    return kz::AsBytes(StrNCpy(kz::AsChars(dst), kz::AsChars(src), n));
}
inline uInt32 StrCat(unsigned char* dst, const unsigned char* src)
{
    return StrCat(kz::AsChars(dst), kz::AsChars(src));
}
inline int32 StrCmp(const unsigned char* a, const unsigned char* b)
{
    return StrCmp(kz::AsChars(a), kz::AsChars(b));
}
inline KzBool StrEqual(const unsigned char* a, const unsigned char* b)
{
    return StrEqual(kz::AsChars(a), kz::AsChars(b));
}
inline int32 StrNCmp(const unsigned char* a, const unsigned char* b, uInt32 n)
{
    return StrNCmp(kz::AsChars(a), kz::AsChars(b), n);
}
inline KzBool StrNEqual(const unsigned char* a, const unsigned char* b, uInt32 n)
{
    return StrNEqual(kz::AsChars(a), kz::AsChars(b), n);
}
inline int32 StrCaseCmp(const unsigned char* a, const unsigned char* b)
{
    return StrCaseCmp(kz::AsChars(a), kz::AsChars(b));
}
inline int32 StrNCaseCmp(const unsigned char* a, const unsigned char* b, uInt32 n)
{
    return StrNCaseCmp(kz::AsChars(a), kz::AsChars(b), n);
}
inline KzBool StrNCaseEqual(const unsigned char* a, const unsigned char* b, uInt32 n)
{
    return StrNCaseEqual(kz::AsChars(a), kz::AsChars(b), n);
}
inline unsigned char* StrChr(const unsigned char* s, int32 c)
{
    return kz::AsBytes(StrChr(kz::AsChars(s), c));
}
inline unsigned char* StrRChr(const unsigned char* s, int32 c)
{
    return kz::AsBytes(StrRChr(kz::AsChars(s), c));
}
inline KzBool StrIStr(const unsigned char* s, const unsigned char* pattern)
{
    return StrIStr(kz::AsChars(s), kz::AsChars(pattern));
}
inline KzErr StrToUpper(char* bytes, int32 length)
{
    return StrToUpper(kz::AsBytes(bytes), length);
}
inline KzErr StrToLower(char* bytes, int32 length)
{
    return StrToLower(kz::AsBytes(bytes), length);
}
inline int32 StrNextChar(const unsigned char* buffer, int32 index)
{
    return StrNextChar(kz::AsChars(buffer), index);
}
inline int32 StrPrevChar(const unsigned char* buffer, int32 index)
{
    return StrPrevChar(kz::AsChars(buffer), index);
}
#endif

#endif
