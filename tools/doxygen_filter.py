#!/usr/bin/env python3
"""doxygen_filter.py HEADER: writes the header with its comments in Doxygen's form, for the reference of scripts/reference.

The headers have plain comments, each in front of what it describes or behind it on the line. One in front holds for all
declarations that follow it without an empty line, so each of them is given it; in a class only where they have one name, or
where it starts with "Each". The comment at a header's top is that of
the file, and a comment with an empty line behind it is for readers of the header alone. Exported functions get the version
that they appeared in, from docs/since.txt.

doxygen_filter.py --check: fails where an export with C linkage is in no installed header, or comes without a description.
"""
import pathlib
import re
import sys

import since

SCOPE = re.compile(r"(?:template\s*<.*>\s*|requires\b.*?\)\s*|typedef\s+)*(class|struct|union|enum|namespace|extern \"[^\"]*\")"
                   r"(?:\s+class)?(?:\s+[A-Z_]+\([^)]*\)|\s+KZ_EXPORT)*(?:\s+(\w+))?")
ACCESS = re.compile(r"(public|protected|private):$")
EXPORT = re.compile(r"\b(?:KZ|INI)_EXPORT\b")
LIST_IN_ENUM = re.compile(r"\s*(\w+_LIST)\(\w+\)$")
CODE = re.compile(r'X\((\w+), (-?\d+), "((?:[^"\\]|\\.)*)"\)')
SPECIAL = re.compile(r"[\\@&<>#%$\"]")


def without_texts(line):
    """Returns the line's code with its strings emptied, and the column at which its comment starts, or None."""
    blanked = re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'', lambda m: m[0][0] + " " * (len(m[0]) - 2) + m[0][0], line)
    column = blanked.find("//")
    return (blanked.rstrip(), None) if column < 0 else (blanked[:column].rstrip(), column)


def doxygen_text(lines):
    """Returns the lines of a comment, without their slashes, in Doxygen's language."""
    out, inside = [], False
    text = []

    def flush():
        parts = "\n".join(text).split("`")
        for i, part in enumerate(parts):
            part = SPECIAL.sub(r"\\\g<0>", part)
            parts[i] = f"<tt>{part}</tt>" if i % 2 else part
        out.extend("".join(parts).split("\n") if text else [])
        text.clear()

    for line in lines:
        example = line.startswith("    ")
        if example != inside:
            flush()
            out.append("\\verbatim" if example else "\\endverbatim")
            inside = example
        (out if example else text).append(line.removeprefix(" "))
    flush()
    return out + (["\\endverbatim"] if inside else [])


class Header:
    """One header on its way through the filter."""

    def __init__(self, path, versions):
        self.lines = path.read_text().splitlines()
        self.name = path.name
        self.versions = versions
        self.at = 0
        self.out = []
        self.scopes = []        # (keyword, name) of each open brace
        self.comment = []       # of the declarations at hand
        self.first = None       # the name of the first of them, once it is known
        self.behind = None      # the column of the comment that stands behind the last declaration
        self.seen = {}          # export: whether it is described

    def filtered(self):
        self.file_comment()
        while self.at < len(self.lines):
            self.step()
        return self.out

    def file_comment(self):
        block = self.block()
        self.out += ["/// \\mainpage" if self.name == "KZCore.h" else f"/// \\file {self.name}", "///"]
        self.out += [f"/// {line}".rstrip() for line in doxygen_text(block)]
        self.out.append("")

    def block(self):
        start = self.at
        while self.at < len(self.lines) and self.lines[self.at].lstrip().startswith("//"):
            self.at += 1
        return [line.lstrip()[2:] for line in self.lines[start:self.at]]

    def step(self):
        line = self.lines[self.at]
        code, column = without_texts(line)
        if not code and column is not None:
            if self.behind is not None and column == self.behind:
                self.out.append(line[:column] + "///< " + doxygen_text([line[column + 2:]])[0])
                self.at += 1
                return
            self.comment, self.first = self.block(), None
            if self.at < len(self.lines) and not self.lines[self.at].strip():
                self.comment = []
        elif not code:
            self.comment = []
            self.pass_on()
        elif LIST_IN_ENUM.match(code) and self.inside("enum"):
            self.rows(LIST_IN_ENUM.match(code)[1])
        elif code.lstrip().startswith("#"):
            self.directive(code)
        elif code.lstrip().startswith("}"):
            self.close(code)
        elif ACCESS.match(code.strip()):
            self.comment = []
            self.pass_on()
        elif code.startswith("KZ_EXTERN_C_"):
            self.pass_on()
        else:
            self.declaration()
        if code:
            self.behind = column

    def pass_on(self):
        self.out.append(self.lines[self.at])
        self.at += 1

    def directive(self, code):
        if re.match(r"\s*#\s*define\b", code):
            self.describe(code, self.at)
        while self.lines[self.at].endswith("\\"):
            self.pass_on()
        self.pass_on()

    def rows(self, macro):
        """Writes a list of codes as the enumerators that it makes, each with its meaning."""
        rows = re.search(rf"#define {macro}\(X\)((?:.*\\\n)*.*)", "\n".join(self.lines))[1]
        for name, value, meaning in CODE.findall(rows):
            text = doxygen_text([meaning.replace("\\", "")])[0]
            self.out.append(f"    {name} = {value},  ///< {text}")
        self.at += 1

    def close(self, code):
        for _ in range(code.count("}") - code.count("{")):
            self.scopes.pop()
        self.comment = []
        self.pass_on()

    def declaration(self):
        start, text = self.at, ""
        while True:
            code, column = without_texts(self.lines[self.at])
            text = f"{text} {code.strip()}".strip()
            self.at += 1
            opens = text.count("{") - text.count("}")
            scope = SCOPE.match(text)
            if text.count("(") > text.count(")"):
                continue
            if opens == 1 and scope:
                break
            if opens == 0 and (text[-1] in ";}" or self.inside("enum")):
                break
        self.describe(text, start)
        lines = self.lines[start:self.at]
        if opens:
            self.scopes.append(scope.groups())
            self.comment = []
        elif column is not None and len(lines) == text.count("\n") + 1:
            lines[-1] = lines[-1][:column] + "///< " + doxygen_text([lines[-1][column + 2:]])[0]
        self.out += lines

    def inside(self, *keywords):
        return bool(self.scopes) and self.scopes[-1][0] in keywords

    def describe(self, declaration, start):
        indent = re.match(r"\s*", self.lines[start])[0]
        name = self.declared_name(declaration)
        self.first = self.first or name
        if self.inside("class", "struct") and name != self.first and not "".join(self.comment).startswith(" Each "):
            self.comment = []
        text = doxygen_text(self.comment)
        if name in self.versions:
            self.seen[name] = self.seen.get(name, False) or bool(self.comment)
            text += ["", self.since(name)]
        self.out += [f"{indent}/// {line}".rstrip() for line in text]

    def since(self, name):
        first, *later = sorted(self.versions[name].items(), key=lambda item: tuple(map(int, item[0].split("."))))
        notes = "; ".join(f"{version}: {', '.join(exports)}" for version, exports in later)
        return f"\\since {first[0]}" + SPECIAL.sub(r"\\\g<0>", f"; {notes}" if notes else "")

    def declared_name(self, declaration):
        """Returns the full name of the function or object that the text declares."""
        match = (re.search(r"(operator\s*(?:\(\)|[^\s(]+)|~?\w+)\s*\(", EXPORT.sub("", declaration))
                 or re.search(r"(\w+)\W*;$", declaration))
        scopes = [name for keyword, name in self.scopes if name and not keyword.startswith("extern")]
        return "::".join(scopes + [match[1]]) if match else declaration


def public_headers():
    listed = re.sub(r"#.*", "", (since.ROOT / "cmake/KzPublicHeaders.cmake").read_text())
    return [since.ROOT / "source" / name for name in re.findall(r"\b\w+\.h\b", listed)]


def check():
    versions, seen = since.by_name(), {}
    for path in public_headers():
        header = Header(path, versions)
        header.filtered()
        seen |= header.seen
    with_c_linkage = [e for e in since.exports() if re.fullmatch(r"\w+", e)]
    faults = [f"{e}: in no installed header" for e in with_c_linkage if e not in seen]
    faults += [f"{e}: has no description" for e in with_c_linkage if seen.get(e) is False]
    print("\n".join(faults), end="\n" if faults else "", file=sys.stderr)
    return 1 if faults else 0


def main():
    if sys.argv[1:] == ["--check"]:
        return check()
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    print("\n".join(Header(pathlib.Path(sys.argv[1]), since.by_name()).filtered()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
