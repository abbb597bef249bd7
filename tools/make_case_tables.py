#!/usr/bin/env python3
"""Writes source/UnicodeCaseTables.h: the full case mappings of Unicode, without those that depend on a locale or on
what stands beside a character, from the character data of this Python.

`make_case_tables.py` prints the file; `make_case_tables.py --check` fails where the one in the tree is another. With
another version of the data it cannot tell, says so and is content.
"""
import pathlib
import re
import sys
import unicodedata

FILE = pathlib.Path(__file__).resolve().parent.parent / "source/UnicodeCaseTables.h"
HEAD = """\
// Case mappings of Unicode {version}, made by tools/make_case_tables.py: full, without the conditional ones.
#ifndef KZCORE_UNICODECASETABLES_H
#define KZCORE_UNICODECASETABLES_H

#include "KZTypes.h"

namespace kz {{

// Each step-th character from first to last is moved by delta, the step being 1 or 2: {{0x61, 0x7A, 1, -32}} makes
// capitals of the 26 letters of ASCII; with step 2, where small letters stand between capitals, every other character
// is moved. With step 0 each becomes several characters: those of the expansion with the index delta for the first, and
// so on. What stands in no range maps to itself.
struct CaseRange {{
    uInt32 first;
    uInt32 last;
    int32 step;
    int32 delta;
}};

// 2 or 3 characters; 0 stands behind 2.
struct CaseExpansion {{
    char16_t to[3];
}};

// The ranges are in ascending order and don't overlap. No mapping leads out of the plane of 0x10000 characters that it
// starts in, so that a character takes as many UTF-16 units before as after, each of its expansion one.
// clang-format off
"""
TAIL = """\
// clang-format on

}  // namespace kz

#endif
"""


def characters():
    return (chr(c) for c in range(sys.maxunicode + 1) if not 0xD800 <= c <= 0xDFFF)


def tables(mapping):
    """Runs of characters, adjacent or alternating, that one difference maps or that become several; and what those
    become."""
    runs, expansions = [], []
    for c in characters():
        to, code = mapping(c), ord(c)
        first, last, step, delta = runs[-1] if runs else (0, 0, 0, 0)
        if len(to) > 1:
            assert len(to) <= 3 and max(c + to) <= "\uFFFF", hex(code)
            if runs and step == 0 and last == code - 1:
                runs[-1] = (first, code, 0, delta)
            else:
                runs.append((code, code, 0, len(expansions)))
            expansions.append("{{" + ", ".join(f"0x{ord(t):X}" for t in to.ljust(3, "\0")) + "}}")
        elif to != c:
            assert code >> 16 == ord(to) >> 16, hex(code)
            gap = code - last
            if step != 0 and delta == ord(to) - code and (gap == step or (first == last and gap == 2)):
                runs[-1] = (first, code, gap, delta)
            else:
                runs.append((code, code, 1, ord(to) - code))
    return [f"{{0x{a:X}, 0x{b:X}, {step}, {delta}}}" for a, b, step, delta in runs], expansions


def table(declaration, rows):
    lines = [f"inline constexpr {declaration}[] = {{"]
    line = ""
    for row in rows:
        if len(line) + len(row) + 2 > 114:
            lines.append("    " + line.rstrip())
            line = ""
        line += row + ", "
    return "\n".join(lines + ["    " + line.rstrip(), "};"]) + "\n"


def text():
    # Of the conditional mappings Python knows only that of a final sigma, which takes a letter before it.
    parts = []
    for name, mapping in (("Upper", str.upper), ("Lower", str.lower)):
        runs, expansions = tables(mapping)
        parts.append(table(f"CaseRange k{name}Ranges", runs))
        parts.append(table(f"CaseExpansion k{name}Expansions", expansions))
    return HEAD.format(version=unicodedata.unidata_version) + "\n".join(parts) + TAIL


def main():
    if sys.argv[1:] != ["--check"]:
        sys.stdout.write(text())
        return 0
    stored = FILE.read_text()
    version = re.search(r"Unicode ([0-9.]*[0-9])", stored).group(1)
    if version != unicodedata.unidata_version:
        print(f"{FILE.name} has Unicode {version}, this Python {unicodedata.unidata_version}: not compared")
        return 0
    if stored != text():
        print(f"{FILE.name} is not what tools/make_case_tables.py writes", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
