// The stored form of a resource file (docs/resource-file.md): its records, the conversion between file and host byte
// order, and the two validators, to which every file is untrusted input. All of it works on memory and asks no source.
//
//     header     32 bytes; says where the other two parts are
//     data       blocks: a 32-bit length, that many bytes, zeros up to a multiple of 4
//     map        RsrcMap (a second copy of the header in it), TypeMap, TypeList..., RsrcList..., names
//
// A RsrcMap* is the start of a block that holds the whole map, which is why functions take a pointer where one record
// would do. Any thread may call anything here on records that no other thread uses meanwhile.
#ifndef KZCORE_RESOURCEFORMAT_H
#define KZCORE_RESOURCEFORMAT_H

#include <cstddef>

#include "KZTypes.h"
#include "KzErr.h"

class ZVResfileIO;
struct RsrcHeader;
struct RsrcMap;

// The operations on whole maps. ZVResFile derives from it, which gives them its name.
class ResourceFormat {
public:
    enum Direction { toFile = 0, toNative = 1 };

    // 0, or kzErrGeneric with a report when the map's copy of the header differs from the file's in anything but the
    // two offsets, which a file that stands at the end of another one has moved in one of them. Both are in host order.
    static KzErr VerifyRsrcHeaderAgreement(const RsrcHeader& header, RsrcMap* map);

    // Converts a map in place with no more tests than memory safety needs. `header` may be null; given toward native,
    // kzErrGeneric when the map does not agree with it. kzErrIO (6): an offset or count leads outside the map, which
    // is then converted in part.
    // The map's block holds at least kMapHeadSize bytes, and as many as its header says, or as `header` says.
    static KzErr StandardizeRsrcMap(RsrcMap* map, Direction direction, const RsrcHeader* header);

    // Converts a map as read from the file to host order and checks all of it: 0, or 1 and 7 to 24 for the first rule
    // that it breaks, in part converted then. std::bad_alloc when memory is full.
    // The map's block holds at least kMapHeadSize bytes and at least header.mapSize.
    static int32 NativizeAndValidateRsrcMap(RsrcMap* map, const RsrcHeader& header);
};

// The records lie packed in files and maps, at offsets that need not be multiples of 4: no alignment is assumed.
struct __attribute__((packed)) RsrcHeader {
    unsigned char magic[4];
    unsigned char formatMark[2];  // a line end, which a conversion of the file as text would have changed
    uInt16 version;
    _FMFileType fileType;
    _FMFileCreator fileCreator;
    uInt32 mapOffset;   // from the start of the header
    uInt32 mapSize;     // bytes
    uInt32 dataOffset;  // from the start of the header
    uInt32 dataSize;    // bytes

    // Makes the header of a file without resources, in host order.
    void InitEmptyHeader(_FMFileCreator creator, _FMFileType type);
    // Whether this is the header of a resource file, of this version or a later one. In host order.
    bool ValidMagicAndVersion() const;
    // Swaps the numbers in place; the direction makes no difference.
    void Endianize(ResourceFormat::Direction direction);
    // Reads at the source's position and converts. kzErrEndOfFile: fewer than 32 bytes are left. ResourceReading
    // defines it, because a source stands above the format.
    KzErr ReadFromIO(ZVResfileIO* io);
    // 0, or 1 to 10 for the first rule that the header breaks in a file of this many bytes.
    int32 MeetsMinimalSanity(int32 fileSize) const;
};

struct __attribute__((packed)) RsrcMap {
    RsrcHeader header;
    uInt32 reservedA;  // kept as found
    uInt32 reservedB;
    uInt32 fileAttrs;        // kRsrcMap... bits
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
    int32 nameOffset;   // from the start of the name table; -1 for none
    uInt32 attrs;       // kRsrc... bits
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

// The TypeMap of a map in host order, or null when the map is too small to have one: the way into every walk
// (ResourceMap.h), inlined for look-ups.
inline TypeMap* GetTypeMap(RsrcMap* map)
{
    const uInt32 mapSize = map->header.mapSize;
    const uInt32 offset = map->typeMapOffset;
    // A map that was read weakly may have its TypeMap anywhere.
    if (mapSize < kSmallestTypeMapSize || offset < kMapHeadSize || int64{offset} + int64{sizeof(TypeMap)} > mapSize) {
        return nullptr;
    }
    return reinterpret_cast<TypeMap*>(reinterpret_cast<unsigned char*>(map) + offset);
}

// Puts the mark into a header, of which version 2 had none.
void SetFormatMark(RsrcHeader* header);

}  // namespace kz

#endif
