// Three things are taken in turn: a source (ZVResfileIO), its map (ReadOpenMap), and the lock, under which the map and
// the source change hands together. Reading happens before the lock, so that a slow disk holds up no other file, and a
// failed opening leaves an open file as it was.
//
// A resource is loaded under the lock, the bytes included, because two threads that ask for it must get the same
// object. All that is loaded belongs to the LoadedMap, in the order that its header tells.
#include "zvresfile.h"

#include <new>
#include <utility>

#include "ByteOrder.h"
#include "FileManager.h"
#include "MemoryManager.h"
#include "PathManager.h"
#include "Report.h"
#include "ResourceData.h"
#include "ResourceMap.h"
#include "ResourceTypes.h"
#include "ScopedLock.h"
#include "ZVResource.h"
#include "zvexcept.h"
#include "zvhandle.h"

namespace {

constexpr char kModule[] = "source/zvresfile";

// String `index` of a list: a 16-bit count, then counted strings. Null: not in the list or behind the data's end. The
// count is as untrusted as the lengths, because no validator looks into data, so each step is held within `size`.
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

// Opens `io` as a resource file; on failure `io` ends here, and what its constructor was given stays open.
KzErr CreateZVResfile(std::unique_ptr<ZVResfileIO> io, const ResOpening& opening)
{
    auto file = std::make_unique<ZVResFile>();
    const KzErr err = file->Open(io.get());
    if (err != kzErrNone) {
        return err;
    }
    io.release();  // the open file owns it
    file->GetTypeCreator(opening.type, opening.creator);
    *opening.out = file.release();
    return kzErrNone;
}

// What all ways of opening share: `makeIO` makes the source or gives the code of its failure.
template <typename MakeIO>
KzErr OpenAs(const ResOpening& opening, const MakeIO& makeIO)
{
    if (opening.out == nullptr) {
        return kzErrArgument;
    }
    *opening.out = nullptr;
    if (opening.type != nullptr) {
        *opening.type = 0;
    }
    if (opening.creator != nullptr) {
        *opening.creator = 0;
    }
    if (opening.mode != kRsrcReadWrite && opening.mode != kRsrcReadOnly) {
        return kzErrArgument;
    }
    return kz::ErrOf(kModule, __LINE__, [&] {
        std::unique_ptr<ZVResfileIO> io;
        const KzErr err = makeIO(&io);
        return err != kzErrNone ? err : CreateZVResfile(std::move(io), opening);
    });
}

}  // namespace

// ---- Opening and closing ----

KzErr ZVResFile::ROpenPath(const PathRef& path, const ResOpening& opening)
{
    return OpenAs(opening, [&](std::unique_ptr<ZVResfileIO>* io) {
        *io = std::make_unique<ZVResfileIO>();
        return (*io)->Open(path, opening.mode, kFMDenyNone);
    });
}

KzErr ZVResFile::ROpenFileref(File_t file, const ResOpening& opening)
{
    return OpenAs(opening, [&](std::unique_ptr<ZVResfileIO>* io) {
        *io = std::make_unique<ZVResfileIO>(file, opening.mode);
        return kzErrNone;
    });
}

KzErr ZVResFile::ROpenMemFile(const unsigned char* data, unsigned long size, const ResOpening& opening)
{
    return OpenAs(opening, [&](std::unique_ptr<ZVResfileIO>* io) -> KzErr {
        if (size > static_cast<unsigned long>(ZVResfileIO::kMostBytes)) {
            return kzErrArgument;
        }
        *io = std::make_unique<ZVResfileIO>(data, size);
        return kzErrNone;
    });
}

KzErr ZVResFile::ROpenMemFile(UHandle handle, const ResOpening& opening)
{
    return OpenAs(opening, [&](std::unique_ptr<ZVResfileIO>* io) -> KzErr {
        if (handle != nullptr && DSGetHandleSize(handle) > static_cast<unsigned long>(ZVResfileIO::kMostBytes)) {
            return kzErrArgument;
        }
        *io = std::make_unique<ZVResfileIO>(handle, opening.mode);
        return kzErrNone;
    });
}

ZVResFile::ZVResFile() = default;

ZVResFile::~ZVResFile()
{
    // Not RCloseFile, because a file with changes that it can't write would stay open.
    kz::ScopedLock lock(kz::gResourceRights);
    if (mMap.IsOpenLocked()) {
        CloseLocked();
    }
}

KzErr ZVResFile::Open(ZVResfileIO* io)
{
    if (io == nullptr) {
        KZ_REPORT(kDbgWarning, 0x8F1D60E3) << "fileIO object is NULL";
        return kzErrArgument;
    }
    if (!mMap.HasJar()) {
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
    if (const KzErr err = kz::ReadOpenMap(io, header, shift, &block)) {
        return err;
    }
    // The source is mapped only now, because a mapped one serves its data section alone, and not the map.
    const RsrcHeader& stored = reinterpret_cast<const RsrcMap*>(*block.GetHandle())->header;
    const int32 dataOffset = static_cast<int32>(stored.dataOffset);
    io->Remap(&dataOffset, static_cast<int32>(stored.dataSize), header.fileType);

    kz::ScopedLock lock(kz::gResourceRights);
    if (mMap.IsOpenLocked()) {
        mMap.DropLocked();
    }
    // A file that is opened again from its own source keeps it open.
    if (mIO.get() != io) {
        if (mIO != nullptr) {
            mIO->Close();
        }
        mIO.reset(io);
    }
    mMap.AdoptLocked(block.DetachHandle());
    return kzErrNone;
}

void ZVResFile::GetTypeCreator(_FMFileType* type, _FMFileCreator* creator) const
{
    kz::ScopedLock lock(kz::gResourceRights);
    const RsrcMap* map = mMap.MapLocked();
    if (type != nullptr) {
        *type = map != nullptr ? map->header.fileType : 0;
    }
    if (creator != nullptr) {
        *creator = map != nullptr ? map->header.fileCreator : 0;
    }
}

KzErr ZVResFile::RUpdateFile()
{
    kz::ScopedLock lock(kz::gResourceRights);
    return UpdateLocked();
}

KzErr ZVResFile::RCloseFile()
{
    kz::ScopedLock lock(kz::gResourceRights);
    // A file whose changes can't be written stays open with them.
    const KzErr err = UpdateLocked();
    return err != kzErrNone ? err : CloseLocked();
}

KzErr ZVResFile::UpdateLocked()
{
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    return (mMap.MapLocked()->fileAttrs & kRsrcMapChanged) == 0 ? kzErrNone : kzErrNoPermission;
}

KzErr ZVResFile::CloseLocked()
{
    KZ_ASSERT(mIO != nullptr);
    // The resources go first, because some of them point into the source's memory.
    mMap.DropLocked();
    return mIO->Close();
}

// ---- Looking up ----

KzErr ZVResFile::FindLocked(_ResourceType type, int32 id, RsrcList** entry) const
{
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    RsrcMap* map = mMap.MapLocked();
    const TypeList* list = kz::FindTypeList(map, type);
    *entry =
        list == nullptr ? nullptr : kz::SearchID(kz::FirstEntry(kz::GetTypeMap(map), *list), kz::EntryCount(*list), id);
    return *entry != nullptr ? kzErrNone : kzErrResNotFound;
}

KzErr ZVResFile::FindListLocked(_ResourceType type, RsrcList** first, int32* count) const
{
    *count = 0;
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    // An absent type is no failure: it has no resources.
    RsrcMap* map = mMap.MapLocked();
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
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    const KzErr err = FindLocked(type, id, &entry);
    return err != kzErrNone ? err : GetEntryLocked(type, entry, out);
}

KzErr ZVResFile::FindIndLocked(_ResourceType type, int32 index, RsrcList** entry) const
{
    RsrcList* first = nullptr;
    int32 count = 0;
    if (const KzErr err = FindListLocked(type, &first, &count)) {
        return err;
    }
    if (index < 1 || index > count) {
        return kzErrResNotFound;
    }
    *entry = first + (index - 1);
    return kzErrNone;
}

KzErr ZVResFile::RGetInd(_ResourceType type, int32 index, Resource** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    const KzErr err = FindIndLocked(type, index, &entry);
    return err != kzErrNone ? err : GetEntryLocked(type, entry, out);
}

KzErr ZVResFile::RGetIndInfo(_ResourceType type, int32 index, int32* id, int32* attrs, unsigned char* name) const
{
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    if (const KzErr err = FindIndLocked(type, index, &entry)) {
        return err;
    }
    if (id != nullptr) {
        *id = entry->id;
    }
    if (attrs != nullptr) {
        *attrs = static_cast<int32>(entry->attrs);
    }
    kz::CopyEntryName(mMap.MapLocked(), *entry, name);
    return kzErrNone;
}

KzErr ZVResFile::RGetNamed(_ResourceType type, const unsigned char* name, Resource** out)
{
    if (out == nullptr || name == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* entry = nullptr;
    int32 count = 0;
    if (const KzErr err = FindListLocked(type, &entry, &count)) {
        return err;
    }
    // Names stand in no order, and two resources may have the same one: the first in the order of ids wins.
    for (; count > 0; --count, ++entry) {
        const unsigned char* entryName = kz::EntryName(mMap.MapLocked(), *entry);
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
    kz::ScopedLock lock(kz::gResourceRights);
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
    kz::ScopedLock lock(kz::gResourceRights);
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
    // The lock is not kept beyond the look-up, because the result points into data that the caller has to keep from
    // being released anyway.
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
    kz::ScopedLock lock(kz::gResourceRights);
    RsrcList* first = nullptr;
    return FindListLocked(type, &first, count);
}

KzErr ZVResFile::RCountTypes(int32* count)
{
    if (count == nullptr) {
        return kzErrArgument;
    }
    *count = 0;
    kz::ScopedLock lock(kz::gResourceRights);
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    *count = kz::TypeCount(mMap.MapLocked());
    return kzErrNone;
}

KzErr ZVResFile::RGetIndType(_ResourceType* type, int32 index)
{
    if (type == nullptr) {
        return kzErrArgument;
    }
    *type = 0;
    kz::ScopedLock lock(kz::gResourceRights);
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    RsrcMap* map = mMap.MapLocked();
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
    kz::ScopedLock lock(kz::gResourceRights);
    if (!mMap.IsOpenLocked()) {
        return kzErrResFileNotOpen;
    }
    *attrs = static_cast<int32>(mMap.MapLocked()->fileAttrs);
    return kzErrNone;
}

KzErr ZVResFile::GetResourceForHandle(UHandle handle, Resource** out)
{
    if (out == nullptr) {
        return kzErrArgument;
    }
    *out = nullptr;
    {
        kz::ScopedLock lock(kz::gResourceRights);
        if (mMap.IsOpenLocked()) {
            _ResourceType type = 0;
            RsrcList* entry = nullptr;
            const KzErr err = mMap.FindRsrcListLocked(handle, &type, &entry);
            return err != kzErrNone ? err : GetEntryLocked(type, entry, out);
        }
    }
    // The report waits for the lock to be free, because its handler may ask for resources.
    KZ_REPORT(kDbgWarning, 0x34B6A9F0) << "FindRsrcListFromHandle - Resource map is NULL, m_isOpen = " << false
                                       << "theResource = " << DbgFmtPtr(handle);
    return kzErrResNotFound;
}

// ---- Loading ----

KzErr ZVResFile::GetEntryLocked(_ResourceType type, RsrcList* entry, Resource** out)
{
    if (entry->dataHolder == 0) {
        if (const KzErr err = LoadRsrcFromListPtr(entry)) {
            return err;
        }
    }
    return mMap.HeldLocked(type, entry, out);
}

KzErr ZVResFile::LoadRsrcFromListPtr(RsrcList* entry)
{
    KZ_ASSERT(entry != nullptr && mIO != nullptr && mMap.IsOpenLocked());
    if (entry->dataHolder != 0) {
        KZ_REPORT(kDbgWarning, 0xB95D27C1) << "already have non-null dataHolder";
        return kzErrNone;
    }
    const RsrcHeader& header = mMap.MapLocked()->header;
    const int64 dataSize = header.dataSize;
    const int64 offset = entry->dataOffset;
    const int64 place = header.dataOffset + offset;
    // A weakly checked map may place a block anywhere, and its header claim a data section that no position reaches.
    if (offset + kz::kBlockHeadSize > dataSize || place > ZVResfileIO::kMostBytes) {
        return kzErrEndOfFile;
    }
    ResourceData* loaded = nullptr;
    if (const KzErr err = mIO->LoadBlock(static_cast<int32>(place), dataSize - offset, this, &loaded)) {
        return err;
    }
    // Each step gives back what the one before it made, so that a lack of memory leaves the entry not loaded.
    std::unique_ptr<ResourceData> data(loaded);
    std::unique_ptr<ZVResource> resource(new (std::nothrow) ZVResource(&mMap, std::move(data)));
    if (resource == nullptr) {
        return kzErrMemoryFull;
    }
    if (const KzErr err = mMap.AddLocked(entry, resource.get())) {
        return err;
    }
    resource.release();  // the map's, until it is released or detached or the file closes
    return kzErrNone;
}

// ---- Walking ----

const char* ZVResFile::FaultLocked() const
{
    if (mMap.IsOpenLocked() && mIO == nullptr) {
        return "an open resource file has no source";
    }
    return mMap.FaultLocked();
}
