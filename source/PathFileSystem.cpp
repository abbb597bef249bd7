// Facts about files go stale behind our back, so each answer is asked of the system anew, apart from whether a path is
// something special. That answer is kept for a few milliseconds, which spares a burst of questions the system calls.
#include "PathFileSystem.h"

#include <memory>

#include "FileManager.h"
#include "PathCachedItem.h"
#include "PathManagerImplementation.h"
#include "PathRef.h"

namespace {

// True if the cache of the path or of a folder on its way says that there is nothing.
bool IsKnownAbsent(const PathRef& path)
{
    using PathRefPrivate::CachedPathFlavor;
    bool found = false;
    const auto flavor = path.GetCached<CachedPathFlavor::Flavor, CachedPathFlavor>(kz::kKnownFlavorKey, &found,
                                                                                   kSearchAncestors, nullptr);
    return found && flavor == CachedPathFlavor::kAbsent;
}

}  // namespace

bool PathRef::Exists() const
{
    return FExists(this) != kFMAbsent;
}

bool PathRef::IsAFile() const
{
    return FExists(this) == kFMIsFile;
}

bool PathRef::IsADirectory() const
{
    return FExists(this) == kFMIsDirectory;
}

bool PathRef::IsSpecial() const
{
    if (ItemCount() == 0 || StartsWith(kRelative) || IsKnownAbsent(*this)) {
        return false;
    }
    // The cached answer is read and stored in two steps under the lock, with the system asked between them without it;
    // two threads may both ask, and store the same.
    bool found = false;
    const bool cached = GetCached<bool, CachedBool>(kz::kIsSpecialKey, &found, kSearchThisOnly, nullptr);
    if (found) {
        return cached;
    }
    const bool special = kz::IsSpecialFile(*this);
    auto item = std::make_unique<CachedBool>(special, kz::kIsSpecialTimeToLiveMs, CachedItem::kDependsOnMetaData);
    if (Cache(kz::kIsSpecialKey, item.get()) == kzErrNone) {
        static_cast<void>(item.release());
    }
    return special;
}
