// The library's random numbers, for what needs no secrecy: three coupled linear congruential streams (B. A. Wichmann
// and I. D. Hill, "Algorithm AS 183", Applied Statistics 31, 1982). Usable from C11 and C++20. Any thread may call.
#ifndef KZCORE_RANDOMGEN_H
#define KZCORE_RANDOMGEN_H

#include "KZTypes.h"

KZ_EXTERN_C_BEGIN

// Seed the generator from the clock, and give up its lock: while no other thread draws. A generator that was not seeded
// seeds itself at its first draw. kzErrMemoryFull: its lock can't be made; another takes its place.
KZ_EXPORT KzErr InitRandomGen(void);
KZ_EXPORT void UninitRandomGen(void);

// The next number, at least 0 and below 1. Several threads draw from one sequence.
KZ_EXPORT void RandomGen(double* out);

// Seeds the three words of a generator of the caller's own from the next number; returns the second.
KZ_EXPORT uInt32 RandomGenInitState(uInt32 state[3]);

KZ_EXTERN_C_END

#endif
