# SPDX-License-Identifier: MIT
"""Packets that break the rules: each is refused with a sentence, and its sender closed."""

from target import struct
from wire import APPLICATION, CALL, HEAD_SIZE, HELLO, ORDER, REPLY, TAP_RECORD, WAITING, call, head, text, together

OTHER_ORDER = b"B" if ORDER == b"l" else b"l"


def good_call():
    return call(1, APPLICATION, "register_plugin", [("plugin_name", "raw")])[0]


def older_hello():
    """What a process of version 1 says, whose heads had neither size nor descriptors."""
    return struct.pack("=cBcBII", b"k", 1, ORDER, HELLO, 0, 0) + text("raw")


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
    "other_version": head(HELLO, version=3) + text("raw"),
    "older_version": older_hello(),
    "other_byte_order": head(HELLO, order=OTHER_ORDER) + text("raw"),
    "unknown_byte_order": head(HELLO, order=b"?") + text("raw"),
    "unknown_kind": head(99),
    "call_before_the_greeting": good_call(),
    "tap_record": head(TAP_RECORD) + b"\x00" * 64,
    "call_behind_the_greeting": together(HELLO_PACKET, good_call()),
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
    "other_byte_order": head(CALL, 1, order=OTHER_ORDER) + good_call()[HEAD_SIZE:],
    "reply_cut_off": head(REPLY, 1) + b"\x01\x00",
}


def one_way_call():
    """What would leave a trace if it ran: the application does not know this function."""
    return call(1, APPLICATION, "never_run", [], one_way=True)[0]


def with_sizes(first, second):
    """Two calls whose heads say that they are so much longer or shorter than they are."""
    one, other = one_way_call(), one_way_call()
    return together(one.with_size(len(one) + first), other.with_size(len(other) + second))


def with_descriptors(*counts):
    """Calls whose heads announce descriptors."""
    return together(*(one_way_call().with_descriptors(count) for count in counts))


# The first message is in order, as far as it can be told from the others.
PACKETS_OF_SEVERAL = {
    "size_zero": together(one_way_call(), one_way_call().with_size(0)),
    "size_of_half_a_head": together(one_way_call(), one_way_call().with_size(HEAD_SIZE // 2)),
    "size_one_short_of_a_head": together(one_way_call(), one_way_call().with_size(HEAD_SIZE - 1)),
    "size_of_a_head_alone": together(one_way_call(), one_way_call().with_size(HEAD_SIZE)),
    "size_one_short": with_sizes(0, -1),
    "size_one_beyond": with_sizes(0, 1),
    "size_of_all_ones": together(one_way_call(), one_way_call().with_size(0xFFFFFFFF)),
    "size_that_wraps": together(one_way_call(), one_way_call().with_size(0xFFFFFFFF - len(one_way_call()) + 1)),
    "first_one_short": with_sizes(-1, 0),
    "first_one_reaches_into_the_next": with_sizes(HEAD_SIZE, 0),
    "first_one_reaches_over_the_next": with_sizes(len(one_way_call()), 0),
    "descriptor_announced": with_descriptors(0, 1),
    "descriptors_of_all_ones": with_descriptors(0, 0xFFFFFFFF),
    "descriptors_whose_sum_wraps": with_descriptors(0x80000000, 0x80000000),
    "sixty_five_messages": together(*[one_way_call()] * 65),
    "six_thousand_empty_messages": together(*[head(WAITING).with_size(0)] * 6000),
    "six_thousand_notices": together(*[head(WAITING)] * 6000),
    "ten_thousand_notices": together(*[head(WAITING)] * 10_000),
    "half_a_head_behind": together(one_way_call(), head(WAITING)[:10]),
    "one_byte_behind": together(one_way_call(), b"k"),
    "zeros_behind": together(one_way_call(), bytes(64)),
    "greeting_behind": together(one_way_call(), HELLO_PACKET),
    "unknown_kind_behind": together(one_way_call(), head(99)),
    "other_byte_order_behind": together(one_way_call(), head(CALL, 1, order=OTHER_ORDER) + good_call()[HEAD_SIZE:]),
    "other_version_behind": together(one_way_call(), head(CALL, 1, version=1) + good_call()[HEAD_SIZE:]),
    "broken_call_behind": together(one_way_call(), BROKEN_PACKETS["boolean_that_is_neither"]),
    "broken_call_between": together(one_way_call(), BROKEN_PACKETS["byte_array_cut_off"], one_way_call()),
    "too_many_values_together": together(
        *[call(1, APPLICATION, "never_run", [("a", [None] * 2048)], one_way=True)[0]] * 2
    ),
}
