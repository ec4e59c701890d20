#!/usr/bin/env python3
"""Reads the two embedded property lists back out of every slice of a
universal Mach-O file and compares them with the files they were made from.
Usage: read-lists.py UNIVERSAL INFORMATION-LIST LAUNCHD-LIST"""
import struct
import sys

FAT_MAGIC = 0xCAFEBABE
MACHO_64 = 0xFEEDFACF
SEGMENT_64 = 0x19


def slices(image):
    """The bytes of each architecture, by CPU type."""
    magic, count = struct.unpack_from(">II", image)
    if magic != FAT_MAGIC:
        raise ValueError("not a universal file")
    for index in range(count):
        cpu, _, offset, size, _ = struct.unpack_from(">5I", image, 8 + 20 * index)
        yield cpu, image[offset:offset + size]


def section(macho, segment_name, section_name):
    magic, _, _, _, commands = struct.unpack_from("<5I", macho)
    if magic != MACHO_64:
        raise ValueError("not a 64-bit Mach-O file")
    at = 32
    for _ in range(commands):
        command, size = struct.unpack_from("<II", macho, at)
        if command == SEGMENT_64:
            (sections,) = struct.unpack_from("<I", macho, at + 64)
            for index in range(sections):
                header = at + 72 + 80 * index
                names = struct.unpack_from("<16s16s", macho, header)
                name, segment = (field.rstrip(b"\0").decode() for field in names)
                if (segment, name) == (segment_name, section_name):
                    length, offset = struct.unpack_from("<QI", macho, header + 40)
                    return macho[offset:offset + length]
        at += size
    raise ValueError(f"no section {segment_name},{section_name}")


def main():
    universal, information, launchd = sys.argv[1:]
    with open(universal, "rb") as file:
        found = list(slices(file.read()))
    if len(found) != 2:
        raise SystemExit(f"{len(found)} slices; two expected")
    for name, source in (("__info_plist", information), ("__launchd_plist", launchd)):
        with open(source, "rb") as file:
            expected = file.read()
        for cpu, macho in found:
            if section(macho, "__TEXT", name) != expected:
                raise SystemExit(f"{name} of CPU type {cpu:#x} differs from {source}")
    print("macOS: both lists read back from both slices, byte-equal")


main()
