"""Trees to be removed, shredded, unlocked or moved while an attacker exchanges
their folders and files for others, and a watch over everything outside."""
import os
import shutil
import stat
import struct

from . import baits, trees
from .baits import BERTH, BESIDE, FRESH, HARBOUR, ITEM, LEFT, LEVELS, OUTSIDE

_FILES = ("one", "two", "three", "locked")
# One more branch is deeper than the number of folders that a walk keeps open,
# so that walks have to find their way back. The folder below its top and the
# one in the harbour change places.
_LONG_WAY = 9


def strangers(item):
    """The files of a tree that are not the bait's own."""
    found = []
    for folder, _, files in os.walk(item) if not os.path.islink(item) else ():
        for path in (f"{folder}/{name}" for name in files):
            if stat.S_ISREG(os.lstat(path).st_mode):
                with open(path, "rb") as file:
                    found += [path] if file.read() != b"victim" else []
    return found


def remove(path):
    """Removes any item at the path, if there is one and no process exchanges
    its contents."""
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)


def _write(path):
    with open(path, "wb") as file:
        file.write(b"victim")


def _make_long_way(folder):
    for _ in range(_LONG_WAY):
        os.mkdir(folder)
        _write(f"{folder}/file")
        folder += "/d"


class Outside:
    """A folder to which no request leads. It must stay unchanged, and no
    process may even open it."""
    _OPENED = 0x20

    def __init__(self, root):
        folders = [root.host_path(path)
                   for path in (OUTSIDE, f"{HARBOUR}/before", f"{HARBOUR}/after")]
        # The harbour's folder, which comes and goes, is between the two in the
        # listing.
        os.mkdir(root.host_path(HARBOUR))
        self._canaries = [trees.Canaries(folder) for folder in folders]
        watched = [folder for top in folders for folder, _, _ in os.walk(top)]
        self._watches = [(folder, trees.inotify(folder, self._OPENED)) for folder in watched]

    def damage(self):
        """The openings and changes since; call it once."""
        found = []
        for folder, watch in self._watches:
            try:
                found += [f"{folder}: opened {name}" for name in _names(os.read(watch, 1 << 16))]
            except BlockingIOError:
                pass
            os.close(watch)
        for canaries in self._canaries:
            found += canaries.damage()
        return found

    def unlock(self):
        for canaries in self._canaries:
            canaries.unlock()


def _names(events):
    """The names of the items of the events."""
    names = set()
    while events:
        length, = struct.unpack_from("I", events, 12)
        names.add(events[16:16 + length].rstrip(b"\0").decode(errors="replace") or "itself")
        events = events[16 + length:]
    return names


class Bait:
    """An item at one path, made again and again. One with a stop holds a file
    that ends its removal or its move there, as the first or the last item of
    the walk: it is whole afterwards, and many requests work on it. Some turns
    still use one without a stop. All locked items in it can be unlocked, but
    for some."""
    _LASTING = 4  # turns, the first without a stop

    def __init__(self, root, stop=None, locked=False):
        self._host = root.host_path
        self._stop = stop
        self._locked = locked
        # A single folder beside the stop keeps its place in any order of the
        # volume. Removal by several threads takes several folders.
        self._top = baits.TOPS[bool(stop)]
        self._locks = []
        self._turns = 0

    def pairs(self):
        """All pairs that change places, the upper ones first."""
        return baits.pairs(self._top)

    def ready(self):
        """Prepares the bait for the next turn: a new one, or the one that
        lasted."""
        turn = self._turns % self._LASTING if self._stop else 0
        if turn > 1:
            for item, flags in self._locks:
                trees.change_flags(item, flags)
        else:
            self.clear()
            self._put(with_stop=turn == 1)
        self._turns += 1

    def _put(self, with_stop):
        item = self._host(FRESH)
        os.mkdir(item)
        _write(f"{item}/end-1")
        self._fill(item)
        _write(f"{item}/end-2")
        if with_stop:
            stop = os.listdir(item)[0 if self._stop == "first" else -1]
            self._lock(f"{item}/{stop}", trees.APPEND)
        # For some there is a folder in the harbour, or a link beside the item.
        earlier = self._turns // self._LASTING if self._stop else self._turns
        if with_stop or earlier % 2 == 0:
            _make_long_way(self._host(BERTH))
        if not with_stop and earlier % 4 == 1:
            os.symlink(OUTSIDE, self._host(BESIDE))
        os.rename(item, self._host(ITEM))

    def _fill(self, item):
        # Made first, so that walks that lose their way back have mostly been
        # everywhere else. A position in a listing means the same in this folder
        # as in the harbour.
        back = baits.back(item, self._top)
        os.makedirs(os.path.dirname(back))
        for name in ("before", "after"):
            _write(f"{os.path.dirname(back)}/{name}")
        _make_long_way(back)
        for branch in range(baits.BRANCHES):
            for level, _ in LEVELS:
                folder = f"{item}{self._top}/{branch}{level}"
                os.makedirs(folder)
                for name in _FILES:
                    _write(f"{folder}/{name}")
            if self._locked and branch < 2:
                self._lock(f"{item}{self._top}/{branch}/locked", trees.IMMUTABLE)
                self._lock(f"{item}{self._top}/{branch}/inner/locked", trees.IMMUTABLE)
                self._lock(f"{folder}/three", trees.APPEND)
        for path, target in baits.exchanged(item, self._top):
            os.symlink(target, baits.beside(path))

    def _lock(self, path, flags):
        item = os.open(path, os.O_RDONLY | os.O_NOFOLLOW)
        self._locks.append((item, flags))
        trees.change_flags(item, flags)

    def exists(self):
        """Whether the item exists, at its place or beside it."""
        return any(os.path.lexists(self._host(path)) for path in (ITEM, BESIDE))

    def clear(self):
        """Removes everything, and first takes it out of the attacker's reach."""
        left = self._host(LEFT)
        os.mkdir(left)
        for number, path in enumerate((ITEM, BESIDE, BERTH)):
            try:
                os.rename(self._host(path), f"{left}/{number}")
            except FileNotFoundError:
                pass
        for item, _ in self._locks:
            trees.change_flags(item, 0)
            os.close(item)
        self._locks = []
        try:
            shutil.rmtree(left)
        except OSError:
            # One more exchange was under way within it.
            shutil.rmtree(left)
