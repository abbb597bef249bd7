// What the sanitizers' run time asks a test binary for; in a plain build nobody calls these.

// Too large a request is a case under test: the allocator answers null, as the C library's does.
extern "C" __attribute__((used, visibility("default"))) const char* __asan_default_options();
extern "C" __attribute__((used, visibility("default"))) const char* __tsan_default_options();
extern "C" __attribute__((used, visibility("default"))) const char* __ubsan_default_options();

const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

const char* __tsan_default_options()
{
    return "allocator_may_return_null=1:second_deadlock_stack=1";
}

const char* __ubsan_default_options()
{
    return "print_stacktrace=1";
}
