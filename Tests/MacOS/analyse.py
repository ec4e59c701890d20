#!/usr/bin/env python3
"""Runs the static analyser over the Objective-C++ bodies and those that call
CoreFoundation, as they are compiled for macOS. Any finding makes it fail; so does
a planted leak or release too many that it does not find.
Usage: analyse.py BUILD-FOLDER COMPILER-LIBRARY-FOLDER"""
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

BUILD, LIBRARY = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
HEADERS = ["libcxx/include", "include", "libc/include/any-macos-any"]
# The settings of its C++ library that the compiler itself has.
SETTINGS = ["_LIBCPP_ABI_VERSION=1", "_LIBCPP_ABI_NAMESPACE=__1",
            "_LIBCPP_PSTL_CPU_BACKEND_SERIAL", "_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS"]
OWN = re.compile(r"-(D|I|isystem|std=|f)")
COUNTED = re.compile(r"\.mm\Z|/macOS/(CoreFoundationValues|ItemPresentation|LaunchServices"
                     r"|Metadata|SharedFileList)\.cpp\Z")
PLANTED = {
    "a leak": ("[[NSMutableArray alloc] init];", "Potential leak"),
    "a release too many": ("NSArray *all = [NSArray arrayWithObject:@\"a\"];\n[all release];",
                           "object that is not owned"),
}


def analyse(file, command):
    """The findings in a file, compiled with the options of a command."""
    words, options = shlex.split(command), []
    for index, word in enumerate(words):
        if word == "-isystem":
            options += [word, words[index + 1]]
        elif OWN.match(word):
            options.append(word)
    run = subprocess.run(
        ["clang++", "--analyze", "--analyzer-output", "text", "-x", "objective-c++",
         "-target", "arm64-apple-macos11", "-nostdinc", "-nostdinc++",
         *(f"-isystem{LIBRARY / folder}" for folder in HEADERS),
         *(f"-D{setting}" for setting in SETTINGS), *options, "-fno-objc-arc", str(file)],
        text=True, capture_output=True, check=False)
    if run.returncode:
        raise SystemExit(run.stderr)
    return run.stderr


def complain_of_plants(command):
    with tempfile.TemporaryDirectory() as scratch:
        for name, (body, finding) in PLANTED.items():
            file = pathlib.Path(scratch) / "planted.mm"
            file.write_text('#include "Foundation/Base/macOS/Platform/Foundation.h"\n'
                            f"void planted() {{ {body} }}\n", encoding="utf-8")
            if finding not in analyse(file, command):
                raise SystemExit(f"the analyser does not find {name}")


def main():
    with open(BUILD / "compile_commands.json", encoding="utf-8") as file:
        commands = {entry["file"]: entry["command"] for entry in json.load(file)
                    if COUNTED.search(entry["file"])}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        found = [text for text in pool.map(analyse, commands, commands.values()) if text]
    if found or not commands:
        raise SystemExit("".join(found) or "no bodies")
    complain_of_plants(next(iter(commands.values())))
    print(f"macOS: {len(commands)} bodies analysed, nothing found but what was planted")


main()
