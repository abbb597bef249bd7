#!/usr/bin/env python3
"""since.py --check: fails where docs/since.txt, which has the version that each export appeared in, and the list of all
exports, tests/exports.txt, do not hold the same ones.
since.py --update: gives exports that are new the version at hand and takes out those that are gone; the others keep theirs.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SINCE = ROOT / "docs/since.txt"
EXPORTS = ROOT / "tests/exports.txt"
HEADING = "# The version in which each export appeared; written by tools/since.py. A line that is there is never changed.\n"


def exports():
    return sorted(set(EXPORTS.read_text().splitlines()))


def read_since():
    """Returns {export: version}."""
    lines = SINCE.read_text().splitlines() if SINCE.exists() else []
    pairs = (line.split(" ", 1) for line in lines if not line.startswith("#"))
    return {export: version for version, export in pairs}


def version_at_hand():
    return re.search(r'KZCORE_VERSION "(\d+\.\d+)', (ROOT / "source/KZVersion.h").read_text()).group(1)


def name_of(export):
    """Returns the export's name with its scopes and without its parameters: `kz::Mutex::Lock` of `kz::Mutex::Lock(int)`."""
    if "operator()" in export:
        return export[:export.index("operator()") + len("operator()")]
    return re.sub(r"\(.*", "", export)


def by_name():
    """Returns {name: {version: [exports]}}."""
    names = {}
    for export, version in read_since().items():
        names.setdefault(name_of(export), {}).setdefault(version, []).append(export)
    return names


def check():
    listed, exported = set(read_since()), set(exports())
    faults = [f"{e}: no version in docs/since.txt" for e in sorted(exported - listed)]
    faults += [f"{e}: in docs/since.txt, but not exported" for e in sorted(listed - exported)]
    if faults:
        print(*faults, "run tools/since.py --update", sep="\n", file=sys.stderr)
    return 1 if faults else 0


def update():
    known, now = read_since(), version_at_hand()
    SINCE.write_text(HEADING + "".join(f"{known.get(e, now)} {e}\n" for e in exports()))
    return 0


if __name__ == "__main__":
    if sys.argv[1:] not in (["--check"], ["--update"]):
        sys.exit(__doc__)
    sys.exit(check() if sys.argv[1] == "--check" else update())
