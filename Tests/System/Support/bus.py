"""A private message bus that starts the agent on demand, and the ways to call
the agent over it."""
import json
import os
import shutil
import signal
import socket
import subprocess
import time

from . import harness, processes
from .broker import Broker
from .processes import Usage, is_running
from .rawbus import RawClient

NAME = "org.keepwell.pro.agent"
PATH = "/org/keepwell/pro/agent"
INTERFACE = "org.keepwell.KWPrivilegedOperation"

CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={folder}/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{folder}/services</servicedir>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="service_start_timeout">20000</limit>
  <limit name="max_replies_per_connection">200000</limit>
  <limit name="max_connections_per_user">{connections}</limit>
  <!-- As on the usual system bus, which is the stricter one. -->
  <limit name="max_incoming_bytes">{bytes}</limit>
  <limit name="max_outgoing_bytes">{bytes}</limit>
  <limit name="max_message_size">33554432</limit>
</busconfig>
"""

CONNECTIONS = 1000


def bytes_of_connection():
    """The most bytes that the bus keeps of one. dbus-broker multiplies it by the
    connections for the limit of a user, and takes 32 bits of the product: the
    value here makes its usual 512 MiB."""
    return (512 << 20) // CONNECTIONS if harness.broker else 133169152


class Error(tuple):
    """An error of a reply: domain, code, user info as plain values."""
    domain = property(lambda self: self[0])
    code = property(lambda self: self[1])
    info = property(lambda self: self[2])


class Reply:
    def __init__(self, values):
        self.values = values

    @property
    def flag(self):
        return self.values[0]

    @property
    def error(self):
        """None for a nil error."""
        domain, code, info = self.values[-1]
        plain = {key: value["data"] for key, value in info.items()}
        return Error((domain, code, plain)) if domain else None

    def __repr__(self):
        return f"Reply({self.values})"


class CallFailed(Exception):
    """The bus's own error instead of a reply."""


class PrivateBus:
    """Runs commands directly; ThrowAwayRoot runs them in its root."""

    def __init__(self, folder, descriptor_limit=None):
        self.folder = folder  # the path for the commands
        self._daemon = None
        self._clients = []
        self.descriptor_limit = descriptor_limit
        self.agent_prefix = ""  # arguments before the path of the agent, and a blank
        self.address = f"unix:path={folder}/bus"

    # Members that ThrowAwayRoot replaces.
    def host_path(self, path):
        return path

    def command(self, argv):
        return argv

    def environment(self):
        return {"PATH": harness.PATH, "LANG": "C.UTF-8", "HOME": self.folder,
                **self.sanitizer_options()}

    def sanitizer_options(self):
        """The variables for programs that are built with a sanitizer."""
        sanitizers = {name: os.environ[name] for name in ("ASAN_OPTIONS", "LSAN_OPTIONS",
                                                          "UBSAN_OPTIONS") if name in os.environ}
        # The agent ends at once on request, with any threads it has.
        options = os.environ.get("TSAN_OPTIONS", "") + " report_thread_leaks=0"
        options += f" suppressions={harness.build_folder}/tsan-suppressions"
        return {"TSAN_OPTIONS": options.strip(), **sanitizers}

    def popen(self, argv, **options):
        options.setdefault("env", self.environment())
        options.setdefault("stdin", subprocess.DEVNULL)
        return subprocess.Popen(self.command(argv), **options)

    def run(self, argv, **options):
        options.setdefault("env", self.environment())
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        # No program may ask a question on the terminal of the person that runs
        # the tests.
        options.setdefault("start_new_session", True)
        return subprocess.run(self.command(argv), capture_output=True, **options)

    # Starting and stopping.
    def start_bus(self, agent=None):
        agent = agent or os.path.join(harness.build_folder, "keepwell-agent")
        services = self.host_path(f"{self.folder}/services")
        os.makedirs(services, exist_ok=True)
        with open(self.host_path(f"{self.folder}/start"), "w", encoding="utf-8") as file:
            limit = f"ulimit -n {self.descriptor_limit}\n" if self.descriptor_limit else ""
            file.write(f"#!/bin/sh\n{limit}exec {self._confined(self.agent_prefix + agent)}\n")
            os.fchmod(file.fileno(), 0o755)
        with open(f"{services}/{NAME}.service", "w", encoding="utf-8") as file:
            file.write(f"[D-BUS Service]\nName={NAME}\nExec={self.folder}/start\n")
        with open(self.host_path(f"{self.folder}/bus.conf"), "w", encoding="utf-8") as file:
            file.write(CONFIG.format(folder=self.folder, connections=CONNECTIONS,
                                     bytes=bytes_of_connection()))
        self.run_daemon(f"{self.folder}/bus", f"--config-file={self.folder}/bus.conf")

    def run_daemon(self, path, *words):
        """Starts the bus itself, with its socket at the path."""
        with open(self.host_path(f"{self.folder}/log"), "ab") as log:
            if harness.broker:
                self._daemon = Broker(self, path, log, words)
            else:
                self._daemon = self.popen(["dbus-daemon", *words, "--nofork", "--nopidfile",
                                           "--nosyslog"], stdout=log, stderr=log)
        wait_until(lambda: accepts(self.host_path(path)))
        if harness.broker:
            self._daemon.serve()

    def _confined(self, agent):
        """The command that starts the agent, within the limits of its unit if
        the test runs with --unit."""
        if not harness.unit:
            return agent
        for source, name in ((os.path.join(os.path.dirname(__file__), "confine.py"), "confine.py"),
                             (harness.unit, "unit")):
            shutil.copyfile(source, self.host_path(f"{self.folder}/{name}"))
        return f"python3 {self.folder}/confine.py {self.folder}/unit {agent}"

    def stop_bus(self):
        for client in self._clients:
            client.close()
        pid = self.agent_pid()
        if self._daemon:
            self._daemon.terminate()
            self._daemon.wait()
        # The agent ends with its bus; a hanging agent must not make the test
        # hang here.
        if pid:
            try:
                wait_until(lambda: not is_running(pid), 5)
            except TimeoutError:
                os.kill(pid, signal.SIGKILL)
        found = [line for line in self.log().splitlines() if "Sanitizer" in line]
        if found:
            raise AssertionError("the agent's sanitizer found something:\n" + self.log())

    def log(self):
        """The standard error of the agent and the bus."""
        with open(self.host_path(f"{self.folder}/log"), encoding="utf-8",
                  errors="replace") as file:
            return file.read()

    # Calling.
    def busctl_argv(self, member, signature="", *arguments, timeout=120):
        values = []
        for argument in arguments:
            values += ([str(len(argument)), *argument] if isinstance(argument, list)
                       else [argument])
        return ["busctl", f"--address={self.address}", "--json=short", f"--timeout={timeout}",
                "call", "--", NAME, PATH, INTERFACE, member, *([signature] if signature else []),
                *values]

    def busctl(self, member, signature="", *arguments, timeout=120):
        done = self.run(self.busctl_argv(member, signature, *arguments, timeout=timeout))
        if done.returncode != 0:
            raise CallFailed(done.stderr.decode(errors="replace").strip())
        return Reply(json.loads(done.stdout)["data"] if done.stdout.strip() else [])

    def gdbus(self, member, *arguments):
        """The output of gdbus for the reply, or its error as CallFailed. Each
        argument is in the notation of that program."""
        done = self.run(["gdbus", "call", "--address", self.address, "--dest", NAME,
                         "--object-path", PATH, "--method", f"{INTERFACE}.{member}", "--",
                         *arguments])
        if done.returncode != 0:
            raise CallFailed(done.stderr.decode(errors="replace").strip())
        return done.stdout.decode().strip()

    def client(self, **options):
        """A connection of its own that can leave requests unanswered."""
        client = RawClient(self.host_path(f"{self.folder}/bus"), NAME, PATH, INTERFACE, **options)
        self._clients.append(client)
        return client

    def client_of(self, user, **options):
        """The same for another user, by number. Do not call it while other
        threads look up paths or need root."""
        folder = os.open(".", os.O_RDONLY)
        try:
            # Only root can pass the folders above.
            os.chdir(self.host_path(self.folder))
            os.seteuid(user)
            client = RawClient("bus", NAME, PATH, INTERFACE, **options)
        finally:
            os.seteuid(0)
            os.fchdir(folder)
            os.close(folder)
        self._clients.append(client)
        return client

    # The agent's process.
    def bus_call(self, member, signature="", *arguments):
        done = self.run(["busctl", f"--address={self.address}", "--json=short", "call",
                         "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         member, *([signature] if signature else []), *arguments])
        return json.loads(done.stdout)["data"] if done.returncode == 0 else None

    def agent_pid(self):
        """None when no agent is running; starts none."""
        values = self.bus_call("GetConnectionUnixProcessID", "s", NAME)
        return values[0] if values else None

    def wait_for_end(self, pid):
        """Waits until the agent of that number has ended and the bus knows it: until
        then, the bus would pass calls on to that agent."""
        wait_until(lambda: not is_running(pid) and self.agent_pid() != pid)

    def agent_descriptors(self):
        return processes.descriptors(self.agent_pid())

    def agent_usage(self):
        return Usage(self.agent_pid())


def accepts(path):
    """Tells whether a program listens on the socket; it exists before that."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as probe:
        return probe.connect_ex(path) == 0


def wait_until(condition, seconds=20):
    """Looks again and again; for events without a notice."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError("what was waited for did not come")
        time.sleep(0.01)
