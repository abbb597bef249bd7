// From the source of a resource file to its header and its map in memory.
#ifndef KZCORE_RESOURCEREADING_H
#define KZCORE_RESOURCEREADING_H

#include "KZTypes.h"
#include "KzErr.h"
#include "ResourceFormat.h"

class PathRef;
class ZVHandle;
class ZVResfileIO;

// The operations of the format that need a source. ZVResFile derives from it, which gives them its name.
class ResourceReading : public ResourceFormat {
public:
    // Finds and reads the header: at the start, or, for a source opened read-only, where the last four bytes say.
    // `*shift` becomes its offset; mapOffset and dataOffset then count from the start of the source. Checked with
    // MeetsMinimalSanity unless weak validation is on. kzErrArgument: a null argument; kzErrEndOfFile: no 32 bytes;
    // kzErrResFileNotOpen: not a resource file; kzErrResFileVersion: version above 3; kzErrGeneric: not sane.
    static KzErr ReadRsrcHeader(ZVResfileIO* io, RsrcHeader* header, int32* shift);

    // Reads the two codes of a file on disk; either output may be null. The codes are 0 on failure, which is one of
    // opening or of ReadRsrcHeader.
    static KzErr RGetFileType(const PathRef& path, _FMFileType* type, _FMFileCreator* creator);
};

namespace kz {

// Whether header checks are skipped and maps are only converted; false unless the configuration asks for it. Any
// thread; a change counts for the files that are opened afterwards.
bool WeakRsrcFileValidation();
void SetWeakRsrcFileValidation(bool weak);

// Makes the map of the file that `header`, of ReadRsrcHeader with this `shift`, was read from: a block that holds at
// least a map's head, in host order and in the state that an open file keeps it in. The two offsets count from the
// start of the source in it, like those in `header`. kzErrResFileNotOpen: the source ends before the map;
// kzErrMemoryFull; kzErrGeneric: the map is not valid, with a report; kzErrIO: a weakly read map leads outside itself.
// std::bad_alloc when memory is full. On failure the block is undefined, and the caller's.
KzErr ReadOpenMap(ZVResfileIO* io, const RsrcHeader& header, int32 shift, ZVHandle* block);

}  // namespace kz

#endif
