// Out of line, so that all these calls share one place of a report and its hash.
#include "NotStarted.h"

#include "KzErr.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/NotStarted";

}  // namespace

KzErr kz::NotStarted(const char* what)
{
    KZ_REPORT(kDbgWarning, 0x2D94E6B1) << what << ": kzcore is not started";
    return kzErrGeneric;
}
