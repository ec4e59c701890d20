"""The recording of the command at work: its steps, and its file in the format
asciicast 2, which players of terminal recordings read.

A step ends with a marker. The screen at each marker is the same in each run but
for times."""
import codecs
import json
import os
import re
import stat
import sys
import time

TREE = "/root/backup"  # where there is a Trash
COLUMNS, ROWS = 80, 24
PROMPT = r"(?m)^\$\s*\Z"
# A typed line or the names of keys, and the pattern that the screen then has.
STEPS = [
    ("keepwell", PROMPT),
    (f"keepwell size --children {TREE}", PROMPT),
    (f"rm -r {TREE}/cache", PROMPT),
    (f"keepwell remove {TREE}/cache", r"\[y/N\]\s*\Z"),
    ("y", PROMPT),
    (f"keepwell browse {TREE}", "by size"),
    (["Right"], f"{TREE}/letters "),
    (["Left"], f"{TREE} "),
    (["Space"], "1 marked"),
    (["d"], r"\[y/N\]"),
    (["y", "Enter"], "1 of 1 moved to the Trash"),
    (["q"], PROMPT),
    ("keepwell trash list", PROMPT),
    (f"keepwell trash restore {TREE}/letters", PROMPT),
]


def prepare(root):
    """The tree of the recording, and the terminal for questions."""
    root.empty(TREE)
    if not root.exists("/dev/tty"):
        os.mknod(root.host_path("/dev/tty"), 0o666 | stat.S_IFCHR, os.makedev(5, 0))
    for name, size in (("cache/locked", 150_000), ("cache/pages", 60_000), ("letters/old", 90_000),
                       ("letters/new", 20_000), ("notes", 6)):
        root.write(f"{TREE}/{name}", b"x" * size)
    root.chattr("+i", f"{TREE}/cache/locked", f"{TREE}/cache/pages")
    os.sync()


def same(screen):
    """The screen without its times, and with the complaints of rm in order: rm
    follows the order of the folder, which each volume has of its own."""
    screen = re.sub(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d", "(date and time)", screen)
    screen = re.sub(r"\b\d+\.\d s\b", "(seconds) s", screen)
    screen = re.sub(r"(?:^rm: .*\n?)+",
                    lambda lines: "".join(sorted(lines[0].splitlines(keepends=True))), screen,
                    flags=re.MULTILINE)
    return "\n".join(line.rstrip() for line in screen.rstrip().splitlines())


def perform(terminal, argv, stamps=None):
    """Yields the time after each step of a run on the terminal. With a file of
    stamps it types as a person does, and keeps the output with its times there."""
    terminal.open([*argv, "sh", "-i"], COLUMNS, ROWS)
    terminal.wait_for_match(PROMPT)
    terminal.type("sleep 1; printf '\\033[H\\033[2J'\n")
    if stamps:
        terminal.tmux("pipe-pane", f"{sys.executable} {__file__} >{stamps}")
    terminal.wait_for("sleep 1")
    terminal.wait_until(lambda screen: screen.strip() == "$", "no cleared screen")
    for given, pattern in STEPS:
        give(terminal, given, by_hand=bool(stamps))
        terminal.wait_for_match(pattern)
        settle(terminal)
        if stamps:
            time.sleep(1)
        yield time.monotonic()


def give(terminal, given, by_hand):
    if isinstance(given, list):
        for key in given:
            time.sleep(0.8 if by_hand else 0)
            terminal.keys(key)
        return
    for part in given if by_hand else [given]:
        time.sleep(0.05 if by_hand else 0)
        terminal.type(part)
    terminal.wait_for(given)  # or the prompt before it would seem to be the next
    terminal.keys("Enter")


def settle(terminal):
    """Waits until the screen no longer changes."""
    before = None
    while (now := terminal.screen()) != before:
        before = now
        time.sleep(0.15)


def write(path, stamps, markers):
    """The recording, from the stamped output and the times of the markers."""
    with open(stamps, encoding="utf-8") as file:
        events = [(moment, "o", data) for moment, data in map(json.loads, file)]
    start = events[0][0]
    events += [(moment, "m", str(number)) for number, moment in enumerate(markers, 1)]
    header = {"version": 2, "width": COLUMNS, "height": ROWS, "title": "keepwell",
              "env": {"TERM": "screen", "SHELL": "/bin/sh"}}
    with open(path, "w", encoding="utf-8") as file:
        for line in (header, *([round(moment - start, 3), kind, data]
                               for moment, kind, data in sorted(events))):
            file.write(json.dumps(line, ensure_ascii=False) + "\n")


def read(path):
    """The output up to each marker."""
    with open(path, encoding="utf-8") as file:
        header, *events = map(json.loads, file)
    assert (header["version"], header["width"], header["height"]) == (2, COLUMNS, ROWS)
    pieces, piece, last = [], "", 0
    for moment, kind, data in events:
        assert moment >= last, "times go back"
        last = moment
        if kind == "m":
            pieces.append(piece)
            piece = ""
        else:
            piece += data
    assert not piece, "output after the last marker"
    return pieces


def stamp():
    """Copies the output of a terminal with the time of each piece."""
    decoder = codecs.getincrementaldecoder("utf-8")()
    while piece := os.read(0, 65536):
        text = decoder.decode(piece)
        if text:
            print(json.dumps([time.monotonic(), text]), flush=True)


if __name__ == "__main__":
    stamp()
