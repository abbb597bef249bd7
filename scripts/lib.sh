# shellcheck shell=bash disable=SC2034
# Sourced by the scripts beside it: where the tree is, what must be installed, how a preset is built.

kz_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
kz_jobs=$(nproc)

kz_die()
{
    echo "${0##*/}: $*" >&2
    exit 2
}

kz_fuzzer_runtime=/usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-$(uname -m).a

# The Debian package of each program or file that the scripts need.
declare -A kz_package=(
    [g++-12]=g++-12
    [nm]=binutils
    [cmake]=cmake
    [ninja]=ninja-build
    [python3]=python3
    [pkg-config]=pkg-config
    [make]=make
    [clang++-14]=clang-14
    [clang-format-14]=clang-format-14
    [/usr/include/gtest/gtest.h]=libgtest-dev
    [/usr/include/benchmark/benchmark.h]=libbenchmark-dev
    [/usr/include/sqlite3.h]=libsqlite3-dev
    [/usr/include/absl/base/config.h]=libabsl-dev
    [/usr/include/fmt/format.h]=libfmt-dev
    [/usr/include/spdlog/spdlog.h]=libspdlog-dev
    [/usr/include/glib-2.0/glib.h]=libglib2.0-dev
    [/usr/include/SimpleIni.h]=libsimpleini-dev
    [/usr/include/ini.h]=libinih-dev
    [/usr/include/boost/version.hpp]=libboost-dev
    ["/usr/lib/$(uname -m)-linux-gnu/libmimalloc.so.2"]=libmimalloc2.0
    ["/usr/lib/$(uname -m)-linux-gnu/libjemalloc.so.2"]=libjemalloc2
    [$kz_fuzzer_runtime]=libclang-rt-14-dev
    [/usr/share/i18n/locales/tr_TR]=locales
    [/usr/include/X11/Xlib.h]=libx11-dev
    [/usr/lib/python3/dist-packages/clang/cindex.py]=python3-clang-14
    [gcovr]=gcovr
    [mandoc]=mandoc
    [zsh]=zsh
    [fish]=fish
    [doxygen]=doxygen
    [dpkg-shlibdeps]=dpkg-dev
    [abidw]=abigail-tools
    [lintian]=lintian
)
kz_build_needs=(g++-12 cmake ninja)
kz_test_needs=("${kz_build_needs[@]}" nm python3 pkg-config make clang++-14 /usr/include/gtest/gtest.h
    /usr/include/X11/Xlib.h /usr/lib/python3/dist-packages/clang/cindex.py mandoc zsh fish)
kz_check_needs=(nm python3 clang-format-14)
kz_reference_needs=(doxygen python3)
kz_bench_needs=("${kz_build_needs[@]}" /usr/include/benchmark/benchmark.h /usr/include/sqlite3.h
    /usr/include/absl/base/config.h /usr/include/fmt/format.h /usr/include/spdlog/spdlog.h pkg-config
    /usr/include/glib-2.0/glib.h /usr/include/SimpleIni.h /usr/include/ini.h /usr/include/boost/version.hpp
    "/usr/lib/$(uname -m)-linux-gnu/libmimalloc.so.2" "/usr/lib/$(uname -m)-linux-gnu/libjemalloc.so.2")
kz_package_needs=("${kz_build_needs[@]}" dpkg-shlibdeps)
kz_package_check_needs=("${kz_package_needs[@]}" abidw lintian nm pkg-config)
kz_fuzz_needs=(clang++-14 cmake ninja "$kz_fuzzer_runtime")

# kz_need WHAT...: installs the packages of those that are missing; touches nothing when all are there.
kz_need()
{
    local what packages=() sudo=()
    for what in "$@"; do
        if [[ $what == /* ]]; then [[ -e $what ]] || packages+=("${kz_package[$what]}")
        else command -v "$what" >/dev/null || packages+=("${kz_package[$what]}"); fi
    done
    ((${#packages[@]})) || return 0
    command -v apt-get >/dev/null || kz_die "missing, and no apt-get to install them: ${packages[*]}"
    if ((EUID != 0)); then
        command -v sudo >/dev/null || kz_die "run as root, or install: ${packages[*]}"
        sudo=(sudo)
    fi
    echo "installing ${packages[*]}" >&2
    "${sudo[@]}" apt-get update -qq >&2
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${packages[@]}" >&2
}

# kz_build PRESET [TARGET...]: configures and builds in build/PRESET, with all output on stderr.
kz_build()
{
    local preset=$1 target targets=() cached=()
    shift
    # With what it must overlook to keep results that used a precompiled header.
    if command -v ccache >/dev/null; then
        cached=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
        export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS-pch_defines,time_macros}
    fi
    for target in "$@"; do targets+=(--target "$target"); done
    cmake -S "$kz_root" --preset "$preset" "${cached[@]}" >&2
    cmake --build "$kz_root/build/$preset" -j "$kz_jobs" "${targets[@]}" >&2
}
