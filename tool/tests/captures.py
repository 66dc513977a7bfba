# SPDX-License-Identifier: MIT
"""Captures written a second time, independently of voicectl: files of either byte order, around messages of either."""

import re
import struct
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
ORDERS = {"little": "<", "big": ">"}
UPPER_LAYER = 252
CONNECTED, CLOSED, CALL, ONE_WAY, REPLY, REFUSED, WAITING = range(1, 8)
APPLICATION = ("voice_application", 100, 0)  # name, process, connection at the listener
PLUGIN = ("fxs_plugin", 200, 3)


def block(form, kind, body):
    size = len(body) + 12
    return struct.pack(form + "II", kind, size) + body + struct.pack(form + "I", size)


def padded(raw):
    return raw + bytes(-len(raw) % 4)


def tag(number, value):
    return struct.pack(">HH", number, len(padded(value))) + padded(value)


def tags(dissector=b"kexbus"):
    """As voicectl writes them: big-endian in any file."""
    return (
        tag(12, dissector)
        + tag(20, bytes([127, 1, 0, 1]))
        + tag(21, bytes([127, 1, 0, 2]))
        + tag(24, struct.pack(">I", 2))
        + tag(25, struct.pack(">I", 3))
        + tag(26, struct.pack(">I", 1))
        + bytes(4)
    )


def record(kind, message=b"", sender=PLUGIN, receiver=APPLICATION, lost=0, text=b"", version=1, more=b""):
    """One packet's bytes behind its tags. `more` stands at the head's end, as a later version may have it."""
    names = sender[0].encode() + receiver[0].encode()
    head = struct.pack(">cBBBHH", b"v", version, kind, 0, 32 + len(names) + len(text) + len(more), len(text))
    head += struct.pack(">iIiII", *sender[1:], *receiver[1:], lost)
    head += struct.pack(">BBH", len(sender[0]), len(receiver[0]), 0)
    return head + names + text + more + message


def file_of(records, order="little", step_us=1000):
    """A capture of them, so many microseconds apart."""
    form = ORDERS[order]
    section = struct.pack(form + "IHHq", 0x1A2B3C4D, 1, 0, -1)
    interface = struct.pack(form + "HHI", UPPER_LAYER, 0, 0)
    blocks = block(form, 0x0A0D0D0A, section) + block(form, 1, interface)
    for place, one in enumerate(records):
        time = 1_700_000_000_000_000 + place * step_us
        raw = tags() + one
        head = struct.pack(form + "IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(raw), len(raw))
        blocks += block(form, 6, head + padded(raw))
    return blocks


def golden(name, order):
    """The bytes of a golden record."""
    text = (ROOT / "tests/golden/records.txt").read_text(encoding="ascii")
    rows = re.search(rf"^\[{name}\].*?\n(.*?)(?:\n\n|\Z)", text, re.MULTILINE | re.DOTALL)[1]
    row = re.search(rf"^{order} +(.*?)(?=^\w|\Z)", rows, re.MULTILINE | re.DOTALL)[1]
    tokens = re.findall(r'"[^"]*"|[0-9A-F]+', row)
    return b"".join(token[1:-1].encode() if token[0] == '"' else bytes.fromhex(token) for token in tokens)


class Writer:
    """Messages of one byte order."""

    def __init__(self, order):
        self.form = ORDERS[order]
        self.mark = b"l" if order == "little" else b"B"

    def word(self, number):
        return struct.pack(self.form + "I", number & 0xFFFFFFFF)

    def text(self, raw):
        raw = raw.encode() if isinstance(raw, str) else raw
        return self.word(len(raw)) + raw

    def message(self, kind, serial, body, version=2):
        head = struct.pack(self.form + "cBcBIIII", b"k", version, self.mark, kind, serial, 0, 20 + len(body), 0)
        return head + body

    def call(self, serial, path, function, arguments, kind=2):
        """Values are bytes arrays or texts."""
        body = self.text(path) + self.text(function) + bytes([len(arguments)])
        for name, value in arguments:
            body += self.text(name) + (b"\x13" if isinstance(value, bytes) else b"\x00") + self.text(value)
        return self.message(kind, serial, body)

    def reply(self, serial, value=b"\x0a\x01", errors=()):
        body = bytes([len(errors)])
        for code, description, info in errors:
            body += self.word(code) + self.text(description) + self.text(info)
        return self.message(4, serial, body + (b"\x01" + value if value is not None else b"\x00"))

    def signal(self, identifier, items):
        """A record of endpoint 7, line 0, message 9."""
        buffer = b"".join(self.word(item) + self.word(len(raw)) + padded(raw) for item, raw in items)
        return b"".join(map(self.word, (7, identifier, 0, 9, 0, 0, len(buffer)))) + buffer
