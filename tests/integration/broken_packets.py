# SPDX-License-Identifier: MIT
"""Packets that break the rules: each is refused with a sentence, and its sender closed."""

from target import struct
from wire import APPLICATION, CALL, HELLO, ORDER, REPLY, TAP_RECORD, call, head, text

OTHER_ORDER = b"B" if ORDER == b"l" else b"l"


def good_call():
    return call(1, APPLICATION, "register_plugin", [("plugin_name", "raw")])[0]


HELLO_PACKET = head(HELLO) + text("raw")

BROKEN_GREETINGS = {
    "one_byte": b"k",
    "head_cut_off": HELLO_PACKET[:11],
    "head_alone": head(HELLO),
    "name_cut_off": HELLO_PACKET[:-1],
    "something_behind_the_name": HELLO_PACKET + b"x",
    "garbage": bytes(range(256)),
    "text": b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
    "other_magic": head(HELLO, magic=b"K") + text("raw"),
    "other_version": head(HELLO, version=2) + text("raw"),
    "other_byte_order": head(HELLO, order=OTHER_ORDER) + text("raw"),
    "unknown_byte_order": head(HELLO, order=b"?") + text("raw"),
    "unknown_kind": head(99),
    "call_before_the_greeting": good_call(),
    "tap_record": head(TAP_RECORD) + b"\x00" * 64,
    "name_longer_than_the_packet": head(HELLO) + struct.pack("=I", 0xFFFFFFFF) + b"raw",
}

BROKEN_PACKETS = {
    "second_greeting": HELLO_PACKET,
    "path_longer_than_the_packet": head(CALL, 1) + struct.pack("=I", 4096) + b"VoiceService",
    "argument_count_without_arguments": head(CALL, 1) + text(APPLICATION) + text("event") + b"\x01",
    "more_arguments_than_allowed": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\xff"
    + (text("a") + b"\xff") * 255,
    "unknown_type_code": head(CALL, 1) + text(APPLICATION) + text("event") + b"\x01" + text("event") + b"\x63",
    "boolean_that_is_neither": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\x01"
    + text("event")
    + b"\x0a\x02",
    "byte_array_cut_off": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\x01"
    + text("event")
    + b"\x13"
    + struct.pack("=I", 100)
    + b"short",
    "list_of_four_billion": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\x01"
    + text("event")
    + b"\x0d"
    + struct.pack("=I", 0xFFFFFFFF),
    "lists_nested_five_deep": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\x01"
    + text("event")
    + (b"\x0d" + struct.pack("=I", 1)) * 5
    + b"\x0d"
    + struct.pack("=I", 0),
    "descriptor_that_did_not_come": head(CALL, 1)
    + text(APPLICATION)
    + text("event")
    + b"\x01"
    + text("event")
    + struct.pack("=Bii", 18, 0, 5),
    "something_behind_the_call": good_call() + b"x",
    "other_byte_order": head(CALL, 1, order=OTHER_ORDER) + good_call()[12:],
    "reply_cut_off": head(REPLY, 1) + b"\x01\x00",
}
