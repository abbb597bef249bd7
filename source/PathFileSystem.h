// Where paths and files meet: PathRef's questions about the file that it names. They are members of PathRef; this
// header holds what they share with later ones.
#ifndef KZCORE_PATHFILESYSTEM_H
#define KZCORE_PATHFILESYSTEM_H

namespace kz {

// The keys and lives of what PathRef caches about a file.
constexpr char kKnownFlavorKey[] = "FExists";
constexpr char kIsSpecialKey[] = "IsSpecial";
constexpr int kIsSpecialTimeToLiveMs = 4;

}  // namespace kz

#endif
