"""Access to the agent: the installed policy on a bus of the system's type, with
the bus's own helper starting the agent. Tried by root, by a member of the group
and by another user."""
import json
import os
import signal
import unittest
import xml.etree.ElementTree as ElementTree

from Support import harness
from Support.bus import NAME, wait_until
from Support.root import DATA
from Support.systembus import MEMBER, OUTSIDER, ROOT, SystemBusRoot

DENIED = "org.freedesktop.DBus.Error.AccessDenied"

# A tool that writes piece by piece; the agent drops every other one.
CHUNKS = "for n in $(seq 50); do echo {} $n; sleep 0.005; done"


class PolicyFileTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.policies = ElementTree.parse(
            os.path.join(harness.build_folder, "Resources", f"{NAME}.conf")).findall("policy")

    def test_every_rule_is_about_the_agents_name_alone(self):
        rules = [rule for policy in self.policies for rule in policy]
        self.assertGreaterEqual(len(rules), 5)
        for rule in rules:
            self.assertIn(rule.attrib, ({"own": NAME}, {"send_destination": NAME}))

    def test_all_are_refused_but_root_and_the_group(self):
        self.assertEqual([policy.attrib for policy in self.policies],
                         [{"context": "default"}, {"user": "root"}, {"group": "keepwell"}])
        kinds = [{(rule.tag, *rule.attrib) for rule in policy} for policy in self.policies]
        self.assertEqual(kinds, [{("deny", "own"), ("deny", "send_destination")},
                                 {("allow", "own"), ("allow", "send_destination")},
                                 {("allow", "send_destination")}])


class PolicyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("setpriv", "useradd", "gpasswd", "systemd-sysusers", "dbus-send",
                              "dbus-monitor")
        cls.root = cls.enterClassContext(SystemBusRoot())

    def setUp(self):
        # The first caller starts the agent.
        pid = self.root.agent_pid()
        if pid:
            os.kill(pid, signal.SIGTERM)
            wait_until(lambda: self.root.agent_pid() is None)

    def call_on_bus(self, user, member, signature, *arguments):
        done = self.root.run(self.root.as_user(user, [
            "busctl", f"--address={self.root.address}", "--json=short", "call",
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", member,
            *([signature] if signature else []), *arguments]))
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def test_the_helper_of_the_bus_starts_the_installed_agent_as_root(self):
        self.assertEqual(self.root.call_as(MEMBER, "Echo", "s", "hello")[0], 0)
        pid = self.root.agent_pid()
        self.assertEqual(os.stat(f"/proc/{pid}").st_uid, 0)
        self.assertTrue(os.readlink(f"/proc/{pid}/exe").endswith("/libexec/keepwell-agent"))
        with open(f"/proc/{pid}/environ", "rb") as file:
            self.assertIn(b"DBUS_STARTER_BUS_TYPE=system", file.read().split(b"\0"))

    def test_root_and_members_may_call_and_get_their_work_done(self):
        for user in (ROOT, MEMBER):
            with self.subTest(user=user):
                locked = self.root.write(f"{DATA}/locked", "x", 0o600)
                self.root.chattr("+i", locked)
                status, text, error = self.root.call_as(user, "RemoveItemAtPath", "s", locked)
                self.assertEqual((status, error), (0, ""))
                self.assertIs(json.loads(text)["data"][0], True)
                self.assertFalse(self.root.exists(locked))

    def test_others_are_refused_and_start_no_agent(self):
        kept = self.root.write(f"{DATA}/kept", "x", 0o666)
        os.chown(self.root.host_path(kept), 64202, 64202)
        for member, signature, *arguments in (("Echo", "s", "x"), ("RemoveItemAtPath", "s", kept),
                                              ("PleaseTerminate", "")):
            status, text, error = self.root.call_as(OUTSIDER, member, signature, *arguments)
            self.assertEqual((status, text), (1, ""))
            self.assertIn("denied", error)
        self.assertTrue(self.root.exists(kept))
        # that bus starts the recipient of a message before it refuses the
        # message
        if not harness.broker:
            self.assertIsNone(self.root.agent_pid())

    def test_the_refusal_is_the_buss_own_error(self):
        done = self.root.run(self.root.as_user(OUTSIDER, [
            "dbus-send", f"--bus={self.root.address}", "--print-reply", f"--dest={NAME}",
            "/org/keepwell/pro/agent", "org.keepwell.KWPrivilegedOperation.Echo", "string:x"]))
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(DENIED, done.stderr.decode())

    def test_others_are_refused_by_the_agents_unique_name_too(self):
        self.root.call_as(MEMBER, "Echo", "s", "")
        owner = self.root.bus_call("GetNameOwner", "s", NAME)[0]
        self.assertEqual(self.root.call_as(MEMBER, "Echo", "s", "x", name=owner)[0], 0)
        status, text, _ = self.root.call_as(OUTSIDER, "Echo", "s", "x", name=owner)
        self.assertEqual((status, text), (1, ""))
        status, text, _ = self.root.call_as(OUTSIDER, "PleaseTerminate", name=owner)
        self.assertEqual(status, 1)
        self.assertEqual(self.root.bus_call("GetNameOwner", "s", NAME)[0], owner)

    def test_only_root_may_own_the_name(self):
        for user in (MEMBER, OUTSIDER):
            status, text, error = self.call_on_bus(user, "RequestName", "su", NAME, "0")
            self.assertEqual((status, text), (1, ""))
            self.assertIn("denied", error)
        status, text, _ = self.call_on_bus(ROOT, "RequestName", "su", NAME, "0")
        self.assertEqual((status, json.loads(text)["data"]), (0, [1]))

    def test_progress_reaches_the_member_that_asked(self):
        self.root.stand_in("/usr/libexec/repair_packages", script=CHUNKS.format("step"))
        done = self.root.run(self.root.as_user(MEMBER, [
            "/usr/local/bin/keepwell", "--bus", self.root.address, "--json", "maintenance",
            "repair-permissions"]))
        *progress, last = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual((done.returncode, last["success"]), (0, True))
        self.assertGreater(len(progress), 1)
        for answer in progress:
            self.assertRegex(answer["progress"], r"\A(step \d+\n)+\Z")

    def test_the_command_finds_the_system_bus_by_itself(self):
        done = self.root.run(self.root.as_user(MEMBER, ["keepwell", "echo", "hello"]))
        self.assertEqual((done.returncode, done.stdout), (0, b"hello\n"))
        done = self.root.run(self.root.as_user(OUTSIDER, ["keepwell", "--json", "echo", "hello"]))
        answer = json.loads(done.stdout)
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual((answer["success"], answer["error"]["name"]), (False, DENIED))

    def test_a_trial_run_measures_files_that_the_member_cannot_read_through_the_agent(self):
        tree = self.root.mkdir("/srv/tree")
        locked = self.root.host_path(self.root.mkdir(f"{tree}/locked"))
        with open(f"{locked}/file", "wb") as file:
            file.write(b"x" * (1 << 20))
        os.chmod(locked, 0o700)
        os.sync()
        argv = ["keepwell", "--json", "remove", "--dry-run", tree]
        held = sum(os.stat(path).st_blocks * 512 for path in
                   (self.root.host_path(tree), locked, f"{locked}/file"))
        for user, measured, unknown, allocated in (
                (MEMBER, [f"{tree}/locked"], [], held),
                (OUTSIDER, [], [f"{tree}/locked"], held - (1 << 20))):
            done = self.root.run(self.root.as_user(user, argv))
            plan = json.loads(done.stdout.splitlines()[0])
            self.assertEqual((plan["measured"], plan["unknown"]), (measured, unknown), plan)
            self.assertEqual(plan["allocated"], allocated, plan)
        self.assertTrue(os.path.exists(f"{locked}/file"))

    def listener(self, user):
        """Starts a program that wants to hear all messages, and returns when it
        is running. It watches the whole bus or, refused that, eavesdrops."""
        out = self.root.host_path(f"{self.root.folder}/heard-by-{user}")
        with open(out, "wb") as file:
            program = self.root.popen(self.root.as_user(user, [
                "stdbuf", "-o0", "dbus-monitor", "--address", self.root.address,
                "interface='org.keepwell.KWPrivilegedOperation'",
                "interface='org.keepwell.KWPrivilegedOperationProgress'", "type='method_return'",
                "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'"]),
                stdout=file, stderr=file)
        self.addCleanup(program.wait)
        self.addCleanup(program.kill)

        def heard():
            with open(out, encoding="utf-8", errors="replace") as file:
                return file.read()
        # Like any client it hears of names that come and go, when it hears at
        # all.
        wait_until(lambda: self.call_on_bus(ROOT, "GetId", "") and "NameOwnerChanged" in heard())
        return heard

    def test_others_hear_neither_requests_nor_progress(self):
        self.root.stand_in("/usr/libexec/repair_packages", script=CHUNKS.format("secret progress"))
        heard = {user: self.listener(user) for user in (OUTSIDER, MEMBER, ROOT)}
        self.root.call_as(MEMBER, "Echo", "s", "secret request")
        self.root.call_as(MEMBER, "RepairPermissions")
        self.root.call_as(MEMBER, "PleaseTerminate")
        for user, text in heard.items():
            # The agent has come and gone: the listener has all messages before
            # that.
            wait_until(lambda text=text: text().count(f'string "{NAME}"') >= 2)
            self.assertEqual("secret request" in text(), user == ROOT, user)
            self.assertEqual("secret progress" in text(), user == ROOT, user)

    def test_only_root_may_watch_the_whole_bus(self):
        for user in (MEMBER, OUTSIDER):
            done = self.root.run(self.root.as_user(user, [
                "busctl", f"--address={self.root.address}", "call", "org.freedesktop.DBus",
                "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring", "BecomeMonitor",
                "asu", "0", "0"]))
            self.assertEqual(done.returncode, 1)

    def test_a_new_member_may_call_from_the_next_login_on(self):
        self.assertEqual(self.root.call_as(OUTSIDER, "Echo", "s", "x")[0], 1)
        self.root.check(["gpasswd", "--add", OUTSIDER, "keepwell"])
        try:
            wait_until(lambda: self.root.call_as(OUTSIDER, "Echo", "s", "x")[0] == 0, 5)
        finally:
            self.root.check(["gpasswd", "--delete", OUTSIDER, "keepwell"])
        self.assertEqual(self.root.call_as(OUTSIDER, "Echo", "s", "x")[0], 1)

    def test_an_agent_that_was_ended_is_started_again_by_the_next_call(self):
        self.root.call_as(MEMBER, "Echo", "s", "")
        first = self.root.agent_pid()
        self.root.call_as(MEMBER, "PleaseTerminate")
        self.root.wait_for_end(first)
        self.assertEqual(self.root.call_as(MEMBER, "Echo", "s", "")[0], 0)
        self.assertNotEqual(self.root.agent_pid(), first)


if __name__ == "__main__":
    harness.main()
