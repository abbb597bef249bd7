// The open resource file: a map in host byte order in a handle, resources loaded on demand, and who owns what is
// loaded.
//
// A map entry and its Resource are linked by the entry's `dataHolder` alone, a cookie in the file's jar; 0 means not
// loaded. One lock (ResourceLock) guards maps, jars and caches of all files; a public operation takes it and calls the
// ...Locked members, which only call each other. A report is made after the lock is given back, as its handler may ask
// for resources; made under it are only reports of defects, and those of other modules while a resource is loaded or
// dropped.
#ifndef KZCORE_ZVRESFILE_H
#define KZCORE_ZVRESFILE_H

#include "CookieManager.h"
#include "KZTypes.h"
#include "KzErr.h"
#include "ResCache.h"
#include "ResFile.h"
#include "ResourceFormat.h"
#include "ThMutex.h"

class ResourceData;
class ZVResFile;
class ZVResfileIO;

namespace kz {

// Makes and destroys the lock of all resource files; without it they run unlocked. One thread.
KzErr CreateResourceLock();
void DestroyResourceLock();

}  // namespace kz

// The resource of a ZVResFile.
class ZVResource final : public Resource {
public:
    // Owns `data`.
    ZVResource(ZVResFile* file, ResourceData* data) : mFile(file), mData(data) {}
    ~ZVResource() override;
    ZVResource(const ZVResource&) = delete;
    ZVResource& operator=(const ZVResource&) = delete;

    KzErr RRelease() override;
    KzErr RChanged() override;
    KzErr DetachResource() override;
    KzErr RSetAttrs(int32 attrs) override;
    KzErr RSize(int32* size) const override;
    KzErr RGetInfo(int32* id, _ResourceType* type, unsigned char* name) const override;
    KzErr RGetAttrs(int32* attrs) const override;
    UHandle GetSharedDSHandle() const override;
    KzErr DetachHandle() override;
    int32 GetSize() const override;
    const unsigned char* GetData() const override;
    bool ContainsHandle(UHandle handle) const override;

private:
    // Runs `use(type, entry)` on this resource's entry, under the lock.
    template <typename Use>
    KzErr WithEntry(const Use& use) const;

    ZVResFile* mFile;     // null once detached
    ResourceData* mData;  // owned
};

class ZVResFile final : public ResFile, public ResourceFormat {
public:
    ZVResFile();
    // Closes; changes that can't be written are dropped.
    ~ZVResFile() override;
    ZVResFile(const ZVResFile&) = delete;
    ZVResFile& operator=(const ZVResFile&) = delete;

    // Each opens a source; see ResFileFactory.
    static KzErr ROpenPath(const PathRef& path, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);
    static KzErr ROpenFileref(File_t file, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);
    static KzErr ROpenMemFile(const unsigned char* data, unsigned long size, ResFile** out, _FMFileType* type,
                              _FMFileCreator* creator);
    static KzErr ROpenMemFile(UHandle handle, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);

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
    // and destroyed unless it is the same. Codes: see ROpenFile.
    virtual KzErr Open(ZVResfileIO* io);

    // Tells about a resource without loading it; each output may be null.
    KzErr RGetIndInfo(_ResourceType type, int32 index, int32* id, int32* attrs, unsigned char* name) const;

    // The file's two codes; either output may be null.
    void GetTypeCreator(_FMFileType* type, _FMFileCreator* creator) const;

private:
    friend class ZVResource;

    RsrcMap* Map() const { return mMap != nullptr ? reinterpret_cast<RsrcMap*>(*mMap) : nullptr; }

    // The entry of a resource; the entries of a type, none for an absent one.
    KzErr FindLocked(_ResourceType type, int32 id, RsrcList** entry) const;
    KzErr FindListLocked(_ResourceType type, RsrcList** first, int32* count) const;

    // The entry of a loaded resource, and the loaded resource that a handle belongs to.
    KzErr FindRsrcListLocked(const Resource* resource, _ResourceType* type, RsrcList** entry) const;
    KzErr FindResourceLocked(UHandle handle, Resource** out);
    template <typename Match>
    KzErr WalkLoadedLocked(const Match& match, _ResourceType* type, RsrcList** out) const;

    // Gives the resource of an entry, and loads it first if need be.
    KzErr GetEntryLocked(_ResourceType type, RsrcList* entry, Resource** out);
    KzErr LoadRsrcFromListPtr(RsrcList* entry);
    // What an entry holds, or null.
    Resource* HeldLocked(const RsrcList& entry) const;
    // Takes the resource out of the jar and its entry.
    void UnlinkLocked(RsrcList* entry);
    // Sets an entry's attributes; kzErrNoPermission in a read-only file.
    KzErr MarkLocked(RsrcList* entry, uInt32 attrs);

    KzErr UpdateLocked();
    // Closes, whatever was changed.
    KzErr CloseLocked();
    // The part of it that leaves the source open.
    void DropMapLocked();

    ZVResfileIO* mIO = nullptr;  // owned once open
    UHandle mMap = nullptr;      // owned; holds a RsrcMap in host byte order
    ResCache mCache;
    bool mIsOpen = false;
    CookieJar<Resource*> mJar;  // the loaded resources
};

#endif
