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
        for folder in ("Sources", "Tests"):
            os.symlink(SOURCE / folder, self.root / folder)

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

    def test_each_body_of_macos_is_in_one_part(self):
        self.change("Documentation/OPERATIONS.md", "`Processes/Launchd`", "`Walking/FolderCalls`")
        self.assertEqual(self.complaints(), [
            "OPERATIONS.md: no part has the body Processes/Launchd of macOS",
            "OPERATIONS.md: more than one part has the body Walking/FolderCalls"])

    def test_a_body_that_is_not_run_as_the_table_has_it_is_found(self):
        for old, new, complaint in (
                ("`Trees/HostTrash` | against GNUstep", "`Trees/HostTrash` | over the shim",
                 "Trash: it is run against GNUstep, not over the shim"),
                ("`Service/XPCListener`, `Client/AgentConnection` | compiled and linked only",
                 "`Service/XPCListener`, `Client/AgentConnection` | against GNUstep",
                 "it is run compiled and linked only, not against GNUstep"),
                ("| expat | – | on Linux |", "| expat | – | on macOS |",
                 "property lists: it is run on Linux, not on macOS"),
                ("`Threads/RunLoop` |", "`Threads/Loop` |", "since there is no Threads/Loop")):
            with self.subTest(new):
                self.setUp()
                self.change("Documentation/OPERATIONS.md", old, new)
                self.assertIn(complaint, "\n".join(self.complaints()))

    def test_a_test_that_does_not_run_a_part_in_that_way_is_found(self):
        for old, new, complaint in (
                ("over the shim | `LaunchdTest` |", "over the shim | `StagingTest`, `EchoTest` |",
                 "launchd: the query for a job: EchoTest does not run over the shim"),
                ("| `HostTrashTest` |", "| `FilesTest` |",
                 "Trash: FilesTest does not run against GNUstep"),
                ("| on Linux | `TaskTest`, ", "| on Linux | `HostTrashTest`, ",
                 "tasks: tools, pipes, threads: HostTrashTest does not run on Linux"),
                ("over the shim | `LaunchdTest` |", "over the shim | none |",
                 "launchd: the query for a job: it has no test")):
            with self.subTest(new):
                self.setUp()
                self.change("Documentation/OPERATIONS.md", old, new)
                self.assertIn(f"OPERATIONS.md: {complaint}", self.complaints())

    def test_an_operation_is_run_as_its_parts_are(self):
        self.change("Documentation/OPERATIONS.md", "| tasks, version | on Linux, over the shim |",
                    "| tasks, version | on Linux |")
        self.change("Documentation/OPERATIONS.md", "| `FileExistsAtPath` | files |",
                    "| `FileExistsAtPath` | filing |")
        self.assertEqual(self.complaints(), [
            "OPERATIONS.md: FileExistsAtPath: there is no part filing",
            "OPERATIONS.md: FlushDNS: its parts are run on Linux, over the shim, not on Linux"])


if __name__ == "__main__":
    sys.exit(unittest.main())
