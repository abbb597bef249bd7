// Path text may be cut before the path service has set the locale up, and after its end. Bytes are the only steps that
// mean the same in every locale, so they are taken then.
#include "PathStep.h"

#include "PathStepMode.h"
#include "Report.h"
#include "StringCStr.h"

namespace {

constexpr char kModule[] = "source/PathStep";

bool StepsByCharacter()
{
    return kz::gPathsStepByCharacter.load(std::memory_order_relaxed);
}

}  // namespace

int32 PathNextChar(const char* text, int32 index)
{
    return StepsByCharacter() ? StrNextChar(text, index) : index + 1;
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
    return StepsByCharacter() ? StrPrevChar(text, index) : index - 1;
}
