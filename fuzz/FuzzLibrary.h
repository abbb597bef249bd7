// The library started for a harness, with its reports swallowed.
#ifndef KZCORE_FUZZ_FUZZLIBRARY_H
#define KZCORE_FUZZ_FUZZLIBRARY_H

#include "DebugOutputCore.h"
#include "FuzzCheck.h"
#include "KzErr.h"
#include "StartedLibrary.h"

namespace kzfuzz {

inline void Swallow(const char* /*file*/, int32 /*line*/, const char* /*versionId*/, int32 /*level*/, uInt32 /*hash*/,
                    const char* /*text*/, uInt64 /*extra*/)
{}

// Once, before the first input. The library runs until the process ends.
inline void StartLibrary()
{
    DebugOutputSetHandler(&Swallow);
    static const auto* const library = new kztest::StartedLibrary;
    Require(library->baseResult == kzErrNone, "the library's start");
}

}  // namespace kzfuzz

#endif
