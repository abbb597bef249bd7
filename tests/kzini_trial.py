#!/usr/bin/env python3
"""Edits real configuration files with kzini, at random, and looks at each result with other eyes.

kzini_trial.py KZINI FOLDER [--edits N] [--processes P --sets S] [--kills K] [--seed SEED]

- Each file of FOLDER is edited N times. After each edit diff(1) and the bytes must show just the wanted lines, and
  configparser must read the rest unchanged where it could read the file before.
- P processes set S different keys each in one file: all must be there.
- K edits are killed at a random point: the file is the old or the new one, and the next edit leaves no other file.
"""
import argparse
import configparser
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time

VALUES = ["1", "yes", "a b c", "x=y", "; no comment", "# none", "C:\\dir\\file", "\"quoted\"", "it's", " blanks ",
          "grüße", "tab\there", "a,b, c", "", "[s]", "%(a)s", "$HOME/x", "two\nlines"]
BYTES = "surrogateescape"
MARK = b"\xef\xbb\xbf"


class Lines:
    """A second reading of INI text, apart from the engine's: what each line is, and which items stand where."""

    def __init__(self, data):
        text = data.decode("utf-8", BYTES)
        text = text[1:] if text.startswith("\ufeff") else text
        self.lines = text.splitlines()
        self.items = {}      # (section, tag) in lower case: indexes of lines
        self.goes_on = set()  # items that a line of their value, as other programs see it, follows
        self.sections = {"": []}
        self.odd = set()     # sections with lines that are neither item, comment nor blank
        section, first, last = "", None, None
        for i, line in enumerate(self.lines):
            body = line.strip()
            indent = len(line) - len(line.lstrip())
            if not body or body[0] in ";#":
                last = None if not body else last
                continue
            if body[0] == "[" and "]" in body:
                section = body[1:body.index("]")].strip().lower()
                self.sections.setdefault(section, []).append(i)
                first = last = None
                continue
            tag = body.split("=")[0].strip().lower()
            if first is not None and indent > first or "=" not in body or not tag:
                self.odd.add(section)
                if last is not None:
                    self.goes_on.add(last)
                continue
            first = indent if first is None else first
            last = i
            self.items.setdefault((section, tag), []).append(i)
        # Lines that go on count as items for the engine where they hold "=": their tags are not for an edit.
        self.hidden = {(s, line.split("=")[0].strip().lower()) for s, line in self.indented()}
        for key in self.hidden & set(self.items):
            del self.items[key]

    def indented(self):
        section = ""
        first = None
        for line in self.lines:
            body = line.strip()
            if body.startswith("[") and "]" in body:
                section, first = body[1:body.index("]")].strip().lower(), None
            elif body and body[0] not in ";#" and "=" in body:
                indent = len(line) - len(line.lstrip())
                first = indent if first is None else first
                if indent > first:
                    yield section, line


def read_by_configparser(data):
    """All options by (section, name), or None where configparser can't read the text."""
    parser = configparser.RawConfigParser(strict=False, allow_no_value=True, delimiters=("=",),
                                          default_section="\0none")
    try:
        parser.read_string(data.decode("utf-8-sig", BYTES))
    except configparser.Error:
        return None
    return {(s.strip().lower(), o): v for s in parser.sections() for o, v in parser.items(s)}


class Edit:
    """A command line and what may come of it: lines that go, how many come at most, which options differ."""

    def __init__(self, words, gone=(), come=0, options=(), section=None):
        self.words, self.gone, self.come = words, sorted(gone), come
        self.may_lack_blank = False
        self.options, self.section = set(options), section


def set_item(rng, lines):
    key = rng.choice(sorted(lines.items))
    at = lines.items[key]
    value = rng.choice(VALUES)
    words = ["set", "FILE", *key, "--", value]
    if len(at) == 1 and rng.random() < 0.8:
        return Edit(words, at, 1, [key])
    way = rng.randrange(3)
    if way == 0:
        return Edit(words[:1] + ["--all"] + words[1:], at, len(at), [key])
    if way == 1:
        n = rng.randrange(len(at))
        return Edit(words[:1] + ["--nth", str(n + 1)] + words[1:], [at[n]], 1, [key])
    return Edit(words[:1] + ["--add"] + words[1:], [], 1, [key])


def add_item(rng, lines):
    # In front of the first section only where items are, because other programs know none there.
    there = [s for s in sorted(lines.sections) if s or any(not k[0] for k in lines.items)]
    section = rng.choice(there) if rng.random() < 0.9 else "new" + str(rng.randrange(10**6))
    tag = "key" + str(rng.randrange(10**6))
    words = ["set", "FILE", section, tag, "--", rng.choice(VALUES)]
    if section in lines.sections:
        return Edit(words, [], 1, [(section, tag)])
    edit = Edit(words, [], 3, [(section, tag)])  # with the section's line, and a blank one unless there is one
    edit.may_lack_blank = True
    return edit


def unset_item(rng, lines):
    keys = [k for k in sorted(lines.items) if not set(lines.items[k]) & lines.goes_on]
    if not keys:
        return None
    key = rng.choice(keys)
    at = lines.items[key]
    if rng.random() < 0.1:
        section = key[0]
        gone = [i for k, v in lines.items.items() if k[0] == section for i in v] + lines.sections[section]
        is_plain = section not in lines.odd and not any(k[0] == section for k in lines.hidden)
        return Edit(["unset", "FILE", section], gone, 0, [], section) if is_plain and section else None
    if len(at) == 1:
        return Edit(["unset", "FILE", *key], at, 0, [key])
    n = rng.randrange(len(at))
    return Edit(["unset", "FILE", *key, "--nth", str(n + 1)], [at[n]], 0, [key])


def rename(rng, lines):
    new = "renamed" + str(rng.randrange(10**6))
    if rng.random() < 0.2:
        section = rng.choice(sorted(lines.sections))
        return Edit(["rename", "FILE", section, new], lines.sections[section], len(lines.sections[section]), [],
                    (section, new)) if section else None
    key = rng.choice(sorted(lines.items))
    at = lines.items[key]
    return Edit(["rename", "FILE", *key, new, "--all"], at, len(at), [key, (key[0], new)])


def comment(rng, lines):
    key = rng.choice(sorted(lines.items))
    words = ["comment", "FILE", *key, "; note " + str(rng.randrange(10**6))]
    old = [i for i, line in enumerate(lines.lines) if line.strip()[:1] in (";", "#") and line.strip()]
    if old and rng.random() < 0.5:
        i = rng.choice(old)
        if rng.random() < 0.7:
            return Edit(["comment", "FILE", "--remove", "--line", str(i + 1)], [i], 0)
        return Edit(["comment", "FILE", "--line", str(i + 1), words[-1]], [i], 1)
    return Edit(words[:4] + ["--nth", "1"] + words[4:], [], 1)


def require(truth, *what):
    if not truth:
        sys.exit("\n".join(str(each) for each in what))


def changes(old, new):
    """What diff(1) says of two lists of lines: for each hunk the indexes of lines that went, and how many came."""
    with tempfile.NamedTemporaryFile() as a, tempfile.NamedTemporaryFile() as b:
        for file, lines in ((a, old), (b, new)):
            file.write(b"".join(line + b"\n" for line in lines))
            file.flush()
        told = subprocess.run(["diff", "-a", a.name, b.name], capture_output=True, check=False)
    require(told.returncode in (0, 1), told.stderr)
    for line in told.stdout.splitlines():
        hunk = re.fullmatch(rb"(\d+)(?:,(\d+))?([acd])(\d+)(?:,(\d+))?", line)
        if hunk:
            i, j, k, m = (int(hunk[n] or hunk[n - 1]) for n in (1, 2, 4, 5))
            yield range(i - 1, j) if hunk[3] != b"a" else range(0), m - k + 1 if hunk[3] != b"d" else 0


def judge(edit, before, after, context):
    """Fails unless just the lines of the edit differ, and other programs read the rest as before."""
    require(before.startswith(MARK) == after.startswith(MARK), *context, "the mark")
    old, new = (each.removeprefix(MARK).splitlines(True) for each in (before, after))
    a, b = ([line.rstrip(b"\r\n") for line in each] for each in (old, new))
    went, came = 0, 0
    for gone, coming in changes(a, b):
        went, came = went + len(gone), came + coming
        require(not coming or set(gone) <= set(edit.gone), *context, f"lines {gone} of the old text differ")
    # Lines that are equal to their neighbours may be told as moved; the counts and the rest tell them.
    rest_of_old = [line for i, line in enumerate(a) if i not in edit.gone]
    more = len(b) - len(a) + len(edit.gone)
    require(edit.come - edit.may_lack_blank <= more <= edit.come and went <= len(edit.gone) and came <= edit.come,
            *context, f"{went} lines went, {came} came")
    left = iter(b)
    require(all(line in left for line in rest_of_old), *context, "lines that nobody asked for are not the same")
    ends = {line[len(line.rstrip(b"\r\n")):] for line in old} - {b""} or {b"\n"}
    require({line[len(line.rstrip(b"\r\n")):] for line in new} - {b""} <= ends, *context, "another kind of line end")
    require(before.endswith(b"\n") == after.endswith(b"\n") or not after or len(a) - 1 in edit.gone, *context,
            "the last line's end")
    options, changed = read_by_configparser(before), read_by_configparser(after)
    if options is not None:
        require(changed is not None, *context, "configparser can't read it any more")
        wanted = edit.section if isinstance(edit.section, tuple) else (edit.section, None)
        moved = {((wanted[1] if k[0] == wanted[0] else k[0]), k[1]): v for k, v in options.items()}
        for each in (moved, changed):
            for key in [k for k in each if k in edit.options or k[0] is None]:
                del each[key]
        require(moved == changed, *context, "configparser reads something else:", set(moved.items()) ^ set(changed.items()))
    return options is not None


def run(kzini, edit, path):
    words = [kzini] + [str(path) if word == "FILE" else word for word in edit.words]
    return subprocess.run(words, capture_output=True, check=False)


def edit_files(kzini, folder, count, rng, scratch):
    done = refused = parsed = 0
    for source in sorted(pathlib.Path(folder).iterdir()):
        path = scratch / source.name
        original = source.read_bytes()
        require(len(Lines(original).items) > 1, f"{source} has too few items for a trial")
        path.write_bytes(original)
        wanted = done + refused + count
        while done + refused < wanted:
            before = path.read_bytes()
            lines = Lines(before)
            if len(lines.items) < 2:
                path.write_bytes(original)
                continue
            way = rng.choice([set_item, set_item, add_item, add_item, unset_item, rename, comment])
            edit = way(rng, lines)
            if edit is None:
                continue
            result = run(kzini, edit, path)
            after = path.read_bytes()
            context = (source.name, edit.words, result.returncode, result.stderr.decode(), "before:",
                       before.decode("utf-8", BYTES), "after:", after.decode("utf-8", BYTES))
            require(result.returncode in (0, 3), *context)
            if result.returncode == 3:
                require(before == after, *context, "refused, and changed")
                refused += 1
                continue
            parsed += judge(edit, before, after, context)
            done += 1
        require([p.name for p in scratch.iterdir()] == [path.name], "more files than the one that was edited")
        path.unlink()
    require(done > 10 * refused, f"{refused} edits of {done + refused} were refused")
    print(f"{done} edits of {len(list(pathlib.Path(folder).iterdir()))} files, {refused} refused; "
          f"configparser compared {parsed}")


def set_at_once(kzini, processes, sets, scratch):
    path = scratch / "at-once.ini"
    loop = "i=0; while [ $i -lt $4 ]; do \"$1\" set \"$2\" s \"k$3.$i\" \"v$3.$i\" || exit; i=$((i+1)); done"
    running = [subprocess.Popen(["sh", "-c", loop, "sh", kzini, path, str(p), str(sets)]) for p in range(processes)]
    require(all(each.wait() == 0 for each in running), "a set failed")
    there = {tuple(line.split(" = ")) for line in path.read_text().splitlines() if " = " in line}
    wanted = {(f"k{p}.{i}", f"v{p}.{i}") for p in range(processes) for i in range(sets)}
    require(there == wanted, f"{len(wanted - there)} of {len(wanted)} are missing")
    require([p.name for p in scratch.iterdir()] == [path.name], "more files than the one that was edited")
    path.unlink()
    print(f"{processes} processes, {sets} sets each: all {len(wanted)} are there")


def kill_edits(kzini, count, rng, scratch):
    path = scratch / "killed.ini"
    path.write_text("[s]\nn = 0\n" + "".join(f"k{i} = {i}\n" for i in range(2000)))
    words = [kzini, "set", path, "s", "n"]
    started = time.monotonic()
    for i in range(5):
        subprocess.run(words + [str(i)], check=True)
    whole = (time.monotonic() - started) / 5
    killed = strays = changed = 0
    for i in range(count):
        before = path.read_bytes()
        process = subprocess.Popen(words + [f"new{i}"])
        time.sleep(rng.random() * whole * 1.1)
        process.kill()
        killed += process.wait() != 0
        after = path.read_bytes()
        new = re.sub(rb"\nn = .*\n", b"\nn = new%d\n" % i, before)
        require(after in (before, new), f"kill {i}: neither the old nor the new file")
        changed += after == new
        strays += len(os.listdir(scratch)) > 1
        require(len(os.listdir(scratch)) <= 2, os.listdir(scratch))
    subprocess.run(words + ["end"], check=True)
    require(os.listdir(scratch) == [path.name], os.listdir(scratch))
    path.unlink()
    print(f"{count} kills at random points: {killed} met the edit, {changed} files were the new ones; a temporary file "
          f"was there after {strays}, none after the next edit")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kzini")
    parser.add_argument("folder")
    parser.add_argument("--edits", type=int, default=200)
    parser.add_argument("--processes", type=int, default=40)
    parser.add_argument("--sets", type=int, default=50)
    parser.add_argument("--kills", type=int, default=500)
    parser.add_argument("--seed", type=int, default=1)
    arguments = parser.parse_args()
    rng = random.Random(arguments.seed)
    with tempfile.TemporaryDirectory() as name:
        scratch = pathlib.Path(name)
        edit_files(arguments.kzini, arguments.folder, arguments.edits, rng, scratch)
        set_at_once(arguments.kzini, arguments.processes, arguments.sets, scratch)
        kill_edits(arguments.kzini, arguments.kills, rng, scratch)


if __name__ == "__main__":
    main()
