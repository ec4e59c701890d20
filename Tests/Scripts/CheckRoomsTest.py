#!/usr/bin/env python3
"""Scripts/check-rooms passes this tree, and finds each kind of violation that the
test plants in a copy of it."""
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
LIST = "Tests/tests-by-source"

# Of each line: the file that gets it, and the complaint.
LINES = (
    # Rooms.
    ("Tools/KWDitoTask.cpp", '#include "Agent/KWPrivilegedOperation.h"',
     "Tools must not include Agent/KWPrivilegedOperation.h"),
    ("Additions/NSStringAdditions.cpp", '#include "Tools/RVFileSizer.h"',
     "Additions must not include Tools/RVFileSizer.h"),
    ("Foundation/Error.h", '#include "Additions/NSURLAdditions.h"',
     "Foundation must not include Additions/NSURLAdditions.h"),
    ("Client/Request.cpp", '#include "Tools/RVFileSizer.h"',
     "Client must not include Tools/RVFileSizer.h"),
    ("CommandLine/Session.cpp", '#include "Agent/KWPrivilegedOperation.h"',
     "CommandLine must not include Agent/KWPrivilegedOperation.h"),
    ("Agent/main.cpp", '#include "Client/Client.h"', "Agent must not include Client/Client.h"),
    ("Agent/main.cpp", '#include "Nowhere/Client.h"', "Agent must not include Nowhere/Client.h"),
    ("Agent/main.cpp", '#include "KWPrivilegedOperation.h"',
     "KWPrivilegedOperation.h is not named by its room"),
    ("Tools/KWDitoTask.cpp", '#include "Tools/../Agent/KWPrivilegedOperation.h"',
     "Tools/../Agent/KWPrivilegedOperation.h is not named by its room"),
    # Hosts.
    ("Agent/main.cpp", '#include "Foundation/Linux/DesktopEntry.h"',
     "Foundation/Linux/DesktopEntry.h belongs to the bodies of Linux"),
    ("Tools/KWDitoTask.cpp", '#  include "Foundation/POSIX/Descriptor.h"',
     "Foundation/POSIX/Descriptor.h belongs to the bodies of POSIX"),
    ("Foundation/Error.h", '#include "Foundation/POSIX/Descriptor.h"',
     "Foundation/POSIX/Descriptor.h belongs to the bodies of POSIX"),
    ("Foundation/POSIX/Error.cpp", '#include "Foundation/Linux/DesktopEntry.h"',
     "Foundation/Linux/DesktopEntry.h belongs to the bodies of Linux"),
    ("Foundation/macOS/Launchd.cpp", '#include "Foundation/Linux/DesktopEntry.h"',
     "Foundation/Linux/DesktopEntry.h belongs to the bodies of Linux"),
    ("Foundation/Linux/Launchd.cpp", '#include "Foundation/macOS/ExtendedAttributeCalls.h"',
     "Foundation/macOS/ExtendedAttributeCalls.h belongs to the bodies of macOS"),
    ("Client/Request.cpp", '#include "Foundation/Linux/BusConnection.h"',
     "Foundation/Linux/BusConnection.h belongs to the bodies of Linux"),
    ("Client/AgentConnection.cpp", '#include "Foundation/Linux/DesktopEntry.h"',
     "Foundation/Linux/DesktopEntry.h belongs to the bodies of Linux"),
    # The platform.
    ("Client/Request.cpp", "#include <poll.h>", "platform header <poll.h> above the seam"),
    ("Client/Client.h", "#include <systemd/sd-bus.h>",
     "platform header <systemd/sd-bus.h> above the seam"),
    ("CommandLine/Session.cpp", "# include <unistd.h>",
     "platform header <unistd.h> above the seam"),
    ("Foundation/FileManager.h", "#include <fcntl.h>", "platform header <fcntl.h> above the seam"),
    ("Foundation/POSIX/Error.cpp", "#include <sys/inotify.h>",
     "<sys/inotify.h> is not in both hosts' libraries"),
    ("Foundation/POSIX/Error.cpp", "#include <glib.h>", "<glib.h> is not in both hosts' libraries"),
    ("Foundation/Linux/Launchd.cpp", "#include <mach/mach.h>", "<mach/mach.h> is not of Linux"),
    ("Foundation/macOS/Launchd.cpp", "#include <linux/fs.h>", "<linux/fs.h> is not of macOS"),
    ("Agent/main.cpp", "#ifdef __linux__", "tests for a platform"),
    ("Tools/KWDitoTask.h", "#if !defined(__APPLE__)", "tests for a platform"),
    ("Foundation/FileManager.h", "#elif TARGET_OS_OSX", "tests for a platform"),
    ("Foundation/POSIX/Error.cpp", "#ifdef __APPLE__", "tests for a platform"),
)


class CheckRoomsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.root = pathlib.Path(scratch.name)
        shutil.copytree(SOURCE / "Sources", cls.root / "Sources")
        for path in (SOURCE / "Tests").rglob("*.*"):
            cls.make(path.relative_to(SOURCE))
        shutil.copy(SOURCE / LIST, cls.root / LIST)

    @classmethod
    def make(cls, name, text=""):
        path = cls.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        return path

    def planted(self, name, text):
        """The complaints about the tree with one more file."""
        path = self.make(name, text)
        try:
            return self.complaints(self.root)
        finally:
            path.unlink()

    def added(self, name, text):
        """The complaints about the tree with a text at the end of a file."""
        path = self.root / name
        former = path.read_text(encoding="utf-8")
        path.write_text(former + text, encoding="utf-8")
        try:
            return self.complaints(self.root)
        finally:
            path.write_text(former, encoding="utf-8")

    def without(self, name):
        """The complaints about the tree without a file."""
        path = self.root / name
        text = path.read_text(encoding="utf-8")
        path.unlink()
        try:
            return self.complaints(self.root)
        finally:
            path.write_text(text, encoding="utf-8")

    def complaints(self, root):
        run = subprocess.run([f"{SOURCE}/Scripts/check-rooms", root], text=True,
                             capture_output=True, check=False)
        self.assertEqual(run.stderr, "")
        self.assertEqual(run.returncode, 1 if run.stdout else 0)
        return run.stdout.splitlines()

    def test_this_tree_passes_and_so_does_its_copy(self):
        self.assertEqual(self.complaints(SOURCE), [])
        self.assertEqual(self.complaints(self.root), [])

    def test_each_planted_line_is_found(self):
        expected = []
        for name, line, complaint in LINES:
            path = self.root / "Sources" / name
            former = path.read_text(encoding="utf-8")
            self.addCleanup(path.write_text, former, encoding="utf-8")
            path.write_text(f"{former}{line}\n", encoding="utf-8")
            number = len(former.splitlines()) + 1
            expected.append(f"Sources/{name}:{number}: {complaint}")
        self.assertEqual(sorted(self.complaints(self.root)), sorted(expected))

    def test_allowed_includes_pass(self):
        for path, line in (("Agent/main.cpp", '#include "Tools/RVFileSizer.h"'),
                           ("Client/Request.cpp", "#include <vector>"),
                           ("Client/AgentConnection.cpp", '#include "Foundation/Linux/BusText.h"'),
                           ("Foundation/macOS/Launchd.cpp", "#include <mach/mach.h>"),
                           ("Foundation/Linux/Launchd.cpp", "#ifdef __linux__"),
                           ("Foundation/POSIX/Error.cpp", "#include <unicode/uregex.h>"),
                           ("Agent/main.cpp", "// #include <poll.h>")):
            self.assertEqual(self.added(f"Sources/{path}", f"{line}\n"), [], line)

    def test_a_long_file_is_found(self):
        name = "Sources/Agent/main.cpp"
        self.assertRegex(self.added(name, "\n" * 500)[0], rf"^{name}: \d+ lines; 500 at most$")

    def test_a_body_of_another_name_than_its_header_is_found(self):
        self.make("Tests/Unit/Tools/PlantedTest.cpp")
        self.addCleanup((self.root / "Tests/Unit/Tools/PlantedTest.cpp").unlink)
        for name in ("Sources/Tools/Planted.cpp", "Sources/Tools/Planted+Part.cpp"):
            self.assertEqual(self.planted(name, ""), [f"{name}: no header of that name"])
        self.assertEqual(self.without("Sources/Foundation/URL.h"), [
            "Sources/Foundation/POSIX/URL.cpp: no header of that name",
            "Sources/Foundation/POSIX/URLResourceValues.cpp: no header of that name"])

    def test_a_body_without_a_test_is_found(self):
        self.make("Sources/Tools/Planted.h")
        self.addCleanup((self.root / "Sources/Tools/Planted.h").unlink)
        name = "Sources/Tools/Planted.cpp"
        missing = [f"{name}: no test of that name, and none in {LIST}"]
        self.assertEqual(self.planted(name, ""), missing)
        self.assertEqual(self.without("Tests/Unit/Tools/KWDitoTaskTest.cpp"),
                         [missing[0].replace("Planted", "KWDitoTask")])

    def test_a_test_of_a_longer_name_will_do_if_no_source_has_that_name(self):
        own = "Tests/Unit/Tools/KWDitoTaskTest.cpp"
        for longer in ("KWDitoTaskOptions", "KWDitoTask+Options"):
            test = self.make(f"Tests/Unit/Tools/{longer}Test.cpp")
            self.assertEqual(self.without(own), [])
            source = self.make(f"Sources/Tools/{longer}.h")
            self.assertEqual(len(self.without(own)), 1)
            source.unlink()
            test.unlink()

    def test_a_false_list_of_tests_is_found(self):
        for line, complaint in (
                ("Tools/Nothing: KWDitoTaskTest", "Tools/Nothing is no source"),
                ("Tools/KWDitoTask: FilesTest", "Tools/KWDitoTask has a test of its own name"),
                ("Foundation/Spawn: NothingTest", "Foundation/Spawn: there is no NothingTest"),
                ("Foundation/Spawn:", "Foundation/Spawn: no tests")):
            self.assertEqual(self.added(LIST, f"\n{line}\n"), [f"{LIST}: {complaint}"])


if __name__ == "__main__":
    unittest.main()
