# SPDX-License-Identifier: MIT
"""First seeds of the targets that speak over sockets: steps as the targets read them, and packets."""

from seed_bytes import byte, half, text, word


def together(*messages):
    """A packet of several messages, each a kind and a body."""
    return byte(0, len(messages) - 1) + b"".join(byte(kind, 7, 0) + body for kind, body in messages)


def probe(name):
    """A word by its place in the list of packets.cpp."""
    return byte("Probe take call_back leave wait kex list text u16 u32 i32 bytes".split().index(name))


def whole_packet(kind, body, serial=7):
    return byte(kind, 255, serial, 0) + body


def call_packet(function, *arguments):
    """A call of Probe; an argument is a name and the bytes of a value."""
    body = byte(0) + probe(function) + byte(0, len(arguments))
    return body + b"".join(probe(name) + value for name, value in arguments)


A_TEXT, A_NUMBER = byte(0) + text("abc"), byte(4) + word(5)
A_LIST = byte(6, 3) + 2 * (byte(7, 0, 0, 9)) + byte(7, 0, 3)
EVERYTHING = ("text", A_TEXT), ("u16", byte(3) + half(5)), ("u32", A_NUMBER), ("bytes", byte(8) + text("xyz"))


def listener_seeds():
    peer = byte(2)
    connect, connect_tap, turn = byte(0) + peer + byte(0), byte(0, 5, 2), byte(9) + peer + byte(2)

    def send(packet):
        return byte(0) + peer + packet + turn

    def whole_packet(kind, body):
        return byte(kind, 7, 0) + body  # there is no call of the bus's own yet that it could answer

    read = byte(15) + peer
    whole = call_packet("take", *EVERYTHING, ("list", A_LIST))
    yield "call", connect + turn + send(whole_packet(2, whole)) + read
    yield "call-seen-by-a-tap", connect_tap + connect + turn + send(whole_packet(2, whole)) + byte(15, 5)
    three = (3, call_packet("take")), (2, whole), (6, b"")
    yield "three-messages-in-a-packet", connect + turn + send(together(*three)) + read
    yield "seventy-messages-in-a-packet", connect + turn + send(
        byte(0, 0, 63, 7, 0) + call_packet("take") + byte(69)
    ) + read
    yield "size-of-the-last-one-changed", connect + turn + send(
        byte(0, 1, 3, 7, 0) + call_packet("take") + byte(233, 7, 0) + call_packet("take") + byte(1, 1)
    ) + read
    yield "leaves-between-two-calls", connect + turn + send(
        together((2, call_packet("take")), (2, call_packet("leave")), (2, call_packet("take")))
    ) + read
    yield "one-way-call", connect + turn + send(whole_packet(3, call_packet("take"))) + read
    yield "calls-back", connect + turn + send(whole_packet(2, call_packet("call_back"))) + read + send(
        byte(4, 0, 0, 0) + byte(0, 0, 1, 4) + word(9)
    )
    yield "leaves", connect + turn + send(whole_packet(2, call_packet("leave"))) + read
    yield "waits", connect + turn + send(whole_packet(2, call_packet("wait"))) + read
    yield "lists", connect + turn + send(whole_packet(2, byte(3, 5, 6, 0, 0))) + read
    yield "second-hello", connect + turn + send(whole_packet(1, byte(0) + text("again"))) + read
    yield "tap-record-to-a-listener", connect + send(whole_packet(8, bytes(40)))
    yield "no-hello", byte(0) + peer + byte(3) + send(whole_packet(2, whole))
    yield "changed-head", connect + turn + send(byte(162, 7, 0) + whole + byte(1) + half(2) + byte(66, 0))


def connecting_seeds():
    connect, read, turn = byte(0), byte(9), byte(12)
    ask = byte(6, 1, 0, 0, 3, 0)

    def send(packet):
        return byte(0) + packet + turn

    reply = byte(4, 0, 0, 0) + byte(1) + word(1) + text("why") + text("what") + byte(1) + A_TEXT
    yield "asks-and-is-answered", connect + turn + ask + turn + send(reply)
    called = byte(3, 255, 7, 0) + call_packet("take")
    yield "answered-and-called-in-a-packet", connect + turn + ask + turn + send(byte(0, 1) + reply + called)
    yield "answered-twice", connect + turn + ask + turn + send(reply) + send(reply)
    yield "waits", connect + turn + byte(8, 1, 0, 0, 3, 1)
    yield "is-called", connect + turn + send(byte(2, 255, 7, 0) + call_packet("take", *EVERYTHING)) + read
    yield "is-refused", connect + turn + ask + send(byte(5, 255, 7, 0) + text("go away"))
    yield "far-side-closes", connect + turn + ask + byte(10) + turn + turn + connect
    yield "waiting-notice", connect + turn + ask + turn + send(byte(6, 0, 0, 0))


def tap_record(kind, packet):
    end = byte(9, 1) + text("fxs1")
    return byte(0, 3, 0) + byte(kind) + word(1) + byte(2) + end + end + byte(0) + text("") + packet


def tap_seeds():
    call = tap_record(3, byte(0) + whole_packet(2, call_packet("take", *EVERYTHING, ("list", A_LIST))))
    reply = tap_record(
        5, byte(0) + whole_packet(4, byte(0, 1) + word(1) + text("why") + text("what") + byte(1) + A_TEXT)
    )
    yield "call-and-reply", call + reply
    yield "two-records-in-a-packet", byte(130, 3, 0) + call[3:] + byte(3, 255) + call[3:]
    yield "connected-and-closed", tap_record(1, byte(3)) + tap_record(2, byte(3))
    yield "refused", byte(200, 5, 1, 0) + text("go away")
    yield "ends", call + byte(255)


def traffic_seeds():
    for name, value in tap_seeds():
        yield name, byte(0, 0, 60, 1) + value
    shown = tap_record(2, byte(3, 0))
    yield "filtered", byte(15) + text("FXS1") + text("fxs1") + text("take") + text("al") + byte(1, 60, 1) + shown
