"""`keepwell browse` on a terminal of tmux, read as text: its display, its
actions, and the state in which it leaves the terminal."""
import json
import os
import signal
import subprocess
import unittest

from Support import harness
from Support.bus import wait_until
from Support.root import DATA
from Support.systembus import MEMBER, OUTSIDER, ROOT, SystemBusRoot

TREE = "/srv/tree"
MEGABYTE = 1_000_000


class BrowseTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.skip_if_sanitized("the bus starts the agent without the options it needs")
        harness.require_tools("tmux", "setpriv", "useradd", "gpasswd", "systemd-sysusers")
        cls.root = cls.enterClassContext(SystemBusRoot())

    def setUp(self):
        self.socket = f"keepwell-{os.getpid()}"
        self.root.empty(TREE)
        for name, size in (("big/file", 3), ("middle/a", 1), ("middle/b", 1), (".hidden", 1.5),
                           ("small", 0.1)):
            self.root.write(f"{TREE}/{name}", b"x" * int(size * MEGABYTE))
        os.link(self.root.host_path(f"{TREE}/big/file"), self.root.host_path("/srv/outside"))
        self.addCleanup(os.unlink, self.root.host_path("/srv/outside"))
        os.sync()

    def tmux(self, *words):
        return subprocess.run(["tmux", "-L", self.socket, "-f", "/dev/null", *words], check=False,
                              capture_output=True, text=True).stdout

    def start(self, user=ROOT, path=TREE, columns=80, rows=24):
        """In a shell that tells how the terminal was before and after."""
        script = (f"stty -g >/run/before; keepwell browse {path}; echo status $?; "
                  "stty -g >/run/after; echo over; cat")
        argv = self.root.command(["env", "-i", *(f"{key}={value}" for key, value in
                                                 self.root.environment().items()),
                                  "TERM=screen", "PATH=/usr/local/bin:/usr/bin:/bin:/sbin",
                                  "sh", "-c", script])
        if user != ROOT:
            argv[argv.index("sh"):] = self.root.as_user(user, ["keepwell", "browse", path])
        self.tmux("new-session", "-d", "-x", str(columns), "-y", str(rows), *argv)
        self.addCleanup(self.tmux, "kill-server")
        self.wait_for(f"{path} ")

    def screen(self):
        return self.tmux("capture-pane", "-p")

    def wait_for(self, text, gone=False):
        try:
            wait_until(lambda: (text in self.screen()) != gone)
        except TimeoutError:
            self.fail(f"{text!r} {'stays' if gone else 'does not come'}:\n{self.screen()}")

    def keys(self, *keys):
        self.tmux("send-keys", *keys)

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
        self.wait_for("x shred  q")
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
        self.wait_for("\u2191\u2193\u2190\u2192 go")
        self.assertLessEqual(max(map(len, self.screen().splitlines())), 50)
        self.keys("End")
        self.tmux("resize-window", "-x", "100", "-y", "30")
        wait_until(lambda: len(self.screen().splitlines()) == 30)
        self.wait_for("x shred  q")

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
        self.start()
        found = subprocess.run(["pgrep", "-f", f"^keepwell browse {TREE}"], check=True,
                               capture_output=True, text=True).stdout.split()
        os.kill(int(found[0]), signal.SIGTERM)
        self.wait_for("status 143\nover")
        self.assert_terminal_as_before()

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
