"""The comparisons, one function for each line of the table."""
import glob
import hashlib
import os
import shutil
import statistics
import subprocess
from dataclasses import dataclass

from .measure import Series, Side, alternate, drop_caches
from .report import Row
from .trees import Tree, expected_size

WIDE = Tree(1_000, 100_000, data_every=20, data_bytes=4096)
FLAT = Tree(1, 400_000)
GROWING = 1_000, 10_000, 100_000, 1_000_000  # files, fifty in a folder

# Reasons why these targets may be missed.
SIZE_LIMIT = ("The kernel takes nine tenths of the time, nearly all for one stat of each file. That is "
              "about the processor time of du, so that two processors can halve the time at best.")
MOVE_LIMIT = ("Before the agent removes anything of the source, it waits until the copy is on the disk "
              "(one syncfs); mv does not wait.")


def expect(condition, text):
    if not condition:
        raise AssertionError(text)


class Bench:
    """The places of a run: the programs, the folder on disk, a folder in memory,
    a volume that can be made anew."""

    def __init__(self, build, folder, memory_folder, volume, agent, single_agent, quick):
        self.build, self.folder, self.memory_folder = build, folder, memory_folder
        self.volume = volume
        self.agent, self.single_agent = agent, single_agent
        self.quick = quick

    def rounds(self, usual):
        return max(2, usual // 4) if self.quick else usual

    def path(self, name):
        return os.path.join(self.folder, name)

    def make_tree(self, tree, name):
        """On a fresh volume; the tree's path."""
        self.volume.renew()
        path = os.path.join(self.volume.path, name)
        tree.make(self.build, path)
        os.sync()
        return path

    def compare(self, row, ours, theirs, rounds, prepare=None, verify=None, warm_up=1,
                counts_calls=True):
        """Fills in the row; a missed target gets its system calls counted."""
        row.ours, row.theirs = alternate((ours, theirs), self.rounds(rounds), prepare, verify,
                                         warm_up)
        if counts_calls and row.missed() and not self.quick:
            for name, side in (("ours", ours), ("theirs", theirs)):
                if prepare:
                    prepare(side)
                row.calls += f"{name}:\n{side.calls()}"
        return row


# --- What two processors gain


def halves(path, depth):
    """The folders on that level below the path, in two lists with about as many
    items below each."""
    items = {}
    for folder in glob.glob(os.path.join(glob.escape(path), *["*"] * depth)):
        if os.path.isdir(folder) and not os.path.islink(folder):
            items[folder] = sum(len(folders) + len(files) for _, folders, files in os.walk(folder))
    lists, sums = ([], []), [0, 0]
    for folder in sorted(items, key=items.get, reverse=True):
        lighter = sums.index(min(sums))
        lists[lighter].append(folder)
        sums[lighter] += items[folder]
    return lists


def pair_of(command, path, depth, finish=":"):
    """Two of the program at once, each with half of the folders; then finish."""
    first, second = halves(path, depth)
    script = f'{command} "${{@:2:$1}}" & {command} "${{@:$1+2}}"; wait; {finish}'
    return Side(["bash", "-c", script, "bash", str(len(first)), *first, *second])


def add_gain(bench, row, pair, alone, rounds, prepare=None):
    """Tells the reader of a missed target how far the machine itself lets the
    rival's system calls run at once."""
    both, one = alternate((pair, alone), bench.rounds(rounds), prepare)
    row.facts.append(f"two {row.rival} at once, each over half of the tree, take "
                     f"{both.median() / one.median():.3f} of the time of one")
    return row


# --- Measuring


def says_size(side):
    return int(side.output.split()[0])


def forget_files(side):
    """Leaves nothing of any file in memory but the program itself."""
    drop_caches()
    subprocess.run([side.argv[0], "--version"], check=True, stdout=subprocess.DEVNULL)


@dataclass(frozen=True)
class Rival:
    """Another program that measures a folder."""
    name: str
    command: tuple
    says_size: bool = False
    note: str = ""


DU = Rival("`du -s`", ("du", "-s"), says_size=True, note=SIZE_LIMIT)
# Scans without its screen.
GDU = Rival("`gdu -n`", ("gdu", "-n", "-p", "-c"))


def compare_size(bench, work, path, agent, rounds, target, prefix=(), counts_calls=True,
                 prepare=None, rival=DU):
    """The agent's measurement against the rival's, with the agent's total checked."""
    ours = Side([*prefix, *agent.command("size", "--bytes", path)], agent)
    theirs = Side([*prefix, *rival.command, path])
    expected = expected_size(path)

    def verify(side):
        if side is ours:
            expect(says_size(side) == expected, f"{path}: not {expected} bytes")
        elif rival.says_size:
            expect(says_size(side) > 0, f"{path}: {rival.name} measured nothing")

    row = Row(work, rival.name, target)
    row.note = rival.note
    row.proof = (f"the agent's total is that of the blocks that `find` lists, {expected:,} bytes "
                 "(folders count twice, hard links each time)")
    return bench.compare(row, ours, theirs, rounds, prepare=prepare, verify=verify,
                         counts_calls=counts_calls)


def size_of_usr(bench):
    row = compare_size(bench, "size of /usr, warm, all processors", "/usr", bench.agent, 15, 0.42)
    return add_gain(bench, row, pair_of("du -s", "/usr", 2), Side(["du", "-s", "/usr"]), 15)


def size_of_usr_cold(bench):
    row = compare_size(bench, "size of /usr, caches dropped", "/usr", bench.agent, 7, 0.36,
                       counts_calls=False, prepare=forget_files)
    return add_gain(bench, row, pair_of("du -s", "/usr", 2), Side(["du", "-s", "/usr"]), 7,
                    lambda side: drop_caches())


def size_against_gdu(bench):
    return compare_size(bench, "size of /usr, warm, all processors", "/usr", bench.agent, 15, 0.36,
                        counts_calls=False, rival=GDU)


def size_against_gdu_cold(bench):
    return compare_size(bench, "size of /usr, caches dropped", "/usr", bench.agent, 7, 0.45,
                        counts_calls=False, prepare=forget_files, rival=GDU)


def browse_against_gdu(bench):
    """Until the list is on the screen."""
    shown = os.path.join(os.path.dirname(os.path.dirname(__file__)), "Programs/until-shown")
    ours = Side([shown, "by size", *bench.agent.command("browse", "/usr")], bench.agent)
    row = Row("browse /usr, until its list is shown", "`gdu -n`, its scan alone", 1.0)
    row.note = "Ours includes the start of the interpreter that plays the terminal."
    return bench.compare(row, ours, Side([*GDU.command, "/usr"]), 9, counts_calls=False)


def threads_of_a_walk(bench):
    """The table of threads against time; None for the number found by itself."""
    done = subprocess.run([os.path.join(bench.build, "Benchmarks/walk-threads"), "/usr",
                           str(bench.rounds(5))], check=True, stdout=subprocess.PIPE)
    return [(int(threads) or None, int(warm) / 1e9, int(cold) / 1e9)
            for threads, warm, cold in (line.split() for line in done.stdout.decode().splitlines())]


# --- System calls alone

COLD_THREADS = "8"  # as many as the agent's walks have at most


class BareCalls(Side):
    """Tells the time by itself, without that of its start and first listing."""

    def __init__(self, bench, work, path, cold=False):
        threads = COLD_THREADS if cold else str(os.cpu_count())
        super().__init__([os.path.join(bench.build, "Benchmarks/bare-calls"), work, path, threads,
                          "cold" if cold else "warm"])

    def run(self):
        _, spent = super().run()
        return int(self.output) / 1e9, spent


def bare_calls(bench):
    """The table of the system calls that an operation needs, by themselves."""
    def row(work, rival, sides, rounds, prepare=None, warm_up=1):
        line = Row(work, rival)
        line.ours, line.bare, line.theirs = alternate(sides, bench.rounds(rounds), prepare,
                                                      warm_up=warm_up)
        return line

    def forget(side):  # bare calls drop the caches after their listing
        if not isinstance(side, BareCalls):
            forget_files(side)

    def size(rival, cold):
        ours = Side(bench.agent.command("size", "--bytes", "/usr"), bench.agent)
        sides = (ours, BareCalls(bench, "size", "/usr", cold), Side([*rival.command, "/usr"]))
        return row("size of /usr" + (", caches dropped" if cold else ", warm"), rival.name, sides,
                   7 if cold else 15, forget if cold else None)

    def search(cold):
        sides = (our_search(bench), BareCalls(bench, "search", "/usr", cold), Side(BFS))
        return row("find a name under /usr" + (", caches dropped" if cold else ", warm"),
                   "`bfs -iname`", sides, 7 if cold else 15, forget if cold else None)

    def removal(cold):
        path = bench.path("doomed") if cold else os.path.join(bench.volume.path, "doomed")

        def prepare(side):
            if cold:
                WIDE.make(bench.build, path)
                forget(side)
            else:
                bench.make_tree(WIDE, "doomed")

        ours = Side(bench.agent.command("remove", path), bench.agent)
        sides = (ours, BareCalls(bench, "remove", path, cold), Side(["rm", "-rf", path]))
        return row(f"remove {WIDE}" + (", caches dropped" if cold else ", warm"), "`rm -rf`", sides,
                   5, prepare, 0)

    return [measure(cold) for measure in (lambda cold: size(DU, cold), lambda cold: size(GDU, cold),
                                          search, removal) for cold in (False, True)]


def size_on_one_processor(bench):
    return compare_size(bench, "size of /usr, warm, one processor", "/usr", bench.single_agent, 15,
                        0.95, ["taskset", "-c", "0"])


def size_of_growing_trees(bench, curve):
    """From a thousand entries to a million; the last is a line of the table."""
    per_entry = {}
    for files in GROWING:
        tree = Tree(files // 50, files)
        path = bench.make_tree(tree, "growing")
        bench.agent.forget_peak()
        before = bench.agent.resident_memory()
        row = compare_size(bench, f"size of {tree}", path, bench.agent,
                           4 if files == 1_000_000 else 9, 0.45 if files == 1_000_000 else None,
                           counts_calls=False)  # it would take minutes
        more = bench.agent.peak_memory() - before
        per_entry[files] = row.ours.median() / tree.items()
        curve("size, keepwell", tree.items(), row.ours.median())
        curve("size, du -s", tree.items(), row.theirs.median())
    growth = per_entry[1_000_000] / per_entry[10_000] - 1
    row.facts += [f"{more / 2**20:.1f} MiB more memory at most (target: 16 MiB)",
                  f"cost of one entry {growth * 100:+.0f} % compared with 10,000 files "
                  "(target: +20 % at most)"]
    return row


# --- Removing


def remove_many_folders_cold(bench):
    """On the disk, since a volume in memory is never cold."""
    path = bench.path("doomed")
    ours = Side(bench.agent.command("remove", path), bench.agent)
    theirs = Side(["rm", "-rf", path])

    def prepare(side):
        WIDE.make(bench.build, path)
        forget_files(side)

    row = Row(f"remove {WIDE}, caches dropped", "`rm -rf`", 0.5)
    row.proof = "the folder is gone"
    return bench.compare(row, ours, theirs, 5, prepare=prepare,
                         verify=lambda side: expect(not os.path.lexists(path), "still there"),
                         warm_up=0, counts_calls=False)


def compare_removal(bench, tree, target, rounds, warm_up=1):
    path = os.path.join(bench.volume.path, "doomed")
    ours = Side(bench.agent.command("remove", path), bench.agent)
    theirs = Side(["rm", "-rf", path])
    row = Row(f"remove {tree}", "`rm -rf`", target)
    row.proof = "the folder is gone"
    return bench.compare(row, ours, theirs, rounds,
                         prepare=lambda side: bench.make_tree(tree, "doomed"),
                         verify=lambda side: expect(not os.path.lexists(path), "still there"),
                         warm_up=warm_up)


def remove_many_folders(bench):
    row = compare_removal(bench, WIDE, 0.60, 5)
    path = bench.make_tree(WIDE, "doomed")
    pair = pair_of("rm -rf", path, 1, f"rm -rf {path}")
    return add_gain(bench, row, pair, Side(["rm", "-rf", path]), 5,
                    lambda side: bench.make_tree(WIDE, "doomed"))


def remove_one_folder(bench):
    return compare_removal(bench, FLAT, 1.05, 3, warm_up=0)


def removal_of_growing_trees(bench, curve):
    """The curve alone. The largest is removed once by each: making it takes longest."""
    for files in GROWING:
        tree = Tree(files // 50, files)
        row = compare_removal(bench, tree, None, 1 if files == GROWING[-1] else 3, warm_up=0)
        curve("removal, keepwell", tree.items(), row.ours.median())
        curve("removal, rm -rf", tree.items(), row.theirs.median())


def compare_shredding(bench, work, tree, rounds):
    """A second link to the first file shows whether its content is gone."""
    path, witness = bench.path("secret"), bench.path("witness")
    state = {}

    def prepare(_side):
        tree.make(bench.build, path)
        first = sorted(glob.glob(os.path.join(path, "**", "0.*"), recursive=True))[0]
        os.link(first, witness)
        with open(witness, "rb") as file:
            state["before"] = file.read(65536)

    def verify(_side):
        left = [name for _, _, names in os.walk(path) for name in names]
        expect(not left, "files are left")
        with open(witness, "rb") as file:
            after = file.read(65536)
        os.unlink(witness)
        shutil.rmtree(path, ignore_errors=True)
        same = sum(a == b for a, b in zip(after, state["before"]))
        expect(same < 65536 // 16, "the content is still there")

    ours = Side(bench.agent.command("shred", path), bench.agent)
    # shred takes files alone; the folders that stay are of no account.
    theirs = Side(["find", path, "-type", "f", "-exec", "shred", "-n", "1", "-u", "{}", "+"])
    row = Row(work, "`shred -n 1 -u`", 1.0)
    row.proof = "no file is left, and a second link to one of them shows other content"
    return bench.compare(row, ours, theirs, rounds, prepare, verify)


def shred_many(bench):
    return compare_shredding(bench, "shred 200 files of 1 MiB", Tree(4, 200, 1, 2**20), 7)


def shred_large(bench):
    return compare_shredding(bench, "shred a file of 1 GiB", Tree(1, 1, 1, 2**30), 2)


# --- Many small removals

LOOP = 'while IFS= read -r -d "" path; do rm "$path"; done'


def compare_many_removals(bench, rival, theirs, target, rounds, warm_up):
    tree = Tree(1, 10_000)
    path, names = os.path.join(bench.volume.path, "small"), bench.path("names")

    def prepare(_side):
        bench.make_tree(tree, "small")
        with open(names, "wb") as file:
            file.write(b"".join(os.path.join(path, name).encode() + b"\0"
                                for name in os.listdir(path)))

    row = Row("10,000 removals of single files", rival, target)
    row.proof = "the folder is empty"
    ours = Side(bench.agent.command("remove", "-0"), bench.agent, names)
    return bench.compare(row, ours, Side(theirs, standard_input=names), rounds, prepare,
                         lambda side: expect(not os.listdir(path), "files are left"), warm_up)


def removals_against_loop(bench):
    return compare_many_removals(bench, "a shell loop of `rm`", ["bash", "-c", LOOP], 0.05, 3, 0)


def removals_against_xargs(bench):
    return compare_many_removals(bench, "one `xargs rm`", ["xargs", "-0", "rm"], 6, 9, 1)


# --- Searching and moving


BFS = ["bfs", "/usr", "-iname", "*python3*"]


def our_search(bench):
    return Side([os.path.join(bench.build, "keepwell"), "find", "python3", "--under", "/usr"])


def compare_search(bench, rival, command, target, prepare=None):
    ours = our_search(bench)
    theirs = Side(command)
    row = Row("find a name under /usr" + (", caches dropped" if prepare else ""), rival, target)

    def verify(side):
        if side is theirs:
            expect(sorted(side.output.splitlines()) == sorted(ours.output.splitlines()),
                   "the two searches found different items")
            row.proof = f"both found the same {len(side.output.splitlines())} items"

    ours.run()
    return bench.compare(row, ours, theirs, 7 if prepare else 15, prepare=prepare, verify=verify,
                         counts_calls=not prepare)


def search_against_find(bench):
    return compare_search(bench, "`find -iname`", ["find", "/usr", "-iname", "*python3*"], 0.5)


def search_against_bfs(bench):
    return compare_search(bench, "`bfs -iname`", BFS, 0.4)


def search_against_bfs_cold(bench):
    return compare_search(bench, "`bfs -iname`", BFS, 0.45, forget_files)


def digest(path):
    """Names, modes, times and contents of a tree in one number."""
    whole = hashlib.blake2b()
    for folder, folders, files in os.walk(path):
        folders.sort()
        for name in sorted(files):
            item = os.path.join(folder, name)
            status = os.lstat(item)
            with open(item, "rb") as file:
                content = hashlib.blake2b(file.read()).hexdigest()
            whole.update(repr((os.path.relpath(item, path), status.st_mode, status.st_mtime_ns,
                               content)).encode())
    return whole.hexdigest()


def compare_move(bench, work, source, destination, target):
    tree = Tree(50, 5_000, data_every=1, data_bytes=65_536)
    state = {}

    def prepare(_side):
        for path in (source, destination):
            shutil.rmtree(path, ignore_errors=True)
        tree.make(bench.build, source)
        state["before"] = digest(source)

    def verify(_side):
        expect(not os.path.lexists(source), "the source is still there")
        expect(digest(destination) == state["before"], "the copy is not the same")
        shutil.rmtree(destination)

    row = Row(work, "`mv`", target)
    row.note = MOVE_LIMIT
    row.proof = "the source is gone; names, modes, times and contents are the same"
    return bench.compare(row, Side(bench.agent.command("move", source, destination), bench.agent),
                         Side(["mv", source, destination]), 4, prepare, verify)


def move_to_disk(bench):
    return compare_move(bench, "move 5,000 files of 64 KiB, memory to disk",
                        os.path.join(bench.memory_folder, "moved"), bench.path("moved"), 0.75)


def move_from_disk(bench):
    return compare_move(bench, "move 5,000 files of 64 KiB, disk to memory", bench.path("moved"),
                        os.path.join(bench.memory_folder, "moved"), 1.0)


# --- The bus and tools


def paired(argv):
    """The two columns of nanoseconds that our programs print."""
    ours, theirs = Series(), Series()
    done = subprocess.run(argv, check=True, stdout=subprocess.PIPE)
    for line in done.stdout.decode().splitlines():
        first, second = line.split()
        ours.wall.append(int(first) / 1e9)
        theirs.wall.append(int(second) / 1e9)
    return ours, theirs


def echo(bench):
    program = os.path.join(bench.build, "Benchmarks")
    name = "org.keepwell.Empty"
    bench.agent.pid()
    service = subprocess.Popen([os.path.join(program, "empty-service"), bench.agent.address, name])
    try:
        bench.agent.wait_for_name(name)
        row = Row("one echo, median", "an empty sd-bus service", 1.15)
        row.ours, row.theirs = paired([os.path.join(program, "echo-latency"), bench.agent.address,
                                       name, str(bench.rounds(12)), "1000"])
        row.proof = "both gave the text back, to one client over one connection"
        return row
    finally:
        service.terminate()
        service.wait()


def tool_run(bench):
    """Held against a bound in time, not a ratio: see the facts."""
    row = Row("a tool run (`/bin/true`)", "`posix_spawn` and `waitpid`")
    row.ours, row.theirs = paired([os.path.join(bench.build, "Benchmarks/tool-run"), "/bin/true",
                                   str(bench.rounds(200))])
    more = row.ours.median() - row.theirs.median()
    row.facts.append(f"{more * 1e3:.2f} ms more than the bare calls at the median (target: 12 ms)")
    return row


def reports(bench):
    """Figures without a comparison."""
    first = [bench.agent.first_reply_seconds() for _ in range(bench.rounds(9))]
    bench.agent.pid()
    idle = bench.agent.proportional_memory()
    return [f"- first reply through activation, the command's own start included: "
            f"{statistics.median(first) * 1e3:.0f} ms at the median of {len(first)} "
            f"({min(first) * 1e3:.0f} – {max(first) * 1e3:.0f}; target: 60)",
            f"- idle memory, proportional: {idle / 2**20:.1f} MiB after its first request "
            "(target: 12 MB)"]
