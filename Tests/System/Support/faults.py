"""The agent with a preloaded library that makes single calls fail."""
import mmap
import os
import struct
import unittest

from . import harness, processes, scenes, trees
from .bus import wait_until
from .root import ThrowAwayRoot

_HEAD, _NAMES, _NAME_SIZE = 48, 65536, 16
_PATH = "/run/keepwell-test/faults"
FULL = os.environ.get("KEEPWELL_FAULTS") == "full"


class FaultyRoot(ThrowAwayRoot):
    """A throw-away root whose agent fails on demand."""

    def __init__(self):
        super().__init__(in_memory=True)
        library = os.path.join(harness.build_folder, "Tests", "libkw_test_faults.so")
        self.agent_prefix = f"env LD_PRELOAD={library} KEEPWELL_FAULTS={_PATH} "

    def environment(self):
        # Otherwise a sanitizer's own library would be the first.
        usual = super().environment()
        options = usual.get("ASAN_OPTIONS", "")
        # The sanitizer does not know the library's allocations either.
        options += ":verify_asan_link_order=0:alloc_dealloc_mismatch=0"
        return {**usual, "ASAN_OPTIONS": options.strip(":")}

    def start_bus(self, agent=None):
        with open(self.host_path(_PATH), "w+b") as file:
            file.truncate(_HEAD + _NAMES * _NAME_SIZE)
            self.faults = Faults(mmap.mmap(file.fileno(), 0))
        super().start_bus(agent)


class Faults:
    def __init__(self, memory):
        self._memory = memory

    def arm(self, fail_at=0, error=0, name=""):
        """Counts calls from now on; the one of that number, from one, fails.
        With a name only those calls count for the number."""
        self._arm(fail_at, error, name.encode(), 0, False)

    def arm_allocations(self, fail_at=0, of_the_bus=False):
        """Makes the allocation of that number fail, of the threads that work on
        requests or of the one that talks to the bus."""
        self._arm(0, 0, b"", fail_at, of_the_bus)

    def _arm(self, *values):
        struct.pack_into("=I", self._memory, 0, 0)
        fail_at, error, name, allocation, of_the_bus = values
        struct.pack_into("=IIiIIII16s", self._memory, 4, 0, fail_at, error, 0, 0, allocation,
                         of_the_bus, name)
        struct.pack_into("=I", self._memory, 0, 1)

    def disarm(self):
        """The names of the calls since it was armed."""
        struct.pack_into("=I", self._memory, 0, 0)
        count, = struct.unpack_from("=I", self._memory, 4)
        return [self._memory[at:at + _NAME_SIZE].rstrip(b"\0").decode()
                for at in range(_HEAD, _HEAD + min(count, _NAMES) * _NAME_SIZE, _NAME_SIZE)]

    @property
    def allocations(self):
        """The number of allocations since it was armed."""
        return struct.unpack_from("=I", self._memory, 20)[0]


class FaultTestCase(unittest.TestCase):
    """Has one agent and one client for all scenes, a folder outside of them,
    and a look at the agent's resources."""

    @classmethod
    def setUpClass(cls):
        cls.root = cls.enterClassContext(FaultyRoot())
        trees.mount("-t", "tmpfs", "tmpfs", cls.root.host_path(cls.root.mkdir(scenes.FAR)))
        cls.canaries = trees.Canaries(cls.root.host_path("/tmp/outside"))
        cls.addClassCleanup(cls.canaries.unlock)
        cls.client = cls.root.client(timeout=30)

    def held(self):
        """The resources of the process: descriptors, threads, children."""
        return (processes.descriptors(self.pid), len(processes.threads(self.pid)),
                processes.children(self.pid))

    def memory(self):
        return processes.memory(self.pid)

    def wait_until_held(self, before):
        """Waits until the process has no more than before. Requests change
        between the threads of a pool, so one or two more threads may be waiting
        for work, but not another with each request."""
        most = before[0], before[1] + 2, set()
        try:
            wait_until(lambda: all(now <= then for now, then in zip(self.held(), most)), 5)
        except TimeoutError:
            self.assertEqual(self.held(), before)
