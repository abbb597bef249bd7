// Conversions between counted strings and std::string, hashing and caseless comparison. Narrow text is UTF-8.
#ifndef KZCORE_STRINGUTILS_H
#define KZCORE_STRINGUTILS_H

#include <cstddef>
#include <string>
#include <string_view>

#include "KZTypes.h"
#include "ServiceObject.h"

// Conversions come in three forms. `ToX(source, out)` throws what std::string throws, usually std::bad_alloc.
// `ToXNoThrow(source, out)` gives kzErrArgument for a null `out`, kzErrMemoryFull, or 0, and leaves `out` valid.
// `ToX(source)` returns a new string. A null source is an empty one. Any thread.
//
// Case goes by two tables of the C library's single-byte mapping: ASCII until StringUtilsLocaleCache_Service has
// started, then the C locale of that moment.
class KZ_EXPORT StringUtils {
public:
    // Whether a conversion that is given an `LStr**` disposes the handle after it.
    enum DeallocationPolicy { kDoNotDeallocate = 0, kDeallocate = 1 };

    // A hash of at most 28 bits, the same in each process. It ends at the first NUL as well as at the length; with
    // ignoreCase each byte is put into upper case. Null hashes to 0.
    static uInt32 Hash(const char* bytes, uInt32 length, bool ignoreCase);
    static uInt32 Hash(const char* bytes, bool ignoreCase);
    static uInt32 Hash(const std::string& text, bool ignoreCase);

    // -1, 0 or 1: by the first two bytes that differ in lower case, as unsigned, then by length.
    static int32 CaseInsensitiveCompare(const char* a, std::size_t aLen, const char* b, std::size_t bLen);
    static int32 CaseInsensitiveCompare(const std::string& a, const std::string& b);
    static bool CaseInsensitiveEqual(const char* a, std::size_t aLen, const char* b, std::size_t bLen);
    static bool CaseInsensitiveEqual(const std::string& a, const std::string& b);

    static void ToNarrowString(const unsigned char* pstr, std::string& out);
    static void ToNarrowString(const LStr* text, std::string& out);
    static void ToNarrowString(const LStr* const* text, std::string& out);
    static void ToNarrowString(LStr** text, std::string& out);
    // Disposes the handle, if so told, when the conversion throws too.
    static void ToNarrowString(LStr** text, std::string& out, DeallocationPolicy policy);
    static void ToNarrowString(const std::string& text, std::string& out);

    static KzErr ToNarrowStringNoThrow(const unsigned char* pstr, std::string* out);
    static KzErr ToNarrowStringNoThrow(const LStr* text, std::string* out);
    static KzErr ToNarrowStringNoThrow(const LStr* const* text, std::string* out);
    static KzErr ToNarrowStringNoThrow(LStr** text, std::string* out);
    static KzErr ToNarrowStringNoThrow(LStr** text, std::string* out, DeallocationPolicy policy);
    static KzErr ToNarrowStringNoThrow(const std::string& text, std::string* out);

    static std::string ToNarrowString(const unsigned char* pstr);
    static std::string ToNarrowString(const LStr* text);
    static std::string ToNarrowString(const LStr* const* text);
    static std::string ToNarrowString(LStr** text);
    static std::string ToNarrowString(LStr** text, DeallocationPolicy policy);
    static std::string ToNarrowString(const std::string& text);

    // Into a buffer of 256 bytes; cut at 255 bytes, silently.
    static void ToPStr(const std::string& text, unsigned char* out);
    // kzErrArgument for null.
    static KzErr ToPStrNoThrow(const std::string& text, unsigned char* out);

    // Resizes the handle, or makes one where *out is null, also for an empty text. On failure *out is as it was.
    static void ToLStrHandle(const std::string& text, LStr**& out);
    static KzErr ToLStrHandleNoThrow(const std::string& text, LStr*** out);
    // A new handle, which the caller disposes.
    static LStr** ToLStrHandle(const std::string& text);

    // Exact bytes. A text shorter than the test gives false.
    static bool StartsWith(std::string_view text, std::string_view prefix);
    static bool StartsWith(std::string_view text, char first);
    static bool EndsWith(std::string_view text, std::string_view suffix);
    static bool EndsWith(std::string_view text, char last);

    // A PStr made from a string, for as long as the converter lives.
    class KZ_EXPORT Str255Converter {
    public:
        explicit Str255Converter(const std::string& text);
        unsigned char* String() { return mText; }
        const unsigned char* String() const { return mText; }

    private:
        unsigned char mText[256];
    };
};

// Fills the case tables from the C locale in force when it starts.
class StringUtilsLocaleCache_Service : public RefcountedServiceObject_T<StringUtilsLocaleCache_Service> {
public:
    const char* GetName() const override { return "StringUtilsLocaleCache"; }
    void GetDependencies(IServiceDependencyList*) const override {}

protected:
    KzErr _Init() override;
    KzErr _Uninit() override { return kzErrNone; }
};

KZ_EXPORT StringUtilsLocaleCache_Service* StringUtilsLocaleCacheService();

#endif
