"""Requests in small scenes of their own: the state before, the request, and
whether the state afterwards agrees with the answer."""
import errno
import os
import plistlib
import struct

from . import trees
from .rawbus import BusError
from .root import DATA

NEAR, FAR = "/tmp", "/run/far"
CONF = "/etc/launchd.conf"
DATABASE = "/private/var/db/launchd.db/com.apple.launchd.peruser.0/overrides.plist"
ANYBODY = 0xffffffff  # an entry of an access list without a user
READING = {"stat", "open", "fstat", "read"}
# The errors of a lack of descriptors, memory or processes, and the calls that tell
# the agent of one.
LACKS = {errno.EMFILE, errno.ENFILE, errno.ENOMEM, errno.EAGAIN}
LACKING = {"open", "fstat", "statx", "pipe2", "posix_spawn", "spawn_actions"}


class Scene:
    """One request. The flag of its answer is None without an answer."""
    member = ""
    arguments = ()
    signature = None  # of the arguments, if they are not just texts
    usual = True  # the answer when nothing fails
    lack = False  # whether the agent lacks a resource that the work needs

    def __init__(self, root):
        self.root = root

    def host(self, path):
        return self.root.host_path(path)

    def prepare(self):
        """Sets the state before the request, from any other state."""

    def prepare_again(self):
        """The same, but leaves hidden leftovers in place."""
        self.prepare()

    def ask(self, client):
        try:
            flag = self.answer(client)
        except BusError as error:
            # The answer for a tool that cannot be started, and for a lack.
            if error.name != "org.freedesktop.DBus.Error.Failed":
                raise
            flag = False
        # Some members answer before they are done; this call returns after
        # them.
        client.call("Echo", "s", "done")
        return flag

    def answer(self, client):
        signature = self.signature or "s" * len(self.arguments)
        return client.call(self.member, signature, *self.arguments)[0]

    def complaint(self, flag, failed=None):
        """A text about the fault, if any. Failed is the name of the call that
        did."""
        raise NotImplementedError

    def leftovers(self):
        """The leftovers that the next request of the same kind must clear away."""
        return []


def hidden(folder):
    return [name for name in os.listdir(folder) if name.startswith(".keepwell")]


class TreeScene(Scene):
    """A small tree with an item of each kind."""
    place = NEAR

    def __init__(self, root):
        super().__init__(root)
        self.item = f"{self.place}/item"
        self.arguments = (self.item,)

    def prepare(self):
        item = self.host(self.item)
        trees.clear(item)
        os.makedirs(f"{item}/a/b")
        for name in ("one", "a/two", "a/b/three"):
            with open(f"{item}/{name}", "wb") as file:
                file.write(b"content" * 1000)
        os.symlink("/tmp/outside", f"{item}/link")
        os.mkfifo(f"{item}/a/fifo")
        os.link(f"{item}/one", f"{item}/a/again")
        self.furnish(item)
        self.before = trees.Portrait(item)

    def furnish(self, item):
        pass

    def state(self, path):
        host = self.host(path)
        if not os.path.lexists(host):
            return "gone"
        return "whole" if trees.Portrait(host) == self.before else "part"


class Exists(TreeScene):
    member = "FileExistsAtPath"

    def complaint(self, flag, failed=None):
        return "" if flag or failed in READING else "not found"


class Size(TreeScene):
    member = "SizeOfItemAtPath"

    @property
    def usual(self):
        return self.before.blocks * 512

    def complaint(self, flag, failed=None):
        is_part = failed and failed not in OF_THE_BUS and 0 <= flag < self.usual
        return "" if flag == self.usual or is_part else f"{flag} for {self.usual}"


class Removal(TreeScene):
    member = "RemoveItemAtPath"

    def complaint(self, flag, failed=None):
        state = self.state(self.item)
        return "" if flag == (state == "gone") else f"{flag}, but {state}"


class LockedRemoval(Removal):
    def furnish(self, item):
        for path in ("a/b/three", "a/b", "one"):
            trees.set_flags(f"{item}/{path}", trees.IMMUTABLE)


class SharedRemoval(Removal):
    """A removal in which several threads take part."""

    def furnish(self, item):
        for number in range(30):
            os.makedirs(f"{item}/{number}/x/y")


class Shredding(Removal):
    member = "SecurelyRemoveItemAtPath"

    def furnish(self, item):
        self.witness = self.host(f"{self.place}/witness")
        if os.path.lexists(self.witness):
            os.unlink(self.witness)
        os.link(f"{item}/a/b/three", self.witness)

    def complaint(self, flag, failed=None):
        with open(self.witness, "rb") as file:
            is_legible = b"content" in file.read()
        if is_legible and not os.path.lexists(self.host(f"{self.item}/a/b/three")):
            return "unlinked, but not overwritten"
        return super().complaint(flag, failed)


class Truncation(TreeScene):
    member = "TruncateFileAtPath"

    def __init__(self, root):
        super().__init__(root)
        self.arguments = (f"{self.item}/one",)

    def complaint(self, flag, failed=None):
        size = os.stat(self.host(self.arguments[0])).st_size
        # Every failure after the cut makes the answer a no.
        return "" if size == 0 or (not flag and size == 7000) else f"{flag}, but {size} bytes"


class Move(TreeScene):
    member = "MoveItemAtPath"
    target = f"{NEAR}/to/deep/item"

    def __init__(self, root):
        super().__init__(root)
        self.arguments = (self.item, self.target)

    def prepare(self):
        trees.clear(self.host(os.path.dirname(os.path.dirname(self.target))))
        super().prepare()

    def states(self):
        return self.state(self.item), self.state(self.target)

    def complaint(self, flag, failed=None):
        states = self.states()
        return "" if states == (("gone", "whole") if flag else ("whole", "gone")) \
            else f"{flag}, but {states}"


class MoveAcross(Move):
    """Whole at one of the two places at any time, and never a part at the new one."""
    target = f"{FAR}/to/item"

    def prepare(self):
        super().prepare()
        os.makedirs(self.host(os.path.dirname(self.target)))

    def prepare_again(self):
        trees.clear(self.host(self.target))
        TreeScene.prepare(self)

    def leftovers(self):
        return hidden(self.host(os.path.dirname(self.target)))

    def complaint(self, flag, failed=None):
        source, target = self.states()
        if flag:
            good = (source, target) == ("gone", "whole")
        elif flag is None and source == "gone":
            good = target == "whole"
        else:
            good = target == "whole" or (source, target) == ("whole", "gone")
        return "" if good else f"{flag}, but {source} and {target}"


class MoveFileAcross(MoveAcross):
    def prepare(self):
        super().prepare()
        self.make_file()

    def make_file(self):
        trees.clear(self.host(self.item))
        with open(self.host(self.item), "wb") as file:
            file.write(b"content" * 100_000)
        self.before = trees.Portrait(self.host(self.item))

    def prepare_again(self):
        trees.clear(self.host(self.target))
        self.make_file()


class MoveLabelledAcross(MoveFileAcross):
    """With an extended attribute, to a folder that gives access lists to all that
    is made in it."""
    note, access = "trusted.keepwell-note", "system.posix_acl_access"
    # Version, then tag, rights and user of each: the owner, user 12345, the
    # group, the most for these two, others.
    letting_in = struct.pack("<I" + 5 * "HHI", 2, 1, 7, ANYBODY, 2, 7, 12345, 4, 5, ANYBODY,
                             16, 7, ANYBODY, 32, 5, ANYBODY)

    def prepare(self):
        super().prepare()
        os.setxattr(self.host(os.path.dirname(self.target)), "system.posix_acl_default",
                    self.letting_in)

    def make_file(self):
        super().make_file()
        os.setxattr(self.host(self.item), self.note, b"kept")

    def complaint(self, flag, failed=None):
        if self.state(self.target) == "whole":
            names = os.listxattr(self.host(self.target))
            # A volume without attributes keeps none.
            if self.note not in names and failed not in ("listxattr", "setxattr"):
                return f"{names} after {failed}"
            if self.access in names and failed != "listxattr":
                return f"an access list after {failed}"
        return super().complaint(flag, failed)


class Trash(TreeScene):
    member = "MoveToTrashItemAtPath"
    place = DATA
    usual = False  # the flag tells of a failure
    trash = "/root/.local/share/Trash"

    def prepare(self):
        trees.clear(self.host(f"{self.trash}/files/item"))
        trees.clear(self.host(f"{self.trash}/info/item.trashinfo"))
        super().prepare()

    def complaint(self, flag, failed=None):
        states = self.state(self.item), self.state(f"{self.trash}/files/item")
        return "" if states == (("whole", "gone") if flag else ("gone", "whole")) \
            else f"{flag}, but {states}"


class Edit(Scene):
    """A file that holds the old or the new content at any time."""
    path = ""
    old = b""
    new = b""

    def prepare(self):
        self.root.write(self.path, self.old, 0o640)

    def content(self, path=None):
        path = self.host(path or self.path)
        if not os.path.lexists(path):
            return None
        with open(path, "rb") as file:
            return file.read()

    def leftovers(self):
        return hidden(os.path.dirname(self.host(self.path)))


class Overrides(Edit):
    member = "RemoveSMLoginItem"
    arguments = ("org.example.goes",)
    path = DATABASE
    keep = {f"org.example.{number}": {"Disabled": True} for number in range(500)}
    old = plistlib.dumps({**keep, "org.example.goes": {"Disabled": True}})
    new = plistlib.dumps(keep)

    def complaint(self, flag, failed=None):
        content = self.content()
        # In a database that cannot be read there is nothing to remove.
        expected = {True: [self.new, *([self.old] if failed in READING else [])],
                    False: [self.old], None: [self.old, self.new]}
        return "" if content in expected[flag] else f"{flag}, but {content!r:.60}"


class Configuration(Edit):
    member = "RemoveLibraryFromLauchdConf"
    arguments = ("/x",)
    path = CONF
    backup = CONF + ".prev"
    older = b"an older one\n"
    old = b"setenv DYLD_INSERT_LIBRARIES /a:/x\n" + b"umask 022\n" * 5000
    new = b'setenv DYLD_INSERT_LIBRARIES "/a"\n' + b"umask 022\n" * 5000

    def prepare(self):
        super().prepare()
        self.root.write(self.backup, self.older)

    def complaint(self, flag, failed=None):
        content, backup = self.content(), self.content(self.backup)
        if backup not in (None, self.older, self.old):
            return f"a backup of {backup!r:.60}"
        # An unreadable file counts as empty; the backup then has its content.
        if content == b"" and failed in READING and backup == self.old:
            return ""
        good = content in ({True: [self.new], False: [self.old],
                            None: [self.old, self.new]}[flag])
        # When the file seems to be missing, the answer comes before the edit.
        if not good and flag and failed == "stat":
            good = content == self.old
        return "" if good else f"{flag}, but {content!r:.60}, backup {backup!r:.60}"


ALL = (Exists, Size, Removal, LockedRemoval, SharedRemoval, Shredding, Truncation, Move,
       MoveAcross, MoveFileAcross, MoveLabelledAcross, Trash, Overrides, Configuration)
ATOMIC = (MoveAcross, MoveFileAcross, Overrides, Configuration)

# The errors of each call on a host that is in trouble. Errors that mean that
# another process was faster are left out: they would not be true here.
_FILE, _CHANGE = [errno.EIO, errno.ENOMEM], [errno.EIO, errno.ENOSPC, errno.EROFS]
HALF, KILL = -1, -2
PLAUSIBLE = {
    "open": [errno.EMFILE, errno.EIO, errno.EACCES], "openat": [errno.EMFILE, errno.EIO,
                                                                errno.ENOSPC],
    "opendir": [errno.EMFILE, errno.EIO], "dup": [errno.EMFILE], "pipe2": [errno.EMFILE],
    "stat": _FILE, "lstat": _FILE, "fstat": _FILE, "fstatat": _FILE, "statx": _FILE,
    "fstatvfs": _FILE, "access": _FILE, "faccessat": _FILE, "readdir": [errno.EIO],
    "close": [errno.EIO, errno.EINTR],
    "getdents64": [errno.EIO], "readlink": [errno.EIO], "readlinkat": [errno.EIO],
    "realpath": _FILE, "lseek": [errno.EIO],
    "unlink": [errno.EIO, errno.EROFS], "unlinkat": [errno.EIO, errno.EBUSY, errno.EPERM],
    "rmdir": [errno.EIO], "mkdir": _CHANGE, "mkdirat": _CHANGE, "mknodat": _CHANGE,
    "symlinkat": _CHANGE, "linkat": [errno.EIO, errno.EMLINK, errno.EPERM],
    "rename": _CHANGE, "renameat": _CHANGE,
    "renameat2": [errno.EIO, errno.ENOSPC, errno.EXDEV, errno.EINVAL],
    "fchmod": [errno.EIO, errno.EPERM], "chmod": [errno.EIO], "fchown": [errno.EIO, errno.EPERM],
    "fchownat": [errno.EIO, errno.EPERM], "utimensat": [errno.EIO],
    "listxattr": [errno.EIO, errno.ENOTSUP], "llistxattr": [errno.EIO],
    "getxattr": [errno.EIO],
    "setxattr": [errno.ENOSPC, errno.ENOTSUP], "removexattr": [errno.EIO],
    "read": [errno.EIO, errno.EINTR, HALF], "pread": [errno.EIO, errno.EINTR, HALF],
    "pread64": [errno.EIO, errno.EINTR, HALF],
    "read-pipe": [errno.EINTR, HALF], "write-pipe": [errno.EINTR, HALF],
    "write": [errno.ENOSPC, errno.EIO, errno.EINTR, HALF],
    "pwrite": [errno.ENOSPC, errno.EIO, errno.EINTR, HALF],
    "pwrite64": [errno.ENOSPC, errno.EIO, errno.EINTR, HALF],
    "copy_file_range": [errno.ENOSPC, errno.EIO, errno.EINTR, errno.EXDEV, HALF],
    "fallocate": [errno.ENOSPC, errno.EOPNOTSUPP],
    "ftruncate": [errno.EIO, errno.EINTR, errno.ENOSPC],
    "fsync": [errno.EIO, errno.ENOSPC], "fdatasync": [errno.EIO, errno.ENOSPC],
    "syncfs": [errno.EIO, errno.ENOSPC], "flock": [errno.ENOLCK, errno.EWOULDBLOCK],
    "ioctl": [errno.EIO, errno.ENOTTY, errno.EPERM], "getrandom": [errno.EINTR, errno.ENOSYS],
    "getentropy": [errno.EIO, errno.ENOSYS],
    "posix_spawn": [errno.EAGAIN, errno.ENOMEM, errno.ENOENT], "spawn_actions": [errno.ENOMEM],
    "pidfd_open": [errno.EMFILE, errno.ENOSYS], "waitpid": [errno.EINTR],
    "poll": [errno.EINTR], "nanosleep": [errno.EINTR], "sched_affinity": [errno.EINVAL],
    "pthread_create": [errno.EAGAIN],
    "sendmsg": [errno.EAGAIN, errno.EINTR, HALF],
    "recvmsg": [errno.EAGAIN, errno.EINTR, HALF],
}
# The calls of the thread of the bus, whose number varies.
OF_THE_BUS = {"poll", "sendmsg", "recvmsg"}


def places(calls):
    """The name of each call and its number among those of that name."""
    seen = {}
    for name in calls:
        seen[name] = seen.get(name, 0) + 1
        yield name, seen[name]
