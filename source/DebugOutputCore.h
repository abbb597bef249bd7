// The road that reports leave by: the host's handler, or counters and the debugger when there is none. All calls work
// before the library starts and after it stopped, from any thread. Usable from C11 and C++20.
#ifndef KZCORE_DEBUGOUTPUTCORE_H
#define KZCORE_DEBUGOUTPUTCORE_H

#include "KZTypes.h"

// How bad a report is.
typedef enum _DebugOutputLevel {
    kDbgLog = 0,       // information and logged failures
    kDbgInternal = 1,  // internal notes of the path tree
    kDbgWarning = 2,   // something is wrong, work goes on
    kDbgError = 3,     // a defect that the code survives; breaks into an attached debugger
    kDbgFatal = 4      // a defect that can't be survived; says so on stderr and stops the process
} _DebugOutputLevel;

KZ_EXTERN_C_BEGIN

// Receives one report, on the thread that reports. The texts are the library's and valid during the call only. `hash`
// identifies the reporting place and is 0 at levels 0 and 1. A handler may call the library, report included; it must
// return and not throw. Reports that are nested more than 8 deep on one thread, as those of a handler that reports each
// time, are counted and not handed on; one of level 4 is also written to stderr, and stops nothing.
typedef void (*DebugOutputHandler)(const char* file, int32 line, const char* versionId, int32 level, uInt32 hash,
                                   const char* text, uInt64 extra);

// Installs a handler, which then gets every report in place of the counters, the debugger and the stop; null takes it
// away. A report that another thread is sending at that moment may still reach the handler before.
KZ_EXPORT void DebugOutputSetHandler(DebugOutputHandler handler);

// Installs a ready handler, which writes each report of at least this level to stderr as one line, "file(line): level
// 2: text", with blanks for control characters and at most 300 bytes each of file and text. It keeps the counts. As
// with any handler, a report of level 4 stops nothing. Called again it sets the level, for all threads. A level above 4
// writes none, one below 0 all.
KZ_EXPORT void DebugOutputToStderr(int32 level);

// The handler, or null.
KZ_EXPORT DebugOutputHandler DebugOutputGetHandler(void);

// How many reports of this level came since the last reset while no handler was installed, or nested too deep for the
// handler, and how often DebugOutputIncrementEventCount was called for it. 0 for an unknown level.
KZ_EXPORT int32 DebugOutputGetNumEvents(int32 level);

// Adds 1 to the level's count: for handlers that want the counts kept. Ignores an unknown level.
KZ_EXPORT void DebugOutputIncrementEventCount(int32 level);

// Sets all counts to 0.
KZ_EXPORT void DebugOutputResetNumEvents(void);

// Sends one report: to the handler, or else counts it, from level 3 on breaks into an attached debugger, and at level 4
// writes a line to stderr, with the text and the addresses of the call chain, and stops the process by a fault. Takes
// no lock and no memory.
KZ_EXPORT void DebugOutputCallHandler(const char* file, int32 line, const char* versionId, int32 level, uInt32 hash,
                                      const char* text, uInt64 extra);

// Breaks into an attached debugger with the first 255 characters of the text, then sends a report of level 0:
// "StopHere: " and the text. Null stands for an empty text. Always 0.
KZ_EXPORT int32 StopHere(const char* text);

// Does nothing, and stands here because hosts link against it.
KZ_EXPORT void DumpSomeMemory(unsigned char* memory, long size);

KZ_EXTERN_C_END

#endif
