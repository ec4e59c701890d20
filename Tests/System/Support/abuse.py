"""For the tests of clients that misbehave: an agent that has been used once,
other clients that go on using it, and the checks that it is as before."""
import contextlib
import itertools
import os
import struct
import threading
import time
import unittest

from . import harness, processes
from .bus import wait_until
from .rawbus import CALL, message
from .root import DATA, ThrowAwayRoot

STARTER = "/sbin/SystemStarter"
REPAIRER = "/usr/libexec/repair_packages"
LOG_TOOL = "/usr/bin/log"
GATE = "/run/keepwell-test/gate"

# In seconds: free memory goes back to the system this long after a client has
# left, and idle threads end by themselves after ten.
MEMORY_RETURN = 1.5
REST = 60
# In KiB. The allocator keeps some for each heap that threads share. The
# smallest block lost with each of the 800,000 refusals would add 24 MiB.
KEPT_BY_THE_ALLOCATOR = 2 << 10


class Watcher:
    """An ordinary client that was there before and asks again and again."""

    def __init__(self, client):
        self._client = client
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._ask)
        self.answers = 0
        self.failure = None

    def _ask(self):
        try:
            while not self._over.is_set():
                text = f"question {self.answers}"
                if self._client.call("Echo", "s", text)[0] != text:
                    raise AssertionError("another answer than was asked for")
                self.answers += 1
                self._over.wait(0.005)
        except Exception as failure:  # pylint: disable=broad-except
            self.failure = failure

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()


class Batch:
    """Many calls to be sent at once, again and again."""

    def __init__(self, calls, count):
        messages = [message(CALL, 1, *call)
                    for call in itertools.islice(itertools.cycle(calls), count)]
        ends = itertools.accumulate(len(each) for each in messages)
        self._places = [end - len(each) + 8 for each, end in zip(messages, ends)]
        self._data = bytearray(b"".join(messages))
        self._serials = itertools.count(10)
        self.next()

    def next(self):
        """The next of them, with fresh serials."""
        for place in self._places:
            struct.pack_into("<I", self._data, place, next(self._serials))
        return self._data

    def again(self):
        """The last ones. A bus refuses a call with the serial of one that waits."""
        return self._data


class Blocking:
    """For test cases with a root: requests that wait for a signal of the test."""

    def block(self, client):
        """Has the client's request wait for a tool until open_gate."""
        if not self.root.exists(GATE):
            os.mkfifo(self.root.host_path(GATE))
        self.root.stand_in(STARTER, script=f"read line < {GATE}")
        before = len(self.root.calls())
        serial = client.send("StartStartupItem", "s", "item")
        wait_until(lambda: len(self.root.calls()) > before)
        return serial

    def open_gate(self):
        with open(self.root.host_path(GATE), "w", encoding="utf-8") as gate:
            gate.write("go\n")


class AbuseCase(Blocking, unittest.TestCase):
    """One agent for all tests of a script. In the end it must keep nothing of
    them."""

    @classmethod
    def begin(cls):
        """For setUpModule."""
        AbuseCase.root = unittest.enterModuleContext(ThrowAwayRoot())
        for tool in (STARTER, REPAIRER, LOG_TOOL):
            cls.root.stand_in(tool, stdout="words")
        client = cls.root.client()
        cls.warm_up(client)
        client.close()
        AbuseCase.start = cls.root.agent_usage()

    @classmethod
    def begin_with_crowd(cls):
        """The same, and measures the memory that misuse may not add to."""
        cls.begin()
        cls.crowd()
        cls.flood()
        if harness.broker:  # the agent lets that bus keep far more
            cls.unread_flood()
        cls("wait_for_rest").wait_for_rest(threads=True)
        AbuseCase.start_memory = cls.settled_memory()

    @classmethod
    def end(cls):
        """For tearDownModule."""
        cls("wait_for_rest").wait_for_rest(threads=True)
        memory = cls.settled_memory()
        print(f"memory: {cls.start_memory} KiB at first, {memory} KiB in the end")
        if not harness.is_instrumented() and memory > cls.start_memory + KEPT_BY_THE_ALLOCATOR:
            raise AssertionError(f"{memory - cls.start_memory} KiB were added to the memory")

    @classmethod
    def crowd(cls):
        """As many clients at once as the agent has threads."""
        clients = [cls.root.client() for _ in range(250)]
        serials = [client.send("StartStartupItem", "s", "item") for client in clients]
        for client, serial in zip(clients, serials):
            client.wait(serial)
            client.close()

    @classmethod
    def flood(cls):
        """One client that sends much before it reads anything."""
        client = cls.root.client()
        # Both calls that are answered on arrival and calls that go to a worker.
        serials = [client.send(member, "s", "x") for _ in range(15000)
                   for member in ("Echo", "FileExistsAtPath")]
        serials += [client.send("Echo", "u", 7) for _ in range(5000)]
        for _ in serials:
            client.receive()
        client.close()

    @classmethod
    def unread_flood(cls):
        """One client that leaves more refusals unread than the agent lets any bus
        keep, so that some wait in the agent."""
        client = cls.root.client()
        batch = Batch([(client.call_fields("Echo"), "u", (7,))], 5000)
        for _ in range(40):
            cls.send_batch(client, batch)
        client.close()

    @classmethod
    def send_batch(cls, client, batch):
        """As fast as the bus can take it: dbus-daemon searches all calls that wait
        at each new one, and dbus-broker keeps what root sends without a limit."""
        client.send_bytes(batch.next() if harness.broker else batch.again())
        if harness.broker:
            other = cls.root.client()
            other.call("Echo", "s", "taken")
            other.close()

    @classmethod
    def settled_memory(cls):
        """In KiB, after free memory went back to the system. On a busy machine
        that may take several attempts."""
        return min(cls.memory_after_a_client() for _ in range(4))

    @classmethod
    def memory_after_a_client(cls):
        """The agent's own: programs and libraries in memory belong to files."""
        client = cls.root.client(timeout=300 if harness.is_instrumented() else 60)
        client.call("Echo", "s", "x")
        client.close()
        time.sleep(MEMORY_RETURN)
        return processes.memory(cls.root.agent_pid(), "RssAnon") >> 10

    @classmethod
    def warm_up(cls, client):
        """Does everything once, one after the other."""
        serials = [client.send("Echo", "s", "x" * (5 << 20)) for _ in range(4)]
        for serial in serials:
            client.wait(serial)
        client.call("StartStartupItem", "s", "item")
        client.call("RepairPermissions")
        client.call("RemoveDiagnosticLogs")
        client.call("SizeOfItemAtPath", "s", DATA)
        client.call("RemoveItemAtPath", "s", f"{DATA}/missing")

    def setUp(self):
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self.root.host_path(GATE))
        # An instrumented agent looks at each byte of the large texts.
        self.other = self.root.client(timeout=300 if harness.is_instrumented() else 30)

    def tearDown(self):
        self.other.close()
        self.wait_for_rest(threads=False)

    def wait_for_rest(self, threads):
        """Waits until the same process has as many descriptors, children and,
        on demand, threads as at the start."""
        def now():
            counts = self.root.agent_usage().counts
            return {key: counts[key] for key in counts if threads or key != "threads"}
        start = {key: self.start.counts[key] for key in now()}
        with contextlib.suppress(TimeoutError):
            wait_until(lambda: now() == start, REST)
        self.assertEqual(now(), start)

    @contextlib.contextmanager
    def others_answered(self):
        """During all of this other clients ask, and get their answers."""
        with Watcher(self.other) as watcher:
            yield watcher
            asked = watcher.answers
            wait_until(lambda: watcher.failure or watcher.answers > asked + 1,
                       240 if harness.is_instrumented() else 40)
        if watcher.failure:
            raise AssertionError("another client had to wait in vain") from watcher.failure
