"""Hides everything of the machine that differs between machines, so that a test
sees the same on each."""
import glob
import os
import shutil
import stat
import subprocess

from . import baits

# Items at fixed paths that the agent uses, and that only some machines have.
ABSENT = """
/Applications /Library /System /Users /Volumes /private /var/log/asl
/etc/launchd.conf /etc/launchd.conf.prev
/bin/launchctl /sbin/SystemStarter /sbin/kextunload /usr/bin/ditto /usr/bin/killall /usr/bin/log
/usr/bin/mdutil /usr/libexec/repair_packages /usr/sbin/discoveryutil /usr/sbin/dscacheutil
/usr/sbin/periodic /usr/sbin/pkgutil
""".split()
# Keepwell itself, in case it is installed.
_INSTALLED = """
/usr/bin/keepwell* /usr/libexec/keepwell* /usr/include/keepwell* /usr/share/keepwell*
/usr/share/dbus-1/*/org.keepwell.* /etc/dbus-1/*/org.keepwell.* /usr/lib/systemd/system/keepwell*
/usr/lib/sysusers.d/keepwell* /usr/lib/*/libkeepwell* /usr/lib/*/pkgconfig/keepwell*
/usr/lib/*/cmake/Keepwell*
""".split()
# Folders that are there and hold nothing, with their modes.
EMPTY = {"/etc/xdg/autostart": 0o755, "/home": 0o755, "/media": 0o755, "/mnt": 0o755,
          "/opt": 0o755, "/srv": 0o755, "/usr/local": 0o755, "/var/tmp": 0o1777}

_OF_THE_MACHINE = "of the machine"
_tmp_before = {}  # the items of the mounted /tmp


def mount(*arguments):
    subprocess.run(["mount", *arguments], check=True, capture_output=True)


def replace_tmp(kept):
    """Mounts a /tmp that holds an item of each bait's name, for a process that a
    link of a throw-away root leads there. The kept folders stay if they are in
    /tmp."""
    held = [(path, os.open(path, os.O_RDONLY | os.O_DIRECTORY))
            for path in map(os.path.realpath, kept) if path.startswith("/tmp/")]
    mount("-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    for path, folder in held:
        if not os.path.isdir(path):  # one may be within the other
            os.makedirs(path)
            # By the descriptor, since the name is now another folder's.
            subprocess.run(["mount", "--no-canonicalize", "--bind", f"/proc/self/fd/{folder}",
                            path], check=True, capture_output=True, pass_fds=[folder])
        os.close(folder)
    os.chdir(os.getcwd())
    files, folders = baits.files_and_folders()
    for path in folders:
        os.makedirs(path, exist_ok=True)
    for path in files:
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(_OF_THE_MACHINE)
    _tmp_before.update(_look_at_tmp())


def tmp_damage():
    """The changes in the mounted /tmp, if there is one; an empty list without
    any."""
    now = _look_at_tmp() if _tmp_before else {}
    return sorted(path for path in now.keys() | _tmp_before
                  if now.get(path) != _tmp_before.get(path))


def _look_at_tmp():
    """The items that have a bait's name, and their contents."""
    found = {}
    files, folders = baits.files_and_folders()
    tops = {path.split("/")[2] for path in files + folders}
    for folder, names, others in os.walk("/tmp"):
        if folder == "/tmp":
            names[:] = others = tops.intersection(names + others)
        for path in (f"{folder}/{name}" for name in [*names, *others]):
            status = os.lstat(path)
            content = ""
            if stat.S_ISREG(status.st_mode):
                with open(path, encoding="utf-8", errors="replace") as file:
                    content = file.read()
            found[path] = status.st_ino, oct(status.st_mode), status.st_uid, content
    return found


def mask():
    """Hides everything at the agent's fixed paths, for tests without a root of
    their own, so that no request can run or remove it. Call it in private mount
    namespaces."""
    for path in (*ABSENT, "/etc/xdg/autostart"):
        if os.path.isdir(path):
            mount("-t", "tmpfs", "tmpfs", path)
        elif os.path.exists(path):
            mount("--bind", "/dev/null", path)


def within(root, path):
    """The path outside of the root for a path in it, with links of its folders
    resolved within the root."""
    assert path.startswith("/")
    where = ""
    parts = [part for part in path.split("/") if part]
    while len(parts) > 1:
        part = parts.pop(0)
        link = f"{root}{where}/{part}"
        if os.path.islink(link):
            target = os.readlink(link)
            where = "" if target.startswith("/") else where
            parts = [each for each in target.split("/") if each] + parts
        elif part == "..":
            where = where.rpartition("/")[0]
        else:
            where += "/" + part
    return f"{root}{where}/{''.join(parts)}"


def hide(upper, lower):
    """Prepares the upper folder of an overlay that hides everything that
    differs between machines. The lower folder is a machine's root, "" for that
    of this one."""
    found = [path.removeprefix(lower) for pattern in _INSTALLED
             for path in glob.glob(lower + pattern)]
    for path in [*ABSENT, *found]:
        if os.path.lexists(within(lower, path)):
            os.mknod(_place(upper, lower, path), stat.S_IFCHR, os.makedev(0, 0))
    for folder, mode in EMPTY.items():
        place = _place(upper, lower, folder)
        os.mkdir(place)
        os.chmod(place, mode)
        os.setxattr(place, "trusted.overlay.opaque", b"y")


def _place(upper, lower, path):
    """The item's place in the overlay's upper folder. Makes the folders above
    it with the attributes of the lower ones."""
    path = within(lower, path).removeprefix(lower)
    made = ""
    for part in path.split("/")[1:-1]:
        made += f"/{part}"
        if not os.path.isdir(upper + made):
            os.mkdir(upper + made)
            if os.path.isdir(lower + made):
                shutil.copystat(lower + made, upper + made)
    return upper + path
