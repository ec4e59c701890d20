#!/usr/bin/env python3
"""Compares the protocols of the contract, as each architecture of the programs
carries them, with the list beside this file.
Usage: compare-encodings.py PROGRAM..."""
import pathlib
import sys

import macho

LIST = pathlib.Path(__file__).parent / "method-encodings"


def expected():
    """By architecture and protocol: the lines of its methods."""
    found, methods = {}, None
    for line in LIST.read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            methods = found.setdefault(tuple(line.strip("[]").split()), [])
        elif line and not line.startswith("#"):
            methods.append(line)
    return found


def complaints(program, part, known):
    architecture = part.architecture
    carried = {name: [" ".join(method) for method in methods]
               for name, methods in part.protocols().items() if name.startswith("KW")}
    listed = {name: lines for (of, name), lines in known.items() if of == architecture}
    for name in sorted(carried.keys() | listed.keys()):
        has, wants = carried.get(name, []), listed.get(name, [])
        for line in (line for line in wants if line not in has):
            yield f"{program} for {architecture} lacks, in {name}: {line}"
        for line in (line for line in has if line not in wants):
            yield f"{program} for {architecture} has, in {name}: {line}"
        if sorted(has) == sorted(wants) and has != wants:
            yield f"{program} for {architecture} has another order in {name}"


def main():
    known = expected()
    found, methods = [], 0
    for program in sys.argv[1:]:
        for part in macho.slices(program):
            found += complaints(program, part, known)
            methods += sum(len(lines) for (of, _), lines in known.items()
                           if of == part.architecture)
    if found or not methods:
        raise SystemExit("\n".join(found) or "no program")
    print(f"macOS: {methods} encodings of methods, all as listed")


main()
