// Names, numbers and home directories of users and groups. Usable from C11 and C++20.
//
// Names are counted strings of at most 255 bytes (a length byte, then the text); an output has room for 256. Any
// thread: the system's look-ups, which share static storage, are made one at a time.
#ifndef KZCORE_UNIXUSERUTIL_H
#define KZCORE_UNIXUSERUTIL_H

#include "KZTypes.h"
#ifdef __cplusplus
#include <string>

#include "ServiceObject.h"
#include "ThMutex.h"
#endif

KZ_EXTERN_C_BEGIN

// The name of a user or group; an unknown id gives its decimal digits. kzErrArgument: `name` is null.
KZ_EXPORT KzErr UIDToName(uInt32 uid, unsigned char* name);
KZ_EXPORT KzErr GIDToName(uInt32 gid, unsigned char* name);

// The id of a user or group by its name, or the number that the text is when nobody has that name. kzErrArgument: no
// such name and not a number of 32 bits all through, or an argument is null; `*id` is then unchanged.
KZ_EXPORT KzErr NameToUID(const unsigned char* name, uInt32* id);
KZ_EXPORT KzErr NameToGID(const unsigned char* name, uInt32* id);

KZ_EXTERN_C_END

#ifdef __cplusplus

// The home directory of the named user, as the system tells it; an empty name gives the environment's HOME.
// kzErrNotFound: no such user, or HOME is not set; `*out` is then empty. kzErrArgument: `out` is null.
// kzErrMemoryFull: out of memory.
KZ_EXPORT KzErr GetHomeDir(std::string* out, const std::string& user);

namespace kz {
struct UserLookUp;
}

// Owns the lock around the system's look-ups.
class UnixUserUtil_Service : public PlainService_T<UnixUserUtil_Service> {
    friend KZ_GammaPolicy<UnixUserUtil_Service>;
    friend kz::UserLookUp;

    // Where the lock is; it is null, nothing to lock, while the service does not run. Never null itself.
    static ThMutex* Guard();

    UnixUserUtil_Service();
    KzErr _Init() override;
    KzErr _Uninit() override;

    ThMutex mMutex = nullptr;  // guards the storage in which the system's look-ups answer
};

// The service, made on the first call.
KZ_EXPORT UnixUserUtil_Service* UnixUserUtilService();
#endif

#endif
