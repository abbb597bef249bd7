// What the C library's locale makes of single bytes, at the speed of a table.
#ifndef KZCORE_PLATFORMLOCALE_H
#define KZCORE_PLATFORMLOCALE_H

#include <ctype.h>

#include <cstring>

namespace kz {

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
