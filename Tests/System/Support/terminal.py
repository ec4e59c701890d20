"""A terminal of tmux: a program runs on it, keys go to it, and its screen is
read as text."""
import os
import re
import subprocess

from .bus import wait_until


class Terminal:
    def __init__(self, name="terminal"):
        self._socket = f"keepwell-{name}-{os.getpid()}"

    def tmux(self, *words):
        return subprocess.run(["tmux", "-L", self._socket, "-f", "/dev/null", *words],
                              check=False, capture_output=True, text=True).stdout

    def open(self, argv, columns=80, rows=24):
        self.tmux("new-session", "-d", "-x", str(columns), "-y", str(rows), *argv)

    def close(self):
        """Hangs up. The terminal can be opened again afterwards."""
        self.tmux("kill-server")
        wait_until(lambda: not self.tmux("list-sessions"))

    def screen(self):
        return self.tmux("capture-pane", "-p")

    def keys(self, *keys):
        """By their names in tmux; text that is not the name of a key is typed."""
        self.tmux("send-keys", *keys)

    def type(self, text):
        self.tmux("send-keys", "-l", text)

    def wait_for(self, text, gone=False):
        self.wait_until(lambda screen: (text in screen) != gone,
                        f"{text!r} {'stays' if gone else 'does not come'}")

    def wait_for_match(self, pattern):
        self.wait_until(lambda screen: re.search(pattern, screen), f"{pattern!r} does not come")

    def wait_until(self, condition, complaint):
        try:
            wait_until(lambda: condition(self.screen()))
        except TimeoutError:
            raise AssertionError(f"{complaint}:\n{self.screen()}") from None
