// Reports of the modules that the streams rest on. Their texts stand ready, mostly in a BoundedText on the stack:
//     KZ_REPORT_TEXT(kDbgWarning, 0x5A31C07E, text);
// All others report by Report.h. Each source that reports names its module in a constant `kModule`, and the hash is a
// literal, different at every place.
#ifndef KZCORE_BAREREPORT_H
#define KZCORE_BAREREPORT_H

#include "DebugOutputCore.h"
#include "KZVersion.h"

#define KZ_REPORT_TEXT(level, hash, text) \
    (::DebugOutputCallHandler(kModule, __LINE__, KZCORE_VERSION_ID, (level), (hash), (text), 0))

#endif
