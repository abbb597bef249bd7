// Resource files by refnum, and their resources as handles. Usable from C11 and C++20.
//
// A refnum stands for an open resource file; 0 never does. Calls on a refnum that is unknown or stale give
// kzErrResFileNotOpen. Outputs are cleared on failure, but those of the Info calls stay. A null output, unless told
// otherwise, gives kzErrArgument.
//
// The handle of a resource belongs to its file: it is valid until RRelease or until the file closes, and the caller
// owns it from RDetach on. Asking twice gives the same handle. Calls that start from a handle (RSize, RGetInfo,
// RGetAttrs, RRelease, RDetach), and RGet, RGetNamed and RGetInd, share one cache without a lock: one thread at a time
// makes any of them. The former may ask every open file, so none may be opened or closed meanwhile. All other calls may
// be made from any thread; a file that one thread closes must not be in use by another. Types are four characters in
// memory order; names are counted strings.
//
// Codes of every call that reads data: kzErrMemoryFull; kzErrEndOfFile when the resource's block does not lie inside
// the file's data; kzErrResFileNotOpen also when the file ends too early; kzErrIO.
#ifndef KZCORE_RESOURCEMANAGER_H
#define KZCORE_RESOURCEMANAGER_H

#include "KZTypes.h"
#include "ResourceTypes.h"  // attribute bits and opening modes

KZ_EXTERN_C_BEGIN

// Each opens a resource file and gives its refnum, to be closed with RCloseFile; `type` and `creator` get the file's
// two codes and may be null. On failure the refnum is 0 and nothing stays open. kzErrResFileNotOpen: the source is no
// resource file, or the resource manager does not run; kzErrResFileVersion: a newer format; kzErrGeneric: a damaged
// header or map, with the detail in a report of level 2; kzErrEndOfFile: shorter than a header; kzErrArgument: a null
// source, or a mode other than 0 and 1; kzErrMemoryFull.
//
// A file on disk. kzErrArgument: no absolute path; kzErrNotFound and other codes of FMOpen: it can't be opened. A
// read-only opening also finds a resource file at the end of another file.
KZ_EXPORT KzErr ROpenFile(const PathRef* path, int32 mode, RsrcFile* refnum, _FMFileType* type,
                          _FMFileCreator* creator);
// A file that the caller has opened; it is closed with the resource file, and stays the caller's on failure.
KZ_EXPORT KzErr ROpenFileRefnum(File_t file, int32 mode, RsrcFile* refnum, _FMFileType* type, _FMFileCreator* creator);
// The bytes in a handle, which is disposed with the resource file, and stays the caller's on failure.
KZ_EXPORT KzErr ROpenUHandle(UHandle handle, int32 mode, RsrcFile* refnum, _FMFileType* type, _FMFileCreator* creator);
// `size` constant bytes, read-only; they must outlive the resource file. Loading copies nothing but what a caller
// takes as a handle. kzErrArgument: more bytes than 31 bits can count.
KZ_EXPORT KzErr ROpenUPtr(const unsigned char* ptr, unsigned long size, RsrcFile* refnum, _FMFileType* type,
                          _FMFileCreator* creator);

// Closes a file, with all its resources, and ends the refnum, whatever the result. kzErrNoPermission: the file holds
// changes that can't be written; they are dropped.
KZ_EXPORT KzErr RCloseFile(RsrcFile refnum);

// Each loads a resource, unless it is loaded, and gives its handle; 0 on failure. kzErrResNotFound: there is none.
KZ_EXPORT KzErr RGet(RsrcFile refnum, _ResourceType type, int32 id, UHandle* handle);
// The first resource of the type with this name, in the order of ids, without regard to case.
KZ_EXPORT KzErr RGetNamed(RsrcFile refnum, _ResourceType type, const unsigned char* name, UHandle* handle);
// `index` counts the type's resources from 1, in the order of ids.
KZ_EXPORT KzErr RGetInd(RsrcFile refnum, _ResourceType type, int32 index, UHandle* handle);

// Whether there is such a resource: 1 and success, or 0 and kzErrResNotFound.
KZ_EXPORT KzErr RExists(RsrcFile refnum, _ResourceType type, int32 id, int32* found);
// Whether the resource is loaded; false for every failure.
KZ_EXPORT KzBool RIsLoaded(RsrcFile refnum, _ResourceType type, int32 id);

// The number of resources of a type, 0 for an absent one, and the number of types.
KZ_EXPORT KzErr RCount(RsrcFile refnum, _ResourceType type, int32* count);
KZ_EXPORT KzErr RCountTypes(RsrcFile refnum, int32* count);
// The type at `index`, from 1, in the order of the file. kzErrResNotFound, and 0 in `*type`: out of range.
KZ_EXPORT KzErr RGetIndType(RsrcFile refnum, _ResourceType* type, int32 index);
// The file's attributes: kRsrcMapChanged, kRsrcMapReadOnly.
KZ_EXPORT KzErr RGetFileAttrs(RsrcFile refnum, int32* attrs);

// Tells about resource `index` of a type, as RGetInd counts, without loading it: also when its data is damaged. Each
// output may be null; `name` has room for 256 bytes and is empty when there is no name. kzErrResNotFound: out of range.
KZ_EXPORT KzErr RGetIndInfo(RsrcFile refnum, _ResourceType type, int32 index, int32* id, int32* attrs,
                            unsigned char* name);

// Each acts on the loaded resource that a handle belongs to. kzErrResNotFound: the handle is no resource's.
//
// Its id, type and name; each output may be null. `name` has room for 256 bytes; it is empty when there is no name.
KZ_EXPORT KzErr RGetInfo(UHandle handle, int32* id, _ResourceType* type, unsigned char* name);
KZ_EXPORT KzErr RGetAttrs(UHandle handle, int32* attrs);
// Its size in bytes; -1 on failure.
KZ_EXPORT KzErr RSize(UHandle handle, int32* size);
// Unloads the resource and disposes the handle. kzErrArgument: the resource is marked as changed; it stays.
KZ_EXPORT KzErr RRelease(UHandle handle);
// Gives the handle to the caller; the resource is no longer loaded. kzErrResNotFound also for one marked as changed.
KZ_EXPORT KzErr RDetach(UHandle handle);

// A string list is a resource that holds a 16-bit count and that many counted strings. Each gives string `index`, from
// 1. kzErrResNotFound: no such list, or an index outside it, or behind the end of the resource's data.
//
// A pointer into the data of list `id` of any type, valid until that resource is released.
KZ_EXPORT KzErr RGetIndStringPtr(RsrcFile refnum, const unsigned char** out, int32 id, int32 index, _ResourceType type);
// A copy from a list of type "STR#"; `str` has room for 256 bytes and is empty on failure.
KZ_EXPORT KzErr RGetIndString(RsrcFile refnum, unsigned char* str, int32 id, int32 index);

// The handle of a resource of type "STR ", as RGet. Its first byte is a count that need not be right; the text is all
// that follows it.
KZ_EXPORT KzErr RGetString(RsrcFile refnum, int32 id, UHandle* handle);
// The text of a resource of type "STR " as a counted string, cut to the low 8 bits of its length; `str` has room for
// 256 bytes and is empty on failure.
KZ_EXPORT KzErr RGetPStr(RsrcFile refnum, int32 id, unsigned char* str);

KZ_EXTERN_C_END

#ifdef __cplusplus
#include "ServiceObject.h"

// Owns the table of refnums and the lock of all resource files.
class ResourceManager_Service : public PlainService_T<ResourceManager_Service> {
    friend KZ_GammaPolicy<ResourceManager_Service>;

    ResourceManager_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;
};

// The service, made on the first call.
KZ_EXPORT ResourceManager_Service* ResourceManagerService();
#endif

#endif
