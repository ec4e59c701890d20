"""A client's control of its own requests: cancel one, end all of them when it
leaves, follow their progress. Clients without it keep the contract: their
requests go on."""
import contextlib
import os
import signal
import subprocess
import time
import unittest

from Support import harness
from Support.abuse import Blocking
from Support.bus import INTERFACE, wait_until
from Support.machine import mount
from Support.processes import is_still, switches, threads
from Support.rawbus import BusError
from Support.root import DATA, ThrowAwayRoot
from Support.tracing import held

CONTROL = "org.keepwell.KWRequestControl"
CANCELLED = ("NSCocoaErrorDomain", 3072)
TREE = f"{DATA}/tree"
FILES = int(os.environ.get("KEEPWELL_CANCEL_FILES", "40000"))
FOLDERS = 10
SLOW_FILES = 100_000  # more files make the removal long enough
# The most items that a walk may still process after its client has cancelled it
# or is gone.
MOST_AFTERWARDS = 100
TELLING = 0.3  # progress is told each quarter of a second


def control(client, member, signature, value):
    return client.call(member, signature, value, interface=CONTROL)


class ControlCase(Blocking, unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot(inodes=max(600_000, 2 * FILES)))
        self.other = self.root.client(timeout=600)
        self.other.call("Echo", "s", "")

    def assert_cancelled(self, error):
        self.assertEqual(tuple(error[:2]), CANCELLED)


class WaitingTest(ControlCase):
    """Requests that have not begun."""

    def test_a_cancelled_one_is_answered_at_once_in_its_own_form_and_never_done(self):
        self.root.write(f"{DATA}/file", "x")
        client = self.root.client()
        blocked = self.block(client)
        item = f"{DATA}/file"
        waiting = {member: client.send(member, "s" * len(arguments), *arguments)
                   for member, arguments in (
                       ("RemoveItemAtPath", (item,)), ("MoveItemAtPath", (item, f"{item}2")),
                       ("TruncateFileAtPath", (item,)), ("MoveToTrashItemAtPath", (item,)),
                       ("SizeOfItemAtPath", (item,)), ("Echo", ("x",)), ("RepairPermissions", ()),
                       ("RemoveDiagnosticLogs", ()))}
        failed = {"RemoveItemAtPath": [False], "MoveItemAtPath": [False],
                  "TruncateFileAtPath": [False], "MoveToTrashItemAtPath": [True],
                  "SizeOfItemAtPath": [0], "Echo": [""], "RemoveDiagnosticLogs": ["", 0, ""]}
        for member, serial in waiting.items():
            with self.subTest(member=member):
                self.assertEqual(control(client, "Cancel", "u", serial), [True])
                values = client.wait(serial)
                if member == "RepairPermissions":  # which carries no error
                    self.assertEqual(values, [False, 0, ""])
                    continue
                self.assertEqual(values[:-1], failed[member])
                self.assert_cancelled(values[-1])
                self.assertEqual(control(client, "Cancel", "u", serial), [False])
        self.open_gate()
        client.wait(blocked)
        client.call("Echo", "s", "behind them all")
        self.assertEqual(self.root.read(item), b"x")

    def test_no_client_cancels_the_requests_of_another(self):
        client = self.root.client()
        blocked = self.block(client)
        waiting = client.send("Echo", "s", "waiting")
        for serial in (blocked, waiting):
            self.assertEqual(control(self.other, "Cancel", "u", serial), [False])
        self.assertEqual(control(client, "Cancel", "u", 4_000_000_000), [False])
        self.open_gate()
        self.assertEqual(client.wait(waiting)[0], "waiting")

    def test_a_request_that_runs_a_tool_runs_on(self):
        client = self.root.client()
        blocked = self.block(client)
        self.assertEqual(control(client, "Cancel", "u", blocked), [True])
        self.assertEqual(client.count_received(), 0)
        self.open_gate()
        self.assertTrue(client.wait(blocked)[0])

    def leave_with_a_removal_waiting(self, *wishes):
        self.root.write(f"{DATA}/file", "x")
        client = self.root.client()
        for wish in wishes:
            control(client, "EndRequestsOnLeaving", "b", wish)
        self.block(client)
        client.send("RemoveItemAtPath", "s", f"{DATA}/file")
        name = client.unique_name
        client.close()
        wait_until(lambda: self.root.bus_call("NameHasOwner", "s", name) == [False])
        self.other.call("Echo", "s", "")  # the agent knows as well
        self.open_gate()
        wait_until(lambda: self.root.agent_usage().children == 0)

    def test_those_of_a_client_that_leaves_end_when_it_asked_for_that(self):
        self.leave_with_a_removal_waiting(True)
        self.other.call("FileExistsAtPath", "s", "/")
        self.assertTrue(self.root.exists(f"{DATA}/file"))

    def test_those_of_a_client_that_leaves_are_done_otherwise(self):
        for wishes in ((), (True, False)):
            self.leave_with_a_removal_waiting(*wishes)
            wait_until(lambda: not self.root.exists(f"{DATA}/file"))

    def test_wrong_calls_are_refused(self):
        for member, signature, arguments in (("Cancel", "s", ("x",)), ("Cancel", "", ()),
                                             ("EndRequestsOnLeaving", "u", (1,)),
                                             ("Nonsense", "", ()), ("Progress", "u", (1,))):
            with self.subTest(member=member), self.assertRaises(BusError):
                self.other.call(member, signature, *arguments, interface=CONTROL)
        self.assertEqual(self.other.call("GetAll", "s", CONTROL,
                                         interface="org.freedesktop.DBus.Properties"), [{}])
        with self.assertRaises(BusError):
            self.other.call("Cancel", "u", 1, interface=INTERFACE)


class RemovalTest(ControlCase):
    """A removal that is under way, on a disk that takes its time."""

    def setUp(self):
        super().setUp()
        self.agent = self.root.agent_pid()
        self.bus_thread = self.thread_of_the_bus()
        self.make_tree()

    def thread_of_the_bus(self):
        """The one that answers an echo: it wakes for each."""
        before = switches(self.agent)
        for _ in range(100):
            self.other.call("Echo", "s", "")
        after = switches(self.agent)
        return max(after, key=lambda thread: after[thread] - before.get(thread, 0))

    def make_tree(self):
        self.root.mkdir(TREE)
        for folder in range(FOLDERS):
            self.root.mkdir(f"{TREE}/{folder}")
            here = os.open(self.root.host_path(f"{TREE}/{folder}"), os.O_RDONLY)
            for number in range(FILES // FOLDERS):
                os.mknod(f"file{number}", dir_fd=here)
            os.close(here)

    def slow_down(self):
        """Makes each removal of a name reach the disk before the next."""
        mount("-o", "remount,dirsync", os.path.join(os.path.dirname(self.root.root), "disk"))

    def left(self):
        total = 0
        for folder in range(FOLDERS):
            try:
                total += len(os.listdir(self.root.host_path(f"{TREE}/{folder}")))
            except FileNotFoundError:
                pass
        return total

    def begin_removal(self, client, member="RemoveItemAtPath"):
        if FILES <= SLOW_FILES:
            self.slow_down()
        return client.send(member, "s", TREE)

    def stop_agent(self):
        os.kill(self.agent, signal.SIGSTOP)
        wait_until(lambda: is_still(self.agent))

    def go_on(self):
        os.kill(self.agent, signal.SIGCONT)

    @contextlib.contextmanager
    def standing_still(self):
        """Stops the agent once the removal is under way, and gives the number
        of remaining files. Until then the agent runs for moments, short ones at
        first, so that the fastest machine does not finish the removal between
        two looks."""
        moment, end = 0.002, time.monotonic() + 120
        try:
            self.stop_agent()
            while (left := self.left()) >= FILES - 50:
                self.assertLess(time.monotonic(), end, "no removal is under way")
                self.go_on()
                time.sleep(moment)
                self.stop_agent()
                moment = min(1.5 * moment, 0.05)
            self.assertGreater(left, MOST_AFTERWARDS * 2)
            yield left
        finally:
            self.go_on()

    @contextlib.contextmanager
    def walks_held(self):
        """Holds all threads but that of the bus, which hears of everything that
        happens within: how many items the others remove then depends neither on
        the machine's speed nor on its other work."""
        with self.standing_still() as left:
            with held(set(threads(self.agent)) - {self.bus_thread}):
                self.go_on()
                yield left
                self.other.call("Echo", "s", "")  # the bus has passed on all before it

    def wait_until_gone(self, name):
        wait_until(lambda: self.root.bus_call("NameHasOwner", "s", name) == [False])

    def names_of(self, pid):
        """The names of the process's connections to the bus."""
        names = [name for name in self.root.bus_call("ListNames")[0] if name.startswith(":")]
        return [name for name in names
                if self.root.bus_call("GetConnectionUnixProcessID", "s", name) == [pid]]

    def leave(self, client):
        client.close()
        self.wait_until_gone(client.unique_name)

    def settled(self):
        """The number of remaining files once the removal has ended."""
        count = [self.left(), None]
        while count[0] != count[1]:
            self.other.call("SizeOfItemAtPath", "s", TREE)
            count = [self.left(), count[0]]
        return count[0]

    def assert_soon(self, count):
        print(f"{count} of {FILES} items removed afterwards", flush=True)
        self.assertLessEqual(count, MOST_AFTERWARDS)

    def test_cancel_stops_it_at_its_next_items(self):
        client = self.root.client(timeout=600)
        serial = self.begin_removal(client)
        with self.walks_held() as left:
            self.assertEqual(control(client, "Cancel", "u", serial), [True])
        flag, error = client.wait(serial)
        self.assertFalse(flag)
        self.assert_cancelled(error)
        self.assert_soon(left - self.settled())

    def test_it_stops_when_its_client_is_gone_that_asked_for_that(self):
        client = self.root.client()
        control(client, "EndRequestsOnLeaving", "b", True)
        self.begin_removal(client)
        with self.walks_held() as left:
            self.leave(client)
        self.assert_soon(left - self.settled())

    def test_it_goes_on_to_its_end_when_a_plain_client_is_gone(self):
        client = self.root.client()
        self.begin_removal(client)
        with self.standing_still():
            self.leave(client)
        wait_until(lambda: not self.root.exists(TREE), 600)

    @contextlib.contextmanager
    def removal_by_library(self, on_leaving):
        """A program that removes the tree through the library."""
        if FILES <= SLOW_FILES:
            self.slow_down()
        program = os.path.join(harness.build_folder, "Tests", "kw_test_canceller")
        with self.root.popen([program, self.root.address, TREE, on_leaving], text=True,
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
            try:
                yield process
            finally:
                process.kill()

    def kill_in_mid_removal(self, on_leaving):
        """Returns the number of files that were left then."""
        with self.removal_by_library(on_leaving) as program:
            with self.walks_held() as left:
                name, = self.names_of(program.pid)
                program.kill()
                self.wait_until_gone(name)
        return left

    def test_the_library_tells_of_one_that_it_cancelled(self):
        monitor = self.root.client()
        monitor.call("BecomeMonitor", "asu", [f"interface='{CONTROL}',member='Cancel'"], 0,
                     destination="org.freedesktop.DBus", path="/org/freedesktop/DBus",
                     interface="org.freedesktop.DBus.Monitoring")
        with self.removal_by_library("stay") as program:
            with self.walks_held() as left:
                program.stdin.write("cancel\n")
                program.stdin.flush()
                while monitor.receive_any().member != "Cancel":
                    pass  # until the bus has passed it on
            self.assertEqual(program.communicate(timeout=60)[0], "cancelled\n")
        self.assert_soon(left - self.settled())

    def test_the_library_has_it_end_with_its_program(self):
        left = self.kill_in_mid_removal("end")
        self.assert_soon(left - self.settled())

    def test_the_library_lets_it_go_on_otherwise(self):
        self.kill_in_mid_removal("stay")
        wait_until(lambda: not self.root.exists(TREE), 600)

    def test_its_progress_is_told_to_its_own_client_that_asked_for_that(self):
        client = self.root.client(timeout=600)
        control(client, "SubscribeToProgress", "b", True)
        # Shredding has each file's content written to the disk, which takes longest.
        for folder in range(FOLDERS):
            for number in range(FILES // FOLDERS):
                os.truncate(self.root.host_path(f"{TREE}/{folder}/file{number}"), 4096)
        serial = self.begin_removal(client, "SecurelyRemoveItemAtPath")
        seen = []
        # The first one asks the walk for its path, which it tells at an item.
        while len(seen) < 2 or not seen[-1][3]:
            with self.standing_still():
                time.sleep(TELLING)
            message = client.receive_any()
            self.assertEqual(message.member, "Progress", (seen, message.values()))
            self.assertEqual(message.fields[2], CONTROL)
            seen.append(message.values())
        self.assertEqual({values[0] for values in seen}, {serial})
        items = [values[1] for values in seen]
        self.assertEqual(items, sorted(items))
        self.assertGreater(items[0], 0)
        self.assertTrue(seen[-1][3].startswith(TREE), seen)
        control(client, "SubscribeToProgress", "b", False)
        control(client, "Cancel", "u", serial)
        client.wait(serial)
        self.other.call("Echo", "s", "")
        self.assertEqual([each for each in self.other.signals if each.member == "Progress"], [])


if __name__ == "__main__":
    harness.main()
