#!/usr/bin/env python3
"""Compares the parts of a universal file with the files that it was joined of: as
many parts, in their order, each with the bytes of its file.
Usage: compare-slices.py UNIVERSAL FILE..."""
import pathlib
import sys

import macho


def main():
    universal, *files = sys.argv[1:]
    parts = macho.slices(universal)
    if len(parts) != len(files) or len({part.architecture for part in parts}) != len(parts):
        raise SystemExit(f"{universal} has {' '.join(part.architecture for part in parts)}")
    for part, file in zip(parts, files):
        if part.image != pathlib.Path(file).read_bytes():
            raise SystemExit(f"{universal}: the part for {part.architecture} is not {file}")


main()
