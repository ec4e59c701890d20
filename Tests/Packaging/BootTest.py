"""The Debian packages on a small Debian that a real systemd has booted, in
namespaces of its own: installed with apt, started by the first call, seen in the
journal and by systemctl, started again after a failure, and purged."""
import glob
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, f"{SOURCE}/Tests/System")

from Support import harness  # pylint: disable=wrong-import-position
from Support.bus import wait_until
from Support.machine import mount

UNIT = "keepwell-agent.service"
MEMBER, OUTSIDER = "member", "outsider"
SHUT_DOWN = signal.SIGRTMIN + 3


class BootedDebian:
    """A Debian of its own, from its boot to its shutdown."""

    def __enter__(self):
        self._base = tempfile.mkdtemp(prefix="keepwell-boot.", dir="/var/tmp")
        try:
            self._make()
            self._boot()
        except BaseException:
            self._remove()
            raise
        return self

    def __exit__(self, *_):
        if self._container.poll() is None:
            os.kill(self._leader, SHUT_DOWN)
            self._container.wait(60)
        self._remove()

    def _make(self):
        self.root = f"{self._base}/root"
        os.mkdir(self.root)
        subprocess.run([f"{SOURCE}/Scripts/debian-root", self.root, "systemd,systemd-sysv,dbus"],
                       check=True)

    def _boot(self):
        # systemd-nspawn leaves a folder there otherwise.
        os.makedirs("/run/systemd/nspawn", exist_ok=True)
        mount("-t", "tmpfs", "tmpfs", "/run/systemd/nspawn")
        self._container = subprocess.Popen(
            ["systemd-nspawn", "--quiet", "--directory", self.root, "--register=no", "--keep-unit",
             "--boot", f"--bind-ro={harness.build_folder}/package:/packages"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        wait_until(self._find_leader)
        wait_until(lambda: self.run("systemctl", "is-system-running", "--wait").stdout ==
                   "running\n", 60)

    def _find_leader(self):
        """The first process of the booted system: a child of systemd-nspawn."""
        pid = self._container.pid
        with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
            for child in file.read().split():
                with open(f"/proc/{child}/comm", encoding="utf-8") as name:
                    if name.read() == "systemd\n":
                        self._leader = int(child)
                        return True
        return False

    def _remove(self):
        shutil.rmtree(self._base)

    def run(self, *argv):
        """Runs a command in the booted system."""
        return subprocess.run(
            ["nsenter", f"--target={self._leader}", "--mount", "--uts", "--ipc", "--net", "--pid",
             "--cgroup", "--", "env", "-i", f"PATH={harness.PATH}", "HOME=/root",
             "DEBIAN_FRONTEND=noninteractive", *argv],
            capture_output=True, text=True, stdin=subprocess.DEVNULL, check=False)

    def check(self, *argv):
        """Runs a command that must succeed, and returns its output."""
        done = self.run(*argv)
        if done.returncode != 0:
            raise AssertionError(f"{argv}: {done.stdout}{done.stderr}")
        return done.stdout

    def keepwell(self, user, *arguments):
        return self.run("setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", "--",
                        "keepwell", *arguments)

    def unit(self, name):
        """One of the unit's properties."""
        return self.check("systemctl", "show", "--value", f"--property={name}", UNIT).strip()

    def entries(self, *matches):
        lines = self.check("journalctl", "--output=json", "--no-pager", *matches).splitlines()
        return [json.loads(line) for line in lines]


class BootTest(unittest.TestCase):
    def setUp(self):
        harness.require_tools("systemd-nspawn", "nsenter")
        self.assertTrue(glob.glob(f"{harness.build_folder}/package/*.deb"),
                        "no packages; Scripts/package makes them")
        self.debian = self.enterContext(BootedDebian())

    def test_the_life_of_the_package(self):
        self.install()
        self.first_call_starts_the_unit()
        self.a_removal_is_in_the_journal()
        self.the_next_call_starts_it_again_after_a_failure()
        self.an_outsider_is_refused()
        self.purge()

    def install(self):
        self.debian.check("apt-get", "update", "-qq")
        self.debian.check("sh", "-c",
                          "apt-get install -y -qq --no-install-recommends /packages/*.deb")
        for user in (MEMBER, OUTSIDER):
            self.debian.check("useradd", "--create-home", user)
        self.debian.check("gpasswd", "--add", MEMBER, "keepwell")
        self.assertEqual(self.debian.unit("ActiveState"), "inactive")

    def assert_reply(self):
        done = self.debian.keepwell(MEMBER, "echo", "hello")
        self.assertEqual((done.returncode, done.stdout), (0, "hello\n"), done.stderr)
        self.assertEqual(self.debian.unit("ActiveState"), "active")

    def first_call_starts_the_unit(self):
        self.assert_reply()
        self.assertIn("active (running)", self.debian.check("systemctl", "status", UNIT))

    def a_removal_is_in_the_journal(self):
        self.debian.check("mkdir", "-p", "/srv/waste")
        self.debian.check("touch", "/srv/waste/locked")
        self.debian.check("chmod", "700", "/srv/waste")
        done = self.debian.keepwell(MEMBER, "remove", "/srv/waste")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertNotEqual(self.debian.run("test", "-e", "/srv/waste").returncode, 0)
        entry, = self.debian.entries("KEEPWELL_MEMBER=RemoveItemAtPath")
        self.assertEqual(entry["_SYSTEMD_UNIT"], UNIT)
        self.assertEqual(entry["KEEPWELL_ITEM"], "/srv/waste")
        self.assertEqual(entry["KEEPWELL_OUTCOME"], "done")
        self.assertEqual(entry["KEEPWELL_USER"], self.debian.check("id", "-u", MEMBER).strip())

    def the_next_call_starts_it_again_after_a_failure(self):
        agent = self.debian.unit("MainPID")
        self.debian.check("systemctl", "kill", "--signal=KILL", UNIT)
        wait_until(lambda: self.debian.unit("ActiveState") == "failed")
        self.assert_reply()
        self.assertNotEqual(self.debian.unit("MainPID"), agent)

    def an_outsider_is_refused(self):
        done = self.debian.keepwell(OUTSIDER, "echo", "hello")
        self.assertEqual(done.returncode, 3)
        self.assertIn("not in the group keepwell", done.stderr)

    def purge(self):
        agent = self.debian.unit("MainPID")
        self.debian.check("apt-get", "purge", "-y", "-qq", "keepwell", "libkeepwell2",
                          "libkeepwell-dev")
        self.assertNotEqual(self.debian.run("test", "-e", f"/proc/{agent}").returncode, 0)
        self.assertEqual(self.debian.unit("LoadState"), "not-found")
        self.assertNotEqual(self.debian.run("getent", "group", "keepwell").returncode, 0)
        self.assertEqual(self.debian.check("systemctl", "is-system-running"), "running\n")
        self.assertEqual(self.debian.check("systemctl", "--failed", "--plain", "--no-legend"), "")


if __name__ == "__main__":
    harness.main()
