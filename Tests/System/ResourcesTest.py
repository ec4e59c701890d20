"""The resources of many requests at once: right answers with few descriptors,
threads for every user, the tools' own limits, one entry in the journal for each
change, and log lines of limited length."""
import contextlib
import os
import resource
import socket
import threading
import unittest

from Support import harness, processes
from Support.abuse import Blocking, GATE
from Support.bus import wait_until
from Support.rawbus import CALL, message
from Support.root import DATA, ThrowAwayRoot

CLIENTS = 250
REQUESTS_EACH = 2
DESCRIPTORS = 1024
LONG_REQUESTS = 300
CROWD, OTHER = 64301, 64302  # users
NO_ERROR = ("", 0, {})


def make_comb(host, depth, teeth):
    """A chain of folders, each with others beside it: a walk deep in it has
    many folders to come back to."""
    for _ in range(depth):
        for tooth in range(teeth):
            os.makedirs(f"{host}/{tooth}/inner")
            with open(f"{host}/{tooth}/file", "wb") as file:
                file.write(b"x" * 9000)
        host += "/deeper"
        os.mkdir(host)


def allocated(host):
    """The size as the agent counts it: folders twice."""
    total = 2 * os.lstat(host).st_blocks
    for folder, folders, files in os.walk(host):
        total += 2 * sum(os.lstat(f"{folder}/{name}").st_blocks for name in folders)
        total += sum(os.lstat(f"{folder}/{name}").st_blocks for name in files)
    return total * 512


def descriptor_limits(pid):
    """(soft, hard) of the process."""
    with open(f"/proc/{pid}/limits", encoding="ascii") as file:
        for line in file:
            if line.startswith("Max open files"):
                return tuple(int(word) for word in line.split()[3:5])
    raise AssertionError("no limit of descriptors")


def root_with_users():
    """A root with its agent, bus and users; the bus refuses users that it does
    not know."""
    harness.require_tools("useradd")
    root = ThrowAwayRoot()
    original = root.start_bus

    def start_bus(agent=None):
        for user in (CROWD, OTHER):
            done = root.run(["useradd", "--no-create-home", "--uid", str(user), f"user{user}"])
            assert done.returncode == 0, done.stderr
        original(agent)
    root.start_bus = start_bus
    return root


class FewDescriptorsTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot(descriptor_limit=DESCRIPTORS))

    def ask(self, number, path, requests, answers):
        client = self.root.client(timeout=300)
        self.barrier.wait()
        try:
            serials = [client.send("SizeOfItemAtPath", "s", path) for _ in range(requests)]
            answers[number] = [client.wait(serial) for serial in serials]
        except Exception as failure:  # pylint: disable=broad-except
            answers[number] = [failure]
        finally:
            client.close()

    def test_250_clients_at_once_are_all_told_the_right_size(self):
        tree = self.root.mkdir(f"{DATA}/tree")
        make_comb(self.root.host_path(tree), depth=120, teeth=20)
        os.sync()  # allocation is delayed until then
        expected = [allocated(self.root.host_path(tree)), NO_ERROR]
        self.assertEqual(self.root.client().call("SizeOfItemAtPath", "s", tree), expected)
        given = self.ask_at_once(CLIENTS, tree, REQUESTS_EACH)
        self.assertEqual([answer for answer in given if answer != expected][:5], [])
        self.assertEqual(len(given), CLIENTS * REQUESTS_EACH)

    def ask_at_once(self, clients, path, requests):
        """All answers to so many clients."""
        self.barrier = threading.Barrier(clients)
        answers = {}
        threads = [threading.Thread(target=self.ask, args=[number, path, requests, answers])
                   for number in range(clients)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return [answer for each in answers.values() for answer in each]

    def attach(self, over):
        """Makes calls with descriptors until the event is set, and ignores
        their outcome."""
        client = self.root.client(descriptors=True)
        fields = {**client.call_fields("Echo"), 9: ("u", 16)}
        while not over.is_set():
            client.send_bytes(message(CALL, client.next_serial(), fields, "s", ["x"]), [0] * 16)
            client.receive()
        client.close()

    def test_attached_descriptors_do_not_end_an_agent_whose_table_is_full(self):
        tree = self.root.mkdir(f"{DATA}/tree")
        make_comb(self.root.host_path(tree), depth=120, teeth=20)
        os.sync()
        self.root.client().call("Echo", "s", "")
        agent, over = self.root.agent_pid(), threading.Event()
        attaching = threading.Thread(target=self.attach, args=[over])
        attaching.start()
        try:
            given = self.ask_at_once(200, tree, REQUESTS_EACH)
        finally:
            over.set()
            attaching.join()
        self.assertEqual(self.root.agent_pid(), agent)
        expected = [allocated(self.root.host_path(tree)), NO_ERROR]
        self.assertEqual([answer for answer in given if answer != expected][:5], [])


class LimitsOfToolsTest(Blocking, unittest.TestCase):
    def setUp(self):
        self.root = ThrowAwayRoot(start=False)
        self.enterContext(self.root)
        # A host may allow less than the unit does.
        most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        self.soft, self.hard = (1024, min(65536, most)) if harness.unit else (300, 2000)
        if not harness.unit:  # which sets its own
            self.root.agent_prefix = f"prlimit --nofile={self.soft}:{self.hard} "
        self.root.start_bus()
        self.addCleanup(self.root.stop_bus)

    def test_the_agent_raises_its_limit_and_its_tools_get_the_former_one(self):
        self.block(self.root.client())
        agent = self.root.agent_pid()
        self.assertEqual(descriptor_limits(agent), (self.hard, self.hard))
        tools = list(processes.children(agent))
        self.assertEqual(len(tools), 1)
        wait_until(lambda: descriptor_limits(tools[0]) == (self.soft, self.hard))
        self.open_gate()


class FairnessTest(Blocking, unittest.TestCase):
    """One user with more long requests than the agent has threads for."""

    def test_another_users_request_does_not_wait_for_them(self):
        root = self.root = self.enterContext(root_with_users())
        crowd = [root.client_of(CROWD) for _ in range(LONG_REQUESTS)]
        # More than there are threads for one user: these wait at the gate.
        serials = [self.block(crowd[0])]
        serials += [client.send("StartStartupItem", "s", "item") for client in crowd[1:]]
        other = root.client_of(OTHER, timeout=20)
        for _ in range(10):
            self.assertTrue(other.call("FileExistsAtPath", "s", DATA)[0])
        done = sum(client.count_received() for client in crowd)
        self.assertEqual(done, 0, "all of the others' are still under way")
        # Open for both directions, so that a line waits there for tools that
        # start later.
        gate = os.open(root.host_path(GATE), os.O_RDWR)
        self.addCleanup(os.close, gate)
        os.write(gate, b"go\n" * LONG_REQUESTS)
        for client, serial in zip(crowd, serials):
            self.assertTrue(client.wait(serial)[0])


class Journal:
    """Receives the journal entries of a root."""

    def __init__(self, root):
        root.mkdir("/run/systemd/journal")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(root.host_path("/run/systemd/journal/socket"))
        self._socket.settimeout(20)

    def next(self):
        """The fields of the next entry, each with all its values."""
        data, fields = self._socket.recv(1 << 20), {}
        while data:
            line, _, data = data.partition(b"\n")
            name, equals, value = line.partition(b"=")
            if not equals:  # a text of several lines comes with its length
                size = int.from_bytes(data[:8], "little")
                value, data = data[8:8 + size], data[9 + size:]
            fields.setdefault(name.decode(), []).append(value)
        return fields

    def fill(self):
        """It takes no more from then on."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                while True:
                    sender.sendto(b"", self._socket.getsockname())

    def close(self):
        self._socket.close()


class JournalTest(Blocking, unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(root_with_users())

    def test_each_request_that_changes_something_leaves_one_entry(self):
        journal = Journal(self.root)
        self.addCleanup(journal.close)
        client = self.root.client_of(OTHER)
        odd = self.root.write(f"{DATA}/two\nlines", "x")
        for member in ("FileExistsAtPath", "SizeOfItemAtPath", "Echo"):
            client.call(member, "s", odd)
        self.assertTrue(client.call("RemoveItemAtPath", "s", odd)[0])
        entry = journal.next()
        self.assertGreater(int(entry.pop("KEEPWELL_MICROSECONDS")[0]), 0)
        self.assertIn(odd.encode(), entry.pop("MESSAGE")[0])
        self.assertEqual({key: entry[key] for key in entry if key.startswith("KEEPWELL_")},
                         {"KEEPWELL_MEMBER": [b"RemoveItemAtPath"],
                          "KEEPWELL_ITEM": [odd.encode()], "KEEPWELL_OUTCOME": [b"done"],
                          "KEEPWELL_USER": [str(OTHER).encode()],
                          "KEEPWELL_PROCESS": [str(os.getpid()).encode()]})
        self.assertEqual(entry["SYSLOG_IDENTIFIER"], [b"keepwell-agent"])
        self.assertFalse(client.call("MoveItemAtPath", "ss", f"{DATA}/none", f"{DATA}/new")[0])
        entry = journal.next()
        self.assertEqual(entry["KEEPWELL_OUTCOME"], [b"refused"])
        self.assertEqual(entry["KEEPWELL_REASON"], [b"NSCocoaErrorDomain 4"])
        self.assertEqual(entry["KEEPWELL_ITEM"], [f"{DATA}/none".encode(), f"{DATA}/new".encode()])

    def test_an_entry_is_bounded_for_any_request(self):
        journal = Journal(self.root)
        self.addCleanup(journal.close)
        self.root.client().call("RemoveItemAtPath", "s", "/" + "x" * 10_000_000)
        entry = journal.next()
        self.assertLess(sum(len(value) for values in entry.values() for value in values), 20_000)

    def ending(self):
        """Requests that end the agent, with all that their entries have of them."""
        job = "/Library/LaunchDaemons/org.keepwell.pro.agent.plist"
        return (("PleaseTerminate", []), ("RemoveLaunchdAgentAtPath", [job]))

    def test_an_end_of_the_agent_leaves_an_entry_and_one_for_each_request_cut_off(self):
        journal = Journal(self.root)
        self.addCleanup(journal.close)
        for member, items in self.ending():
            with self.subTest(member=member):
                self.block(self.root.client())
                agent = self.root.agent_pid()
                client = self.root.client_of(OTHER)
                client.send(member, "s" * len(items), *items)
                self.root.wait_for_end(agent)
                entries = {entry["KEEPWELL_MEMBER"][0].decode(): entry
                           for entry in (journal.next(), journal.next())}
                self.assertEqual(set(entries), {member, "StartStartupItem"})
                cut_off, done = entries["StartStartupItem"], entries[member]
                self.assertEqual(cut_off["KEEPWELL_OUTCOME"], [b"cut off"])
                self.assertEqual(cut_off["KEEPWELL_ITEM"], [b"item"])
                self.assertEqual(done["KEEPWELL_OUTCOME"], [b"done"])
                self.assertEqual(done["KEEPWELL_USER"], [str(OTHER).encode()])
                self.assertEqual(done.get("KEEPWELL_ITEM", []), [each.encode() for each in items])

    def test_a_journal_that_is_stuck_keeps_no_agent_from_its_end(self):
        journal = Journal(self.root)
        self.addCleanup(journal.close)
        journal.fill()
        client = self.root.client()
        client.call("Echo", "s", "")
        agent = self.root.agent_pid()
        client.send("PleaseTerminate", flags=1)
        self.root.wait_for_end(agent)

    def test_without_a_journal_it_is_a_line_on_standard_error(self):
        path = self.root.write(f"{DATA}/file", "x")
        self.assertTrue(self.root.client_of(OTHER).call("TruncateFileAtPath", "s", path)[0])
        wait_until(lambda: f"TruncateFileAtPath {path}: done, for user {OTHER}, process "
                   f"{os.getpid()}, in " in self.root.log())


class LogTest(unittest.TestCase):
    def test_no_line_of_the_log_is_as_long_as_a_client_likes(self):
        root = self.enterContext(ThrowAwayRoot())
        path = "/" + "x" * 1_000_000
        self.assertEqual(root.client().call("SizeOfItemAtPath", "s", path)[0], 0)
        lines = [line for line in root.log().splitlines() if "xxx" in line]
        self.assertEqual(len(lines), 1)
        self.assertLess(len(lines[0]), 9000)
        self.assertRegex(lines[0], r"xx\[… \d+ bytes …\]xx.*: File name too long$")


if __name__ == "__main__":
    harness.main()
