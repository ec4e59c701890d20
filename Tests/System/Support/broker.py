"""The other message bus: dbus-broker, started by its own launcher in a
throw-away root. It has systemd start services; this module answers its requests
to systemd."""
import itertools
import os
import socket
import threading

from .rawbus import CALL, NO_REPLY_EXPECTED, REPLY, SIGNAL, RawClient

_JOURNAL = "/run/systemd/journal/socket"
_SYSTEMD = "org.freedesktop.systemd1"
_PATH = "/org/freedesktop/systemd1"
_UNITS = "/usr/lib/systemd/system", "/usr/local/lib/systemd/system"


class Broker:
    """A running bus, in place of the process of a dbus-daemon."""

    def __init__(self, root, socket_path, log, words=()):
        self._root = root
        self._socket_path = socket_path
        self._journal = Journal(root, log)
        # It takes the socket from the process that started it, as from systemd,
        # and is its own first client.
        self._process = root.popen(
            ["systemd-socket-activate", f"--listen={socket_path}",
             f"--setenv=DBUS_SYSTEM_BUS_ADDRESS=unix:path={socket_path}",
             "/usr/bin/dbus-broker-launch", "--scope", "system", *words], stdout=log, stderr=log)
        self._systemd = None

    def serve(self):
        """Returns once it accepts clients."""
        socket_path = self._root.host_path(self._socket_path)
        os.chmod(socket_path, 0o666)  # as systemd makes it
        self._systemd = Systemd(self._root, socket_path)

    def terminate(self):
        self._process.terminate()

    def wait(self):
        self._process.wait()
        if self._systemd:
            self._systemd.end()
        self._journal.end()


class Journal:
    """Takes entries of the host's journal, which has to exist, to the log of
    the bus."""

    def __init__(self, root, log):
        path = root.host_path(_JOURNAL)
        os.makedirs(os.path.dirname(path))
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(path)
        os.chmod(path, 0o666)
        self._log = os.dup(log.fileno())
        self._thread = threading.Thread(target=self._copy)
        self._thread.start()

    def _copy(self):
        while entry := self._socket.recv(1 << 18):
            for line in entry.split(b"\n"):
                if line.startswith(b"MESSAGE="):
                    os.write(self._log, line.removeprefix(b"MESSAGE=") + b"\n")

    def end(self):
        self._socket.shutdown(socket.SHUT_RD)
        self._thread.join()
        self._socket.close()
        os.close(self._log)


class Systemd:
    """The part of systemd that the launcher uses: it starts programs, reports
    that the job is done, and reports when a program has failed."""

    def __init__(self, root, socket_path):
        self._root = root
        self._lock = threading.Lock()
        self._jobs = itertools.count(1)
        self._threads = []
        self._client = RawClient(socket_path, "", _PATH, f"{_SYSTEMD}.Manager", timeout=None)
        self._client.call("RequestName", "su", _SYSTEMD, 4, destination="org.freedesktop.DBus",
                          path="/org/freedesktop/DBus", interface="org.freedesktop.DBus")
        self._thread = threading.Thread(target=self._serve)
        self._thread.start()

    def _serve(self):
        try:
            while True:
                message = self._client.receive_any()
                if message.kind == CALL:
                    self._handle(message)
        except OSError:
            pass  # the bus is gone

    def _send(self, kind, fields, signature, *arguments):
        with self._lock:
            self._client.send_message(kind, fields, signature, arguments, NO_REPLY_EXPECTED)

    def _handle(self, message):
        reply = {5: ("u", message.serial), 6: ("s", message.sender)}
        if message.member == "LoadUnit":
            self._send(REPLY, reply, "o", self._object(message.values()[0]))
        elif message.member in ("StartUnit", "StartTransientUnit"):
            self._start(message, reply)
        else:
            self._send(REPLY, reply, "")

    @staticmethod
    def _object(unit):
        return f"{_PATH}/unit/" + "".join(
            each if each.isalnum() else f"_{ord(each):02x}" for each in unit)

    def _start(self, message, reply):
        unit, _, *properties = message.values()
        number = next(self._jobs)
        job = f"{_PATH}/job/{number}"
        self._send(REPLY, reply, "o", job)
        argv = self._transient(properties[0]) if properties else self._installed(unit)
        # The standard error of a service goes to the journal, and so to the
        # bus's log.
        with open(self._root.host_path(f"{self._root.folder}/log"), "ab") as log:
            program = self._root.popen(argv, stdout=log, stderr=log,
                                       env=self._environment())
        self._signal(_PATH, f"{_SYSTEMD}.Manager", "JobRemoved", "uoss", number, job, unit, "done")
        thread = threading.Thread(target=self._watch, args=(unit, program))
        thread.start()
        self._threads.append(thread)

    def _environment(self):
        return {**self._root.environment(), "DBUS_SYSTEM_BUS_ADDRESS": self._root.address,
                "DBUS_STARTER_ADDRESS": self._root.address, "DBUS_STARTER_BUS_TYPE": "system"}

    @staticmethod
    def _transient(properties):
        return next(value for name, value in properties if name == "ExecStart")[0][1]

    def _installed(self, unit):
        for folder in _UNITS:
            if self._root.exists(f"{folder}/{unit}"):
                for line in self._root.read(f"{folder}/{unit}").decode().splitlines():
                    if line.startswith("ExecStart="):
                        return line.partition("=")[2].split()
        raise AssertionError(f"no unit {unit}")

    def _signal(self, path, interface, member, signature, *arguments):
        self._send(SIGNAL, {1: ("o", path), 2: ("s", interface), 3: ("s", member)}, signature,
                   *arguments)

    def _watch(self, unit, program):
        if program.wait() != 0:
            try:
                self._signal(self._object(unit), "org.freedesktop.DBus.Properties",
                             "PropertiesChanged", "sa{sv}as", f"{_SYSTEMD}.Unit",
                             {"ActiveState": ("s", "failed")}, [])
            except OSError:
                pass  # the bus went first

    def end(self):
        self._thread.join()
        for thread in self._threads:
            thread.join()
        self._client.close()
