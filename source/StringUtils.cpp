// Hashes and caseless comparisons of narrow text, by two tables of 256 bytes.
//
// The tables have the ASCII mapping when the library loads, and keep it, so that hashes and comparisons made before the
// service starts agree with later ones on ASCII text, in whichever locale: one that pairs "i" and "I" with other
// letters changes nothing. The bytes from 0x80 up come from the locale in which the service starts. The tables keep
// their content when the service stops, because what was sorted or hashed by them may still be in use.
//
// The tables have no lock. Readers are too many and too short for one, so the start, which is the only writer, stores
// no more than what changes.
#include "StringUtils.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>

#include "ByteCompare.h"
#include "StringCStr.h"
#include "StringHash.h"

namespace {

// A folding that kz::FirstFoldedDifference takes.
struct CaseTable {
    unsigned char map[256];

    unsigned char operator()(unsigned char c) const { return map[c]; }

    // Always, which is what lets comparisons go by blocks.
    bool MapsAsciiLetters() const { return true; }
};

constexpr CaseTable AsciiTable(char first, char last, int shift)
{
    CaseTable table{};
    for (int c = 0; c < 256; ++c) {
        table.map[c] = static_cast<unsigned char>(c >= first && c <= last ? c + shift : c);
    }
    return table;
}

constinit CaseTable gLower = AsciiTable('A', 'Z', 'a' - 'A');
constinit CaseTable gUpper = AsciiTable('a', 'z', 'A' - 'a');

// Stores only what differs, because threads that use the library already then meet no write in the usual locales, which
// have no case in single bytes from 0x80 up. The byte 0xFF stays itself: it widens to EOF where `char` is signed, for
// which the C library has no case.
void FillFromLocale(CaseTable& table, int (*mapping)(int))
{
    for (int c = 0x80; c < 0xFF; ++c) {
        const unsigned char mapped = static_cast<unsigned char>(mapping(c));
        if (table.map[c] != mapped) {
            table.map[c] = mapped;
        }
    }
}

uInt32 HashBytes(const char* bytes, std::size_t length, bool ignoreCase)
{
    if (bytes == nullptr || !ignoreCase) {
        return kz::HashOfText(bytes, length);
    }
    return kz::HashOfMappedText(bytes, length, gUpper);
}

}  // namespace

uInt32 StringUtils::Hash(const char* bytes, uInt32 length, bool ignoreCase)
{
    return HashBytes(bytes, length, ignoreCase);
}

uInt32 StringUtils::Hash(const char* bytes, bool ignoreCase)
{
    return HashBytes(bytes, std::numeric_limits<uInt32>::max(), ignoreCase);
}

uInt32 StringUtils::Hash(const std::string& text, bool ignoreCase)
{
    return HashBytes(text.data(), text.size(), ignoreCase);
}

int32 StringUtils::CaseInsensitiveCompare(const char* a, std::size_t aLen, const char* b, std::size_t bLen)
{
    // The order is by the lower case on both sides: by the upper one "_" would change its place among the letters.
    const std::size_t n = std::min(aLen, bLen);
    const std::size_t i = kz::FirstFoldedDifference(kz::AsBytes(a), kz::AsBytes(b), n, gLower);
    if (i < n) {
        return gLower(kz::AsBytes(a)[i]) < gLower(kz::AsBytes(b)[i]) ? -1 : 1;
    }
    return aLen == bLen ? 0 : (aLen < bLen ? -1 : 1);
}

int32 StringUtils::CaseInsensitiveCompare(const std::string& a, const std::string& b)
{
    return CaseInsensitiveCompare(a.data(), a.size(), b.data(), b.size());
}

bool StringUtils::CaseInsensitiveEqual(const char* a, std::size_t aLen, const char* b, std::size_t bLen)
{
    return aLen == bLen && kz::FirstFoldedDifference(kz::AsBytes(a), kz::AsBytes(b), aLen, gLower) == aLen;
}

bool StringUtils::CaseInsensitiveEqual(const std::string& a, const std::string& b)
{
    return CaseInsensitiveEqual(a.data(), a.size(), b.data(), b.size());
}

StringUtilsLocaleCache_Service::StringUtilsLocaleCache_Service() : PlainService_T("StringUtilsLocaleCache") {}

KzErr StringUtilsLocaleCache_Service::_Init()
{
    FillFromLocale(gLower, std::tolower);
    FillFromLocale(gUpper, std::toupper);
    return kzErrNone;
}

StringUtilsLocaleCache_Service* StringUtilsLocaleCacheService()
{
    return KZSingleton_T<StringUtilsLocaleCache_Service>::Instance();
}
