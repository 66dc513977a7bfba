# SPDX-License-Identifier: MIT
"""Packets of the bundled bus, written and read a second time, independently of it: peers that can say anything."""

import array
import select
import socket

from target import BYTE_ORDER, struct

HELLO, CALL, ONE_WAY, REPLY, REFUSED, WAITING, TAP_HELLO, TAP_RECORD = range(1, 9)
ORDER = b"l" if BYTE_ORDER == "little" else b"B"
MAXIMUM = 256 * 1024

APPLICATION = "VoiceService.VoiceApplication"


HEAD = "=cBcBIIII"
HEAD_SIZE = 20
SIZE_AT, DESCRIPTORS_AT = 12, 16


class Message(bytes):
    """A message whose head says how long it is, whatever is added to it. A slice is plain bytes."""

    def __new__(cls, raw):
        return super().__new__(cls, bytes(raw)).with_size(len(raw)) if len(raw) >= HEAD_SIZE else bytes(raw)

    def __add__(self, more):
        return Message(bytes(self) + bytes(more))

    def with_size(self, size):
        """The same with any size in its head."""
        return self._with(SIZE_AT, size)

    def with_descriptors(self, count):
        """The same with any number of descriptors in its head."""
        return self._with(DESCRIPTORS_AT, count)

    def _with(self, at, number):
        word = struct.pack("=I", number)
        return super().__new__(Message, bytes(self)[:at] + word + bytes(self)[at + len(word) :])


def head(kind, serial=0, flags=0, magic=b"k", version=2, order=ORDER):
    return Message(struct.pack(HEAD, magic, version, order, kind, serial, flags, HEAD_SIZE, 0))


def together(*messages):
    """One packet of several messages."""
    return b"".join(bytes(message) for message in messages)


def text(value):
    raw = value if isinstance(value, bytes) else value.encode(errors="surrogateescape")
    return struct.pack("=I", len(raw)) + raw


class U16(int):
    pass


class I16(int):
    pass


class U32(int):
    pass


class I32(int):
    pass


class Fd(int):
    """A descriptor that travels with the packet, or -1."""


NUMBERS = {I16: (3, "=h"), I32: (4, "=i"), U16: (7, "=H"), U32: (8, "=I")}


def value(item, descriptors):
    """The bytes of one value; descriptors found in it are added to the list."""
    if item is None:
        return b"\xff"
    if isinstance(item, bool):
        return struct.pack("=BB", 10, item)
    if isinstance(item, Fd):
        if item < 0:
            return struct.pack("=Bii", 18, -1, -1)
        descriptors.append(int(item))
        return struct.pack("=Bii", 18, len(descriptors) - 1, item)
    if type(item) in NUMBERS:
        code, form = NUMBERS[type(item)]
        return bytes([code]) + struct.pack(form, item)
    if isinstance(item, str):
        return b"\x00" + text(item)
    if isinstance(item, (bytes, bytearray)):
        return b"\x13" + text(bytes(item))
    if isinstance(item, list):
        return b"\x0d" + struct.pack("=I", len(item)) + b"".join(value(one, descriptors) for one in item)
    raise TypeError(item)


def call(serial, path, function, arguments, flags=1, one_way=False):
    """A call and the descriptors to send with it."""
    descriptors = []
    body = text(path) + text(function) + bytes([len(arguments)])
    for name, item in arguments:
        body += text(name) + value(item, descriptors)
    return (head(ONE_WAY if one_way else CALL, serial, flags) + body).with_descriptors(len(descriptors)), descriptors


def reply(serial, result):
    """A reply without errors."""
    return head(REPLY, serial) + b"\x00" + (b"\x00" if result is None else b"\x01" + value(result, []))


class Reader:
    def __init__(self, data):
        self.data = data
        self.at = 0

    def take(self, form):
        size = struct.calcsize(form)
        found = struct.unpack_from(form, self.data, self.at)
        self.at += size
        return found[0]

    def raw(self):
        length = self.take("=I")
        self.at += length
        return self.data[self.at - length : self.at]

    def text(self):
        return self.raw().decode(errors="replace")

    def value(self):
        code = self.take("=B")
        for kind, (number, form) in NUMBERS.items():
            if code == number:
                return kind(self.take(form))
        if code == 0:
            return self.text()
        if code == 10:
            return bool(self.take("=B"))
        if code == 13:
            return [self.value() for _ in range(self.take("=I"))]
        if code == 18:
            self.take("=i")
            return Fd(self.take("=i"))
        if code == 19:
            return self.raw()
        if code == 255:
            return None
        raise ValueError(f"value of type {code}")


def messages(data, descriptors):
    """The messages of a packet that arrived, each with its own descriptors."""
    found = []
    while data:
        size, count = struct.unpack_from("=II", data, SIZE_AT)
        assert HEAD_SIZE <= size <= len(data) and count <= len(descriptors)
        found.append(Packet(data[:size], descriptors[:count]))
        data, descriptors = data[size:], descriptors[count:]
    assert not descriptors
    return found


class Packet:
    """A message that arrived, taken apart."""

    def __init__(self, data, descriptors):
        self.descriptors = descriptors
        self.magic, self.version, self.order, self.kind, self.serial, self.flags, *_ = struct.unpack_from(HEAD, data)
        reader = Reader(data)
        reader.at = HEAD_SIZE
        self.path = self.function = self.text = ""
        self.arguments = {}
        self.errors = []
        self.result = None
        if self.kind in (HELLO, REFUSED):
            self.text = reader.text()
        elif self.kind in (CALL, ONE_WAY):
            self.path, self.function = reader.text(), reader.text()
            for _ in range(reader.take("=B")):
                name = reader.text()
                self.arguments[name] = reader.value()
        elif self.kind == REPLY:
            for _ in range(reader.take("=B")):
                code = reader.take("=I")
                self.errors.append((code, reader.text(), reader.text()))
            if reader.take("=B"):
                self.result = reader.value()


class RawSocket:
    """A socket that is closed where its use ends."""

    def __init__(self, opened, limit=20):
        self.socket = opened
        self.socket.settimeout(limit)

    def close(self):
        self.socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class RawPeer(RawSocket):
    """One end of a connection, without any manners of its own."""

    def __init__(self, connected, limit=20):
        super().__init__(connected, limit)
        self.serial = 0
        self.received = []  # messages of the last packet

    @classmethod
    def connect(cls, path, name="raw", hello=True):
        connected = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        connected.connect(str(path))  # without a limit: where one is set, a full queue of the listener is an error
        peer = cls(connected)
        if hello:
            peer.say_hello(name)
        return peer

    def say_hello(self, name):
        self.send(head(HELLO) + text(name))

    def send(self, packet, descriptors=()):
        if isinstance(packet, Message):
            packet = packet.with_descriptors(len(descriptors))
        ancillary = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))] if descriptors else []
        self.socket.sendmsg([packet], ancillary)

    def receive(self):
        """The next message; None at the end of the connection."""
        if not self.received:
            self.received = self.receive_packet()
        return self.received.pop(0) if self.received else None

    def receive_packet(self):
        """The messages of the next packet; none at the end of the connection."""
        try:
            data, ancillary, _, _ = self.socket.recvmsg(MAXIMUM, socket.CMSG_SPACE(64 * 4))
        except ConnectionResetError:
            return []
        descriptors = array.array("i")
        for _, _, raw in ancillary:
            descriptors.frombytes(raw)
        return messages(data, list(descriptors))

    def call(self, path, function, arguments, answer=None, **options):
        """Calls and returns the reply; other messages go to answer() meanwhile. None: the connection closed."""
        self.serial += 1
        packet, descriptors = call(self.serial, path, function, arguments, **options)
        self.send(packet, descriptors)
        return self.reply_to(self.serial, answer)

    def reply_to(self, serial, answer=None):
        while True:
            packet = self.receive()
            if packet is None or (packet.kind == REPLY and packet.serial == serial):
                return packet
            if packet.kind == REFUSED:
                return packet
            if answer:
                answer(packet)

    def register(self, plugin):
        """Registers as a plugin; the answer."""
        return self.call(APPLICATION, "register_plugin", [("plugin_name", plugin)]).result

    def refusal(self):
        """Why the peer closed the connection: the text of its last message, or "" when it gave none."""
        why = ""
        while (packet := self.receive()) is not None:
            if packet.kind == REFUSED:
                why = packet.text
        return why

    def closed(self, limit=20):
        """Whether the peer has closed within the limit; what it still sends is passed over."""
        while select.select([self.socket], [], [], limit)[0]:
            if self.receive() is None:
                return True
        return False


class RawListener(RawSocket):
    """A listening side without manners, for plugins to connect to."""

    def __init__(self, path):
        super().__init__(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
        self.socket.bind(str(path))
        self.socket.listen(8)

    def accept(self, name="raw"):
        """The next peer, after the hello of both sides."""
        peer = RawPeer(self.socket.accept()[0])
        hello = peer.receive()
        assert hello.kind == HELLO, hello.kind
        peer.send(head(HELLO) + text(name))
        return peer
