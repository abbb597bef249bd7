#include "PathManager.h"

#include <atomic>
#include <clocale>
#include <cstdlib>
#include <string>

#include "MemoryManager.h"
#include "PathRef.h"
#include "Report.h"
#include "StringCStr.h"
#include "StringPStr.h"
#include "TrackedMalloc.h"
#include "UnixUserUtil.h"
#include "zvexcept.h"

namespace {

constexpr char kModule[] = "source/PathManager";

// Paths are stepped through by characters. Relaxed: it changes at start and stop only, and orders nothing else.
constinit std::atomic<bool> gStepByCharacter{false};

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
        gStepByCharacter.store(true, std::memory_order_relaxed);
        const KzErr err = PathRef::Init();
        if (err != kzErrNone) {
            // Nobody stops a service that failed to start; a later one must be free to try again.
            gStepByCharacter.store(false, std::memory_order_relaxed);
            PathRef::UnInit();
        }
        return err;
    });
}

KzErr PathManager_Service::_Uninit()
{
    gStepByCharacter.store(false, std::memory_order_relaxed);
    return PathRef::UnInit();
}

int32 PathNextChar(const char* text, int32 index)
{
    return gStepByCharacter.load(std::memory_order_relaxed) ? StrNextChar(text, index) : index + 1;
}

int32 PathPrevChar(const char* text, int32 index)
{
    if (index < 0) {
        KZ_REPORT(kDbgWarning, 0x9B02D67E) << "Negative index into string in PathPrevChar";
        return 0;
    }
    if (index == 0) {
        return 0;
    }
    return gStepByCharacter.load(std::memory_order_relaxed) ? StrPrevChar(text, index) : index - 1;
}

KzBool FileNameNEqual(const char* a, const char* b, int32 n)
{
    return StrNCaseEqual(a, b, static_cast<uInt32>(n));
}

KzBool FileNameCStrEqual(const char* a, const char* b)
{
    return StrCaseCmp(a, b) == 0;
}
