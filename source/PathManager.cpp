// The path service changes what belongs to the whole process, the locale and the variable LANG, and it never changes
// them back: other threads may read either at any time, and a stop can't know who has come to depend on them.
#include "PathManager.h"

#include <clocale>
#include <cstdlib>
#include <string>

#include "MemoryManager.h"
#include "PathRef.h"
#include "PathStepMode.h"
#include "StringCStr.h"
#include "StringPStr.h"
#include "TrackedMalloc.h"
#include "UnixUserUtil.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/PathManager";

// Path text is UTF-8, which the C library's conversions learn from the locale; a process without one gets it.
void SetUpLocale()
{
    if (std::getenv("LANG") == nullptr) {
        // The characters' locale: that of all categories is no identifier where they differ.
        const char* const current = std::setlocale(LC_CTYPE, nullptr);
        const std::string identifier = current != nullptr ? current : "C";
        setenv("LANG", (identifier.substr(0, identifier.find_first_of(".@")) + ".UTF-8").c_str(), 0);
    }
    std::setlocale(LC_ALL, "");
}

}  // namespace

PathManager_Service::PathManager_Service()
    : PlainService_T("PathManager",
                     &kz::AddNeeds<&TrackedMallocFreeService, &MemoryManagerService, &UnixUserUtilService>)
{}

PathManager_Service* PathManagerService()
{
    return KZSingleton_T<PathManager_Service>::Instance();
}

KzErr PathManager_Service::_Init()
{
    return kz::ErrOf(kModule, __LINE__, []() -> KzErr {
        SetUpLocale();
        kz::gPathsStepByCharacter.store(true, std::memory_order_relaxed);
        const KzErr err = PathRef::Init();
        if (err != kzErrNone) {
            // Nobody stops a service that failed to start; a later one must be free to try again.
            kz::gPathsStepByCharacter.store(false, std::memory_order_relaxed);
            PathRef::UnInit();
        }
        return err;
    });
}

KzErr PathManager_Service::_Uninit()
{
    kz::gPathsStepByCharacter.store(false, std::memory_order_relaxed);
    return PathRef::UnInit();
}

KzBool FileNameNEqual(const char* a, const char* b, int32 n)
{
    return StrNCaseEqual(a, b, static_cast<uInt32>(n));
}

KzBool FileNameCStrEqual(const char* a, const char* b)
{
    return StrCaseCmp(a, b) == 0;
}
