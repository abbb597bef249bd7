// The conversions of StringUtils. Wide text goes to UTF-8 by iconv and to narrow by `wcstombs`, which differ in that
// the second ends at a NUL. Narrow text, which is UTF-8, goes to wide by our own decoder, which is several times as
// fast as iconv; where the decoder finds a fault, iconv starts afresh, because what becomes of the fault, and what is
// reported, is iconv's to say.
//
// Every conversion exists in three forms: one that throws, one that doesn't, and one that returns the result. Below
// each is written once, as an overload of Convert, and the public calls choose the form around it.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

#include "HandleText.h"
#include "KzAssert.h"
#include "Literals.h"
#include "MemoryManager.h"
#include "NeverDestroyed.h"
#include "PlatformConvert.h"
#include "PointerList.h"
#include "Report.h"
#include "StringLStrArray.h"
#include "StringUtils.h"
#include "Utf8Codec.h"

namespace {

constexpr char kModule[] = "source/StringUtils";

// The bytes may be null for a length of 0.
void Assign(std::string& out, const unsigned char* bytes, std::size_t length)
{
    out.assign(reinterpret_cast<const char*>(bytes), length);
}

// Runs what may throw and returns its code, or 0 where it has none. What a standard string throws means that memory is
// full.
template <typename Run>
KzErr NoThrow(const void* out, Run run)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    try {
        if constexpr (std::is_void_v<decltype(run())>) {
            run();
            return kzErrNone;
        } else {
            return run();
        }
    } catch (const std::exception&) {
        return kzErrMemoryFull;
    }
}

void Dispose(LStr** text)
{
    if (text != nullptr) {
        DSDisposeHandle(text);
    }
}

void Dispose(_LStrArray** array)
{
    ReallocLStrArrayHandle(&array, 0);
}

// Disposes a handle when the scope ends, if the policy says so.
template <typename Handle>
class DisposeByPolicy {
public:
    DisposeByPolicy(Handle handle, StringUtils::DeallocationPolicy policy) : mHandle(handle), mPolicy(policy) {}
    ~DisposeByPolicy()
    {
        if (mPolicy == StringUtils::kDeallocate) {
            Dispose(mHandle);
        }
    }
    DisposeByPolicy(const DisposeByPolicy&) = delete;
    DisposeByPolicy& operator=(const DisposeByPolicy&) = delete;

private:
    Handle mHandle;
    StringUtils::DeallocationPolicy mPolicy;
};

// 0, or kzErrArgument for a text that does not convert, after a report and with `out` empty.
KzErr WideToNarrow(const std::wstring& text, std::string& out)
{
    out.clear();
    // Measured first, because a text that can't be converted would else be found out half-way.
    const locale_t locale = kz::Utf8Locale();
    const std::size_t size = kz::WideToUtf8Size(text.c_str(), locale);
    if (size == static_cast<std::size_t>(-1)) {
        const int why = errno;  // before the report, which may change it
        KZ_REPORT(kDbgWarning, 0x2C81F05B) << "wcstombs failed: " << why;
        return kzErrArgument;
    }
    out.resize(size);
    if (kz::WideToUtf8(text.c_str(), locale, out.data(), size) != size) {
        out.clear();
        KZ_REPORT(kDbgWarning, 0x71B3D94E) << "wcstombs failed";
        return kzErrArgument;
    }
    return kzErrNone;
}

// `out` has what was converted, or nothing after an error.
KzErr Iconv(kz::IconvPair pair, const char* bytes, std::size_t size, std::string& out)
{
    // The room is enough both ways: a byte makes one character at most, and a character of four bytes four at most.
    const bool widens = pair == kz::IconvPair::kUtf8ToWide;
    const kz::IconvResult result = kz::ConvertByIconv(pair, bytes, size, widens ? sizeof(wchar_t) : 1, out);
    if (result == kz::IconvResult::kDone) {
        return kzErrNone;
    }
    // What was converted before the fault goes too: it could be taken for the whole text.
    out.clear();
    if (result == kz::IconvResult::kNoConverter) {
        return kzErrMemoryFull;
    }
    KZ_REPORT(kDbgWarning, 0x5E0A37C6) << "Unable to convert from " << (widens ? kz::kIconvUtf8 : kz::kIconvWide)
                                       << " to " << (widens ? kz::kIconvWide : kz::kIconvUtf8);
    return kzErrArgument;
}

// ---- One conversion for each pair of a source and a target, from which all three forms of a call are made ----
//
// Each returns the code that the NoThrow form passes on and leaves `out` empty with it. The others drop the code.

KzErr Convert(const unsigned char* pstr, std::string& out)
{
    if (pstr == nullptr) {
        out.clear();
    } else {
        Assign(out, pstr + 1, pstr[0]);
    }
    return kzErrNone;
}

KzErr Convert(const LStr* text, std::string& out)
{
    if (text == nullptr || text->cnt <= 0) {
        out.clear();
    } else {
        Assign(out, text->str, static_cast<std::size_t>(text->cnt));
    }
    return kzErrNone;
}

KzErr Convert(const LStr* const* text, std::string& out)
{
    const kz::HandleText held = kz::TextOf(text);
    Assign(out, held.bytes, static_cast<std::size_t>(held.count));
    return kzErrNone;
}

KzErr Convert(const CFString* text, std::string& out)
{
    out.clear();
    if (text != nullptr) {
        constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
        out.resize(text->GetUtf8(0, text->Length(), nullptr, kNoLimit));
        text->GetUtf8(0, text->Length(), reinterpret_cast<unsigned char*>(out.data()), out.size());
    }
    return kzErrNone;
}

KzErr Convert(const std::string& text, std::string& out)
{
    out = text;
    return kzErrNone;
}

KzErr Convert(const std::wstring& text, std::string& out)
{
    return WideToNarrow(text, out);
}

// Made beside the old texts, so that those stay when memory is full; what throws nothing clears them then.
KzErr Convert(_LStrArray** array, std::vector<std::string>& out)
{
    const int32 held = kz::EntriesOf(array);
    std::vector<std::string> texts(static_cast<std::size_t>(held));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        Convert((*array)->str[i], texts[i]);
    }
    out.swap(texts);
    return kzErrNone;
}

// Wide text as UTF-8, NULs too, which `wcstombs` would end at.
struct WithNuls {
    const std::wstring& text;
};

KzErr Convert(const WithNuls& wide, std::string& out)
{
    return StringUtils::iconv_WideToUTF8String(wide.text, out);
}

KzErr Convert(const std::string& text, std::wstring& out)
{
    return StringUtils::iconv_UTF8ToWideString(text, out);
}

// Whatever else becomes wide is narrow first.
template <typename Source>
KzErr Convert(const Source& source, std::wstring& out)
{
    std::string narrow;
    Convert(source, narrow);
    return StringUtils::iconv_UTF8ToWideString(narrow, out);
}

// The NoThrow form. When memory was full, `out` is empty, because a part of the text could be taken for the whole.
template <typename Source, typename Text>
KzErr ConvertNoThrow(const Source& source, Text* out)
{
    const KzErr error = NoThrow(out, [&] { return Convert(source, *out); });
    if (error == kzErrMemoryFull) {
        out->clear();
    }
    return error;
}

// The form that returns a new text.
template <typename Text, typename Source>
Text Converted(const Source& source)
{
    Text out;
    Convert(source, out);
    return out;
}

}  // namespace

const char* StringUtils::GetIconvUTF8EncodingString()
{
    return kz::kIconvUtf8;
}

const char* StringUtils::GetCurrentPlatformIconvWideEncodingString()
{
    return kz::kIconvWide;
}

KzErr StringUtils::iconv_UTF8ToWideString(const std::string& text, std::wstring& out)
{
    // Well-formed text, which iconv makes nothing else of, takes the short way, in room for as many characters as it
    // has first bytes.
    const unsigned char* at = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = at + text.size();
    out.resize(kz::CountUtf8Starts(at, end));
    const wchar_t* const outEnd = kz::DecodeWellFormedUtf8(at, end, out.data(), out.data() + out.size());
    out.resize(static_cast<std::size_t>(outEnd - out.data()));
    if (at == end) {
        return kzErrNone;
    }
    // iconv writes bytes, which become characters by a copy, since a string of bytes needs no alignment for them.
    std::string bytes;
    out.clear();
    const KzErr error = Iconv(kz::IconvPair::kUtf8ToWide, text.data(), text.size(), bytes);
    KZ_ASSERT(bytes.size() % sizeof(wchar_t) == 0);
    out.resize(bytes.size() / sizeof(wchar_t));
    std::memcpy(out.data(), bytes.data(), out.size() * sizeof(wchar_t));
    return error;
}

KzErr StringUtils::iconv_WideToUTF8String(const std::wstring& text, std::string& out)
{
    std::string bytes;
    const KzErr error = Iconv(kz::IconvPair::kWideToUtf8, reinterpret_cast<const char*>(text.data()),
                              text.size() * sizeof(wchar_t), bytes);
    out.assign(bytes);
    return error;
}

void StringUtils::ToNarrowString(const unsigned char* pstr, std::string& out)
{
    Convert(pstr, out);
}

void StringUtils::ToNarrowString(const LStr* text, std::string& out)
{
    Convert(text, out);
}

void StringUtils::ToNarrowString(const LStr* const* text, std::string& out)
{
    Convert(text, out);
}

void StringUtils::ToNarrowString(LStr** text, std::string& out)
{
    Convert(text, out);
}

void StringUtils::ToNarrowString(LStr** text, std::string& out, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(text, policy);
    Convert(text, out);
}

void StringUtils::ToNarrowString(const std::wstring& text, std::string& out)
{
    Convert(text, out);
}

void StringUtils::ToNarrowString(const std::string& text, std::string& out)
{
    Convert(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(const unsigned char* pstr, std::string* out)
{
    return ConvertNoThrow(pstr, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(const LStr* text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(const LStr* const* text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(LStr** text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(LStr** text, std::string* out, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(text, policy);
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(const std::wstring& text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToNarrowStringNoThrow(const std::string& text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

std::string StringUtils::ToNarrowString(const unsigned char* pstr)
{
    return Converted<std::string>(pstr);
}

std::string StringUtils::ToNarrowString(const LStr* text)
{
    return Converted<std::string>(text);
}

std::string StringUtils::ToNarrowString(const LStr* const* text)
{
    return Converted<std::string>(text);
}

std::string StringUtils::ToNarrowString(LStr** text)
{
    return Converted<std::string>(text);
}

std::string StringUtils::ToNarrowString(LStr** text, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(text, policy);
    return Converted<std::string>(text);
}

std::string StringUtils::ToNarrowString(const std::wstring& text)
{
    return Converted<std::string>(text);
}

std::string StringUtils::ToNarrowString(const std::string& text)
{
    return Converted<std::string>(text);
}

void StringUtils::ToWideString(const std::string& text, std::wstring& out)
{
    Convert(text, out);
}

void StringUtils::ToWideString(const unsigned char* pstr, std::wstring& out)
{
    Convert(pstr, out);
}

void StringUtils::ToWideString(const LStr* text, std::wstring& out)
{
    Convert(text, out);
}

void StringUtils::ToWideString(LStr** text, std::wstring& out)
{
    Convert(text, out);
}

void StringUtils::ToWideString(const CFString* text, std::wstring& out)
{
    Convert(text, out);
}

KzErr StringUtils::ToWideStringNoThrow(const std::string& text, std::wstring* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToWideStringNoThrow(const unsigned char* pstr, std::wstring* out)
{
    return ConvertNoThrow(pstr, out);
}

KzErr StringUtils::ToWideStringNoThrow(const LStr* text, std::wstring* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToWideStringNoThrow(LStr** text, std::wstring* out)
{
    return ConvertNoThrow(text, out);
}

KzErr StringUtils::ToWideStringNoThrow(const CFString* text, std::wstring* out)
{
    return ConvertNoThrow(text, out);
}

std::wstring StringUtils::ToWideString(const std::string& text)
{
    return Converted<std::wstring>(text);
}

std::wstring StringUtils::ToWideString(const unsigned char* pstr)
{
    return Converted<std::wstring>(pstr);
}

std::wstring StringUtils::ToWideString(const LStr* text)
{
    return Converted<std::wstring>(text);
}

std::wstring StringUtils::ToWideString(LStr** text)
{
    return Converted<std::wstring>(text);
}

std::wstring StringUtils::ToWideString(const CFString* text)
{
    return Converted<std::wstring>(text);
}

void StringUtils::ToUTF8String(const std::wstring& text, std::string& out)
{
    Convert(WithNuls{text}, out);
}

void StringUtils::ToUTF8String(const std::string& text, std::string& out)
{
    Convert(text, out);
}

KzErr StringUtils::ToUTF8StringNoThrow(const std::wstring& text, std::string* out)
{
    return ConvertNoThrow(WithNuls{text}, out);
}

KzErr StringUtils::ToUTF8StringNoThrow(const std::string& text, std::string* out)
{
    return ConvertNoThrow(text, out);
}

std::string StringUtils::ToUTF8String(const std::wstring& text)
{
    return Converted<std::string>(WithNuls{text});
}

std::string StringUtils::ToUTF8String(const std::string& text)
{
    return Converted<std::string>(text);
}

void StringUtils::ToPStr(const std::string& text, unsigned char* out)
{
    const std::size_t length = std::min(text.size(), kz::kMostInPStr);
    text.copy(reinterpret_cast<char*>(out + 1), length);
    out[0] = static_cast<unsigned char>(length);
}

void StringUtils::ToPStr(const std::wstring& text, unsigned char* out)
{
    ToPStr(ToNarrowString(text), out);
}

KzErr StringUtils::ToPStrNoThrow(const std::string& text, unsigned char* out)
{
    return NoThrow(out, [&] { ToPStr(text, out); });
}

KzErr StringUtils::ToPStrNoThrow(const std::wstring& text, unsigned char* out)
{
    // A text that doesn't convert leaves an empty PStr, like the form that drops the code.
    std::string narrow;
    const KzErr error = out == nullptr ? kzErrArgument : ToNarrowStringNoThrow(text, &narrow);
    if (out != nullptr) {
        ToPStr(narrow, out);
    }
    return error;
}

void StringUtils::ToLStrHandle(const std::string& text, LStr**& out)
{
    // The memory manager's failure becomes the exception that a standard string throws, which the form that throws
    // nothing turns back into a code.
    const std::size_t length = text.size();
    if (length > static_cast<std::size_t>(std::numeric_limits<int32>::max()) ||
        DSSetHandleSizeOrNewHandle(&out, length + sizeof(int32)) != kzErrNone) {
        throw std::bad_alloc();
    }
    text.copy(reinterpret_cast<char*>((*out)->str), length);
    (*out)->cnt = static_cast<int32>(length);
}

void StringUtils::ToLStrHandle(const std::wstring& text, LStr**& out)
{
    ToLStrHandle(ToNarrowString(text), out);
}

KzErr StringUtils::ToLStrHandleNoThrow(const std::string& text, LStr*** out)
{
    return NoThrow(out, [&] { ToLStrHandle(text, *out); });
}

KzErr StringUtils::ToLStrHandleNoThrow(const std::wstring& text, LStr*** out)
{
    return NoThrow(out, [&] {
        std::string narrow;
        const KzErr error = WideToNarrow(text, narrow);
        ToLStrHandle(narrow, *out);
        return error;
    });
}

LStr** StringUtils::ToLStrHandle(const std::string& text)
{
    LStr** handle = nullptr;
    ToLStrHandle(text, handle);
    return handle;
}

LStr** StringUtils::ToLStrHandle(const std::wstring& text)
{
    return ToLStrHandle(ToNarrowString(text));
}

void StringUtils::ToNarrowStringVector(_LStrArray** array, std::vector<std::string>& out)
{
    Convert(array, out);
}

void StringUtils::ToNarrowStringVector(_LStrArray** array, std::vector<std::string>& out, DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(array, policy);
    ToNarrowStringVector(array, out);
}

KzErr StringUtils::ToNarrowStringVectorNoThrow(_LStrArray** array, std::vector<std::string>* out)
{
    return ConvertNoThrow(array, out);
}

KzErr StringUtils::ToNarrowStringVectorNoThrow(_LStrArray** array, std::vector<std::string>* out,
                                               DeallocationPolicy policy)
{
    const DisposeByPolicy disposer(array, policy);
    return ToNarrowStringVectorNoThrow(array, out);
}

KzErr StringUtils::ToLStrArrayHandleNoThrow(const std::vector<std::string>& texts, _LStrArray*** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    if (texts.size() > static_cast<std::size_t>(std::numeric_limits<int32>::max())) {
        return kzErrMemoryFull;
    }
    // The new array is made beside the old one, so that a failure leaves *out as it was: whichever of the two isn't
    // kept in the end is disposed.
    _LStrArray** made = nullptr;
    KzErr error = ReallocLStrArrayHandle(&made, static_cast<int32>(texts.size()));
    for (std::size_t i = 0; i < texts.size() && error == kzErrNone; ++i) {
        if (!texts[i].empty()) {  // an empty text is null in an array
            error = ToLStrHandleNoThrow(texts[i], &(*made)->str[i]);
        }
    }
    ReallocLStrArrayHandle(error == kzErrNone ? out : &made, 0);
    if (error == kzErrNone) {
        *out = made;
    }
    return error;
}

KzErr StringUtils::ToCFStringNoThrow(const std::wstring& text, AutoCFString* out)
{
    return NoThrow(out, [&]() -> KzErr {
        std::string utf8;
        const KzErr error = iconv_WideToUTF8String(text, utf8);
        if (error != kzErrNone) {
            return error;
        }
        // iconv's result is valid, so that only memory can lack. The old text goes once the new one is whole.
        auto made = std::make_unique<CFString>();
        if (made->SetUtf8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size()) != CFString::kDone) {
            return kzErrMemoryFull;
        }
        out->Attach(made.release());
        return kzErrNone;
    });
}

KzErr StringUtils::AppendNoThrow(std::string* target, const char* text)
{
    return text == nullptr ? kzErrArgument : NoThrow(target, [&] { target->append(text); });
}

KzErr StringUtils::AppendNoThrow(std::string* target, const std::string& text)
{
    return NoThrow(target, [&] { target->append(text); });
}

KzErr StringUtils::AppendNoThrow(std::wstring* target, const std::wstring& text)
{
    return NoThrow(target, [&] { target->append(text); });
}

KzErr StringUtils::AssignNoThrow(std::string* target, const char* text)
{
    return text == nullptr ? kzErrArgument : NoThrow(target, [&] { target->assign(text); });
}

KzErr StringUtils::AssignNoThrow(std::string* target, const std::string& text)
{
    return NoThrow(target, [&] { target->assign(text); });
}

KzErr StringUtils::AssignNoThrow(std::wstring* target, const std::wstring& text)
{
    return NoThrow(target, [&] { target->assign(text); });
}

const std::string& StringUtils::EmptyNarrowString()
{
    static kz::NeverDestroyed<const std::string> sEmpty;
    return *sEmpty;
}

const std::wstring& StringUtils::EmptyWideString()
{
    static kz::NeverDestroyed<const std::wstring> sEmpty;
    return *sEmpty;
}

StringUtils::Str255Converter::Str255Converter(const std::string& text)
{
    static_assert(sizeof mText == kz::kMostInPStr + 1);
    ToPStr(text, mText);
}
