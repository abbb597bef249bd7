// The interfaces of resources: what can be searched (ResChain), one resource file (ResFile), one loaded resource
// (Resource). Objects come from ResFileFactory; the refnum calls of ResourceManager.h stand on them.
//
// All operations but destruction may be called from any thread, unless a Resource is released or its file closed
// meanwhile. Shared codes: kzErrArgument for a null output, kzErrResFileNotOpen for a file that is not open,
// kzErrResNotFound for no such resource, type or index, and those of loading in ResourceManager.h. Types are four
// characters in memory order, names counted strings, indices count from 1.
#ifndef KZCORE_RESFILE_H
#define KZCORE_RESFILE_H

#include "KZTypes.h"

// One loaded resource. It belongs to its file and is destroyed when the file closes. The slots stand in this order.
//
//     state       entered by            the file's RIsLoaded   RRelease     DetachResource
//     loaded      RGet and kin          true                   destroyed    detached
//     changed     RChanged, RSetAttrs   true                   refused      refused
//     detached    DetachResource        false                  refused      refused; delete it
class KZ_EXPORT Resource {
public:
    virtual ~Resource();

    // Destroys the data and this object: the caller's last call on it. kzErrArgument: marked as changed.
    virtual KzErr RRelease() = 0;
    // Marks the resource and the file's map as changed. kzErrNoPermission: the file is read-only.
    virtual KzErr RChanged() = 0;
    // Takes the resource out of the file. The caller owns the handle that GetSharedDSHandle gave before, and deletes
    // this object. kzErrResNotFound also for one marked as changed.
    virtual KzErr DetachResource() = 0;
    // Replaces the attributes and marks the map as changed. kzErrNoPermission: the file is read-only.
    virtual KzErr RSetAttrs(int32 attrs) = 0;
    // -1 on failure.
    virtual KzErr RSize(int32* size) const = 0;
    // Each output may be null; `name` has room for 256 bytes and is empty for a resource without a name.
    virtual KzErr RGetInfo(int32* id, _ResourceType* type, unsigned char* name) const = 0;
    virtual KzErr RGetAttrs(int32* attrs) const = 0;
    // The data as a handle, which stays the resource's; a second call gives the same. Null when memory is full or
    // the data is given up.
    virtual UHandle GetSharedDSHandle() const = 0;
    // Gives up the data: the caller owns the shared handle, and the resource stays in the file without bytes.
    virtual KzErr DetachHandle() = 0;
    // The data; 0 and null when it is given up.
    virtual int32 GetSize() const = 0;
    virtual const unsigned char* GetData() const = 0;
    // Whether `handle` is what GetSharedDSHandle gave; false for null.
    virtual bool ContainsHandle(UHandle handle) const = 0;
};

// Anything that resources can be looked up in. The slots stand in this order.
class KZ_EXPORT ResChain {
public:
    virtual ~ResChain();

    // Closes; all resources are destroyed. On failure everything stays open.
    virtual KzErr RCloseFile() = 0;
    // Loads the resource, unless it is loaded.
    virtual KzErr RGet(_ResourceType type, int32 id, Resource** out) = 0;
    // 1 and success, or 0 and kzErrResNotFound.
    virtual KzErr RExists(_ResourceType type, int32 id, int32* found) = 0;
    // The first with this name in the order of ids, without regard to case.
    virtual KzErr RGetNamed(_ResourceType type, const unsigned char* name, Resource** out) = 0;
    virtual KzErr RIsLoaded(_ResourceType type, int32 id, bool* loaded) = 0;
    // String `index` of a string list: a pointer into the resource's data, valid until it is released.
    // kzErrResNotFound also for an index outside the list or behind the end of the data.
    virtual KzErr RGetIndStringPtr(const unsigned char** out, int32 id, int32 index, _ResourceType type) = 0;
    // The loaded resource that the handle belongs to.
    virtual KzErr GetResourceForHandle(UHandle handle, Resource** out) = 0;
};

// One resource file. The slots stand in this order, after those of ResChain. The operations that edit, and RGetModDate,
// have a body here, for kinds of file without them: it gives kzErrNoPermission, unless told otherwise.
class KZ_EXPORT ResFile : public ResChain {
public:
    // Writes what was changed; 0 when nothing was.
    virtual KzErr RUpdateFile();
    virtual KzErr RAddPtr(const unsigned char* data, int32 size, _ResourceType type, int32 id,
                          const unsigned char* name);
    virtual KzErr RAdd(UHandle handle, _ResourceType type, int32 id, const unsigned char* name);
    virtual KzErr RReplacePtr(unsigned char* data, int32 size, _ResourceType type, int32 id);
    virtual KzErr RReplaceDSHandle(UHandle handle, _ResourceType type, int32 id);
    virtual KzErr RRemove(Resource* resource);
    // 0 resources for an absent type.
    virtual KzErr RCount(_ResourceType type, int32* count) = 0;
    virtual KzErr RCountTypes(int32* count) = 0;
    // In the order of ids.
    virtual KzErr RGetInd(_ResourceType type, int32 index, Resource** out) = 0;
    // In the order of the file; 0 in `*type` on failure.
    virtual KzErr RGetIndType(_ResourceType* type, int32 index) = 0;
    // An id that no resource of the type has, or 0; here 0.
    virtual int32 RUniqueID(_ResourceType type);
    virtual KzErr RGetModDate(const PathRef& path, uInt32* date, int32* readOnly);
    virtual KzErr RGetFileAttrs(int32* attrs) = 0;
    virtual KzErr RSetFileAttrs(int32 attrs);
    virtual KzErr RPreAllocFile(int32 extra);
    virtual KzErr RGetUHandleOwnership(UHandle* out);
    virtual KzErr RGetMemFileHandle(UHandle* out);
};

#endif
