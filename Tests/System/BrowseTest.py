"""`keepwell browse` on a terminal of tmux, read as text: its display, its
actions, and the state in which it leaves the terminal."""
import json
import os
import signal
import subprocess
import unittest

from Support import harness
from Support.bus import is_running, wait_until
from Support.root import DATA
from Support.systembus import MEMBER, OUTSIDER, ROOT, SystemBusRoot
from Support.terminal import Terminal

TREE = "/srv/tree"
MEGABYTE = 1_000_000


class BrowseTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("tmux", "setpriv", "useradd", "gpasswd", "systemd-sysusers")
        cls.root = cls.enterClassContext(SystemBusRoot())

    def setUp(self):
        self.terminal = Terminal("browse")
        self.addCleanup(self.terminal.close)
        self.tmux, self.screen = self.terminal.tmux, self.terminal.screen
        self.keys, self.wait_for = self.terminal.keys, self.terminal.wait_for
        self.root.empty(TREE)
        for name, size in (("big/file", 3), ("middle/a", 1), ("middle/b", 1), (".hidden", 1.5),
                           ("small", 0.1)):
            self.root.write(f"{TREE}/{name}", b"x" * int(size * MEGABYTE))
        os.link(self.root.host_path(f"{TREE}/big/file"), self.root.host_path("/srv/outside"))
        self.addCleanup(os.unlink, self.root.host_path("/srv/outside"))
        os.sync()

    def open_terminal(self, argv, columns=80, rows=24):
        """Runs a program of the root on the terminal."""
        self.terminal.open(self.root.command(
            ["env", "-i", *(f"{key}={value}" for key, value in self.root.environment().items()),
             "TERM=screen", "PATH=/usr/local/bin:/usr/bin:/bin:/sbin", *argv]), columns, rows)

    def start(self, user=ROOT, path=TREE, shown=None, before="", **size):
        """In a shell that tells how the terminal was before and after."""
        script = (f"{before} stty -g >/run/before; keepwell browse {path}; echo status $?; "
                  "stty -g >/run/after; echo over; cat")
        self.open_terminal(["sh", "-c", script] if user == ROOT else
                           self.root.as_user(user, ["keepwell", "browse", path]), **size)
        self.wait_for(f"{shown or path} ")

    def process(self):
        """The one on this terminal. One of an earlier terminal may not have ended."""
        shell = self.tmux("display-message", "-p", "#{pane_pid}").strip()
        found = subprocess.run(["pgrep", "-P", shell, "-f", "^keepwell browse "], check=True,
                               capture_output=True, text=True).stdout.split()
        return int(found[0])

    def names(self):
        """Of the items shown, in order."""
        return [line.split("] ")[1].strip() for line in self.screen().splitlines() if "] " in line]

    def wait_for_names(self, *names):
        try:
            wait_until(lambda: self.names() == list(names))
        except TimeoutError:
            self.assertEqual(self.names(), list(names), self.screen())

    def test_folders_are_sorted_and_lead_in_and_out(self):
        self.start()
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        self.wait_for("x shred  ? keys  q")
        self.assertRegex(self.screen(), r"(?m)^\s+3 MB +4\d% \[\u2588+ +\] big/$")
        self.keys("n")
        self.wait_for_names(".hidden", "big/", "middle/", "small")
        self.keys(".")
        self.wait_for_names("big/", "middle/", "small")
        self.keys("i")
        self.wait_for_names("middle/", "big/", "small")
        self.keys("Home", "Enter")
        self.wait_for(f"{TREE}/middle ")
        self.wait_for_names("a", "b")
        self.keys("Left")
        self.wait_for_names("middle/", "big/", "small")
        self.keys("/", "S", "M", "A", "Enter", "Space")
        self.wait_for("*    102 KB")
        self.keys("/", "z", "z", "Enter")
        self.wait_for("no name here holds zz")

    def test_each_key_moves_as_the_terminal_names_it(self):
        self.start()
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        self.keys("Down", "Right")
        self.wait_for_names("a", "b")
        self.keys("BSpace", "Up", "Right")
        self.wait_for_names("file")
        self.keys("Left", "NPage", "Space")
        self.wait_for("1 marked: 102 KB")
        self.keys("PPage", "Right")
        self.wait_for_names("file")
        self.keys("Left", "/", "m", "i", "x", "BSpace", "d", "Enter", "Right")
        self.wait_for_names("a", "b")

    def test_the_newest_or_the_largest_come_first(self):
        for age, name in enumerate(("middle", "small", "big", ".hidden")):
            os.utime(self.root.host_path(f"{TREE}/{name}"), (10 - age, 10 - age))
        self.start()
        self.keys("t")
        self.wait_for_names("middle/", "small", "big/", ".hidden")
        self.wait_for(", by time")
        self.keys("s")
        self.wait_for_names("big/", "middle/", ".hidden", "small")

    def test_marked_items_go_after_one_question(self):
        self.start()
        self.keys("Space", "Space", "r")
        self.wait_for("Remove 2 items: 5 items, 5 MB, 2 MB freed? [y/N]")
        self.keys("n", "Enter")
        self.wait_for("[y/N]", gone=True)
        self.assertTrue(self.root.exists(f"{TREE}/big/file"))
        self.keys("r")
        self.wait_for("[y/N]")
        self.keys("y", "Enter")
        self.wait_for("2 of 2 removed")
        self.wait_for_names(".hidden", "small")
        self.assertIn(f"{TREE}  1.6 MB, 3 items", self.screen())
        self.assertEqual(self.root.listdir(TREE), [".hidden", "small"])
        self.keys("x")
        self.wait_for("Shred /srv/tree/.hidden: 1 item, ")
        self.keys("y", "Enter")
        self.wait_for("1 of 1 shredded")
        self.assertEqual(self.root.listdir(TREE), ["small"])

    def test_trashed_items_can_be_restored(self):
        self.root.write(f"{DATA}/item", b"x")
        self.start(path=DATA)
        self.keys("d")
        self.wait_for(f"Trash {DATA}/item: 1 item, ")
        self.keys("y", "Enter")
        self.wait_for("1 of 1 moved to the Trash")
        self.wait_for("nothing here")
        self.assertFalse(self.root.exists(f"{DATA}/item"))
        self.assertEqual(self.root.check(["keepwell", "trash", "restore", f"{DATA}/item"]),
                         f"Restored {DATA}/item\n")

    def test_protected_folders_stay(self):
        self.start(path="/usr/local")
        self.keys("/", "b", "i", "n", "Enter", "r")
        self.wait_for("/usr/local/bin is protected")

    def test_it_follows_the_size_of_the_terminal(self):
        self.start()
        self.tmux("resize-window", "-x", "50", "-y", "9")
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        wait_until(lambda: len(self.screen().splitlines()) == 9)
        self.wait_for("? keys  q leaves")
        self.assertLessEqual(max(map(len, self.screen().splitlines())), 50)
        self.keys("End")
        self.tmux("resize-window", "-x", "100", "-y", "30")
        wait_until(lambda: len(self.screen().splitlines()) == 30)
        self.wait_for("\u2191\u2193\u2190\u2192 go  ")

    def test_the_list_of_keys_gives_way_to_any_key(self):
        self.start(columns=50)
        self.keys("?")
        self.wait_for("overwrite their contents")
        self.keys("x")
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        self.assertNotIn("[y/N]", self.screen())

    def test_the_title_adds_up_the_marked_items(self):
        self.start()
        self.keys("Space", "Space")
        self.wait_for("by size  2 marked: 5 MB")
        self.keys("u")
        self.wait_for("marked", gone=True)
        self.assertNotIn("*", self.screen())

    def test_questions_on_deep_folders_keep_their_figures_in_sight(self):
        deep = TREE + "/" + "/".join(["with a long name"] * 8)
        self.root.write(f"{deep}/item", b"x")
        os.sync()
        self.start(path=f"'{deep}'", shown="8 KB, 2 items, by")
        self.assertRegex(self.screen(), r"\A \.\.\..*/with a long name  8 KB, 2 items, by size *\n")
        self.keys("r")
        self.wait_for("/item: 1 item, 4 KB, 4 KB freed? [y/N]")

    def test_links_lead_into_their_folders_and_other_items_are_refused(self):
        self.root.symlink("tree/big", "/srv/link")
        self.addCleanup(os.unlink, self.root.host_path("/srv/link"))
        self.start(path="/srv/link", shown=f"{TREE}/big")
        self.wait_for_names("file")
        for item, reason in ((f"{TREE}/small", " is not a folder"),
                             ("/srv/no", ": there is nothing there")):
            done = self.root.run(["keepwell", "browse", item])
            self.assertEqual((done.returncode, done.stderr.decode()),
                             (1, f"keepwell: {item}{reason}\n"))

    def test_it_pauses_and_comes_back(self):
        self.open_terminal(["bash", "--norc", "--noediting", "-i"])
        self.keys(f"stty -g >/run/before; keepwell browse {TREE}", "Enter")
        self.wait_for("x shred  ? keys  q")
        self.keys("C-z")
        self.wait_for("Stopped")
        self.keys("stty -g >/run/after; echo over", "Enter")
        self.wait_for("\nover")
        self.assert_terminal_as_before()
        self.keys("fg", "Enter")
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        self.keys("n")
        self.wait_for_names(".hidden", "big/", "middle/", "small")

    def assert_terminal_as_before(self):
        self.assertEqual(self.root.read("/run/after"), self.root.read("/run/before"))
        self.assertEqual(self.tmux("display-message", "-p",
                                   "#{alternate_on} #{cursor_flag}").split(), ["0", "1"])

    def test_it_leaves_the_terminal_as_it_was(self):
        self.start()
        self.keys("q")
        self.wait_for("status 0\nover")
        self.assert_terminal_as_before()

    def test_it_leaves_the_terminal_as_it_was_when_it_is_ended(self):
        for number in (signal.SIGTERM, signal.SIGHUP):
            with self.subTest(number):
                self.start()
                os.kill(self.process(), number)
                self.wait_for(f"status {128 + number}\nover")
                self.assert_terminal_as_before()
                self.terminal.close()

    def test_it_ends_when_its_terminal_is_gone(self):
        for before in ("", "trap '' HUP;"):
            with self.subTest(before):
                self.start(before=before)
                number = self.process()
                self.terminal.close()
                wait_until(lambda number=number: not is_running(number))

    def test_one_name_that_cannot_be_sent_does_not_keep_the_agent_from_measuring_others(self):
        for name in (b"odd \xff", b"big"):
            path = os.fsencode(self.root.host_path(TREE)) + b"/" + name
            os.makedirs(path, exist_ok=True)
            os.chmod(path, 0o700)
        self.start(user=MEMBER)
        self.wait_for("odd \\xff")
        self.assertRegex(self.screen(), r"(?m)^\s+3 MB~")

    def test_the_agent_measures_and_removes_items_that_a_member_cannot_read(self):
        os.chmod(self.root.host_path(f"{TREE}/big"), 0o700)
        self.start(user=MEMBER)
        self.wait_for_names("big/", "middle/", ".hidden", "small")
        self.assertRegex(self.screen(), r"(?m)^\s+3 MB~")
        self.keys("Home", "r")
        self.wait_for("3 MB, ")
        self.keys("y", "Enter")
        self.wait_for("1 of 1 removed")
        self.assertFalse(self.root.exists(f"{TREE}/big"))

    def test_size_has_the_agent_measure_folders_that_a_member_cannot_read(self):
        big = self.root.host_path(f"{TREE}/big")
        held = sum(os.stat(path).st_blocks * 512 for path in (big, f"{big}/file"))
        os.chmod(big, 0o700)
        for user, sight, size in ((MEMBER, "measured", held),
                                  (OUTSIDER, "partial", os.stat(big).st_blocks * 512)):
            done = self.root.run(self.root.as_user(user, ["keepwell", "--json", "size",
                                                          "--children", TREE]))
            tree = json.loads(done.stdout)
            child = next(each for each in tree["children"] if each["name"] == "big")
            self.assertEqual((tree["sight"], child["sight"], child["bytes"]), (sight, sight, size))


if __name__ == "__main__":
    harness.main()
