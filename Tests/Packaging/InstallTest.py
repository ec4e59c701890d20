"""The Debian packages in the throw-away root, as a user meets them: installed
beside a running system bus, upgraded, removed and purged."""
import filecmp
import glob
import os
import stat
import sys
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, f"{SOURCE}/Tests/System")

from Support import harness  # pylint: disable=wrong-import-position
from Support.bus import is_running, wait_until
from Support.root import DATA
from Support.systembus import MEMBER, OUTSIDER, ROOT, SystemBusRoot

AGENT = "/usr/libexec/keepwell-agent"
# What package management and user management write about themselves.
RECORDS = ("/var/lib/dpkg/", "/var/log/dpkg.log", "/var/log/alternatives.log", "/etc/group-",
           "/etc/gshadow-", "/etc/passwd-", "/etc/shadow-", "/etc/.pwd.lock",
           "/etc/ld.so.cache", "/var/cache/ldconfig/", "/var/cache/man/")


class PackageRoot(SystemBusRoot):
    """A system without Keepwell, a bus and two people."""

    def __init__(self):
        super().__init__(install=False)

    def packages(self):
        found = sorted(glob.glob(f"{harness.build_folder}/package/*.deb"))
        if not found:
            harness.skip("no packages; Scripts/package makes them")
        return found

    def dpkg(self, *arguments):
        return self.check(["dpkg", "--force-unsafe-io", *arguments])

    def install_packages(self):
        return self.dpkg("--install", *self.packages())

    def newer_packages(self):
        """The same packages with a higher version."""
        made = []
        for package in self.packages():
            name = os.path.basename(package)
            folder = f"{self.folder}/newer/{name}"
            self.mkdir(f"{self.folder}/newer")
            self.check(["dpkg-deb", "--raw-extract", package, folder])
            control = self.host_path(f"{folder}/DEBIAN/control")
            with open(control, encoding="utf-8") as file:
                text = file.read()
            with open(control, "w", encoding="utf-8") as file:
                file.write(text.replace("Version: 2.11", "Version: 2.11+next")
                           .replace("(= 2.11)", "(= 2.11+next)"))
            self.check(["dpkg-deb", "-Znone", "--build", folder, f"{folder}.deb"])
            made.append(f"{folder}.deb")
        return made

    def names(self):
        """Of the installed packages."""
        return [os.path.basename(package).split("_")[0] for package in self.packages()]

    def changes(self):
        """Every path whose file is not the machine's own: {path: what}."""
        upper = f"{self._base}/disk/upper"
        found = {}
        for folder, folders, files in os.walk(upper):
            for name in folders + files:
                path = f"{folder}/{name}"
                shown = path.removeprefix(upper)
                if shown.startswith(RECORDS):
                    continue
                what = self._change(path, shown)
                if what:
                    found[shown] = what
        return found

    @staticmethod
    def _change(upper, lower):
        status = os.lstat(upper)
        if stat.S_ISCHR(status.st_mode) and status.st_rdev == 0:
            return "gone" if os.path.lexists(lower) else None
        if not os.path.lexists(lower):
            return "new"
        before = os.lstat(lower)
        if (before.st_mode, before.st_uid, before.st_gid) != (status.st_mode, status.st_uid,
                                                              status.st_gid):
            return "other owner or mode"
        if stat.S_ISREG(status.st_mode) and not filecmp.cmp(upper, lower, shallow=False):
            with open(upper, "rb") as file:
                return file.read()
        return None


class InstallTestCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("dpkg", "dpkg-deb", "setpriv", "useradd", "gpasswd")

    def setUp(self):
        self.root = self.enterContext(PackageRoot())
        self.assertNotIn(AGENT, self.root.changes())

    def keepwell(self, user, *arguments):
        return self.root.run(self.root.as_user(user, ["keepwell", *arguments]))

    def assert_reach(self):
        """Root and the member reach the agent, the outsider does not."""
        for user in (ROOT, MEMBER):
            done = self.keepwell(user, "echo", "hello")
            self.assertEqual((done.returncode, done.stdout), (0, b"hello\n"), (user, done.stderr))
        self.assertNotEqual(self.keepwell(OUTSIDER, "echo", "hello").returncode, 0)
        status, _, error = self.root.call_as(OUTSIDER, "Echo", "s", "hello")
        self.assertEqual(status, 1)
        self.assertIn("denied", error)


class LifeOfThePackageTest(InstallTestCase):
    def test_it_is_installed_upgraded_removed_and_purged_without_a_trace(self):
        before = self.root.changes()
        self.root.install_packages()
        self.root.add_member()
        self.assert_reach()
        self.first_results()

        old = self.root.agent_pid()
        self.root.dpkg("--install", *self.root.newer_packages())
        wait_until(lambda: not is_running(old))
        self.assert_reach()
        self.assertTrue(os.readlink(f"/proc/{self.root.agent_pid()}/exe").endswith(AGENT))

        agent = self.root.agent_pid()
        self.root.dpkg("--remove", *self.root.names())
        self.assertFalse(is_running(agent))
        self.assertFalse(self.root.exists(AGENT))
        self.assertNotEqual(self.root.call_as(ROOT, "Echo", "s", "x")[0], 0)

        self.root.install_packages()
        self.assert_reach()  # a former member still is one
        self.root.dpkg("--purge", *self.root.names())
        self.assertEqual(self.root.changes(), before)
        self.assertNotEqual(self.root.run(["getent", "group", "keepwell"]).returncode, 0)

    def first_results(self):
        """A member of the group uses the packages."""
        locked = self.root.write(f"{DATA}/folder/locked", "x" * 10000)
        self.root.chattr("+i", locked)
        done = self.keepwell(MEMBER, "size", "--bytes", f"{DATA}/folder")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertGreaterEqual(int(done.stdout.split()[0]), 10000)
        done = self.keepwell(MEMBER, "remove", f"{DATA}/folder")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertFalse(self.root.exists(f"{DATA}/folder"))


class DevelopmentPackageTest(InstallTestCase):
    def test_a_program_is_built_with_pkg_config_and_asks_the_agent(self):
        self.root.install_packages()
        self.root.add_member()
        with open(f"{SOURCE}/Examples/Sizes/main.cpp", "rb") as file:
            self.root.write("/tmp/main.cpp", file.read())
        self.root.check(["sh", "-c", "c++ -std=c++20 /tmp/main.cpp -o /tmp/sizes "
                         "$(pkg-config --cflags --libs keepwell)"])
        self.root.write(f"{DATA}/file", "x" * 10000)
        done = self.root.run(self.root.as_user(MEMBER, ["/tmp/sizes", "system", f"{DATA}/file"]))
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(b"12288", done.stdout)


class WithoutSystemdTest(InstallTestCase):
    def test_the_group_is_made_where_there_is_no_systemd(self):
        for path in ("/usr/bin/systemd-sysusers", "/bin/systemctl"):
            if self.root.exists(path):
                os.unlink(self.root.host_path(path))
        self.root.install_packages()
        self.root.add_member()
        self.assert_reach()


if __name__ == "__main__":
    harness.main()
