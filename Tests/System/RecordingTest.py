"""The recording in the documentation: played, it shows the same screens as the
command does now. Scripts/record makes it anew with KEEPWELL_RECORD."""
import os
import pathlib
import re
import tempfile
import unittest

from Support import harness, recording
from Support.systembus import SystemBusRoot
from Support.terminal import Terminal

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
CAST = SOURCE / "Documentation" / "keepwell.cast"
SCREEN_OF_README = re.compile(r"<!-- not run: a screen of the recording -->\n```text\n(.*?)```", re.DOTALL)


class RecordingTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        harness.require_tools("tmux", "useradd", "gpasswd", "systemd-sysusers")
        cls.root = cls.enterClassContext(SystemBusRoot())

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        recording.prepare(self.root)

    def terminal(self, name):
        terminal = Terminal(name)
        self.addCleanup(terminal.close)
        return terminal

    def shell(self):
        return self.root.command([
            "env", "-i", *(f"{key}={value}" for key, value in self.root.environment().items()),
            "TERM=screen", "PS1=$ ", "PATH=/usr/local/bin:/usr/bin:/bin:/sbin"])

    def record(self):
        stamps = f"{self.folder}/stamps"
        markers = list(recording.perform(self.terminal("recorded"), self.shell(), stamps))
        recording.write(CAST, stamps, markers)

    def test_the_recording_shows_the_screens_of_the_command(self):
        if os.environ.get("KEEPWELL_RECORD"):
            self.record()
            recording.prepare(self.root)
        pieces = recording.read(CAST)
        self.assertEqual(len(pieces), len(recording.STEPS))
        fresh, played = self.terminal("fresh"), self.terminal("played")
        pipe = f"{self.folder}/pipe"
        os.mkfifo(pipe)
        played.open(["sh", "-c", f"stty raw -echo; cat '{pipe}'; sleep 600"],
                    recording.COLUMNS, recording.ROWS)
        screens = []
        with open(pipe, "w", encoding="utf-8") as player:
            for piece, _ in zip(pieces, recording.perform(fresh, self.shell())):
                player.write(piece)
                player.flush()
                screens.append(recording.same(fresh.screen()))
                played.wait_until(
                    lambda screen: recording.same(screen) == screens[-1],
                    f"The command shows:\n{screens[-1]}\n\nThe recording shows")
        self.assert_in_readme(screens)

    def assert_in_readme(self, screens):
        """One of the screens, without most of its empty lines."""
        text = SCREEN_OF_README.search((SOURCE / "README.md").read_text(encoding="utf-8"))[1]
        self.assertIn(re.sub(r"\n+", "\n", text.rstrip()),
                      [re.sub(r"\n+", "\n", screen) for screen in screens])


if __name__ == "__main__":
    harness.main()
