// The system's look-ups answer in static storage that the next look-up of any thread overwrites. So each is made, and
// its answer copied, under the service's lock; nothing else happens under it, because a look-up may ask the network and
// take seconds. The forms of these calls with storage of the caller's would need no lock, but a size for the storage
// that nobody knows beforehand.
#include "UnixUserUtil.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "KzAssert.h"
#include "KzErr.h"
#include "Literals.h"
#include "ScopedLock.h"
#include "zvexcept.h"

// The look-ups, which alone see the service's lock.
struct kz::UserLookUp {
    static ThMutex* Guard() { return UnixUserUtil_Service::Guard(); }
};

namespace {

constexpr char kModule[] = "source/UnixUserUtil";

// A longer text is cut, because a counted string has one byte for its length.
void SetName(const char* text, size_t length, unsigned char* name)
{
    KZ_ASSERT(text != nullptr && name != nullptr);
    const size_t kept = std::min(length, kz::kMostInPStr);
    name[0] = static_cast<unsigned char>(kept);
    std::memcpy(name + 1, text, kept);
}

void SetNumberName(uInt32 id, unsigned char* name)
{
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, id);
    SetName(digits, static_cast<size_t>(end.ptr - digits), name);
}

// The number that the whole of a name is, for ids that nobody has a name for.
KzErr NumberOf(const unsigned char* name, uInt32* id)
{
    KZ_ASSERT(name != nullptr && id != nullptr);
    const char* const begin = reinterpret_cast<const char*>(name + 1);
    const char* const end = begin + name[0];
    uInt32 value = 0;
    const std::from_chars_result read = std::from_chars(begin, end, value);
    if (read.ec != std::errc{} || read.ptr != end) {
        return kzErrArgument;
    }
    *id = value;
    return kzErrNone;
}

// A counted string as a C string: empty, which is nobody's name, when it holds a NUL.
class NameText {
public:
    explicit NameText(const unsigned char* name)
    {
        if (std::memchr(name + 1, 0, name[0]) == nullptr) {
            std::memcpy(mText, name + 1, name[0]);
        }
    }
    const char* Get() const { return mText; }

private:
    char mText[kz::kMostInPStr + 1] = {};
};

// Gives an id's name, which `find` looks up in the system's storage, or its digits where the system knows none.
template <typename Find>
KzErr NameOf(uInt32 id, unsigned char* name, Find find)
{
    if (name == nullptr) {
        return kzErrArgument;
    }
    {
        const kz::ScopedLock lock(*kz::UserLookUp::Guard());
        if (const char* const found = find(id)) {
            SetName(found, std::strlen(found), name);
            return kzErrNone;
        }
    }
    SetNumberName(id, name);
    return kzErrNone;
}

// Gives a name's id, which `find` looks up in the system's storage, or the number that the name is. A name comes first,
// because a user may be named like a number that is another one's id.
template <typename Find>
KzErr IdOf(const unsigned char* name, uInt32* id, Find find)
{
    if (name == nullptr || id == nullptr) {
        return kzErrArgument;
    }
    const NameText text(name);
    {
        const kz::ScopedLock lock(*kz::UserLookUp::Guard());
        if (const uInt32* const found = find(text.Get())) {
            *id = *found;
            return kzErrNone;
        }
    }
    return NumberOf(name, id);
}

}  // namespace

KzErr UIDToName(uInt32 uid, unsigned char* name)
{
    return NameOf(uid, name, [](uInt32 id) {
        const passwd* const entry = getpwuid(id);
        return entry != nullptr ? entry->pw_name : nullptr;
    });
}

KzErr GIDToName(uInt32 gid, unsigned char* name)
{
    return NameOf(gid, name, [](uInt32 id) {
        const group* const entry = getgrgid(id);
        return entry != nullptr ? entry->gr_name : nullptr;
    });
}

KzErr NameToUID(const unsigned char* name, uInt32* id)
{
    return IdOf(name, id, [](const char* text) {
        const passwd* const entry = getpwnam(text);
        return entry != nullptr ? &entry->pw_uid : nullptr;
    });
}

KzErr NameToGID(const unsigned char* name, uInt32* id)
{
    return IdOf(name, id, [](const char* text) {
        const group* const entry = getgrnam(text);
        return entry != nullptr ? &entry->gr_gid : nullptr;
    });
}

KzErr GetHomeDir(std::string* out, const std::string& user)
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        if (out == nullptr) {
            return kzErrArgument;
        }
        out->clear();
        // The environment comes first for the user of this process, because a user may set HOME to another place than
        // the system has for them. The system itself is asked only for users by name.
        if (user.empty()) {
            const char* const home = std::getenv("HOME");
            if (home == nullptr) {
                return kzErrNotFound;
            }
            *out = home;
            return kzErrNone;
        }
        // The system would read a name with a NUL as the shorter name before it, which may be another user's.
        if (user.find('\0') != std::string::npos) {
            return kzErrNotFound;
        }
        const kz::ScopedLock lock(*kz::UserLookUp::Guard());
        const passwd* const entry = getpwnam(user.c_str());
        if (entry == nullptr) {
            return kzErrNotFound;
        }
        *out = entry->pw_dir;
        return kzErrNone;
    });
}

UnixUserUtil_Service::UnixUserUtil_Service() : PlainService_T("UnixUserUtil", &kz::AddNeeds<&ThMutexService>) {}

// Reads the singleton's slot instead of calling its accessor, because that would make a service which nobody has asked
// for and nobody would destroy.
ThMutex* UnixUserUtil_Service::Guard()
{
    static constinit ThMutex nothing = nullptr;
    UnixUserUtil_Service* const service =
        KZSingleton_T<UnixUserUtil_Service>::M_instPtr.load(std::memory_order_acquire);
    return service != nullptr ? &service->mMutex : &nothing;
}

KzErr UnixUserUtil_Service::_Init()
{
    KZ_ASSERT(mMutex == nullptr);
    return ThMutexCreate(&mMutex, "gUnixUserUtilRights");
}

KzErr UnixUserUtil_Service::_Uninit()
{
    ThMutexDestroy(mMutex);
    mMutex = nullptr;
    return kzErrNone;
}

UnixUserUtil_Service* UnixUserUtilService()
{
    return KZSingleton_T<UnixUserUtil_Service>::Instance();
}
