// All getters are a look-up in the reader's chain, and then one of three things: a pointer into the loaded data, a
// handle taken out of the file, or a copy of a string. The reader itself keeps nothing of what it gave.
#include "RFReadWrite.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "KzAssert.h"
#include "KzErr.h"
#include "Report.h"
#include "ResFileFactory.h"
#include "ResFileMap.h"
#include "ResourceTypes.h"
#include "StringPStr.h"

namespace {

constexpr char kModule[] = "source/RFReadWrite";

// The resource of an id or a name in what a reader reads from, which may be nothing.
KzErr Find(ResChain* chain, _ResourceType type, int32 id, Resource** out)
{
    return chain != nullptr ? chain->RGet(type, id, out) : kzErrResNotFound;
}

KzErr Find(ResChain* chain, _ResourceType type, const unsigned char* name, Resource** out)
{
    return chain != nullptr ? chain->RGetNamed(type, name, out) : kzErrResNotFound;
}

// The same, and clears the outputs or fills them with where its data is.
template <typename Key>
KzErr FindData(ResChain* chain, _ResourceType type, Key key, const void** data, int32* size)
{
    Resource* resource = nullptr;
    const KzErr err = Find(chain, type, key, &resource);
    if (data != nullptr) {
        *data = resource != nullptr ? resource->GetData() : nullptr;
    }
    if (size != nullptr) {
        *size = resource != nullptr ? resource->GetSize() : 0;
    }
    return err;
}

// Finds a resource and takes its handle out of the file.
template <typename Key>
KzErr DetachHandleOf(ResChain* chain, _ResourceType type, Key key, UHandle* handle)
{
    if (handle == nullptr) {
        return kzErrArgument;
    }
    *handle = nullptr;
    Resource* resource = nullptr;
    if (const KzErr err = Find(chain, type, key, &resource)) {
        return err;
    }
    // The handle is asked for first: data that is served from memory has none before, and a detached resource gives
    // none.
    const UHandle shared = resource->GetSharedDSHandle();
    if (shared == nullptr) {
        return kzErrMemoryFull;
    }
    // A changed resource is refused here, and its handle stays the file's.
    if (const KzErr err = resource->DetachResource()) {
        return err;
    }
    delete resource;
    *handle = shared;
    return kzErrNone;
}

}  // namespace

RFReader::RFReader(RsrcFile refnum) : mChain(kz::FileOrNull<ResChain>(refnum)) {}

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
    // A failed opening leaves the reader with what it had.
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
    // The object goes whatever the result is, as the call by refnum ends its refnum.
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
    return FindData(mChain, type, id, data, size);
}

KzErr RFReader::PtrToResDataByNameInternal(_ResourceType type, const unsigned char* name, const void** data,
                                           int32* size) const
{
    return FindData(mChain, type, name, data, size);
}

KzErr RFReader::AllocDSHandle(_ResourceType type, int32 id, UHandle* handle) const
{
    return DetachHandleOf(mChain, type, id, handle);
}

KzErr RFReader::AllocDSHandleByName(_ResourceType type, const unsigned char* name, UHandle* handle) const
{
    return DetachHandleOf(mChain, type, name, handle);
}

KzErr RFReader::GetString(int32 id, UHandle* handle) const
{
    return AllocDSHandle(kz::kStringType, id, handle);
}

KzErr RFReader::GetPStr(int32 id, unsigned char* str) const
{
    if (str == nullptr) {
        return kzErrArgument;
    }
    str[0] = 0;
    const void* data = nullptr;
    int32 size = 0;
    if (const KzErr err = PtrToResDataInternal(kz::kStringType, id, &data, &size)) {
        return err;
    }
    // A host's own kind of resource may tell any size.
    if (size < 0) {
        return kzErrCorrupt;
    }
    // An empty resource gives a length of 255, of which no byte is there. The rest is cleared, because the caller takes
    // all of it for text.
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
    // The string is copied at once, because the pointer is good only until somebody releases the list.
    const KzErr err = mChain->RGetIndStringPtr(&found, id, index, kz::kStringListType);
    if (err == kzErrNone) {
        PStrCpy(str, found);
    }
    return err;
}

RFReader* CreateRFReader(RsrcFile refnum)
{
    return new (std::nothrow) RFReader(refnum);
}
