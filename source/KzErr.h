// The library's one vocabulary of error codes, and the tables that fold the system's codes into it.
// Usable from C11 and C++20.
#ifndef KZCORE_KZERR_H
#define KZCORE_KZERR_H

#include "KZTypes.h"

// Every code: X(constant, value, meaning). Expand it to get a list of constants, names or texts.
#define KZ_ERR_LIST(X)                                                        \
    X(kzErrNone, 0, "no error")                                               \
    X(kzErrArgument, 1, "bad argument")                                       \
    X(kzErrMemoryFull, 2, "out of memory")                                    \
    X(kzErrBadZone, 3, "unknown handle or pointer")                           \
    X(kzErrEndOfFile, 4, "past the end of the file")                          \
    X(kzErrFileBusy, 5, "file is in use elsewhere")                           \
    X(kzErrIO, 6, "input or output failure")                                  \
    X(kzErrNotFound, 7, "file, directory or volume not found")                \
    X(kzErrNoPermission, 8, "not allowed, locked or write protected")         \
    X(kzErrDiskFull, 9, "no room on the volume")                              \
    X(kzErrDuplicatePath, 10, "path exists already")                          \
    X(kzErrTooManyFiles, 11, "too many files open")                           \
    X(kzErrNotPossible, 12, "refused by the file system")                     \
    X(kzErrResFileNotOpen, 13, "resource file not open or not valid")         \
    X(kzErrResAddFailed, 14, "resource could not be added or replaced")       \
    X(kzErrResNotFound, 15, "no such resource")                               \
    X(kzErrIniSyntax, 19, "INI syntax")                                       \
    X(kzErrTokenNotFound, 20, "configuration token is absent")                \
    X(kzErrTokenSyntax, 21, "configuration value could not be read")          \
    X(kzErrTokenMemory, 22, "no memory for a configuration value")            \
    X(kzErrGeneric, 42, "generic failure")                                    \
    X(kzErrNotSupported, 53, "not supported here")                            \
    X(kzErrQueueClosed, 67, "event queue accepts no events")                  \
    X(kzErrOccurrenceHandled, 69, "occurrence fired already")                 \
    X(kzErrInterruptQueueFull, 70, "interrupt-safe occurrence queue is full") \
    X(kzErrCorrupt, 74, "corrupt, or too little data or room")                \
    X(kzErrFormat, 85, "format string could not be expanded")                 \
    X(kzErrBadCount, 116, "bad count word of a string")                       \
    X(kzErrBadGuidText, 121, "GUID text is not 36 characters long")           \
    X(kzErrResFileVersion, 122, "resource file of a newer format")            \
    X(kzErrTimeout, 123, "wait ran out of time")                              \
    X(kzErrEmbeddedNul, 124, "NUL inside a text")                             \
    X(kzErrNoUniqueId, 128, "no free resource id left")

enum {
#define KZ_ERR_CONSTANT(constant, value, meaning) constant = (value),
    KZ_ERR_LIST(KZ_ERR_CONSTANT)
#undef KZ_ERR_CONSTANT
    // The configuration manager gives the INI engine's value to a type that it does not know.
    kzErrUnknownConfigType = 19
};

KZ_EXTERN_C_BEGIN

// The name of a code's constant, such as "kzErrArgument", and its meaning, such as "bad argument", for a message;
// "unknown" and "unknown error" for a number that is no code. 19 reads as kzErrIniSyntax. Never null; the texts are the
// library's and stay for good. Any thread, before the start too.
KZ_EXPORT const char* KzErrName(KzErr err);
KZ_EXPORT const char* KzErrText(KzErr err);

// The code for a classic file-system result; kzErrIO for one that has no other. Any thread.
KZ_EXPORT KzErr MacToKZErr(short osErr);

// The code for an errno value; kzErrIO for one that has no other. A negative argument stands for the present
// errno of the calling thread. Any thread.
KZ_EXPORT KzErr UnixToKZErr(int unixErr);

KZ_EXTERN_C_END

#endif
