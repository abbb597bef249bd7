// Where paths and files meet: PathRef's questions about the file that it names. They are members of PathRef; this
// header holds the keys and lives of the facts about files that they keep in a path's cache.
#ifndef KZCORE_PATHFILESYSTEM_H
#define KZCORE_PATHFILESYSTEM_H

namespace kz {

// A CachedPathFlavor: whether there is anything at the path, as somebody has seen it.
constexpr char kKnownFlavorKey[] = "FExists";
// A CachedBool: what IsSpecial has found, for as long as this.
constexpr char kIsSpecialKey[] = "IsSpecial";
constexpr int kIsSpecialTimeToLiveMs = 4;

}  // namespace kz

#endif
