#include "UnixUserUtil.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "KzErr.h"
#include "ScopedLock.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/UnixUserUtil";

constexpr size_t kMaxName = 255;

void SetName(const char* text, size_t length, unsigned char* name)
{
    const size_t kept = std::min(length, kMaxName);
    name[0] = static_cast<unsigned char>(kept);
    std::memcpy(name + 1, text, kept);
}

void SetNumberName(uInt32 id, unsigned char* name)
{
    char digits[16];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, id);
    SetName(digits, static_cast<size_t>(end.ptr - digits), name);
}

KzErr NumberOf(const unsigned char* name, uInt32* id)
{
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
    char mText[kMaxName + 1] = {};
};

}  // namespace

KzErr UIDToName(uInt32 uid, unsigned char* name)
{
    if (name == nullptr) {
        return kzErrArgument;
    }
    {
        kz::ScopedLock lock(*UnixUserUtil_Service::Guard());
        if (const passwd* const entry = getpwuid(uid)) {
            SetName(entry->pw_name, std::strlen(entry->pw_name), name);
            return kzErrNone;
        }
    }
    SetNumberName(uid, name);
    return kzErrNone;
}

KzErr GIDToName(uInt32 gid, unsigned char* name)
{
    if (name == nullptr) {
        return kzErrArgument;
    }
    {
        kz::ScopedLock lock(*UnixUserUtil_Service::Guard());
        if (const group* const entry = getgrgid(gid)) {
            SetName(entry->gr_name, std::strlen(entry->gr_name), name);
            return kzErrNone;
        }
    }
    SetNumberName(gid, name);
    return kzErrNone;
}

KzErr NameToUID(const unsigned char* name, uInt32* id)
{
    if (name == nullptr || id == nullptr) {
        return kzErrArgument;
    }
    const NameText text(name);
    {
        kz::ScopedLock lock(*UnixUserUtil_Service::Guard());
        if (const passwd* const entry = getpwnam(text.Get())) {
            *id = entry->pw_uid;
            return kzErrNone;
        }
    }
    return NumberOf(name, id);
}

KzErr NameToGID(const unsigned char* name, uInt32* id)
{
    if (name == nullptr || id == nullptr) {
        return kzErrArgument;
    }
    const NameText text(name);
    {
        kz::ScopedLock lock(*UnixUserUtil_Service::Guard());
        if (const group* const entry = getgrnam(text.Get())) {
            *id = entry->gr_gid;
            return kzErrNone;
        }
    }
    return NumberOf(name, id);
}

KzErr GetHomeDir(std::string* out, const std::string& user)
{
    return kz::ErrOf(kModule, __LINE__, [&]() -> KzErr {
        if (out == nullptr) {
            return kzErrArgument;
        }
        out->clear();
        if (user.empty()) {
            const char* const home = std::getenv("HOME");
            if (home == nullptr) {
                return kzErrNotFound;
            }
            *out = home;
            return kzErrNone;
        }
        if (user.find('\0') != std::string::npos) {
            return kzErrNotFound;
        }
        kz::ScopedLock lock(*UnixUserUtil_Service::Guard());
        const passwd* const entry = getpwnam(user.c_str());
        if (entry == nullptr) {
            return kzErrNotFound;
        }
        *out = entry->pw_dir;
        return kzErrNone;
    });
}

UnixUserUtil_Service::UnixUserUtil_Service() : PlainService_T("UnixUserUtil", &kz::AddNeeds<&ThMutexService>) {}

ThMutex* UnixUserUtil_Service::Guard()
{
    static constinit ThMutex nothing = nullptr;
    UnixUserUtil_Service* const service =
        KZSingleton_T<UnixUserUtil_Service>::M_instPtr.load(std::memory_order_acquire);
    return service != nullptr ? &service->mMutex : &nothing;
}

KzErr UnixUserUtil_Service::_Init()
{
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
