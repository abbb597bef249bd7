// The values that all of the path layer shares: which root a path hangs from, how names compare, where a look-up in a
// cache goes on, what a flush removes, and the names of the text forms. Each is said here once.
#ifndef KZCORE_PATHTYPES_H
#define KZCORE_PATHTYPES_H

#include "KZTypes.h"

namespace kz {

// A base of PathRef, which makes these its own types. A using-enum declaration in PathRef would do the same, but g++ 12
// fails on enumerators that a template names through one.
struct PathTypes {
    // The root that a path hangs from: the place of that root in the table of bases. Not a path has none, and the null
    // path has one from which nothing valid hangs.
    enum PathBase : int32 { kAbsolute = 0, kRelative = 1, kUNC = 2, kNotAPath = 3, kNullPath = 4 };

    // How two names compare, byte for byte or without case, and whether Compare orders paths of different bases.
    enum ComparePolicy : int32 {
        kComparePlatform = 0,         // without case; different bases give -1
        kCompareExact = 1,            // byte for byte; bases are ordered
        kCompareCaseInsensitive = 2,  // without case; different bases give -1
        kCompareLexical = 3           // without case; bases are ordered
    };
};

// The names by which PathRef's text constructor, ToString and ConvertToString know the text forms.
inline constexpr char kDisplayForm[] = "pathref_display";
inline constexpr char kCommandLineForm[] = "pathref_commandline";
inline constexpr char kPlatformIndependentForm[] = "pathref_platformindependent";
inline constexpr char kPlatformAgnosticForm[] = "pathref_platformagnostic";
inline constexpr char kDOSForm[] = "pathref_dos";
inline constexpr char kUnixForm[] = "pathref_unix";

}  // namespace kz

// Where a cache look-up goes on when the element itself has no such item: to its ancestors up to the base, nowhere, or
// to all below, depth first.
enum PathSearchDirection : int32 { kSearchAncestors = 0, kSearchThisOnly = 1, kSearchDescendants = 2 };

// What a flush of an element's cache removes. PathRef::FlushCache is kFlushMetaDataAndOld.
enum PathFlushMethod : int32 {
    kFlushAll = 0,             // every item
    kFlushMetaDataAndOld = 1,  // items that depend on the file's metadata, and expired ones
    kFlushOld = 2,             // expired items
    kFlushSubtree = 3          // every item here and below
};

#endif
