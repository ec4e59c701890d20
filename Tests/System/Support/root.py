"""A throw-away root: the machine's own files below an overlay, except for those
that differ between machines, with the agent and its bus above it. All changes
in it are gone afterwards.

Its /root is on a small ext4 of its own, so that flags, folder sizes and the
Trash are those of a usual disk."""
import itertools
import os
import shlex
import shutil
import stat
import subprocess
import tempfile

from . import harness, machine
from .bus import PrivateBus
from .machine import mount

DATA = "/root/data"  # on ext4, empty at first
_LOG = "/run/keepwell-test/calls"
_SCRATCH = "/run/keepwell-test"


def _open_no_link(path, flags):
    return os.open(path, flags | os.O_NOFOLLOW)


class ThrowAwayRoot(PrivateBus):
    def __init__(self, descriptor_limit=None, size="4G", start=True, in_memory=False,
                 inodes=600_000, lower="/"):
        super().__init__(_SCRATCH, descriptor_limit)
        self._in_memory = in_memory  # the disk too, for trees that wear out a real one
        self._size = size
        self._inodes = inodes
        self._start = start
        self._lower = lower  # the root of the machine; tests make up another one
        self._base = None
        self.root = None

    def __enter__(self):
        # In the test's own /tmp, which disappears at any end of the test.
        self._base = tempfile.mkdtemp(prefix="keepwell-root-", dir="/tmp")
        try:
            self._mount_all()
        except (OSError, subprocess.CalledProcessError) as error:
            text = getattr(error, "stderr", None) or str(error).encode()
            self._unmount()
            harness.skip("no throw-away root here: " + text.decode(errors="replace").strip())
        if self._start:
            self.start_bus()
        return self

    def __exit__(self, *_):
        if self._start:
            self.stop_bus()
        self._unmount()

    def _mount_all(self):
        base = self._base
        disk = f"{base}/disk"
        self.root = f"{base}/root"
        if self._in_memory:
            mount("-t", "tmpfs", "tmpfs", base)
        for folder in (disk, self.root):
            os.mkdir(folder)
        with tempfile.NamedTemporaryFile(dir=base if self._in_memory else "/var/tmp",
                                         prefix="keepwell-disk-") as image:
            image.truncate(int(self._size[:-1]) << 30)
            subprocess.run(["mkfs.ext4", "-q", "-F", "-N", str(self._inodes), "-E",
                            "lazy_itable_init=1", image.name], check=True, capture_output=True)
            mount("-o", "loop", image.name, disk)
        for folder in ("upper", "work", "home"):
            os.mkdir(f"{disk}/{folder}", 0o700 if folder == "home" else 0o755)
        machine.hide(f"{disk}/upper", self._lower.rstrip("/"))
        mount("-t", "overlay", "overlay", "-o",
              f"lowerdir={self._lower},upperdir={disk}/upper,workdir={disk}/work", self.root)
        mount("--bind", f"{disk}/home", f"{self.root}/root")
        mount("-t", "proc", "proc", f"{self.root}/proc")
        self._make_devices()
        mount("-t", "tmpfs", "tmpfs", f"{self.root}/run")
        mount("-t", "tmpfs", "-o", "mode=1777", "tmpfs", f"{self.root}/tmp")
        build = harness.build_folder
        os.makedirs(self.root + build, exist_ok=True)
        mount("--bind", build, self.root + build)
        # A faulty test must not reach the machine.
        mount("-o", "remount,bind,ro", self.root + build)
        counts = f"{build}/counts"  # of Scripts/coverage
        if os.path.isdir(counts):
            mount("--bind", counts, self.root + counts)
        for folder in (DATA, _SCRATCH):
            os.makedirs(self.root + folder)

    def _make_devices(self):
        # Nodes of its own, so that even removing all of them is harmless.
        folder = f"{self.root}/dev"
        mount("-t", "tmpfs", "-o", "mode=755", "tmpfs", folder)
        for name, minor in (("null", 3), ("zero", 5), ("full", 7), ("random", 8), ("urandom", 9)):
            os.mknod(f"{folder}/{name}", 0o666 | stat.S_IFCHR, os.makedev(1, minor))
            os.chmod(f"{folder}/{name}", 0o666)
        os.symlink("/proc/self/fd", f"{folder}/fd")

    def _unmount(self):
        if self.root:
            subprocess.run(["umount", "--lazy", "--recursive", self.root], check=False,
                           capture_output=True)
        subprocess.run(["umount", "--lazy", f"{self._base}/disk"], check=False,
                       capture_output=True)
        # Only mounted folders can hold more than empty folders.
        for name in ("root", "disk"):
            try:
                os.rmdir(f"{self._base}/{name}")
            except OSError:
                pass
        if self._in_memory:
            subprocess.run(["umount", "--lazy", self._base], check=False, capture_output=True)
        try:
            os.rmdir(self._base)
        except OSError:
            pass

    def environment(self):
        return {**super().environment(), "HOME": "/root"}

    def command(self, argv):
        return ["chroot", self.root, *argv]

    def host_path(self, path):
        """The path outside of the root for a path in it."""
        return machine.within(self.root, path)

    # Files of the root.
    def write(self, path, data=b"", mode=0o644):
        host = self.host_path(path)
        os.makedirs(os.path.dirname(host), exist_ok=True)
        if os.path.lexists(host):
            os.unlink(host)  # never through a link
        with open(host, "wb") as file:
            file.write(data.encode() if isinstance(data, str) else data)
            os.fchmod(file.fileno(), mode)
        return path

    def mkdir(self, path):
        os.makedirs(self.host_path(path), exist_ok=True)
        return path

    def symlink(self, target, path):
        os.symlink(target, self.host_path(path))
        return path

    def read(self, path):
        """The content of a file. Follows no link, which would lead out of the
        root."""
        with open(self.host_path(path), "rb", opener=_open_no_link) as file:
            return file.read()

    def exists(self, path):
        """Tells whether any item exists there, a dangling link included."""
        return os.path.lexists(self.host_path(path))

    def listdir(self, path):
        """The names in a folder, which must not be a link to one."""
        folder = _open_no_link(self.host_path(path), os.O_DIRECTORY)
        try:
            return sorted(os.listdir(folder))
        finally:
            os.close(folder)

    def chattr(self, flags, *paths):
        subprocess.run(["chattr", flags, *map(self.host_path, paths)], check=True)

    def empty(self, path=DATA):
        """Puts a fresh folder in place of another, which may hold locked items."""
        host = self.host_path(path)
        subprocess.run(["chattr", "-R", "-f", "-ia", host], check=False, capture_output=True)
        shutil.rmtree(host, ignore_errors=True)
        os.makedirs(host)

    # Tools at the paths where the agent looks for them.
    def stand_in(self, path, stdout="", stderr="", status=0, script=""):
        """Puts a program at the path that records its arguments, runs the lines
        of the shell script, prints the texts and exits with the status."""
        text = ["#!/bin/sh",
                f'printf "%s\\0" "$#" {shlex.quote(path)} "$@" >> {_LOG}']
        if script:
            text.append(script)
        if stdout:
            text.append(f"printf %s {shlex.quote(stdout)}")
        if stderr:
            text.append(f"printf %s {shlex.quote(stderr)} >&2")
        text.append(f"exit {status}")
        return self.write(path, "\n".join(text) + "\n", 0o755)

    def calls(self):
        """Every run of a stand-in so far: its path and its arguments."""
        if not self.exists(_LOG):
            return []
        fields = iter(self.read(_LOG).decode(errors="surrogateescape").split("\0")[:-1])
        return [list(itertools.islice(fields, int(count) + 1)) for count in fields]

    def forget_calls(self):
        if self.exists(_LOG):
            os.unlink(self.host_path(_LOG))
