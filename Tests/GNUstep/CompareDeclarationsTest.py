#!/usr/bin/env python3
"""Our declarations of Foundation are GNUstep's, but for the listed differences; and
the comparison finds each kind of difference that is planted in a copy of them.
Usage: CompareDeclarationsTest.py GNUSTEP-FOLDER RUNTIME-FOLDER [unittest options]"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
HEADER = HERE.parent.parent / "Sources/Foundation/Base/macOS/Platform/Foundation.h"
LIST = HERE / "declared-differently"
FOLDERS = sys.argv[1:3]


def compare(listed, header):
    command = ["python3", HERE / "compare-declarations.py", listed, header, *FOLDERS]
    return subprocess.run(command, capture_output=True, text=True, check=False)


class CompareDeclarationsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.scratch = pathlib.Path(folder.name)

    def refused(self, original, old, new):
        """The complaints about a copy of a file with another text in one place."""
        text = original.read_text(encoding="utf-8")
        self.assertEqual(text.count(old), 1, old)
        planted = self.scratch / original.name
        planted.write_text(text.replace(old, new), encoding="utf-8")
        run = compare(*((planted, HEADER) if original == LIST else (LIST, planted)))
        self.assertEqual(run.returncode, 1, run.stdout)
        return run.stderr.splitlines()

    def test_declarations_are_those_of_gnustep(self):
        run = compare(LIST, HEADER)
        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_each_planted_difference_is_found(self):
        for old, new, name in (
                ("- (NSInteger)code;", "- (int)code;", "-[NSError code]"),
                ("waitUntilDone:(BOOL)waits", "waitUntilDone:(int)waits",
                 "-[NSObject performSelector:onThread:withObject:waitUntilDone:modes:]"),
                ("+ (NSThread *)mainThread;", "- (NSThread *)mainThread;",
                 "-[NSThread mainThread]"),
                ("- (void)resignCurrent;", "- (void)resignCurrently;",
                 "-[NSProgress resignCurrently]"),
                ("setCancellationHandler:(void (^)(void))",
                 "setCancellationHandler:(void (^)(int))",
                 "-[NSProgress setCancellationHandler:]"),
                ("@interface NSMutableArray : NSArray", "@interface NSMutableArray : NSObject",
                 "NSMutableArray is a"),
                ("- (BOOL)listener:(NSXPCListener *)", "- (BOOL)listener:(id)",
                 "-[<NSXPCListenerDelegate> listener:shouldAcceptNewConnection:]"),
                ("NSXPCConnectionPrivileged = 1 << 12", "NSXPCConnectionPrivileged = 1 << 13",
                 "NSXPCConnectionPrivileged")):
            with self.subTest(new):
                found = self.refused(HEADER, old, new)
                self.assertEqual([line.partition(":")[0] for line in found],
                                 [name.partition(":")[0]])
                self.assertTrue(found[0].startswith(f"{name}: "), found[0])

    def test_a_listed_difference_that_is_none_is_found(self):
        line = "-[NSFileManager trashItemAtURL:resultingItemURL:error:]"
        self.assertEqual(self.refused(LIST, line, "-[NSThread mainThread]")[-1],
                         "-[NSThread mainThread]: listed, but no difference")

    def test_a_listed_difference_needs_a_reason(self):
        self.assertIn("no reason for -[NSDictionary allKeys]",
                      self.refused(LIST, " # an array of any objects", "")[0])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
