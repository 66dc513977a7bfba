# SPDX-License-Identifier: MIT
"""Streams that come with losses, duplicates, neighbours swapped and jitter: the counts of a telephone against those of
tshark, which sees the same packets on their way."""

import random
import re
import time

import pytest

from capture import Capture
from faulty_calls import FakeApplication
from media import FRAME_BYTES, FRAME_MS, STATISTICS, Pair, connection, identifier, items, numbers, own_address, rtp
from target import struct
from wire import CALL, Fd, I16, ONE_WAY, U32, reply

STREAMS = 10
PACKETS = 150
FRAME_SAMPLES = 160
CLOCK = 8000

# A stream of the table: who sent it, packets, lost, and the smallest, mean and largest jitter in ms.
ROW = re.compile(
    r" (?P<port>\d+) +\S+ +\d+ 0x\w+ +\S+ +(?P<packets>\d+) +(?P<lost>-?\d+) \(.*?\)(?P<times>( +[\d.]+)+)"
)


class Telephones(FakeApplication):
    """One for each stream, with the events that they report."""

    def __init__(self, system):
        self.registered = 0
        self.events = {}
        super().__init__(system, "fxs1", "fxs_plugin", "--lines", str(STREAMS))

    def answer(self, packet):
        if packet.kind == ONE_WAY and packet.function == "event":
            endpoint, event = struct.unpack_from("=iI", packet.arguments["event"])
            if event == identifier("LIBVOICE_EVENT_zil_call_stats"):
                self.events[endpoint] = items(packet.arguments["event"][20:])
        if packet.kind == CALL and packet.function == "register_endpoint":
            self.peer.send(reply(packet.serial, I16(self.registered)))
            self.registered += 1
        else:
            super().answer(packet)

    def ask(self, line, function, arguments):
        path = f"fxs1.EndPoint.FXS{line + 1}"
        return self.peer.call(path, function, [("ep_line_id", U32(0)), *arguments], answer=self.answer).result


def impaired(seed):
    """The packets of a stream with the time of each, in ms: none is lost at its ends."""
    chance = random.Random(seed)
    loss, twice, swapped, jitter = (chance.choice(rates) for rates in [(0, 2, 5, 10), (0, 3), (0, 4), (0, 2, 8, 15)])
    first = chance.randrange(0x10000)
    begin = chance.randrange(1 << 32)
    packets = []
    for place in range(PACKETS):
        inside = 5 < place < PACKETS - 5
        if inside and chance.randrange(100) < loss:
            continue
        late = chance.uniform(0, jitter) + (25 if inside and chance.randrange(100) < swapped else 0)
        packet = rtp(first + place, begin + place * FRAME_SAMPLES, source=seed + 1, payload=b"\x2a" * FRAME_BYTES)
        packets.append((place * FRAME_MS + late, packet))
        if inside and chance.randrange(100) < twice:
            packets.append((place * FRAME_MS + late + 1, packet))
    return packets


def send_all(far):
    """All streams side by side, each packet at its time."""
    schedule = sorted((when, seed, packet) for seed in range(STREAMS) for when, packet in impaired(seed))
    begin = time.monotonic()
    for when, seed, packet in schedule:
        time.sleep(max(0, begin + when / 1000 - time.monotonic()))
        far[seed].sockets[0].send(packet)


def test_counts_are_those_that_tshark_finds(system):
    system.address = own_address()
    capture = Capture(system)
    telephones = Telephones(system)
    near, far = ([Pair(system.address) for _ in range(STREAMS)] for _ in range(2))
    for line in range(STREAMS):
        near[line].connect(far[line])
        far[line].connect(near[line])
        files = [Fd(number) for number in near[line].filenos()]
        # It only listens, so that nothing else is on the way.
        assert telephones.ask(line, "create", [("filedesc", files), ("cnx_info", connection(mode=2))]) is True
    send_all(far)
    capture.stop()
    for line in range(STREAMS):
        assert telephones.ask(line, "destroy", []) is True
    while len(telephones.events) < STREAMS:
        telephones.answer(telephones.peer.receive())

    table = {}
    for line in capture.read([pair.port for pair in far], "-q", "-z", "rtp,streams"):
        row = ROW.search(line)
        if row:
            table[int(row["port"])] = row
    assert len(table) == STREAMS
    lost = twice = 0
    for line in range(STREAMS):
        row = table[far[line].port]
        said = telephones.plugin.out.since(0, f"^{line + 1} media ended ")[0]
        mine = numbers(STATISTICS.search(said))
        duplicates = int(re.search(r"twice=(\d+)", said)[1])
        assert mine["rx"] == int(row["packets"]), said
        # tshark counts a duplicate as one that came (RFC 3550 A.3).
        assert mine["lost"] - duplicates == int(row["lost"]), said
        peak = telephones.events[line][identifier("LIBVOICE_PARAM_zil_call_stats_peakJitter")] * 1000 / CLOCK
        largest = float(row["times"].split()[-1])
        assert peak == pytest.approx(largest, rel=0.05, abs=0.25), said
        lost, twice = lost + mine["lost"], twice + duplicates
    assert lost > 10 and twice > 5, "the impairments do not impair"
    for pair in near + far:
        pair.close()
    telephones.close()


def test_ten_thousand_packets_from_strangers_leave_a_telephone_at_work(system):
    """Sources in turn, jumps, and a flood: all is counted, and the stream that follows is heard."""
    telephones = Telephones(system)
    near, far = Pair(own_address()), Pair(own_address())
    near.connect(far)
    far.connect(near)
    files = [Fd(number) for number in near.filenos()]
    assert telephones.ask(0, "create", [("filedesc", files), ("cnx_info", connection(mode=2))]) is True
    chance = random.Random(1)
    for turn in range(100):
        for _ in range(100):
            kind = chance.randrange(4)
            packet = rtp(
                chance.randrange(0x10000) if kind == 0 else turn,
                chance.randrange(1 << 32) if kind < 2 else turn * FRAME_SAMPLES,
                payload_type=8 if kind < 3 else chance.randrange(128),
                source=chance.randrange(64),
                payload=bytes(chance.randrange(300)),
            )
            try:
                far.sockets[0].send(packet)
            except (BlockingIOError, ConnectionRefusedError):
                pass
        telephones.plugin.ask("status")
    tone = bytes(0x2A if place % 8 < 4 else 0xAA for place in range(FRAME_BYTES))  # 1000 Hz
    begin = time.monotonic()
    for place in range(60):
        time.sleep(max(0, begin + place * FRAME_MS / 1000 - time.monotonic()))
        far.sockets[0].send(rtp(place, place * FRAME_SAMPLES, source=99, payload=tone))
    telephones.plugin.expect("^1 hears .*1000Hz")
    assert telephones.ask(0, "destroy", []) is True
    counts = numbers(STATISTICS.search(telephones.plugin.expect("^1 media ended ").string))
    assert counts["rx"] >= 59 and counts["discarded"] > 1000
    near.close()
    far.close()
    telephones.close()
