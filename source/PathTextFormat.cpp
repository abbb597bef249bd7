#include "PathTextFormat.h"

#include <cstring>
#include <memory>
#include <vector>

#include "KZApp.h"
#include "PathCache.h"
#include "PathRef.h"
#include "ScopedLock.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/PathTextFormat";

// Texts stay until their element is flushed: no change of the file makes one wrong.
constexpr int32 kTextTimeToLive = 0x7FFFFFFF;

bool TextsAreCached()
{
    IKZApp* const app = ::KZApp();
    return app == nullptr || !app->IsRealTimeTarget();
}

// The key under which an element caches its text in this format; null for an unknown one.
const char* CacheKeyOf(const char* format)
{
    struct Format {
        const char* name;
        const char* key;
    };
    static constexpr Format kFormats[] = {{"pathref_display", "internal_display"},
                                          {"pathref_unix", "internal_unix"},
                                          {"pathref_commandline", "internal_commandline"}};
    for (const Format& known : kFormats) {
        if (std::strcmp(format, known.name) == 0) {
            return known.key;
        }
    }
    return nullptr;
}

}  // namespace

// ---- UNIX ----

void PathTextFormatUNIX::SetToAbsolutePath(std::string* text, int32 /*count*/)
{
    mAbsolute = true;
    *text = "/";
}

void PathTextFormatUNIX::SetToRelativePath(std::string* text, int32 count)
{
    *text = count == 0 ? "." : "";
}

void PathTextFormatUNIX::SetToUNCPath(std::string* /*text*/, const std::string& /*server*/, int32 /*count*/)
{
    mUNC = true;
}

void PathTextFormatUNIX::AppendElement(std::string* text, const std::string& name, int32 /*index*/)
{
    *text += name;
}

void PathTextFormatUNIX::AppendSeparator(std::string* text)
{
    *text += '/';
}

void PathTextFormatUNIX::AppendAbbreviationMark(std::string* text)
{
    *text += "...";
}

void PathTextFormatUNIX::AppendUpDir(std::string* text, int32 /*index*/, int32 /*count*/)
{
    *text += "..";
}

void PathTextFormatUNIX::Finalize(std::string* /*text*/, int32 /*count*/) {}

// ---- The driver ----

void PathRef::MakeText(std::string* text, PathTextFormat& format) const
{
    const int32 count = ItemCount();
    if (StartsWith(kAbsolute)) {
        format.SetToAbsolutePath(text, count);
    } else if (StartsWith(kRelative)) {
        format.SetToRelativePath(text, count);
    } else {
        format.SetToUNCPath(text, std::string(), count);
    }
    std::vector<const PathItemElement*> items(static_cast<size_t>(count));
    const PathItemElement* at = mPathElement;
    for (auto it = items.rbegin(); it != items.rend(); ++it, at = at->Parent()) {
        *it = at;
    }
    for (int32 index = 0; index < count; ++index) {
        const std::string& name = items[static_cast<size_t>(index)]->Name();
        if (name.empty()) {
            format.AppendUpDir(text, index, count);
        } else {
            format.AppendElement(text, name, index);
        }
        if (index + 1 < count) {
            format.AppendSeparator(text);
        } else {
            format.Finalize(text, count);
        }
    }
}

KzErr PathRef::ToStringNoThrowCore(std::string* text, const char* key, PathTextFormat& format) const
{
    if (mPathElement == nullptr || StartsWith(kNullPath)) {
        *text = kz::NotAPathText();
        return mPathElement == nullptr ? kzErrNone : kzErrArgument;
    }
    const bool cached = TextsAreCached();
    if (cached) {
        const kz::ScopedLock lock(GetCacheMutex());
        PathItemElement* holder = nullptr;
        if (CachedItem* const item =
                mPathElement->GetCached(key, CachedPathString::ClassName(), kSearchThisOnly, &holder)) {
            *text = static_cast<CachedPathString*>(item)->Get();
            return kzErrNone;
        }
    }
    text->clear();
    MakeText(text, format);
    if (cached) {
        auto item = std::make_unique<CachedPathString>(*text, kTextTimeToLive, CachedItem::kIndependentOfMetaData);
        if (mPathElement->Cache(key, item.get()) == kzErrNone) {
            static_cast<void>(item.release());
        }
    }
    return kzErrNone;
}

KzErr PathRef::ConvertToString(std::string* text, const char* format) const
{
    if (text == nullptr || format == nullptr) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        if (mPathElement != nullptr && StartsWith(kUNC)) {
            *text = kz::NotAPathText();
            return kzErrNone;
        }
        const char* const key = CacheKeyOf(format);
        if (key == nullptr) {
            return kzErrNotSupported;
        }
        if (std::strcmp(format, StringCommandLine()) == 0 && (ItemCount() == 0 || !IsValid())) {
            return kzErrArgument;
        }
        PathTextFormatUNIX writer;
        return ToStringNoThrowCore(text, key, writer);
    });
}

const std::string& PathRef::ToString(const char* format) const
{
    std::string& text = EnsureCache();
    const KzErr err = ConvertToString(&text, format);
    if (err != kzErrNone) {
        throw ZVExcept(err, "PathRef ToString", kModule, __LINE__);
    }
    return text;
}
