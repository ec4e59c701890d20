#!/usr/bin/env python3
"""Reads the two embedded property lists back out of both architectures of a
program and compares them with the files they were made from.
Usage: read-lists.py UNIVERSAL INFORMATION-LIST LAUNCHD-LIST"""
import sys

import macho


def main():
    universal, information, launchd = sys.argv[1:]
    found = macho.slices(universal)
    if len(found) != 2:
        raise SystemExit(f"{len(found)} architectures; two expected")
    for name, source in (("__info_plist", information), ("__launchd_plist", launchd)):
        with open(source, "rb") as file:
            expected = file.read()
        for part in found:
            if part.section("__TEXT", name) != expected:
                raise SystemExit(f"{name} for {part.architecture} differs from {source}")
    print("macOS: both lists read back for both architectures, byte-equal")


main()
