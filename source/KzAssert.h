// What a function takes for granted, checked in debug and sanitizer builds and free in release ones. The first lines of
// a helper state with KZ_ASSERT what its caller has promised; an exported function states nothing of the kind about its
// arguments, because it answers a wrong one with a code.
#ifndef KZCORE_KZASSERT_H
#define KZCORE_KZASSERT_H

#include <cstdio>
#include <cstdlib>

namespace kz {

// Ends the process, because what comes after a broken promise can't be trusted, not even to report it.
[[noreturn]] inline void AssertionFailed(const char* condition, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, condition);
    std::abort();
}

}  // namespace kz

// The condition of a check that is off is compiled, so that it can't rot and its variables count as used, but not run.
#define KZ_ASSERT_OFF(...) static_cast<void>(sizeof(static_cast<bool>(__VA_ARGS__)))
#define KZ_ASSERT_ON(...) \
    ((__VA_ARGS__) ? static_cast<void>(0) : kz::AssertionFailed(#__VA_ARGS__, __FILE_NAME__, __LINE__))

#if defined(NDEBUG)
#define KZ_ASSERT(...) KZ_ASSERT_OFF(__VA_ARGS__)
#else
#define KZ_ASSERT(...) KZ_ASSERT_ON(__VA_ARGS__)
#endif

// For walkers, whose cost grows with what they walk: only in builds with KZ_SLOW_CHECKS, as those with the address
// sanitizer are.
#if defined(KZ_SLOW_CHECKS) && !defined(NDEBUG)
#define KZ_ASSERT_SLOW(...) KZ_ASSERT_ON(__VA_ARGS__)
#else
#define KZ_ASSERT_SLOW(...) KZ_ASSERT_OFF(__VA_ARGS__)
#endif

#endif
