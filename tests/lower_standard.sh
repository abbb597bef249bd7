#!/bin/bash
# lower_standard.sh COMPILER SOURCE_DIR HEADER...: compiled as C++17 each header says one line, that it needs C++20, and
# stops; those that C++17 can use, as C can, compile.
set -euo pipefail

compiler=$1 source=$2
shift 2

wanted='KZTypes.h:[0-9]+:[0-9]+: error: (#error )?"The headers of kzcore need C\+\+20 .*-std=c\+\+20\."'
stopped=0 failed=0
for header in "$@"; do
    if errors=$(printf '#include "%s"\n' "$header" | "$compiler" -x c++ -std=c++17 -fsyntax-only -I"$source" - 2>&1); then
        continue
    fi
    stopped=$((stopped + 1))
    # The line behind it ends the compilation, so that nothing hides the first.
    mapfile -t lines < <(grep "error:" <<<"$errors")
    if [[ ${#lines[@]} != 2 || ! ${lines[0]} =~ $wanted || ${lines[1]} != *"fatal error"* ]]; then
        echo "$header: ${lines[*]}"
        failed=$((failed + 1))
    fi
done
echo "$compiler: $stopped of $# headers need C++20, $failed say it badly"
((stopped > $# / 2 && failed == 0))
