"""The agent on a bus of its own, and its use of resources."""
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../Tests/System"))
from Support import bus, harness  # noqa: E402


class Agent:
    """One agent, started on demand by its own bus. The wrapper, such as
    ["taskset", "-c", "0"], is put before the agent's program."""

    def __init__(self, build, folder, wrapper=()):
        harness.build_folder = build
        os.makedirs(folder, exist_ok=True)
        self.build = build
        self._bus = bus.PrivateBus(folder)
        self.address = self._bus.address
        program = os.path.join(build, "keepwell-agent")
        self._bus.start_bus(agent=" ".join([*wrapper, program]))
        self._pid = None

    def close(self):
        self._bus.stop_bus()

    def command(self, *words):
        """The product's own command, asking this agent."""
        return [os.path.join(self.build, "keepwell"), "--bus", self.address, *words]

    def ask(self, *words):
        return subprocess.run(self.command(*words), check=True, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE).stdout.decode()

    def pid(self):
        if self._pid is None:
            self.ask("echo", "wake up")
            self._pid = self._bus.agent_pid()
        return self._pid

    def terminate(self):
        self.ask("terminate")
        self._pid = None

    def wait_for_name(self, name):
        bus.wait_until(lambda: self._bus.bus_call("NameHasOwner", "s", name) == [True])

    def proportional_memory(self):
        """Bytes of memory; memory shared with other programs counts in part."""
        return self._memory("smaps_rollup", "Pss")

    def resident_memory(self):
        return self._memory("status", "VmRSS")

    def peak_memory(self):
        """The most that was resident since forget_peak()."""
        return self._memory("status", "VmHWM")

    def forget_peak(self):
        with open(f"/proc/{self.pid()}/clear_refs", "w", encoding="ascii") as file:
            file.write("5")

    def first_reply_seconds(self):
        """From no agent at all to the end of a command that asked it."""
        self.terminate()
        start = time.perf_counter()
        self.ask("echo", "good morning")
        return time.perf_counter() - start

    def _memory(self, file, key):
        with open(f"/proc/{self.pid()}/{file}", encoding="ascii") as lines:
            for line in lines:
                if line.startswith(key + ":"):
                    return int(line.split()[1]) * 1024
        raise KeyError(key)
