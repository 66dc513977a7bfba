# SPDX-License-Identifier: MIT
"""What an independent program makes of the packets of a call: tshark captures the loopback and decodes them as RTP."""

import math
import re

import pytest

from capture import Capture
from dialling import hang_up, start_telephones, talk
from media import (
    FORMS,
    FRAME_BYTES,
    FRAME_MS,
    PCMA,
    PCMU,
    STATISTICS,
    Pair,
    numbers,
    own_address,
    rtp,
    start_application,
)

FIRST_TONE, SECOND_TONE = 1000, 2200  # Hz, of fxs1 1 and fxs2 1
SAMPLE_RATE = 8000
FRAME_SAMPLES = 160
SENDER_REPORT, SOURCE_DESCRIPTION, FAREWELL = "200", "202", "203"
MEDIA_PACKETS = 50  # of each side in each codec: a second


def linear_of_alaw(code):
    code ^= 0x55
    segment, value = code >> 4 & 7, (code & 15) << 4 | 8
    if segment > 0:
        value = (value | 0x100) << segment - 1
    return value if code & 0x80 else -value


def linear_of_ulaw(code):
    code ^= 0xFF
    value = ((code & 15) << 3 | 0x84) << (code >> 4 & 7)
    return 0x84 - value if code & 0x80 else value - 0x84


LINEAR = {PCMA: linear_of_alaw, PCMU: linear_of_ulaw}


def tone_share(packets, frequency):
    """How much of what packets carry is a tone (Goertzel). Decoded here a second time, independently of the hosts."""
    samples = [LINEAR[packet.type](code) for packet in packets for code in packet.payload]
    turn = 2 * math.cos(2 * math.pi * frequency / SAMPLE_RATE)
    before = now = 0.0
    for sample in samples:
        before, now = now, sample + turn * now - before
    power = before * before + now * now - turn * before * now
    return power / (len(samples) / 2 * sum(sample * sample for sample in samples))


def check_stream(packets, types, tone):
    """One side's packets over a whole session: payload types in turn, no gap, 20 ms, and the tone that it speaks."""
    first = packets[0]
    assert {packet.ssrc for packet in packets} == {first.ssrc}
    before = None
    seen = []
    for place, packet in enumerate(packets):
        assert packet.version == 2
        assert len(packet.payload) == FRAME_BYTES
        assert packet.sequence == (first.sequence + place) & 0xFFFF, "a gap in the sequence numbers"
        # RTP time goes by the sampling clock: what a busy machine made late is left out, and then a marker stands.
        step = FRAME_SAMPLES if before is None else (packet.timestamp - before.timestamp) & 0xFFFFFFFF
        assert step % FRAME_SAMPLES == 0 and 0 < step < SAMPLE_RATE, "another step than 160"
        changed = before is None or packet.type != before.type
        begins = changed or step != FRAME_SAMPLES
        assert packet.marker == begins, "a marker stands where something new begins, and nowhere else"
        if changed:
            seen.append(packet.type)
        before = packet
    assert seen == types
    for kind in types:
        assert tone_share([packet for packet in packets if packet.type == kind][: MEDIA_PACKETS // 2], tone) > 0.95
    # The clock of the wire: a busy machine may send some late, but what is usual is 20 ms, and nothing runs ahead.
    gaps = sorted(after.time - packet.time for packet, after in zip(packets, packets[1:]))
    assert abs(gaps[len(gaps) // 2] * 1000 - FRAME_MS) < 2
    passed = ((packets[-1].timestamp - first.timestamp) & 0xFFFFFFFF) / SAMPLE_RATE
    assert abs(packets[-1].time - first.time - passed) < 10 * FRAME_MS / 1000


def check_tshark_finds_nothing_lost(capture, ports, streams):
    """tshark's own table of RTP streams: as many as there should be, none with a lost packet or another problem."""
    rows = [row for row in capture.read(ports, "-q", "-z", "rtp,streams") if capture.address in row]
    assert len(rows) == streams
    for row in rows:
        assert re.search(r" 0 \(0\.0%\) ", row), row
        assert not row.rstrip().endswith("X"), row
    ours = " || ".join(f"udp.port == {port} || udp.port == {port + 1}" for port in ports)
    assert capture.read(ports, "-Y", f"({ours}) && (_ws.malformed || _ws.expert.severity >= 0x00600000)") == []


@pytest.fixture(params=FORMS)
def office(request, system):
    """A call is up, and every packet of it is captured."""
    system.form = request.param
    system.application = start_application(system, *FORMS[system.form])
    system.capture = Capture(system)
    system.first, system.second = start_telephones(system, *FORMS[system.form])
    talk(system.first, "201", system.second)
    return system


def ports_of(process, codec):
    match = process.expect(rf"^1 talking line=0 codec={codec} ports=(\d+)->(\d+)$")
    return int(match.group(1)), int(match.group(2))


def wait_for_sound(office, ports, count):
    for here, there in (ports, ports[::-1]):
        office.capture.wait_for(here, there, count)


def counts(process):
    return [numbers(STATISTICS.search(line)) for line in process.out.since(0, "^1 media ended line=0 ")]


def end(office):
    hang_up(office.first, office.second)
    office.application.expect("^line 201 idle$")
    office.capture.stop()


def test_a_call_is_rtp_before_and_after_a_codec_change(office):
    before = ports_of(office.first, "PCMA")
    wait_for_sound(office, before, MEDIA_PACKETS)
    office.application.ask("codec 101 PCMU")
    after = ports_of(office.first, "PCMU")
    # Where the sockets stay, the ports have sent the old codec's packets already, and some more until the change.
    wait_for_sound(office, after, MEDIA_PACKETS * 2 + 25 if before == after else MEDIA_PACKETS)
    end(office)
    ports = sorted({*before, *after})
    sent = office.capture.rtp(ports)
    if office.form == "descriptors":
        assert before == after
        sessions = [(before, [PCMA, PCMU])]
    else:
        assert set(before).isdisjoint(after)  # destroy and create: other sockets, another source
        sessions = [(before, [PCMA]), (after, [PCMU])]
    for place, ((here, there), types) in enumerate(sessions):
        for process, port, other, tone in [
            (office.first, here, there, FIRST_TONE),
            (office.second, there, here, SECOND_TONE),
        ]:
            packets = sent[port]
            assert {packet.destination for packet in packets} == {other}
            check_stream(packets, types, tone)
            # What the telephone counted is what went over the wire; and all that arrived was sent.
            assert counts(process)[place]["tx"] == len(packets)
            peer = office.second if process is office.first else office.first
            assert counts(peer)[place]["rx"] <= len(packets)
            assert counts(peer)[place]["lost"] == 0
    # Every packet between these ports is RTP, and nothing else goes from or to them.
    between = " || ".join(f"udp.port=={port}" for port in ports)
    assert len(office.capture.fields(ports, f"({between}) && !icmp", ["frame.number"])) == sum(map(len, sent.values()))
    check_tshark_finds_nothing_lost(office.capture, ports, 2 * len(sessions))


def test_control_packets_are_rtcp(office):
    here, there = ports_of(office.first, "PCMA")
    wait_for_sound(office, (here + 1, there + 1), 1)
    end(office)
    sent = office.capture.rtp([here, there])
    rows = office.capture.fields(
        [here, there],
        "rtcp && !icmp",
        [
            "frame.time_epoch",
            "udp.srcport",
            "rtcp.pt",
            "rtcp.senderssrc",
            "rtcp.sender.packetcount",
            "rtcp.sender.octetcount",
            "rtcp.ssrc.identifier",
            "rtcp.ssrc.cum_nr",
            "rtcp.ssrc.fraction",
            "rtcp.sdes.text",
            "rtcp.ssrc.lsr",
            "rtcp.length_check",
        ],
    )
    assert {int(row[1]) for row in rows} == {here + 1, there + 1}
    names, last = {}, {}
    for time, port, types, source, packets, octets, reported, lost, fraction, name, last_report, length_check in rows:
        mine, others = sent[int(port) - 1], sent[there if int(port) - 1 == here else here]
        last[port] = types.split(",")
        assert last[port][:2] == [SENDER_REPORT, SOURCE_DESCRIPTION]
        assert source.split(",")[0] == mine[0].ssrc
        assert int(packets) == len([packet for packet in mine if packet.time <= float(time)])
        assert int(octets) == int(packets) * FRAME_BYTES
        assert reported.split(",")[0] == others[0].ssrc and int(lost) == 0 and int(fraction) == 0
        assert length_check in ("1", "True")
        names.setdefault(port, name)
        assert names[port] == name
    assert sorted(names.values()) == [f"1.fxs1@{office.address}", f"1.fxs2@{office.address}"]
    # Whoever leaves says so; who is left alone may have been told before it could.
    assert [FAREWELL] in [types[2:] for types in last.values()]
    # One of the two reports came second, and answered the first: the round trip, in ms and never less than one.
    assert any(int(row[10].split(",")[0]) != 0 for row in rows)
    ended = [process.out.since(0, "^1 media ended ")[0] for process in (office.first, office.second)]
    assert any(1 <= int(re.search(r"roundtrip=(\d+)", line).group(1)) < 100 for line in ended)
    check_tshark_finds_nothing_lost(office.capture, [here, there], 2)


def test_a_gap_would_be_noticed(system):
    """The checks themselves: a stream with one packet left out is none without a gap, and tshark counts it as lost."""
    system.address = own_address()
    capture = Capture(system)
    near, far = Pair(system.address), Pair(system.address)
    near.connect(far)
    far.connect(near)
    for place in range(20):
        if place != 7:
            near.sockets[0].send(rtp(100 + place, place * FRAME_SAMPLES))
    capture.stop()
    sent = capture.rtp([near.port, far.port])[near.port]
    assert len(sent) == 19
    with pytest.raises(AssertionError, match="a gap in the sequence numbers"):
        check_stream([packet._replace(marker=place == 0) for place, packet in enumerate(sent)], [PCMA], FIRST_TONE)
    with pytest.raises(AssertionError):
        check_tshark_finds_nothing_lost(capture, [near.port, far.port], 1)
    near.close()
    far.close()
