// The stored form of a resource file (docs/resource-file.md): its records, the conversion between file and host byte
// order, and the two validators, to which every file is untrusted input.
#ifndef KZCORE_RESOURCEFORMAT_H
#define KZCORE_RESOURCEFORMAT_H

#include <cstddef>

#include "KZTypes.h"
#include "KzErr.h"

class PathRef;
class ZVResfileIO;
struct RsrcHeader;
struct RsrcMap;

// The operations on whole headers and maps. ZVResFile derives from it, which gives them its name.
class ResourceFormat {
public:
    enum Direction { toFile = 0, toNative = 1 };

    // 0, or kzErrGeneric with a report when the map's copy of the header differs from the file's in anything but the
    // two offsets. Both are in host order.
    static KzErr VerifyRsrcHeaderAgreement(const RsrcHeader& header, RsrcMap* map);

    // Converts a map in place with no more tests than memory safety needs. `header` may be null; given toward native,
    // kzErrGeneric when the map does not agree with it. kzErrIO (6): an offset or count leads outside the map, which
    // is then converted in part.
    // Requires: the map's block holds at least kMapHeadSize bytes, and as many as its header says, or as `header` says.
    static KzErr StandardizeRsrcMap(RsrcMap* map, Direction direction, const RsrcHeader* header);

    // Converts a map as read from the file to host order and checks all of it: 0, or 1 and 7 to 24 for the first rule
    // that it breaks, in part converted then. std::bad_alloc when memory is full.
    // Requires: the map's block holds at least kMapHeadSize bytes and at least header.mapSize.
    static int32 NativizeAndValidateRsrcMap(RsrcMap* map, const RsrcHeader& header);

    // Finds and reads the header: at the start, or, for a source opened read-only, where the last four bytes say.
    // `*shift` becomes its offset; mapOffset and dataOffset then count from the start of the source. Checked with
    // MeetsMinimalSanity unless weak validation is on. kzErrArgument: a null argument; kzErrEndOfFile: no 32 bytes;
    // kzErrResFileNotOpen: not a resource file; kzErrResFileVersion: version above 3; kzErrGeneric: not sane.
    static KzErr ReadRsrcHeader(ZVResfileIO* io, RsrcHeader* header, int32* shift);

    // Reads the two codes of a file on disk; either output may be null. The codes are 0 on failure, which is one of
    // opening or of ReadRsrcHeader.
    static KzErr RGetFileType(const PathRef& path, _FMFileType* type, _FMFileCreator* creator);
};

// The records lie packed in files and maps, at offsets that need not be multiples of 4: no alignment is assumed.
struct __attribute__((packed)) RsrcHeader {
    unsigned char magic[4];
    unsigned char formatMark[2];
    uInt16 version;
    _FMFileType fileType;
    _FMFileCreator fileCreator;
    uInt32 mapOffset;   // from the start of the header
    uInt32 mapSize;     // bytes
    uInt32 dataOffset;  // from the start of the header
    uInt32 dataSize;    // bytes

    void InitEmptyHeader(_FMFileCreator creator, _FMFileType type);
    bool ValidMagicAndVersion() const;
    // Swaps the numbers in place; the direction makes no difference.
    void Endianize(ResourceFormat::Direction direction);
    // Reads at the source's position and converts. kzErrEndOfFile: fewer than 32 bytes are left.
    KzErr ReadFromIO(ZVResfileIO* io);
    // 0, or 1 to 10 for the first rule that the header breaks in a file of this many bytes.
    int32 MeetsMinimalSanity(int32 fileSize) const;
};

struct __attribute__((packed)) RsrcMap {
    RsrcHeader header;
    uInt32 reservedA;
    uInt32 reservedB;
    uInt32 fileAttrs;
    uInt32 typeMapOffset;    // from the start of the map
    uInt32 nameTableOffset;  // from the start of the map; 0 for none
};

struct __attribute__((packed)) TypeList {
    _ResourceType type;
    int32 lastRsrcIndex;  // resources of this type, less 1
    uInt32 listOffset;    // from the start of the TypeMap to the type's first RsrcList
};

struct __attribute__((packed)) TypeMap {
    uInt32 lastTypeIndex;  // types, less 1; so many TypeList and one more follow
};

struct __attribute__((packed)) RsrcList {
    int32 id;
    int32 nameOffset;  // from the start of the name table; -1 for none
    uInt32 attrs;
    uInt32 dataOffset;  // from the start of the data section to the block's length word
    uInt32 dataHolder;  // 0 in the file; in memory the cookie of the loaded Resource
};

static_assert(sizeof(RsrcHeader) == 32 && alignof(RsrcHeader) == 1);
static_assert(offsetof(RsrcHeader, formatMark) == 4 && offsetof(RsrcHeader, version) == 6);
static_assert(offsetof(RsrcHeader, fileType) == 8 && offsetof(RsrcHeader, fileCreator) == 12);
static_assert(offsetof(RsrcHeader, mapOffset) == 16 && offsetof(RsrcHeader, mapSize) == 20);
static_assert(offsetof(RsrcHeader, dataOffset) == 24 && offsetof(RsrcHeader, dataSize) == 28);
static_assert(sizeof(RsrcMap) == 52 && offsetof(RsrcMap, reservedA) == 32 && offsetof(RsrcMap, fileAttrs) == 40);
static_assert(offsetof(RsrcMap, typeMapOffset) == 44 && offsetof(RsrcMap, nameTableOffset) == 48);
static_assert(sizeof(TypeMap) == 4 && sizeof(TypeList) == 12 && alignof(TypeList) == 1);
static_assert(offsetof(TypeList, lastRsrcIndex) == 4 && offsetof(TypeList, listOffset) == 8);
static_assert(sizeof(RsrcList) == 20 && alignof(RsrcList) == 1);
static_assert(offsetof(RsrcList, nameOffset) == 4 && offsetof(RsrcList, attrs) == 8);
static_assert(offsetof(RsrcList, dataOffset) == 12 && offsetof(RsrcList, dataHolder) == 16);

namespace kz {

constexpr uInt32 kMapHeadSize = sizeof(RsrcMap);           // 52: where the TypeMap stands in a map of our own
constexpr uInt32 kSmallestTypeMapSize = kMapHeadSize + 1;  // 53: a smaller map has no TypeMap
constexpr uInt32 kSmallestMapSize = kMapHeadSize + sizeof(TypeMap) + sizeof(TypeList) + sizeof(RsrcList);  // 88
constexpr uInt16 kFormatVersion = 3;  // what a writer puts, and the newest that is read
constexpr int32 kBlockHeadSize = 4;   // the length word of a data block

// Whether header checks are skipped and maps are only converted; false unless the configuration asks for it.
bool WeakRsrcFileValidation();
void SetWeakRsrcFileValidation(bool weak);

// What follows walks a map in host order that one of the two conversions accepted. Pointers go into the map's block
// and end with its next resize.

// The TypeMap, or null when the map is too small to have one: the way into every walk.
TypeMap* GetTypeMap(RsrcMap* map);

inline TypeList* FirstType(TypeMap* types)
{
    return reinterpret_cast<TypeList*>(reinterpret_cast<unsigned char*>(types) + sizeof(TypeMap));
}

inline RsrcList* FirstEntry(TypeMap* types, const TypeList& list)
{
    return reinterpret_cast<RsrcList*>(reinterpret_cast<unsigned char*>(types) + list.listOffset);
}

// The number of types in the map, 0 without a TypeMap, and of resources in a list.
int32 TypeCount(RsrcMap* map);
inline int32 EntryCount(const TypeList& list)
{
    return list.lastRsrcIndex < 0 ? 0 : list.lastRsrcIndex + 1;
}

// The list of a type, or null; the last one when the type is listed twice.
TypeList* FindTypeList(RsrcMap* map, _ResourceType type);

// The entry with this id in a list sorted by id, or null.
RsrcList* SearchID(RsrcList* list, int32 count, int32 id);

// The name of an entry, or null when it has none.
const unsigned char* EntryName(const RsrcMap* map, const RsrcList& entry);

// Sorts each type's entries by id, where they are not sorted yet.
void SortRsrcIDs(RsrcMap* map);
bool RIsSorted(const RsrcList* list, int32 count);

}  // namespace kz

#endif
