"""The throw-away root itself: it shows the same on every machine, and so does
the environment of its programs."""
import glob
import os
import re
import subprocess
import tempfile
import unittest
from unittest import mock

from Support import baits, harness, machine, processes
from Support.bus import is_running
from Support.root import DATA, ThrowAwayRoot

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ITEM_IN_TMP = re.compile(r'"(/tmp/[\w./-]+)')
# The paths of the contract's tools.
TOOL = re.compile(r'"(/(?:bin|sbin|usr/bin|usr/sbin|usr/libexec)/\w+)"')
PLANTED = "/etc/xdg/autostart/planted.desktop", "/home/planted/file", "/opt/planted", \
    "/var/tmp/outside", "/usr/local/bin/sh", "/usr/bin/keepwell", "/mnt/planted", \
    "/media/planted", "/srv/planted", "/tmp/planted", "/run/planted"


class CrowdedMachine:
    """The root of a machine that has everything that machines may have."""

    def __enter__(self):
        self._base = tempfile.TemporaryDirectory(prefix="keepwell-machine-", dir="/var/tmp")
        base = self._base.name
        for folder in ("upper", "work", "root"):
            os.mkdir(f"{base}/{folder}")
        self.root = f"{base}/root"
        machine.mount("-t", "overlay", "overlay", "-o",
                      f"lowerdir=/,upperdir={base}/upper,workdir={base}/work", self.root)
        for path in (*machine.ABSENT, *PLANTED):
            place = machine.within(self.root, path)
            os.makedirs(os.path.dirname(place), exist_ok=True)
            if not os.path.lexists(place):
                with open(place, "w", encoding="utf-8") as file:
                    file.write("of the machine")
        return self

    def __exit__(self, *_):
        subprocess.run(["umount", self.root], check=True)
        self._base.cleanup()


class RootTest(unittest.TestCase):
    def test_it_hides_everything_that_differs_between_machines(self):
        crowded = self.enterContext(CrowdedMachine())
        root = self.enterContext(ThrowAwayRoot(lower=crowded.root, start=False))
        self.assertEqual([path for path in (*machine.ABSENT, *PLANTED) if root.exists(path)], [])
        for folder in (*machine.EMPTY, "/tmp"):
            # The programs are visible in the folder in which they were built.
            way = harness.build_folder.removeprefix(f"{folder}/").split("/")[0]
            built = [way] if harness.build_folder.startswith(f"{folder}/") else []
            self.assertEqual(root.listdir(folder), built, folder)
        self.assertEqual(root.listdir("/run"), ["keepwell-test"])
        self.assertTrue(root.exists("/usr/bin/env"))

    def test_it_is_the_same_on_this_machine(self):
        root = self.enterContext(ThrowAwayRoot(start=False))
        self.assertEqual([path for path in machine.ABSENT if root.exists(path)], [])
        for folder, mode in machine.EMPTY.items():
            status = os.stat(root.host_path(folder))
            self.assertEqual((status.st_mode & 0o7777, status.st_uid), (mode, 0), folder)
        # Folders that only hold hidden items are as on the machine.
        for folder in ("/usr/bin", "/usr/sbin", "/etc", "/var"):
            here, there = os.stat(folder), os.stat(root.host_path(folder))
            self.assertEqual((here.st_mode, here.st_uid, here.st_gid),
                             (there.st_mode, there.st_uid, there.st_gid), folder)

    def test_it_hides_the_agents_tools(self):
        found = set()
        for path in glob.glob(f"{SOURCE}/Sources/**/*.[ch]*", recursive=True):
            with open(path, encoding="utf-8") as file:
                found |= set(TOOL.findall(file.read()))
        self.assertGreaterEqual(len(found), 12)
        self.assertEqual(found - set(machine.ABSENT), set())

    def test_a_stand_in_is_found_by_either_name_of_its_folder(self):
        root = self.enterContext(ThrowAwayRoot(start=False))
        root.stand_in("/bin/launchctl", stdout="here")
        self.assertEqual(root.run(["/bin/launchctl"]).stdout, b"here")
        self.assertEqual(root.calls(), [["/bin/launchctl"]])

    def test_no_link_leads_out_of_it(self):
        root = self.enterContext(ThrowAwayRoot(start=False))
        # The machine's /tmp holds what tests call their items.
        self.assertTrue(os.path.isfile("/tmp/outside/one"))
        root.symlink("/tmp/outside", f"{DATA}/folder")
        root.symlink("/tmp/outside/one", f"{DATA}/file")
        with self.assertRaises(OSError):
            root.listdir(f"{DATA}/folder")
        with self.assertRaises(OSError):
            root.read(f"{DATA}/file")
        self.assertFalse(root.exists(f"{DATA}/folder/one"))


class TmpTest(unittest.TestCase):
    """The machine's /tmp in tests."""

    def test_it_holds_something_by_each_name_that_tests_use(self):
        found = set()
        scripts = set(glob.glob(f"{SOURCE}/Tests/System/**/*.py", recursive=True))
        for path in scripts - {os.path.abspath(__file__)}:
            with open(path, encoding="utf-8") as file:
                found |= set(ITEM_IN_TMP.findall(file.read()))
        self.assertGreaterEqual(len(found), 12)
        # Paths that are only looked up within a moved tree.
        found = {path for path in found if not path.startswith("/tmp/moved/")}
        self.assertEqual([path for path in sorted(found) if not os.path.lexists(path)], [])

    def test_it_holds_something_where_links_of_baits_lead(self):
        self.assertGreater(len(baits.led_astray()), 100)
        self.assertEqual([path for path in baits.led_astray() if not os.path.lexists(path)], [])

    def test_a_test_that_works_there_fails(self):
        self.assertEqual(machine.tmp_damage(), [])
        os.rename("/tmp/outside/one", "/tmp/outside/away")
        self.assertEqual(machine.tmp_damage(), ["/tmp/outside/away", "/tmp/outside/one"])
        os.rename("/tmp/outside/away", "/tmp/outside/one")
        self.assertEqual(machine.tmp_damage(), [])
        with open("/tmp/outside/one", "r+", encoding="utf-8") as file:
            file.write("OF")
            file.flush()
            self.assertEqual(machine.tmp_damage(), ["/tmp/outside/one"])
            file.seek(0)
            file.write("of")


class MaskTest(unittest.TestCase):
    def test_tests_without_a_root_find_nothing_at_the_agents_paths(self):
        crowded = self.enterContext(CrowdedMachine())
        script = ("import os, sys; sys.path.insert(0, sys.argv[1]); from Support import machine\n"
                  "machine.mount('-t', 'proc', 'proc', '/proc')\n"
                  "machine.mount('-t', 'devtmpfs', 'devtmpfs', '/dev')\n"
                  "before = sum(map(os.path.exists, machine.ABSENT)); machine.mask()\n"
                  "left = [path for path in (*machine.ABSENT, '/etc/xdg/autostart')\n"
                  "        if (os.listdir if os.path.isdir(path) else os.path.getsize)(path)]\n"
                  "print(before, left)")
        done = subprocess.run(["unshare", "--mount", "chroot", crowded.root, "python3", "-c", script,
                               os.path.join(SOURCE, "Tests/System")], capture_output=True, text=True,
                              check=False)
        self.assertEqual((done.stdout, done.stderr), (f"{len(machine.ABSENT)} []\n", ""))


class EnvironmentTest(unittest.TestCase):
    SEEN = {"PATH": harness.PATH, "LANG": "C.UTF-8", "HOME": "/root"}

    def test_of_the_callers_environment_little_is_left(self):
        caller = {"PATH": "/nowhere", "HOME": "/home/me", "LANG": "de_DE.UTF-8", "LC_ALL": "ar",
                  "XDG_DATA_HOME": "/x", "DBUS_SESSION_BUS_ADDRESS": "unix:path=/x", "TZ": "X",
                  "TMPDIR": "/x", "KEEPWELL_LOAD_SEED": "3", "ASAN_OPTIONS": "a=b"}
        with mock.patch.dict(os.environ, caller, clear=True):
            harness.make_environment()
            self.assertEqual(dict(os.environ), {
                "PATH": harness.PATH, "HOME": "/nonexistent", "LANG": "C.UTF-8",
                "KEEPWELL_LOAD_SEED": "3", "ASAN_OPTIONS": "a=b"})

    def test_programs_in_a_root_see_the_same_on_every_machine(self):
        root = self.enterContext(ThrowAwayRoot(start=False))
        lines = root.run(["env"]).stdout.decode().splitlines()
        seen = dict(line.split("=", 1) for line in lines)
        for name in [name for name in seen if name.endswith("SAN_OPTIONS")]:
            del seen[name]
        self.assertEqual(seen, self.SEEN)


class ProcessesTest(unittest.TestCase):
    """Each look works even when the process ends between opening and reading."""

    def test_a_process_that_goes_within_a_look_is_not_running(self):
        for look, gone in ((is_running, False), (processes.is_sanitized, False),
                           (processes.memory, 0), (processes.fields, {}),
                           (lambda pid: processes.text(pid, "stat"), "")):
            program = subprocess.Popen(["sleep", "600"])
            self.assertTrue(is_running(program.pid))

            def opening(*arguments, program=program, **options):
                file = open(*arguments, **options)  # pylint: disable=consider-using-with
                program.kill()
                program.wait()
                return file
            with mock.patch.object(processes, "open", opening, create=True):
                self.assertEqual(look(program.pid), gone)

    def test_one_that_has_gone_holds_nothing(self):
        program = subprocess.Popen(["true"])
        program.wait()
        usage = processes.Usage(program.pid)
        self.assertEqual((usage.counts, usage.memory),
                         ({"pid": program.pid, "descriptors": 0, "threads": 0, "children": 0}, 0))

    def test_a_zombie_is_not_running(self):
        program = subprocess.Popen(["true"])
        os.waitid(os.P_PID, program.pid, os.WEXITED | os.WNOWAIT)
        self.assertFalse(is_running(program.pid))
        program.wait()


if __name__ == "__main__":
    harness.main()
