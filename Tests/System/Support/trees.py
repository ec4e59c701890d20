"""Hostile trees, a look at any tree that needs no path, and a folder outside to
be compared afterwards."""
import ctypes
import errno
import fcntl
import os
import socket
import stat
import struct
import subprocess

from . import harness, processes
from .machine import mount

IMMUTABLE, APPEND = 0x10, 0x20
_DETACH = 2
_GET_FLAGS, _SET_FLAGS = 0x80086601, 0x40086602
_LIBRARY = ctypes.CDLL(None, use_errno=True)


# Flags and mounts.
def flags_of(path):
    """The inode flags, 0 where the volume or the item has none."""
    try:
        item = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK)
    except OSError:
        return 0
    try:
        return struct.unpack("l", fcntl.ioctl(item, _GET_FLAGS, bytes(8)))[0]
    except OSError:
        return 0
    finally:
        os.close(item)


def set_flags(path, flags):
    """Locks an item, or unlocks it; the volume's own flags stay unchanged."""
    item = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK)
    try:
        change_flags(item, flags)
    finally:
        os.close(item)


def change_flags(item, flags):
    """The same for an item that is open."""
    former, = struct.unpack("l", fcntl.ioctl(item, _GET_FLAGS, bytes(8)))
    wanted = (former & ~(IMMUTABLE | APPEND)) | flags
    fcntl.ioctl(item, _SET_FLAGS, struct.pack("l", wanted))


def require_flags(item):
    """Skips a test that needs locked items if the volume has none."""
    try:
        set_flags(item, 0)
    except OSError as error:
        if error.errno not in (errno.ENOTTY, errno.EOPNOTSUPP, errno.EPERM):
            raise
        harness.skip(f"no immutable flags on the volume of {item}: {error.strerror}")


def inotify(path, events):
    """A descriptor that can be read once one of the events has occurred."""
    watch = _LIBRARY.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
    if _LIBRARY.inotify_add_watch(watch, os.fsencode(path), events) < 0:
        raise OSError(ctypes.get_errno(), path)
    return watch


def mount_within(folder):
    """Mounts a volume in an open folder to which no path may lead, and returns it
    open, for unmount()."""
    os.mkdir("mount", dir_fd=folder)
    place = os.open("mount", os.O_RDONLY, dir_fd=folder)
    made = _LIBRARY.mount(b"tmpfs", f"/proc/self/fd/{place}".encode(), b"tmpfs", 0, None)
    os.close(place)
    if made != 0:
        raise OSError(ctypes.get_errno(), "mount")
    return os.open("mount", os.O_RDONLY, dir_fd=folder)


def unmount(volume):
    if _LIBRARY.umount2(f"/proc/self/fd/{volume}".encode(), _DETACH) != 0:
        raise OSError(ctypes.get_errno(), "umount")
    os.close(volume)


def unmount_below(path):
    """Unmounts all volumes in the tree, the latest first."""
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as file:
        points = [line.split()[4] for line in file]
    for point in reversed(points):
        if point.startswith(path + "/") or point == path:
            subprocess.run(["umount", "--lazy", point], check=False, capture_output=True)


# Looking at a tree of any depth, by descriptors alone.
class Portrait:
    """The contents of a tree. Two portraits are equal when names, kinds, modes,
    sizes and times are the same throughout."""

    def __init__(self, path, needle="needle"):
        self.entries = 0
        self.blocks = 0  # of 512 bytes, folders twice
        self.found = 0
        self._needle = needle.encode()
        self._digest = 0
        name = os.fsencode(path)
        self._note(os.lstat(name), b"", 0)
        if stat.S_ISDIR(os.lstat(name).st_mode):
            self._visit(os.open(name, os.O_RDONLY))

    def __eq__(self, other):
        return (self.entries, self._digest) == (other.entries, other._digest)

    def _note(self, status, name, above):
        is_folder = stat.S_ISDIR(status.st_mode)
        self.entries += 1
        self.blocks += status.st_blocks * (2 if is_folder else 1)
        self.found += self._needle in name
        mine = hash((above, name, status.st_mode, status.st_mtime_ns, status.st_rdev,
                     0 if is_folder else status.st_size))
        self._digest ^= mine
        return mine

    def _visit(self, folder):
        status = os.fstat(folder)
        ancestors = [(status.st_dev, status.st_ino)]
        levels = [self._read(folder, 0, ancestors)]
        while levels:
            if levels[-1]:
                name, mine = levels[-1].pop()
                folder = self._step(folder, name)
                status = os.fstat(folder)
                ancestors.append((status.st_dev, status.st_ino))
                levels.append(self._read(folder, mine, ancestors))
            else:
                levels.pop()
                ancestors.pop()
                folder = self._step(folder, "..") if levels else folder
        os.close(folder)

    @staticmethod
    def _step(folder, name):
        other = os.open(name, os.O_RDONLY | os.O_NOFOLLOW, dir_fd=folder)
        os.close(folder)
        return other

    def _read(self, folder, above, ancestors):
        """Records the contents of the folder, and returns its subfolders to be
        visited. A folder that is its own ancestor does not belong to the tree."""
        subfolders = []
        for name in map(os.fsencode, os.listdir(folder)):
            status = os.stat(name, dir_fd=folder, follow_symlinks=False)
            is_folder = stat.S_ISDIR(status.st_mode)
            if is_folder and (status.st_dev, status.st_ino) in ancestors[:100]:
                continue
            mine = self._note(status, name, above)
            if is_folder:
                subfolders.append((name, mine))
        return subfolders


class Canaries:
    """A folder outside with items of every kind, locked ones included."""

    def __init__(self, folder):
        self._folder = folder
        os.makedirs(f"{folder}/inner/deeper")
        require_flags(folder)
        for number, name in enumerate(("one", "inner/two", "inner/deeper/three")):
            path = f"{folder}/{name}"
            with open(path, "w", encoding="utf-8") as file:
                file.write(f"kept {number}\n" * 100)
            os.chmod(path, (0o640, 0o4755, 0)[number])
            os.utime(path, ns=(10**18, 10**18 + number))
        for name in ("locked", "inner/locked"):
            with open(f"{folder}/{name}", "w", encoding="utf-8") as file:
                file.write("kept and locked\n")
            set_flags(f"{folder}/{name}", IMMUTABLE)
        os.mkfifo(f"{folder}/inner/fifo")
        os.symlink("two", f"{folder}/inner/link")
        self._before = self._look()

    def damage(self):
        """The changes since; an empty list without any."""
        now = self._look()
        return [f"{path}: {self._before.get(path)} is {now.get(path)}"
                for path in sorted(set(now) | set(self._before))
                if now.get(path) != self._before.get(path)]

    def _look(self):
        found = {}
        for folder, folders, files in os.walk(self._folder):
            for path in [folder] + [f"{folder}/{name}" for name in files + folders]:
                status = os.lstat(path)
                content = b""
                if stat.S_ISREG(status.st_mode):
                    with open(path, "rb") as file:
                        content = file.read()
                found[path] = (status.st_ino, oct(status.st_mode), status.st_uid, status.st_gid,
                               status.st_nlink, status.st_size, status.st_mtime_ns,
                               status.st_ctime_ns, flags_of(path), content)
        return found

    def unlock(self):
        for name in ("locked", "inner/locked"):
            set_flags(f"{self._folder}/{name}", 0)


class Attack:
    """A process in the root that works against the agent during the block.
    Links lead it to the same places as the agent."""

    def __init__(self, root, *arguments):
        self._root = root
        self._arguments = arguments
        self.steps = 0  # how many succeeded, afterwards

    def __enter__(self):
        program = os.path.join(harness.build_folder, "Tests", "kw_test_attacker")
        self._process = self._root.popen([program, *self._arguments], stdout=subprocess.PIPE)
        if self._process.stdout.readline() != b"ready\n":
            raise AssertionError("the attacker did not start")
        return self

    def keep_apart(self, pid):
        """Keeps the process with all its threads off one processor and gives
        that to the attacker, so that neither ever waits for the other."""
        processors = sorted(os.sched_getaffinity(0))
        if len(processors) > 1:
            os.sched_setaffinity(self._process.pid, processors[-1:])
            for thread in processes.threads(pid):
                try:
                    os.sched_setaffinity(thread, processors[:-1])
                except ProcessLookupError:
                    pass  # it has ended

    def __exit__(self, *_):
        self._process.terminate()
        self.steps = int(self._process.communicate()[0] or 0)
        if self._process.returncode != 0:
            raise AssertionError(f"the attacker ended with {self._process.returncode}")


def fill_volume(folder):
    """Fills the volume to the last byte."""
    with open(f"{folder}/ballast", "wb", buffering=0) as file:
        for size in (1 << 16, 1 << 12, 1):
            try:
                while True:
                    file.write(b"x" * size)
            except OSError:
                pass


# The makers. Each gets the path of a folder that does not exist yet.
def _file(path, content=b"content"):
    with open(path, "wb") as file:
        file.write(content)


def _common(item):
    """The items of every tree: links that lead outside, and one to find."""
    os.mkdir(item)
    _file(f"{item}/needle.txt")
    os.symlink("/tmp/outside", f"{item}/link-folder")
    os.symlink("/tmp/outside/one", f"{item}/link-file")
    os.symlink("../outside/inner", f"{item}/link-relative")


def deep(item, levels=40_000, name=b"d", finish=None):
    _common(item)
    here = os.open(item, os.O_RDONLY)
    for _ in range(levels):
        os.mkdir(name, dir_fd=here)
        below = os.open(name, os.O_RDONLY, dir_fd=here)
        os.close(here)
        here = below
    os.symlink("/tmp/outside", "link-folder", dir_fd=here)
    os.close(os.open("needle", os.O_WRONLY | os.O_CREAT, dir_fd=here))
    if finish:
        finish(here)
    os.close(here)


def long_names(item):
    deep(item, 100, b"n" * 255)


def wide(item, folders=65_536):
    _common(item)
    here = os.open(item, os.O_RDONLY)
    for number in range(folders):
        os.mkdir(f"{number}", dir_fd=here)
    os.close(here)


def many(item, entries):
    _common(item)
    for folder in range(10):
        os.mkdir(f"{item}/{folder}")
        here = os.open(f"{item}/{folder}", os.O_RDONLY)
        for number in range(entries // 10):
            os.mknod(f"{number}", dir_fd=here)
        os.close(here)


def odd_names(item):
    _common(item)
    names = [bytes([code]) for code in range(1, 256) if code not in b"/."]
    names += [b"...", b" ", b"-rf", b"--", b"a\nb", b"\r\n", b"*", b"$(reboot)", b"`id`", b"%s%n",
              b"\xc3\x28", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xff" * 255, b"\xe2\x80\xae",
              "e\u0301".encode(), "\u00e9".encode(), b"needle\n\xff"]
    names = list(dict.fromkeys(names))
    for name in names:
        folder = os.fsencode(item) + b"/" + name
        os.mkdir(folder)
        for inner in names[::30]:
            os.mknod(folder + b"/" + inner)


def no_access(item):
    _common(item)
    os.makedirs(f"{item}/a/b/c")
    for path in ("needle.txt", "a/b/c/file", "a/file"):
        _file(f"{item}/{path}")
        os.chmod(f"{item}/{path}", 0)
    for path in ("a/b/c", "a/b", "a", "."):
        os.chmod(f"{item}/{path}", 0)


def immutable(item):
    _common(item)
    paths = []
    for folder in range(6):
        os.makedirs(f"{item}/{folder}/inner/deeper")
        for path in ("file", "inner/file", "inner/deeper/file"):
            _file(f"{item}/{folder}/{path}")
        paths += [f"{item}/{folder}/{name}"
                  for name in ("file", "inner/deeper/file", "inner/deeper", "inner", "")]
    for path in [*paths, f"{item}/needle.txt", item]:
        set_flags(path, IMMUTABLE)


def append_only(item):
    _common(item)
    os.makedirs(f"{item}/a/inner")
    _file(f"{item}/a/inner/log", b"kept")
    set_flags(f"{item}/a/inner/log", APPEND)


def special_files(item):
    _common(item)
    os.mkfifo(f"{item}/fifo")
    os.mknod(f"{item}/null", 0o666 | stat.S_IFCHR, os.makedev(1, 3))
    os.mknod(f"{item}/full", 0o666 | stat.S_IFCHR, os.makedev(1, 7))
    os.mknod(f"{item}/console", 0o600 | stat.S_IFCHR, os.makedev(5, 1))
    os.mknod(f"{item}/nowhere", 0o600 | stat.S_IFBLK, os.makedev(254, 999))
    here = os.open(item, os.O_RDONLY)
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(f"/proc/self/fd/{here}/socket")
    os.close(here)


def sparse(item):
    _common(item)
    with open(f"{item}/sparse", "wb") as file:
        file.truncate(8 << 30)
        file.seek(5 << 30)
        file.write(b"island" * 1000)


def link_chain(item):
    _common(item)
    for number in range(400):
        os.symlink(f"link{number + 1}", f"{item}/link{number}")
    os.symlink("/tmp/outside/inner", f"{item}/link400")
    os.symlink("loop", f"{item}/loop")


def mount_inside(item):
    _common(item)
    os.makedirs(f"{item}/a/mount")
    mount("-t", "tmpfs", "tmpfs", f"{item}/a/mount")
    _file(f"{item}/a/mount/kept", b"kept")


def mount_cycle(item):
    _common(item)
    os.makedirs(f"{item}/a/b/c")
    _file(f"{item}/a/b/file")
    mount("--bind", item, f"{item}/a/b/c")
    mount("--rbind", item, f"{item}/a/b/c/a/b")


def full_volume(item):
    os.mkdir(item)
    mount("-t", "tmpfs", "-o", "size=1m", "tmpfs", item)
    _common(f"{item}/item")
    _file(f"{item}/item/data", b"data" * 1000)
    fill_volume(item)


def read_only_volume(item):
    os.mkdir(item)
    mount("-t", "tmpfs", "tmpfs", item)
    _common(f"{item}/item")
    _file(f"{item}/item/data", b"data")
    mount("-o", "remount,ro", item)


# The size of the folders below lies between these, at any moment.
_BUSY_FOLDERS, _BUSY_FILES, _WANDERER_FOLDERS = 8, 50, 20
BUSY_LEAST = _BUSY_FOLDERS * _BUSY_FILES * 4096
BUSY_MOST = 2 * BUSY_LEAST


def busy_folders(item):
    """Folders for an attacker to work in."""
    _common(item)
    for folder in range(_BUSY_FOLDERS):
        os.makedirs(f"{item}/{folder}/wanderer-home/wanderer" if folder == 0
                    else f"{item}/{folder}/wanderer-home")
        for number in range(_BUSY_FILES):
            _file(f"{item}/{folder}/{number}")
    wanderer = f"{item}/0/wanderer-home/wanderer"
    for number in range(_WANDERER_FOLDERS):
        os.makedirs(f"{wanderer}/{number}/x/y")
        _file(f"{wanderer}/{number}/x/file")


def busy_missing(item):
    """The missing files among those that only the agent touches."""
    paths = [f"{folder}/{number}" for folder in range(_BUSY_FOLDERS)
             for number in range(_BUSY_FILES)]
    return [path for path in ["needle.txt", *paths] if not os.path.exists(f"{item}/{path}")]


def busy_lost(*places):
    """The files that only the agent removes and that are in none of the places;
    those of the wanderer may be anywhere in these."""
    wanted = {f"{folder}/{number}" for folder in range(_BUSY_FOLDERS)
              for number in range(_BUSY_FILES)}
    wanted |= {"needle.txt"} | {f"wanderer/{number}/x/file" for number in range(_WANDERER_FOLDERS)}
    for place in places:
        for folder, _, files in os.walk(place):
            inside = folder[len(place) + 1:]
            wanderer = inside.find("wanderer/")
            inside = inside[wanderer:] if wanderer >= 0 else inside
            wanted -= {os.path.join(inside, name) for name in files}
    return sorted(wanted)


def homes(item):
    """The folders for the attacks churn and shuffle."""
    return [f"{item}/{folder}/wanderer-home" for folder in range(_BUSY_FOLDERS)]


def clear(item):
    """Removes it, with its mounts and flags."""
    if not os.path.lexists(item):
        return
    unmount_below(item)
    remove = ["rm", "-rf", item]
    if subprocess.run(remove, check=False, capture_output=True).returncode != 0:
        subprocess.run(["chattr", "-R", "-f", "-ia", item], check=False, capture_output=True)
        subprocess.run(remove, check=True)
