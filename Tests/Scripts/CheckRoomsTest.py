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
    ("Foundation/Base/Error.h", '#include "Additions/NSURLAdditions.h"',
     "Foundation/Base must not include Additions/NSURLAdditions.h"),
    ("Foundation/Base/Error.h", '#include "Foundation/Text/Unicode.h"',
     "Foundation/Base must not include Foundation/Text/Unicode.h"),
    ("Foundation/Walking/FTS.h", '#include "Foundation/Trees/FileManager.h"',
     "Foundation/Walking must not include Foundation/Trees/FileManager.h"),
    ("Foundation/Trees/POSIX/TreeMove.cpp", '#include "Protocol/XPCInterface.h"',
     "Foundation/Trees must not include Protocol/XPCInterface.h"),
    ("Protocol/Identity.h", '#include "Service/XPCListener.h"',
     "Protocol must not include Service/XPCListener.h"),
    ("Tools/KWDitoTask.cpp", '#include "Service/XPCListener.h"',
     "Tools must not include Service/XPCListener.h"),
    ("Client/Request.cpp", '#include "Tools/RVFileSizer.h"',
     "Client must not include Tools/RVFileSizer.h"),
    ("Client/Request.cpp", '#include "Foundation/Trees/FileManager.h"',
     "Client must not include Foundation/Trees/FileManager.h"),
    ("CommandLine/Session.cpp", '#include "Agent/KWPrivilegedOperation.h"',
     "CommandLine must not include Agent/KWPrivilegedOperation.h"),
    ("Agent/main.cpp", '#include "Client/Client.h"', "Agent must not include Client/Client.h"),
    ("Agent/main.cpp", '#include "Nowhere/Client.h"', "Agent must not include Nowhere/Client.h"),
    ("Agent/main.cpp", '#include "Foundation/Error.h"',
     "Agent must not include Foundation/Error.h"),
    ("Agent/main.cpp", '#include "KWPrivilegedOperation.h"',
     "KWPrivilegedOperation.h is not named by its room"),
    ("Tools/KWDitoTask.cpp", '#include "Tools/../Agent/KWPrivilegedOperation.h"',
     "Tools/../Agent/KWPrivilegedOperation.h is not named by its room"),
    # Parts of a room that the code above the platform must not see.
    ("Tools/KWDitoTask.cpp", '#include "Foundation/Threads/Internal/WorkerPool.h"',
     "Foundation/Threads/Internal/WorkerPool.h is internal to the platform's rooms"),
    ("Foundation/Threads/Dispatch.h", '#include "Foundation/Threads/Internal/WorkerPool.h"',
     "Foundation/Threads/Internal/WorkerPool.h is internal to the platform's rooms"),
    # Hosts.
    ("Agent/main.cpp", '#include "Foundation/Desktop/Linux/DesktopEntry.h"',
     "Foundation/Desktop/Linux/DesktopEntry.h belongs to the bodies of Linux"),
    ("Tools/KWDitoTask.cpp", '#  include "Foundation/Descriptors/POSIX/Descriptor.h"',
     "Foundation/Descriptors/POSIX/Descriptor.h belongs to the bodies of POSIX"),
    ("Foundation/Descriptors/Pipe.h", '#include "Foundation/Descriptors/POSIX/Descriptor.h"',
     "Foundation/Descriptors/POSIX/Descriptor.h belongs to the bodies of POSIX"),
    ("Foundation/Threads/Internal/Crew.cpp",
     '#include "Foundation/Descriptors/POSIX/Descriptor.h"',
     "Foundation/Threads must not include Foundation/Descriptors/POSIX/Descriptor.h"),
    ("Foundation/Walking/Internal/AheadList.cpp",
     '#include "Foundation/Descriptors/POSIX/Descriptor.h"',
     "Foundation/Descriptors/POSIX/Descriptor.h belongs to the bodies of POSIX"),
    ("Foundation/Files/POSIX/FileContents.cpp", '#include "Foundation/Descriptors/Linux/HandlePath.h"',
     "Foundation/Descriptors/Linux/HandlePath.h belongs to the bodies of Linux"),
    ("Foundation/Files/macOS/MountPoint.cpp", '#include "Foundation/Descriptors/Linux/HandlePath.h"',
     "Foundation/Descriptors/Linux/HandlePath.h belongs to the bodies of Linux"),
    ("Foundation/Files/Linux/MountPoint.cpp",
     '#include "Foundation/Files/macOS/ExtendedAttributeCalls.h"',
     "Foundation/Files/macOS/ExtendedAttributeCalls.h belongs to the bodies of macOS"),
    ("Client/Request.cpp", '#include "Protocol/Linux/BusConnection.h"',
     "Protocol/Linux/BusConnection.h belongs to the bodies of Linux"),
    ("Client/AgentConnection.cpp", '#include "Foundation/Base/Linux/Nothing.h"',
     "Foundation/Base/Linux/Nothing.h belongs to the bodies of Linux"),
    ("Client/AgentConnection.cpp", '#include "Service/Linux/BusThread.h"',
     "Client must not include Service/Linux/BusThread.h"),
    # Local values.
    ("Tools/KWDitoTask.cpp", "  const bool isThere = true;", "declares a local value const"),
    ("Tools/KWDitoTask.cpp", "  for (const std::pair<int, std::string> each : all)",
     "declares a local value const"),
    ("Tools/KWDitoTask.cpp", "  if (const auto [place, isNew] = all.emplace(1); isNew)",
     "declares a local value const"),
    # The platform.
    ("Client/Request.cpp", "#include <poll.h>",
     "platform header <poll.h> outside the folders of a host"),
    ("Client/Client.h", "#include <systemd/sd-bus.h>",
     "platform header <systemd/sd-bus.h> outside the folders of a host"),
    ("CommandLine/Session.cpp", "# include <unistd.h>",
     "platform header <unistd.h> outside the folders of a host"),
    ("Foundation/Trees/FileManager.h", "#include <fcntl.h>",
     "platform header <fcntl.h> outside the folders of a host"),
    ("Foundation/Base/Error.cpp", "#include <fcntl.h>",
     "platform header <fcntl.h> outside the folders of a host"),
    ("Tools/KWDitoTask.cpp", "#include <unicode/uregex.h>",
     "platform header <unicode/uregex.h> outside the folders of a host"),
    ("Foundation/Text/Unicode.h", "#include <unicode/uregex.h>",
     "platform header <unicode/uregex.h> outside the folders of a host"),
    ("Foundation/Base/POSIX/Log.cpp", "#include <sys/inotify.h>",
     "<sys/inotify.h> is not in both hosts' libraries"),
    ("Foundation/Base/POSIX/Log.cpp", "#include <glib.h>",
     "<glib.h> is not in both hosts' libraries"),
    ("Foundation/Processes/Linux/Launchd.cpp", "#include <mach/mach.h>",
     "<mach/mach.h> is not of Linux"),
    ("Foundation/Processes/macOS/Launchd.cpp", "#include <linux/fs.h>",
     "<linux/fs.h> is not of macOS"),
    ("Agent/main.cpp", "#ifdef __linux__", "tests for a platform"),
    ("Tools/KWDitoTask.h", "#if !defined(__APPLE__)", "tests for a platform"),
    ("Foundation/Trees/FileManager.h", "#elif TARGET_OS_OSX", "tests for a platform"),
    ("Foundation/Base/POSIX/Log.cpp", "#ifdef __APPLE__", "tests for a platform"),
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
                           ("Client/AgentConnection.cpp", '#include "Protocol/Linux/BusText.h"'),
                           ("Agent/main.cpp", '#include "Foundation/Text/Unicode.h"'),
                           ("Service/Linux/BusThread.cpp",
                            '#include "Foundation/Threads/Internal/WorkerPool.h"'),
                           ("Foundation/Processes/macOS/Launchd.cpp", "#include <mach/mach.h>"),
                           ("Foundation/Processes/Linux/Launchd.cpp", "#ifdef __linux__"),
                           ("Foundation/Base/Error.cpp", "#include <unicode/uregex.h>"),
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
        files = "Sources/Foundation/Files"
        self.assertEqual(self.without(f"{files}/URL.h"), [
            f"{files}/POSIX/URL.cpp: no header of that name",
            f"{files}/POSIX/URLResourceValues.cpp: no header of that name"])
        self.make("Sources/Foundation/Text/URL.h")
        self.addCleanup((self.root / "Sources/Foundation/Text/URL.h").unlink)
        self.assertEqual(len(self.without(f"{files}/URL.h")), 2, "a header of another room")

    def test_a_file_outside_of_all_rooms_is_found(self):
        for name in ("Sources/Foundation/Planted.h", "Sources/Foundation/Walking/Parts/Planted.h",
                     "Sources/Nowhere/Planted.h", "Sources/Tools/Linux/Planted.h",
                     "Sources/Planted.h"):
            self.assertEqual(self.planted(name, ""), [f"{name}: its folder is no room"])

    def test_a_file_in_posix_that_calls_nothing_of_the_platform_is_found(self):
        name = "Sources/Foundation/Base/POSIX/Planted.h"
        idle = [f"{name}: calls nothing of the platform"]
        self.assertEqual(self.planted(name, "#include <vector>\n"), idle)
        self.assertEqual(self.planted(name, "#include <unistd.h>\n"), [])
        name = "Sources/Foundation/Walking/POSIX/Planted.h"
        text = '#include "Foundation/Walking/POSIX/FolderCalls.h"\n'
        self.assertEqual(self.planted(name, text), [])

    def test_a_room_of_the_build_that_names_a_higher_one_is_found(self):
        name = "Sources/CMakeLists.txt"
        text = (self.root / name).read_text(encoding="utf-8")
        self.addCleanup((self.root / name).write_text, text, encoding="utf-8")
        for line, changed in (("Foundation/Text kw_base", "Foundation/Text kw_base kw_files"),
                              ("Foundation/Base)", "Foundation/Base kw_base)")):
            self.assertIn(line, text)
            (self.root / name).write_text(text.replace(line, changed), encoding="utf-8")
            target = "kw_text" if "Text" in line else "kw_base"
            self.assertEqual(self.complaints(self.root), [
                f"{name}: {target} names {changed.split()[-1].rstrip(')')}, "
                "which no line above it makes"])

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
                ("Descriptors/Spawn: NothingTest", "Descriptors/Spawn: there is no NothingTest"),
                ("Descriptors/Spawn:", "Descriptors/Spawn: no tests")):
            self.assertEqual(self.added(LIST, f"\n{line}\n"), [f"{LIST}: {complaint}"])


if __name__ == "__main__":
    unittest.main()
