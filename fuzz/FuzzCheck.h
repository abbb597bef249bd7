// What a harness does about a broken promise: it says which, and stops.
#ifndef KZCORE_FUZZ_FUZZCHECK_H
#define KZCORE_FUZZ_FUZZCHECK_H

#include <cstdio>
#include <cstdlib>

namespace kzfuzz {

inline void Require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

}  // namespace kzfuzz

#endif
