#!/bin/bash
# hardening.sh FILE...: fails unless each library or program is built with a stack protector, checked sizes, marks for
# indirect jumps, read-only relocations, and at any address. A file that has nothing to protect would fail too.
set -euo pipefail

failed=0
# Has WHAT TEXT PATTERN
Has()
{
    grep -Eq -e "$3" <<<"$2" || { echo "hardening.sh: $file: no $1" >&2; failed=1; }
}
for file in "$@"; do
    imports=$(nm -D --undefined-only "$file")
    headers=$(readelf -hlW "$file")
    dynamic=$(readelf -dW "$file")
    Has "stack protector" "$imports" '__stack_chk_fail'
    Has "checked sizes" "$imports" '__(mem|str|v?s?n?printf|v?fprintf|f?gets|f?read|recv|poll|realpath|getcwd)[a-z]*_chk'
    Has "marks for indirect jumps" "$(objdump -d --no-show-raw-insn "$file")" 'endbr64'
    Has "read-only relocations" "$headers" 'GNU_RELRO'
    Has "binding at the start" "$dynamic" 'BIND_NOW|FLAGS_1.*NOW'
    Has "data-only stack" "$headers" 'GNU_STACK .* RW '
    Has "freedom of address" "$headers" 'Type: +DYN'
    if grep -q TEXTREL <<<"$dynamic"; then echo "hardening.sh: $file: relocations in code" >&2; failed=1; fi
done
exit $failed
