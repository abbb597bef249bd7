// The factory forwards to ZVResFile, so that hosts need none of its header. What it adds is the start and the stop: the
// configuration is asked once, and the one lock of all files lives from the one to the other.
#include "ResFileFactory.h"

#include "CfgAccess.h"
#include "KzErr.h"
#include "Literals.h"
#include "LoadedMap.h"
#include "ResourceReading.h"
#include "ResourceTypes.h"
#include "zvresfile.h"

namespace {

constexpr kz::CountedLiteral kWeakValidationToken{"UseWeakRsrcFileValidation"};

}  // namespace

KzErr ResFileFactory::ROpenPath(const PathRef& path, int32 mode, ResFile** out, _FMFileType* type,
                                _FMFileCreator* creator)
{
    return ZVResFile::ROpenPath(path, {mode, out, type, creator});
}

KzErr ResFileFactory::ROpenFileref(File_t file, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator)
{
    return ZVResFile::ROpenFileref(file, {mode, out, type, creator});
}

KzErr ResFileFactory::ROpenMemFile(const unsigned char* data, unsigned long size, ResFile** out, _FMFileType* type,
                                   _FMFileCreator* creator)
{
    return ZVResFile::ROpenMemFile(data, size, {kRsrcReadOnly, out, type, creator});
}

KzErr ResFileFactory::ROpenMemFile(UHandle handle, int32 mode, ResFile** out, _FMFileType* type,
                                   _FMFileCreator* creator)
{
    return ZVResFile::ROpenMemFile(handle, {mode, out, type, creator});
}

KzErr ResFileFactory::RGetIndInfo(const ResFile* file, _ResourceType type, int32 index, int32* id, int32* attrs,
                                  unsigned char* name)
{
    // Only this kind has a map to look into. The NULLResFile comes here too, when a refnum is unknown.
    const ZVResFile* known = dynamic_cast<const ZVResFile*>(file);
    return known != nullptr ? known->RGetIndInfo(type, index, id, attrs, name) : kzErrResFileNotOpen;
}

KzErr ResFileFactory::InitResourceMgr()
{
    // Without a configuration, or without the token in it, the validators stay on.
    int32 weak = 0;
    CfgGetDefault(kz::FourCharCode("Bool"), kWeakValidationToken.text, &weak);
    kz::SetWeakRsrcFileValidation(weak != 0);
    return kz::CreateResourceLock();
}

void ResFileFactory::UninitResourceMgr()
{
    kz::DestroyResourceLock();
}
