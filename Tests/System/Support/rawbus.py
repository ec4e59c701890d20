"""A small client of the message bus's wire protocol, for what the usual
programs cannot do: several requests at once on one connection, requests that
are abandoned, messages that are not quite right."""
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
    def __init__(self, kind, fields, body):
        self.kind, self.fields, self.body = kind, fields, body

    reply_serial = property(lambda self: self.fields.get(5))
    member = property(lambda self: self.fields.get(3))
    error_name = property(lambda self: self.fields.get(4))
    signature = property(lambda self: self.fields.get(8, ""))

    def values(self):
        return Reader(self.body).values(self.signature)


class Writer:
    def __init__(self):
        self.data = bytearray()

    def pad(self, alignment):
        self.data += bytes(-len(self.data) % alignment)

    def number(self, code, size, value):
        self.pad(size)
        self.data += struct.pack("<" + code, value)

    def text(self, value):
        raw = value if isinstance(value, bytes) else value.encode()
        self.number("I", 4, len(raw))
        self.data += raw + b"\0"

    def signature(self, value):
        self.data += bytes([len(value)]) + value.encode() + b"\0"

    def value(self, kind, value):
        if kind in "so":
            self.text(value)
        elif kind == "g":
            self.signature(value)
        elif kind == "u":
            self.number("I", 4, value)
        elif kind == "b":
            self.number("I", 4, int(value))
        elif kind == "as":
            inner = Writer()
            for each in value:
                inner.text(each)
            self.number("I", 4, len(inner.data))
            self.data += inner.data
        else:
            raise ValueError(kind)


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
            self.offset += -self.offset % (8 if kind[1] in "xtd({" else 4)
            end, items = self.offset + length, []
            while self.offset < end:
                items.append(self.value(kind[1:]))
            return dict(items) if kind[1] == "{" else items
        return self.number(*{"y": ("B", 1), "i": ("i", 4), "u": ("I", 4), "x": ("q", 8),
                             "t": ("Q", 8), "d": ("d", 8)}[first])

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
    def __init__(self, socket_path, name, path, interface, timeout=60):
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
        self._line()
        self._socket.sendall(b"BEGIN\r\n")
        self.unique_name = self.wait(self.send("Hello", destination="org.freedesktop.DBus",
                                               path="/org/freedesktop/DBus",
                                               interface="org.freedesktop.DBus"))[0]

    def _line(self):
        while b"\r\n" not in self._buffer:
            self._buffer += self._socket.recv(4096)
        line, self._buffer = self._buffer.split(b"\r\n", 1)
        if not line.startswith(b"OK"):
            raise ConnectionError(line)

    def send(self, member, signature="", *arguments, destination=None, path=None, interface=None,
             flags=0):
        """Sends a call and returns its serial, without waiting."""
        body = Writer()
        for kind, value in zip(split(signature), arguments):
            body.value(kind, value)
        serial = next(self._serials)
        head = Writer()
        head.data += struct.pack("<BBBBII", ord("l"), CALL, flags, 1, len(body.data), serial)
        fields = Writer()
        fields.data += bytes(16)  # stands for what comes before, so that padding is right
        for code, kind, value in ((1, "o", path or self.path),
                                  (2, "s", interface or self.interface), (3, "s", member),
                                  (6, "s", destination or self.name),
                                  *([(8, "g", signature)] if signature else [])):
            fields.pad(8)
            fields.data += bytes([code])
            fields.signature(kind)
            fields.value(kind, value)
        head.data += struct.pack("<I", len(fields.data) - 16) + fields.data[16:]
        head.pad(8)
        self._socket.sendall(head.data + body.data)
        return serial

    def _receive(self):
        def need(count):
            while len(self._buffer) < count:
                chunk = self._socket.recv(1 << 16)
                if not chunk:
                    raise ConnectionError("the bus closed the connection")
                self._buffer += chunk
        need(16)
        _, kind, _, _, body_length, _, fields_length = struct.unpack_from("<BBBBIII", self._buffer)
        start = 16 + fields_length + (-fields_length % 8)
        need(start + body_length)
        fields = dict(Reader(self._buffer[:start], 12).value("a(yv)"))
        body = self._buffer[start:start + body_length]
        self._buffer = self._buffer[start + body_length:]
        return Message(kind, fields, body)

    def receive_any(self):
        """The next message, signals among them, whoever waits for it."""
        return self._receive()

    def receive(self):
        """The next reply or error, whoever waits for it."""
        while True:
            message = self._receive()
            if message.kind != SIGNAL:
                return message
            self.signals.append(message)

    def count_received(self):
        """How many answers have come that nobody waited for yet."""
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

    def close(self):
        self._socket.close()
