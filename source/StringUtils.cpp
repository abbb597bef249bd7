// The case tables are filled with the ASCII mapping when the library loads, so that hashes and comparisons made before
// the service starts agree with later ones on ASCII text. They keep their content when the service stops.
#include "StringUtils.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <limits>
#include <new>

#include "ByteCompare.h"
#include "MemoryManager.h"

namespace {

struct CaseTable {
    unsigned char map[256];

    unsigned char operator()(unsigned char c) const { return map[c]; }

    bool MapsAsciiLetters() const
    {
        constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz";
        return std::memcmp(map + int{'A'}, kLetters, 26) == 0 && std::memcmp(map + int{'a'}, kLetters, 26) == 0;
    }
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

// Stores only what differs: threads that use the library already then meet no write in the usual locales. The byte
// 0xFF, which widens to EOF, has no case.
void FillFromLocale(CaseTable& table, int (*mapping)(int))
{
    for (int c = 0; c < 255; ++c) {
        const unsigned char mapped = static_cast<unsigned char>(mapping(c));
        if (table.map[c] != mapped) {
            table.map[c] = mapped;
        }
    }
}

unsigned char SameByte(unsigned char c)
{
    return c;
}

// Each byte, sign-extended, is added to the hash shifted by four bits; what that brings into the top four bits is
// folded back into the lower ones, so that the hash keeps 28 bits. `sum` is not folded yet, which shortens the chain
// from one byte to the next.
template <typename Map>
uInt32 HashMapped(const char* bytes, std::size_t length, const Map& map)
{
    uInt32 sum = 0;
    for (std::size_t i = 0; i < length && bytes[i] != 0; ++i) {
        const uInt32 byte = map(static_cast<unsigned char>(bytes[i]));
        const uInt32 extended = (byte ^ 0x80) - 0x80;
        sum = ((sum << 4) ^ ((sum >> 20) & 0xF00)) + extended;
    }
    return (sum ^ ((sum >> 24) & 0xF0)) & 0x0FFFFFFF;
}

uInt32 HashBytes(const char* bytes, std::size_t length, bool ignoreCase)
{
    if (bytes == nullptr) {
        return 0;
    }
    return ignoreCase ? HashMapped(bytes, length, gUpper) : HashMapped(bytes, length, SameByte);
}

const unsigned char* Bytes(const char* text)
{
    return reinterpret_cast<const unsigned char*>(text);
}

void Assign(std::string& out, const unsigned char* bytes, std::size_t length)
{
    out.assign(reinterpret_cast<const char*>(bytes), length);
}

// Runs a conversion; what a std::string throws means that memory is full.
template <typename Convert>
KzErr NoThrow(const void* out, Convert convert)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    try {
        convert();
        return kzErrNone;
    } catch (const std::exception&) {
        return kzErrMemoryFull;
    }
}

// Disposes a handle when the scope ends, if the policy says so.
class DisposeByPolicy {
public:
    DisposeByPolicy(LStr** handle, StringUtils::DeallocationPolicy policy)
        : mHandle(policy == StringUtils::kDeallocate ? handle : nullptr)
    {}
    ~DisposeByPolicy()
    {
        if (mHandle != nullptr) {
            DSDisposeHandle(mHandle);
        }
    }
    DisposeByPolicy(const DisposeByPolicy&) = delete;
    DisposeByPolicy& operator=(const DisposeByPolicy&) = delete;

private:
    LStr** mHandle;
};

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
    const std::size_t n = std::min(aLen, bLen);
    const std::size_t i = kz::FirstFoldedDifference(Bytes(a), Bytes(b), n, gLower);
    if (i < n) {
        return gLower(Bytes(a)[i]) < gLower(Bytes(b)[i]) ? -1 : 1;
    }
    return aLen == bLen ? 0 : (aLen < bLen ? -1 : 1);
}

int32 StringUtils::CaseInsensitiveCompare(const std::string& a, const std::string& b)
{
    return CaseInsensitiveCompare(a.data(), a.size(), b.data(), b.size());
}

bool StringUtils::CaseInsensitiveEqual(const char* a, std::size_t aLen, const char* b, std::size_t bLen)
{
    return aLen == bLen && kz::FirstFoldedDifference(Bytes(a), Bytes(b), aLen, gLower) == aLen;
}

bool StringUtils::CaseInsensitiveEqual(const std::string& a, const std::string& b)
{
    return CaseInsensitiveEqual(a.data(), a.size(), b.data(), b.size());
}

void StringUtils::ToNarrowString(const unsigned char* pstr, std::string& out)
{
    if (pstr == nullptr) {
        out.clear();
    } else {
        Assign(out, pstr + 1, pstr[0]);
    }
}

void StringUtils::ToNarrowString(const LStr* text, std::string& out)
{
    if (text == nullptr || text->cnt <= 0) {
        out.clear();
    } else {
        Assign(out, text->str, static_cast<std::size_t>(text->cnt));
    }
}

void StringUtils::ToNarrowString(const LStr* const* text, std::string& out)
{
    ToNarrowString(text == nullptr ? nullptr : *text, out);
}

void StringUtils::ToNarrowString(LStr** text, std::string& out)
{
    ToNarrowString(static_cast<const LStr* const*>(text), out);
}

void StringUtils::ToNarrowString(LStr** text, std::string& out, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(text, policy);
    ToNarrowString(text, out);
}

void StringUtils::ToNarrowString(const std::string& text, std::string& out)
{
    out = text;
}

KzErr StringUtils::ToNarrowStringNoThrow(const unsigned char* pstr, std::string* out)
{
    return NoThrow(out, [&] { ToNarrowString(pstr, *out); });
}

KzErr StringUtils::ToNarrowStringNoThrow(const LStr* text, std::string* out)
{
    return NoThrow(out, [&] { ToNarrowString(text, *out); });
}

KzErr StringUtils::ToNarrowStringNoThrow(const LStr* const* text, std::string* out)
{
    return NoThrow(out, [&] { ToNarrowString(text, *out); });
}

KzErr StringUtils::ToNarrowStringNoThrow(LStr** text, std::string* out)
{
    return NoThrow(out, [&] { ToNarrowString(text, *out); });
}

KzErr StringUtils::ToNarrowStringNoThrow(LStr** text, std::string* out, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(text, policy);
    return NoThrow(out, [&] { ToNarrowString(text, *out); });
}

KzErr StringUtils::ToNarrowStringNoThrow(const std::string& text, std::string* out)
{
    return NoThrow(out, [&] { ToNarrowString(text, *out); });
}

std::string StringUtils::ToNarrowString(const unsigned char* pstr)
{
    std::string out;
    ToNarrowString(pstr, out);
    return out;
}

std::string StringUtils::ToNarrowString(const LStr* text)
{
    std::string out;
    ToNarrowString(text, out);
    return out;
}

std::string StringUtils::ToNarrowString(const LStr* const* text)
{
    std::string out;
    ToNarrowString(text, out);
    return out;
}

std::string StringUtils::ToNarrowString(LStr** text)
{
    std::string out;
    ToNarrowString(text, out);
    return out;
}

std::string StringUtils::ToNarrowString(LStr** text, DeallocationPolicy policy)
{
    std::string out;
    ToNarrowString(text, out, policy);
    return out;
}

std::string StringUtils::ToNarrowString(const std::string& text)
{
    return text;
}

void StringUtils::ToPStr(const std::string& text, unsigned char* out)
{
    const std::size_t length = std::min<std::size_t>(text.size(), 255);
    text.copy(reinterpret_cast<char*>(out + 1), length);
    out[0] = static_cast<unsigned char>(length);
}

KzErr StringUtils::ToPStrNoThrow(const std::string& text, unsigned char* out)
{
    return NoThrow(out, [&] { ToPStr(text, out); });
}

void StringUtils::ToLStrHandle(const std::string& text, LStr**& out)
{
    const std::size_t length = text.size();
    if (length > static_cast<std::size_t>(std::numeric_limits<int32>::max()) ||
        DSSetHandleSizeOrNewHandle(&out, length + sizeof(int32)) != kzErrNone) {
        throw std::bad_alloc();
    }
    text.copy(reinterpret_cast<char*>((*out)->str), length);
    (*out)->cnt = static_cast<int32>(length);
}

KzErr StringUtils::ToLStrHandleNoThrow(const std::string& text, LStr*** out)
{
    return NoThrow(out, [&] { ToLStrHandle(text, *out); });
}

LStr** StringUtils::ToLStrHandle(const std::string& text)
{
    LStr** handle = nullptr;
    ToLStrHandle(text, handle);
    return handle;
}

bool StringUtils::StartsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

bool StringUtils::StartsWith(std::string_view text, char first)
{
    return !text.empty() && text.front() == first;
}

bool StringUtils::EndsWith(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool StringUtils::EndsWith(std::string_view text, char last)
{
    return !text.empty() && text.back() == last;
}

StringUtils::Str255Converter::Str255Converter(const std::string& text)
{
    ToPStr(text, mText);
}

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
