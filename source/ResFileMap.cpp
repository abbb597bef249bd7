#include "ResFileMap.h"

#include <new>

#include "Report.h"

namespace {

constexpr char kModule[] = "source/ResFileMap";

// The one object of its class: needs no memory, as it answers in calls that can't fail for lack of it, and is never
// destroyed, as calls may come after a stop.
template <typename T>
T* Immortal()
{
    alignas(T) static unsigned char place[sizeof(T)];
    static T* const instance = new (place) T;
    return instance;
}

}  // namespace

NULLResFile* NULLResFile::Instance()
{
    return Immortal<NULLResFile>();
}

NULLResource* NULLResource::Instance()
{
    return Immortal<NULLResource>();
}

KzErr NULLResource::RRelease()
{
    KZ_REPORT(kDbgWarning, 0x2A74E8D9) << "Releasing a non-resource";
    return kzErrResNotFound;
}

ResFileMap::~ResFileMap()
{
    int32 count = 0;
    if (GetNumCookies(&count) != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0x9D03B65F) << "ResFileMap::~ResFileMap. Bad Cookie Jar()";
    }
    if (count != 0) {
        KZ_REPORT(kDbgWarning, 0x587CA1E4) << "The Resource Manager is being shut down with open files!";
    }
    for (RsrcFile refnum = kz::NextCookie(GetJar(), 0); refnum != 0; refnum = kz::NextCookie(GetJar(), refnum)) {
        RemoveRefnum(refnum);
    }
    Uninit();
}

RsrcFile ResFileMap::Record(ResClassStorage::Kind kind, ResChain* object)
{
    ResClassStorage* storage = new (std::nothrow) ResClassStorage{kind, object};
    if (storage == nullptr) {
        return 0;
    }
    const RsrcFile refnum = NewCookie(storage);
    if (refnum == 0) {
        delete storage;
    }
    return refnum;
}

ResClassStorage* ResFileMap::Find(RsrcFile refnum) const
{
    ResClassStorage* storage = nullptr;
    return GetCookieInfo(refnum, &storage) == kzErrNone ? storage : nullptr;
}

void ResFileMap::SetResFile(RsrcFile refnum, ResFile* file)
{
    if (ResClassStorage* storage = Find(refnum)) {
        storage->object = file;
    }
}

ResChain* ResFileMap::RemoveRefnum(RsrcFile refnum)
{
    ResClassStorage* storage = nullptr;
    if (DisposeCookie(refnum, &storage) != kzErrNone || storage == nullptr) {
        return nullptr;
    }
    ResChain* object = storage->object;
    delete storage;
    return object;
}

ResChain* ResFileMap::GetResFileBase(RsrcFile refnum) const
{
    const ResClassStorage* storage = Find(refnum);
    return storage != nullptr ? storage->object : nullptr;
}

ResChain* ResFileMap::GetResBase(RsrcFile refnum) const
{
    ResChain* object = GetResFileBase(refnum);
    return object != nullptr ? object : NULLResFile::Instance();
}

ResFile* ResFileMap::GetResFilePtr(RsrcFile refnum) const
{
    const ResClassStorage* storage = Find(refnum);
    return storage != nullptr && storage->kind == ResClassStorage::kFile ? static_cast<ResFile*>(storage->object)
                                                                         : nullptr;
}

ResFile* ResFileMap::GetResFile(RsrcFile refnum) const
{
    ResFile* file = GetResFilePtr(refnum);
    return file != nullptr ? file : NULLResFile::Instance();
}

Resource* ResFileMap::GetResourceNoCache(UHandle handle) const
{
    if (handle == nullptr) {
        return nullptr;
    }
    Resource* resource = nullptr;
    for (RsrcFile refnum = kz::NextCookie(GetJar(), 0); refnum != 0; refnum = kz::NextCookie(GetJar(), refnum)) {
        if (GetResBase(refnum)->GetResourceForHandle(handle, &resource) == kzErrNone) {
            return resource;
        }
    }
    return nullptr;
}
