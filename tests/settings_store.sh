#!/bin/bash
# settings_store.sh COMPILER INCLUDE_DIR LIBRARY: builds the example in C as C11 against the library, and uses it.
set -euo pipefail

compiler=$1 include=$2 library=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/../examples/settings_store.c
cd "$work"
"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror "$source" -o store \
    -I"$include" "$library" -Wl,-rpath,"${library%/*}"

# Try STATUS EXPECTED ARGUMENT...: what the program prints, its messages too, and how it ends.
Try()
{
    local status=0 printed
    printed=$(./store "${@:3}" 2>&1) || status=$?
    [[ $status == "$1" && $printed == "$2" ]] ||
        { printf 'store %s: ended with %s, not %s, and printed\n%s\ninstead of\n%s\n' \
            "${*:3}" "$status" "$1" "$printed" "$2" >&2; exit 1; }
}

Try 0 "Window.Width = 800" new.ini Window.Width
Try 3 "settings_store: wide is no value of Window.Width" new.ini Window.Width wide
[[ ! -e new.ini ]]
Try 0 "" new.ini Window.Title "Größe
\"2\""
Try 0 "Window.Title = Größe
\"2\"" new.ini Window.Title
Try 0 "" new.ini Files.Folder ""
Try 1 "settings_store: no setting Window.Depth" new.ini Window.Depth
Try 4 "settings_store: /no/such/folder/a.ini: no such file, or a bad object or file name (kIniErrFile)" \
    /no/such/folder/a.ini Window.Width 7

printf '; mine\n[Window]\nWidth = 10\n; how large\nZoom = big\n\n[Other]\nKept="1"\nKept = 2' >users.ini
Try 0 "" users.ini Window.Width 12
Try 3 "settings_store: line 5: not a number
Window.Zoom = 1.0" users.ini Window.Zoom
diff users.ini <(printf '; mine\n[Window]\nWidth = 12\n; how large\nZoom = big\n\n[Other]\nKept="1"\nKept = 2')
Try 3 "settings_store: line 5: not a number
Window.Title = Untitled
Window.Width = 12
Window.Zoom = 1.0
Window.Maximized = False
Files.Folder = " users.ini
