#!/usr/bin/env python3
"""Fails where a module of source/ includes one above its layer in docs/layers.txt.

Lines of that file, lowest layer first: `name: Module Module ...`, an indented line going on with the one before it, and
`allow From -> To: reason` for a pair that needs each other all the same. `#` starts a comment.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s+"(\w+)\.h"', re.MULTILINE)
ALLOW = re.compile(r"allow (\w+) -> (\w+): \S.*")


def read_layers(text):
    """Returns the layer of each module, the allowed pairs, and what is wrong with the file."""
    layer_of, allowed, faults, depth = {}, set(), [], 0
    text = re.sub(r"#.*", "", text)
    for line in re.sub(r"\n[ \t]+(?=\S)", " ", text).splitlines():
        line = line.strip()
        if match := ALLOW.fullmatch(line):
            allowed.add(match.groups())
        elif match := re.fullmatch(r"\w+:((?:\s+\w+)*)", line):
            depth += 1
            for module in match.group(1).split():
                if module in layer_of:
                    faults.append(f"docs/layers.txt: {module} stands there twice")
                layer_of[module] = depth
        elif line:
            faults.append(f"docs/layers.txt: cannot read: {line}")
    return layer_of, allowed, faults


def main():
    layer_of, allowed, faults = read_layers((ROOT / "docs/layers.txt").read_text())
    files = sorted(p for p in (ROOT / "source").iterdir() if p.suffix in (".h", ".cpp"))
    modules = {p.stem for p in files}
    faults += [f"docs/layers.txt: {m} is missing" for m in sorted(modules - layer_of.keys())]
    faults += [f"docs/layers.txt: there is no module {m}" for m in sorted(layer_of.keys() - modules)]
    needed = set()
    for path in files:
        for included in INCLUDE.findall(path.read_text()):
            if layer_of.get(included, 0) <= layer_of.get(path.stem, 0):
                continue
            needed.add((path.stem, included))
            if (path.stem, included) not in allowed:
                faults.append(f"{path.relative_to(ROOT)}: includes {included}, which is above it")
    faults += [f"docs/layers.txt: nothing needs `allow {a} -> {b}`" for a, b in sorted(allowed - needed)]
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
