#!/bin/bash
# run.sh --names: prints the names of the consumers, a line each.
# run.sh NAME BUILD_DIR WORK_DIR CXX: builds the user's project beside this script as one consumer does, and runs it.
# "install" goes first: it puts what BUILD_DIR holds, which CXX compiled, where the others look for it. Folders in WORK_DIR
# are kept, so that a second run compiles little.
set -euo pipefail

careful="-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wundef -Werror"
# name | way | its argument: a generator, or a compiler (the library's own, or the other one) and flags
consumers=(
    "install|Install|"
    "cmake|Package|Ninja"
    "make|Package|Unix Makefiles"
    "pkg-config|Flags|own $careful"
    "other-compiler|Flags|other $careful"
    "no-exceptions|Flags|own -fno-exceptions"
    "no-rtti|Flags|own -fno-rtti"
    "neither|Flags|other -fno-exceptions -fno-rtti"
    "c11|CFlags|own"
    "c11-other|CFlags|other"
    "static|Static|"
    "subdirectory|Subdirectory|"
)
if [[ ${1-} == --names ]]; then
    printf '%s\n' "${consumers[@]%%|*}"
    exit
fi

name=$1 build=$2 work=$3 own=$4
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source=$here/../..
prefix="$work/a moved prefix"

Die()
{
    echo "run.sh $name: $*" >&2
    exit 1
}

# Compiler own|other: prints the one that built the library, or the one of the two that did not.
Compiler()
{
    case $1/$own in
    own/*) echo "$own" ;;
    other/*clang*) echo g++-12 ;;
    *) echo clang++-14 ;;
    esac
}

# Configure DIR ARGUMENT...: a build folder from scratch, but for objects that are still good.
Configure()
{
    cmake --fresh --no-warn-unused-cli -B "$work/$1" -DCMAKE_CXX_COMPILER="$own" "${@:2}" >/dev/null
}

# PkgConfig LIBRARY_DIR ARGUMENT...: fills `flags`, with blanks in folders kept.
PkgConfig()
{
    eval "flags=($(PKG_CONFIG_PATH=$1/pkgconfig pkg-config "${@:2}" --cflags --libs kzcore))"
}

Install()
{
    rm -rf "$prefix" "$work/stage"
    DESTDIR=$work/stage cmake --install "$build" --prefix "/opt/a first prefix" >/dev/null
    # Nothing installed may name where it was first, since it is moved, nor the tree it comes from.
    mv "$work/stage/opt/a first prefix" "$prefix"
    [[ -z $(find "$work/stage" -type f) ]] || Die "installs beside its prefix: $(find "$work/stage" -type f)"
    if grep -rIl -e "a first prefix" -e "$build" "$prefix"; then Die "these name a folder of the build"; fi
    # Threads may call the library until the process ends, so nothing of it is torn down before.
    if nm -D --undefined-only "$prefix/lib/libkzcore.so" | grep -Ew '(__cxa_)?atexit(@.*)?'; then Die "has exit handlers"; fi
    "$prefix/bin/kzini" --version
}

Package()
{
    Configure "$name" -S "$here" -G "$1" -DCMAKE_PREFIX_PATH="$prefix"
    cmake --build "$work/$name" >/dev/null
    "$work/$name/consumer"
}

Flags()
{
    PkgConfig "$prefix/lib"
    "$(Compiler "$1")" -std=c++20 "${@:2}" "$here/main.cpp" -o "$work/$name" "${flags[@]}" -Wl,-rpath,"$prefix/lib"
    "$work/$name"
}

CFlags()
{
    local compiler
    compiler=$(Compiler "$1")
    compiler=${compiler/clang++/clang}
    PkgConfig "$prefix/lib"
    "${compiler/g++/gcc}" -std=c11 ${careful/-Wold-style-cast/} "$here/main.c" -o "$work/$name" "${flags[@]}" \
        -Wl,-rpath,"$prefix/lib"
    diff <("$work/$name" 2>&1) <(echo "7 counted, no error, kIniErrName")
}

# Also: an install of what isn't there yet leaves nothing, and one of what `kzcore_installed` builds is whole.
Static()
{
    local to=$work/static-prefix
    rm -rf "$to"
    Configure static -S "$source" -G "Unix Makefiles" -DBUILD_SHARED_LIBS=OFF -DKZ_BUILD_TESTS=OFF -DKZ_BUILD_FUZZ=OFF \
        -DCMAKE_INSTALL_LIBDIR=lib
    rm -f "$work/static/tools/kzini"
    if cmake --install "$work/static" --prefix "$to" 2>/dev/null; then Die "installs what isn't built"; fi
    [[ ! -e $to ]] || Die "leaves half an install"
    cmake --build "$work/static" -j "$(nproc)" --target kzcore_installed >/dev/null
    [[ ! -e $work/static/examples/read_string ]] || Die "builds what isn't installed"
    cmake --install "$work/static" --prefix "$to" >/dev/null

    Configure static-cmake -S "$here" -G Ninja -DCMAKE_PREFIX_PATH="$to"
    cmake --build "$work/static-cmake" >/dev/null
    "$work/static-cmake/consumer"
    PkgConfig "$to/lib" --static
    # gcc leaves the C++ library to what pkg-config says.
    "$own" -c -std=c++20 "$here/main.cpp" -o "$work/static.o" "${flags[@]}"
    gcc-12 -rdynamic "$work/static.o" -o "$work/static-host" "${flags[@]}"
    "$work/static-host"
    if readelf -d "$work/static-host" | grep libkzcore; then Die "asks for the shared library"; fi
    Symbols() { nm -D --defined-only --format=posix "$1" | sed 's/[@ ].*//' | LC_ALL=C sort; }
    shown=$(LC_ALL=C comm -12 <(Symbols "$work/static-host") <(Symbols "$prefix/lib/libkzcore.so"))
    [[ -z $shown ]] || Die "shows the library's symbols: $shown"
}

Subdirectory()
{
    local others
    Configure subdirectory -S "$here" -G Ninja -DKZCORE_SOURCE_DIR="$source" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=TRUE
    cmake --build "$work/subdirectory" -j "$(nproc)" >/dev/null
    "$work/subdirectory/consumer"
    others=$(find "$work/subdirectory/kzcore" -name CMakeFiles -prune -o -type f \( -name '*.a' -o -perm -u+x \) -print |
        grep -v '/libkzcore\.so' || true)
    [[ -z $others ]] || Die "builds more than the library: $others"
}

mkdir -p "$work"
for row in "${consumers[@]}"; do
    IFS='|' read -r row_name way argument <<<"$row"
    [[ $row_name == "$name" ]] || continue
    if [[ $way == Package ]]; then "$way" "$argument"; else "$way" $argument; fi
    exit
done
Die "no such consumer"
