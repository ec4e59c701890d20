"""Scripts/conform against the installed agent in a throw-away root: for root and
for a member of the group, with imitations of macOS's tools; and with commands
that lie about one operation."""
import ast
import glob
import json
import os
import shutil
import stat
import sys
import tempfile
import unittest
from unittest import mock

from Support import harness, imitations
from Support.root import DATA
from Support.systembus import MEMBER, OUTSIDER, ROOT, SystemBusRoot

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, f"{SOURCE}/Tests")

from Conformance import hosts, suite  # pylint: disable=wrong-import-position

suite.load()

SUITE = "/usr/local/keepwell-suite"  # a copy of its files, as a Mac would get it
FILES = ("Scripts/conform", "Tests/Conformance", "Resources")
MEMBERS = suite.operations(f"{SOURCE}/Resources/org.keepwell.KWPrivilegedOperation.xml")


class InstalledRoot(SystemBusRoot):
    """The installed agent with its users, the suite, and a place for each user."""

    def start_bus(self, agent=None):
        super().start_bus(agent)
        for name in FILES:
            source, copy = f"{SOURCE}/{name}", self.host_path(f"{SUITE}/{name}")
            os.makedirs(os.path.dirname(copy), exist_ok=True)
            if os.path.isdir(source):
                shutil.copytree(source, copy, ignore=shutil.ignore_patterns("__pycache__"))
            else:
                shutil.copy(source, copy)
        os.chmod(self.host_path("/root"), 0o755)
        for user in (ROOT, MEMBER, OUTSIDER):
            for folder in (f"{DATA}/{user}", f"/tmp/{user}"):
                self.mkdir(folder)
                self.check(["chown", user, folder])

    def sanitizer_options(self):
        # The desktop's library loses the record of an item that it could not move
        # to the Trash.
        return {**super().sanitizer_options(), "ASAN_OPTIONS": "detect_leaks=0"}

    def conform(self, user, *words):
        """Its exit status, its output, and its report's results by scenario."""
        report = f"/tmp/{user}/report"
        done = self.run(self.as_user(user, [
            "/usr/bin/python3", f"{SUITE}/Scripts/conform", "--folder", f"{DATA}/{user}/scratch",
            "--volume", f"/tmp/{user}/volume", "--report", report, *words]))
        results = {}
        if self.exists(report):
            results = {each["scenario"]: each
                       for each in json.loads(self.read(report))["results"]}
            os.unlink(self.host_path(report))
        return done.returncode, (done.stdout + done.stderr).decode(errors="replace"), results


def failures(results):
    """The operations with a scenario that failed."""
    return {operation for each in results.values() if each["outcome"] == suite.FAILED
            for operation in each["operations"]}


def judged(results):
    return {operation for each in results.values() if each["outcome"] != suite.NOT_APPLICABLE
            for operation in each["operations"]} & set(MEMBERS)


def left_out(results):
    return {each["scenario"]: each["reason"] for each in results.values()
            if each["outcome"] == suite.NOT_APPLICABLE}


class ConformanceTestCase(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("setpriv", "useradd", "gpasswd", "systemd-sysusers", "lsattr", "ps")
        cls.root = cls.enterClassContext(InstalledRoot())

    def items(self):
        """The paths of all files that a run may have left behind, and of the
        folders at the places of the users."""
        found = {name for name in self.root.listdir("/etc") if name.startswith("launchd")}
        for top in ("/etc/xdg/autostart", "/Library", "/private", "/root", "/tmp", "/var/log/asl"):
            for folder, _, names in os.walk(self.root.host_path(top)):
                found.update(f"{folder}/{name}" for name in names)
        for user in (ROOT, MEMBER):
            for place in (f"{DATA}/{user}", f"/tmp/{user}"):
                found.update(f"{place}/{name}" for name in self.root.listdir(place))
        return found


class SuiteTest(unittest.TestCase):
    """The suite itself, with no agent."""

    def test_each_operation_has_a_scenario_or_a_reason(self):
        self.assertEqual(list(suite.complaints(MEMBERS)), [])
        for member in MEMBERS:
            rest = [each for each in suite.SCENARIOS if member not in each.subjects]
            self.assertIn(f"{member} has no scenario", list(suite.complaints(MEMBERS, rest)))
        odd = suite.Scenario("odd", ("Dance",), "nowhere", None)
        self.assertEqual(list(suite.complaints(MEMBERS, [*suite.SCENARIOS, odd, odd])), [
            "Dance is neither an operation nor another subject",
            "two scenarios are called 'odd'", *["odd: there is no area nowhere"] * 2])

    def test_its_files_are_of_the_oldest_python_that_it_names(self):
        files = [f"{SOURCE}/Scripts/conform", *glob.glob(f"{SOURCE}/Tests/Conformance/*.py")]
        self.assertGreater(len(files), 5)
        for name in files:
            with open(name, encoding="utf-8") as file:
                tree = ast.parse(file.read(), name, feature_version=(3, 9))
            for each in ast.walk(tree):
                modules = [one.name for one in each.names] if isinstance(each, ast.Import) else []
                if isinstance(each, ast.ImportFrom) and each.level == 0:
                    modules.append(each.module)
                self.assertLessEqual({module.partition(".")[0] for module in modules},
                                     {"Conformance", *sys.stdlib_module_names}, name)

    def test_both_hosts_have_the_same_members_and_lock_by_their_own_tools(self):
        self.assertEqual(set(dir(hosts.MacOS)), set(dir(hosts.Linux)))
        with tempfile.TemporaryDirectory(prefix="keepwell-hosts-", dir="/var/tmp") as folder:
            for tool in ("chflags", "chattr", "lsattr"):
                with open(f"{folder}/{tool}", "w", encoding="utf-8") as file:
                    file.write(f'#!/bin/sh\necho {tool} "$@" >>{folder}/calls\n'
                               f'[ {tool} != lsattr ] || echo ----ia---- "$2"\n')
                os.chmod(f"{folder}/{tool}", 0o755)
            locked = mock.Mock(st_flags=stat.UF_IMMUTABLE)
            with mock.patch.dict(os.environ, PATH=f"{folder}:{harness.PATH}"), \
                    mock.patch.object(os, "lstat", return_value=locked):
                for host in (hosts.MacOS(), hosts.Linux()):
                    host.lock("/item")
                    self.assertTrue(host.is_locked("/item"))
                    host.allow_appending_only("/item")
                    self.assertIn("name", host.agent_trashes("name")[0][0])
                with mock.patch.object(os, "geteuid", return_value=0):
                    hosts.MacOS().unlock("/item")
                locked.st_flags = stat.UF_HIDDEN
                self.assertFalse(hosts.MacOS().is_locked("/item"))
            with open(f"{folder}/calls", encoding="utf-8") as file:
                calls = [line.strip() for line in file if not line.startswith("lsattr")]
        self.assertEqual(calls, ["chflags uchg /item", "chflags uappnd /item",
                                 "chattr +i /item", "chattr +a /item",
                                 "chflags -R nouchg,nouappnd /item",
                                 "chflags -R noschg,nosappnd /item"])


class PlainHostTest(ConformanceTestCase):
    """Linux as it is, without any of macOS's tools."""

    def run_whole(self, user, *words):
        before = self.items()
        status, text, results = self.root.conform(user, *words)
        self.assertEqual((status, failures(results)), (0, set()), text)
        self.assertEqual(self.items(), before)
        return text, results

    def test_root_passes_all_of_the_file_operations(self):
        text, results = self.run_whole(ROOT)
        reasons = left_out(results)
        self.assertEqual(judged(results), {
            "Echo", "FileExistsAtPath", "MoveItemAtPath", "RemoveItemAtPath",
            "SecurelyRemoveItemAtPath", "MoveToTrashItemAtPath", "TruncateFileAtPath",
            "SlimBinaryWithPath", "RemoveSMLoginItem", "RemoveGlobalLoginItemForAppWithPath",
            "SizeOfItemAtPath"})
        for reason in reasons.values():
            self.assertRegex(reason, "^(no /|neither /|not allowed: --allow |the user is root|"
                                     "no flag hides a file|there is /)", reasons)
        self.assertIn("11 of 26 operations judged", text)

    def test_a_member_of_the_group_passes_all_but_locks(self):
        _, results = self.run_whole(MEMBER)
        locks = {name for name, reason in left_out(results).items()
                 if reason.startswith("chattr ")}
        self.assertGreaterEqual(len(locks), 10)
        self.assertEqual(results["a move into a folder of root"]["outcome"], suite.PASSED)

    def test_a_user_without_access_learns_that_no_agent_answers(self):
        status, text, _ = self.root.conform(OUTSIDER)
        self.assertEqual(status, 3, text)
        self.assertIn("no agent answers", text)

    def test_it_refuses_a_folder_that_is_not_empty(self):
        path = self.root.write(f"{DATA}/full/file", "kept")
        status, text, _ = self.root.conform(ROOT, "--folder", f"{DATA}/full")
        self.assertEqual(status, 2, text)
        self.assertEqual(self.root.read(path), b"kept")
        self.root.symlink("full", f"{DATA}/link")
        self.assertEqual(self.root.conform(ROOT, "--folder", f"{DATA}/link")[0], 2)


class ImitatedHostTest(ConformanceTestCase):
    """With imitations of macOS's tools, so that the scenarios for these run too."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        imitations.install(cls.root)

    def test_all_operations_are_judged_and_the_system_is_as_before(self):
        before = self.items()
        status, text, results = self.root.conform(ROOT, "--allow", "everything")
        self.assertEqual((status, failures(results)), (0, set()), text)
        self.assertEqual(judged(results), set(MEMBERS), text)
        self.assertIn("26 of 26 operations judged", text)
        for reason in left_out(results).values():
            self.assertRegex(reason, "^(there is /|the user is root|no flag hides a file)", text)
        self.assertEqual(self.items(), before)

    # Lies that are told together: of operations whose effect a scenario sees, a
    # claim is not enough; of the others the agent's answer is all there is.
    LIES = (
        {**dict.fromkeys(
            ("RemoveItemAtPath", "MoveItemAtPath", "TruncateFileAtPath", "RemovePackageWithID",
             "EnableLaunchdAgentAtPath", "RemoveSMLoginItem", "PleaseTerminate",
             "SlimBinaryWithPath", "RunPeriodicScript"), "claims"),
         **dict.fromkeys(("FileExistsAtPath", "StartStartupItem", "RepairPermissions", "FlushDNS"),
                         "denies")},
        {**dict.fromkeys(
            ("SecurelyRemoveItemAtPath", "MoveToTrashItemAtPath", "RemoveLaunchdAgentAtPath",
             "DisableLaunchdAgentAtPath", "RemoveKextAtPath", "RemoveASL",
             "RemoveGlobalLoginItemForAppWithPath", "RemoveLibraryFromLauchdConf"), "claims"),
         **dict.fromkeys(("Echo", "SizeOfItemAtPath", "StopStartupItem", "StartSpotlightReindex",
                          "RemoveDiagnosticLogs"), "denies")})

    def test_a_lie_about_an_operation_is_reported_as_that_operation(self):
        self.assertEqual(set().union(*self.LIES), set(MEMBERS))
        for lies in self.LIES:
            with self.subTest(operations=lies):
                status, text, results = self.root.conform(
                    ROOT, "--allow", "everything", "--command", self.liar(lies))
                self.assertEqual((status, failures(results) & set(MEMBERS)), (1, set(lies)), text)

    def liar(self, lies):
        folder = "/usr/local/liar"
        with open(f"{SOURCE}/Tests/System/Programs/liar.py", "rb") as file:
            liar = self.root.write(f"{folder}/liar", file.read(), 0o755)
        self.root.write(f"{folder}/LIES", json.dumps(lies))
        if not self.root.exists(f"{folder}/keepwell"):
            command = self.root.check(["sh", "-c", "command -v keepwell"]).strip()
            self.root.symlink(command, f"{folder}/keepwell")
        return liar


if __name__ == "__main__":
    harness.main()
