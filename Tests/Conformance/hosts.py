"""All that differs between the hosts: flags, the places of the Trash, and the
tools that the scenarios themselves use."""
import os
import pwd
import stat
import subprocess
import sys

from .suite import NotApplicable


def _quiet(*argv):
    try:
        return subprocess.run(argv, check=False, capture_output=True, stdin=subprocess.DEVNULL)
    except OSError as error:
        raise NotApplicable(f"{argv[0]}: {error.strerror}") from None


class Host:
    name = ""
    # The agent's program, for the list of processes.
    agent_names = ("keepwell-agent", "org.keepwell.pro.agent")
    # Whether the data of a shredded file are overwritten under its other names;
    # None where the platform leaves it open.
    shreds_all_names = None

    def lock(self, path):
        self._set_flag(path, self._lock_words)

    def allow_appending_only(self, path):
        self._set_flag(path, self._append_words)

    def _set_flag(self, path, words):
        done = _quiet(*words, path)
        if done.returncode != 0 or not self.flags(path):
            reason = done.stderr.decode("utf-8", "replace").strip().splitlines()
            where = "" if os.geteuid() == 0 else "without root "
            raise NotApplicable(f"{' '.join(words)} fails {where}here: "
                                f"{reason[-1].rpartition(': ')[2] if reason else 'no flag is set'}")

    def is_locked(self, path):
        return bool(self.flags(path))

    def agent_trashes(self, name):
        """Where an item of this name may be in the Trash of the agent's user, with
        the files that describe it: pairs of paths and lists of paths."""
        raise NotImplementedError

    @staticmethod
    def has_tool(path):
        return os.access(path, os.X_OK)

    def require_tool(self, path):
        if not self.has_tool(path):
            raise NotApplicable(f"no {path}")

    @staticmethod
    def require_root(purpose):
        if os.geteuid() != 0:
            raise NotApplicable(f"needs root, {purpose}")

    def agents(self):
        """The numbers of the agent's processes, without those that have ended and
        that no other process has asked about yet."""
        listing = _quiet("ps", "-axo", "pid=,stat=,comm=").stdout.decode("utf-8", "replace")
        found = set()
        for line in listing.splitlines():
            pid, state, program = line.split(None, 2)
            if os.path.basename(program.strip()) in self.agent_names and state[0] != "Z":
                found.add(int(pid))
        return found

    def job_is_loaded(self, label):
        """Whether launchd has the job for the whole system; asked as root."""
        return _quiet("/bin/launchctl", "list", label).returncode == 0


class Linux(Host):
    name = "Linux"
    _lock_words = ("chattr", "+i")
    _append_words = ("chattr", "+a")
    shreds_all_names = True
    hiding_words = None  # no flag hides a file

    def flags(self, path):
        words = _quiet("lsattr", "-d", path).stdout.decode("utf-8", "replace").split()
        return set(words[0]) & set("ia") if words else set()

    def unlock(self, path):
        if os.path.islink(path):
            return
        recursive = ("-R",) if os.path.isdir(path) else ()
        _quiet("chattr", *recursive, "-f", "-ia", path)

    def agent_trashes(self, name):
        home = pwd.getpwuid(0).pw_dir
        folders = [f"{home}/.local/share/Trash"]
        with open("/proc/self/mounts", encoding="utf-8") as file:
            tops = [line.split()[1] for line in file]
        for top in tops:
            folders += [f"{top.rstrip('/')}/.Trash-0", f"{top.rstrip('/')}/.Trash/0"]
        return [(f"{folder}/files/{name}", [f"{folder}/info/{name}.trashinfo"])
                for folder in dict.fromkeys(folders)]


class MacOS(Host):
    name = "macOS"
    _lock_words = ("chflags", "uchg")
    _append_words = ("chflags", "uappnd")
    hiding_words = ("chflags", "hidden")

    def flags(self, path):
        return os.lstat(path).st_flags & (stat.UF_IMMUTABLE | stat.SF_IMMUTABLE |
                                          stat.UF_APPEND | stat.SF_APPEND)

    def unlock(self, path):
        _quiet("chflags", "-R", "nouchg,nouappnd", path)
        if os.geteuid() == 0:
            _quiet("chflags", "-R", "noschg,nosappnd", path)

    def agent_trashes(self, name):
        home = pwd.getpwuid(0).pw_dir
        folders = [f"{home}/.Trash", "/.Trashes/0"]
        if os.path.isdir("/Volumes"):
            folders += [f"/Volumes/{volume}/.Trashes/0" for volume in os.listdir("/Volumes")]
        return [(f"{folder}/{name}", []) for folder in folders]


def this_host():
    return MacOS() if sys.platform == "darwin" else Linux()
