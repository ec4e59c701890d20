#!/usr/bin/env python3
"""Compares our declarations of Foundation with GNUstep's headers: each class and
protocol, the class above, each method with all its types, and constants. The list
names the differences that are meant, each with a reason.
Usage: compare-declarations.py LIST OUR-HEADER GNUSTEP-FOLDER RUNTIME-FOLDER"""
import os
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
# A line of the compiler's dump: its depth, the kind of declaration, and the rest.
LINE = re.compile(r"((?:[| ] )*[|`]-)(?:(super) )?(\w+)(?: 0x[0-9a-f]+)? ?(.*)$")
METHOD = re.compile(r"([+-]) ([\w:]+) '([^']*)'(?::'([^']*)')?")
TYPE = re.compile(r"'([^']*)'(?::'([^']*)')?")
# They mean different types on different processors, and the same everywhere.
KEPT = {"BOOL", "instancetype", "SEL"}
OPTIONS = ["-x", "objective-c", "-fsyntax-only", "-fobjc-runtime=gcc", "-fno-objc-arc", "-fblocks",
           "-fconstant-string-class=NSConstantString", "-DGNUSTEP", "-DGNUSTEP_BASE_LIBRARY=1",
           "-DGNU_RUNTIME=1", "-D_NATIVE_OBJC_EXCEPTIONS", "-Xclang", "-ast-dump",
           "-fno-color-diagnostics"]


def type_in(text, pattern=TYPE):
    """The last type that a line names, with type names resolved."""
    named, meant = pattern.search(text).groups()[-2:]
    return named if named in KEPT else (meant or named).replace("(void)", "()")


class Declarations:
    """The declarations of a header: facts by their names."""

    def __init__(self, dump):
        self.facts = {}
        self.above = {}  # the class of a class, and the protocols that it adopts
        self._owner = self._method = self._constant = None
        for line in dump.splitlines():
            if match := LINE.match(line):
                indent, above, kind, rest = match.groups()
                self._read(len(indent) // 2, above or kind, rest)

    def _read(self, depth, kind, rest):
        if depth == 1:
            self._owner = self._method = None
            if kind == "ObjCInterfaceDecl":
                self._owner = rest.split()[-1]
            elif kind == "ObjCProtocolDecl":
                self._owner = f"<{rest.split()[-1]}>"
        elif depth == 2 and kind == "ObjCInterface" and not self._owner:
            self._owner = type_in(rest)  # of a category
        elif depth == 2 and kind == "super":
            self.above.setdefault(self._owner, []).append(type_in(rest))
            self.facts[f"{self._owner} is a"] = type_in(rest)
        elif depth == 2 and kind == "ObjCProtocol":
            self.above.setdefault(self._owner, []).append(f"<{type_in(rest)}>")
        elif kind == "ObjCMethodDecl":
            sign, selector = METHOD.search(rest).groups()[:2]
            self._method = f"{sign}[{self._owner} {selector}]"
            self.facts[self._method] = type_in(rest, METHOD)
        elif kind == "ParmVarDecl" and depth == 3 and self._method:
            self.facts[self._method] += f", {type_in(rest)}"
        elif kind == "EnumConstantDecl":
            self._constant = re.search(r"(\w+) '", rest).group(1)
        elif kind == "value" and self._constant:
            self.facts[self._constant] = rest.removeprefix(": ")
            self._constant = None

    def fact(self, name):
        """A fact; a method may be one of a class above."""
        if name in self.facts:
            return self.facts[name]
        if method := re.fullmatch(r"([+-])\[(\S+) (\S+)\]", name):
            sign, owner, selector = method.groups()
            for higher in self.above.get(owner, ()):
                if found := self.fact(f"{sign}[{higher} {selector}]"):
                    return found
        return None


def declarations(header, *folders):
    command = ["clang", *OPTIONS, *(f"-isystem{folder}" for folder in folders), "-"]
    dump = subprocess.run(command, check=True, input=f'#include "{header}"\n', text=True,
                          stdout=subprocess.PIPE).stdout
    return Declarations(dump)


def known_differences(path):
    with open(path, encoding="utf-8") as file:
        lines = [line.rstrip("\n") for line in file if line.strip() and not line.startswith("#")]
    known = {}
    for line in lines:
        name, _, reason = line.partition(" # ")
        if not reason:
            raise SystemExit(f"{path}: no reason for {name}")
        known[name] = reason
    return known


def main():
    listed, header, gnustep, runtime = sys.argv[1:]
    ours = declarations(os.path.abspath(header), HERE / "Declared", runtime)
    theirs = declarations("Foundation/Foundation.h", HERE / "Runtime", gnustep, runtime)
    known = known_differences(listed)
    differing = {}
    for name, fact in ours.facts.items():
        other = theirs.fact(name)
        if fact != other:
            differing[name] = f"{name}: {fact}; GNUstep: {other or 'nothing'}"
    found = [text for name, text in differing.items() if name not in known]
    found += [f"{name}: listed, but no difference" for name in known.keys() - differing.keys()]
    if found:
        raise SystemExit("\n".join(found))
    print(f"{len(ours.facts)} declarations as GNUstep's, but for {len(known)} listed")


main()
