#!/usr/bin/env python3
"""check_linkable.py [LIBRARY [COMPILER]]: builds a program that takes the address of every function
and object that a host can use by the installed headers, and so fails where one can't be linked. Each is named by its symbol,
which reaches overloads and members. Templates are not proved: their code stands in headers, and what they call is asked for
only where a host instantiates them. A private member counts where an inline function of the headers calls it, because
that call then stands in the host's own object file.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# The package's module is found by interpreters of other origin too: it is plain Python over libclang.
sys.path.append("/usr/lib/python3/dist-packages")
from clang import cindex  # pylint: disable=wrong-import-position

ROOT = pathlib.Path(__file__).resolve().parent.parent

FUNCTIONS = {cindex.CursorKind.FUNCTION_DECL, cindex.CursorKind.CXX_METHOD, cindex.CursorKind.CONSTRUCTOR,
             cindex.CursorKind.DESTRUCTOR, cindex.CursorKind.CONVERSION_FUNCTION}
SCOPES = {cindex.CursorKind.NAMESPACE, cindex.CursorKind.STRUCT_DECL, cindex.CursorKind.CLASS_DECL,
          cindex.CursorKind.UNION_DECL, cindex.CursorKind.LINKAGE_SPEC, cindex.CursorKind.UNEXPOSED_DECL}


def needs_no_symbol(cursor):
    """Whether a host's own object file holds the function, or nothing does."""
    # Asked of the cursor, not of its text, so that a definition further down in the header counts.
    return (cursor.get_definition() is not None or cursor.is_pure_virtual_method() or cursor.is_default_method()
            or cursor.availability == cindex.AvailabilityKind.NOT_AVAILABLE)


def is_ours(cursor, source):
    place = cursor.location.file
    return place is not None and pathlib.Path(place.name).resolve().parent == source


def called(unit, source):
    """The identifiers of all that the bodies of inline functions and the initialisers in the headers refer to."""
    found = set()
    for top in unit.cursor.get_children():
        if is_ours(top, source):
            for cursor in top.walk_preorder():
                if cursor.kind.is_expression() and cursor.referenced is not None:
                    found.add(cursor.referenced.get_usr())
    return found


def declared(cursor, source):
    """Yields the functions and objects that the headers in `source` declare and define nowhere."""
    for child in cursor.get_children():
        if not is_ours(child, source):
            continue
        if child.kind in FUNCTIONS and not needs_no_symbol(child):
            yield child
        elif child.kind == cindex.CursorKind.VAR_DECL:
            if child.storage_class == cindex.StorageClass.EXTERN and child.get_definition() is None:
                yield child
        elif child.kind in SCOPES:
            yield from declared(child, source)


def usable(unit, source):
    """Returns {symbol: (name, place)} of what hosts can use."""
    calls, found = called(unit, source), {}
    for cursor in declared(unit.cursor, source):
        private = cursor.access_specifier == cindex.AccessSpecifier.PRIVATE
        if not private or cursor.get_usr() in calls:
            # A constructor and a destructor have a form for complete objects and one for bases: the first is asked for.
            symbol = re.sub(r"(C|D)[12](?=E)", r"\g<1>1", cursor.mangled_name)
            place = f"{pathlib.Path(cursor.location.file.name).name}:{cursor.location.line}"
            found[symbol] = (cursor.displayname, place)
    return found


def main():
    library = sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build/dev/source/libkzcore.so")
    compiler = sys.argv[2] if len(sys.argv) > 2 else "g++-12"
    source = ROOT / "source"
    listed = re.sub(r"#.*", "", (ROOT / "cmake/KzPublicHeaders.cmake").read_text())
    text = "".join(f'#include "{h}"\n' for h in re.findall(r"\w+\.h\b", listed))
    unit = cindex.Index.create().parse("all.cpp", args=["-std=c++20", "-x", "c++", f"-I{source}"],
                                       unsaved_files=[("all.cpp", text)])
    faults = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
    if faults:
        sys.exit("\n".join(str(d) for d in faults))
    found = usable(unit, source)
    if len(found) < 500:
        sys.exit(f"only {len(found)} functions found: the headers were not read")
    with tempfile.TemporaryDirectory() as folder:
        program = pathlib.Path(folder) / "all.c"
        program.write_text("".join(f'extern char s{i}[] __asm__("{s}");\n' for i, s in enumerate(found)) +
                           "void* table[] = {" + ", ".join(f"s{i}" for i in range(len(found))) +
                           "};\nint main(void) { return table[0] == 0; }\n")
        link = subprocess.run([compiler, str(program), "-o", str(program.with_suffix("")), library,
                               f"-Wl,-rpath,{pathlib.Path(library).parent}", "-Wl,--no-demangle"],
                              capture_output=True, text=True, check=False)
    missing = sorted(set(re.findall(r"undefined reference to `([^']+)'", link.stderr)))
    for symbol in missing:
        name, place = found.get(symbol, (symbol, "?"))
        print(f"{place}: {name} can't be linked ({symbol})", file=sys.stderr)
    if link.returncode and not missing:
        sys.exit(link.stderr)
    print(f"{len(found)} functions and objects, {len(missing)} can't be linked")
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
