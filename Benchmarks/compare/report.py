"""Writes the measurements as text: the terms, the machine, the table, the details."""
import os
import platform
import re
import subprocess
from dataclasses import dataclass, field


TERMS = """\
`Scripts/bench` writes this page. The comparisons are in `Benchmarks/compare/comparisons.py`.

- **Work**: the task that both programs do, on the same files.
- **Against**: the other program.
- **Ours**: the time of the `keepwell` command, with the agent and the bus that it uses. Searches use
  no agent.
- **Theirs**: the time of the other program.
- **Ratio**: ours divided by theirs, each the median of all rounds. Below 1, Keepwell is faster. The two
  take turns within one run, so that other work on the machine slows both.
- **Target**: the highest ratio that counts as a success, set before the measurement.
- **Met, missed**: whether the ratio is within the target. For a miss, the details count the system
  calls of both programs.
- **Warm**: the files' metadata are in the machine's memory before the first round.
- **Caches dropped**: before each round the machine's memory is cleared of all metadata and data of
  files, except those of the program that runs.
- **Processor time**: user and system time of the program, its children and the agent.
- **Checked**: how the benchmark made sure that both programs did the same work.
- **Calls alone**: the time of the system calls that the work needs for each item, made by a program
  that does nothing else (`Benchmarks/Programs/bare-calls.cpp`): it knows the folders beforehand, keeps
  no name, and has a thread for each processor, or eight after the caches were dropped. The three take
  turns. A target below the ratio of the calls alone asks for fewer calls than one for each item.
- **Entry** (in the curve): one file or folder.""".split("\n")


@dataclass
class Row:
    """One line of the table. It has figures of ours alone when there is no rival."""
    work: str
    rival: str
    target: float = None
    ours: object = None  # a measure.Series
    theirs: object = None
    bare: object = None  # of the system calls alone
    proof: str = ""  # the check that both did the same
    note: str = ""
    calls: str = ""  # of a missed target: each side's system calls
    facts: list = field(default_factory=list)

    def ratio(self):
        return self.ours.median() / self.theirs.median()

    def missed(self):
        return self.target is not None and self.ratio() > self.target


def seconds(value):
    if value is None:
        return "–"
    if value < 1e-3:
        return f"{value * 1e6:.0f} µs"
    return f"{value * 1e3:.1f} ms" if value < 1 else f"{value:.2f} s"


def threads(measured):
    """The table of a walk's threads against its time."""
    return ["| Threads that measure /usr | Warm | Caches dropped |", "|---|---:|---:|",
            *(f"| {number or 'as many as the walk finds'} | {seconds(warm)} | {seconds(cold)} |"
              for number, warm, cold in measured)]


def bare(rows):
    """The table of system calls alone, which have no target."""
    return ["| Work | Against | Ours | Calls alone | Theirs | Ratio | Calls alone / theirs | "
            "Ours / calls alone |", "|---|---|---:|---:|---:|---:|---:|---:|",
            *(f"| {row.work} | {row.rival} | {seconds(row.ours.median())} | "
              f"{seconds(row.bare.median())} | {seconds(row.theirs.median())} | {row.ratio():.3f} | "
              f"{row.bare.median() / row.theirs.median():.3f} | "
              f"{row.ours.median() / row.bare.median():.3f} |" for row in rows)]


def spread(series):
    return f"{seconds(min(series.wall))} – {seconds(max(series.wall))}"


def version(*argv):
    try:
        done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        line = done.stdout.decode(errors="replace").splitlines()[0]
        return " ".join(line.replace("Version:", argv[0]).split())
    except (OSError, IndexError):
        return f"{argv[0]}: not installed"


def machine(folder):
    model = next((line.partition(":")[2].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                  if line.startswith("model name")), platform.machine())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    volume = subprocess.run(["findmnt", "-no", "FSTYPE,OPTIONS", "-T", folder], check=False,
                            stdout=subprocess.PIPE).stdout.decode().strip()
    return [f"- {model}, {os.cpu_count()} processors, {memory:.0f} GiB",
            f"- Linux {platform.release()}; trees of many files are on an ext4 in memory, made anew for each; "
            f"shredded and moved files on {re.sub(' +', ', ', volume, count=1)}",
            *(f"- {version(*argv)}" for argv in (
                ("du", "--version"), ("find", "--version"), ("bfs", "--version"),
                ("gdu", "--version"), ("dbus-daemon", "--version"), ("c++", "--version")))]


def table(rows):
    lines = ["| Work | Against | Ours | Theirs | Ratio | Target | |",
             "|---|---|---:|---:|---:|---:|---|"]
    for row in rows:
        lines.append(
            f"| {row.work} | {row.rival} | {seconds(row.ours.median())} | "
            f"{seconds(row.theirs.median())} | {row.ratio():.3f} | "
            f"{'–' if row.target is None else row.target} | "
            f"{'' if row.target is None else 'missed' if row.missed() else 'met'} |")
    return lines


def details(rows):
    lines = []
    for row in rows:
        lines += ["", f"### {row.work} / {row.rival}", ""]
        lines.append(f"- wall clock, {len(row.ours.wall)} rounds: ours {spread(row.ours)}, "
                     f"theirs {spread(row.theirs)}")
        if row.ours.processor and row.theirs.processor:
            lines.append(f"- processor time, median: ours {seconds(row.ours.processor_median())}, "
                         f"theirs {seconds(row.theirs.processor_median())}")
        if row.proof:
            lines.append(f"- checked: {row.proof}")
        lines += [f"- {fact}" for fact in row.facts]
        if row.missed():
            over = (row.ratio() / row.target - 1) * 100
            lines.append(f"- missed by {over:.0f} %. {row.note}".rstrip())
            if row.calls:
                lines += ["", "```", row.calls, "```"]
    return lines
