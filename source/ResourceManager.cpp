// Every call is a look-up and one operation on what it found. Outputs are cleared here before the look-up, because the
// NULL objects, which answer for what is unknown, touch none.
//
// A call that starts from a handle finds its Resource through a cache of the last two, else by asking every open file.
// The cache is cleared by each call that ends a file or takes a handle away, because a new handle may get the address
// of an old one.
#include "ResourceManager.h"

#include <memory>
#include <utility>

#include "FileManager.h"
#include "KzAssert.h"
#include "KzErr.h"
#include "MemoryManager.h"
#include "PathManager.h"
#include "RFReadWrite.h"
#include "Report.h"
#include "ResFileFactory.h"
#include "ResFileMap.h"
#include "ResHandleCache.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/ResourceManager";

// The resource that a handle belongs to, or the NULLResource.
Resource* ResourceOf(UHandle handle)
{
    if (Resource* cached = kz::gResHandleCache.Find(handle)) {
        return cached;
    }
    // A hit that gave no resource, so whoever recorded the pair broke the promise that neither of it is null.
    if (kz::gResHandleCache.LastHit()) {
        KZ_REPORT(kDbgFatal, 0x71BF4D06) << "GetResource() violating contract";
        return NULLResource::Instance();
    }
    Resource* found = kz::gResFileMap != nullptr ? kz::gResFileMap->GetResourceNoCache(handle) : nullptr;
    if (found == nullptr) {
        return NULLResource::Instance();
    }
    kz::gResHandleCache.Record(handle, found);
    return found;
}

// Records the file that `open` makes. The refnum is made first, so that a lack of memory for it can't take back from
// the caller what an opened file has taken over.
template <typename Open>
KzErr OpenAndRecord(RsrcFile* refnum, const Open& open)
{
    if (refnum == nullptr) {
        return kzErrArgument;
    }
    *refnum = 0;
    ResFileMap* map = kz::gResFileMap;
    if (map == nullptr) {
        return kzErrResFileNotOpen;
    }
    const RsrcFile made = map->RecordResFile(nullptr);
    if (made == 0) {
        return kzErrMemoryFull;
    }
    ResFile* file = nullptr;
    if (const KzErr err = open(&file)) {
        map->RemoveRefnum(made);
        return err;
    }
    map->SetResFile(made, file);
    *refnum = made;
    return kzErrNone;
}

// Gives the handle of what `get` finds, and remembers the pair.
template <typename Get>
KzErr GetHandle(UHandle* handle, const Get& get)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    *handle = nullptr;
    Resource* resource = nullptr;
    if (const KzErr err = get(&resource)) {
        return err;
    }
    KZ_ASSERT(resource != nullptr);
    // A resource whose handle was given away has none either, and takes the same code.
    const UHandle shared = resource->GetSharedDSHandle();
    if (shared == nullptr) {
        return kzErrMemoryFull;
    }
    kz::gResHandleCache.Record(shared, resource);
    *handle = shared;
    return kzErrNone;
}

}  // namespace

extern "C" {

// ---- Opening and closing ----

KzErr ROpenFile(const PathRef* path, int32 mode, RsrcFile* refnum, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAndRecord(refnum, [&](ResFile** file) -> KzErr {
        return path == nullptr ? kzErrArgument : ResFileFactory::ROpenPath(*path, mode, file, type, creator);
    });
}

KzErr ROpenFileRefnum(File_t file, int32 mode, RsrcFile* refnum, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAndRecord(refnum,
                         [&](ResFile** out) { return ResFileFactory::ROpenFileref(file, mode, out, type, creator); });
}

KzErr ROpenUHandle(UHandle handle, int32 mode, RsrcFile* refnum, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAndRecord(refnum,
                         [&](ResFile** out) { return ResFileFactory::ROpenMemFile(handle, mode, out, type, creator); });
}

KzErr ROpenUPtr(const unsigned char* ptr, unsigned long size, RsrcFile* refnum, _FMFileType* type,
                _FMFileCreator* creator)
{
    return OpenAndRecord(refnum,
                         [&](ResFile** out) { return ResFileFactory::ROpenMemFile(ptr, size, out, type, creator); });
}

KzErr RCloseFile(RsrcFile refnum)
{
    ResFile* file = kz::FileOrNull<ResFile>(refnum);
    if (file == nullptr) {
        return kzErrResFileNotOpen;
    }
    // The refnum ends whatever the result is, and before the object, so that no other call finds a deleted one.
    const KzErr err = file->RCloseFile();
    kz::gResFileMap->RemoveRefnum(refnum);
    delete file;
    kz::gResHandleCache.Clear();
    return err;
}

// ---- By refnum ----

KzErr RGet(RsrcFile refnum, _ResourceType type, int32 id, UHandle* handle)
{
    return GetHandle(handle, [=](Resource** out) { return kz::FileOrNone<ResChain>(refnum)->RGet(type, id, out); });
}

KzErr RGetNamed(RsrcFile refnum, _ResourceType type, const unsigned char* name, UHandle* handle)
{
    return GetHandle(handle,
                     [=](Resource** out) { return kz::FileOrNone<ResChain>(refnum)->RGetNamed(type, name, out); });
}

KzErr RGetInd(RsrcFile refnum, _ResourceType type, int32 index, UHandle* handle)
{
    return GetHandle(handle,
                     [=](Resource** out) { return kz::FileOrNone<ResFile>(refnum)->RGetInd(type, index, out); });
}

KzErr RExists(RsrcFile refnum, _ResourceType type, int32 id, int32* found)
{
    if (found == nullptr) {
        return kzErrArgument;
    }
    *found = 0;
    return kz::FileOrNone<ResChain>(refnum)->RExists(type, id, found);
}

KzBool RIsLoaded(RsrcFile refnum, _ResourceType type, int32 id)
{
    bool loaded = false;
    return kz::FileOrNone<ResChain>(refnum)->RIsLoaded(type, id, &loaded) == kzErrNone && loaded;
}

KzErr RCount(RsrcFile refnum, _ResourceType type, int32* count)
{
    if (count == nullptr) {
        return kzErrArgument;
    }
    *count = 0;
    return kz::FileOrNone<ResFile>(refnum)->RCount(type, count);
}

KzErr RCountTypes(RsrcFile refnum, int32* count)
{
    if (count == nullptr) {
        return kzErrArgument;
    }
    *count = 0;
    return kz::FileOrNone<ResFile>(refnum)->RCountTypes(count);
}

KzErr RGetIndType(RsrcFile refnum, _ResourceType* type, int32 index)
{
    if (type == nullptr) {
        return kzErrArgument;
    }
    *type = 0;
    return kz::FileOrNone<ResFile>(refnum)->RGetIndType(type, index);
}

KzErr RGetFileAttrs(RsrcFile refnum, int32* attrs)
{
    if (attrs == nullptr) {
        return kzErrArgument;
    }
    *attrs = 0;
    return kz::FileOrNone<ResFile>(refnum)->RGetFileAttrs(attrs);
}

KzErr RGetIndInfo(RsrcFile refnum, _ResourceType type, int32 index, int32* id, int32* attrs, unsigned char* name)
{
    return ResFileFactory::RGetIndInfo(kz::FileOrNone<ResFile>(refnum), type, index, id, attrs, name);
}

// ---- By handle ----

KzErr RGetInfo(UHandle handle, int32* id, _ResourceType* type, unsigned char* name)
{
    return ResourceOf(handle)->RGetInfo(id, type, name);
}

KzErr RGetAttrs(UHandle handle, int32* attrs)
{
    return attrs == nullptr ? kzErrArgument : ResourceOf(handle)->RGetAttrs(attrs);
}

KzErr RSize(UHandle handle, int32* size)
{
    if (size == nullptr) {
        return kzErrArgument;
    }
    *size = -1;
    return ResourceOf(handle)->RSize(size);
}

KzErr RRelease(UHandle handle)
{
    const KzErr err = ResourceOf(handle)->RRelease();
    kz::gResHandleCache.Clear();
    return err;
}

KzErr RDetach(UHandle handle)
{
    Resource* resource = ResourceOf(handle);
    // The object is this call's once it is detached. The NULLResource never is, because it gives a code.
    const KzErr err = resource->DetachResource();
    if (err == kzErrNone) {
        delete resource;
    }
    kz::gResHandleCache.Clear();
    return err;
}

// ---- Strings ----

KzErr RGetIndStringPtr(RsrcFile refnum, const unsigned char** out, int32 id, int32 index, _ResourceType type)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    return kz::FileOrNone<ResChain>(refnum)->RGetIndStringPtr(out, id, index, type);
}

KzErr RGetIndString(RsrcFile refnum, unsigned char* str, int32 id, int32 index)
{
    if (str == nullptr) {
        return kzErrArgument;
    }
    str[0] = 0;
    ResChain* chain = kz::FileOrNull<ResChain>(refnum);
    return chain == nullptr ? kzErrResFileNotOpen : RFReader(chain).GetIndString(str, id, index);
}

KzErr RGetString(RsrcFile refnum, int32 id, UHandle* handle)
{
    return RGet(refnum, kz::kStringType, id, handle);
}

KzErr RGetPStr(RsrcFile refnum, int32 id, unsigned char* str)
{
    if (str == nullptr) {
        return kzErrArgument;
    }
    str[0] = 0;
    ResChain* chain = kz::FileOrNull<ResChain>(refnum);
    return chain == nullptr ? kzErrResFileNotOpen : RFReader(chain).GetPStr(id, str);
}

}  // extern "C"

// ---- The service ----

ResourceManager_Service::ResourceManager_Service()
    : PlainService_T("ResourceManager", &kz::AddNeeds<&MemoryManagerService, &PathManagerService, &FileManagerService>)
{}

KzErr ResourceManager_Service::_Init()
{
    return kz::ErrOf(kModule, __LINE__, [] {
        auto map = std::make_unique<ResFileMap>();
        if (map->Init() != kzErrNone) {
            throw ZVExcept(kzErrMemoryFull, "Cannot make the jar of refnums", kModule, __LINE__);
        }
        // A refnum that goes at once makes the jar's first slots now, because the first file to be opened would else
        // leave their memory behind when it closes.
        map->RemoveRefnum(map->RecordResFile(nullptr));
        const KzErr err = ResFileFactory::InitResourceMgr();
        if (err == kzErrNone) {
            kz::gResFileMap = map.release();
        }
        return err;
    });
}

KzErr ResourceManager_Service::_Uninit()
{
    delete std::exchange(kz::gResFileMap, nullptr);
    kz::gResHandleCache.Clear();
    ResFileFactory::UninitResourceMgr();
    return kzErrNone;
}

ResourceManager_Service* ResourceManagerService()
{
    return KZSingleton_T<ResourceManager_Service>::Instance();
}
