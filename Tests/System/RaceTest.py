"""A fast process exchanges folders and files for links that lead outside, at
every level of a tree, while the agent removes, shreds, unlocks or moves it.

KEEPWELL_RACE_SECONDS says how long each race is run; 2 seconds without it."""
import os
import stat
import time
import unittest

from Support import harness, trees
from Support.root import ThrowAwayRoot

SECONDS = float(os.environ.get("KEEPWELL_RACE_SECONDS", "2"))
FEWEST_TURNS = 20  # however slow the machine
ITEM, FRESH, LEFT, FAR = "/tmp/item", "/tmp/fresh", "/tmp/left", "/run/item"
OUTSIDE = "/tmp/outside"
BRANCHES = 6
# The folders of a branch, and where the link beside each leads. The names are
# those of what lies outside, so that a walk that is led there finds its way.
LEVELS = (("", OUTSIDE), ("/inner", f"{OUTSIDE}/inner"),
          ("/inner/deeper", f"{OUTSIDE}/inner/deeper"))
FILES = ("one", "two", "three", "locked")


def link_beside(folder):
    return f"{os.path.dirname(folder)}/out-{os.path.basename(folder)}"


def exchanged(item):
    """Everything that changes places with a link, the upper ones first."""
    for branch in range(BRANCHES):
        for level, target in LEVELS:
            folder = f"{item}/{branch}{level}"
            yield folder, link_beside(folder), target
        yield f"{item}/{branch}/one", f"{item}/{branch}/out-one", f"{OUTSIDE}/one"


def build(item, refuses):
    """The bait. One that refuses has to be unlocked, and cannot be removed."""
    for branch in range(BRANCHES):
        for level, _ in LEVELS:
            os.makedirs(f"{item}/{branch}{level}")
            for name in FILES:
                with open(f"{item}/{branch}{level}/{name}", "wb") as file:
                    file.write(b"victim")
        if refuses:
            trees.set_flags(f"{item}/{branch}/inner/deeper/locked", trees.IMMUTABLE)
            trees.set_flags(f"{item}/{branch}/inner/two", trees.IMMUTABLE)
            trees.set_flags(f"{item}/{branch}/inner/deeper/one", trees.APPEND)
    for _, link, target in exchanged(item):
        os.symlink(target, link)


def strangers(item):
    """The files of a tree that are not the bait's own."""
    found = []
    for folder, _, files in os.walk(item):
        for path in (f"{folder}/{name}" for name in files):
            if stat.S_ISREG(os.lstat(path).st_mode):
                with open(path, "rb") as file:
                    found += [path] if file.read() != b"victim" else []
    return found


class RaceTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot(in_memory=True))
        self.canaries = trees.Canaries(self.root.host_path(OUTSIDE))
        self.addCleanup(self.canaries.unlock)
        self.client = self.root.client()
        self.client.call("Echo", "s", "")
        self.pid = self.root.agent_pid()

    def race(self, name, work, refuses=False):
        """Has the work done on one bait after the other. It is given the item's
        path and tells whether the agent could do all of it."""
        host = self.root.host_path
        pairs = [path for folder, link, _ in exchanged(host(ITEM)) for path in (folder, link)]
        turns = completed = 0
        attack = trees.Attack("exchange", *pairs)
        with attack:
            end = time.monotonic() + SECONDS
            while time.monotonic() < end or turns < FEWEST_TURNS:
                build(host(FRESH), refuses)
                os.rename(host(FRESH), host(ITEM))
                completed += work(ITEM)
                turns += 1
                if self.root.exists(ITEM):
                    os.rename(host(ITEM), host(LEFT))
                    trees.clear(host(LEFT))
        print(f"{name}: {turns} turns, {completed} complete, {attack.steps} exchanges", flush=True)
        self.assertGreater(attack.steps, 0)
        self.assertEqual(self.canaries.damage(), [])
        self.assertEqual(self.root.agent_pid(), self.pid)
        return turns, completed

    def test_removal(self):
        turns, completed = self.race(
            "removal", lambda item: self.client.call("RemoveItemAtPath", "s", item)[0])
        self.assertGreater(min(turns, completed), 0)

    def test_shredding(self):
        turns, completed = self.race(
            "shredding", lambda item: self.client.call("SecurelyRemoveItemAtPath", "s", item)[0])
        self.assertGreater(min(turns, completed), 0)

    def test_unlocking(self):
        """Each removal is refused, unlocks all that it can and is refused again."""
        turns, completed = self.race(
            "unlocking", lambda item: self.client.call("RemoveItemAtPath", "s", item)[0],
            refuses=True)
        self.assertGreater(turns, completed)

    def test_moving(self):
        def work(item):
            moved = self.client.call("MoveItemAtPath", "ss", item, FAR)[0]
            far = self.root.host_path(FAR)
            self.assertEqual(strangers(far), [])
            # The copy is whole before anything of the original goes.
            self.assertTrue(moved or self.root.exists(item))
            trees.clear(far)
            return moved

        turns, _ = self.race("moving", work)
        self.assertGreater(turns, 0)
        left = [name for name in self.root.listdir("/run") if name.startswith(".keepwell")]
        self.assertEqual(left, [])

    def test_truncation(self):
        """A file that becomes a link to a device is no reason to open the device:
        some act on that alone."""
        host = self.root.host_path
        device = host("/tmp/device")
        os.mknod(device, 0o666 | stat.S_IFCHR, os.makedev(1, 3))
        os.symlink("/tmp/device", host("/tmp/link"))
        self.root.write(ITEM, b"victim")
        job = self.root.write("/tmp/job.plist", b"<plist><dict/></plist>")
        os.symlink("/tmp/device", host("/tmp/job-link"))
        with Openings(device) as openings, \
                trees.Attack("exchange", host(ITEM), host("/tmp/link"), host(job),
                             host("/tmp/job-link")) as attack:
            end, done = time.monotonic() + SECONDS, 0
            while time.monotonic() < end:
                done += self.client.call("TruncateFileAtPath", "s", ITEM)[0]
                self.client.call("DisableLaunchdAgentAtPath", "s", job)
        print(f"truncation: {done} done, {attack.steps} exchanges", flush=True)
        self.assertGreater(done, 0)
        self.assertEqual(openings.count, 0)


class Openings:
    """How often an item is opened as long as the block lasts."""
    _OPENED = 0x20

    def __init__(self, path):
        self._watch = trees.inotify(path, self._OPENED)
        self.count = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            # Events that are alike and come at once are told as one.
            self.count = len(os.read(self._watch, 1 << 16))
        except BlockingIOError:
            pass
        os.close(self._watch)


if __name__ == "__main__":
    harness.main()
