#!/usr/bin/env python3
"""Fails where a module of source/ needs one above it in docs/layers.txt: by an include, or, given the folder of the
library's object files (check_layers.py FOLDER), by a symbol, which a declaration in a lower module's header would hide.

That file is one order from the first module to the last, inside a line too, so that there is no circle. Its lines:
`name: Module Module ...`, an indented line going on with the one before it, and `allow From -> To: reason` for a pair
that needs each other all the same. `#` starts a comment.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s+"(\w+)\.h"', re.MULTILINE)
ALLOW = re.compile(r"allow (\w+) -> (\w+): \S.*")


def read_layers(text):
    """Returns the place of each module, the allowed pairs, and what is wrong with the file."""
    place_of, allowed, faults = {}, set(), []
    text = re.sub(r"#.*", "", text)
    for line in re.sub(r"\n[ \t]+(?=\S)", " ", text).splitlines():
        line = line.strip()
        if match := ALLOW.fullmatch(line):
            allowed.add(match.groups())
        elif match := re.fullmatch(r"\w+:((?:\s+\w+)*)", line):
            for module in match.group(1).split():
                if module in place_of:
                    faults.append(f"docs/layers.txt: {module} stands there twice")
                place_of[module] = len(place_of)
        elif line:
            faults.append(f"docs/layers.txt: cannot read: {line}")
    return place_of, allowed, faults


def includes(files):
    """Yields (module, module that it includes, where)."""
    for path in files:
        for included in INCLUDE.findall(path.read_text()):
            yield path.stem, included, f"{path.relative_to(ROOT)}: includes {included}"


def symbols(folder, modules):
    """Yields (module, module whose symbol it takes, where). Weak symbols are everyone's own."""
    # A build folder keeps the objects of modules that are gone.
    objects = sorted(p for p in pathlib.Path(folder).rglob("*.cpp.o") if p.name.removesuffix(".cpp.o") in modules)
    if not objects:
        sys.exit(f"no object files in {folder}")
    home, taken = {}, []
    for path in objects:
        module = path.name.removesuffix(".cpp.o")
        table = subprocess.run(["nm", "--format=posix", path], capture_output=True, text=True, check=True).stdout
        for name, kind in (line.split()[:2] for line in table.splitlines()):
            if kind in "TDBRGSC":
                home[name] = module
            elif kind == "U":
                taken.append((module, name))
    for module, name in taken:
        if name in home:
            yield module, home[name], f"source/{module}.cpp: takes {name} of {home[name]}"


def main():
    place_of, allowed, faults = read_layers((ROOT / "docs/layers.txt").read_text())
    files = sorted(p for p in (ROOT / "source").iterdir() if p.suffix in (".h", ".cpp"))
    modules = {p.stem for p in files}
    faults += [f"docs/layers.txt: {m} is missing" for m in sorted(modules - place_of.keys())]
    faults += [f"docs/layers.txt: there is no module {m}" for m in sorted(place_of.keys() - modules)]
    needed = set()
    needs = list(includes(files)) + (list(symbols(sys.argv[1], modules)) if len(sys.argv) > 1 else [])
    for module, below, where in needs:
        if place_of.get(below, 0) <= place_of.get(module, 0):
            continue
        needed.add((module, below))
        if (module, below) not in allowed:
            faults.append(f"{where}, which is above it")
    faults += [f"docs/layers.txt: nothing needs `allow {a} -> {b}`" for a, b in sorted(allowed - needed)]
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
