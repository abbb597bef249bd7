#!/bin/bash
# run.sh cmake|pkg-config BUILD_DIR CXX: installs the build into a fresh prefix, and builds and runs the consumer beside
# this script against it.
set -euo pipefail

way=$1 build=$2 cxx=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
# A prefix that was moved after the install: nothing in it may name its old place.
mv "$work/first" "$work/prefix"

case $way in
cmake)
    cmake -S "$here" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$work/prefix"
    cmake --build "$work/build"
    "$work/build/consumer"
    ;;
pkg-config)
    pc=$(find "$work/prefix" -name kzcore.pc)
    export PKG_CONFIG_PATH=${pc%/*}
    libdir=$(pkg-config --variable=libdir kzcore)
    read -ra flags <<<"$(pkg-config --cflags --libs kzcore)"
    "$cxx" -std=c++20 "$here/main.cpp" -o "$work/consumer" "${flags[@]}" -Wl,-rpath,"$libdir"
    "$work/consumer"
    ;;
*)
    echo "run.sh: cmake or pkg-config, not $way" >&2
    exit 2
    ;;
esac
