"""The agent as a service: started on demand, known by its interface, ended on
request, and by no other message of a client."""
import json
import os
import plistlib
import signal
import struct
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

from Support import harness
from Support.bus import INTERFACE, NAME, PATH, CallFailed, PrivateBus, wait_until
from Support.rawbus import BusError

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
AGENT_FAILED = 1


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory(prefix="keepwell-bus-", dir="/var/tmp")
        self.addCleanup(self._folder.cleanup)
        self.bus = PrivateBus(self._folder.name)
        self.bus.start_bus()
        self.addCleanup(self.bus.stop_bus)

    def test_a_call_starts_the_agent(self):
        self.assertIsNone(self.bus.agent_pid())
        self.assertEqual(self.bus.busctl("Echo", "s", "hello").values[0], "hello")
        self.assertIsNotNone(self.bus.agent_pid())

    def test_echo_returns_the_very_text(self):
        for text in ("", "a\nb", "Grüße, 世界", "x" * 100000):
            self.assertEqual(self.bus.busctl("Echo", "s", text).values, [text, ["", 0, {}]])

    def test_gdbus_gets_the_same_answer(self):
        self.assertEqual(self.bus.gdbus("Echo", "'hello'"), "('hello', ('', int64 0, @a{sv} {}))")

    def test_please_terminate_ends_the_process_and_the_next_call_starts_another(self):
        self.bus.busctl("Echo", "s", "")
        first = self.bus.agent_pid()
        with self.assertRaises(CallFailed):
            self.bus.busctl("PleaseTerminate")
        self.bus.wait_for_end(first)
        self.bus.busctl("Echo", "s", "")
        self.assertNotEqual(self.bus.agent_pid(), first)

    def test_no_echo_is_lost_when_the_agent_ends_again_and_again(self):
        # Around an end, this agent or the next answers each echo, or the bus
        # refuses it; none stays unanswered.
        answered = []

        def echo(client):
            try:
                answered.append(client.call("Echo", "s", "again")[0])
            except BusError as error:
                self.assertEqual(error.name, "org.freedesktop.DBus.Error.NoReply")

        for _ in range(10):
            client, other = self.bus.client(), self.bus.client()
            echo(client)
            client.send("PleaseTerminate", flags=1)
            echo(other)
            client.close()
            other.close()
        self.assertEqual(set(answered), {"again"})
        # An end meets one of two echoes at most.
        self.assertGreaterEqual(len(answered), 10)

    def test_the_agent_serves_the_members_of_the_description(self):
        done = self.bus.run(["busctl", f"--address={self.bus.address}", "call", "--json=short",
                             NAME, PATH, "org.freedesktop.DBus.Introspectable", "Introspect"])
        live = interfaces(json.loads(done.stdout)["data"][0])
        with open(f"{SOURCE}/Resources/org.keepwell.KWPrivilegedOperation.xml",
                  encoding="utf-8") as file:
            described = interfaces(file.read())
        self.assertEqual(len(described[INTERFACE]), 26)
        for name, members in described.items():
            self.assertEqual(live[name], members)
        for usual in ("Introspectable", "Peer", "Properties"):
            self.assertIn(f"org.freedesktop.DBus.{usual}", live)

    def test_the_usual_interfaces_answer(self):
        client = self.bus.client()
        self.assertEqual(client.call("Ping", interface="org.freedesktop.DBus.Peer"), [])
        self.assertEqual(client.call("GetAll", "s", INTERFACE,
                                     interface="org.freedesktop.DBus.Properties"), [{}])

    def test_unknown_members_get_the_errors_of_the_bus(self):
        client = self.bus.client()
        client.call("Echo", "s", "")
        pid, descriptors = self.bus.agent_pid(), self.bus.agent_descriptors()
        for expected, member, signature, arguments, more in (
                ("UnknownMethod", "Nonsense", "", (), {}),
                ("UnknownMethod", "echo", "s", ("x",), {}),
                ("UnknownMethod", "Echo", "s", ("x",), {"interface": "org.example.Other"}),
                ("UnknownObject", "Echo", "s", ("x",), {"path": "/elsewhere"}),
                ("InvalidArgs", "Echo", "", (), {}),
                ("InvalidArgs", "Echo", "u", (7,), {}),
                ("InvalidArgs", "Echo", "ss", ("x", "y"), {}),
                ("InvalidArgs", "SlimBinaryWithPath", "ss", ("x", "y"), {}),
                ("InvalidArgs", "RemoveItemAtPath", "as", (["x"],), {})):
            with self.subTest(member=member, signature=signature), \
                    self.assertRaises(BusError) as raised:
                client.call(member, signature, *arguments, **more)
            self.assertEqual(raised.exception.name, f"org.freedesktop.DBus.Error.{expected}")
        self.assertEqual(client.call("Echo", "s", "still here")[0], "still here")
        self.assertEqual((self.bus.agent_pid(), self.bus.agent_descriptors()), (pid, descriptors))

    def test_requests_of_one_connection_are_answered_in_order(self):
        client = self.bus.client()
        client.call("Echo", "s", "")
        serials = [client.send("Echo", "s", str(number)) for number in range(500)]
        replies = [client.receive() for _ in serials]
        self.assertEqual([reply.reply_serial for reply in replies], serials)
        self.assertEqual([reply.values()[0] for reply in replies],
                         [str(number) for number in range(500)])

    def test_a_request_larger_than_any_of_use_is_refused(self):
        client = self.bus.client()
        with self.assertRaises(BusError) as raised:
            client.call("Echo", "s", "x" * (20 << 20))
        self.assertEqual(raised.exception.name, "org.freedesktop.DBus.Error.LimitsExceeded")
        self.assertEqual(len(client.call("Echo", "s", "x" * (15 << 20))[0]), 15 << 20)

    def test_text_that_receivers_refuse_gets_an_error_and_nothing_more(self):
        client = self.bus.client()
        with self.assertRaises(BusError):
            client.call("Echo", "s", "\uffff")
        self.assertEqual(client.call("Echo", "s", "fine")[0], "fine")

    def test_a_second_agent_says_that_the_name_is_taken(self):
        self.bus.busctl("Echo", "s", "")
        done = self.bus.run([f"{harness.build_folder}/keepwell-agent", "--bus", self.bus.address],
                            timeout=20)
        self.assertEqual(done.returncode, AGENT_FAILED)
        self.assertIn(b"has an owner already", done.stderr)

    def test_a_bus_that_cannot_be_reached_is_named(self):
        address = "unix:path=/nonexistent/bus"
        for arguments in (["--bus", address], [f"--bus={address}"]):
            done = self.bus.run([f"{harness.build_folder}/keepwell-agent", *arguments], timeout=20)
            self.assertEqual(done.returncode, AGENT_FAILED)
            self.assertIn(b"/nonexistent/bus", done.stderr)

    def test_help_and_version_need_no_bus(self):
        for arguments, printed in ((["--help"], b"Usage: keepwell-agent"),
                                   (["--version"], b"keepwell-agent 2.11\n"),
                                   (["--version", "--bus", "nowhere", "--help"], b"Usage: ")):
            done = self.bus.run([f"{harness.build_folder}/keepwell-agent", *arguments], timeout=20)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertTrue(done.stdout.startswith(printed), done.stdout)

    def test_invalid_arguments_show_the_usage(self):
        for arguments in (["--nonsense"], ["--bus"], ["--bus", ""], ["--bus="], ["extra"]):
            done = self.bus.run([f"{harness.build_folder}/keepwell-agent", *arguments], timeout=20)
            self.assertEqual(done.returncode, 2)
            self.assertIn(b"Usage: keepwell-agent", done.stderr)

    def test_termination_signals_end_it_with_success(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            agent = self.bus.popen([f"{harness.build_folder}/keepwell-agent", "--bus",
                                    self.bus.address], stderr=subprocess.PIPE)
            wait_until(lambda: self.bus.agent_pid() == agent.pid)
            agent.send_signal(number)
            self.assertEqual(agent.communicate(timeout=20)[1], b"")
            self.assertEqual(agent.returncode, 0)

    def test_please_terminate_exits_with_success(self):
        agent = self.bus.popen([f"{harness.build_folder}/keepwell-agent", "--bus",
                                self.bus.address])
        wait_until(lambda: self.bus.agent_pid() == agent.pid)
        self.bus.client().send("PleaseTerminate", flags=1)
        self.assertEqual(agent.wait(timeout=20), 0)

    def test_it_ends_with_a_message_when_the_bus_goes_away(self):
        agent = self.bus.popen([f"{harness.build_folder}/keepwell-agent", "--bus",
                                self.bus.address], stderr=subprocess.PIPE)
        wait_until(lambda: self.bus.agent_pid() == agent.pid)
        self.bus.stop_bus()
        errors = agent.communicate(timeout=20)[1]
        self.assertEqual(agent.returncode, AGENT_FAILED)
        self.assertIn(b"The bus is gone", errors)


class EmbeddedListsTest(unittest.TestCase):
    def test_the_information_list(self):
        self.assertEqual(section_list("__info_plist"), {
            "CFBundleIdentifier": NAME,
            "CFBundleInfoDictionaryVersion": "6.0",
            "CFBundleName": "Keepwell Agent",
            "CFBundleVersion": "2.11",
            "SMAuthorizedClients": [
                '(identifier "org.keepwell.menubar" or identifier "org.keepwell.app") and '
                'anchor apple generic and certificate leaf[subject.OU] = '
                f'"{team_identifier()}"'],
        })

    def test_the_job_list(self):
        self.assertEqual(section_list("__launchd_plist"), {
            "MachServices": {NAME: True},
            "Label": NAME,
            "Sockets": {"MasterSocket": {
                "SockFamily": "Unix",
                "SockPathMode": 0o666,
                "SockPathName": f"/var/run/{NAME}.socket",
                "SockType": "Stream",
            }},
        })
        self.assertIs(type(section_list("__launchd_plist")["Sockets"]["MasterSocket"]
                           ["SockPathMode"]), int)


def interfaces(xml):
    """The members of each interface with the types and names of their
    arguments, and whether they reply."""
    result = {}
    for interface in ElementTree.fromstring(xml).iter("interface"):
        members = {}
        for member in interface:
            if member.tag not in ("method", "signal"):
                continue
            silent = any(each.get("name") == "org.freedesktop.DBus.Method.NoReply"
                         for each in member.iter("annotation"))
            members[member.get("name")] = (member.tag, silent, [
                (each.get("direction", "out"), each.get("type"), each.get("name"))
                for each in member.iter("arg")])
        result[interface.get("name")] = members
    return result


def team_identifier():
    with open(f"{harness.build_folder}/CMakeCache.txt", encoding="utf-8") as file:
        return next(line.partition("=")[2].strip() for line in file
                    if line.startswith("KEEPWELL_TEAM_ID:"))


def section_list(name):
    """The property list in a section of the agent's executable."""
    with open(f"{harness.build_folder}/keepwell-agent", "rb") as file:
        image = file.read()
    table, = struct.unpack_from("<Q", image, 0x28)
    size, count, names = struct.unpack_from("<HHH", image, 0x3A)
    sections = [struct.unpack_from("<IIQQQQIIQQ", image, table + index * size)
                for index in range(count)]
    texts = sections[names][4]
    for section in sections:
        start = texts + section[0]
        if image[start:image.index(b"\0", start)].decode() == name:
            assert section[2] & 0x3 == 0x2, "loaded and read-only"
            return plistlib.loads(image[section[4]:section[4] + section[5]])
    raise LookupError(name)


if __name__ == "__main__":
    harness.main(needs_root=False)
