# SPDX-License-Identifier: MIT
"""Peers that do not keep to the rules, over the real socket: they are told why and closed, and nobody else notices."""

import os
import socket

import pytest

from broken_packets import BROKEN_GREETINGS, BROKEN_PACKETS, HELLO_PACKET, PACKETS_OF_SEVERAL, good_call, older_hello
from dialling import lift
from processes import until
from target import struct
from wire import APPLICATION, CALL, REPLY, Fd, RawPeer, call, head, text, together


@pytest.fixture
def application(system):
    """An application with one plugin, whose line must work after whatever the test did, without a descriptor lost."""
    one = system.start_application()
    plugin = system.start_fxs("fxs1")
    before = one.descriptors()
    yield one
    until("the application gave back all descriptors", lambda: one.descriptors() == before)
    lift(plugin)


def peer_after_hello(system):
    return RawPeer.connect(system.socket)


@pytest.mark.parametrize("packet", BROKEN_GREETINGS.values(), ids=BROKEN_GREETINGS.keys())
def test_broken_greeting(system, application, packet):
    with RawPeer.connect(system.socket, hello=False) as peer:
        peer.send(packet)
        assert peer.refusal() != ""
    application.err.expect("refused|closed|broken")


@pytest.mark.parametrize("packet", BROKEN_PACKETS.values(), ids=BROKEN_PACKETS.keys())
def test_broken_packet(system, application, packet):
    with peer_after_hello(system) as peer:
        assert peer.call(APPLICATION, "nothing", []).kind == REPLY  # the hello was taken
        peer.send(packet)
        assert peer.refusal() != ""


@pytest.mark.parametrize("packet", PACKETS_OF_SEVERAL.values(), ids=PACKETS_OF_SEVERAL.keys())
def test_nothing_of_a_broken_packet_is_handled(system, application, packet):
    with peer_after_hello(system) as peer:
        assert peer.call(APPLICATION, "nothing", []).kind == REPLY  # the hello was taken
        peer.send(packet)
        assert peer.refusal() != ""
    application.err.expect("connection to 'raw' .*refused: ")
    assert not any("never_run" in line for line in application.err.all)


def test_older_version_is_told_so(system, application):
    with RawPeer.connect(system.socket, hello=False) as peer:
        peer.send(older_hello())
        assert peer.refusal() == "the protocol version differs"


def test_calls_of_one_packet_are_handled_in_their_order(system, application):
    calls = [call(serial, APPLICATION, f"nothing_{serial}", [])[0] for serial in range(1, 65)]
    with peer_after_hello(system) as peer:
        peer.receive()  # its hello
        peer.send(together(*calls))
        answers = [peer.receive() for _ in calls]
        assert [answer.serial for answer in answers] == list(range(1, 65))
        assert all(answer.errors[0][2] == f"nothing_{answer.serial}" for answer in answers)


def test_peer_that_leaves_behind_a_packet_of_many_calls(system, application):
    for _ in range(6):
        peer = peer_after_hello(system)
        peer.send(together(*[good_call()] * 32))
        peer.close()
    until("none of them is left in the table", lambda: application.plugins() == ["fxs1"])


def test_every_prefix_of_a_packet_of_two_calls(system, application):
    first, second = (call(1, APPLICATION, "never_run", [], one_way=True)[0] for _ in range(2))
    whole = together(first, second)
    for length in range(1, len(whole)):
        if length == len(first):
            continue
        with peer_after_hello(system) as peer:
            peer.send(whole[:length])
            assert peer.refusal() != "", f"{length} of {len(whole)} bytes"
    assert not any("never_run" in line for line in application.err.all)


def test_descriptors_that_belong_to_another_message(system, application):
    """Both messages are in order by themselves, had the descriptors come that the second one announces."""
    with open(os.devnull, "rb") as null:
        taking, taken = call(1, APPLICATION, "never_run", [("a", Fd(null.fileno()))], one_way=True)
        for counts, sent in (((1, 1), 1), ((1, 1), 3), ((2, 0), 2), ((0, 1), 1), ((0, 2), 2)):
            with peer_after_hello(system) as peer:
                peer.send(together(*(taking.with_descriptors(count) for count in counts)), taken * sent)
                assert peer.refusal() != "", (counts, sent)
    assert not any("never_run" in line for line in application.err.all)


def test_every_prefix_of_a_call(system, application):
    whole = good_call()
    for length in range(1, len(whole)):
        with peer_after_hello(system) as peer:
            peer.send(whole[:length])
            assert peer.refusal() != "", f"{length} of {len(whole)} bytes"


def test_every_byte_of_a_call_changed(system, application):
    whole = good_call()
    for at in range(len(whole)):
        for bits in (0x01, 0x80, 0xFF):
            with peer_after_hello(system) as peer:
                peer.send(whole[:at] + bytes([whole[at] ^ bits]) + whole[at + 1 :])
                try:
                    peer.send(head(99))  # the end, whatever the first one was taken for
                except BrokenPipeError:
                    pass
                assert peer.closed()


def test_descriptors_that_no_value_names(system, application):
    for packet in (HELLO_PACKET, good_call()):
        with peer_after_hello(system) as peer, open(os.devnull, "rb") as null:
            peer.send(packet, [null.fileno()] * 10)
            assert peer.refusal() != ""


def test_descriptor_named_twice(system, application):
    twice = (
        head(CALL, 1)
        + text(APPLICATION)
        + text("event")
        + b"\x02"
        + text("event")
        + struct.pack("=Bii", 18, 0, 5)
        + text("other")
        + struct.pack("=Bii", 18, 0, 5)
    )
    with peer_after_hello(system) as peer, open(os.devnull, "rb") as null:
        peer.send(twice, [null.fileno()])
        assert peer.refusal() != ""


def test_descriptors_in_a_call_that_has_no_use_for_them(system, application):
    with peer_after_hello(system) as peer, open(os.devnull, "rb") as null:
        for _ in range(50):
            answer = peer.call(APPLICATION, "event", [("plugin_name", "raw"), ("event", [Fd(null.fileno())] * 10)])
            assert answer.errors == [(196640, "Missing mandatory argument", "event")]


def test_silent_peer_is_closed(system, application):
    with RawPeer.connect(system.socket, hello=False) as peer:
        assert "no hello" in peer.refusal()


def test_peer_that_leaves_at_once(system, application):
    for _ in range(50):
        RawPeer.connect(system.socket, hello=False).close()
        peer_after_hello(system).close()


def test_peer_that_leaves_in_the_middle_of_its_call(system, application):
    for _ in range(20):
        peer = peer_after_hello(system)
        peer.send(good_call())
        peer.close()
    until("none of them is left in the table", lambda: application.plugins() == ["fxs1"])


def test_peer_that_never_reads(system, application):
    """Its replies pile up to the limit, then it is closed: the application's memory does not grow with it."""
    with peer_after_hello(system) as peer:
        peer.socket.settimeout(5)
        packet = call(1, APPLICATION, "nothing", [])[0]
        sent = 0
        try:
            while sent < 200_000:
                peer.send(packet)
                sent += 1
        except (BrokenPipeError, ConnectionResetError, TimeoutError, socket.timeout):
            pass
        assert sent < 200_000
    with open(f"/proc/{application.pid}/status", encoding="ascii") as status:
        resident = next(int(row.split()[1]) for row in status if row.startswith("VmRSS:"))
    assert resident < 40_000, "kB"


def test_flood_of_one_way_calls_leaves_room_for_others(system, application):
    with peer_after_hello(system) as peer:
        packet = call(1, APPLICATION, "nothing", [], one_way=True)[0]
        for _ in range(20_000):
            peer.send(packet)
    with peer_after_hello(system) as other:
        assert other.call(APPLICATION, "event", []).errors[0][0] == 196638


NEVER_DECLARED = {
    "libc_system": "_libc_system",
    "whole_symbol": "__libc_system",
    "symbol_of_a_declared_one": "__VoiceService_event",
    "function_of_another_class": "signal",
    "function_without_a_class": "init",
    "library_function": "libvoice_kex_final",
    "empty": "",
    "ten_kilobytes": "a" * 10_240,
    "zero_byte_behind_a_declared_name": "event\0",
    "zero_byte_alone": "\0",
    "format": "%s%n%s%n",
    "newline": "event\n",
    "other_case": "Event",
}


@pytest.mark.parametrize("function", NEVER_DECLARED.values(), ids=NEVER_DECLARED.keys())
def test_function_that_was_never_declared(system, application, function):
    with peer_after_hello(system) as peer:
        answer = peer.call(APPLICATION, function, [("plugin_name", "raw")])
        if answer.kind == REPLY:
            assert answer.result is None
            assert [code for code, _, _ in answer.errors] == [0x00010002]
        else:
            assert answer.text != ""  # too long for any function: the packet is refused
    assert not any("\0" in line or "\x1b" in line for line in application.err.all)


@pytest.mark.parametrize(
    "path",
    [
        "",
        "VoiceService",
        "VoiceService.",
        ".",
        "VoiceService.VoiceApplication.x",
        "voiceservice",
        "kex.x",
        "a" * 255,
        "VoiceService..VoiceApplication",
        "VoiceService.VoiceApplication\0",
    ],
    ids=lambda path: path.replace("\0", "0").replace(".", "-")[:40] or "empty",
)
def test_object_that_is_not_there(system, application, path):
    with peer_after_hello(system) as peer:
        answer = peer.call(path, "event", [])
        if answer.kind == REPLY:
            assert answer.result is None
            assert answer.errors[0][0] in (0x00010001, 0x00010002)
        else:
            assert answer.text != ""
