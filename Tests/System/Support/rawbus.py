"""A small client of the message bus's wire protocol, for tests that the usual
programs cannot do: several requests at once on one connection, abandoned
requests, malformed messages."""
import contextlib
import itertools
import os
import select
import socket
import struct

CALL, REPLY, ERROR, SIGNAL = 1, 2, 3, 4
NO_REPLY_EXPECTED = 1


class BusError(Exception):
    def __init__(self, name, text=""):
        super().__init__(f"{name}: {text}")
        self.name = name


class Message:
    def __init__(self, kind, serial, fields, body):
        self.kind, self.serial, self.fields, self.body = kind, serial, fields, body

    reply_serial = property(lambda self: self.fields.get(5))
    member = property(lambda self: self.fields.get(3))
    error_name = property(lambda self: self.fields.get(4))
    sender = property(lambda self: self.fields.get(7))
    signature = property(lambda self: self.fields.get(8, ""))

    def values(self):
        return Reader(self.body).values(self.signature)


# Code and size of each number, and the alignment of each type.
NUMBERS = {"y": ("B", 1), "b": ("I", 4), "n": ("h", 2), "q": ("H", 2), "i": ("i", 4),
           "u": ("I", 4), "h": ("I", 4), "x": ("q", 8), "t": ("Q", 8), "d": ("d", 8)}
ALIGNMENT = {**{kind: size for kind, (_, size) in NUMBERS.items()},
             "s": 4, "o": 4, "a": 4, "g": 1, "v": 1, "(": 8, "{": 8}


class Writer:
    def __init__(self, order="<"):
        self.data = bytearray()
        self._order = order

    def pad(self, alignment):
        self.data += bytes(-len(self.data) % alignment)

    def number(self, code, size, value):
        self.pad(size)
        self.data += struct.pack(self._order + code, value)

    def text(self, value):
        raw = value if isinstance(value, bytes) else value.encode()
        self.number("I", 4, len(raw))
        self.data += raw + b"\0"

    def signature(self, value):
        self.data += bytes([len(value)]) + value.encode() + b"\0"

    def value(self, kind, value):
        """Writes a value of any type. A variant is a pair of its type and its
        value."""
        first = kind[0]
        if first in "so":
            self.text(value)
        elif first == "g":
            self.signature(value)
        elif first == "v":
            self.signature(value[0])
            self.value(*value)
        elif first in "({":
            self.pad(8)
            for each, part in zip(split(kind[1:-1]), value):
                self.value(each, part)
        elif first == "a":
            self._array(kind[1:], value.items() if isinstance(value, dict) else value)
        else:
            self.number(*NUMBERS[first], value)

    def _array(self, kind, values):
        self.number("I", 4, 0)
        length = len(self.data) - 4
        self.pad(ALIGNMENT[kind[0]])
        start = len(self.data)
        for each in values:
            self.value(kind, each)
        struct.pack_into(self._order + "I", self.data, length, len(self.data) - start)


def message(kind, serial, fields, signature="", arguments=(), flags=0, order="<"):
    """The bytes of a message. The fields are given as code: (type, value)."""
    body = Writer(order)
    for each, value in zip(split(signature), arguments):
        body.value(each, value)
    head = Writer(order)
    head.data += struct.pack(order + "BBBBII", ord("l" if order == "<" else "B"), kind, flags, 1,
                             len(body.data), serial)
    if signature:
        fields = {**fields, 8: ("g", signature)}
    head.value("a(yv)", list(fields.items()))
    head.pad(8)
    return bytes(head.data + body.data)


class Reader:
    def __init__(self, data, offset=0):
        self.data, self.offset = data, offset

    def number(self, code, size):
        self.offset += -self.offset % size
        value, = struct.unpack_from("<" + code, self.data, self.offset)
        self.offset += size
        return value

    def text(self, length):
        value = self.data[self.offset:self.offset + length]
        self.offset += length + 1
        return value.decode()

    def value(self, kind):
        first = kind[0]
        if first in "so":
            return self.text(self.number("I", 4))
        if first == "g":
            return self.text(self.number("B", 1))
        if first == "v":
            return self.value(self.value("g"))
        if first == "b":
            return bool(self.number("I", 4))
        if first == "(":
            self.offset += -self.offset % 8
            return tuple(self.values(kind[1:-1]))
        if first == "{":
            self.offset += -self.offset % 8
            return tuple(self.values(kind[1:-1]))
        if first == "a":
            length = self.number("I", 4)
            self.offset += -self.offset % ALIGNMENT[kind[1]]
            end, items = self.offset + length, []
            while self.offset < end:
                items.append(self.value(kind[1:]))
            return dict(items) if kind[1] == "{" else items
        return self.number(*NUMBERS[first])

    def values(self, signature):
        return [self.value(kind) for kind in split(signature)]


def split(signature):
    """The complete types of a signature."""
    types, start, depth = [], 0, 0
    for index, code in enumerate(signature):
        depth += (code in "({") - (code in ")}")
        if depth == 0 and code != "a":
            types.append(signature[start:index + 1])
            start = index + 1
    return types


class RawClient:
    def __init__(self, socket_path, name, path, interface, timeout=60, descriptors=False):
        self.name, self.path, self.interface = name, path, interface
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(timeout)
        self._socket.connect(socket_path)
        self._buffer = b""
        self._serials = itertools.count(1)
        self.signals = []
        self._messages = {}
        identity = str(os.geteuid()).encode().hex()
        self._socket.sendall(b"\0AUTH EXTERNAL " + identity.encode() + b"\r\n")
        self._line(b"OK")
        if descriptors:
            self._socket.sendall(b"NEGOTIATE_UNIX_FD\r\n")
            self._line(b"AGREE_UNIX_FD")
        self._socket.sendall(b"BEGIN\r\n")
        self.unique_name = self.wait(self.send("Hello", destination="org.freedesktop.DBus",
                                               path="/org/freedesktop/DBus",
                                               interface="org.freedesktop.DBus"))[0]

    def _line(self, expected):
        while b"\r\n" not in self._buffer:
            self._buffer += self._socket.recv(4096)
        line, self._buffer = self._buffer.split(b"\r\n", 1)
        if not line.startswith(expected):
            raise ConnectionError(line)

    def send(self, member, signature="", *arguments, destination=None, path=None, interface=None,
             flags=0, order="<"):
        """Sends a call and returns its serial, without waiting."""
        return self.send_message(CALL, self.call_fields(member, destination, path, interface),
                                 signature, arguments, flags, order)

    def call_fields(self, member, destination=None, path=None, interface=None):
        return {1: ("o", path or self.path), 2: ("s", interface or self.interface),
                3: ("s", member), 6: ("s", destination or self.name)}

    def send_message(self, kind, fields, signature="", arguments=(), flags=0, order="<"):
        """A message of any kind with just these fields; returns its serial."""
        serial = self.next_serial()
        self.send_bytes(message(kind, serial, fields, signature, arguments, flags, order))
        return serial

    def next_serial(self):
        return next(self._serials)

    def send_bytes(self, data, descriptors=()):
        """Sends any bytes, also such as are not a message. Descriptors work
        only when the client was made with them."""
        if descriptors:
            sent = socket.send_fds(self._socket, [data], descriptors)
            data = data[sent:]
        self._socket.sendall(data)

    def _receive(self):
        def need(count):
            while len(self._buffer) < count:
                chunk = self._socket.recv(1 << 16)
                if not chunk:
                    raise ConnectionError("the bus closed the connection")
                self._buffer += chunk
        need(16)
        _, kind, _, _, body_length, serial, fields_length = struct.unpack_from("<BBBBIII", self._buffer)
        start = 16 + fields_length + (-fields_length % 8)
        need(start + body_length)
        fields = dict(Reader(self._buffer[:start], 12).value("a(yv)"))
        body = self._buffer[start:start + body_length]
        self._buffer = self._buffer[start + body_length:]
        return Message(kind, serial, fields, body)

    def receive_any(self):
        """The next message, signals included, even one for another waiter."""
        return self._receive()

    def receive(self):
        """The next reply or error, even one for another waiter."""
        while True:
            message = self._receive()
            if message.kind != SIGNAL:
                return message
            self.signals.append(message)

    def count_received(self):
        """The number of answers without a waiter so far."""
        while self._buffer or select.select([self._socket], [], [], 0)[0]:
            self._keep(self._receive())
        return len(self._messages)

    def _keep(self, message):
        if message.kind == SIGNAL:
            self.signals.append(message)
        else:
            self._messages[message.reply_serial] = message

    def wait(self, serial):
        """The values of the reply to a call, or BusError."""
        while serial not in self._messages:
            self._keep(self._receive())
        message = self._messages.pop(serial)
        if message.kind == ERROR:
            values = message.values()
            raise BusError(message.error_name, values[0] if values else "")
        return message.values()

    def call(self, member, signature="", *arguments, **options):
        return self.wait(self.send(member, signature, *arguments, **options))

    def end(self):
        """Ends the sending side, and reads until the bus closes the connection."""
        with contextlib.suppress(OSError):
            self._socket.shutdown(socket.SHUT_WR)
            while self._socket.recv(1 << 16):
                pass
        self.close()

    def close(self):
        self._socket.close()
