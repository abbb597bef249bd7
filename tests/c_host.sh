#!/bin/bash
# c_host.sh COMPILER INCLUDE_DIR LIBRARY: builds the host in C beside this script as C11 against the library, and runs it.
set -euo pipefail

compiler=$1 include=$2 library=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror "${BASH_SOURCE[0]%/*}/c_host.c" \
    -o "$work/c_host" -I"$include" "$library" -Wl,-rpath,"${library%/*}"
diff <("$work/c_host" 2>&1) <(echo "7 counted, no error, kIniErrName")
