#!/usr/bin/env python3
"""Checks what kzini's table of commands and options makes: the manual page, the completions and the help.

kzini_pages.py KZINI FOLDER, where FOLDER holds the pages as they are installed: each must be sound by its own reader
and name every command and option, completions must complete, and the example of each command must do.
"""
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

CHECKS = {"kzini.1": ["mandoc", "-Tlint", "-Wwarning"], "kzini": ["bash", "-n"], "_kzini": ["zsh", "-n"],
          "kzini.fish": ["fish", "--no-execute"]}
DEMO = "; the demo\n[Server]\nHost = here\nPort = 80\n"
COMPLETE = """
source "$1"; shift
COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _kzini; printf '%s\\n' "${COMPREPLY[@]}"
"""


def output(words, **more):
    result = subprocess.run(words, capture_output=True, text=True, check=False, **more)
    if result.returncode != 0 or result.stderr:
        sys.exit(f"{words}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


def require(truth, what):
    if not truth:
        sys.exit(what)


def check_examples(kzini, commands):
    """Each command's help has an example, which is run as it stands."""
    for command in commands:
        text = output([kzini, "help", command])
        require(text == output([kzini, command, "--help"]) == output([kzini, "-h", command]), f"help of {command}")
        example = text.split("Example:\n")[1].strip()
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "demo.ini").write_text(DEMO)
            pathlib.Path(folder, "other.ini").write_text("[Server]\nUser = me\n")
            path = os.path.dirname(kzini) + ":" + os.environ["PATH"]
            output(["sh", "-c", example], cwd=folder, env={**os.environ, "PATH": path})


def check_completions(kzini, folder):
    bash = ["bash", "-c", COMPLETE, "bash", str(folder / "kzini")]
    path = {**os.environ, "PATH": os.path.dirname(kzini) + ":" + os.environ["PATH"]}
    with tempfile.TemporaryDirectory() as scratch:
        # A name that a completion must not run.
        pathlib.Path(scratch, "demo.ini").write_text(DEMO + "[$(touch ran)]\nPut = x\n")
        for words, wanted in ((["se"], "set\n"), (["set", "--back"], "--backup\n"), (["set", "de"], "demo.ini\n"),
                              (["get", "demo.ini", "Se"], "Server\n"), (["get", "demo.ini", "Server", "P"], "Port\n"),
                              (["get", "demo.ini", "$"], "\\$\\(touch\\ ran\\)\n")):
            got = output([*bash, "kzini", *words], cwd=scratch, env=path)
            require(got == wanted, f"bash completes {words} to {got!r}, not {wanted!r}")
        require(os.listdir(scratch) == ["demo.ini"], "a completion ran what a file says")
    fish = f"source {shlex.quote(str(folder / 'kzini.fish'))}; complete -C 'kzini set --back'"
    require(output(["fish", "-c", fish]).startswith("--backup\t"), "fish completes no option")


def main():
    kzini, folder = os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2])
    text = output([kzini, "--help"])
    commands = re.findall(r"^  (\w+)(?= FILE)", text, re.M)
    options = re.findall(r"^  (?:-\w, )?--(\w[\w-]*)", text, re.M)
    require(len(commands) == 9 and len(options) == 19, f"the help has other commands or options: {commands} {options}")
    for name, check in CHECKS.items():
        page = (folder / name).read_text()
        output([*check, str(folder / name)])
        plain = page.replace("\\-", "-")
        for word in commands + options:
            require(re.search(rf"\b{word}\b", plain), f"{name} lacks {word}")
    check_examples(kzini, commands)
    check_completions(kzini, folder)


if __name__ == "__main__":
    main()
