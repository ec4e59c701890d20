"""A fast process exchanges folders and files for links that lead outside, and
for folders from elsewhere, at every level of a tree, while the agent removes,
shreds, unlocks or moves it.

KEEPWELL_RACE_SECONDS sets the length of each race; 2 seconds without it."""
import os
import stat
import time
import unittest

from Support import figures, harness, trees
from Support.bait import Bait, Outside, remove, strangers
from Support.baits import ITEM, OUTSIDE
from Support.root import ThrowAwayRoot

SECONDS = float(os.environ.get("KEEPWELL_RACE_SECONDS", "2"))
FEWEST_TURNS = 20  # on a machine of any speed
MOST_TURNS = 1000  # until one is done completely, against an attacker of any speed
FAR = "/run/item"
# The folder in which a copy is built, and the one that changes places with it.
STAGED, BESIDE_STAGED = "/run/.keepwell-copy-00", "/run/out-copy"


class RaceTest(unittest.TestCase):
    def setUp(self):
        self.root = self.enterContext(ThrowAwayRoot(in_memory=True))
        self.client = self.root.client()
        self.client.call("Echo", "s", "")
        self.pid = self.root.agent_pid()

    def race(self, name, bait, work, *further):
        """Runs the work on the bait again and again. The work gets the item's
        path and returns whether the agent could do all of it. Further paths are
        exchanged too, in pairs."""
        outside = Outside(self.root)
        self.addCleanup(outside.unlock)
        turns = completed = 0
        attack = trees.Attack(self.root, "exchange", *bait.pairs(), *further)
        with attack:
            attack.keep_apart(self.pid)
            end = time.monotonic() + SECONDS
            while time.monotonic() < end or turns < FEWEST_TURNS or \
                    (completed == 0 and turns < MOST_TURNS):
                bait.ready()
                completed += work(ITEM)
                turns += 1
        bait.clear()
        figures.row(name, f"{SECONDS:g}", turns, completed, attack.steps)
        self.assertGreater(attack.steps, 0)
        self.assertEqual(outside.damage(), [])
        self.assertEqual(self.root.agent_pid(), self.pid)
        return turns, completed

    def test_removal(self):
        turns, completed = self.race("removal", Bait(self.root), lambda item: self.client.call(
            "RemoveItemAtPath", "s", item)[0])
        self.assertGreater(min(turns, completed), 0)

    def test_shredding(self):
        turns, completed = self.race("shredding", Bait(self.root), lambda item: self.client.call(
            "SecurelyRemoveItemAtPath", "s", item)[0])
        self.assertGreater(min(turns, completed), 0)

    def test_unlocking(self):
        """The system refuses each removal; the agent unlocks as much as it can
        and is refused again."""
        turns, completed = self.race(
            "unlocking (a removal that is refused twice, but for links in the item's place)",
            Bait(self.root, "first", True), lambda item: self.client.call(
                "RemoveItemAtPath", "s", item)[0])
        self.assertGreater(turns, completed)

    def test_moving(self):
        bait = Bait(self.root, "last")
        far = self.root.host_path(FAR)

        def work(item):
            moved = self.client.call("MoveItemAtPath", "ss", item, FAR)[0]
            self.assertEqual(strangers(far), [])
            # The copy is whole before anything of the original goes.
            self.assertTrue(moved or bait.exists())
            # It also exists when a part of the original was left.
            remove(far)
            return moved

        os.symlink(OUTSIDE, self.root.host_path(BESIDE_STAGED))
        turns, completed = self.race("move to another volume (possible every fourth time)", bait,
                                     work, STAGED, BESIDE_STAGED)
        self.assertGreater(min(turns, completed), 0)
        # The attacker took away the name of one, but only after it was empty.
        for path in (STAGED, BESIDE_STAGED):
            host = self.root.host_path(path)
            if os.path.isdir(host) and not os.path.islink(host):
                self.assertEqual(self.root.listdir(path), [])
        left = [name for name in self.root.listdir("/run") if name.startswith(".keepwell")]
        self.assertEqual([name for name in left if f"/run/{name}" != STAGED], [])

    def test_truncation(self):
        """The agent must not open a file that became a link to a device: some
        devices act on the opening alone."""
        host = self.root.host_path
        device = host("/tmp/device")
        os.mknod(device, 0o666 | stat.S_IFCHR, os.makedev(1, 3))
        os.symlink("/tmp/device", host("/tmp/link"))
        self.root.write(ITEM, b"victim")
        job = self.root.write("/tmp/job.plist", b"<plist><dict/></plist>")
        os.symlink("/tmp/device", host("/tmp/job-link"))
        with Openings(device) as openings, \
                trees.Attack(self.root, "exchange", ITEM, "/tmp/link", job,
                             "/tmp/job-link") as attack:
            attack.keep_apart(self.pid)
            end, done = time.monotonic() + SECONDS, 0
            while time.monotonic() < end:
                done += self.client.call("TruncateFileAtPath", "s", ITEM)[0]
                self.client.call("DisableLaunchdAgentAtPath", "s", job)
        figures.row("truncation, against a link to a device", f"{SECONDS:g}", "one file", done,
                    attack.steps)
        self.assertGreater(attack.steps, 0)
        self.assertGreater(done, 0)
        self.assertEqual(openings.count, 0)


class Openings:
    """Counts the openings of an item during the block."""
    _OPENED = 0x20

    def __init__(self, path):
        self._watch = trees.inotify(path, self._OPENED)
        self.count = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            # Equal events at the same time count as one.
            self.count = len(os.read(self._watch, 1 << 16))
        except BlockingIOError:
            pass
        os.close(self._watch)


if __name__ == "__main__":
    harness.main()
