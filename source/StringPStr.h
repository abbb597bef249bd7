// Short counted strings (`PStr`): a count byte, then 0 to 255 bytes of text. Usable from C11 and C++20.
//
// A PStr is passed as `unsigned char*`, in C++ as `char*` too, all arguments of a call alike; a buffer that is written
// to has 256 bytes unless a call says otherwise. The destination comes first, except in XToY, whose source comes first.
// Text that doesn't fit is cut silently. Null is accepted only where it is said. Source and destination may be the same
// memory. Comparisons look at bytes as unsigned; the caseless ones put two bytes that differ through ToLower, which
// follows the locale: under tr_TR PStrCaseEqual takes "I" and "i" for different, StringUtils::CaseInsensitiveEqual for
// equal, since its case of ASCII is fixed. Any thread; no call needs the library to be started.
#ifndef KZCORE_STRINGPSTR_H
#define KZCORE_STRINGPSTR_H

#include "KZTypes.h"
#include "StringCStr.h"

KZ_EXTERN_C_BEGIN

// Copies count and text; dst needs as many bytes, which is one more than the count. Returns dst.
KZ_EXPORT unsigned char* PStrCpy(unsigned char* dst, const unsigned char* src);

// As PStrCpy into a buffer of n bytes, count byte included: at most n - 1 bytes of text, with the count to match. n = 0
// writes nothing. Returns dst.
KZ_EXPORT unsigned char* PStrNCpy(unsigned char* dst, const unsigned char* src, uInt32 n);

// Appends as much as fits into 255 bytes of text. src may be dst itself, whose text is doubled then. Returns the new
// count, by which a caller who knows the two old ones tells whether anything was cut.
KZ_EXPORT int32 PStrCat(unsigned char* dst, const unsigned char* src);

// A copy in a new pointer block, which the caller disposes with DSDisposePtr. Null for null, and with a report when
// memory is full.
KZ_EXPORT unsigned char* PStrDup(const unsigned char* p);

// 0 for the same pointer. The count difference if one is empty; else the difference of the first two bytes that
// differ, a's minus b's; else the count difference. PStrCaseCmp folds bytes that differ, and gives the difference of
// the folded ones.
KZ_EXPORT int32 PStrCmp(const unsigned char* a, const unsigned char* b);
KZ_EXPORT int32 PStrCaseCmp(const unsigned char* a, const unsigned char* b);

// Whether the texts are equal, byte for byte or folded. Cheaper than a comparison where the counts differ.
KZ_EXPORT KzBool PStrEqual(const unsigned char* a, const unsigned char* b);
KZ_EXPORT KzBool PStrCaseEqual(const unsigned char* a, const unsigned char* b);

// The same on strings that the arguments point to: callbacks for sorting and searching arrays of `unsigned char*`. Each
// argument is the address of an element.
KZ_EXPORT int32 PPStrCmp(const void* a, const void* b);
KZ_EXPORT int32 PPStrCaseCmp(const void* a, const void* b);
KZ_EXPORT KzBool PPStrEqual(const void* a, const void* b);
KZ_EXPORT KzBool PPStrCaseEqual(const void* a, const void* b);

// Whether two file names are the same: PStrCaseEqual.
KZ_EXPORT KzBool FileNameEqual(const unsigned char* a, const unsigned char* b);

// Splits at the first ch that no backslash precedes: what is before it goes to left, what is after it to right. An
// escaped ch stands in left without its backslash; a backslash itself can't be escaped. 1 if it was found; 0 if not:
// right is then empty, and left has the whole text without the backslashes of escaped delimiters. At ':' the text
// `a\:b:c` gives `a:b` and `c`. left and right are different buffers, of which one may be src.
KZ_EXPORT KzBool PStrSplitAtChar(const unsigned char* src, int32 ch, unsigned char* left, unsigned char* right);

// Whether the last bytes of p, in lower case, equal suffix, which is given in lower case: a capital in suffix equals
// nothing. True for an empty suffix, false for one longer than p.
KZ_EXPORT KzBool PStrEndsWith(const unsigned char* p, const char* suffix);

// Searches sub without regard to case from text index start (0-based, not negative; a negative one counts as 0).
// Returns the index just after the first match, from where a search for the next one goes on, or -1; -1 for an empty
// sub.
KZ_EXPORT int32 PStrInPStr(const unsigned char* p, int32 start, const unsigned char* sub);

// Copies src to dst with each match of find replaced, left to right, without a look at what was put there. 1 if there
// was one. 0 if not, or, with an empty dst, when the result would pass 255 bytes. An empty find matches nothing. find
// and replace are C strings outside dst; find heeds case.
KZ_EXPORT KzBool PStrFindReplace(unsigned char* dst, const unsigned char* src, const char* find, const char* replace);

// A hash of 28 bits: of the bytes, or with ignoreCase of what StrToUpper makes of them, by Unicode and not by the
// locale. 0 for null and empty. StringUtils::Hash gives other values for bytes from 0x80 up.
KZ_EXPORT uInt32 PStrHash32(const unsigned char* p, KzBool ignoreCase);

// Writes a NUL after the text where the count leaves room in 256 bytes, so that the bytes from p + 1 on are a C string.
// A count of 255 leaves the buffer as it was. Returns the count.
KZ_EXPORT int32 PStrTerminateIfPossible(unsigned char* p);

// Writes a NUL after the text, or over its last byte when the count is 255. Returns the count, which stays.
KZ_EXPORT int32 PStrNullTerminate(unsigned char* p);

// Copies at most 255 bytes. The C string may stand in the same buffer. Returns the count.
KZ_EXPORT int32 CToPStr(const char* c, unsigned char* p);

// Copies and terminates; c needs the count + 1 bytes, and may be p. Returns the count. A NUL in the text ends the C
// string early for those who read it as one.
KZ_EXPORT int32 PToCStr(const unsigned char* p, char* c);

KZ_EXTERN_C_END

#ifdef __cplusplus
// The calls on `char*`: each is the one above on the same bytes. Those that take null are templates, so that a null
// constant keeps to the call itself.
inline char* PStrCpy(char* dst, const char* src)
{
    return kz::AsChars(PStrCpy(kz::AsBytes(dst), kz::AsBytes(src)));
}
inline char* PStrNCpy(char* dst, const char* src, uInt32 n)
{
    return kz::AsChars(PStrNCpy(kz::AsBytes(dst), kz::AsBytes(src), n));
}
inline int32 PStrCat(char* dst, const char* src)
{
    return PStrCat(kz::AsBytes(dst), kz::AsBytes(src));
}
template <kz::Spelled<char> Byte>
inline char* PStrDup(const Byte* p)
{
    return kz::AsChars(PStrDup(kz::AsBytes(p)));
}
inline int32 PStrCmp(const char* a, const char* b)
{
    return PStrCmp(kz::AsBytes(a), kz::AsBytes(b));
}
inline int32 PStrCaseCmp(const char* a, const char* b)
{
    return PStrCaseCmp(kz::AsBytes(a), kz::AsBytes(b));
}
inline KzBool PStrEqual(const char* a, const char* b)
{
    return PStrEqual(kz::AsBytes(a), kz::AsBytes(b));
}
inline KzBool PStrCaseEqual(const char* a, const char* b)
{
    return PStrCaseEqual(kz::AsBytes(a), kz::AsBytes(b));
}
inline KzBool FileNameEqual(const char* a, const char* b)
{
    return FileNameEqual(kz::AsBytes(a), kz::AsBytes(b));
}
inline KzBool PStrSplitAtChar(const char* src, int32 ch, char* left, char* right)
{
    return PStrSplitAtChar(kz::AsBytes(src), ch, kz::AsBytes(left), kz::AsBytes(right));
}
inline KzBool PStrEndsWith(const char* p, const char* suffix)
{
    return PStrEndsWith(kz::AsBytes(p), suffix);
}
inline KzBool PStrEndsWith(const unsigned char* p, const unsigned char* suffix)
{
    return PStrEndsWith(p, kz::AsChars(suffix));
}
inline int32 PStrInPStr(const char* p, int32 start, const char* sub)
{
    return PStrInPStr(kz::AsBytes(p), start, kz::AsBytes(sub));
}
inline KzBool PStrFindReplace(char* dst, const char* src, const char* find, const char* replace)
{
    return PStrFindReplace(kz::AsBytes(dst), kz::AsBytes(src), find, replace);
}
inline KzBool PStrFindReplace(unsigned char* dst, const unsigned char* src, const unsigned char* find,
                              const unsigned char* replace)
{
    return PStrFindReplace(dst, src, kz::AsChars(find), kz::AsChars(replace));
}
template <kz::Spelled<char> Byte>
inline uInt32 PStrHash32(const Byte* p, KzBool ignoreCase)
{
    return PStrHash32(kz::AsBytes(p), ignoreCase);
}
inline int32 PStrTerminateIfPossible(char* p)
{
    return PStrTerminateIfPossible(kz::AsBytes(p));
}
inline int32 PStrNullTerminate(char* p)
{
    return PStrNullTerminate(kz::AsBytes(p));
}
inline int32 CToPStr(const char* c, char* p)
{
    return CToPStr(c, kz::AsBytes(p));
}
inline int32 CToPStr(const unsigned char* c, unsigned char* p)
{
    return CToPStr(kz::AsChars(c), p);
}
inline int32 PToCStr(const char* p, char* c)
{
    return PToCStr(kz::AsBytes(p), c);
}
inline int32 PToCStr(const unsigned char* p, unsigned char* c)
{
    return PToCStr(p, kz::AsChars(c));
}
#endif

#endif
