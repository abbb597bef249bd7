// A refnum is made before its file is opened and removed before its file is deleted, so a look-up finds either a living
// object or none. A record is a small block of its own, because a jar holds one pointer a cookie.
//
// The two NULL objects stand for what is not there, so that callers need no test. They have no state, need no memory
// and are never destroyed, because calls may come before a start and after a stop.
#include "ResFileMap.h"

#include <new>

#include "CookieWalk.h"
#include "KzAssert.h"
#include "NeverDestroyed.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/ResFileMap";

}  // namespace

NULLResFile* NULLResFile::Instance()
{
    static kz::NeverDestroyed<NULLResFile> sNull;
    return &*sNull;
}

NULLResource* NULLResource::Instance()
{
    static kz::NeverDestroyed<NULLResource> sNull;
    return &*sNull;
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
    // Their objects stay open, because a caller may still hold them as objects; only the records go.
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
    KZ_ASSERT(kind == ResClassStorage::kFile || object != nullptr);
    ResClassStorage* storage = new (std::nothrow) ResClassStorage{kind, object};
    if (storage == nullptr) {
        return 0;
    }
    // A refnum leads to its record from its first moment on, so the record is made first.
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
    KZ_ASSERT(file != nullptr);
    if (ResClassStorage* storage = Find(refnum)) {
        KZ_ASSERT(storage->kind == ResClassStorage::kFile && storage->object == nullptr);
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
    return kz::ObjectOrNone(GetResFileBase(refnum));
}

ResFile* ResFileMap::GetResFilePtr(RsrcFile refnum) const
{
    const ResClassStorage* storage = Find(refnum);
    return storage != nullptr && storage->kind == ResClassStorage::kFile ? static_cast<ResFile*>(storage->object)
                                                                         : nullptr;
}

ResFile* ResFileMap::GetResFile(RsrcFile refnum) const
{
    return kz::ObjectOrNone(GetResFilePtr(refnum));
}

Resource* ResFileMap::GetResourceNoCache(UHandle handle) const
{
    if (handle == nullptr) {
        return nullptr;
    }
    // An object that is being opened has no resources: its NULLResFile gives a code.
    Resource* resource = nullptr;
    for (RsrcFile refnum = kz::NextCookie(GetJar(), 0); refnum != 0; refnum = kz::NextCookie(GetJar(), refnum)) {
        if (GetResBase(refnum)->GetResourceForHandle(handle, &resource) == kzErrNone) {
            return resource;
        }
    }
    return nullptr;
}

const char* ResFileMap::Fault() const
{
    if (const char* fault = kz::CookieJarFault(GetJar())) {
        return fault;
    }
    for (RsrcFile refnum = kz::NextCookie(GetJar(), 0); refnum != 0; refnum = kz::NextCookie(GetJar(), refnum)) {
        const ResClassStorage* storage = Find(refnum);
        if (storage == nullptr) {
            return "a refnum has no record";
        }
        // A file that is being opened is null in its record, and of either kind.
        const bool isFile = dynamic_cast<const ResFile*>(storage->object) != nullptr;
        if (storage->object != nullptr && isFile != (storage->kind == ResClassStorage::kFile)) {
            return "the record of a refnum tells a wrong kind";
        }
    }
    return nullptr;
}
