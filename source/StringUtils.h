// Conversions among counted strings, std::string, std::wstring and platform text; hashes, caseless comparison, and the
// small operations on texts that callers need again and again. Narrow text is UTF-8, wide text UTF-32.
#ifndef KZCORE_STRINGUTILS_H
#define KZCORE_STRINGUTILS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "KZTypes.h"
#include "PlatformText.h"
#include "ServiceObject.h"

struct _LStrArray;

// Conversions come in three forms. `ToX(source, out)` throws what a standard string throws, usually std::bad_alloc.
// `ToXNoThrow(source, out)` throws nothing: it gives kzErrArgument for a null `out`, kzErrMemoryFull, or 0, and leaves
// `out` valid. `ToX(source)` returns a new string. A null source is an empty one. Any thread.
//
// A text that is not well-formed cannot get from narrow to wide or back: that is reported at level 2, and the result is
// empty. The NoThrow forms then give kzErrArgument; the others only that empty result.
//
// Hashes and caseless comparisons of bytes go by two tables. Up to 0x7F they have the case of ASCII, whatever the
// locale. From 0x80 up they have none until StringUtilsLocaleCache_Service has started, then the C library's
// single-byte mapping in the locale of that moment, in which 0xFF is mapped to itself; another byte may be mapped to
// it. The counted strings' calls ask the C library instead, so the two disagree where its case of ASCII letters is
// another: under tr_TR CaseInsensitiveEqual takes "I" and "i" for equal, PStrCaseEqual does not.
//
// An `LStr**` that is only read may be a handle or the address of any pointer to a string, as for StringLStr.h.
class KZ_EXPORT StringUtils {
public:
    // Whether a conversion that is given a handle disposes it afterwards, also when it fails.
    enum DeallocationPolicy { kDoNotDeallocate = 0, kDeallocate = 1 };

    // Which ends Trim works on, as a sum.
    enum TrimMode { kTrimLeft = 1, kTrimRight = 2, kTrimBoth = 3 };

    // What Split does with items without text.
    enum SplitMode { kSplitKeepEmpty = 0, kSplitDropEmpty = 1 };

    // A hash of at most 28 bits, the same in each process, but for bytes from 0x80 up with ignoreCase, which puts each
    // byte into upper case. It ends at the first NUL as well as at the length, so that a text has one hash whether its
    // terminator was counted or not. Null hashes to 0.
    static uInt32 Hash(const char* bytes, uInt32 length, bool ignoreCase);
    static uInt32 Hash(const char* bytes, bool ignoreCase);
    static uInt32 Hash(const std::string& text, bool ignoreCase);

    // -1, 0 or 1: by the first two characters that differ in lower case, bytes as unsigned, then by length: "a" is
    // below "AB", and "_" below every letter. NULs are characters like others. For wide text the C library's `tolower`,
    // in the locale of the call, maps what is a byte, and nothing else.
    static int32 CaseInsensitiveCompare(const char* a, std::size_t aLen, const char* b, std::size_t bLen);
    static int32 CaseInsensitiveCompare(const std::string& a, const std::string& b);
    static int32 CaseInsensitiveCompare(const wchar_t* a, std::size_t aLen, const wchar_t* b, std::size_t bLen);
    static int32 CaseInsensitiveCompare(const std::wstring& a, const std::wstring& b);
    static bool CaseInsensitiveEqual(const char* a, std::size_t aLen, const char* b, std::size_t bLen);
    static bool CaseInsensitiveEqual(const std::string& a, const std::string& b);
    static bool CaseInsensitiveEqual(const wchar_t* a, std::size_t aLen, const wchar_t* b, std::size_t bLen);
    static bool CaseInsensitiveEqual(const std::wstring& a, const std::wstring& b);

    // To narrow text. Wide text ends at its first NUL; that of a PStr, an LStr or a std::string is copied whole, NULs
    // too, and not looked at: what is not UTF-8 stays as it is.
    static void ToNarrowString(const unsigned char* pstr, std::string& out);
    static void ToNarrowString(const LStr* text, std::string& out);
    static void ToNarrowString(const LStr* const* text, std::string& out);
    static void ToNarrowString(LStr** text, std::string& out);
    static void ToNarrowString(LStr** text, std::string& out, DeallocationPolicy policy);
    static void ToNarrowString(const std::wstring& text, std::string& out);
    static void ToNarrowString(const std::string& text, std::string& out);

    static KzErr ToNarrowStringNoThrow(const unsigned char* pstr, std::string* out);
    static KzErr ToNarrowStringNoThrow(const LStr* text, std::string* out);
    static KzErr ToNarrowStringNoThrow(const LStr* const* text, std::string* out);
    static KzErr ToNarrowStringNoThrow(LStr** text, std::string* out);
    static KzErr ToNarrowStringNoThrow(LStr** text, std::string* out, DeallocationPolicy policy);
    static KzErr ToNarrowStringNoThrow(const std::wstring& text, std::string* out);
    static KzErr ToNarrowStringNoThrow(const std::string& text, std::string* out);

    static std::string ToNarrowString(const unsigned char* pstr);
    static std::string ToNarrowString(const LStr* text);
    static std::string ToNarrowString(const LStr* const* text);
    static std::string ToNarrowString(LStr** text);
    static std::string ToNarrowString(LStr** text, DeallocationPolicy policy);
    static std::string ToNarrowString(const std::wstring& text);
    static std::string ToNarrowString(const std::string& text);

    // To wide text, one character for each of UTF-8. NULs stay.
    static void ToWideString(const std::string& text, std::wstring& out);
    static void ToWideString(const unsigned char* pstr, std::wstring& out);
    static void ToWideString(const LStr* text, std::wstring& out);
    static void ToWideString(LStr** text, std::wstring& out);
    static void ToWideString(const CFString* text, std::wstring& out);

    static KzErr ToWideStringNoThrow(const std::string& text, std::wstring* out);
    static KzErr ToWideStringNoThrow(const unsigned char* pstr, std::wstring* out);
    static KzErr ToWideStringNoThrow(const LStr* text, std::wstring* out);
    static KzErr ToWideStringNoThrow(LStr** text, std::wstring* out);
    static KzErr ToWideStringNoThrow(const CFString* text, std::wstring* out);

    static std::wstring ToWideString(const std::string& text);
    static std::wstring ToWideString(const unsigned char* pstr);
    static std::wstring ToWideString(const LStr* text);
    static std::wstring ToWideString(LStr** text);
    static std::wstring ToWideString(const CFString* text);

    // To UTF-8, NULs too, which is what sets it apart from ToNarrowString. From narrow text it is a copy.
    static void ToUTF8String(const std::wstring& text, std::string& out);
    static void ToUTF8String(const std::string& text, std::string& out);
    static KzErr ToUTF8StringNoThrow(const std::wstring& text, std::string* out);
    static KzErr ToUTF8StringNoThrow(const std::string& text, std::string* out);
    static std::string ToUTF8String(const std::wstring& text);
    static std::string ToUTF8String(const std::string& text);

    // Into a buffer of 256 bytes; cut at 255 bytes, silently, where the cut may part a character. A wide text that does
    // not convert leaves an empty PStr.
    static void ToPStr(const std::string& text, unsigned char* out);
    static void ToPStr(const std::wstring& text, unsigned char* out);
    static KzErr ToPStrNoThrow(const std::string& text, unsigned char* out);
    static KzErr ToPStrNoThrow(const std::wstring& text, unsigned char* out);

    // Resizes the handle, or makes one where *out is null, also for an empty text. Out of memory leaves *out as it was.
    static void ToLStrHandle(const std::string& text, LStr**& out);
    static void ToLStrHandle(const std::wstring& text, LStr**& out);
    static KzErr ToLStrHandleNoThrow(const std::string& text, LStr*** out);
    static KzErr ToLStrHandleNoThrow(const std::wstring& text, LStr*** out);
    // A new handle, which the caller disposes.
    static LStr** ToLStrHandle(const std::string& text);
    static LStr** ToLStrHandle(const std::wstring& text);

    // One string for each entry of the array, an empty one for null, in the place of what was in `out`.
    static void ToNarrowStringVector(_LStrArray** array, std::vector<std::string>& out);
    static void ToNarrowStringVector(_LStrArray** array, std::vector<std::string>& out, DeallocationPolicy policy);
    static KzErr ToNarrowStringVectorNoThrow(_LStrArray** array, std::vector<std::string>* out);
    static KzErr ToNarrowStringVectorNoThrow(_LStrArray** array, std::vector<std::string>* out,
                                             DeallocationPolicy policy);

    // Makes *out an array of the texts, with null for empty ones, and disposes the array that was there; null for no
    // texts. On failure *out is as it was.
    static KzErr ToLStrArrayHandleNoThrow(const std::vector<std::string>& texts, _LStrArray*** out);

    // Puts a new platform text into `out`, in the place of the one it owns; on failure that one stays.
    static KzErr ToCFStringNoThrow(const std::wstring& text, AutoCFString* out);

    // The conversions proper, through iconv. 0; kzErrArgument for a text that is not well-formed, which is reported;
    // kzErrMemoryFull when there is no converter. `out` is empty after an error. Throw std::bad_alloc.
    static KzErr iconv_UTF8ToWideString(const std::string& text, std::wstring& out);
    static KzErr iconv_WideToUTF8String(const std::wstring& text, std::string& out);
    // What iconv calls the two encodings.
    static const char* GetIconvUTF8EncodingString();
    static const char* GetCurrentPlatformIconvWideEncodingString();

    // The standard operation; kzErrArgument for a null target or text, kzErrMemoryFull with the target as it was. The
    // text may be the target.
    static KzErr AppendNoThrow(std::string* target, const char* text);
    static KzErr AppendNoThrow(std::string* target, const std::string& text);
    static KzErr AppendNoThrow(std::wstring* target, const std::wstring& text);
    static KzErr AssignNoThrow(std::string* target, const char* text);
    static KzErr AssignNoThrow(std::string* target, const std::string& text);
    static KzErr AssignNoThrow(std::wstring* target, const std::wstring& text);

    // A shared empty string, for calls that return a reference. It is never destroyed, so that exit handlers may use
    // it.
    static const std::string& EmptyNarrowString();
    static const std::wstring& EmptyWideString();

    // Whether the text begins or ends so, in exactly these characters. A text shorter than the test gives false; each
    // begins and ends with the empty one.
    static bool StartsWith(std::string_view text, std::string_view prefix);
    static bool StartsWith(std::string_view text, char first);
    static bool StartsWith(std::wstring_view text, std::wstring_view prefix);
    static bool StartsWith(std::wstring_view text, wchar_t first);
    static bool EndsWith(std::string_view text, std::string_view suffix);
    static bool EndsWith(std::string_view text, char last);
    static bool EndsWith(std::wstring_view text, std::wstring_view suffix);
    static bool EndsWith(std::wstring_view text, wchar_t last);

    // The first or last n characters; the whole text for 0 and for more than there are.
    static std::string Left(const std::string& text, std::size_t n);
    static std::wstring Left(const std::wstring& text, std::size_t n);
    static std::string Right(const std::string& text, std::size_t n);
    static std::wstring Right(const std::wstring& text, std::size_t n);

    // In place, each byte by the C library's mapping in the current locale; of wide text what is a byte.
    static void ToUpperCase(std::string& text);
    static void ToUpperCase(std::wstring& text);
    static void ToLowerCase(std::string& text);
    static void ToLowerCase(std::wstring& text);

    // Removes spaces and tabs, but no line breaks, from the ends that the TrimMode names.
    static void Trim(std::string& text, int32 mode);
    static void Trim(std::wstring& text, int32 mode);

    // The texts between the characters of `delimiters`: n of them in the text make n + 1 items, an empty text makes
    // one. With kSplitDropEmpty the empty ones are left out; any other mode keeps them. ",a;b" at ",;" makes "", "a"
    // and "b", or the last two of them. `out` is replaced.
    static void Split(const std::string& text, const std::string& delimiters, std::vector<std::string>& out,
                      int32 mode);
    static void Split(const std::wstring& text, const std::wstring& delimiters, std::vector<std::wstring>& out,
                      int32 mode);

    // The items with the separator between them; no items make an empty text. `out` is replaced, and may be the
    // separator or an item.
    static void Join(const std::vector<std::string>& items, const std::string& separator, std::string& out);
    static void Join(const std::vector<std::wstring>& items, const std::wstring& separator, std::wstring& out);

    // Puts `replace` in the place of each `find`, from left to right, without looking at what it has put there: "aa" in
    // the place of "a" doubles each. A null text and an empty `find` do nothing.
    static void SearchAndReplace(std::string* text, const std::string& find, const std::string& replace);
    static void SearchAndReplace(std::wstring* text, const std::wstring& find, const std::wstring& replace);

    // Removes each marker and what follows it in its line; the line's CR or LF stays. An empty marker is none.
    static void RemoveLineComments(std::string& text, const std::string& marker);
    static void RemoveLineComments(std::wstring& text, const std::wstring& marker);

    // Removes from each open marker to the end of the next close marker; comments don't nest. One that is not closed
    // stays, with all that follows. An empty open marker is none; an empty close marker removes the open ones alone.
    static void RemoveBlockComments(std::string& text, const std::string& open, const std::string& close);
    static void RemoveBlockComments(std::wstring& text, const std::wstring& open, const std::wstring& close);

    // Whether it begins and ends with `"`, or with `'`; a quote alone does both.
    static bool IsSurroundedByQuotes(const std::string& text);
    static bool IsSurroundedByQuotes(const std::wstring& text);

    // A PStr made from a string as by ToPStr, for as long as the converter lives: `Str255Converter(text).String()` in
    // the argument of a call. The PStr may be written to.
    class KZ_EXPORT Str255Converter {
    public:
        explicit Str255Converter(const std::string& text);
        unsigned char* String() { return mText; }
        const unsigned char* String() const { return mText; }

    private:
        unsigned char mText[256];
    };
};

// Fills the case tables, from 0x80 up, from the C locale in force when it starts. They stay when it stops. A host that
// sets its locale does so before the start, because hashes and orders made earlier may differ from later ones. In
// locales of UTF-8, where no such byte has case, nothing changes.
class StringUtilsLocaleCache_Service : public PlainService_T<StringUtilsLocaleCache_Service> {
    friend KZ_GammaPolicy<StringUtilsLocaleCache_Service>;

    StringUtilsLocaleCache_Service();
    KzErr _Init() override;
};

KZ_EXPORT StringUtilsLocaleCache_Service* StringUtilsLocaleCacheService();

#endif
