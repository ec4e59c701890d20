#!/usr/bin/env python3
"""Scripts/check-operations: it passes this tree, and finds a planted fault of
each kind in a copy of the documents."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


class CheckOperationsTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        for folder in ("Documentation", "Packaging", "Resources"):
            shutil.copytree(SOURCE / folder, self.root / folder)
        os.symlink(SOURCE / "Tests", self.root / "Tests")

    def complaints(self):
        run = subprocess.run([f"{SOURCE}/Scripts/check-operations", self.root], text=True,
                             capture_output=True, check=False)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, 1 if run.stdout else 0)
        return run.stdout.splitlines()

    def change(self, document, old, new):
        path = self.root / document
        text = path.read_text(encoding="utf-8")
        self.assertIn(old, text)
        path.write_text(text.replace(old, new, 1), encoding="utf-8")

    def test_this_tree_passes(self):
        self.assertEqual(self.complaints(), [])

    def test_a_test_that_does_not_exist_is_found(self):
        self.change("Documentation/RELIABILITY.md", "`ResourcesTest`", "`ResourceTest`")
        self.assertEqual(self.complaints(), ["RELIABILITY.md: there is no ResourceTest"])

    def test_a_test_that_does_not_call_the_member_is_found(self):
        self.change("Documentation/OPERATIONS.md", "/Library/PrivilegedHelperTools` | `ServicesTest`",
                    "/Library/PrivilegedHelperTools` | `MaintenanceTest`")
        self.assertEqual(self.complaints(),
                         ["OPERATIONS.md: MaintenanceTest does not call RemoveLaunchdAgentAtPath"])

    def test_a_member_without_a_test_is_found(self):
        self.change("Documentation/OPERATIONS.md", "| nothing | `ServiceTest` |", "| nothing | – |")
        self.assertEqual(self.complaints(), ["OPERATIONS.md: Echo has no test"])

    def test_a_missing_member_is_found(self):
        self.change("Documentation/OPERATIONS.md", "| `FlushDNS` |", "| `FlushNames` |")
        self.assertIn("OPERATIONS.md: its members are not those of the interface, in the same order",
                      self.complaints())

    def test_a_call_that_the_library_page_does_not_list_is_found(self):
        self.change("Packaging/man/libkeepwell.3", ".It Fn slimBinaryWithPath path archs",
                    ".It Fn slimBinaryWithPath path")
        self.assertEqual(self.complaints(),
                         ["libkeepwell.3: slimBinaryWithPath path is no call",
                          "libkeepwell.3: slimBinaryWithPath path archs is missing"])


if __name__ == "__main__":
    sys.exit(unittest.main())
