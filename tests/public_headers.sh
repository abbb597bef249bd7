#!/bin/bash
# public_headers.sh COMPILER c++20|c11 SOURCE_DIR HEADER...: each header must compile by itself, with the warnings a
# careful host uses, and once more, in C++ without exceptions and type descriptions, after a system header whose macros
# (Status, None, Bool, Always) are of the greediest. As C11 only those count that say "Usable from C11".
set -euo pipefail

compiler=$1 standard=$2 source=$3
shift 3
language=c++
if [[ $standard == c11 ]]; then language=c; fi

checked=0 failed=0
for header in "$@"; do
    if [[ $language == c ]] && ! grep -q "Usable from C11" "$source/$header"; then continue; fi
    checked=$((checked + 1))
    for before in "" "#include <X11/Xlib.h>"; do
        options=()
        if [[ $language == c++ ]]; then options=(-Wold-style-cast); fi
        if [[ $language == c++ && -n $before ]]; then options+=(-fno-exceptions -fno-rtti); fi
        printf '%s\n#include "%s"\n' "$before" "$header" | "$compiler" -x $language -std="$standard" -fsyntax-only -Wall \
            -Wextra -Wpedantic -Wshadow -Wundef -Wconversion -Wsign-conversion -Werror "${options[@]}" -I"$source" - ||
            failed=$((failed + 1))
    done
done
echo "$compiler $standard: $checked headers, $failed failed"
((checked > 0 && failed == 0))
