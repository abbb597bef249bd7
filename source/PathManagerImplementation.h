// What the path layer asks the operating system, and the one way from a path to the text that system calls take.
#ifndef KZCORE_PATHMANAGERIMPLEMENTATION_H
#define KZCORE_PATHMANAGERIMPLEMENTATION_H

#include <string>

#include "KZTypes.h"
#include "KzErr.h"

class PathRef;

namespace kz {

// Above this many bytes a path is refused.
constexpr int32 kMaxFileSystemText = 1024;

// The file-system text of an absolute path: "/" and the names, joined by "/"; an up dir is "..". kzErrArgument for any
// other path, for a name that holds "/" or NUL, and for a text above kMaxFileSystemText bytes; `*text` is then empty.
KzErr PathToFileSystemText(const PathRef& path, std::string* text);

// True if the path names something that is neither a file, a folder nor a link; false if it can't be told.
bool IsSpecialFile(const PathRef& path);

}  // namespace kz

#endif
