// Counted strings (`LStr`): a 32-bit count, then that many bytes. Usable from C11 and C++20.
//
// An `LStr**` is a handle that the caller owns; null is an empty string. `cnt` tells the text, the block may be larger.
// Calls that take a handle cut a `cnt` that the block does not hold to what it holds; calls that take an `LStr*` rely
// on `cnt`. A negative one counts as 0, and so does that of a disposed handle, which is reported at level 4. Calls that
// neither make nor resize a handle also take, for one, the address of any pointer to a string, which may stand at any
// address, outside the memory manager too; they rely on its `cnt`.
//
// The source comes first in XToY, the destination elsewhere. An `LStr*` or C string destination has no limit but the
// caller's room. Calls that change a handle give kzErrArgument for null, and the memory manager's error when the block
// can't grow; the string then stays as it was. A source may lie inside the handle that is changed.
//
// Comparisons look at bytes as unsigned; the caseless ones put two bytes that differ through ToLower; the sign of a
// result is what to rely on. A handle that changes is held by one thread.
#ifndef KZCORE_STRINGLSTR_H
#define KZCORE_STRINGLSTR_H

#include "KZTypes.h"
#include "StringCStr.h"

KZ_EXTERN_C_BEGIN

// Makes *handle hold these bytes, in a block of exactly len + 4, made where *handle is null. With null bytes or a len
// of 0 the handle is disposed and *handle is null. kzErrArgument for a null `handle`, or bytes with a negative len;
// kzErrMemoryFull.
KZ_EXPORT KzErr LStrFromPtr(LStr*** handle, int32 len, const void* bytes);

// LStrFromPtr of a PStr, and of a C string; null is empty. An error is reported too, at level 2, with the text.
// PStrToDSLStr is another name of PToLHStr.
KZ_EXPORT KzErr PToLHStr(const unsigned char* p, LStr*** handle);
KZ_EXPORT KzErr PStrToDSLStr(const unsigned char* p, LStr*** handle);
KZ_EXPORT KzErr CToLHStr(const char* c, LStr*** handle);

// Each copies into the caller's block, which has room for 4 bytes and the text; null is empty. The source may be that
// block. Returns the length.
KZ_EXPORT int32 CToLStr(const char* c, LStr* dst);
KZ_EXPORT int32 PToLStr(const unsigned char* p, LStr* dst);

// Copies and terminates; null is empty; dst has room for the text and one byte. Returns the length, which is that of
// the C string unless the text holds a NUL.
KZ_EXPORT int32 LToCStr(const LStr* s, char* dst);

// Copies at most dstSize - 1 bytes and terminates; writes nothing for dstSize 0; null is empty. Returns the bytes
// copied. LToCStrNUnchecked is another name, for callers who mean that a NUL in the text is not looked for.
KZ_EXPORT int32 LToCStrN(const LStr* s, char* dst, int32 dstSize);
KZ_EXPORT int32 LToCStrNUnchecked(const LStr* s, char* dst, int32 dstSize);

// The same copy; the bytes copied go to *outLen unless it is null. kzErrEmbeddedNul, after the copy, if a NUL is among
// them. dstSize 0 gives 0 and leaves *outLen alone.
KZ_EXPORT KzErr LToCStrNChecked(const LStr* s, char* dst, int32 dstSize, int32* outLen);

// Copies; null is empty. Text over 255 bytes is cut with a report. Returns the count.
KZ_EXPORT int32 LToPStr(const LStr* s, unsigned char* p);

// Appends the low byte of c. Spare room in the block is used and kept; a block without any grows by a byte, so that a
// caller who appends much makes the room first.
KZ_EXPORT KzErr LStrAppendChar(LStr** handle, int32 c);

// Appends; spare room in the block is used and kept. A null src is empty.
KZ_EXPORT KzErr LStrCatEfficient(LStr** handle, const LStr* src);

// Appends, and leaves a block of exactly cnt + 4 bytes.
KZ_EXPORT KzErr LStrCat(LStr** handle, const LStr* src);

// Each appends in a block of exactly the new size, made where *handle is null. Null text gives 0; a null `handle`
// kzErrArgument.
KZ_EXPORT KzErr LStrAppendCStr(LStr*** handle, const char* c);
KZ_EXPORT KzErr LStrAppendPStr(LStr*** handle, const unsigned char* p);

// Puts c in front, in a block of exactly the new size. Does nothing and gives 0 if `handle`, *handle or c is null:
// unlike LStrAppendCStr it makes no handle.
KZ_EXPORT KzErr LStrPrependCStr(LStr*** handle, const char* c);

// Grows the block by a byte and the text by a NUL, which counts as text: `(*handle)->str` is then a C string, and cnt
// one more than its length. kzErrMemoryFull for a text of 2,147,483,647 bytes too.
KZ_EXPORT KzErr LStrHNullTerminate(LStr** handle);

// StrToUpper and StrToLower of the text, in its place and of its length; null gives 0. kzErrMemoryFull leaves the text
// as it was.
KZ_EXPORT KzErr LStrToUpper(LStr** handle);
KZ_EXPORT KzErr LStrToLower(LStr** handle);

// 0 for identical arguments; a null one is below text and equal to an empty one; the comparison of the bytes of the
// shorter length, then the count difference.
KZ_EXPORT int32 LStrCmp(const LStr* a, const LStr* b);
KZ_EXPORT int32 LHStrCmp(LStr* const* a, LStr* const* b);

// The folded difference of the first two bytes that differ when folded, then the count difference. A null `LStr*`
// is -1 or 1 against text, a null handle counts as 0 bytes.
KZ_EXPORT int32 LStrCaseCmp(const LStr* a, const LStr* b);
KZ_EXPORT int32 LHStrCaseCmp(LStr* const* a, LStr* const* b);

// Whether the texts are equal; null equals empty. Cheaper than a comparison where the counts differ.
KZ_EXPORT KzBool LStrEqual(const LStr* a, const LStr* b);
KZ_EXPORT KzBool LHStrEqual(LStr* const* a, LStr* const* b);
KZ_EXPORT KzBool LStrCaseEqual(const LStr* a, const LStr* b);

// The count difference if one is empty; else the difference of the first two bytes that differ; else the count
// difference.
KZ_EXPORT int32 PLStrCmp(const unsigned char* p, const LStr* s);
KZ_EXPORT int32 PLStrCaseCmp(const unsigned char* p, const LStr* s);

// Text by pointer and length. 0 for identical pointers, and for null against a length of 0; else null is below any
// other. Then the difference of the first two bytes that differ, then of the lengths.
KZ_EXPORT int32 PtrLenStrCmp(const void* a, int32 aLen, const void* b, int32 bLen);
KZ_EXPORT int32 PtrLenStrCaseCmp(const void* a, int32 aLen, const void* b, int32 bLen);

KZ_EXTERN_C_END

#ifdef __cplusplus
// The calls on the other character type: each is the one above on the same bytes. Those that take null are templates,
// so that a null constant keeps to the call itself.
template <kz::Spelled<char> Byte>
inline KzErr PToLHStr(const Byte* p, LStr*** handle)
{
    return PToLHStr(kz::AsBytes(p), handle);
}
template <kz::Spelled<char> Byte>
inline KzErr PStrToDSLStr(const Byte* p, LStr*** handle)
{
    return PStrToDSLStr(kz::AsBytes(p), handle);
}
template <kz::Spelled<unsigned char> Byte>
inline KzErr CToLHStr(const Byte* c, LStr*** handle)
{
    return CToLHStr(kz::AsChars(c), handle);
}
template <kz::Spelled<unsigned char> Byte>
inline int32 CToLStr(const Byte* c, LStr* dst)
{
    return CToLStr(kz::AsChars(c), dst);
}
template <kz::Spelled<char> Byte>
inline int32 PToLStr(const Byte* p, LStr* dst)
{
    return PToLStr(kz::AsBytes(p), dst);
}
inline int32 LToCStr(const LStr* s, unsigned char* dst)
{
    return LToCStr(s, kz::AsChars(dst));
}
inline int32 LToCStrN(const LStr* s, unsigned char* dst, int32 dstSize)
{
    return LToCStrN(s, kz::AsChars(dst), dstSize);
}
inline int32 LToCStrNUnchecked(const LStr* s, unsigned char* dst, int32 dstSize)
{
    return LToCStrNUnchecked(s, kz::AsChars(dst), dstSize);
}
inline KzErr LToCStrNChecked(const LStr* s, unsigned char* dst, int32 dstSize, int32* outLen)
{
    return LToCStrNChecked(s, kz::AsChars(dst), dstSize, outLen);
}
inline int32 LToPStr(const LStr* s, char* p)
{
    return LToPStr(s, kz::AsBytes(p));
}
template <kz::Spelled<unsigned char> Byte>
inline KzErr LStrAppendCStr(LStr*** handle, const Byte* c)
{
    return LStrAppendCStr(handle, kz::AsChars(c));
}
template <kz::Spelled<char> Byte>
inline KzErr LStrAppendPStr(LStr*** handle, const Byte* p)
{
    return LStrAppendPStr(handle, kz::AsBytes(p));
}
template <kz::Spelled<unsigned char> Byte>
inline KzErr LStrPrependCStr(LStr*** handle, const Byte* c)
{
    return LStrPrependCStr(handle, kz::AsChars(c));
}
inline int32 PLStrCmp(const char* p, const LStr* s)
{
    return PLStrCmp(kz::AsBytes(p), s);
}
inline int32 PLStrCaseCmp(const char* p, const LStr* s)
{
    return PLStrCaseCmp(kz::AsBytes(p), s);
}
#endif

#endif
