#!/usr/bin/env python3
"""Fails on what neither compiler nor formatter sees: tests that are not registered, report hashes that are not literals
or not unique, files and functions that are too long, paths of the checkout, links that lead nowhere, and a KZCore.h that
is not the public list.
"""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("source", "tests", "bench", "fuzz", "examples", "tools", "scripts", "cmake", "docs")
MAX_FILE_LINES = 900
MAX_FUNCTION_LINES = 60
LITERAL = r"0x[0-9A-Fa-f]+|\b[0-9]+"
REPORT = re.compile(r"\bKZ_REPORT(?:_TEXT)?\(((?:[^()]|\([^()]*\))*)\)")


def code_files(*folders):
    return sorted(p for f in folders for p in (ROOT / f).rglob("*") if p.suffix in (".h", ".cpp", ".c"))


def name(path):
    return path.relative_to(ROOT)


def unregistered_tests():
    listed = re.findall(r"\b\w+_test\.cpp\b", (ROOT / "tests/CMakeLists.txt").read_text())
    for path in sorted((ROOT / "tests").glob("*_test.cpp")):
        if listed.count(path.name) != 1:
            yield f"{name(path)}: stands {listed.count(path.name)} times in tests/CMakeLists.txt"


def report_hashes():
    places = collections.defaultdict(list)
    for path in code_files("source"):
        text = re.sub(r"//[^\n]*", "", path.read_text())
        if path.name in ("Report.h", "BareReport.h"):
            continue

        def place(match):
            return f"{name(path)}:{text.count(chr(10), 0, match.start()) + 1}"

        for match in re.finditer(REPORT, text):
            value = match.group(1).split(",")[1].strip()
            if re.fullmatch(LITERAL, value):
                places[int(value, 0)].append(place(match))
            else:
                yield f"{place(match)}: the hash of a report is a literal, not {value}"
    for value, where in places.items():
        if len(where) > 1:
            yield f"report hash 0x{value:08X} is used more than once: {' '.join(where)}"


def lengths():
    for path in code_files("source", "tests", "bench", "fuzz", "examples"):
        lines = path.read_text().splitlines()
        if len(lines) > MAX_FILE_LINES:
            yield f"{name(path)}: {len(lines)} lines; {MAX_FILE_LINES} are enough for one module"
    # The formatter puts a function's braces on lines of their own, at the function's indentation.
    for path in code_files("source", "examples"):
        opened = {}
        for number, line in enumerate(path.read_text().splitlines(), 1):
            indent = len(line) - len(line.lstrip())
            if line.strip() == "{":
                opened[indent] = number
            elif line.strip() == "}" and indent in opened:
                if (count := number - opened.pop(indent) - 1) > MAX_FUNCTION_LINES:
                    yield f"{name(path)}:{number}: a function of {count} lines; {MAX_FUNCTION_LINES} are enough"


def machine_paths():
    pattern = re.compile(rf"(?<!\w){re.escape(str(ROOT))}/|\b__FILE__\b")
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp", ".c", ".txt", ".cmake", ".md", "", ".sh", ".in") or not path.is_file():
                continue
            if "data" in path.parts or "corpus" in path.parts:
                continue
            for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
                if pattern.search(line):
                    yield f"{name(path)}:{number}: names the path of this checkout, or __FILE__"


def links():
    """Links of the pages to files of the tree."""
    for path in [*ROOT.glob("*.md"), *(ROOT / "docs").glob("*.md")]:
        text = re.sub(r"^```.*?^```$", "", path.read_text(), flags=re.MULTILINE | re.DOTALL)
        for target in re.findall(r"\]\(([^)#:\s]+)(?:#[^)]*)?\)", text):
            if not (path.parent / target).exists():
                yield f"{name(path)}: a link to {target}, which is not there"


def umbrella():
    public = set(re.findall(r"\b\w+\.h\b", re.sub(r"#.*", "", (ROOT / "cmake/KzPublicHeaders.cmake").read_text())))
    included = set(re.findall(r'#include "(\w+\.h)"', (ROOT / "source/KZCore.h").read_text())) | {"KZCore.h"}
    for header in sorted(public ^ included):
        yield f"{header}: stands in only one of cmake/KzPublicHeaders.cmake and source/KZCore.h"
    for path in code_files("source"):
        if '#include "KZCore.h"' in path.read_text():
            yield f"{name(path)}: includes KZCore.h, which is for hosts"


def main():
    faults = [f for check in (unregistered_tests, report_hashes, lengths, machine_paths, links, umbrella) for f in check()]
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
