#!/usr/bin/env python3
"""make_errors_page.py: writes docs/errors.md from KZ_ERR_LIST, INI_ERR_LIST and what is said of each code here.
make_errors_page.py --check: fails where the page is not what would be written.

Where each KzErr is found is read out of the headers, and that no call gives it out of the sources.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs/errors.md"
MANY_HEADERS = 6
ROW = re.compile(r'X\((\w+), (-?\d+), "((?:[^"\\]|\\.)*)"\)')

# When a code comes, and what to do. None: no call of this version gives it.
KZ_ADVICE = {
    "kzErrNone": ("the call succeeded", ""),
    "kzErrArgument": ("a null or impossible argument; a path that is not absolute; a start of the library that runs",
                      "mend the call"),
    "kzErrMemoryFull": ("memory, or what the system needs for a lock or an event, can't be had",
                        "free something and try again: what the call worked on is as it was, where its header says so"),
    "kzErrBadZone": ("an address that is no living handle or pointer block",
                     "look for the use after the disposal: the report tells which call; see [memory.md](memory.md)"),
    "kzErrEndOfFile": ("a read or a seek behind the end; a resource file that is cut off",
                       "take what came, or treat the file as damaged"),
    "kzErrFileBusy": ("the system's ETXTBSY: the file is a program that runs", "write to another file, and rename it"),
    "kzErrIO": ("a read or write failed; the system gave a reason that has no code of its own; an offset in a resource map leads "
                "outside of it", "take the file for unreadable or damaged; the report has the place"),
    "kzErrNotFound": ("no such file or folder; no home directory", "check the name, or make the file"),
    "kzErrNoPermission": ("the system refuses; another process holds a lock on the file; a change of a resource file that is open "
                          "for reading only, or of a kind that can't be changed",
                          "check rights and locks; change a copy"),
    "kzErrDiskFull": ("the system's ENOSPC", "make room; for a file that is being written, write it again"),
    "kzErrDuplicatePath": ("the system's EEXIST", "take another name"),
    "kzErrTooManyFiles": ("the system's EMFILE or ENFILE", "close files, or raise the limit"),
    "kzErrNotPossible": ("`MacToKZErr` of a number that means it", ""),
    "kzErrResFileNotOpen": ("a refnum of no open file; a file that is no resource file; resource calls while application support "
                            "is not up", "check the refnum, and that `InitKZCoreAppSupport` was called"),
    "kzErrResAddFailed": ("`MacToKZErr` of a number that means it", ""),
    "kzErrResNotFound": ("no resource of this type with this id, name or index", "fall back, or ask for what is there: `RCount`"),
    "kzErrIniSyntax": None,
    "kzErrTokenNotFound": None,
    "kzErrTokenSyntax": None,
    "kzErrTokenMemory": None,
    "kzErrGeneric": ("the library isn't started, or one of its services failed to start; a damaged resource map; a registry that is "
                     "closed; no configuration runs; an exception that has no code",
                     "start the library; else read the report in front of it, which says what failed"),
    "kzErrNotSupported": ("a name of no path format", "use a name of `PathRef.h`"),
    "kzErrQueueClosed": None,
    "kzErrOccurrenceHandled": None,
    "kzErrInterruptQueueFull": None,
    "kzErrCorrupt": ("a stream that has too few bytes left, or no room; a damaged heap; an index outside a path",
                     "drop what was read since the last `GetError`"),
    "kzErrFormat": None,
    "kzErrBadCount": ("the count in front of a string in a stream is negative, or more than there is", "treat the data as damaged"),
    "kzErrBadGuidText": ("a text of another length than 36", "mend the text"),
    "kzErrResFileVersion": ("the file has a format above 3", "use a newer library"),
    "kzErrTimeout": ("a wait ended without a signal", "none: it is a result"),
    "kzErrEmbeddedNul": ("the text that was copied to a C string holds a NUL", "take the text by its length"),
    "kzErrNoUniqueId": None,
}

INI_ADVICE = {
    "kIniErrLineTooShort": ("`maxLineLength` leaves no room behind this tag", "set a greater `maxLineLength`, or -1"),
    "kIniErrUnicodeMark": ("a mark of UTF-16 or UTF-32", "convert the file to UTF-8"),
    "kIniErrNoFileName": ("`IniIsFileNewer` before any file was read or written; `IniEditSave` of a text without a file",
                          "read or write a file by its path first"),
    "kIniErrStream": ("a stream that can't be cut or positioned, or is to be written safely",
                      "write by a path, or set options without `kIniWriteSafely`"),
    "kIniErrName": ("a name or raw value that could not be read back",
                    "use another name; put the value with `escaped`, which encodes ends of lines"),
    "kIniErrMemory": ("out of memory, or more to read than the limit",
                      "after a setter nothing has changed; after a read what was read so far is there: don't save it"),
    "kIniErrPermission": ("the target may not be written, or `rename` failed; an edit of what is no regular file",
                          "check the rights of the file and of its folder; after a safe write the old file is whole"),
    "kIniErrFile": ("a null object or function; a null, empty or too long path; no such file",
                    "check the path: at most 259 bytes; to make a file, put items into a new object and write it"),
    "kIniErrWrite": ("a write, flush, sync or close failed", "make room; after a safe write the old file is whole"),
    "kIniErrOpen": ("the file is there but can't be opened", "check the rights"),
    "kIniErrRead": ("a read failed", "check that it is a file, and read again; don't save what was read so far"),
    "kIniErrTemporary": ("no temporary file could be made; for an edit also beside a name of more than 245 bytes",
                         "check the rights of the folder, and its room"),
    "kIniErrOpenForWrite": ("the file or the temporary file can't be opened for writing",
                            "check the rights of the file and of its folder"),
    "kIniErrInt": ("a value of another type; a `breakChar` outside 0 to 127; a limit below -1",
                   "tell the user which line: `IniLineOfItem`"),
    "kIniErrUInt": ("a value of another type", "as for `kIniErrInt`"),
    "kIniErrDouble": ("a value of another type", "as for `kIniErrInt`"),
    "kIniErrBoolean": ("a value of another type", "as for `kIniErrInt`"),
    "kIniErrRepeated": ("`kIniEditOnly` where there are several", "say which of the items is meant"),
    "kIniErrExists": ("a new section, or the new name of a section or item, is there already", "take another name"),
    "kIniErrNotProved": ("the engine would read more changes out of the edited text than were asked for; nothing has changed",
                         "take another name or place, because the lines around would give the new one another meaning"),
    "kIniErrReadOnly": ("`IniEditSave` with `kIniEditReadOnly`", "open the file for changes"),
    "kIniErrLock": ("no lock on this file system, or the path names another file than the locked one",
                    "open the file again and edit it anew"),
    "kIniErrLinks": ("several hard links, without `kIniEditInPlace`", "edit in place, or part the names"),
}

HEAD = """# Error codes

Calls that can fail return a `KzErr`, 0 or one of the codes of the first table. Calls on INI files return 1 for success, 0 for
not found, and one of the codes of the second table. C++ classes throw a `ZVExcept`, which holds a `KzErr` (`err()`) and says
where it was thrown (`what()`). No call gives another system's number: `UnixToKZErr` and `MacToKZErr` turn those into codes.

`KzErrName` and `IniErrName` give the constant's name, `KzErrText` and `IniErrText` its meaning; all four may be called at any
time, and know what to say of a number that is no code.

```c program
#include <stdio.h>

#include <kzcore/IniFile.h>
#include <kzcore/KzErr.h>

int main(void)
{
    KzErr err = UnixToKZErr(2); /* ENOENT */
    IniFile* ini = IniNew(0);
    int result = IniReadFromFile(ini, "/no/such/file");
    IniDispose(ini);
    printf("%s (%s, %d)\\n", KzErrText(err), KzErrName(err), err);
    printf("%s (%s, %d)\\n", IniErrText(result), IniErrName(result), result);
    return 0;
}
```

```text output
OUTPUT```

A number is never given another meaning; see [STABILITY.md](../STABILITY.md). Reports say more than a code does, above all for
damaged files: see [reports.md](reports.md).

## `KzErr`

The last column names the headers that say which call gives the code.

| code | constant | meaning | when | what to do | headers |
|---|---|---|---|---|---|
"""


def rows(header, macro):
    """Yields (constant, value, meaning) of a list of codes."""
    text = (ROOT / "source" / header).read_text()
    body = re.search(rf"#define {macro}\(X\)((?:.*\\\n)*.*)", text)[1]
    for name, value, meaning in ROW.findall(body):
        yield name, int(value), meaning.replace('\\"', '"')


def headers_of(constant):
    listed = re.sub(r"#.*", "", (ROOT / "cmake/KzPublicHeaders.cmake").read_text())
    names = [name for name in re.findall(r"\b\w+\.h\b", listed)
             if name != "KzErr.h" and re.search(rf"\b{constant}\b", (ROOT / "source" / name).read_text())]
    if constant == "kzErrNone":
        return ""
    return "most" if len(names) > MANY_HEADERS else ", ".join(f"`{name}`" for name in names)


def is_given(constant):
    """Whether a source, or the tables of the system's codes, has the constant."""
    for path in (ROOT / "source").glob("*.cpp"):
        if re.search(rf"\b{constant}\b", path.read_text()):
            return True
    return False


def kz_row(constant, value, meaning):
    advice = KZ_ADVICE[constant]
    if (advice is not None) != is_given(constant):
        raise ValueError(f"{constant}: the sources {'do not give' if advice else 'give'} it")
    when, action = advice or ("no call of this version", "")
    return f"| {value} | `{constant}` | {meaning} | {when} | {action} | {headers_of(constant)} |\n".replace("  |", " |")


def page():
    kz, ini = list(rows("KzErr.h", "KZ_ERR_LIST")), list(rows("IniTypes.h", "INI_ERR_LIST"))
    missing = [name for name, *_ in kz if name not in KZ_ADVICE] + [name for name, *_ in ini if name not in INI_ADVICE]
    if missing:
        raise ValueError(f"tools/make_errors_page.py says nothing of {', '.join(missing)}")
    shown = [row for row in kz if row[0] == "kzErrNotFound"] + [row for row in ini if row[0] == "kIniErrFile"]
    text = HEAD.replace("OUTPUT", "".join(f"{meaning} ({name}, {value})\n" for name, value, meaning in shown))
    text += "".join(kz_row(*row) for row in kz)
    text += "\n## INI codes\n\nThe headers say which call gives which.\n\n"
    text += "| code | constant | when | what to do |\n|---|---|---|---|\n"
    text += "| 1 | | success, or found | |\n| 0 | | not found; nothing has changed | take the default |\n"
    return text + "".join(f"| {value} | `{name}` | {' | '.join(INI_ADVICE[name])} |\n" for name, value, _ in ini)


def main():
    try:
        text = page()
    except ValueError as error:
        sys.exit(f"make_errors_page.py: {error}")
    if sys.argv[1:] == ["--check"]:
        return 0 if PAGE.exists() and PAGE.read_text() == text else "docs/errors.md is old: run tools/make_errors_page.py"
    PAGE.write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
