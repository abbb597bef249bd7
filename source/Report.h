// One report in one statement:
//     KZ_REPORT(kDbgError, 0x5A31C07E) << "bad mutex verifier in " << name;
//     KZ_LOG(kDbgLog) << "Disposing jar with " << count << " cookies remaining";
// The text is collected in a DebugStream and sent at the end of the statement. Each source that reports names its
// module in a constant `kModule` ("source/ThMutex"). The hash is a literal, different at every place: scripts/check
// finds two that are equal. Levels 0 and 1 carry none.
#ifndef KZCORE_REPORT_H
#define KZCORE_REPORT_H

#include "DebugFormat.h"
#include "DebugStream.h"
#include "KZVersion.h"

#define KZ_REPORT(level, hash) (::kz::Report(kModule, __LINE__, (level), (hash)))
#define KZ_LOG(level) (::kz::Report(kModule, __LINE__, (level), 0))

namespace kz {

// One report, from its place to its sending. It lives for one statement, on the stack of the reporting thread.
class Report {
public:
    Report(const char* module, int line, _DebugOutputLevel level, uInt32 hash)
        : mStream(module, line, KZCORE_VERSION_ID, level)
    {
        mStream.SetHash(hash);
    }
    // Sent here, at the statement's end, because the operators before it only append.
    ~Report() { mStream.Process(); }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // Any value that an overload of ToDebugStream takes. Found by the arguments' namespaces too, so that a module can
    // give a type of its own a text.
    template <typename T>
    Report& operator<<(const T& value)
    {
        ToDebugStream(mStream, value);
        return *this;
    }

private:
    DebugStream mStream;
};

}  // namespace kz

#endif
