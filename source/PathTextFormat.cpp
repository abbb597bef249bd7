#include "PathTextFormat.h"

#include <cstring>
#include <memory>
#include <vector>

#include "KZApp.h"
#include "PathCache.h"
#include "PathItemStorage.h"
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

// How a format's text is made and kept.
struct TextForm {
    const char* format;
    const char* cacheKey;
    bool namesAFile;  // refuses what is no valid path with components
};

constexpr TextForm kTextForms[] = {{"pathref_display", "internal_display", false},
                                   {"pathref_unix", "internal_unix", false},
                                   {"pathref_commandline", "internal_commandline", true}};

// Null for an unknown format.
const TextForm* FindTextForm(const char* format)
{
    for (const TextForm& form : kTextForms) {
        if (std::strcmp(format, form.format) == 0) {
            return &form;
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
    const int32 base = PathItemStorage::BaseOf(*mPathElement);
    if (base == kAbsolute) {
        format.SetToAbsolutePath(text, count);
    } else if (base == kRelative) {
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
    const bool cached = TextsAreCached();
    if (cached) {
        const kz::ScopedLock lock(GetCacheMutex());
        PathItemElement* holder = nullptr;
        // An expired text is as good as a new one, so this look-up does without the clock.
        CachedItem* const item = mPathElement->GetCachedInformation(key, kSearchThisOnly, &holder);
        if (item != nullptr && item->IsA(CachedPathString::ClassName())) {
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
        const int32 base = mPathElement != nullptr ? PathItemStorage::BaseOf(*mPathElement) : kNotAPath;
        if (base == kUNC) {
            *text = kz::NotAPathText();
            return kzErrNone;
        }
        const TextForm* const form = FindTextForm(format);
        if (form == nullptr) {
            return kzErrNotSupported;
        }
        if (form->namesAFile && (ItemCount() == 0 || !IsValid())) {
            return kzErrArgument;
        }
        if (base != kAbsolute && base != kRelative) {
            *text = kz::NotAPathText();
            return base == kNotAPath ? kzErrNone : kzErrArgument;
        }
        PathTextFormatUNIX writer;
        return ToStringNoThrowCore(text, form->cacheKey, writer);
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
