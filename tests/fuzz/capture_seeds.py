# SPDX-License-Identifier: MIT
"""First seeds of the targets that read captures: steps as support/captures.cpp reads them, and whole files."""

import struct
import sys
from pathlib import Path

from seed_bytes import IDS, byte, half, text, word

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tool" / "tests"))

from captures import CALL, CLOSED, CONNECTED, ONE_WAY, REPLY, Writer, block, file_of, padded, record, tag  # noqa: E402

TO_LISTENER = 8
FXS1, FXS1_LINE = 0, 3  # by their places in captured_messages.cpp
WORD, BYTES, LIST, FLAG = 2, 8, 10, 5  # types of values
MADE, MADE_BIG = byte(4), byte(12)


def step(how, body, time=1):
    """A packet as it should be, which came some hundredths of a second after the one before it."""
    return byte(0, how, time, 0) + body


def of_bus(kind, body=b"", towards=TO_LISTENER, ended=b""):
    return step(0, byte(kind | towards, FXS1, 0, 1, 1) + ended + body)


def message(body, serial=7, big=False):
    return byte(int(big), serial) + body + byte(1)


def call(function, *arguments, path=0):
    return byte(path, function, len(arguments)) + b"".join(byte(name) + value for name, value in arguments)


def of_record(words, identifier, *items):
    carried = b"".join(word(one) + text(value) + byte(1) for one, value in items)
    return byte(BYTES, 1, words, 3) + word(identifier) + bytes(words - 3) + byte(len(items)) + carried


NAME_FXS1, NAME_LINE = (0, byte(0, FXS1)), (1, byte(0, FXS1_LINE))
EVENT = of_record(5, IDS["LIBVOICE_EVENT_al_of"])
CADENCE = IDS["LIBVOICE_PARAM_al_ri_cad"], word(1000) + word(4000)
RING = of_record(7, IDS["LIBVOICE_SIGNAL_al_ri"], CADENCE)


def reply(value):
    return byte(0, 1) + value


def traffic(big=False):
    """A plugin with a line: what both sides say until it rings."""
    yield of_bus(1)
    yield of_bus(3, message(call(0, NAME_FXS1), 1, big))
    yield of_bus(5, message(reply(byte(FLAG, 1)), 1, big), towards=0)
    yield of_bus(3, message(call(1, NAME_FXS1, NAME_LINE), 2, big))
    yield of_bus(5, message(reply(byte(WORD) + word(3)), 2, big), towards=0)
    yield of_bus(4, message(call(3, NAME_FXS1, (8, EVENT)), 3, big))
    yield of_bus(4, message(call(4, (7, RING), path=2), 4, big), towards=0)
    yield of_bus(7, message(b"", 5, big))
    yield of_bus(2, ended=text("it left"))


def sound(number, options=b""):
    how = 1 if not options else 9
    return step(how, byte(0, 8, number) + half(160 * number) + byte(1) + text(b"\xd5" * 20) + options, time=2)


OPTIONS = byte(3, 0) + text("1.fxs1 <FXS1>") + byte(1, 1) + byte(2, 7)  # a comment, that it was received, seven lost


def made_seeds():
    begin = byte(32)  # the file comes whole
    yield "traffic", begin + b"".join(traffic())
    yield "traffic-of-the-other-order", begin + b"".join(traffic(big=True))
    yield "sound", begin + b"".join(sound(number) for number in (1, 2, 4, 3, 3)) + sound(6, OPTIONS)
    yield "interfaces-and-sections", begin + byte(200, 0) + byte(1, 3, 0x94) + byte(225) + byte(200, 0, 0) + sound(1)
    yield "any-blocks", begin + byte(235, 4) + text("names") + sound(1) + byte(245, 5, 4) + text("sizes that differ")
    yield "any-bytes", begin + sound(1) + byte(250) + text(b"\x06\0\0\0\xff\xff\xff\x7f")
    yield "pieces", byte(41) + b"".join(traffic()) + sound(1)
    yield "clock-that-is-set-back", begin + sound(5) + byte(0, 0, 255) + word(1) + byte(0, 1, 0, 0, 2, 0, 0)
    many = 5 * byte(FLAG, 1)
    yield "lists-and-errors", begin + of_bus(3, message(call(11, (13, byte(LIST, 5) + many)))) + of_bus(
        5, message(byte(2) + 2 * (word(196640) + text("<b>") + text("\x1b[2J")) + byte(0)), towards=0
    )
    yield "markup-in-names", begin + of_bus(2, ended=text("</script><script>&amp;\"';end\u202e")) + step(
        9, byte(0, 8, 1, 0, 0, 1) + text("x") + byte(1, 0) + text("</pre><!-- ]]> %DATA% \u0301\u0301\u0301\u0301")
    )


def file_seeds():
    for order in "little", "big":
        to = Writer(order)
        items = [(CADENCE[0], b"".join(map(to.word, (1000, 4000))))]
        line = to.call(8, "fxs1.EndPoint.FXS1", "signal", [("signal", to.signal(IDS["LIBVOICE_SIGNAL_al_ri"], items))])
        answer = to.reply(7, errors=[(1, "no", "line")])
        records = [
            record(CONNECTED),
            record(CALL, to.call(7, "fxs1", "init", [("country", "DE\0")])),
            record(ONE_WAY, line),
        ]
        records += [record(REPLY, answer, lost=2), record(CLOSED, text=b"it left")]
        yield f"file-of-{order}-endian", file_of(records, order)
    whole = file_of([record(CONNECTED)])
    yield "file-cut-off", whole[:-5]
    yield "file-of-another-link-type", whole[:36] + half(1) + whole[38:]
    yield "classic-capture", bytes.fromhex("d4c3b2a1") + bytes(20)
    yield "compressed", bytes.fromhex("1f8b0800") + bytes(20)
    yield "empty", b""


def capture_seeds():
    for name, value in made_seeds():
        yield name, MADE + value
    yield "of-big-endian", MADE_BIG + byte(32) + b"".join(traffic()) + sound(1)
    yield "filtered", byte(4 | 1, 1) + text("FXS1") + byte(32) + b"".join(traffic())
    yield "more-rows-than-there-may-be", byte(4 | 2, 3) + byte(32) + b"".join(traffic()) + sound(1)
    for name, value in file_seeds():
        yield name, byte(0) + value


def sound_file():
    """A packet of sound, as a host writes it."""
    address = tag(20, bytes([127, 0, 0, 1])) + tag(21, bytes([127, 0, 0, 1]))
    ports = tag(24, struct.pack(">I", 3)) + tag(25, struct.pack(">I", 30000)) + tag(26, struct.pack(">I", 30002))
    raw = tag(12, b"rtp") + address + ports + bytes(4) + b"\x80\x08\0\1" + bytes(8) + b"\xd5" * 4
    head = struct.pack("<IIIII", 0, 400000, 0, len(raw), len(raw))
    comment = struct.pack("<HH", 1, 6) + padded(b"1.fxs1") + struct.pack("<HHI", 2, 4, 1) + bytes(4)
    return file_of([]) + block("<", 6, head + padded(raw) + comment)


def media_file_seeds():
    for name, value in made_seeds():
        yield name, byte(1) + value
    yield "of-big-endian", byte(3, 32) + sound(1) + sound(2, OPTIONS)
    yield "file", byte(0) + sound_file()
    yield "file-cut-off", byte(0) + sound_file()[:-7]
    yield "text", byte(0) + b"this is a text, not a capture"
