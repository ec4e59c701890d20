"""Sixty-four clients at once, each with a random mix of all operations but the
one that ends the agent, on a folder of its own. Every reply, every file and
every run of a tool must agree with a model of them. Takes KEEPWELL_LOAD_SECONDS
(20); KEEPWELL_LOAD_SEED repeats a mix."""
import itertools
import os
import random
import subprocess
import threading
import time

from Support import harness
from Support.abuse import AbuseCase, LOG_TOOL, REPAIRER, STARTER
from Support.root import DATA

CLIENTS = 64
SECONDS = float(os.environ.get("KEEPWELL_LOAD_SECONDS", "20"))
SEED = int(os.environ.get("KEEPWELL_LOAD_SEED", "1"))
WARM_UP = 4
BLOCK = 4096

LAUNCHCTL = "/bin/launchctl"
PKGUTIL = "/usr/sbin/pkgutil"
PERIODIC = "/usr/sbin/periodic"
KEXTUNLOAD = "/sbin/kextunload"
DITTO = "/usr/bin/ditto"
MDUTIL = "/usr/bin/mdutil"
DSCACHEUTIL = "/usr/sbin/dscacheutil"
KILLALL = "/usr/bin/killall"
AUTOSTART = "/etc/xdg/autostart"
NO_ERROR = ("", 0, {})

# The output of /bin/launchctl for a job: jobs with an even number are loaded.
LIST = 'case "$1 $2" in *"list "*[02468]) echo "{";; esac'
# The options come first, then the source, then the destination.
COPY = 'for to; do from=$last; last=$to; done; printf slim > "$to"'


def setUpModule():
    AbuseCase.begin()
    prepare(AbuseCase.root)


def prepare(root):
    """Puts a tool at each path that an operation uses."""
    for tool in (PKGUTIL, PERIODIC, KEXTUNLOAD, MDUTIL, DSCACHEUTIL, KILLALL, STARTER):
        root.stand_in(tool)
    root.stand_in(LAUNCHCTL, script=LIST)
    root.stand_in(DITTO, script=COPY)
    root.stand_in(LOG_TOOL, script="dd bs=16 count=1 2>/dev/null")
    root.stand_in(REPAIRER, script="for i in 1 2 3 4; do echo $i; sleep 0.01; done")
    root.mkdir("/var/log/asl")
    root.mkdir(AUTOSTART)
    root.write("/etc/launchd.conf", "limit maxfiles 1000\n")


tearDownModule = AbuseCase.end


class Actor:
    """A client, its folder, and its model of that folder."""

    def __init__(self, root, number, seed):
        self.root, self.number = root, number
        self.random = random.Random(f"{seed}.{number}")
        self.client = root.client(timeout=120)
        self.folder = root.mkdir(f"{DATA}/client{number}")
        self.host = root.host_path(self.folder)
        self.files = {}  # name: number of bytes
        self.runs = []  # the tools that must have run, with their arguments
        self.counter = itertools.count()
        self.done = 0
        self.failure = None

    def act_until(self, end):
        operations = [getattr(self, name) for name in dir(self) if name.startswith("do_")]
        weights = [operation.__func__.weight for operation in operations]
        try:
            while time.monotonic() < end:
                self.random.choices(operations, weights)[0]()
                self.done += 1
        except Exception as failure:  # pylint: disable=broad-except
            self.failure = failure
        finally:
            self.client.close()

    # The call that every operation uses.
    def call(self, member, signature="", *arguments):
        return self.client.call(member, signature, *arguments)

    def expect(self, actual, expected):
        if actual != expected:
            raise AssertionError(f"client {self.number}: {actual!r} instead of {expected!r}")

    def expect_flag(self, flag, member, signature="", *arguments):
        self.expect(self.call(member, signature, *arguments), [flag, NO_ERROR])

    def path(self, name):
        return f"{self.folder}/{name}"

    def fresh_name(self, suffix=""):
        return f"n{next(self.counter)}{suffix}"

    def make_file(self, name=None, size=None):
        name = name or self.fresh_name()
        size = self.random.choice((0, 1, 100, 4096, 5000, 40000)) if size is None else size
        with open(f"{self.host}/{name}", "wb") as file:
            file.write(b"x" * size)
        return name, size

    def some_file(self):
        """One of the folder's files, made when there is none."""
        if not self.files:
            self.do_create()
        return self.random.choice(list(self.files))

    def unique_text(self, kind):
        return f"{kind}.{self.number}.{next(self.counter)}"

    def ran(self, tool, *arguments):
        self.runs.append([tool, *arguments])

    # The operations, file system first.
    def do_create(self):
        name, size = self.make_file()
        self.files[name] = size

    def do_echo(self):
        text = "x" * self.random.choice((0, 10, 1000, 100000)) + str(self.random.random())
        self.expect(self.call("Echo", "s", text), [text, NO_ERROR])

    def do_exists(self):
        there = self.random.random() < 0.5
        name = self.some_file() if there else "never"
        self.expect_flag(there, "FileExistsAtPath", "s", self.path(name))

    def do_size(self):
        name = self.some_file()
        allocated = -(-self.files[name] // BLOCK) * BLOCK
        self.expect(self.call("SizeOfItemAtPath", "s", self.path(name)), [allocated, NO_ERROR])

    def do_size_tree(self):
        name = self.fresh_name()
        folders = [f"{self.host}/{name}/{inner}" for inner in ("a/b/c", "a/d/e", "f")]
        for folder in folders:
            os.makedirs(folder)
            self.make_file(os.path.relpath(f"{folder}/file", self.host), 5000)
        # Seven folders, each counted twice, and three files of two blocks.
        expected = sum(2 * os.lstat(folder).st_blocks * 512
                       for folder, _, _ in os.walk(f"{self.host}/{name}")) + 3 * 2 * BLOCK
        self.expect(self.call("SizeOfItemAtPath", "s", self.path(name)), [expected, NO_ERROR])
        self.expect(self.call("RemoveItemAtPath", "s", self.path(name))[0], True)

    def do_truncate(self):
        name = self.some_file()
        self.expect_flag(True, "TruncateFileAtPath", "s", self.path(name))
        self.files[name] = 0

    def do_remove(self):
        name = self.some_file()
        if self.random.random() < 0.1:
            subprocess.run(["chattr", "+i", f"{self.host}/{name}"], check=True)
        flag, _ = self.call("RemoveItemAtPath", "s", self.path(name))
        self.expect(flag, True)  # with the first attempt's error if it was locked
        del self.files[name]

    def do_remove_missing(self):
        self.expect(self.call("RemoveItemAtPath", "s", self.path("never"))[0], True)

    def do_remove_tree(self):
        name = self.fresh_name()
        for inner in ("a/b/c", "a/d"):
            os.makedirs(f"{self.host}/{name}/{inner}")
            for number in range(5):
                self.make_file(f"{name}/{inner}/{number}", 10)
        self.expect(self.call("RemoveItemAtPath", "s", self.path(name))[0], True)

    def do_shred(self):
        name = self.some_file()
        self.expect_flag(True, "SecurelyRemoveItemAtPath", "s", self.path(name))
        del self.files[name]

    def do_move(self):
        name, new = self.some_file(), self.fresh_name()
        self.expect_flag(True, "MoveItemAtPath", "ss", self.path(name), self.path(new))
        self.files[new] = self.files.pop(name)

    def do_move_onto_another(self):
        name, other = self.some_file(), self.fresh_name()
        self.files[other] = self.make_file(other)[1]
        flag, (domain, _, _) = self.call("MoveItemAtPath", "ss", self.path(name),
                                         self.path(other))
        self.expect((flag, domain), (False, "NSCocoaErrorDomain"))

    def do_trash(self):
        name = self.some_file()
        self.expect_flag(False, "MoveToTrashItemAtPath", "s", self.path(name))
        del self.files[name]

    # The operations that run tools.
    def do_package(self):
        package = self.unique_text("pkg")
        self.expect_flag(True, "RemovePackageWithID", "s", package)
        self.ran(PKGUTIL, "--forget", package)

    def do_kext(self):
        name, identifier = self.fresh_name(".kext"), self.unique_text("kext")
        os.makedirs(f"{self.host}/{name}/Contents")
        with open(f"{self.host}/{name}/Contents/Info.plist", "w", encoding="utf-8") as file:
            file.write("<plist><dict><key>CFBundleIdentifier</key>"
                       f"<string>{identifier}</string></dict></plist>")
        self.expect_flag(True, "RemoveKextAtPath", "s", self.path(name))
        self.ran(KEXTUNLOAD, "-p", "-b", identifier)

    def do_slim(self):
        name = self.some_file()
        self.expect_flag(True, "SlimBinaryWithPath", "sas", self.path(name), ["--arch", "x"])
        self.ran(DITTO, "--arch", "x", self.path(name), self.path(name) + ".ditto")
        self.files[name] = len("slim")

    def do_job(self):
        number = next(self.counter)
        label = f"job.{self.number}.{number}"
        name = self.make_file(f"{label}.plist", 0)[0]
        with open(f"{self.host}/{name}", "w", encoding="utf-8") as file:
            file.write(f"<plist><dict><key>Label</key><string>{label}</string></dict></plist>")
        path, is_loaded = self.path(name), number % 2 == 0
        self.expect_flag(True, "EnableLaunchdAgentAtPath", "s", path)
        if is_loaded:
            self.ran(LAUNCHCTL, "list", label)
        else:  # asked again by the step that loads
            self.runs += [[LAUNCHCTL, "list", label]] * 2
            self.ran(LAUNCHCTL, "load", "-w", path)
        self.expect_flag(True, "DisableLaunchdAgentAtPath", "s", path)
        self.ran(LAUNCHCTL, "list", label)
        if is_loaded:
            self.ran(LAUNCHCTL, "unload", "-w", path)
            self.ran(LAUNCHCTL, "stop", label)
        self.expect_flag(True, "RemoveLaunchdAgentAtPath", "s", path)
        self.ran(LAUNCHCTL, "unload", path)

    def do_startup_item(self):
        name = self.unique_text("item")
        verb = self.random.choice(("start", "stop"))
        self.expect_flag(True, f"{verb.capitalize()}StartupItem", "s", name)
        self.ran(STARTER, verb, f'"{name}"')

    def do_periodic(self):
        name = self.unique_text("script")
        self.expect_flag(True, "RunPeriodicScript", "s", name)
        self.ran(PERIODIC, name)

    def do_reindex(self):
        self.expect_flag(True, "StartSpotlightReindex")
        self.ran(MDUTIL, "-E", "/")

    def do_flush(self):
        self.expect_flag(True, "FlushDNS")
        self.ran(DSCACHEUTIL, "-flushcache")
        self.ran(KILLALL, "-HUP", "mDNSResponder")

    def do_log_store(self):
        self.expect_flag(True, "RemoveASL")
        for verb in ("stop", "start"):
            for label in ("com.apple.syslogd", "com.apple.aslmanager"):
                self.ran(LAUNCHCTL, verb, label)

    def do_unified_log(self):
        self.expect(self.call("RemoveDiagnosticLogs"), ["y", 0, "", NO_ERROR])
        self.ran(LOG_TOOL, "erase", "--all")

    def do_repair(self):
        self.client.signals.clear()
        flag, process, text = self.call("RepairPermissions")
        self.expect((flag, process > 0, text), (True, True, ""))
        self.ran(REPAIRER, "--output-format", "1", "--repair", "--standard-pkgs", "--volume", "/")

    # The operations on items that all clients share.
    def do_login_item(self):
        app = f"/usr/bin/{self.unique_text('app')}"
        entry = f"{AUTOSTART}/{self.unique_text('entry')}.desktop"
        self.root.write(entry, f"[Desktop Entry]\nType=Application\nName={app}\nExec=/missing\n")
        self.expect_flag(True, "RemoveGlobalLoginItemForAppWithPath", "s", app)
        self.expect(self.root.exists(entry), False)

    def do_sm_login_item(self):
        self.expect_flag(True, "RemoveSMLoginItem", "s", self.unique_text("bundle"))

    def do_launchd_conf(self):
        self.expect_flag(True, "RemoveLibraryFromLauchdConf", "s", "/usr/lib/odd.dylib")

    for _operation in (do_create, do_echo, do_exists, do_size, do_size_tree, do_truncate, do_remove,
                       do_remove_missing, do_remove_tree, do_shred, do_move,
                       do_move_onto_another, do_trash):
        _operation.weight = 10
    for _operation in (do_package, do_kext, do_slim, do_job, do_startup_item, do_periodic,
                       do_reindex, do_flush, do_log_store, do_unified_log, do_repair,
                       do_login_item, do_sm_login_item, do_launchd_conf):
        _operation.weight = 1
    do_create.weight = 30

    def compare(self):
        """Compares the folder with the model."""
        found = {name: os.path.getsize(f"{self.host}/{name}") for name in os.listdir(self.host)}
        self.expect(found, self.files)


class LoadTest(AbuseCase):
    def test_64_clients_with_all_operations_get_their_answers(self):
        self.load(CLIENTS, SEED + 1, WARM_UP)
        self.wait_for_rest(threads=True)
        AbuseCase.start_memory = self.settled_memory()
        done = self.load(CLIENTS, SEED, SECONDS)
        print(f"{done} operations of {CLIENTS} clients in {SECONDS:.0f} s, seed {SEED}")

    def load(self, clients, seed, seconds):
        with self.others_answered():
            return load(self, self.root, clients, seed, seconds)


def load(case, root, clients, seed, seconds):
    """Runs so many clients for so long, and compares everything. Returns the
    number of operations."""
    root.empty(DATA)
    root.forget_calls()
    actors = [Actor(root, number, seed) for number in range(clients)]
    end = time.monotonic() + seconds
    threads = [threading.Thread(target=actor.act_until, args=[end]) for actor in actors]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    failed = [actor for actor in actors if actor.failure]
    for actor in failed:
        raise AssertionError(f"client {actor.number} and {len(failed) - 1} others, after "
                             f"{actor.done} operations") from actor.failure
    for actor in actors:
        case.assertGreater(actor.done, 0)
        actor.compare()
    case.assertEqual(sorted(root.calls()),
                     sorted(run for actor in actors for run in actor.runs))
    return sum(actor.done for actor in actors)


if __name__ == "__main__":
    harness.main()
