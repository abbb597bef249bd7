// Makes the objects behind the resource interfaces (ResFile.h): the only way to the concrete classes, which no header
// of hosts declares.
#ifndef KZCORE_RESFILEFACTORY_H
#define KZCORE_RESFILEFACTORY_H

#include "KZTypes.h"
#include "ResFile.h"

// Each open call gives an object that the caller closes with RCloseFile and deletes; `type` and `creator` get the
// file's two codes and may be null. On failure all outputs are cleared, and what was passed in is the caller's.
// Codes and modes: see ROpenFile in ResourceManager.h. kzErrArgument also for a null output. Any thread, while the
// resource manager runs.
class KZ_EXPORT ResFileFactory {
public:
    // A file on disk.
    static KzErr ROpenPath(const PathRef& path, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);
    // A file that the caller has opened; the object takes it over.
    static KzErr ROpenFileref(File_t file, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);
    // Constant memory, which must outlive the object; read-only. kzErrArgument: more bytes than 31 bits can count.
    static KzErr ROpenMemFile(const unsigned char* data, unsigned long size, ResFile** out, _FMFileType* type,
                              _FMFileCreator* creator);
    // A handle, which the object takes over.
    static KzErr ROpenMemFile(UHandle handle, int32 mode, ResFile** out, _FMFileType* type, _FMFileCreator* creator);

    // Tells about a resource without loading it, see RGetIndInfo. kzErrResFileNotOpen also for null and for a kind of
    // file that keeps no map.
    static KzErr RGetIndInfo(const ResFile* file, _ResourceType type, int32 index, int32* id, int32* attrs,
                             unsigned char* name);

    // Makes the lock of all resource files and reads the configuration; the second undoes it. One thread, while no file
    // is open: for the resource manager, which calls them as it starts and stops. Codes of ThMutexCreate.
    static KzErr InitResourceMgr();
    static void UninitResourceMgr();
};

#endif
