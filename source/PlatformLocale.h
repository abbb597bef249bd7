// The C library's locales: one in force for a while, and what the present one makes of single bytes, at the speed of a
// table.
#ifndef KZCORE_PLATFORMLOCALE_H
#define KZCORE_PLATFORMLOCALE_H

#include <ctype.h>
#include <locale.h>

#include <cstring>

namespace kz {

// Puts a locale in force for the calling thread.
class ScopedLocale {
public:
    explicit ScopedLocale(locale_t locale) : mOld(uselocale(locale)) {}
    ~ScopedLocale() { uselocale(mOld); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    locale_t mOld;  // may be LC_GLOBAL_LOCALE, which stands for no locale of the thread's own
};

// The C locale, in which numbers read the same everywhere. It needs no memory, and is never freed.
inline locale_t CLocale()
{
    static const locale_t sLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    return sLocale;
}

// `tolower` of the calling thread's locale, as it is when the object is made. glibc keeps the mapping as a table of
// ints for the bytes; to ask for the table once makes a comparison several times as fast as a call for each byte.
class LocaleLower {
public:
    LocaleLower() : mTable(*__ctype_tolower_loc()) {}

    unsigned char operator()(unsigned char c) const { return static_cast<unsigned char>(mTable[c]); }

    // Whether the two cases of each ASCII letter map to the same, as they do outside the Turkic locales.
    bool MapsAsciiLetters() const { return std::memcmp(mTable + 'A', mTable + 'a', 26 * sizeof *mTable) == 0; }

private:
    const int* mTable;
};

}  // namespace kz

#endif
