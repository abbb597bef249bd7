// The open resource file: a source, its map in host byte order, and the resources loaded on demand.
//
//     state     entered by                   source        map
//     closed    constructor, RCloseFile      none or old   none: look-ups give kzErrResFileNotOpen
//     open      Open                         owned         of ReadOpenMap's, never changed but by marks
//
// Maps, jars and caches of all files are under one lock (LoadedMap.h); a public operation takes it and calls the
// ...Locked members. A report is made after the lock is given back, as its handler may ask for resources; made under
// it are only reports of defects, and those of other modules while a resource is loaded or dropped.
#ifndef KZCORE_ZVRESFILE_H
#define KZCORE_ZVRESFILE_H

#include <memory>

#include "KZTypes.h"
#include "KzErr.h"
#include "LoadedMap.h"
#include "ResFile.h"
#include "ResourceReading.h"
#include "ThreadAnnotations.h"
#include "ZVResfileIO.h"

// What a caller asks of an opening, whatever the source is. See ResFileFactory.
struct ResOpening {
    int32 mode;  // kRsrcReadWrite or kRsrcReadOnly
    ResFile** out;
    _FMFileType* type;        // may be null
    _FMFileCreator* creator;  // may be null
};

class ZVResFile final : public ResFile, public ResourceReading {
public:
    ZVResFile();
    // Closes; changes that can't be written are dropped.
    ~ZVResFile() override;
    ZVResFile(const ZVResFile&) = delete;
    ZVResFile& operator=(const ZVResFile&) = delete;

    // Each opens a source; see ResFileFactory.
    static KzErr ROpenPath(const PathRef& path, const ResOpening& opening);
    static KzErr ROpenFileref(File_t file, const ResOpening& opening);
    static KzErr ROpenMemFile(const unsigned char* data, unsigned long size, const ResOpening& opening);
    static KzErr ROpenMemFile(UHandle handle, const ResOpening& opening);

    KzErr RCloseFile() override;
    KzErr RGet(_ResourceType type, int32 id, Resource** out) override;
    KzErr RExists(_ResourceType type, int32 id, int32* found) override;
    KzErr RGetNamed(_ResourceType type, const unsigned char* name, Resource** out) override;
    KzErr RIsLoaded(_ResourceType type, int32 id, bool* loaded) override;
    KzErr RGetIndStringPtr(const unsigned char** out, int32 id, int32 index, _ResourceType type) override;
    KzErr GetResourceForHandle(UHandle handle, Resource** out) override;

    KzErr RUpdateFile() override;
    KzErr RCount(_ResourceType type, int32* count) override;
    KzErr RCountTypes(int32* count) override;
    KzErr RGetInd(_ResourceType type, int32 index, Resource** out) override;
    KzErr RGetIndType(_ResourceType* type, int32 index) override;
    KzErr RGetFileAttrs(int32* attrs) override;

    // Reads and checks the source, and takes it over on success. An open file is dropped for it, and its source closed
    // and destroyed unless it is the same. On failure the source is its caller's, and an open file stays open. Codes:
    // see ROpenFile.
    virtual KzErr Open(ZVResfileIO* io);

    // Tells about a resource without loading it; each output may be null.
    KzErr RGetIndInfo(_ResourceType type, int32 index, int32* id, int32* attrs, unsigned char* name) const;

    // The file's two codes; either output may be null.
    void GetTypeCreator(_FMFileType* type, _FMFileCreator* creator) const;

    // What is wrong with the file, or null; see LoadedMap::FaultLocked.
    const char* FaultLocked() const KZ_REQUIRES(kz::gResourceRights);
    // Whether the resource is one that this file has loaded.
    bool OwnsLocked(Resource* resource) const KZ_REQUIRES(kz::gResourceRights) { return mMap.OwnsLocked(resource); }

private:
    // Each gives the entry of a resource, or its code: by id, and by its place in its type's list, from 1.
    KzErr FindLocked(_ResourceType type, int32 id, RsrcList** entry) const KZ_REQUIRES(kz::gResourceRights);
    KzErr FindIndLocked(_ResourceType type, int32 index, RsrcList** entry) const KZ_REQUIRES(kz::gResourceRights);
    // The entries of a type, none for an absent one.
    KzErr FindListLocked(_ResourceType type, RsrcList** first, int32* count) const KZ_REQUIRES(kz::gResourceRights);

    // Gives the resource of an entry, and loads it first if need be.
    KzErr GetEntryLocked(_ResourceType type, RsrcList* entry, Resource** out) KZ_REQUIRES(kz::gResourceRights);
    // Loads the resource of an entry. kzErrEndOfFile: its block leaves the data section; else the codes of LoadBlock.
    // Requires: open.
    KzErr LoadRsrcFromListPtr(RsrcList* entry) KZ_REQUIRES(kz::gResourceRights);

    KzErr UpdateLocked() KZ_REQUIRES(kz::gResourceRights);
    // Closes, whatever was changed. Requires: open.
    KzErr CloseLocked() KZ_REQUIRES(kz::gResourceRights);

    // Null before the first opening. It outlives the map, whose resources may point into its memory.
    std::unique_ptr<ZVResfileIO> mIO KZ_GUARDED_BY(kz::gResourceRights);
    kz::LoadedMap mMap;
};

#endif
