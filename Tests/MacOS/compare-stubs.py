#!/usr/bin/env python3
"""Compares the symbols that programs take from each library with those of its stub:
every symbol that a stub names must be used by a program, and a program must use
nothing that the stub of the library does not name. All linkers must agree.
Usage: compare-stubs.py STUB-FOLDER PROGRAM..."""
import pathlib
import re
import sys

import macho

# The compiler brings the stub of this one, which names all that there is.
COMPLETE = "/usr/lib/libSystem.B.dylib"
OURS = "/usr/local/lib/libkeepwell.2.dylib"
CLASS_PARTS = ("_OBJC_CLASS_$_", "_OBJC_METACLASS_$_")


def named(stub):
    """The library's name, and its symbols; a class stands for both of its."""
    text = stub.read_text(encoding="utf-8")
    library = re.search(r"^install-name: *'(.*)'$", text, re.MULTILINE).group(1)
    symbols = set()
    for kind, names in re.findall(r"^ *(symbols|objc-classes): *\[([^]]*)\]", text, re.MULTILINE):
        for name in re.split(r"[,\s]+", names.strip()):
            symbols.add(f"class {name}" if kind == "objc-classes" else name.strip("'"))
    return library, symbols


def used(programs):
    """By library: the symbols that the programs take from it."""
    found = {}
    for program in programs:
        for part in macho.slices(program):
            for symbol, library in part.imports().items():
                for prefix in CLASS_PARTS:
                    if symbol.startswith(prefix):
                        symbol = f"class {symbol.removeprefix(prefix)}"
                found.setdefault(library, set()).add(symbol)
    return found


def main():
    stubs = dict(named(stub) for stub in pathlib.Path(sys.argv[1]).rglob("*.tbd"))
    taken = used(sys.argv[2:])
    found = []
    for library in sorted(taken.keys() - {COMPLETE, OURS} | stubs.keys(), key=str):
        has, wants = stubs.get(library, set()), taken.get(library, set())
        found += [f"{library}: no program uses {name}" for name in sorted(has - wants)]
        found += [f"{library}: the stub does not name {name}" for name in sorted(wants - has)]
    if found:
        raise SystemExit("\n".join(found))
    print(f"macOS: {sum(map(len, stubs.values()))} names of {len(stubs)} stubs, all in use")


main()
