"""Runs every comparison and writes RESULTS.md and cost.svg."""
import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from . import comparisons, plot, report
from .agent import Agent
from .volume import Volume

RESULTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def micro_benchmarks(build):
    """The table of the inner loops, each beside its rival where it has one."""
    done = subprocess.run([os.path.join(build, "Benchmarks/kw_micro_benchmarks"),
                           "--benchmark_format=json", "--benchmark_repetitions=3",
                           "--benchmark_report_aggregates_only=true"],
                          check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    medians = {one["run_name"]: one for one in json.loads(done.stdout)["benchmarks"]
               if one["aggregate_name"] == "median"}
    return ["| Inner loop | Against | Ratio |", "|---|---|---:|",
            *(f"| {work} | {rival} | {medians[ours]['real_time'] / medians[theirs]['real_time']:.3f}"
              " |" for work, rival, ours, theirs in (
                  ("walk over 10,000 files, entry by entry", "`fts` of the C library", "walkOurs",
                   "walkCLibrary"),
                  ("the same", "`std::filesystem`", "walkOurs", "walkStandardLibrary"),
                  ("measure 10,000 files", "`fts` of the C library", "measureTree/real_time",
                   "walkCLibrary"),
                  ("read a binary property list", "libplist", "binaryListOurs",
                   "binaryListLibplist"),
                  ("read an XML property list", "libplist", "xmlListOurs", "xmlListLibplist")))]


class Progress:
    """Reports each comparison on standard error, and keeps the rows."""

    def __init__(self, names):
        self.names, self.rows = names, []
        self.start = time.monotonic()

    def wants(self, function):
        return not self.names or any(name in function.__name__ for name in self.names)

    def add(self, row):
        verdict = "missed" if row.missed() else "ok"
        print(f"{time.monotonic() - self.start:5.0f} s  {row.work} / {row.rival}: "
              f"{row.ratio():.3f} ({verdict})", *row.facts, sep="\n        ", file=sys.stderr)
        self.rows.append(row)


def run_all(bench, progress):
    lines = {}

    def curve(label, entries, seconds):
        lines.setdefault(label, []).append((entries, seconds * 1e6 / entries))

    for function in (comparisons.size_of_usr, comparisons.size_of_usr_cold,
                     comparisons.size_on_one_processor, comparisons.size_against_gdu,
                     comparisons.size_against_gdu_cold, comparisons.browse_against_gdu):
        if progress.wants(function):
            progress.add(function(bench))
    if progress.wants(comparisons.size_of_growing_trees):
        progress.add(comparisons.size_of_growing_trees(bench, curve))
        comparisons.removal_of_growing_trees(bench, curve)
    for function in (comparisons.remove_many_folders, comparisons.remove_many_folders_cold,
                     comparisons.remove_one_folder, comparisons.shred_many, comparisons.shred_large,
                     comparisons.search_against_find, comparisons.search_against_bfs,
                     comparisons.search_against_bfs_cold, comparisons.move_to_disk,
                     comparisons.move_from_disk, comparisons.echo,
                     comparisons.removals_against_loop, comparisons.removals_against_xargs,
                     comparisons.tool_run):
        if progress.wants(function):
            progress.add(function(bench))
    return lines


def write_results(bench, rows, lines, micro, duration):
    text = ["# Results", "",
            *report.TERMS, "",
            "## Machine", "", *report.machine(bench.folder), "",
            "## Whole programs", "", *report.table(rows), "",
            *comparisons.reports(bench), "",
            "## System calls alone", "", *report.bare(comparisons.bare_calls(bench)), "",
            "## Threads of a walk", "", *report.threads(comparisons.threads_of_a_walk(bench)), "",
            "## Inner loops", "", *micro, "",
            "## How cost grows", "", "![cost of one entry against entries](cost.svg)", "",
            "| Line | " + " | ".join(f"{x:,} entries" for x, _ in next(iter(lines.values()))) +
            " |", "|---|" + "---:|" * len(next(iter(lines.values()))),
            *(f"| {label} | " + " | ".join(f"{y:.2f} µs" for _, y in line) + " |"
              for label, line in lines.items()), "",
            "## Details", *report.details(rows), "",
            f"The whole run took {duration / 60:.1f} minutes."]
    with open(os.path.join(RESULTS, "RESULTS.md"), "w", encoding="utf-8") as file:
        file.write("\n".join(text) + "\n")
    with open(os.path.join(RESULTS, "cost.svg"), "w", encoding="utf-8") as file:
        file.write(plot.draw(lines))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True, help="the build folder")
    parser.add_argument("--folder", default="/var/tmp", help="the folder for the trees")
    parser.add_argument("--memory", default="/dev/shm", help="a folder on another volume")
    parser.add_argument("--quick", action="store_true", help="few rounds; writes no results")
    parser.add_argument("names", nargs="*", help="parts of the comparisons' names; writes no results")
    arguments = parser.parse_args()
    # An early end of the run still clears the trees away.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    start = time.monotonic()
    scratch = tempfile.mkdtemp(prefix="keepwell-bench.", dir=arguments.folder)
    memory = tempfile.mkdtemp(prefix="keepwell-bench.", dir=arguments.memory)
    volume = Volume(memory, os.path.join(scratch, "volume"))
    agents = []
    try:
        build = os.path.abspath(arguments.build)
        agents = [Agent(build, os.path.join(scratch, "bus")),
                  Agent(build, os.path.join(scratch, "bus1"), ["taskset", "-c", "0"])]
        bench = comparisons.Bench(build, scratch, memory, volume, *agents, arguments.quick)
        progress = Progress(arguments.names)
        lines = run_all(bench, progress)
        if not arguments.names and not arguments.quick:
            micro = micro_benchmarks(build)
            write_results(bench, progress.rows, lines, micro, time.monotonic() - start)
        else:
            for table, function in ((report.bare, comparisons.bare_calls),
                                    (report.threads, comparisons.threads_of_a_walk)):
                if progress.wants(function):
                    print("\n".join(table(function(bench))))
        missed = [row.work for row in progress.rows if row.missed()]
        print(f"{len(progress.rows)} comparisons, {len(missed)} missed their target"
              + "".join(f"\n  {work}" for work in missed))
    finally:
        for agent in agents:
            agent.close()
        volume.close()
        shutil.rmtree(scratch, ignore_errors=True)
        shutil.rmtree(memory, ignore_errors=True)


main()
