"""Times some ways of doing the same work: in turn, so that other work on the
machine slows all, after a warm-up, and by their medians."""
import os
import signal
import statistics
import subprocess
import tempfile
import time
from dataclasses import dataclass, field

TICK = os.sysconf("SC_CLK_TCK")


@dataclass
class Series:
    """The time that one side needed, round by round, in seconds."""
    wall: list = field(default_factory=list)
    processor: list = field(default_factory=list)

    def median(self):
        return statistics.median(self.wall)

    def processor_median(self):
        return statistics.median(self.processor) if self.processor else None


class Side:
    """One way of doing the work: a program, the file that is its standard input,
    and the agent that it asks if any."""

    def __init__(self, argv, agent=None, standard_input=os.devnull):
        self.argv, self.agent, self.standard_input = list(argv), agent, standard_input
        self.output = b""

    def run(self):
        """Seconds on the clock and of processor time, the agent's included."""
        before = processor_seconds(self.agent.pid()) if self.agent else 0
        usage = os.times()
        with open(self.standard_input, "rb") as given:
            start = time.perf_counter()
            done = subprocess.run(self.argv, stdin=given, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, check=False)
            wall = time.perf_counter() - start
        if done.returncode != 0:
            raise RuntimeError(f"{self.argv} ended with {done.returncode}: "
                               f"{done.stderr.decode(errors='replace')[-2000:]}")
        after = os.times()
        spent = (after.children_user + after.children_system
                 - usage.children_user - usage.children_system)
        if self.agent:
            spent += processor_seconds(self.agent.pid()) - before
        self.output = done.stdout
        return wall, spent

    def calls(self):
        """One more run under strace: its table of the most expensive kinds of
        system calls."""
        with tempfile.NamedTemporaryFile("r", encoding="utf-8") as summary:
            count = ["strace", "-f", "-c", "-U", "calls,errors,time,name", "-o", summary.name]
            if self.agent:
                counter = subprocess.Popen([*count, "-p", str(self.agent.pid())],
                                           stderr=subprocess.PIPE)
                counter.stderr.readline()  # says that it is attached
                self.run()
                counter.send_signal(signal.SIGINT)
                counter.communicate()
            else:
                traced = Side([*count, *self.argv], standard_input=self.standard_input)
                traced.run()
            return "".join(summary.readlines()[:8])


def drop_caches():
    """Drops the machine's caches of files."""
    os.sync()
    with open("/proc/sys/vm/drop_caches", "w", encoding="ascii") as file:
        file.write("3")


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def alternate(sides, rounds, prepare=None, verify=None, warm_up=1):
    """Runs the sides in turn and returns a list of their series. Before each run
    prepare(side) sets the scene, after it verify(side) raises unless the work
    was done; neither is timed. Each second round has the reverse order."""
    series = [Series() for _ in sides]
    turns = list(zip(series, sides))
    for number in range(-warm_up, rounds):
        for own, side in turns if number % 2 == 0 else reversed(turns):
            if prepare:
                prepare(side)
                os.sync()
            wall, spent = side.run()
            if verify:
                verify(side)
            if number >= 0:
                own.wall.append(wall)
                own.processor.append(spent)
    return series
