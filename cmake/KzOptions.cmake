# What every target of the tree is compiled with: the interface target kz_options.

add_library(kz_options INTERFACE)
target_compile_features(kz_options INTERFACE cxx_std_20)
target_compile_definitions(kz_options INTERFACE _GNU_SOURCE)
target_compile_options(kz_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wundef $<$<BOOL:${KZ_WERROR}>:-Werror>
    # The stack recorder walks frame pointers: every function keeps its frame.
    -fno-omit-frame-pointer -fno-optimize-sibling-calls)

# Strict C++20: the GNU dialect defines the macros `linux` and `unix`.
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(kz_options INTERFACE -Wthread-safety)
endif()

# Without this g++ gives ccache, which asks for preprocessed text, no sign of a precompiled header.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(kz_options INTERFACE -fpch-preprocess)
endif()

# Only where code is optimised, because checked sizes need it; the sanitizers have checks of their own.
# _GLIBCXX_ASSERTIONS stays out: in the benchmarks it took 18 of 100 from a report, 10 from orderings of INI files and 6 from
# cookies. What remains costs less than those can measure.
if(KZ_HARDEN AND NOT KZ_SANITIZE AND NOT KZ_COVERAGE)
    set(kz_hardened "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")
    target_compile_options(kz_options INTERFACE
        "$<${kz_hardened}:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
    target_link_options(kz_options INTERFACE "$<${kz_hardened}:-Wl,-z,relro;-Wl,-z,now>")
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
        target_compile_options(kz_options INTERFACE "$<${kz_hardened}:-fcf-protection>")
    endif()
endif()

if(KZ_COUNT_LIVE)
    target_compile_definitions(kz_options INTERFACE KZ_COUNT_LIVE)
endif()
if(KZ_VALGRIND)
    target_compile_definitions(kz_options INTERFACE KZ_VALGRIND)
endif()
# The walkers cost too much for every build; the one that looks for damage runs them.
if(KZ_SANITIZE MATCHES "address")
    target_compile_definitions(kz_options INTERFACE KZ_SLOW_CHECKS)
endif()
if(KZ_SANITIZE)
    target_compile_options(kz_options INTERFACE -fsanitize=${KZ_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(kz_options INTERFACE -fsanitize=${KZ_SANITIZE} -fno-sanitize-recover=all)
    # Instrumented code hides initialisations and sizes from these analyses of g++; the other presets keep them.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(kz_options INTERFACE -Wno-maybe-uninitialized -Wno-array-bounds -Wno-stringop-overflow)
    endif()
endif()
if(KZ_LIBFUZZER)
    target_compile_options(kz_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(KZ_COVERAGE)
    target_compile_options(kz_options INTERFACE --coverage -fprofile-update=atomic)  # else threads lose counts
    target_link_options(kz_options INTERFACE --coverage)
endif()
