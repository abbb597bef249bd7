// The system takes a path as one text, and a path is a chain that leads from its last name to the root. So the text is
// written from its end into a buffer of the greatest length that is allowed, without memory and without a walk to
// measure it first.
#include "PathManagerImplementation.h"

#include <sys/stat.h>

#include <string_view>

#include "KzAssert.h"
#include "PathItemElement.h"
#include "PathRef.h"

namespace {

constexpr std::string_view kUpDir = "..";
constexpr std::string_view kStopsText("/\0", 2);

// Writes "/name/name..." from its end; false for a name that the system can't take or when there is no room.
bool WriteBackwards(const PathItemElement& last, char* begin, char** at)
{
    for (const PathItemElement* item = &last; item->Count() > 0; item = item->Parent()) {
        const std::string_view name = item->Name().empty() ? kUpDir : std::string_view(item->Name());
        if (name.find_first_of(kStopsText) != std::string_view::npos ||
            name.size() + 1 > static_cast<size_t>(*at - begin)) {
            // A NUL would end the text early and a "/" cut a name in two: the system would be asked about another file.
            return false;
        }
        *at -= name.size();
        name.copy(*at, name.size());
        *--*at = '/';
    }
    return true;
}

}  // namespace

namespace kz {

KzErr PathToFileSystemText(const PathRef& path, std::string* text)
{
    KZ_ASSERT(text != nullptr);
    text->clear();
    // A relative path has no text here, because the process's current folder may have changed by the time the system
    // looks.
    if (path.Element() == nullptr || !path.StartsWith(PathRef::kAbsolute) || !path.IsValid()) {
        return kzErrArgument;
    }
    if (path.ItemCount() == 0) {
        *text = "/";
        return kzErrNone;
    }
    char buffer[kMaxFileSystemText];
    char* at = buffer + sizeof buffer;
    if (!WriteBackwards(*path.Element(), buffer, &at)) {
        return kzErrArgument;
    }
    text->assign(at, buffer + sizeof buffer);
    return kzErrNone;
}

bool IsSpecialFile(const PathRef& path)
{
    std::string text;
    struct stat info {};
    if (PathToFileSystemText(path, &text) != kzErrNone || lstat(text.c_str(), &info) != 0) {
        return false;
    }
    return !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode) && !S_ISLNK(info.st_mode);
}

}  // namespace kz
