// Callers from C may hold a null path where C++ ones have no path at all, so null is answered here, once, and never
// reaches PathRef.
#include "PathClassic.h"

#include "KzErr.h"
#include "PathRef.h"
#include "Report.h"

namespace {

constexpr char kModule[] = "source/PathClassic";

}  // namespace

KzBool FIsAbsPath(const PathRef* path)
{
    return path != nullptr && path->IsValid() && !path->StartsWith(PathRef::kRelative);
}

KzErr FDestroyPath(PathRef** path)
{
    if (path == nullptr) {
        KZ_REPORT(kDbgWarning, 0x3E95C1A8) << "This is a noop.";
        return kzErrNone;
    }
    PathRef::DisposePath(*path);
    return kzErrNone;
}
