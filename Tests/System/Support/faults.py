"""The agent with a library before it that has single calls fail."""
import mmap
import os
import struct

from . import harness
from .root import ThrowAwayRoot

_NAMES, _NAME_SIZE = 65536, 16
_PATH = "/run/keepwell-test/faults"


class FaultyRoot(ThrowAwayRoot):
    """A throw-away root whose agent fails on demand."""

    def __init__(self):
        super().__init__(in_memory=True)
        library = os.path.join(harness.build_folder, "Tests", "libkw_test_faults.so")
        self.agent_prefix = f"env LD_PRELOAD={library} KEEPWELL_FAULTS={_PATH} "

    def environment(self):
        # A sanitizer's own library would be the first otherwise.
        usual = super().environment()
        options = usual.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        return {**usual, "ASAN_OPTIONS": options.strip(":")}

    def start_bus(self, agent=None):
        with open(self.host_path(_PATH), "w+b") as file:
            file.truncate(16 + _NAMES * _NAME_SIZE)
            self.faults = Faults(mmap.mmap(file.fileno(), 0))
        super().start_bus(agent)


class Faults:
    def __init__(self, memory):
        self._memory = memory

    def arm(self, fail_at=0, error=0):
        """From now on calls are counted; the one of that number, from one, fails."""
        struct.pack_into("=IIIi", self._memory, 0, 0, 0, fail_at, error)
        struct.pack_into("=I", self._memory, 0, 1)

    def disarm(self):
        """The names of the calls since it was armed."""
        struct.pack_into("=I", self._memory, 0, 0)
        count, = struct.unpack_from("=I", self._memory, 4)
        return [self._memory[at:at + _NAME_SIZE].rstrip(b"\0").decode()
                for at in range(16, 16 + min(count, _NAMES) * _NAME_SIZE, _NAME_SIZE)]
