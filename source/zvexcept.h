// ZVExcept, the one exception of the library, and the way from an exception to an error code.
#ifndef KZCORE_ZVEXCEPT_H
#define KZCORE_ZVEXCEPT_H

#include <cxxabi.h>

#include <exception>
#include <utility>

#include "KZTypes.h"
#include "KzErr.h"
#include "StackChain.h"

// Carries a KzErr through code written with exceptions. No exported C function lets it out.
class KZ_EXPORT ZVExcept : public std::exception {
public:
    // `detail` is cut to 127 characters, null means none; of `file` the last 31 characters are kept.
    ZVExcept(int err, const char* detail, const char* file, int line) noexcept;
    ~ZVExcept() override;
    ZVExcept(const ZVExcept&) = default;
    ZVExcept& operator=(const ZVExcept&) = default;

    // The code, the place and the detail in one line, cut to 254 characters; owned by the exception.
    const char* what() const noexcept override;

    // What the constructor was given, and the stack that it recorded.
    KzErr err() const { return mErr; }
    const char* file() const { return mFile; }
    int32 line() const { return mLine; }
    const char* diag() const { return mDetail; }
    const StackChainFS<16>& stack() const { return mStack; }
    StackChainFS<16>& stack() { return mStack; }

private:
    KzErr mErr;
    char mDetail[128] = {};
    char mFile[32] = {};
    int32 mLine;
    char mText[256] = {};
    StackChainFS<16> mStack;
};

// Called inside a catch block: the exception in flight as a ZVExcept. std::bad_alloc gives kzErrMemoryFull, a
// ZVExcept itself, any other std::exception kzErrGeneric; anything else is reported at level 3 and thrown on.
KZ_EXPORT ZVExcept GetExceptionInCatch_FileAndLine(const char* file, int line);

namespace kz {

#ifdef __cpp_exceptions
// Called inside a catch block: the code of the exception in flight, kzErrGeneric for one that is none of the standard
// library's kinds and is reported. Only the cancellation of a thread, which has to reach the thread's end, is thrown
// on. Null is not checked for, because a cancellation comes without an object.
__attribute__((no_sanitize("null"))) inline KzErr ErrOfExceptionInCatch(const char* file, int line)
{
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
    }
    try {
        return GetExceptionInCatch_FileAndLine(file, line).err();
    } catch (...) {
        return kzErrGeneric;
    }
}
#endif

// Runs `body`, which returns a KzErr, and turns what it throws into a code, as ErrOfExceptionInCatch does: the boundary
// of every exported C call. In a host compiled without exceptions nothing is caught, because nothing may be thrown.
template <typename Body>
KzErr ErrOf(const char* file, int line, Body&& body)
{
#ifdef __cpp_exceptions
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return ErrOfExceptionInCatch(file, line);
    }
#else
    static_cast<void>(file), static_cast<void>(line);
    return std::forward<Body>(body)();
#endif
}

}  // namespace kz

#endif
