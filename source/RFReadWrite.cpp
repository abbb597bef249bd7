#include "RFReadWrite.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "KzErr.h"
#include "Report.h"
#include "ResFileFactory.h"
#include "ResFileMap.h"
#include "StringPStr.h"

namespace {

constexpr char kModule[] = "source/RFReadWrite";

constexpr _ResourceType kStringType = kz::FourCharCode("STR ");
constexpr _ResourceType kStringListType = kz::FourCharCode("STR#");

void GiveData(const Resource* resource, const void** data, int32* size)
{
    if (data != nullptr) {
        *data = resource != nullptr ? resource->GetData() : nullptr;
    }
    if (size != nullptr) {
        *size = resource != nullptr ? resource->GetSize() : 0;
    }
}

// Takes a resource's handle out of its file.
KzErr DetachFrom(Resource* resource, UHandle* handle)
{
    const UHandle shared = resource->GetSharedDSHandle();
    if (shared == nullptr) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = resource->DetachResource()) {
        return err;
    }
    delete resource;
    *handle = shared;
    return kzErrNone;
}

}  // namespace

RFReader::RFReader(RsrcFile refnum) : mChain(kz::ResChainOfRefnum(refnum)) {}

RFReader::~RFReader()
{
    GiveUp();
}

void RFReader::GiveUp()
{
    if (mOwnsObject) {
        delete mChain;
    }
    mOwnsObject = false;
    mChain = nullptr;
}

KzErr RFReader::OpenPath(const PathRef& path, int32 mode, _FMFileType* type, _FMFileCreator* creator)
{
    ResFile* file = nullptr;
    const KzErr err = ResFileFactory::ROpenPath(path, mode, &file, type, creator);
    if (err == kzErrNone) {
        GiveUp();
        mChain = file;
        mOwnsObject = true;
    }
    return err;
}

KzErr RFReader::Close()
{
    if (mChain == nullptr) {
        return kzErrNotFound;
    }
    const KzErr err = mChain->RCloseFile();
    delete mChain;
    mChain = nullptr;
    mOwnsObject = false;
    return err;
}

ResChain* RFReader::LowLevelResChain() const
{
    if (mChain == nullptr) {
        KZ_REPORT(kDbgFatal, 0xC6913F8A) << "Uninitialized RFReader";
    }
    return mChain;
}

KzErr RFReader::PtrToResDataInternal(_ResourceType type, int32 id, const void** data, int32* size) const
{
    Resource* resource = nullptr;
    const KzErr err = mChain != nullptr ? mChain->RGet(type, id, &resource) : kzErrResNotFound;
    GiveData(resource, data, size);
    return err;
}

KzErr RFReader::PtrToResDataByNameInternal(_ResourceType type, const unsigned char* name, const void** data,
                                           int32* size) const
{
    Resource* resource = nullptr;
    const KzErr err = mChain != nullptr ? mChain->RGetNamed(type, name, &resource) : kzErrResNotFound;
    GiveData(resource, data, size);
    return err;
}

KzErr RFReader::AllocDSHandle(_ResourceType type, int32 id, UHandle* handle) const
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    *handle = nullptr;
    Resource* resource = nullptr;
    const KzErr err = mChain != nullptr ? mChain->RGet(type, id, &resource) : kzErrResNotFound;
    return err != kzErrNone ? err : DetachFrom(resource, handle);
}

KzErr RFReader::AllocDSHandleByName(_ResourceType type, const unsigned char* name, UHandle* handle) const
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    *handle = nullptr;
    Resource* resource = nullptr;
    const KzErr err = mChain != nullptr ? mChain->RGetNamed(type, name, &resource) : kzErrResNotFound;
    return err != kzErrNone ? err : DetachFrom(resource, handle);
}

KzErr RFReader::GetString(int32 id, UHandle* handle) const
{
    return AllocDSHandle(kStringType, id, handle);
}

KzErr RFReader::GetPStr(int32 id, unsigned char* str) const
{
    if (str == nullptr) {
        return kzErrArgument;
    }
    str[0] = 0;
    const void* data = nullptr;
    int32 size = 0;
    if (const KzErr err = PtrToResDataInternal(kStringType, id, &data, &size)) {
        return err;
    }
    // An empty resource gives a length of 255, of which no byte is there.
    const std::size_t length = static_cast<unsigned char>(size - 1);
    const std::size_t there = std::min<std::size_t>(length, size > 0 ? static_cast<std::size_t>(size - 1) : 0);
    str[0] = static_cast<unsigned char>(length);
    std::memset(str + 1, 0, length);
    if (there > 0) {
        std::memcpy(str + 1, static_cast<const unsigned char*>(data) + 1, there);
    }
    return kzErrNone;
}

KzErr RFReader::GetIndString(unsigned char* str, int32 id, int32 index) const
{
    if (str == nullptr) {
        return kzErrArgument;
    }
    str[0] = 0;
    if (mChain == nullptr) {
        return kzErrResNotFound;
    }
    const unsigned char* found = nullptr;
    const KzErr err = mChain->RGetIndStringPtr(&found, id, index, kStringListType);
    if (err == kzErrNone) {
        PStrCpy(str, found);
    }
    return err;
}

RFReader* CreateRFReader(RsrcFile refnum)
{
    return new (std::nothrow) RFReader(refnum);
}
