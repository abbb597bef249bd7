// Text conversions of the C library: iconv, and wide text to UTF-8 whatever the locale. Any thread.
#ifndef KZCORE_PLATFORMCONVERT_H
#define KZCORE_PLATFORMCONVERT_H

#include <iconv.h>
#include <locale.h>

#include <cstddef>
#include <string>

namespace kz {

inline constexpr char kIconvUtf8[] = "UTF-8";
extern const char* const kIconvWide;  // the encoding of wchar_t

enum class IconvPair {
    kUtf8ToWide,
    kWideToUtf8,
};

enum class IconvResult {
    kDone,
    kNoConverter,
    kBadText,
};

// Converts `size` bytes. The room for the result starts at roomPerByte bytes for each of them and grows when it is
// full, by two for each byte left. `out` has what was converted before a fault, too. Throws std::bad_alloc.
//
// Each thread opens the converter of a pair once and closes it when it ends, since that takes as long as some hundred
// bytes of text.
IconvResult ConvertByIconv(IconvPair pair, const char* bytes, std::size_t size, std::size_t roomPerByte,
                           std::string& out);

// Puts a function in place of iconv_open, null for that itself; for tests of what happens without a converter.
using IconvOpener = iconv_t (*)(const char* to, const char* from);
void SetIconvOpener(IconvOpener opener);

// The locale "C.UTF-8"; null where the system has none. Never freed.
locale_t Utf8Locale();

// The size of a wide text, up to its first NUL, as UTF-8, or -1, with `errno` set, when it holds a value that is no
// character; and the bytes, of which no more than `size` are written, without a terminator. By `wcstombs` in the given
// locale of UTF-8, or by our own means when that is null.
std::size_t WideToUtf8Size(const wchar_t* text, locale_t locale);
std::size_t WideToUtf8(const wchar_t* text, locale_t locale, char* out, std::size_t size);

}  // namespace kz

#endif
