// A thread keeps its two converters open, because to open one costs as much as to convert some hundred bytes. They
// stand in trivially destructible storage and are closed by a separate object at the thread's end: other objects of the
// thread may convert after that, and then open and close a converter of their own for each text.
#include "PlatformConvert.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "KZTypes.h"
#include "KzAssert.h"
#include "PlatformLocale.h"
#include "Utf8Codec.h"

namespace kz {

constinit const char* const kIconvWide = "UTF-32LE";

namespace {

constinit std::atomic<IconvOpener> gOpener{&iconv_open};
constinit std::atomic<locale_t> gUtf8Locale{nullptr};

// A descriptor stays usable while the thread's other objects are destroyed, since this itself is not.
struct Converters {
    iconv_t open[2];  // by pair, null where there is none
    bool ended;       // what is opened from now on is closed at once
};
constinit thread_local Converters tConverters = {};

struct ConvertersCloser {
    ~ConvertersCloser()
    {
        for (iconv_t& converter : tConverters.open) {
            if (converter != nullptr) {
                iconv_close(converter);
                converter = nullptr;
            }
        }
        tConverters.ended = true;
    }
    void Arm() {}
};
thread_local ConvertersCloser tConvertersCloser;

// The thread's converter for a pair, at the start of a text; null when it can't be opened.
class Converter {
public:
    explicit Converter(IconvPair pair) : mPlace(tConverters.open[static_cast<int>(pair)])
    {
        if (mPlace != nullptr) {
            // Back to the start state, because the text before may have ended in the middle of a character.
            iconv(mPlace, nullptr, nullptr, nullptr, nullptr);
            return;
        }
        const bool widens = pair == IconvPair::kUtf8ToWide;
        const iconv_t opened = gOpener.load()(widens ? kIconvWide : kIconvUtf8, widens ? kIconvUtf8 : kIconvWide);
        if (opened != reinterpret_cast<iconv_t>(-1)) {
            mPlace = opened;
            if (!tConverters.ended) {
                tConvertersCloser.Arm();
            }
        }
    }
    ~Converter()
    {
        if (mPlace != nullptr && tConverters.ended) {
            iconv_close(mPlace);
            mPlace = nullptr;
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    iconv_t Get() const { return mPlace; }

private:
    iconv_t& mPlace;
};

constexpr std::size_t kNoSize = static_cast<std::size_t>(-1);

// The C library's UTF-8 goes on to 6 bytes, for values that are no characters.
bool IsCharacter(wchar_t value)
{
    const uInt32 bits = static_cast<uInt32>(value);
    return bits <= kLastCodePoint && (bits < 0xD800 || bits > 0xDFFF);
}

}  // namespace

IconvResult ConvertByIconv(IconvPair pair, const char* bytes, std::size_t size, std::size_t roomPerByte,
                           std::string& out)
{
    KZ_ASSERT(bytes != nullptr || size == 0);
    out.resize(size * roomPerByte);
    const Converter converter(pair);
    if (converter.Get() == nullptr) {
        out.clear();
        return IconvResult::kNoConverter;
    }
    char* in = const_cast<char*>(bytes);  // iconv only reads it
    std::size_t written = 0;
    IconvResult result = IconvResult::kDone;
    while (size > 0) {
        char* target = out.data() + written;
        std::size_t room = out.size() - written;
        const std::size_t status = iconv(converter.Get(), &in, &size, &target, &room);
        const int error = errno;
        written = out.size() - room;
        if (status != kNoSize) {
            break;
        }
        if (error != E2BIG) {
            result = IconvResult::kBadText;
            break;
        }
        out.resize(out.size() + 2 * size);
    }
    out.resize(written);
    return result;
}

void SetIconvOpener(IconvOpener opener)
{
    gOpener = opener == nullptr ? &iconv_open : opener;
}

// Made by whoever comes first; a thread that loses the race frees its own, so that all share one.
locale_t Utf8Locale()
{
    locale_t locale = gUtf8Locale.load(std::memory_order_acquire);
    if (locale == nullptr) {
        const locale_t made = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        if (made != nullptr && !gUtf8Locale.compare_exchange_strong(locale, made)) {
            freelocale(made);
        } else {
            locale = made;
        }
    }
    return locale;
}

std::size_t WideToUtf8Size(const wchar_t* text, locale_t locale)
{
    std::size_t size = 0;
    for (const wchar_t* at = text; *at != 0; ++at) {
        // Looked at first even where the locale counts, because its own count passes values that are no characters.
        if (!IsCharacter(*at)) {
            errno = EILSEQ;
            return kNoSize;
        }
        size += Utf8Size(static_cast<uInt32>(*at));
    }
    if (locale != nullptr) {
        const ScopedLocale scope(locale);
        return std::wcstombs(nullptr, text, 0);
    }
    return size;
}

std::size_t WideToUtf8(const wchar_t* text, locale_t locale, char* out, std::size_t size)
{
    if (locale != nullptr) {
        const ScopedLocale scope(locale);
        return std::wcstombs(out, text, size);
    }
    unsigned char* target = reinterpret_cast<unsigned char*>(out);
    const unsigned char* const end = target + size;
    for (; *text != 0; ++text) {
        const uInt32 value = static_cast<uInt32>(*text);
        KZ_ASSERT(IsCharacter(*text));
        if (static_cast<std::size_t>(end - target) < Utf8Size(value)) {
            break;  // whole characters only, as wcstombs does
        }
        target = EncodeUtf8(value, target);
    }
    return size - static_cast<std::size_t>(end - target);
}

}  // namespace kz
