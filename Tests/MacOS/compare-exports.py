#!/usr/bin/env python3
"""Compares what the shared library exports for each architecture with the list of
its exports on Linux, and its own name with the place of its installation.
Usage: compare-exports.py MAP LIBRARY"""
import fnmatch
import os
import re
import shutil
import subprocess
import sys

import macho

FOLDER = "/usr/local/lib"


def patterns(path):
    """The names, as C++ spells them, that a version script lists as global."""
    with open(path, encoding="utf-8") as file:
        listed = re.search(r'extern "C\+\+" \{(.*?)\}', file.read(), re.DOTALL).group(1)
    return [each.strip().strip('"') for each in listed.split(";") if each.strip()]


def spelt(symbols):
    """The symbols as C++ spells them. On macOS each begins with one more underscore."""
    tool = shutil.which("llvm-cxxfilt") or shutil.which("llvm-cxxfilt-14")
    run = subprocess.run([tool], input="\n".join(symbol[1:] for symbol in symbols), text=True,
                         check=True, stdout=subprocess.PIPE)
    return run.stdout.splitlines()


def main():
    script, library = sys.argv[1:]
    wanted, found = patterns(script), []
    place = f"{FOLDER}/{os.path.basename(library)}"
    for part in macho.slices(library):
        if part.name != place:
            found.append(f"{part.architecture}: its name is {part.name}, its place {place}")
        names = spelt(sorted(part.exports()))
        found += [f"{part.architecture}: exports {name}" for name in names
                  if not any(fnmatch.fnmatchcase(name, each) for each in wanted)]
        found += [f"{part.architecture}: exports no {each}" for each in wanted
                  if not fnmatch.filter(names, each)]
    if found:
        raise SystemExit("\n".join(found))
    print(f"macOS: the library exports its {len(names)} names and no other")


main()
