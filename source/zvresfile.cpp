#include "zvresfile.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "ByteOrder.h"
#include "FileManager.h"
#include "KZApp.h"
#include "MemoryManager.h"
#include "PathManager.h"
#include "Report.h"
#include "ResHandleCache.h"
#include "ResourceData.h"
#include "ResourceManager.h"
#include "ScopedLock.h"
#include "StringPStr.h"
#include "ZVResfileIO.h"
#include "zvexcept.h"
#include "zvhandle.h"

namespace {

constexpr char kModule[] = "source/zvresfile";

constexpr int32 kMostBytes = std::numeric_limits<int32>::max();

// The lock of all maps, jars and caches of all resource files.
constinit ThMutex gResourceMutex = nullptr;

// Reads and converts the map of a file with this header into a block that holds at least a map's head.
KzErr ReadMap(ZVResfileIO* io, const RsrcHeader& header, ZVHandle* block)
{
    if (int64{header.mapOffset} + header.mapSize > io->GetFileSize()) {
        return kzErrResFileNotOpen;
    }
    const uInt32 blockSize = std::max<uInt32>(header.mapSize, kz::kMapHeadSize);
    block->AttachHandle(DSNewHClr(blockSize));
    if (block->GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    RsrcMap* map = reinterpret_cast<RsrcMap*>(*block->GetHandle());
    KzErr err = io->Seek(static_cast<int32>(header.mapOffset), kFMFromStart);
    if (err == kzErrNone) {
        err = io->Read(static_cast<int32>(header.mapSize), nullptr, map);
    }
    if (err != kzErrNone) {
        return err;
    }
    if (kz::WeakRsrcFileValidation()) {
        return ResourceFormat::StandardizeRsrcMap(map, ResourceFormat::toNative, &header);
    }
    if (const int32 result = ResourceFormat::NativizeAndValidateRsrcMap(map, header)) {
        KZ_REPORT(kDbgWarning, 0x7B40E9D2) << "ZVResFile::Open: map validation failure " << result;
        return kzErrGeneric;
    }
    return kzErrNone;
}

// The map of a file without resources: its head, in which the header's mapSize stays 0.
KzErr MakeEmptyMap(const RsrcHeader& header, ZVHandle* block)
{
    block->AttachHandle(DSNewHClr(kz::kMapHeadSize));
    if (block->GetHandle() == nullptr) {
        return kzErrMemoryFull;
    }
    RsrcMap* map = reinterpret_cast<RsrcMap*>(*block->GetHandle());
    map->header = header;
    map->typeMapOffset = kz::kMapHeadSize;
    return kzErrNone;
}

// Shows `visit` every entry of a map, type by type, until it returns true. Whether it did.
template <typename Visit>
bool VisitEntries(RsrcMap* map, const Visit& visit)
{
    TypeMap* types = kz::GetTypeMap(map);
    const TypeList* list = types != nullptr ? kz::FirstType(types) : nullptr;
    for (int32 i = kz::TypeCount(map); i > 0; --i, ++list) {
        RsrcList* entry = kz::FirstEntry(types, *list);
        for (int32 k = kz::EntryCount(*list); k > 0; --k, ++entry) {
            if (visit(list->type, entry)) {
                return true;
            }
        }
    }
    return false;
}

// Brings a map as read into the state that an open file keeps it in.
void PrepareMap(RsrcMap* map, bool readOnly)
{
    map->fileAttrs = readOnly ? kRsrcMapReadOnly : 0;
    VisitEntries(map, [](_ResourceType, RsrcList* entry) {
        entry->dataHolder = 0;
        return false;
    });
    if (map->header.version < kz::kFormatVersion) {
        map->header.formatMark[0] = '\r';
        map->header.formatMark[1] = '\n';
    }
    // A run-time process reads what its own tools wrote, sorted.
    if (!KZGetIsRunTime(nullptr)) {
        kz::SortRsrcIDs(map);
    }
    map->header.version = kz::kFormatVersion;
}

// String `index` of a list: a 16-bit count, then counted strings. Null: not in the list or behind the data's end.
const unsigned char* FindIndString(const unsigned char* data, int32 size, int32 index)
{
    if (data == nullptr || size < 2 || index < 1 || index > kz::LoadBig<uInt16>(data)) {
        return nullptr;
    }
    int32 at = 2;
    for (; index > 1 && at < size; --index) {
        at += 1 + data[at];
    }
    return at < size && at + data[at] < size ? data + at : nullptr;
}

// Copies an entry's name, empty when it has none, to `name` unless that is null.
void CopyName(const RsrcMap* map, const RsrcList& entry, unsigned char* name)
{
    if (name == nullptr) {
        return;
    }
    name[0] = 0;
    if (const unsigned char* found = kz::EntryName(map, entry)) {
        PStrCpy(name, found);
    }
}

// Opens `io` as a resource file; on failure `io` ends here, and what its constructor was given stays open.
KzErr CreateZVResfile(std::unique_ptr<ZVResfileIO> io, ResFile** out, _FMFileType* type, _FMFileCreator* creator)
{
    auto file = std::make_unique<ZVResFile>();
    const KzErr err = file->Open(io.get());
    if (err != kzErrNone) {
        return err;
    }
    io.release();  // the open file owns it
    file->GetTypeCreator(type, creator);
    *out = file.release();
    return kzErrNone;
}

// What all ways of opening share: `makeIO` gives the source or the code of its failure.
template <typename MakeIO>
KzErr OpenAs(ResFile** out, _FMFileType* type, _FMFileCreator* creator, int32 mode, const MakeIO& makeIO)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    if (type != nullptr) {
        *type = 0;
    }
    if (creator != nullptr) {
        *creator = 0;
    }
    if (mode != kRsrcReadWrite && mode != kRsrcReadOnly) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, [&] {
        std::unique_ptr<ZVResfileIO> io;
        const KzErr err = makeIO(&io);
        return err != kzErrNone ? err : CreateZVResfile(std::move(io), out, type, creator);
    });
}

}  // namespace

namespace kz {

KzErr CreateResourceLock()
{
    return ThMutexCreate(&gResourceMutex, "ResourceRights");
}

void DestroyResourceLock()
{
    ThMutexDestroy(gResourceMutex);
    gResourceMutex = nullptr;
}

}  // namespace kz

// ---- ZVResource ----

ZVResource::~ZVResource()
{
    kz::gResHandleCache.Forget(this);
    delete mData;
}

KzErr ZVResource::RRelease()
{
    KzErr err = kzErrResNotFound;
    bool changed = false;
    if (mFile != nullptr) {
        kz::ScopedLock lock(gResourceMutex);
        RsrcList* entry = nullptr;
        _ResourceType type = 0;
        err = mFile->FindRsrcListLocked(this, &type, &entry);
        changed = err == kzErrNone && (entry->attrs & kRsrcChanged) != 0;
        if (err == kzErrNone && !changed) {
            mFile->UnlinkLocked(entry);
        }
    }
    if (changed) {
        KZ_REPORT(kDbgWarning, 0x50E7912B) << "!!! Tried to release a changed resource";
        return kzErrArgument;
    }
    if (err != kzErrNone) {
        KZ_REPORT(kDbgWarning, 0xCF24D086) << "Releasing a non-resource";
        return err;
    }
    delete this;
    return kzErrNone;
}

KzErr ZVResource::DetachResource()
{
    if (mFile == nullptr) {
        return kzErrResNotFound;
    }
    bool changed = false;
    {
        kz::ScopedLock lock(gResourceMutex);
        RsrcList* entry = nullptr;
        _ResourceType type = 0;
        if (const KzErr err = mFile->FindRsrcListLocked(this, &type, &entry)) {
            return err;
        }
        changed = (entry->attrs & kRsrcChanged) != 0;
        if (!changed) {
            mFile->UnlinkLocked(entry);
            mData->ReleaseData();
            mFile = nullptr;
        }
    }
    if (changed) {
        KZ_REPORT(kDbgWarning, 0x1983BE7D) << "!!! Tried to detach a changed resource";
        return kzErrResNotFound;
    }
    kz::gResHandleCache.Forget(this);
    return kzErrNone;
}

template <typename Use>
KzErr ZVResource::WithEntry(const Use& use) const
{
    if (mFile == nullptr) {
        return kzErrResNotFound;
    }
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    _ResourceType type = 0;
    const KzErr err = mFile->FindRsrcListLocked(this, &type, &entry);
    return err != kzErrNone ? err : use(type, entry);
}

KzErr ZVResource::RChanged()
{
    return WithEntry(
        [&](_ResourceType, RsrcList* entry) { return mFile->MarkLocked(entry, entry->attrs | kRsrcChanged); });
}

KzErr ZVResource::RSetAttrs(int32 attrs)
{
    return WithEntry(
        [&](_ResourceType, RsrcList* entry) { return mFile->MarkLocked(entry, static_cast<uInt32>(attrs)); });
}

KzErr ZVResource::RSize(int32* size) const
{
    if (size == nullptr) {
        return kzErrArgument;
    }
    *size = -1;
    return WithEntry([&](_ResourceType, const RsrcList*) {
        *size = GetSize();
        return kzErrNone;
    });
}

KzErr ZVResource::RGetInfo(int32* id, _ResourceType* type, unsigned char* name) const
{
    return WithEntry([&](_ResourceType entryType, const RsrcList* entry) {
        if (id != nullptr) {
            *id = entry->id;
        }
        if (type != nullptr) {
            *type = entryType;
        }
        CopyName(mFile->Map(), *entry, name);
        return kzErrNone;
    });
}

KzErr ZVResource::RGetAttrs(int32* attrs) const
{
    if (attrs == nullptr) {
        return kzErrArgument;
    }
    return WithEntry([&](_ResourceType, const RsrcList* entry) {
        *attrs = static_cast<int32>(entry->attrs);
        return kzErrNone;
    });
}

UHandle ZVResource::GetSharedDSHandle() const
{
    return mFile != nullptr && mData != nullptr ? mData->GetSharedDSHandle() : nullptr;
}

KzErr ZVResource::DetachHandle()
{
    return WithEntry([&](_ResourceType, const RsrcList*) {
        mData->ReleaseData();
        mFile->mCache.Invalidate();
        kz::gResHandleCache.Forget(this);
        return kzErrNone;
    });
}

int32 ZVResource::GetSize() const
{
    return mFile != nullptr && mData != nullptr ? mData->GetSize() : 0;
}

const unsigned char* ZVResource::GetData() const
{
    return mFile != nullptr && mData != nullptr ? mData->GetDataPtr() : nullptr;
}

bool ZVResource::ContainsHandle(UHandle handle) const
{
    return mData != nullptr && mData->ContainsHandle(handle);
}

// ---- ZVResFile: opening and closing ----

KzErr ZVResFile::ROpenPath(const PathRef& path, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAs(out, type, creator, mode, [&](std::unique_ptr<ZVResfileIO>* io) {
        *io = std::make_unique<ZVResfileIO>();
        return (*io)->Open(path, mode, kFMDenyNone);
    });
}

KzErr ZVResFile::ROpenFileref(File_t file, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAs(out, type, creator, mode, [&](std::unique_ptr<ZVResfileIO>* io) {
        *io = std::make_unique<ZVResfileIO>(file, mode);
        return kzErrNone;
    });
}

KzErr ZVResFile::ROpenMemFile(const unsigned char* data, unsigned long size, ResFile** out, _FMFileType* type,
                              _FMFileCreator* creator)
{
    return OpenAs(out, type, creator, kRsrcReadOnly, [&](std::unique_ptr<ZVResfileIO>* io) -> KzErr {
        if (size > static_cast<unsigned long>(kMostBytes)) {
            return kzErrArgument;
        }
        *io = std::make_unique<ZVResfileIO>(data, size);
        return kzErrNone;
    });
}

KzErr ZVResFile::ROpenMemFile(UHandle handle, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator)
{
    return OpenAs(out, type, creator, mode, [&](std::unique_ptr<ZVResfileIO>* io) -> KzErr {
        if (handle != nullptr && DSGetHandleSize(handle) > static_cast<unsigned long>(kMostBytes)) {
            return kzErrArgument;
        }
        *io = std::make_unique<ZVResfileIO>(handle, mode);
        return kzErrNone;
    });
}

ZVResFile::ZVResFile()
{
    mJar.Init();
}

ZVResFile::~ZVResFile()
{
    {
        kz::ScopedLock lock(gResourceMutex);
        if (mIsOpen) {
            CloseLocked();
        }
    }
    mJar.Uninit();
    delete mIO;
}

KzErr ZVResFile::Open(ZVResfileIO* io)
{
    if (io == nullptr) {
        KZ_REPORT(kDbgWarning, 0x8F1D60E3) << "fileIO object is NULL";
        return kzErrArgument;
    }
    if (!mJar.IsAValidJar()) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = io->Seek(0, kFMFromStart)) {
        KZ_REPORT(kDbgWarning, 0x6230BD9A) << "cannot seek to start of resource file";
        return err;
    }
    if (const KzErr err = io->Map()) {
        KZ_REPORT(kDbgWarning, 0xF7C5840B) << "Cannot memory map the resource file";
        return err;
    }
    RsrcHeader header;
    int32 shift = 0;
    if (const KzErr err = ReadRsrcHeader(io, &header, &shift)) {
        return err;
    }
    ZVHandle block;
    if (const KzErr err = header.mapSize > 0 ? ReadMap(io, header, &block) : MakeEmptyMap(header, &block)) {
        return err;
    }
    RsrcMap* map = reinterpret_cast<RsrcMap*>(*block.GetHandle());
    if (header.mapSize > 0) {
        map->header.mapOffset += static_cast<uInt32>(shift);
        map->header.dataOffset += static_cast<uInt32>(shift);
    }
    const int32 dataOffset = static_cast<int32>(map->header.dataOffset);
    io->Remap(&dataOffset, static_cast<int32>(map->header.dataSize), header.fileType);
    PrepareMap(map, io->IsReadOnly());

    kz::ScopedLock lock(gResourceMutex);
    if (mIsOpen) {
        DropMapLocked();
    }
    if (mIO != nullptr && mIO != io) {
        mIO->Close();
        delete mIO;
    }
    mIO = io;
    mMap = block.DetachHandle();
    mIsOpen = true;
    return kzErrNone;
}

void ZVResFile::GetTypeCreator(_FMFileType* type, _FMFileCreator* creator) const
{
    kz::ScopedLock lock(gResourceMutex);
    const RsrcMap* map = Map();
    if (type != nullptr) {
        *type = map != nullptr ? map->header.fileType : 0;
    }
    if (creator != nullptr) {
        *creator = map != nullptr ? map->header.fileCreator : 0;
    }
}

KzErr ZVResFile::RUpdateFile()
{
    kz::ScopedLock lock(gResourceMutex);
    return UpdateLocked();
}

KzErr ZVResFile::RCloseFile()
{
    kz::ScopedLock lock(gResourceMutex);
    const KzErr err = UpdateLocked();
    return err != kzErrNone ? err : CloseLocked();
}

KzErr ZVResFile::UpdateLocked()
{
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    return (Map()->fileAttrs & kRsrcMapChanged) == 0 ? kzErrNone : kzErrNoPermission;
}

KzErr ZVResFile::CloseLocked()
{
    DropMapLocked();
    return mIO->Close();
}

void ZVResFile::DropMapLocked()
{
    // Along the jar, not the map: the entries of a weakly checked map may overlap, and lose cookies to one another.
    for (uInt32 cookie = kz::NextCookie(mJar.GetJar(), 0); cookie != 0;
         cookie = kz::NextCookie(mJar.GetJar(), cookie)) {
        Resource* resource = nullptr;
        if (mJar.DisposeCookie(cookie, &resource) == kzErrNone) {
            delete resource;
        }
    }
    mCache.Invalidate();
    DSDisposeHandle(mMap);
    mMap = nullptr;
    mIsOpen = false;
}

// ---- ZVResFile: looking up ----

KzErr ZVResFile::FindLocked(_ResourceType type, int32 id, RsrcList** entry) const
{
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    RsrcMap* map = Map();
    const TypeList* list = kz::FindTypeList(map, type);
    *entry =
        list == nullptr ? nullptr : kz::SearchID(kz::FirstEntry(kz::GetTypeMap(map), *list), kz::EntryCount(*list), id);
    return *entry != nullptr ? kzErrNone : kzErrResNotFound;
}

KzErr ZVResFile::FindListLocked(_ResourceType type, RsrcList** first, int32* count) const
{
    *count = 0;
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    RsrcMap* map = Map();
    if (const TypeList* list = kz::FindTypeList(map, type)) {
        *first = kz::FirstEntry(kz::GetTypeMap(map), *list);
        *count = kz::EntryCount(*list);
    }
    return kzErrNone;
}

KzErr ZVResFile::RGet(_ResourceType type, int32 id, Resource** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    const KzErr err = FindLocked(type, id, &entry);
    return err != kzErrNone ? err : GetEntryLocked(type, entry, out);
}

KzErr ZVResFile::RGetInd(_ResourceType type, int32 index, Resource** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* first = nullptr;
    int32 count = 0;
    if (const KzErr err = FindListLocked(type, &first, &count)) {
        return err;
    }
    return index < 1 || index > count ? kzErrResNotFound : GetEntryLocked(type, first + (index - 1), out);
}

KzErr ZVResFile::RGetIndInfo(_ResourceType type, int32 index, int32* id, int32* attrs, unsigned char* name) const
{
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    int32 count = 0;
    if (const KzErr err = FindListLocked(type, &entry, &count)) {
        return err;
    }
    if (index < 1 || index > count) {
        return kzErrResNotFound;
    }
    entry += index - 1;
    if (id != nullptr) {
        *id = entry->id;
    }
    if (attrs != nullptr) {
        *attrs = static_cast<int32>(entry->attrs);
    }
    CopyName(Map(), *entry, name);
    return kzErrNone;
}

KzErr ZVResFile::RGetNamed(_ResourceType type, const unsigned char* name, Resource** out)
{
    if (out == nullptr || name == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    int32 count = 0;
    if (const KzErr err = FindListLocked(type, &entry, &count)) {
        return err;
    }
    for (; count > 0; --count, ++entry) {
        const unsigned char* entryName = kz::EntryName(Map(), *entry);
        if (entryName != nullptr && FileNameEqual(entryName, name)) {
            return GetEntryLocked(type, entry, out);
        }
    }
    return kzErrResNotFound;
}

KzErr ZVResFile::RExists(_ResourceType type, int32 id, int32* found)
{
    if (found == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    const KzErr err = FindLocked(type, id, &entry);
    *found = err == kzErrNone;
    return err;
}

KzErr ZVResFile::RIsLoaded(_ResourceType type, int32 id, bool* loaded)
{
    if (loaded == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* entry = nullptr;
    const KzErr err = FindLocked(type, id, &entry);
    *loaded = err == kzErrNone && entry->dataHolder != 0;
    return err;
}

KzErr ZVResFile::RGetIndStringPtr(const unsigned char** out, int32 id, int32 index, _ResourceType type)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    Resource* resource = nullptr;
    if (const KzErr err = RGet(type, id, &resource)) {
        return err;
    }
    *out = FindIndString(resource->GetData(), resource->GetSize(), index);
    return *out != nullptr ? kzErrNone : kzErrResNotFound;
}

KzErr ZVResFile::RCount(_ResourceType type, int32* count)
{
    if (count == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(gResourceMutex);
    RsrcList* first = nullptr;
    return FindListLocked(type, &first, count);
}

KzErr ZVResFile::RCountTypes(int32* count)
{
    if (count == nullptr) {
        return kzErrArgument;
    }
    *count = 0;
    kz::ScopedLock lock(gResourceMutex);
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    *count = kz::TypeCount(Map());
    return kzErrNone;
}

KzErr ZVResFile::RGetIndType(_ResourceType* type, int32 index)
{
    if (type == nullptr) {
        return kzErrArgument;
    }
    *type = 0;
    kz::ScopedLock lock(gResourceMutex);
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    RsrcMap* map = Map();
    if (index < 1 || index > kz::TypeCount(map)) {
        return kzErrResNotFound;
    }
    *type = kz::FirstType(kz::GetTypeMap(map))[index - 1].type;
    return kzErrNone;
}

KzErr ZVResFile::RGetFileAttrs(int32* attrs)
{
    if (attrs == nullptr) {
        return kzErrArgument;
    }
    kz::ScopedLock lock(gResourceMutex);
    if (!mIsOpen) {
        return kzErrResFileNotOpen;
    }
    *attrs = static_cast<int32>(Map()->fileAttrs);
    return kzErrNone;
}

KzErr ZVResFile::GetResourceForHandle(UHandle handle, Resource** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    {
        kz::ScopedLock lock(gResourceMutex);
        if (mIsOpen) {
            return FindResourceLocked(handle, out);
        }
    }
    KZ_REPORT(kDbgWarning, 0x34B6A9F0) << "FindRsrcListFromHandle - Resource map is NULL, m_isOpen = " << false
                                       << "theResource = " << DbgFmtPtr(handle);
    return kzErrResNotFound;
}

// ---- ZVResFile: entries and what is loaded ----

Resource* ZVResFile::HeldLocked(const RsrcList& entry) const
{
    Resource* resource = nullptr;
    const uInt32 cookie = entry.dataHolder;
    return cookie != 0 && mJar.GetCookieInfo(cookie, &resource) == kzErrNone ? resource : nullptr;
}

template <typename Match>
KzErr ZVResFile::WalkLoadedLocked(const Match& match, _ResourceType* type, RsrcList** out) const
{
    const bool found = mIsOpen && VisitEntries(Map(), [&](_ResourceType entryType, RsrcList* entry) {
                           const Resource* held = HeldLocked(*entry);
                           if (held == nullptr || !match(held)) {
                               return false;
                           }
                           *type = entryType;
                           *out = entry;
                           return true;
                       });
    return found ? kzErrNone : kzErrResNotFound;
}

KzErr ZVResFile::FindRsrcListLocked(const Resource* resource, _ResourceType* type, RsrcList** entry) const
{
    if (mCache.FindRL(resource, type, entry)) {
        return kzErrNone;
    }
    return WalkLoadedLocked([=](const Resource* held) { return held == resource; }, type, entry);
}

KzErr ZVResFile::FindResourceLocked(UHandle handle, Resource** out)
{
    _ResourceType type = 0;
    RsrcList* entry = nullptr;
    if (!mCache.FindRL(handle, &type, &entry)) {
        const auto holds = [=](const Resource* held) { return held->ContainsHandle(handle); };
        if (const KzErr err = WalkLoadedLocked(holds, &type, &entry)) {
            return err;
        }
    }
    return GetEntryLocked(type, entry, out);
}

KzErr ZVResFile::GetEntryLocked(_ResourceType type, RsrcList* entry, Resource** out)
{
    if (entry->dataHolder == 0) {
        if (const KzErr err = LoadRsrcFromListPtr(entry)) {
            return err;
        }
    }
    const uInt32 cookie = entry->dataHolder;
    if (const KzErr err = mJar.GetCookieInfo(cookie, out)) {
        return err;
    }
    mCache.Record(*out, type, mMap, entry);
    return kzErrNone;
}

KzErr ZVResFile::LoadRsrcFromListPtr(RsrcList* entry)
{
    if (entry->dataHolder != 0) {
        KZ_REPORT(kDbgWarning, 0xB95D27C1) << "already have non-null dataHolder";
        return kzErrNone;
    }
    const RsrcHeader& header = Map()->header;
    const int64 dataSize = header.dataSize;
    const int64 offset = entry->dataOffset;
    const int64 place = header.dataOffset + offset;
    if (offset + kz::kBlockHeadSize > dataSize || place > kMostBytes) {
        return kzErrEndOfFile;
    }
    ResourceData* data = nullptr;
    if (const KzErr err = mIO->LoadBlock(static_cast<int32>(place), dataSize - offset, this, &data)) {
        return err;
    }
    std::unique_ptr<ResourceData> ownedData(data);
    std::unique_ptr<ZVResource> resource(new (std::nothrow) ZVResource(this, data));
    if (resource == nullptr) {
        return kzErrMemoryFull;
    }
    ownedData.release();
    entry->dataHolder = mJar.NewCookie(resource.get());
    if (entry->dataHolder == 0) {
        return kzErrMemoryFull;
    }
    resource.release();  // the jar's, until the file closes
    return kzErrNone;
}

void ZVResFile::UnlinkLocked(RsrcList* entry)
{
    const uInt32 cookie = entry->dataHolder;
    mJar.DisposeCookie(cookie);
    entry->dataHolder = 0;
    mCache.Invalidate();
}

KzErr ZVResFile::MarkLocked(RsrcList* entry, uInt32 attrs)
{
    RsrcMap* map = Map();
    if ((map->fileAttrs & kRsrcMapReadOnly) != 0) {
        return kzErrNoPermission;
    }
    entry->attrs = attrs;
    map->fileAttrs |= kRsrcMapChanged;
    return kzErrNone;
}
