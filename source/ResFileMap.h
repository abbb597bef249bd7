// The refnums of open resource files, and the objects that answer for a refnum or a handle that is unknown.
#ifndef KZCORE_RESFILEMAP_H
#define KZCORE_RESFILEMAP_H

#include <type_traits>

#include "CookieManager.h"
#include "KZTypes.h"
#include "KzErr.h"
#include "ResFile.h"

// Answers for an unknown refnum: every operation gives kzErrResFileNotOpen, but the three that no file need have. No
// output is touched. Any thread, at any time.
class NULLResFile final : public ResFile {
public:
    static NULLResFile* Instance();

    KzErr RCloseFile() override { return kzErrResFileNotOpen; }
    KzErr RGet(_ResourceType, int32, Resource**) override { return kzErrResFileNotOpen; }
    KzErr RExists(_ResourceType, int32, int32*) override { return kzErrResFileNotOpen; }
    KzErr RGetNamed(_ResourceType, const unsigned char*, Resource**) override { return kzErrResFileNotOpen; }
    KzErr RIsLoaded(_ResourceType, int32, bool*) override { return kzErrResFileNotOpen; }
    KzErr RGetIndStringPtr(const unsigned char**, int32, int32, _ResourceType) override { return kzErrResFileNotOpen; }
    KzErr GetResourceForHandle(UHandle, Resource**) override { return kzErrResFileNotOpen; }
    KzErr RUpdateFile() override { return kzErrResFileNotOpen; }
    KzErr RAddPtr(const unsigned char*, int32, _ResourceType, int32, const unsigned char*) override
    {
        return kzErrResFileNotOpen;
    }
    KzErr RAdd(UHandle, _ResourceType, int32, const unsigned char*) override { return kzErrResFileNotOpen; }
    KzErr RReplacePtr(unsigned char*, int32, _ResourceType, int32) override { return kzErrResFileNotOpen; }
    KzErr RReplaceDSHandle(UHandle, _ResourceType, int32) override { return kzErrResFileNotOpen; }
    KzErr RRemove(Resource*) override { return kzErrResFileNotOpen; }
    KzErr RCount(_ResourceType, int32*) override { return kzErrResFileNotOpen; }
    KzErr RCountTypes(int32*) override { return kzErrResFileNotOpen; }
    KzErr RGetInd(_ResourceType, int32, Resource**) override { return kzErrResFileNotOpen; }
    KzErr RGetIndType(_ResourceType*, int32) override { return kzErrResFileNotOpen; }
    int32 RUniqueID(_ResourceType) override { return kzErrResFileNotOpen; }
    KzErr RGetModDate(const PathRef&, uInt32*, int32*) override { return kzErrResFileNotOpen; }
    KzErr RGetFileAttrs(int32*) override { return kzErrResFileNotOpen; }
    KzErr RSetFileAttrs(int32) override { return kzErrResFileNotOpen; }
};

// Answers for an unknown handle: kzErrResNotFound, and no data. It is nobody's to delete. Any thread, at any time.
class NULLResource final : public Resource {
public:
    static NULLResource* Instance();

    // Reports the call at level 2.
    KzErr RRelease() override;
    KzErr RChanged() override { return kzErrResNotFound; }
    KzErr DetachResource() override { return kzErrResNotFound; }
    KzErr RSetAttrs(int32) override { return kzErrResNotFound; }
    KzErr RSize(int32*) const override { return kzErrResNotFound; }
    KzErr RGetInfo(int32*, _ResourceType*, unsigned char*) const override { return kzErrResNotFound; }
    KzErr RGetAttrs(int32*) const override { return kzErrResNotFound; }
    UHandle GetSharedDSHandle() const override { return nullptr; }
    KzErr DetachHandle() override { return kzErrResNotFound; }
    int32 GetSize() const override { return 0; }
    const unsigned char* GetData() const override { return nullptr; }
    bool ContainsHandle(UHandle) const override { return false; }
};

// What a refnum stands for. The kind is kept beside the object, because a look-up for files must not ask a chain, and a
// file that is being opened has no object to ask.
struct ResClassStorage {
    enum Kind : int32 { kChain = 0, kFile = 1 };

    Kind kind;         // of the object: a ResFile for kFile
    ResChain* object;  // not owned; null while a file is being opened
};

// The jar of all refnums. It owns no object; a refnum is removed before its object is deleted. Any thread, but an
// object may only be used while no other thread removes and deletes it.
class ResFileMap final : public CookieJar<ResClassStorage*> {
public:
    ResFileMap() = default;
    // Reports refnums that are left; their objects stay as they are.
    ~ResFileMap() override;

    // A new refnum for an object, or 0 when memory is full. A null file is recorded too, and found by no look-up:
    // SetResFile completes it.
    RsrcFile RecordResFile(ResFile* file) { return Record(ResClassStorage::kFile, file); }
    RsrcFile RecordResChain(ResChain* chain) { return Record(ResClassStorage::kChain, chain); }
    // Gives the object of a refnum that RecordResFile(nullptr) made; an unknown refnum does nothing.
    void SetResFile(RsrcFile refnum, ResFile* file);

    // Ends a refnum and gives its object, or null for an unknown one.
    ResChain* RemoveRefnum(RsrcFile refnum);

    // The object of either kind: null, or the NULLResFile, when there is none.
    ResChain* GetResFileBase(RsrcFile refnum) const;
    ResChain* GetResBase(RsrcFile refnum) const;
    // The same for files alone: a chain counts as none.
    ResFile* GetResFilePtr(RsrcFile refnum) const;
    ResFile* GetResFile(RsrcFile refnum) const;

    // The resource that a handle belongs to, or null: asks one object after the other, and takes the first that knows.
    Resource* GetResourceNoCache(UHandle handle) const;

    // What is wrong with the jar or a record, or null. For a thread that knows that no other one changes refnums.
    const char* Fault() const;

private:
    RsrcFile Record(ResClassStorage::Kind kind, ResChain* object);
    ResClassStorage* Find(RsrcFile refnum) const;
};

namespace kz {

// The object, or the NULLResFile for null, so that any operation can be called on it.
template <typename Kind>
Kind* ObjectOrNone(Kind* object)
{
    return object != nullptr ? object : NULLResFile::Instance();
}

// The one of the process; null while the resource manager does not run. Set while it starts and stops.
inline constinit ResFileMap* gResFileMap = nullptr;

// The two look-ups of a refnum, also while the resource manager does not run, when every refnum is unknown. `Kind` is
// what the caller can work with: ResFile for files alone, ResChain for files and chains.
//
// The object of a refnum, or null.
template <typename Kind>
Kind* FileOrNull(RsrcFile refnum)
{
    if (gResFileMap == nullptr) {
        return nullptr;
    }
    if constexpr (std::is_same_v<Kind, ResFile>) {
        return gResFileMap->GetResFilePtr(refnum);
    } else {
        return gResFileMap->GetResFileBase(refnum);
    }
}

// The object of a refnum, or the NULLResFile.
template <typename Kind>
Kind* FileOrNone(RsrcFile refnum)
{
    return ObjectOrNone(FileOrNull<Kind>(refnum));
}

}  // namespace kz

#endif
