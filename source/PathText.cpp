// One table holds all that is known about a text form: its name, the key under which an element keeps its text, how it
// is read and written, and which paths it refuses. A new form needs a name in PathTypes.h and its row here.
//
// A text that was made is kept in the element's cache, because the text is asked for often and never changes while the
// element lives. Real-time targets keep none, since they must not hold that memory.
#include "PathText.h"

#include <memory>
#include <string_view>
#include <type_traits>

#include "KZApp.h"
#include "KzAssert.h"
#include "Literals.h"
#include "NotStarted.h"
#include "PathCachedItem.h"
#include "PathFormatReader.h"
#include "PathItemStorage.h"
#include "PathNames.h"
#include "PathTextFormat.h"
#include "PathTreeWalk.h"
#include "ScopedLock.h"
#include "StaticObject.h"
#include "StringUtils.h"
#include "zvexcept.h"

namespace {

using kz::PathTypes;

constexpr char kModule[] = "source/PathText";

// Texts stay until their element is flushed: no change of the file makes one wrong.
constexpr int32 kTextTimeToLive = 0x7FFFFFFF;

struct Texts {
    kz::StaticObject<std::string> notAPath;     // stands for not a path
    kz::StaticObject<std::string> pathTooLong;  // stands for a path too long to print
    kz::StaticObject<std::string> emptyName;    // the name of a path without components
};
constinit Texts gTexts;

// ---- Reading ----

// Reads the whole text. A path that is not valid is an error, but `path` holds it all the same, because the display
// form compares two readings of one text.
template <typename Reader>
KzErr ReadWith(const std::string& text, kz::PathItemHold& path)
{
    Reader reader(&text);
    KzErr err = kzErrNone;
    PathItemElement* element = nullptr;
    {
        // The table of bases holds the start.
        kz::PathTreeWalk walk(PathItemStorage::Standard(reader.PathBase()));
        size_t offset = 0;
        size_t length = 0;
        std::string name;
        for (reader.Reset(&offset, &length); err == kzErrNone && reader.HasMore(&offset, &length);
             reader.GetNext(&offset, &length)) {
            if constexpr (std::is_same_v<Reader, WidePathFormat::PathFormatReaderUnix>) {
                err = walk.Append(reader.Element(offset, length));  // which knows ".." as well as Extract does
            } else {
                reader.Extract(&offset, &length, &name);
                err = walk.Append(name);
            }
        }
        if (err == kzErrNone) {
            element = walk.Take();
        }
    }
    path.Reset(element);
    if (err != kzErrNone) {
        return err;
    }
    return element != nullptr && element->IsValid() ? kzErrNone : kzErrArgument;
}

bool IsRelative(const PathItemElement* element)
{
    return element != nullptr && PathItemStorage::BaseOf(*element) == PathTypes::kRelative;
}

// The display form is the host's own, but a text with ":" and without "/" may be of the colon form. It is taken for
// that where both forms read it as relative and the colon form finds at least as many names in it.
KzErr ReadDisplay(const std::string& text, kz::PathItemHold& path)
{
    const KzErr err = ReadWith<WidePathFormat::PathFormatReaderUnix>(text, path);
    if (text.find(':') == std::string::npos || text.find('/') != std::string::npos) {
        return err;
    }
    kz::PathItemHold colonPath;
    if (ReadWith<WidePathFormat::PathFormatReaderMac>(text, colonPath) != kzErrNone || !IsRelative(colonPath.Get()) ||
        !IsRelative(path.Get()) || path.Get()->Count() > colonPath.Get()->Count()) {
        return err;
    }
    path.Reset(colonPath.Take());
    return kzErrNone;
}

// ---- Writing ----

// Tells a writer the path. The last element is followed by Finalize instead of a separator, so a path without
// components hears of neither; SetTo... has written all of it.
template <typename Writer>
void WriteWith(std::string* text, const PathItemElement& last)
{
    // Before the names, which may need memory that isn't there: a text that can't be made is empty.
    text->clear();
    const kz::PathNames names(last);
    const int32 count = names.Count();
    KZ_ASSERT(names.Above() != nullptr);
    Writer writer;
    const int32 base = PathItemStorage::BaseOf(last);
    if (base == PathTypes::kAbsolute) {
        writer.SetToAbsolutePath(text, count);
    } else if (base == PathTypes::kRelative) {
        writer.SetToRelativePath(text, count);
    } else {
        writer.SetToUNCPath(text, std::string(), count);
    }
    for (int32 index = 0; index < count; ++index) {
        const std::string& name = names[index];
        if (name.empty()) {
            writer.AppendUpDir(text, index, count);
        } else {
            writer.AppendElement(text, name, index);
        }
        if (index + 1 < count) {
            writer.AppendSeparator(text);
        } else {
            writer.Finalize(text, count);
        }
    }
}

// ---- The table ----

struct TextForm {
    const char* name;
    const char* cacheKey;
    KzErr (*read)(const std::string& text, kz::PathItemHold& path);
    void (*write)(std::string* text, const PathItemElement& last);
    bool namesAFile;  // refuses the empty text, and what is no valid path with components
};

constexpr auto kReadUnix = ReadWith<WidePathFormat::PathFormatReaderUnix>;
constexpr auto kWriteUnix = WriteWith<PathTextFormatUNIX>;

constexpr TextForm kTextForms[] = {{kz::kDisplayForm, "internal_display", ReadDisplay, kWriteUnix, false},
                                   {kz::kUnixForm, "internal_unix", kReadUnix, kWriteUnix, false},
                                   {kz::kCommandLineForm, "internal_commandline", kReadUnix, kWriteUnix, true}};

// Null for an unknown name, and for none.
const TextForm* FindTextForm(const char* name)
{
    for (const TextForm& form : kTextForms) {
        if (kz::SameText(name, form.name)) {
            return &form;
        }
    }
    return nullptr;
}

// ---- The cached text ----

bool TextsAreCached()
{
    IKZApp* const app = ::KZApp();
    return app == nullptr || !app->IsRealTimeTarget();
}

bool GetCachedText(PathItemElement* element, const char* key, std::string* text)
{
    const kz::ScopedLock lock(PathItemElement::mMutex);
    PathItemElement* holder = nullptr;
    // An expired text is as good as a new one, so this look-up does without the clock. A host may have put an item of
    // another class under the key, which is why the class is asked for.
    PathCachedItem* const item = element->GetCachedInformation(key, kSearchThisOnly, &holder);
    if (item == nullptr || !item->IsA(CachedPathString::ClassName())) {
        return false;
    }
    *text = static_cast<CachedPathString*>(item)->Get();
    return true;
}

void MakeText(PathItemElement* element, const TextForm& form, std::string* text)
{
    const bool cached = TextsAreCached();
    if (cached && GetCachedText(element, form.cacheKey, text)) {
        return;
    }
    form.write(text, *element);
    if (!cached) {
        return;
    }
    // A text that can't be kept is made again the next time.
    auto item = std::make_unique<CachedPathString>(*text, kTextTimeToLive, PathCachedItem::kIndependentOfMetaData);
    if (element->Cache(form.cacheKey, item.get()) == kzErrNone) {
        static_cast<void>(item.release());
    }
}

}  // namespace

namespace kz {

KzErr WritePathText(PathItemElement* element, std::string* text, const char* form)
{
    if (text == nullptr || form == nullptr) {
        return kzErrArgument;
    }
    return ErrOf(kModule, __LINE__, [&]() -> KzErr {
        const int32 base = element != nullptr ? PathItemStorage::BaseOf(*element) : PathTypes::kNotAPath;
        if (base == PathTypes::kUNC) {
            *text = NotAPathText();
            return kzErrNone;
        }
        const TextForm* const known = FindTextForm(form);
        if (known == nullptr) {
            return kzErrNotSupported;
        }
        if (known->namesAFile && (element == nullptr || element->Count() == 0 || !element->IsValid())) {
            return kzErrArgument;
        }
        // The null path and one below no known base get the text too, but as a fault.
        if (base != PathTypes::kAbsolute && base != PathTypes::kRelative) {
            *text = NotAPathText();
            return base == PathTypes::kNotAPath ? kzErrNone : kzErrArgument;
        }
        MakeText(element, *known, text);
        return kzErrNone;
    });
}

PathItemElement* ReadPathText(const std::string& text, const char* form)
{
    // Before the form is looked at: the text means the same in every one, known or not.
    if (StringUtils::CaseInsensitiveEqual(text, NotAPathText())) {
        return nullptr;
    }
    const TextForm* const known = FindTextForm(form);
    if (known != nullptr && known->namesAFile && text.empty()) {
        throw ZVExcept(kzErrArgument, "Empty command line strings cannot be converted to Path", kModule, __LINE__);
    }
    if (known != nullptr && PathItemStorage::Standard(PathTypes::kAbsolute) == nullptr) {
        throw ZVExcept(NotStarted("A path can't be made"), "PathRef from string constructor", kModule, __LINE__);
    }
    PathItemHold path;
    const KzErr err =
        known == nullptr ? kzErrNotSupported : ErrOf(kModule, __LINE__, [&] { return known->read(text, path); });
    if (err != kzErrNone) {
        throw ZVExcept(err, "PathRef from string constructor", kModule, __LINE__);
    }
    return path.Take();
}

std::string& NotAPathText()
{
    return *gTexts.notAPath.Get();
}

std::string& PathTooLongText()
{
    return *gTexts.pathTooLong.Get();
}

const std::string& EmptyPathName()
{
    return *gTexts.emptyName.Get();
}

void PlacePathTexts()
{
    gTexts.notAPath.Get();
    gTexts.pathTooLong.Get();
    gTexts.emptyName.Get();
}

}  // namespace kz
