"""The host's own kind of bus in the throw-away root: dbus-daemon with the
distribution's configuration, its unprivileged user and its setuid helper that
starts services, and users with and without access."""
import os
import subprocess

from . import harness
from .bus import INTERFACE, NAME, PATH
from .rawbus import RawClient
from .root import ThrowAwayRoot

SOCKET = "/run/dbus/system_bus_socket"
MEMBER, OUTSIDER, ROOT = "kwmember", "kwoutsider", "root"
_NUMBERS = {MEMBER: 64201, OUTSIDER: 64202}


class SystemBusRoot(ThrowAwayRoot):
    """With install=True, the files of `cmake --install` are in place when the
    bus starts, and the group has its member."""

    def __init__(self, install=True, **options):
        super().__init__(**options)
        self.address = f"unix:path={SOCKET}"
        self._install = install

    def start_bus(self, agent=None):
        if self._install:
            self.install()
            self.check(["systemd-sysusers"])
        for name, number in _NUMBERS.items():
            self.check(["useradd", "--no-create-home", "--uid", str(number), name])
        if self._install:
            self.add_member()
        self.mkdir("/run/dbus")
        self.run_daemon(SOCKET, *([] if harness.broker else ["--system"]))

    def install(self):
        for component in ("agent", "command"):
            subprocess.run(["cmake", "--install", harness.build_folder, "--component", component],
                           check=True, capture_output=True,
                           env={**os.environ, "DESTDIR": self.root})
        if harness.is_sanitized():
            self._give_options_to_agent()

    def _give_options_to_agent(self):
        """The bus starts services with none of its own variables."""
        options = " ".join(f"{name}='{value}'" for name, value in self.sanitizer_options().items())
        for folder in (f"{self.root}/usr/share", f"{self.root}/usr/local/share"):
            path = f"{folder}/dbus-1/system-services/{NAME}.service"
            if not os.path.exists(path):
                continue
            with open(path, encoding="utf-8") as file:
                text = file.read()
            with open(path, "w", encoding="utf-8") as file:
                file.write(text.replace("Exec=", f"Exec=/usr/bin/env {options} "))

    def add_member(self):
        self.check(["gpasswd", "--add", MEMBER, "keepwell"])

    def check(self, argv):
        """Runs a command that must succeed."""
        done = self.run(argv)
        if done.returncode != 0:
            raise AssertionError(f"{argv}: {done.stderr.decode(errors='replace')}")
        return done.stdout.decode(errors="replace")

    def client_of(self, user, **options):
        """A connection with the rights of a fresh login of the user. The agent
        must be running already."""
        number = _NUMBERS.get(user, 0)
        groups = [int(each) for each in self.check(["id", "-G", user]).split()]
        here, former = os.open(".", os.O_RDONLY), os.getgroups()
        os.chdir(self.host_path(os.path.dirname(SOCKET)))  # only root can pass the folders above
        os.setgroups(groups)
        os.seteuid(number)
        try:
            client = RawClient(os.path.basename(SOCKET), NAME, PATH, INTERFACE, **options)
        finally:
            os.seteuid(0)
            os.setgroups(former)
            os.fchdir(here)
            os.close(here)
        self._clients.append(client)
        return client

    def as_user(self, user, argv):
        """The command with the rights of a fresh login of the user."""
        return argv if user == ROOT else [
            "setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", "--", *argv]

    def call_as(self, user, member, signature="", *arguments, name=None):
        """(status, standard output, standard error) of busctl; --json's data on
        success."""
        argv = self.busctl_argv(member, signature, *arguments)
        if name:
            argv[argv.index("org.keepwell.pro.agent")] = name
        done = self.run(self.as_user(user, argv))
        return done.returncode, done.stdout.decode(), done.stderr.decode()
