"""Several clients at once: no client waits for another's work, and no client
suffers when another goes away."""
import ctypes
import os
import threading
import time
import unittest

from Support import harness, processes
from Support.abuse import Blocking, GATE, REPAIRER, STARTER
from Support.bus import wait_until
from Support.rawbus import BusError, ERROR
from Support.root import DATA, ThrowAwayRoot

QUEUE_LIMIT = 1024


class ConcurrencyTest(Blocking, unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot())

    def test_a_blocked_request_delays_no_other_client(self):
        slow, quick = self.root.client(), self.root.client()
        blocked = self.block(slow)
        behind = slow.send("Echo", "s", "behind")
        self.assertEqual(quick.call("Echo", "s", "quick")[0], "quick")
        self.assertEqual(self.root.busctl("Echo", "s", "another").values[0], "another")
        self.assertEqual(slow.count_received(), 0)  # its own requests keep their order
        self.open_gate()
        replies = [slow.receive().reply_serial, slow.receive().reply_serial]
        self.assertEqual(replies, [blocked, behind])

    def test_a_long_measurement_does_not_delay_an_echo(self):
        folder = os.open(self.root.host_path(self.root.mkdir(f"{DATA}/wide")), os.O_RDONLY)
        for number in range(20000):
            os.mknod(f"file{number}", dir_fd=folder)
        os.close(folder)
        slow, quick = self.root.client(timeout=300), self.root.client(timeout=300)
        slow.call("Echo", "s", "")
        serials = [slow.send("SizeOfItemAtPath", "s", f"{DATA}/wide") for _ in range(100)]
        self.assertEqual(quick.call("Echo", "s", "quick")[0], "quick")
        self.assertLess(slow.count_received(), len(serials))
        os.sync()  # so that the disk has given out its blocks
        expected = 2 * 512 * os.stat(self.root.host_path(f"{DATA}/wide")).st_blocks
        self.assertEqual({slow.wait(serial)[0] for serial in serials}, {expected})

    def test_a_client_killed_in_the_middle_of_a_request_disturbs_no_other(self):
        other = self.root.client()
        self.root.stand_in(STARTER)
        other.call("StartStartupItem", "s", "item")  # once, to open everything of the first use
        pid, descriptors = self.root.agent_pid(), self.root.agent_descriptors()
        os.mkfifo(self.root.host_path(GATE))
        self.root.stand_in(STARTER, script=f"read line < {GATE}")
        self.root.forget_calls()
        killed = self.root.popen(self.root.busctl_argv("StartStartupItem", "s", "item"))
        wait_until(self.root.calls)
        killed.kill()
        killed.wait()
        self.assertEqual(other.call("Echo", "s", "still")[0], "still")
        self.open_gate()
        self.assertEqual(other.call("Echo", "s", "there")[0], "there")
        wait_until(lambda: self.root.agent_descriptors() == descriptors)
        self.assertEqual(self.root.agent_pid(), pid)

    def test_requests_of_a_client_that_left_are_still_done(self):
        self.root.write(f"{DATA}/file", "x")
        client = self.root.client()
        self.block(client)
        client.send("RemoveItemAtPath", "s", f"{DATA}/file", flags=1)
        client.close()
        self.root.busctl("Echo", "s", "")  # the agent has seen it leave
        self.open_gate()
        wait_until(lambda: not self.root.exists(f"{DATA}/file"))

    def start_repair(self, caller):
        """Starts a repair that goes on until stop_repair, and returns once the
        caller has had some of its output. The agent drops some chunks, so the
        tool goes on printing."""
        self.root.stand_in(REPAIRER, script=f"until [ -e {GATE} ]; do echo chunk; sleep 0.02; done")
        serial = caller.send("RepairPermissions")
        wait_until(lambda: caller.count_received() == 0 and progress(caller))
        return serial

    def stop_repair(self):
        self.root.write(GATE)

    def test_progress_goes_to_the_caller_alone(self):
        caller, other = self.root.client(), self.root.client()
        other.call("AddMatch", "s", "type='signal',interface='org.keepwell."
                   "KWPrivilegedOperationProgress'", destination="org.freedesktop.DBus",
                   path="/org/freedesktop/DBus", interface="org.freedesktop.DBus")
        serial = self.start_repair(caller)
        self.assertEqual(other.call("Echo", "s", "quick")[0], "quick")
        self.stop_repair()
        text = caller.wait(serial)[2]
        self.assertEqual(text, "")
        self.assertIn("chunk\n", "".join(progress(caller)))
        other.call("Echo", "s", "")
        self.assertEqual(progress(other), [])

    def test_progress_of_a_client_that_left_is_lost_without_harm(self):
        caller, other = self.root.client(), self.root.client()
        self.start_repair(caller)
        pid = self.root.agent_pid()
        caller.close()
        self.assertEqual(other.call("Echo", "s", "still")[0], "still")
        self.stop_repair()
        self.assertEqual(other.call("Echo", "s", "there")[0], "there")
        self.assertEqual(self.root.agent_pid(), pid)

    def test_the_queue_of_a_client_is_bounded_and_the_rest_is_done(self):
        client, other = self.root.client(), self.root.client()
        blocked = self.block(client)
        serials = [client.send("Echo", "s", str(number)) for number in range(QUEUE_LIMIT)]
        refused = client.send("Echo", "s", "one too many")
        message = client.receive()
        self.assertEqual((message.kind, message.reply_serial), (ERROR, refused))
        self.assertEqual(message.error_name, "org.freedesktop.DBus.Error.LimitsExceeded")
        self.assertEqual(other.call("Echo", "s", "other")[0], "other")
        self.open_gate()
        client.wait(blocked)
        for number, serial in enumerate(serials):
            self.assertEqual(client.wait(serial)[0], str(number))
        self.assertEqual(client.call("Echo", "s", "again")[0], "again")

    def test_please_terminate_does_not_wait_for_the_requests_of_others(self):
        slow, other = self.root.client(), self.root.client()
        blocked = self.block(slow)
        pid = self.root.agent_pid()
        other.send("PleaseTerminate", flags=1)
        self.root.wait_for_end(pid)
        with self.assertRaises(BusError) as raised:
            slow.wait(blocked)
        self.assertEqual(raised.exception.name, "org.freedesktop.DBus.Error.NoReply")
        self.assertEqual(other.call("Echo", "s", "new")[0], "new")
        self.assertNotEqual(self.root.agent_pid(), pid)
        self.open_gate()

    def test_please_terminate_does_nothing_further_for_its_client(self):
        self.root.write(f"{DATA}/file", "x")
        client = self.root.client()
        client.call("Echo", "s", "")
        pid = self.root.agent_pid()
        client.send("PleaseTerminate", flags=1)
        client.send("RemoveItemAtPath", "s", f"{DATA}/file", flags=1,
                    destination=self.unique_name_of_agent())
        self.root.wait_for_end(pid)
        self.assertTrue(self.root.exists(f"{DATA}/file"))

    def unique_name_of_agent(self):
        owner = self.root.bus_call("GetNameOwner", "s", "org.keepwell.pro.agent")
        return owner[0] if owner else ":0.0"

    def test_clients_that_come_and_go_leave_nothing_behind(self):
        first = self.root.client()
        first.call("Echo", "s", "")
        pid, descriptors = self.root.agent_pid(), self.root.agent_descriptors()
        for _ in range(200):
            client = self.root.client()
            for number in range(5):
                client.send("FileExistsAtPath", "s", f"/{number}")
            client.close()
        for _ in range(20):
            clients = [self.root.client() for _ in range(10)]
            serials = [client.send("Echo", "s", "x") for client in clients]
            for client, serial in zip(clients, serials):
                self.assertEqual(client.wait(serial)[0], "x")
                client.close()
        self.assertEqual(first.call("Echo", "s", "still")[0], "still")
        self.assertEqual(self.root.agent_pid(), pid)
        self.assertEqual(self.root.agent_descriptors(), descriptors)
        # On a busy machine more threads worked at once; idle ones end.
        wait_until(lambda: 0 < len(processes.threads(pid)) < 40, 60)

    def test_a_client_that_floods_and_never_reads_stops_no_other(self):
        flood, other = self.root.client(), self.root.client()
        other.call("Echo", "s", "")
        pid = self.root.agent_pid()
        text = "x" * 100000
        for number in range(300):  # 30 MB of replies that the client never reads
            flood.send("Echo", "s", text)
            if number % 50 == 0:
                self.assertEqual(other.call("Echo", "s", "still")[0], "still")
        self.assertEqual(other.call("Echo", "s", "there")[0], "there")
        flood.close()
        self.assertEqual(other.call("Echo", "s", "after")[0], "after")
        self.assertEqual(self.root.agent_pid(), pid)


def progress(client):
    """The chunks of progress text that the client got so far."""
    return [signal.values()[0] for signal in client.signals
            if signal.member == "ReceiveNewOutput"]


class RaceTest(unittest.TestCase):
    """A folder and a link change places during a removal."""
    SECONDS = 3

    def test_a_removal_never_leaves_its_tree(self):
        root = self.enterContext(ThrowAwayRoot())
        for number in range(20):
            root.write(f"{DATA}/outside/inner/file{number}", "kept")
        tree = root.mkdir(f"{DATA}/tree")
        host = root.host_path(tree)
        stop, exchanges = threading.Event(), []
        swapper = threading.Thread(target=lambda: exchanges.append(swap_until(host, stop)))
        swapper.start()
        try:
            client = root.client()
            end = time.monotonic() + self.SECONDS
            removals = 0
            while time.monotonic() < end:
                build_bait(host)
                client.call("RemoveItemAtPath", "s", tree)
                removals += 1
        finally:
            stop.set()
            swapper.join()
        print(f"{removals} removals, {exchanges[0]} exchanges", flush=True)
        self.assertGreater(removals, 10)
        self.assertGreater(exchanges[0], 10)
        self.assertEqual(len(root.listdir(f"{DATA}/outside/inner")), 20)
        for number in range(20):
            self.assertEqual(root.read(f"{DATA}/outside/inner/file{number}"), b"kept")


def build_bait(host):
    """A folder with content and, beside it, a link that leads outside. Whenever
    the swapper exchanges them, no link may be followed here either."""
    try:
        os.makedirs(host, exist_ok=True)
        if not os.path.lexists(f"{host}/folder"):
            os.mkdir(f"{host}/folder")
        if not os.path.lexists(f"{host}/link"):
            os.symlink("../outside", f"{host}/link")
        folder = os.open(f"{host}/folder", os.O_DIRECTORY | os.O_NOFOLLOW)
    except OSError:
        return  # the swapper or the last removal was faster
    try:
        os.mkdir("inner", dir_fd=folder)
        inner = os.open("inner", os.O_DIRECTORY | os.O_NOFOLLOW, dir_fd=folder)
        for number in range(20):
            os.mknod(f"file{number}", dir_fd=inner)
        os.close(inner)
    except OSError:
        pass
    finally:
        os.close(folder)


def swap_until(host, stop):
    """Exchanges the folder and the link again and again; how often it could."""
    library = ctypes.CDLL(None, use_errno=True)
    at_fdcwd, exchange, done = -100, 2, 0
    one, other = f"{host}/folder".encode(), f"{host}/link".encode()
    while not stop.is_set():
        done += library.renameat2(at_fdcwd, one, at_fdcwd, other, exchange) == 0
    return done


if __name__ == "__main__":
    harness.main()
