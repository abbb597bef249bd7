#!/usr/bin/env python3
"""docs_programs.py BUILD_DIR PAGE...: builds and runs the programs on the pages, as a reader would who copies them.

A block of a page whose first line is ```c program or ```cpp program is a whole program: it compiles without a warning as C11
or C++20 against the shared library of the build, ends with 0, and prints what a block ```text output behind it says. One of
```c snippet or ```cpp snippet is the body of such a program in C++: what stands between the library's start and its stop, in a
host that takes a report of level 2 or more for a failure. A block ```NAME file=PATH is a file that stands in the folder where
the page's programs run.
"""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```(\w+) +(program|snippet|output|file=(\S+))\n(.*?)^```$", re.MULTILINE | re.DOTALL)
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Werror"]
COMPILERS = {"c": [os.environ.get("CC", "gcc-12"), "-std=c11"], "cpp": [os.environ.get("CXX", "g++-12"), "-std=c++20"]}

HOST = """#include <kzcore/KZCore.h>

#pragma GCC diagnostic ignored "-Wunused-variable"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"

int main()
{
    KZDefaultApp host;
    DebugOutputToStderr(kDbgWarning);
    KZAppInterfaceSet(&host);
    if (InitKZCoreBase() != 0) { return 1; }
    InitKZCoreAppSupport();
    {
%s
    }
    UninitKZCoreAppSupport();
    UninitKZCoreBase();
    return DebugOutputGetNumEvents(2) + DebugOutputGetNumEvents(3) + DebugOutputGetNumEvents(4);
}
"""


def run(command, folder):
    done = subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False, timeout=60)
    if done.returncode != 0:
        raise ValueError(f"{command[0]} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def try_program(page, build, language, text, expected):
    """Builds and runs one program. Raises ValueError with what is wrong."""
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for _, kind, path, content in BLOCK.findall(page.read_text()):
            if kind.startswith("file="):
                (folder / path).write_text(content)
        (folder / f"program.{language}").write_text(text)
        run([*COMPILERS[language], *WARNINGS, f"program.{language}", "-o", "program", f"-I{build}/include",
             f"-L{build}/source", f"-Wl,-rpath,{build}/source", "-lkzcore", "-pthread"], folder)
        printed = run(["./program"], folder)
        if expected is not None and printed != expected:
            raise ValueError(f"printed\n{printed}instead of\n{expected}")


def programs(page):
    """Yields (line, language, text, output or None) of each program."""
    text = page.read_text()

    def line_of(block):
        return text.count("\n", 0, block.start()) + 1

    blocks = [m for m in BLOCK.finditer(text) if not m[2].startswith("file=")]
    for block, behind in zip(blocks, blocks[1:] + [None]):
        output = behind[4] if behind is not None and behind[2] == "output" else None
        if block[2] == "program":
            yield line_of(block), block[1], block[4], output
        elif block[2] == "snippet":
            yield line_of(block), "cpp", HOST % block[4], output


def main():
    build, pages = pathlib.Path(sys.argv[1]).resolve(), [pathlib.Path(p) for p in sys.argv[2:]]
    tried, failed = 0, 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {pool.submit(try_program, page, build, *rest): f"{page.name}:{line}"
                for page in pages for line, *rest in programs(page)}
        for done in concurrent.futures.as_completed(runs):
            tried += 1
            if error := done.exception():
                failed += 1
                print(f"{runs[done]}: {error}", file=sys.stderr)
    print(f"{tried} programs, {failed} failed")
    return 1 if failed or not tried else 0


if __name__ == "__main__":
    sys.exit(main())
