// Keeps the counts of what ran in children that end without exit handlers: by _exit, which the coverage build's linker
// leads here, and by abort, as death tests do. Fork and exec are looked after by the compiler's own library.
#include <csignal>
#include <cstdlib>

extern "C" {
void __gcov_dump(void);
[[noreturn]] void __real__exit(int code);

[[noreturn]] void __wrap__exit(int code)
{
    __gcov_dump();
    __real__exit(code);
}
}

namespace {

void DumpAndAbort(int signal)
{
    std::signal(signal, SIG_DFL);
    __gcov_dump();
    std::raise(signal);
}

const auto gOldHandler = std::signal(SIGABRT, DumpAndAbort);

}  // namespace
