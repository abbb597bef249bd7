// Resources for C++ callers: a small reader around a resource file or chain, with getters for strings.
#ifndef KZCORE_RFREADWRITE_H
#define KZCORE_RFREADWRITE_H

#include "KZTypes.h"
#include "ResFile.h"

// Reads from one ResChain, which it owns only if OpenPath made it. One thread at a time. Codes of the getters: those of
// the ResChain; kzErrResNotFound without an object; kzErrArgument for a null output where none may be null. Names are
// counted strings, string buffers have room for 256 bytes.
class KZ_EXPORT RFReader {
public:
    RFReader() = default;
    // Reads from `chain`, which may be null and must outlive the reader.
    explicit RFReader(ResChain* chain) : mChain(chain) {}
    // Reads from the object of a refnum; from none when it is unknown.
    explicit RFReader(RsrcFile refnum);
    virtual ~RFReader();
    RFReader(const RFReader&) = delete;
    RFReader& operator=(const RFReader&) = delete;

    // Opens a file and owns it; what the reader had before is given up. See ResFileFactory::ROpenPath.
    KzErr OpenPath(const PathRef& path, int32 mode, _FMFileType* type, _FMFileCreator* creator);
    // Closes and deletes the object, whoever made it: not for that of a refnum, which would go on naming it. Without
    // an object kzErrNotFound; else the result of its RCloseFile.
    KzErr Close();
    // The object. None is a defect, reported at level 4.
    ResChain* LowLevelResChain() const;

    // A resource's data and its size; each output may be null. The pointer is valid until the resource is released.
    KzErr PtrToResDataInternal(_ResourceType type, int32 id, const void** data, int32* size) const;
    KzErr PtrToResDataByNameInternal(_ResourceType type, const unsigned char* name, const void** data,
                                     int32* size) const;

    // A handle with a resource's data, which the caller owns; the resource is no longer loaded. Null on failure.
    KzErr AllocDSHandle(_ResourceType type, int32 id, UHandle* handle) const;
    KzErr AllocDSHandleByName(_ResourceType type, const unsigned char* name, UHandle* handle) const;

    // AllocDSHandle of type "STR ".
    KzErr GetString(int32 id, UHandle* handle) const;
    // The text of a "STR " resource, cut to the low 8 bits of its length; empty on failure.
    KzErr GetPStr(int32 id, unsigned char* str) const;
    // String `index`, from 1, of a "STR#" resource; empty on failure.
    KzErr GetIndString(unsigned char* str, int32 id, int32 index) const;

private:
    void GiveUp();

    bool mOwnsObject = false;
    ResChain* mChain = nullptr;
};

// A new reader on a refnum, which the caller deletes; null when memory is full.
KZ_EXPORT RFReader* CreateRFReader(RsrcFile refnum);

#endif
